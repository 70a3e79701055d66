// What a lock promises to threads that take turns.
#include "lock_test.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace host_test {
namespace {

using Locks = LockTest;

TEST_F(Locks, ANewOneIsFree) {
  EXPECT_TRUE(isFree());
  EXPECT_EQ(statsOf(host).locks, 1u);
}

TEST_F(Locks, AnExclusiveHolderKeepsEverybodyElseOut) {
  EXPECT_EQ(acquire(lock, kChange), 0u);
  EXPECT_TRUE(isExclusive());
  auto reader = one.start([this] { return acquire(lock, kRead); });
  auto writer = two.start([this] { return acquire(lock, kChange); });
  EXPECT_TRUE(isWaiting(reader));
  EXPECT_TRUE(isWaiting(writer));
  release(lock);
  ASSERT_TRUE(comesBack(writer));
  EXPECT_EQ(writer.get(), 0u);
  two.run([this] { release(lock); });
  ASSERT_TRUE(comesBack(reader));
  EXPECT_EQ(reader.get(), 0u);
  one.run([this] { release(lock); });
  EXPECT_TRUE(isFree());
}

TEST_F(Locks, ReadersShareAndKeepWritersOut) {
  acquire(lock, kRead);
  EXPECT_EQ(one.run([this] { return acquire(lock, kRead); }), 0u);
  EXPECT_EQ(two.run([this] { return tryAcquire(lock, kRead); }), 0u);
  EXPECT_TRUE(isShared());
  release(lock);
  one.run([this] { release(lock); });
  EXPECT_TRUE(isShared());
  two.run([this] { release(lock); });
  EXPECT_TRUE(isFree());
}

TEST_F(Locks, AWriterWaitsForTheLastReader) {
  acquire(lock, kRead);
  one.run([this] { acquire(lock, kRead); });
  auto writer = two.start([this] { return acquire(lock, kChange); });
  EXPECT_TRUE(isWaiting(writer));
  release(lock);
  EXPECT_TRUE(isWaiting(writer));
  one.run([this] { release(lock); });
  ASSERT_TRUE(comesBack(writer));
  EXPECT_TRUE(isExclusive());
  two.run([this] { release(lock); });
  EXPECT_TRUE(isFree());
}

TEST_F(Locks, WithoutWaitingARefusalIsOneAndLeavesNothingBehind) {
  acquire(lock, kChange);
  EXPECT_EQ(one.run([this] { return tryAcquire(lock, kChange); }), 1u);
  EXPECT_EQ(one.run([this] { return tryAcquire(lock, kRead); }), 1u);
  release(lock);
  acquire(lock, kRead);
  EXPECT_EQ(one.run([this] { return tryAcquire(lock, kChange); }), 1u);
  release(lock);
  EXPECT_TRUE(isFree());
  EXPECT_EQ(unmatched(), 0u);
}

// ---- holding again -----------------------------------------------------------

TEST_F(Locks, AnExclusiveHoldIsGivenBackAsOftenAsItWasTaken) {
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(i % 2 == 0 ? acquire(lock, kChange) : tryAcquire(lock, kChange), 0u);
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(isExclusive());
    release(lock);
  }
  EXPECT_TRUE(isFree());
  EXPECT_EQ(unmatched(), 0u);
}

TEST_F(Locks, ASharedHoldIsGivenBackAsOftenAsItWasTaken) {
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(i % 2 == 0 ? acquire(lock, kRead) : tryAcquire(lock, kRead), 0u);
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(isShared());
    release(lock);
  }
  EXPECT_TRUE(isFree());
  EXPECT_EQ(unmatched(), 0u);
}

TEST_F(Locks, ASharedHoldInsideAnExclusiveOneIsExclusive) {
  acquire(lock, kChange);
  EXPECT_EQ(acquire(lock, kRead), 0u);
  EXPECT_TRUE(isExclusive());
  release(lock);
  EXPECT_TRUE(isExclusive());
  EXPECT_EQ(tryAcquire(lock, kRead), 0u);
  EXPECT_EQ(acquire(lock, kChange), 0u);
  release(lock);
  release(lock);
  EXPECT_TRUE(isExclusive());
  release(lock);
  EXPECT_TRUE(isFree());
}

TEST_F(Locks, AReaderThatHoldsAgainDoesNotWaitBehindAWriter) {
  acquire(lock, kRead);
  auto writer = one.start([this] { return acquire(lock, kChange); });
  EXPECT_TRUE(isWaiting(writer));
  EXPECT_EQ(acquire(lock, kRead), 0u);
  EXPECT_EQ(tryAcquire(lock, kRead), 0u);
  release(lock);
  release(lock);
  EXPECT_TRUE(isWaiting(writer));
  release(lock);
  ASSERT_TRUE(comesBack(writer));
  one.run([this] { release(lock); });
  EXPECT_TRUE(isFree());
}

TEST_F(Locks, ANewReaderWaitsBehindAWriterAndComesInAfterIt) {
  acquire(lock, kRead);
  auto writer = one.start([this] { return acquire(lock, kChange); });
  EXPECT_TRUE(isWaiting(writer));
  auto reader = two.start([this] { return acquire(lock, kRead); });
  EXPECT_TRUE(isWaiting(reader));
  release(lock);
  ASSERT_TRUE(comesBack(writer));
  EXPECT_TRUE(isWaiting(reader));
  one.run([this] { release(lock); });
  ASSERT_TRUE(comesBack(reader));
  two.run([this] { release(lock); });
  EXPECT_TRUE(isFree());
}

// ---- releases that do not match ----------------------------------------------

