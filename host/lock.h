// The locks of a host: exclusive or shared, re-entrant, writers first.
//
// One word holds everything the threads compete for, so that acquiring and
// releasing a lock nobody else wants is one read-modify-write each:
//
//   state   bits 0..27   readers; all ones means one exclusive holder
//           bit 28       a reader waits to become the exclusive holder
//           bit 30       readers wait (on `state` itself)
//           bit 31       writers wait (on `writerTurn`)
//
// Who holds it.
//  - The exclusive holder is named by `owner`, with its depth beside it, which
//    only the holder touches. Threads are named by numbers that are never used
//    again, so that a thread which ended with the lock held is never mistaken
//    for a later one.
//  - Shared holds are kept by each thread for itself, per lock number. A nested
//    shared hold therefore touches nothing shared: it cannot wait behind a
//    writer that waits for this very thread. Lock numbers are never used again
//    either, so what a thread remembers of a destroyed lock is harmless.
//
// Turns. Readers do not enter while a writer or an upgrade waits; hence a stream
// of readers starves no writer. A lock that becomes free wakes one writer, and
// only when none was asleep the readers.
//
// Upgrade. The first reader that asks sets bit 28 and waits to be the last one;
// it enters before any waiting writer, since a writer could not enter before it
// left. A second one would wait for the first for ever and is refused. When the
// exclusive hold ends the shared one is there again.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "intrusive_list.h"
#include "morva/host_lock.h"
#include "morva/host_services.h"

struct QZHost;

namespace qzhost {

struct Lock {
  // A lock that is part of another object; its destroy entry does nothing.
  explicit Lock(QZHost *host);

  HostLock table;
  QZHost *host;
  uint64_t number;
  alignas(64) std::atomic<uint32_t> state{0};
  // Counts the turns given to sleeping writers.
  std::atomic<uint32_t> writerTurn{0};
  // Counts the departures of readers that an upgrade waited for.
  std::atomic<uint32_t> upgradeTurn{0};
  // The exclusive holder's alone: how often it holds the lock, and whether it
  // returns to a shared hold.
  uint32_t depth = 0;
  bool upgraded = false;
  std::atomic<uint64_t> owner{0};
  // On the host's list, for the locks it was asked to make.
  Link<Lock> link;
};
static_assert(sizeof(Lock) == 128);
static_assert(std::is_standard_layout_v<Lock>, "a lock is its table");

// HostServices.createLock.
HostLock *createLock(HostServices *services, const LockOptions *options, void *context,
                     const char *name);

// HostLock.acquire and HostLock.release of every lock made here.
uint32_t acquireLock(HostLock *table, uint32_t mode, uint32_t wait);
void releaseLock(HostLock *table);

// Holds a lock for a block of code.
class Holding {
 public:
  Holding(Lock *lock, uint32_t mode)
      : lock_(acquireLock(&lock->table, mode, 1) == 0 ? lock : nullptr) {}
  ~Holding() {
    if (lock_ != nullptr) releaseLock(&lock_->table);
  }
  Holding(const Holding &) = delete;
  Holding &operator=(const Holding &) = delete;

 private:
  Lock *lock_;
};

}  // namespace qzhost
