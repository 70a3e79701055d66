#include "lock.h"

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <new>

#include "host_state.h"
#include "thread_holds.h"

namespace qzhost {

constinit thread_local ThreadHolds ThreadHolds::mine_ __attribute__((tls_model("initial-exec")));

// ---- what a thread remembers ---------------------------------------------

struct ThreadHolds::AtThreadEnd {
  ~AtThreadEnd() {
    delete[] mine_.outside_;
    mine_.outside_ = nullptr;
    mine_.used_ = 0;
  }
  // Named by grow(), so that the thread gets the object.
  void arm() {}
};

bool ThreadHolds::grow() {
  static thread_local AtThreadEnd atThreadEnd;
  const uint32_t capacity = this->capacity() * 2;
  auto *larger = new (std::nothrow) Entry[capacity];
  if (larger == nullptr) return false;
  atThreadEnd.arm();
  for (uint32_t i = 0; i < used_; ++i) larger[i] = entries()[i];
  delete[] outside_;
  outside_ = larger;
  outsideCapacity_ = capacity;
  return true;
}

void ThreadHolds::remove(uint32_t *count) {
  uint32_t i = 0;
  while (&entries()[i].count != count) ++i;
  entries()[i] = entries()[--used_];
}

void ThreadHolds::takeNumber() {
  static constinit std::atomic<uint64_t> last{0};
  number_ = last.fetch_add(1, std::memory_order_relaxed) + 1;
}

// ---- the state word ------------------------------------------------------

namespace {

constexpr uint32_t kReaders = (UINT32_C(1) << 28) - 1;
constexpr uint32_t kExclusive = kReaders;
constexpr uint32_t kMostReaders = kReaders - 1;
constexpr uint32_t kUpgrading = UINT32_C(1) << 28;
constexpr uint32_t kReadersWait = UINT32_C(1) << 30;
constexpr uint32_t kWritersWait = UINT32_C(1) << 31;

constexpr int kSpins = 100;

bool isFree(uint32_t state) {
  return (state & kReaders) == 0;
}
bool isExclusive(uint32_t state) {
  return (state & kReaders) == kExclusive;
}
bool admitsReaders(uint32_t state) {
  return (state & kReaders) < kMostReaders &&
         (state & (kUpgrading | kReadersWait | kWritersWait)) == 0;
}

void pause() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

// Sleeps while `word` is `value`; may come back early.
void sleepOn(std::atomic<uint32_t> &word, uint32_t value) {
  syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
}

// Wakes up to `threads` that sleep on `word`; answers whether there was one.
bool wake(std::atomic<uint32_t> &word, int threads) {
  return syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, threads, nullptr, nullptr, 0) > 0;
}

template <class Done>
uint32_t spinUntil(const std::atomic<uint32_t> &word, Done done) {
  for (int i = 0;; ++i) {
    const uint32_t value = word.load(std::memory_order_relaxed);
    if (i == kSpins || done(value)) return value;
    pause();
  }
}

bool wakeWriter(Lock *lock) {
  lock->writerTurn.fetch_add(1, std::memory_order_release);
  return wake(lock->writerTurn, 1);
}

// The lock has become free with somebody waiting. From here on any thread may
// take it, and then has to see to the waiting ones itself; hence each step is
// made only from the state it was decided on.
void wakeWaiting(Lock *lock, uint32_t state) {
  if (state == kWritersWait) {
    if (lock->state.compare_exchange_strong(state, 0, std::memory_order_relaxed)) {
      wakeWriter(lock);
      return;
    }
  }
  if (state == (kReadersWait | kWritersWait)) {
    if (!lock->state.compare_exchange_strong(state, kReadersWait, std::memory_order_relaxed))
      return;
    if (wakeWriter(lock)) return;
    // No writer was asleep: it may have been on its way, or have got the lock
    // already. The readers must not be left behind for it.
    state = kReadersWait;
  }
  if (state == kReadersWait) {
    if (lock->state.compare_exchange_strong(state, 0, std::memory_order_relaxed))
      wake(lock->state, INT32_MAX);
  }
}

// ---- exclusive -----------------------------------------------------------

bool lockExclusive(Lock *lock, bool wait) {
  uint32_t state = 0;
  if (lock->state.compare_exchange_strong(state, kExclusive, std::memory_order_acquire,
                                          std::memory_order_relaxed)) [[likely]]
    return true;
  const auto worthALook = [](uint32_t s) { return isFree(s) || (s & kWritersWait) != 0; };
  if (wait) state = spinUntil(lock->state, worthALook);
  // Set once this thread has slept: others may sleep too, and their bit was
  // cleared when this one was woken.
  uint32_t others = 0;
  for (;;) {
    if (isFree(state)) {
      if (lock->state.compare_exchange_weak(state, state | kExclusive | others,
                                            std::memory_order_acquire, std::memory_order_relaxed))
        return true;
      continue;
    }
    if (!wait) return false;
    if ((state & kWritersWait) == 0) {
      if (!lock->state.compare_exchange_weak(state, state | kWritersWait,
                                             std::memory_order_relaxed))
        continue;
    }
    others = kWritersWait;
    const uint32_t turn = lock->writerTurn.load(std::memory_order_acquire);
    state = lock->state.load(std::memory_order_relaxed);
    if (isFree(state) || (state & kWritersWait) == 0) continue;
    sleepOn(lock->writerTurn, turn);
    state = spinUntil(lock->state, worthALook);
  }
}

void unlockExclusive(Lock *lock) {
  const uint32_t state = lock->state.fetch_sub(kExclusive, std::memory_order_release) - kExclusive;
  if (state != 0) [[unlikely]]
    wakeWaiting(lock, state);
}

// ---- shared --------------------------------------------------------------

bool lockShared(Lock *lock, bool wait) {
  const auto worthALook = [](uint32_t s) {
    return !isExclusive(s) || (s & (kReadersWait | kWritersWait)) != 0;
  };
  uint32_t state = lock->state.load(std::memory_order_relaxed);
  bool spun = false;
  for (;;) {
    if (admitsReaders(state)) {
      if (lock->state.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                            std::memory_order_relaxed)) [[likely]]
        return true;
      continue;
    }
    if (!wait) return false;
    if (!spun) {
      spun = true;
      state = spinUntil(lock->state, worthALook);
      continue;
    }
    if ((state & kReaders) == kMostReaders) {
      sched_yield();
      state = lock->state.load(std::memory_order_relaxed);
      continue;
    }
    if ((state & kReadersWait) == 0) {
      if (!lock->state.compare_exchange_weak(state, state | kReadersWait,
                                             std::memory_order_relaxed))
        continue;
    }
    sleepOn(lock->state, state | kReadersWait);
    state = spinUntil(lock->state, worthALook);
  }
}

