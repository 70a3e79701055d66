// Locks under threads that all want them at once. What they guard is not
// atomic: the thread sanitizer sees every lock that does not exclude.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "lock_test.h"

namespace host_test {
namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kRounds = 4000;
#else
constexpr int kRounds = 40000;
#endif

void inThreads(int threads, const std::function<void(uint32_t)> &body) {
  std::vector<std::thread> all;
  for (int i = 0; i < threads; ++i) all.emplace_back(body, static_cast<uint32_t>(i));
  for (std::thread &thread : all) thread.join();
}

struct Guarded {
  uint64_t a = 0, b = 0;
  void change() {
    ++a;
    ++b;
  }
  bool isWhole() const { return a == b; }
};

TEST(LockThreads, WritersExcludeEachOther) {
  const HostPtr host = makeHost();
  HostLock *lock = makeLock(host);
  Guarded guarded;
  inThreads(8, [&](uint32_t) {
    for (int i = 0; i < kRounds; ++i) {
      acquire(lock, kChange);
      guarded.change();
      release(lock);
    }
  });
  EXPECT_EQ(guarded.a, uint64_t{8} * kRounds);
  EXPECT_EQ(guarded.b, guarded.a);
}

TEST(LockThreads, AnyMixtureOfHoldsKeepsWhatIsGuardedWhole) {
  const HostPtr host = makeHost();
  HostLock *lock = makeLock(host);
  Guarded guarded;
  std::atomic<uint64_t> changes{0}, broken{0};
  inThreads(8, [&](uint32_t seed) {
    std::mt19937 random(seed);
    uint64_t mine = 0, seenBroken = 0;
    const auto look = [&] { seenBroken += guarded.isWhole() ? 0 : 1; };
    const auto change = [&] {
      look();
      guarded.change();
      ++mine;
    };
    for (int i = 0; i < kRounds; ++i) {
      switch (random() % 8) {
        case 0:  // alone, with holds inside
          acquire(lock, kChange);
          acquire(lock, kRead);
          acquire(lock, kChange);
          change();
          for (int k = 0; k < 3; ++k) release(lock);
          break;
        case 1:  // alone, if that can be had at once
          if (tryAcquire(lock, kChange) == 0) {
            change();
            release(lock);
          }
          break;
        case 2:  // first reading, then changing
          acquire(lock, kRead);
          look();
          if (acquire(lock, kChange) == 0) {
            change();
            release(lock);
          }
          look();
          release(lock);
          break;
        case 3:  // the same without waiting
          acquire(lock, kRead);
          if (tryAcquire(lock, kChange) == 0) {
            change();
            release(lock);
          }
          look();
          release(lock);
          break;
        case 4:  // reading, if that can be had at once
          if (tryAcquire(lock, kRead) == 0) {
            look();
            release(lock);
          }
          break;
        case 5:  // a release that does not match
          release(lock);
          break;
        default:  // reading, twice over
          acquire(lock, kRead);
          acquire(lock, kRead);
          look();
          release(lock);
          look();
          release(lock);
          break;
      }
    }
    changes += mine;
    broken += seenBroken;
  });
  EXPECT_EQ(broken, 0u);
  EXPECT_EQ(guarded.a, changes);
  EXPECT_EQ(guarded.b, changes);
  EXPECT_EQ(tryAcquire(lock, kChange), 0u);
  release(lock);
}

TEST(LockThreads, ReadersHoldTheLockAtTheSameTime) {
  const HostPtr host = makeHost();
  HostLock *lock = makeLock(host);
  std::atomic<int> inside{0};
  inThreads(4, [&](uint32_t) {
    acquire(lock, kRead);
    ++inside;
    while (inside < 4) std::this_thread::yield();
    release(lock);
  });
  EXPECT_EQ(inside, 4);
}

TEST(LockThreads, AStreamOfReadersStarvesNoWriter) {
  const HostPtr host = makeHost();
  HostLock *lock = makeLock(host);
  std::atomic<bool> stop{false};
  // Overlapping holds: there is hardly a moment without a reader.
  std::vector<std::thread> readers;
  for (int i = 0; i < 4; ++i) {
    readers.emplace_back([&] {
      while (!stop) {
        acquire(lock, kRead);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        release(lock);
      }
    });
  }
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 50; ++i) {
    acquire(lock, kChange);
    release(lock);
  }
  const auto took = std::chrono::steady_clock::now() - start;
  stop = true;
  for (std::thread &reader : readers) reader.join();
  EXPECT_LT(took, std::chrono::seconds(30));
}

TEST(LockThreads, AStreamOfReadersStarvesNoUpgrade) {
  const HostPtr host = makeHost();
  HostLock *lock = makeLock(host);
  std::atomic<bool> stop{false};
  std::vector<std::thread> readers;
  for (int i = 0; i < 4; ++i) {
    readers.emplace_back([&] {
      while (!stop) {
        acquire(lock, kRead);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        release(lock);
      }
    });
  }
  for (int i = 0; i < 50; ++i) {
    acquire(lock, kRead);
    EXPECT_EQ(acquire(lock, kChange), 0u);
    release(lock);
    release(lock);
  }
  stop = true;
  for (std::thread &reader : readers) reader.join();
}

TEST(LockThreads, NestedReadersAndWritersNeverWaitForEachOtherForEver) {
  const HostPtr host = makeHost();
  HostLock *lock = makeLock(host);
  Guarded guarded;
  std::atomic<uint64_t> broken{0};
  inThreads(8, [&](uint32_t number) {
    for (int i = 0; i < kRounds / 4; ++i) {
      if (number < 3) {
        acquire(lock, kChange);
        guarded.change();
        release(lock);
        continue;
      }
      for (int depth = 0; depth < 4; ++depth) {
        acquire(lock, kRead);
        if (depth % 2 == 1) std::this_thread::yield();
      }
      if (!guarded.isWhole()) ++broken;
      for (int depth = 0; depth < 4; ++depth) release(lock);
    }
  });
  EXPECT_EQ(broken, 0u);
  EXPECT_EQ(guarded.a, uint64_t{3} * (kRounds / 4));
}

TEST(LockThreads, OfAllThatUpgradeAtOnceOneGetsThroughAndTheOthersAreRefused) {
  const HostPtr host = makeHost();
  HostLock *lock = makeLock(host);
  for (int round = 0; round < kRounds / 100; ++round) {
    std::atomic<int> readers{0}, granted{0}, refused{0};
    inThreads(4, [&](uint32_t) {
      acquire(lock, kRead);
      ++readers;
      while (readers < 4) std::this_thread::yield();
      if (acquire(lock, kChange) == 0) {
        ++granted;
        release(lock);
      } else {
        ++refused;
      }
      release(lock);
    });
    // The first one keeps its claim until it is through, and that takes the
    // others' leaving; one that asks after that finds nobody before it.
    ASSERT_GE(granted, 1);
    ASSERT_EQ(granted + refused, 4);
  }
}

TEST(LockThreads, LocksAreMadeAndDestroyedInAllThreadsAtOnce) {
  const HostPtr host = makeHost();
  inThreads(4, [&](uint32_t) {
    for (int i = 0; i < kRounds / 10; ++i) {
      HostLock *locks[8];
      for (HostLock *&lock : locks) acquire(lock = makeLock(host), i % 2 == 0 ? kRead : kChange);
      for (HostLock *lock : locks) {
        release(lock);
        lock->destroy(lock);
      }
    }
  });
  EXPECT_EQ(statsOf(host).locks, 0u);
  EXPECT_EQ(statsOf(host).unmatchedReleases, 0u);
}

}  // namespace
}  // namespace host_test
