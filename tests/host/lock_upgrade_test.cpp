// Turning a shared hold into an exclusive one, and back.
#include <gtest/gtest.h>

#include "lock_test.h"

namespace host_test {
namespace {

using Upgrades = LockTest;

TEST_F(Upgrades, TheOnlyReaderBecomesTheExclusiveHolderAtOnce) {
  for (const uint32_t wait : {0u, 1u}) {
    acquire(lock, kRead);
    EXPECT_EQ(lock->acquire(lock, kChange, wait), 0u);
    EXPECT_TRUE(isExclusive());
    release(lock);
    EXPECT_TRUE(isShared());
    release(lock);
    EXPECT_TRUE(isFree());
  }
  EXPECT_EQ(unmatched(), 0u);
}

TEST_F(Upgrades, WaitForTheOtherReaders) {
  acquire(lock, kRead);
  one.run([this] { acquire(lock, kRead); });
  two.run([this] { acquire(lock, kRead); });
  auto upgrade = one.start([this] { return acquire(lock, kChange); });
  EXPECT_TRUE(isWaiting(upgrade));
  release(lock);
  EXPECT_TRUE(isWaiting(upgrade));
  two.run([this] { release(lock); });
  ASSERT_TRUE(comesBack(upgrade));
  EXPECT_EQ(upgrade.get(), 0u);
  EXPECT_TRUE(isExclusive());
  one.run([this] { release(lock); });
  EXPECT_TRUE(isShared());
  one.run([this] { release(lock); });
  EXPECT_TRUE(isFree());
}

TEST_F(Upgrades, WithoutWaitingAreRefusedWhileThereIsAnotherReader) {
  acquire(lock, kRead);
  one.run([this] { acquire(lock, kRead); });
  EXPECT_EQ(tryAcquire(lock, kChange), 1u);
  EXPECT_TRUE(isShared());
  one.run([this] { release(lock); });
  EXPECT_TRUE(isShared());
  EXPECT_EQ(tryAcquire(lock, kChange), 0u);
  EXPECT_TRUE(isExclusive());
  release(lock);
  release(lock);
  EXPECT_TRUE(isFree());
}

TEST_F(Upgrades, OfTwoThreadsTheSecondIsRefusedAndStaysAReader) {
  acquire(lock, kRead);
  one.run([this] { acquire(lock, kRead); });
  auto first = one.start([this] { return acquire(lock, kChange); });
  EXPECT_TRUE(isWaiting(first));
  EXPECT_EQ(acquire(lock, kChange), 1u);
  EXPECT_EQ(tryAcquire(lock, kChange), 1u);
  EXPECT_TRUE(isWaiting(first));
  release(lock);
  ASSERT_TRUE(comesBack(first));
  EXPECT_EQ(first.get(), 0u);
  EXPECT_TRUE(isExclusive());
  one.run([this] {
    release(lock);
    release(lock);
  });
  EXPECT_TRUE(isFree());
  EXPECT_EQ(unmatched(), 0u);
}

TEST_F(Upgrades, NewReadersWaitForThem) {
  acquire(lock, kRead);
  one.run([this] { acquire(lock, kRead); });
  auto upgrade = one.start([this] { return acquire(lock, kChange); });
  EXPECT_TRUE(isWaiting(upgrade));
  EXPECT_FALSE(isToBeHad(observer, lock, kRead));
  auto reader = two.start([this] { return acquire(lock, kRead); });
  EXPECT_TRUE(isWaiting(reader));
  release(lock);
  ASSERT_TRUE(comesBack(upgrade));
  EXPECT_TRUE(isWaiting(reader));
  // As a reader again it shares.
  one.run([this] { release(lock); });
  ASSERT_TRUE(comesBack(reader));
  EXPECT_TRUE(isShared());
  one.run([this] { release(lock); });
  EXPECT_TRUE(isShared());
  two.run([this] { release(lock); });
  EXPECT_TRUE(isFree());
}

TEST_F(Upgrades, GoBeforeWritersThatWaitAlready) {
  acquire(lock, kRead);
  auto writer = one.start([this] { return acquire(lock, kChange); });
  EXPECT_TRUE(isWaiting(writer));
  EXPECT_EQ(acquire(lock, kChange), 0u);
  EXPECT_TRUE(isWaiting(writer));
  release(lock);
  EXPECT_TRUE(isWaiting(writer));
  release(lock);
  ASSERT_TRUE(comesBack(writer));
  one.run([this] { release(lock); });
  EXPECT_TRUE(isFree());
}

TEST_F(Upgrades, AWriterIsNextWhenItWaitedBesideReaders) {
  acquire(lock, kRead);
  EXPECT_EQ(acquire(lock, kChange), 0u);
  auto writer = one.start([this] { return acquire(lock, kChange); });
  EXPECT_TRUE(isWaiting(writer));
  auto reader = two.start([this] { return acquire(lock, kRead); });
  EXPECT_TRUE(isWaiting(reader));
  release(lock);
  EXPECT_TRUE(isWaiting(writer));
  release(lock);
  ASSERT_TRUE(comesBack(writer));
  one.run([this] { release(lock); });
  ASSERT_TRUE(comesBack(reader));
  two.run([this] { release(lock); });
  EXPECT_TRUE(isFree());
}

TEST_F(Upgrades, GiveBackTheSharedHoldAsDeepAsItWas) {
  for (int i = 0; i < 3; ++i) acquire(lock, kRead);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(acquire(lock, kChange), 0u);
  EXPECT_EQ(acquire(lock, kRead), 0u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(isExclusive());
    release(lock);
  }
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(isShared());
    release(lock);
  }
  EXPECT_TRUE(isFree());
  EXPECT_EQ(unmatched(), 0u);
}

TEST_F(Upgrades, CanBeMadeAgainAndAgain) {
  acquire(lock, kRead);
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(acquire(lock, kChange), 0u);
    release(lock);
  }
  EXPECT_TRUE(isShared());
  release(lock);
  EXPECT_TRUE(isFree());
}

TEST_F(Upgrades, WorkForLocksBeyondTheFirstFewThatAThreadHolds) {
  HostLock *locks[12];
  for (HostLock *&each : locks) acquire(each = makeLock(host), kRead);
  for (HostLock *each : locks) {
    EXPECT_EQ(acquire(each, kChange), 0u);
    EXPECT_FALSE(isToBeHad(observer, each, kRead));
    release(each);
    EXPECT_TRUE(isToBeHad(observer, each, kRead));
    release(each);
    EXPECT_TRUE(isFree(each));
  }
}

}  // namespace
}  // namespace host_test