void unlockShared(Lock *lock) {
  const uint32_t state = lock->state.fetch_sub(1, std::memory_order_release) - 1;
  if ((state & kUpgrading) != 0) {
    if ((state & kReaders) == 1) {
      lock->upgradeTurn.fetch_add(1, std::memory_order_release);
      wake(lock->upgradeTurn, 1);
    }
  } else if (isFree(state) && (state & kWritersWait) != 0) {
    wakeWaiting(lock, state);
  }
}

// ---- from shared to exclusive and back -----------------------------------

bool upgrade(Lock *lock, bool wait) {
  uint32_t state = lock->state.load(std::memory_order_relaxed);
  for (;;) {
    if ((state & kUpgrading) != 0) return false;
    const bool alone = (state & kReaders) == 1;
    if (!alone && !wait) return false;
    const uint32_t wanted = alone ? (state & ~kReaders) | kExclusive : state | kUpgrading;
    if (lock->state.compare_exchange_weak(state, wanted, std::memory_order_acquire,
                                          std::memory_order_relaxed)) {
      if (alone) return true;
      break;
    }
  }
  for (;;) {
    const uint32_t turn = lock->upgradeTurn.load(std::memory_order_acquire);
    state = lock->state.load(std::memory_order_relaxed);
    while ((state & kReaders) == 1) {
      if (lock->state.compare_exchange_weak(state, (state & ~(kReaders | kUpgrading)) | kExclusive,
                                            std::memory_order_acquire, std::memory_order_relaxed))
        return true;
    }
    sleepOn(lock->upgradeTurn, turn);
  }
}