TEST_F(Locks, ReleasingWhatWasNeverHeldDoesNothingAndIsCounted) {
  release(lock);
  EXPECT_EQ(unmatched(), 1u);
  EXPECT_TRUE(isFree());
  release(lock);
  one.run([this] { release(lock); });
  EXPECT_EQ(unmatched(), 3u);
  EXPECT_EQ(acquire(lock, kChange), 0u);
  EXPECT_TRUE(isExclusive());
  release(lock);
  EXPECT_TRUE(isFree());
  EXPECT_EQ(unmatched(), 3u);
}

TEST_F(Locks, ReleasingWhatAnotherThreadHoldsDoesNothingAndIsCounted) {
  acquire(lock, kChange);
  one.run([this] { release(lock); });
  EXPECT_TRUE(isExclusive());
  release(lock);
  acquire(lock, kRead);
  one.run([this] { release(lock); });
  EXPECT_TRUE(isShared());
  release(lock);
  EXPECT_TRUE(isFree());
  EXPECT_EQ(unmatched(), 2u);
}

TEST_F(Locks, ReleasingOnceTooOftenDoesNothingAndIsCounted) {
  for (const uint32_t mode : {kChange, kRead}) {
    const uint64_t before = unmatched();
    acquire(lock, mode);
    acquire(lock, mode);
    for (int i = 0; i < 4; ++i) release(lock);
    EXPECT_EQ(unmatched(), before + 2);
    EXPECT_TRUE(isFree());
  }
}

TEST_F(Locks, UnmatchedReleasesAreCountedPerHost) {
  const HostPtr other = makeHost();
  release(makeLock(other));
  EXPECT_EQ(unmatched(), 0u);
  EXPECT_EQ(statsOf(other).unmatchedReleases, 1u);
}

// ---- many locks, and the ends of threads and locks ------------------------------

TEST_F(Locks, AThreadHoldsAnyNumberOfLocksAtOnce) {
  std::vector<HostLock *> locks;
  for (int i = 0; i < 100; ++i) locks.push_back(makeLock(host));
  const auto modeOf = [](size_t i) { return i % 10 == 3 ? kChange : kRead; };
  one.run([&] {
    for (size_t i = 0; i < locks.size(); ++i) acquire(locks[i], modeOf(i));
    // Each a second time, the other way round.
    for (size_t i = locks.size(); i-- > 0;) acquire(locks[i], modeOf(i));
  });
  for (size_t i = 0; i < locks.size(); ++i) {
    EXPECT_FALSE(isFree(locks[i]));
    EXPECT_EQ(isToBeHad(observer, locks[i], kRead), modeOf(i) == kRead) << i;
  }
  one.run([&] {
    for (HostLock *held : locks) release(held);
  });
  for (HostLock *held : locks) EXPECT_FALSE(isFree(held));
  // In an order of its own.
  for (size_t i = 0; i < locks.size(); ++i) {
    HostLock *held = locks[i * 37 % locks.size()];
    one.run([&] { release(held); });
    EXPECT_TRUE(isFree(held)) << i;
  }
  EXPECT_EQ(unmatched(), 0u);
}

TEST_F(Locks, OneThatAThreadEndedWithStaysHeld) {
  one.run([this] { acquire(lock, kChange); });
  one.end();
  EXPECT_TRUE(isExclusive());
  // Threads that come later are other threads, whatever the system calls them.
  for (int i = 0; i < 20; ++i) {
    std::thread([this] {
      EXPECT_EQ(tryAcquire(lock, kRead), 1u);
      release(lock);
    }).join();
  }
  EXPECT_EQ(unmatched(), 20u);
  EXPECT_TRUE(isExclusive());
}

TEST_F(Locks, OnesThatAThreadEndedWithAsAReaderStayShared) {
  std::vector<HostLock *> locks;
  for (int i = 0; i < 20; ++i) locks.push_back(makeLock(host));
  one.run([&] {
    for (HostLock *held : locks) acquire(held, kRead);
  });
  one.end();
  for (HostLock *held : locks) {
    EXPECT_FALSE(isFree(held));
    EXPECT_TRUE(isToBeHad(two, held, kRead));
  }
}

TEST_F(Locks, OneThatIsDestroyedWhileAThreadRemembersItIsForgotten) {
  for (int i = 0; i < 50; ++i) {
    HostLock *goes = makeLock(host);
    one.run([&] { acquire(goes, kRead); });
    goes->destroy(goes);
    // Likely at the same place.
    HostLock *comes = makeLock(host);
    EXPECT_TRUE(isFree(comes));
    one.run([&] { release(comes); });
    EXPECT_EQ(unmatched(), static_cast<uint64_t>(i) + 1);
    one.run([&] {
      EXPECT_EQ(acquire(comes, kChange), 0u);
      release(comes);
    });
    EXPECT_TRUE(isFree(comes));
    comes->destroy(comes);
  }
  EXPECT_EQ(statsOf(host).locks, 1u);
}

TEST_F(Locks, DestroyingNoneDoesNothing) {
  lock->destroy(nullptr);
  EXPECT_EQ(statsOf(host).locks, 1u);
  lock->destroy(lock);
  EXPECT_EQ(statsOf(host).locks, 0u);
}

TEST_F(Locks, OptionsAndNameMayBeNull) {
  HostServices *services = QZHostServices(host.get());
  HostLock *plain = services->createLock(services, nullptr, nullptr, nullptr);
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(acquire(plain, kChange), 0u);
  EXPECT_FALSE(isFree(plain));
  release(plain);
  EXPECT_TRUE(isFree(plain));
}

}  // namespace
}  // namespace host_test
