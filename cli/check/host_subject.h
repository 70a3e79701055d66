// A host under check, and what most of its checks use.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "check.h"
#include "morva/check_host.h"
#include "morva/morva.h"
#include "random.h"
#include "shared_file.h"

namespace morva::cli::check {

constexpr MORVAHostRequest kPlainHost{0, 0, 0};
constexpr MORVAHostRequest kLockedTrees{0, 1, 0};
constexpr MORVAHostRequest limitedTo(uint64_t bytes) {
  return {bytes, 0, 0};
}

// What the library of a host exports; the library stays loaded for good.
const MORVAHostCheck &checkTable(const Subject &subject);

// The library that a host is driven with, loaded for good. Its functions are
// those of the instance and the extension.
struct DrivingLibrary {
  explicit DrivingLibrary(const Subject &subject);
  MORVAStatus (*qzextver)(HostServices *table, int64_t *major, int64_t *minor);
  MORVAExt *(*entry)(void *unused, void *context);
};

// One host. It is not ended with the object: a check that failed has lost
// sight of what the host is in.
class Host {
 public:
  // Throws NotApplicable when there is no such host.
  explicit Host(const Subject &subject, const MORVAHostRequest &request = kPlainHost);

  const MORVAHostCheck &table() const { return table_; }
  HostServices *services() const { return services_; }

  // What the services are asked for; they throw Unmet instead of answering null.
  HostPool *pool(uint32_t options = 0, const char *name = "records") const;
  HostLock *lock(uint8_t option1 = 1, const char *name = "table") const;
  RecordPackerExt *packers() const;
  TreeExt *trees() const;
  OrderListExt *lists() const;
  // Null is an answer here. `name` has one character more at least than `length`.
  void *companion(const char32_t *name, uint64_t length) const;

  bool canBeEnded() const { return table_.destroy != nullptr; }
  // What the host says was still alive. It must be one that can be ended.
  uint32_t end() { return table_.destroy(host_); }
  // Ends the host, if it can be; nothing may be left on it.
  void endWithNothingLeft();

 private:
  const MORVAHostCheck &table_;
  HostServices *services_ = nullptr;
  void *host_ = nullptr;
};

// Runs `check` on a host with plain trees and on one with locked trees, if there is such a one.
void onHostsOfBothKinds(const Subject &subject, const std::function<void(Host &host)> &check);

// Throws Unmet when a table that `object` begins with has nothing in that slot.
void expectSlot(const void *object, unsigned slot, const std::string &what);

// A block of the pool. Throws Unmet where it answers null.
unsigned char *taken(HostPool *pool, uint64_t size, uint32_t options = 0);

// What is written into a block, and found there again.
void fillWith(unsigned char *block, uint64_t size, uint64_t seed);
bool isFilledWith(const unsigned char *block, uint64_t size, uint64_t seed);

// Memory of this process that is in use, in bytes.
uint64_t residentBytes();

// Lends a copy of some bytes: they end where an unreadable page begins, and are
// themselves out of reach once taken back.
class LentBytes {
 public:
  LentBytes(const void *bytes, size_t size);
  void *get() const { return start_; }
  template <class Type>
  Type *as() const {
    return static_cast<Type *>(start_);
  }
  void takeBack() const;
  // Reading goes on, writing ends the process.
  void lockForReading() const;

 private:
  unsigned char *pages_;
  size_t pageBytes_;
  void *start_;
};

// Something done by another thread. It goes on when nobody waits for it.
class Task {
 public:
  explicit Task(std::function<void()> work);
  // Whether it is done, after a moment in which it could have been.
  bool isDoneSoon() const;
  // Throws what the work threw.
  void wait() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

// Called with something held that others wait for: threads would hardly meet
// there, were it not for this. A moment, and in one round of many a longer one,
// in which other threads get to run wherever there is one processor only.
void linger(unsigned round);

// Runs the work of threads 0 to `count` - 1, which start at once. Throws what
// one of them threw.
void inThreads(unsigned count, const std::function<void(unsigned)> &work);

}  // namespace morva::cli::check