// Readers that waited for the exclusive holder may come in with the reader it
// becomes, unless a writer waits too: then that one is next, once this reader
// has gone, and the readers after it.
void downgrade(Lock *lock) {
  uint32_t state =
      lock->state.fetch_sub(kExclusive - 1, std::memory_order_release) - (kExclusive - 1);
  while ((state & (kReadersWait | kWritersWait)) == kReadersWait) {
    if (lock->state.compare_exchange_weak(state, state & ~kReadersWait,
                                          std::memory_order_relaxed)) {
      wake(lock->state, INT32_MAX);
      return;
    }
  }
}

Lock *lockOf(HostLock *table) {
  return reinterpret_cast<Lock *>(table);
}

uint32_t becomeOwner(Lock *lock, ThreadHolds &holds, bool upgraded) {
  lock->depth = 1;
  lock->upgraded = upgraded;
  lock->owner.store(holds.number(), std::memory_order_relaxed);
  return 0;
}

uint32_t acquireShared(Lock *lock, ThreadHolds &holds, bool wait) {
  if (holds.any()) {
    if (uint32_t *count = holds.find(lock->number)) {
      ++*count;
      return 0;
    }
  }
  if (!holds.reserve()) {
    // No memory to remember a shared hold by: an exclusive one needs none and
    // allows everything that the shared one would.
    if (!lockExclusive(lock, wait)) return 1;
    return becomeOwner(lock, holds, false);
  }
  if (!lockShared(lock, wait)) return 1;
  holds.add(lock->number);
  return 0;
}

void destroyLock(HostLock *table) {
  if (table == nullptr) return;
  Lock *lock = lockOf(table);
  {
    const std::lock_guard guard(lock->host->mutex);
    lock->host->locks.remove(lock);
  }
  delete lock;
}

uint64_t nextLockNumber() {
  static constinit std::atomic<uint64_t> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

}  // namespace

// ---- the table -----------------------------------------------------------

Lock::Lock(QZHost *owningHost) : table{}, host(owningHost), number(nextLockNumber()) {
  table.destroy = [](HostLock *) {};
  table.acquire = acquireLock;
  table.release = releaseLock;
}

uint32_t acquireLock(HostLock *table, uint32_t mode, uint32_t wait) {
  Lock *lock = lockOf(table);
  ThreadHolds &holds = ThreadHolds::mine();
  if (lock->owner.load(std::memory_order_relaxed) == holds.number()) {
    ++lock->depth;
    return 0;
  }
  if (mode == MORVA_LOCK_READ) return acquireShared(lock, holds, wait != 0);
  if (holds.any() && holds.find(lock->number) != nullptr) {
    if (!upgrade(lock, wait != 0)) return 1;
    return becomeOwner(lock, holds, true);
  }
  if (!lockExclusive(lock, wait != 0)) return 1;
  return becomeOwner(lock, holds, false);
}

void releaseLock(HostLock *table) {
  Lock *lock = lockOf(table);
  ThreadHolds &holds = ThreadHolds::mine();
  if (lock->owner.load(std::memory_order_relaxed) == holds.number()) {
    if (--lock->depth != 0) return;
    lock->owner.store(0, std::memory_order_relaxed);
    if (lock->upgraded) return downgrade(lock);
    return unlockExclusive(lock);
  }
  uint32_t *count = holds.any() ? holds.find(lock->number) : nullptr;
  if (count == nullptr) {
    lock->host->unmatchedReleases.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  if (--*count != 0) return;
  holds.remove(count);
  unlockShared(lock);
}

HostLock *createLock(HostServices *services, const LockOptions *, void *, const char *) {
  QZHost *host = hostOf(services);
  if (host == nullptr) return nullptr;
  auto *lock = new (std::nothrow) Lock(host);
  if (lock == nullptr) return nullptr;
  lock->table.destroy = destroyLock;
  const std::lock_guard guard(host->mutex);
  host->locks.pushBack(lock);
  return &lock->table;
}

}  // namespace qzhost
