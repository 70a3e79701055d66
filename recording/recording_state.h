// The inside of RecordingHost. Each object of the host is its table with the
// host's own state behind it; objects stay in memory until the host ends, so
// that a call on a destroyed one is noticed instead of being undefined.
#pragma once

#include <condition_variable>
#include <cstring>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "recording_host.h"

namespace morva::recording {

using State = RecordingHost::State;

// What all objects of the host have in common.
struct Tracked {
  State *host = nullptr;
  uint32_t number = 0;
  bool alive = true;
};

struct Services : HostServices {
  State *host = nullptr;
};

struct Pool : HostPool, Tracked {
  std::string name;
};

// Re-entrant in one thread and a real lock between threads. A release by a
// thread that does not hold it does nothing.
struct Lock : HostLock, Tracked {
  std::string name;
  bool ofServices = false;  // made by createLock, so destroyed by the library
  std::mutex mutex;
  std::condition_variable freed;
  std::thread::id holder;
  uint64_t depth = 0;
};

struct PackerExt : RecordPackerExt, Tracked {
  uint64_t objects = 0;
};

struct Packer : RecordPacker, Tracked {
  PackerExt *maker = nullptr;
  std::vector<PackerField> fields;
  bool finished = false;
};

struct ContainerExt : TreeExt, Tracked {
  uint64_t objects = 0;
};

struct Container : TreeContainer, Tracked {
  ContainerExt *maker = nullptr;
  const TreeCallbacks *callbacks = nullptr;
};

struct ListExt : OrderListExt, Tracked {
  uint64_t objects = 0;
};

struct List : OrderList, Tracked {
  ListExt *maker = nullptr;
  std::list<OrderNode *> nodes;
  std::unordered_map<const void *, std::list<OrderNode *>::iterator> byRecord;
};

// Where a block's memory, guards included, comes from.
enum class Origin { heap, mapping, arena };

struct Block {
  Pool *pool = nullptr;
  uint64_t size = 0;
  unsigned char *raw = nullptr;
  uint64_t rawSize = 0;
  Origin origin = Origin::heap;
};

// Which of the coming calls fail.
struct FailurePlan {
  bool active = false;
  bool onlyOneKind = false;
  bool allLater = false;
  Call kind = Call::allocate;
  uint64_t n = 0;
  uint64_t seen = 0;
  uint64_t delivered = 0;
};

struct RecordingHost::State {
  State(RecordingHost &recordingHost, const Options &chosen);
  ~State();
  State(const State &) = delete;
  State &operator=(const State &) = delete;

  // Writes an event down, then runs the hook without holding the mutex.
  void record(const Event &event);
  void complain(const std::string &text);
  // Counts a call that can fail; true when this one is to fail.
  bool fails(Call call);
  void expectAlive(const Tracked &object, const char *what);
  // True once; complains when the object has ended before.
  bool end(Tracked &object, const char *what);

  // Memory (recording_memory.cpp).
  void *take(Pool &pool, uint64_t size, uint32_t options);
  void give(Pool &pool, void *address);
  void giveAll(Pool &pool);
  void checkGuards();

  // Objects (recording_pools.cpp, recording_companions.cpp).
  HostPool *newPool(const std::string &name);
  Lock *newLock(const std::string &name, bool ofServices);
  void *newCompanion(const std::u32string &name);

  RecordingHost &owner;
  const Options options;
  mutable std::recursive_mutex mutex;
  Services services;

  std::vector<Event> events;
  bool keepLog = true;
  std::vector<std::string> complaints;
  FailurePlan plan;

  std::vector<std::unique_ptr<Pool>> pools;
  std::vector<std::unique_ptr<Lock>> locks;
  std::vector<std::unique_ptr<PackerExt>> packerExts;
  std::vector<std::unique_ptr<Packer>> packers;
  std::vector<std::unique_ptr<ContainerExt>> containerExts;
  std::vector<std::unique_ptr<Container>> containers;
  std::vector<std::unique_ptr<ListExt>> listExts;
  std::vector<std::unique_ptr<List>> lists;
  uint32_t companionsMade = 0;

  std::unordered_map<const void *, Block> blocks;
  unsigned char *arena = nullptr;
  uint64_t arenaUsed = 0;

  uint64_t locksHeld = 0;
  uint64_t mostLocksHeld = 0;
  uint64_t unmatchedReleases = 0;

 private:
  bool takeRaw(uint64_t rawSize, Block *block);
  void giveRaw(const Block &block);
  bool guardsIntact(const Block &block) const;
};

// What an unused slot of a table holds.
void unexpectedCall();

// Makes every slot of a table abort when called; the used ones are set after.
template <typename Table>
void fillWithTraps(Table *table) {
  static_assert(std::is_trivially_copyable_v<Table> && sizeof(Table) % sizeof(void *) == 0);
  void *trap = reinterpret_cast<void *>(&unexpectedCall);
  for (size_t at = 0; at != sizeof(Table); at += sizeof trap) {
    std::memcpy(reinterpret_cast<char *>(table) + at, &trap, sizeof trap);
  }
}

inline uint64_t word(const void *address) {
  return reinterpret_cast<uintptr_t>(address);
}

// The new last element of `objects`, its host and number filled in.
template <typename Object>
Object *addObject(State *host, std::vector<std::unique_ptr<Object>> *objects) {
  objects->push_back(std::make_unique<Object>());
  Object *object = objects->back().get();
  object->host = host;
  object->number = static_cast<uint32_t>(objects->size());
  return object;
}

}  // namespace morva::recording
