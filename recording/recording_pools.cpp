// The service table, pools and locks of the recording host.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "recording_state.h"

namespace morva::recording {
namespace {

// What calls answer whose result nobody may look at.
constexpr uint32_t kNoise = 0xDEAD;

bool allZero(const void *memory, size_t size) {
  const unsigned char *bytes = static_cast<const unsigned char *>(memory);
  return std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0; });
}

// ---- pools ------------------------------------------------------------------

void destroyPool(HostPool *object) {
  Pool &pool = static_cast<Pool &>(*object);
  State &host = *pool.host;
  if (host.end(pool, "pool")) host.giveAll(pool);
  host.record({Call::destroyPool, pool.number, pool.name});
}

void *allocate(HostPool *object, uint64_t size, uint32_t options) {
  Pool &pool = static_cast<Pool &>(*object);
  State &host = *pool.host;
  host.expectAlive(pool, "pool");
  if (options != 0 && options != MORVA_ZERO_FILL) host.complain("allocate with unknown options");
  void *block = host.fails(Call::allocate) ? nullptr : host.take(pool, size, options);
  host.record({Call::allocate, pool.number, pool.name, size, options, word(block)});
  return block;
}

void freeBlock(HostPool *object, void *block) {
  Pool &pool = static_cast<Pool &>(*object);
  State &host = *pool.host;
  host.expectAlive(pool, "pool");
  host.give(pool, block);
  host.record({Call::freeBlock, pool.number, pool.name, 0, 0, word(block)});
}

// ---- locks ------------------------------------------------------------------

void destroyLock(HostLock *object) {
  Lock &lock = static_cast<Lock &>(*object);
  State &host = *lock.host;
  if (!lock.ofServices) host.complain("destroyed a lock that belongs to the host");
  host.end(lock, "lock");
  {
    std::lock_guard<std::mutex> guard(lock.mutex);
    if (lock.depth != 0) host.complain("destroyed a lock that is held");
  }
  host.record({Call::destroyLock, lock.number, lock.name});
}

uint32_t acquire(HostLock *object, uint32_t mode, uint32_t wait) {
  Lock &lock = static_cast<Lock &>(*object);
  State &host = *lock.host;
  host.expectAlive(lock, "lock");
  if (wait != 1) host.complain("acquire without waiting");
  if (mode != MORVA_LOCK_CHANGE && (lock.ofServices || mode != MORVA_LOCK_READ)) {
    host.complain("acquire in mode " + std::to_string(mode));
  }
  const std::thread::id self = std::this_thread::get_id();
  {
    std::unique_lock<std::mutex> guard(lock.mutex);
    lock.freed.wait(guard, [&] { return lock.depth == 0 || lock.holder == self; });
    lock.holder = self;
    ++lock.depth;
  }
  {
    std::lock_guard<std::recursive_mutex> guard(host.mutex);
    ++host.locksHeld;
    host.mostLocksHeld = std::max(host.mostLocksHeld, host.locksHeld);
  }
  host.record({Call::acquire, lock.number, lock.name, mode, wait});
  return kNoise;
}

void release(HostLock *object) {
  Lock &lock = static_cast<Lock &>(*object);
  State &host = *lock.host;
  host.expectAlive(lock, "lock");
  bool held;
  {
    // Nobody but the holder can end a hold, so the answer stays true.
    std::lock_guard<std::mutex> guard(lock.mutex);
    held = lock.depth != 0 && lock.holder == std::this_thread::get_id();
  }
  {
    std::lock_guard<std::recursive_mutex> guard(host.mutex);
    if (held) {
      --host.locksHeld;
    } else {
      ++host.unmatchedReleases;
    }
  }
  host.record({Call::release, lock.number, lock.name, held ? uint64_t{0} : uint64_t{1}});
  if (!held) return;
  {
    std::lock_guard<std::mutex> guard(lock.mutex);
    --lock.depth;
  }
  lock.freed.notify_one();
}

// ---- services ---------------------------------------------------------------

State &hostOf(HostServices *services) {
  return *static_cast<Services *>(services)->host;
}

HostLock *createLock(HostServices *services, const LockOptions *options, void *context,
                     const char *name) {
  State &host = hostOf(services);
  if (!allZero(options->reserved, sizeof options->reserved)) {
    host.complain("lock options are not zero where they must be");
  }
  Lock *lock = nullptr;
  const std::string copy = name == nullptr ? "" : name;
  if (!host.fails(Call::createLock)) lock = host.newLock(copy, true);
  host.record({Call::createLock, lock == nullptr ? 0 : lock->number, copy, word(context),
               options->option0, options->option1, word(name)});
  return lock;
}

HostPool *createPool(HostServices *services, const PoolOptions *options, void *context,
                     const char *name) {
  State &host = hostOf(services);
  if (!allZero(options->reserved, sizeof options->reserved)) {
    host.complain("pool options are not zero where they must be");
  }
  if (name == nullptr) {
    host.complain("a pool without a name");
    name = "";
  }
  HostPool *pool = nullptr;
  if (!host.fails(Call::createPool)) pool = host.newPool(name);
  host.record({Call::createPool, pool == nullptr ? 0 : static_cast<Pool *>(pool)->number, name,
               word(context), options->options});
  return pool;
}

void *loadExtension(HostServices *services, const uint32_t *name, uint64_t length,
                    uint64_t reserved) {
  State &host = hostOf(services);
  const std::lock_guard<std::recursive_mutex> guard(host.mutex);
  const std::u32string wide(name, name + length);
  std::string narrow;
  for (const char32_t unit : wide) narrow.push_back(unit < 128 ? static_cast<char>(unit) : '?');
  void *companion = nullptr;
  if (!host.fails(Call::loadExtension)) companion = host.newCompanion(wide);
  host.record({Call::loadExtension, companion == nullptr ? 0 : host.companionsMade, narrow, length,
               reserved});
  return companion;
}

}  // namespace

void unexpectedCall() {
  std::fputs("the library called a slot that is not its to call\n", stderr);
  std::abort();
}

HostPool *State::newPool(const std::string &name) {
  std::lock_guard<std::recursive_mutex> guard(mutex);
  Pool *pool = addObject(this, &pools);
  fillWithTraps<HostPool>(pool);
  pool->destroy = recording::destroyPool;
  pool->allocate = recording::allocate;
  pool->free = freeBlock;
  pool->name = name;
  return pool;
}

Lock *State::newLock(const std::string &name, bool ofServices) {
  std::lock_guard<std::recursive_mutex> guard(mutex);
  Lock *lock = addObject(this, &locks);
  fillWithTraps<HostLock>(lock);
  lock->destroy = recording::destroyLock;
  lock->acquire = recording::acquire;
  lock->release = recording::release;
  lock->name = name;
  lock->ofServices = ofServices;
  return lock;
}

State::State(RecordingHost &recordingHost, const Options &chosen)
    : owner(recordingHost), options(chosen) {
  fillWithTraps<HostServices>(&services);
  services.createLock = recording::createLock;
  services.createPool = recording::createPool;
  services.loadExtension = recording::loadExtension;
  services.host = this;
}

}  // namespace morva::recording
