// Locks of instances, as createLock makes them.

#include <atomic>
#include <string>
#include <vector>

#include "host_checks.h"
#include "host_subject.h"

namespace morva::cli::check {

namespace {

void acquire(HostLock *lock) {
  lock->acquire(lock, MORVA_LOCK_CHANGE, 1);
}

void passThrough(HostLock *lock) {
  acquire(lock);
  lock->release(lock);
}

// Another thread that goes through the lock.
Task through(HostLock *lock) {
  return Task([lock] { passThrough(lock); });
}

void releaseElsewhere(HostLock *lock) {
  Task([lock] { lock->release(lock); }).wait();
}

void expectHeld(const char *when, const Task &other) {
  expect(!other.isDoneSoon(), std::string("another thread gets the lock ") + when);
}

void hasItsSlots(const Subject &subject) {
  Host host(subject);
  HostLock *lock = host.lock();
  for (const unsigned slot : {2U, 3U, 4U}) expectSlot(lock, slot, "a lock");
  lock->destroy(lock);
  host.endWithNothingLeft();
}

void excludeOthers(const Subject &subject) {
  Host host(subject);
  for (const uint8_t option1 : {uint8_t{1}, uint8_t{0}}) {
    HostLock *lock = host.lock(option1);
    acquire(lock);
    const Task other = through(lock);
    expectHeld("while it is held", other);
    lock->release(lock);
    other.wait();
    lock->destroy(lock);
  }
  host.endWithNothingLeft();
}

// Many short holds: threads that meet at the lock, sleep and are woken.
void guardACounter(const Subject &subject) {
  Host host(subject);
  for (const uint8_t option1 : {uint8_t{1}, uint8_t{0}}) {
    HostLock *lock = host.lock(option1);
    constexpr unsigned kThreads = 4;
    constexpr unsigned kRounds = 8000;
    // Atomic, so that what a lock lets through is an answer and no more; read and written apart, so
    // that it is one.
    std::atomic<unsigned> counter{0};
    std::atomic<int> inside{0};
    std::atomic<bool> met{false};
    inThreads(kThreads, [&](unsigned) {
      for (unsigned round = 0; round < kRounds; ++round) {
        acquire(lock);
        if (inside.fetch_add(1, std::memory_order_relaxed) != 0) met = true;
        const unsigned before = counter.load(std::memory_order_relaxed);
        if (round % 4 == 0) linger(round);
        counter.store(before + 1, std::memory_order_relaxed);
        inside.fetch_sub(1, std::memory_order_relaxed);
        lock->release(lock);
      }
    });
    expect(!met, "two threads hold the lock at once");
    expectEqual(counter.load(), kThreads * kRounds, "a number that the lock guards");
    lock->destroy(lock);
  }
  host.endWithNothingLeft();
}

void waitTheirTurn(const Subject &subject) {
  Host host(subject);
  HostLock *lock = host.lock();
  acquire(lock);
  std::vector<Task> others;
  for (int i = 0; i < 8; ++i) others.push_back(through(lock));
  expectHeld("while it is held", others.back());
  lock->release(lock);
  for (const Task &other : others) other.wait();
  passThrough(lock);
  lock->destroy(lock);
  host.endWithNothingLeft();
}

// Made with option byte 1 only: whether 0 is for locks that do not nest is the host's affair.
void nest(const Subject &subject) {
  Host host(subject);
  HostLock *lock = host.lock();
  acquire(lock);
  acquire(lock);
  lock->release(lock);
  const Task other = through(lock);
  expectHeld("after one of two releases", other);
  lock->release(lock);
  other.wait();
  lock->destroy(lock);
  host.endWithNothingLeft();
}

void nestDeeply(const Subject &subject) {
  Host host(subject);
  HostLock *lock = host.lock();
  for (int i = 0; i < 10; ++i) acquire(lock);
  for (int i = 0; i < 9; ++i) lock->release(lock);
  const Task other = through(lock);
  expectHeld("after 9 of 10 releases", other);
  lock->release(lock);
  other.wait();
  lock->destroy(lock);
  host.endWithNothingLeft();
}

void ignoreAReleaseWithoutAHold(const Subject &subject) {
  Host host(subject);
  HostLock *lock = host.lock();
  for (int i = 0; i < 100; ++i) lock->release(lock);
  for (int i = 0; i < 10; ++i) {
    passThrough(lock);
    lock->release(lock);
  }
  releaseElsewhere(lock);
  acquire(lock);
  const Task other = through(lock);
  expectHeld("while it is held, after releases without a hold", other);
  lock->release(lock);
  other.wait();
  lock->destroy(lock);
  host.endWithNothingLeft();
}

void keepTheHoldOfAnother(const Subject &subject) {
  Host host(subject);
  for (const int holds : {1, 2}) {
    HostLock *lock = host.lock();
    for (int i = 0; i < holds; ++i) acquire(lock);
    for (int i = 0; i < 10; ++i) releaseElsewhere(lock);
    const Task other = through(lock);
    expectHeld("when a third one releases what it does not hold", other);
    for (int i = 1; i < holds; ++i) {
      lock->release(lock);
      expectHeld("before the last release", other);
    }
    lock->release(lock);
    other.wait();
    lock->destroy(lock);
  }
  host.endWithNothingLeft();
}

void stayWholeAfterUnmatchedReleases(const Subject &subject) {
  Host host(subject);
  HostLock *lock = host.lock();
  std::atomic<int> inside{0};
  std::atomic<bool> met{false};
  inThreads(4, [&](unsigned) {
    for (unsigned round = 0; round < 3000; ++round) {
      acquire(lock);
      if (inside.fetch_add(1) != 0) met = true;
      if (round % 4 == 0) linger(round);
      inside.fetch_sub(1);
      lock->release(lock);
      lock->release(lock);
    }
  });
  expect(!met, "two threads hold the lock at once after releases without a hold");
  lock->destroy(lock);
  host.endWithNothingLeft();
}

void areIndependent(const Subject &subject) {
  Host host(subject);
  std::vector<HostLock *> locks;
  for (int i = 0; i < 100; ++i) locks.push_back(host.lock());
  // Two at a time are held where two instances are compared, and never more.
  acquire(locks[0]);
  acquire(locks[1]);
  Task([&] {
    for (size_t i = 2; i < locks.size(); ++i) passThrough(locks[i]);
  }).wait();
  // Releasing one says nothing about its neighbour.
  locks[0]->release(locks[0]);
  const Task other = through(locks[1]);
  expectHeld("when a neighbour of it is released", other);
  locks[1]->release(locks[1]);
  other.wait();
  for (HostLock *lock : locks) lock->destroy(lock);
  host.endWithNothingLeft();
}

void holdTwoAtATime(const Subject &subject) {
  Host host(subject);
  HostLock *first = host.lock();
  HostLock *second = host.lock();
  std::atomic<bool> met{false};
  std::atomic<int> inside{0};
  inThreads(4, [&](unsigned) {
    for (unsigned round = 0; round < 3000; ++round) {
      acquire(first);
      acquire(second);
      if (inside.fetch_add(1) != 0) met = true;
      if (round % 4 == 0) linger(round);
      inside.fetch_sub(1);
      first->release(first);
      second->release(second);
    }
  });
  expect(!met, "two threads hold the same two locks at once");
  first->destroy(first);
  second->destroy(second);
  host.endWithNothingLeft();
}

void comeAndGo(const Subject &subject) {
  Host host(subject);
  const uint64_t before = residentBytes();
  for (int round = 0; round < 30000; ++round) {
    HostLock *lock = host.lock();
    passThrough(lock);
    lock->destroy(lock);
  }
  // A checking allocator holds freed memory back: not for ever, but for long.
  expect(residentBytes() < before + (UINT64_C(64) << 20),
         "memory in use grows although every lock was destroyed");
  host.endWithNothingLeft();
}

constexpr Check kChecks[] = {
    {"locks.have-their-slots", "A lock has the three slots that are called.", hasItsSlots},
    {"locks.exclude-others", "While a thread holds a lock, no other one gets it.", excludeOthers},
    {"locks.guard-a-counter", "Threads that take a lock in turn never hold it at once.",
     guardACounter},
    {"locks.let-everybody-in", "Every thread that waits for a lock gets it at last.",
     waitTheirTurn},
    {"locks.nest", "A thread acquires a lock that it holds, and must release it as often.", nest},
    {"locks.nest-deeply", "A lock can be acquired ten times by its holder.", nestDeeply},
    {"locks.ignore-a-release-without-a-hold",
     "Releasing a lock that nobody holds does nothing, and the lock works afterwards.",
     ignoreAReleaseWithoutAHold},
    {"locks.keep-the-hold-of-another",
     "A release by a thread without a hold does not end that of another thread.",
     keepTheHoldOfAnother},
    {"locks.stay-whole-after-unmatched-releases",
     "Releases without a hold let nobody in, also while threads compete for the lock.",
     stayWholeAfterUnmatchedReleases},
    {"locks.are-independent", "Holding one lock keeps nobody from another.", areIndependent},
    {"locks.are-held-two-at-a-time",
     "A thread may hold two locks and release them in the order in which it acquired them.",
     holdTwoAtATime},
    {"locks.come-and-go", "Locks can be made and destroyed without end.", comeAndGo},
};

}  // namespace

std::span<const Check> hostLockChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
