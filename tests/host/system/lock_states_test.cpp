// States of a lock that threads come to seldom, made by hand.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "host_state.h"
#include "qz_host.h"
#include "system.h"

namespace host_test {
namespace {

using qzhost::Lock;

// As lock.h describes the state word.
constexpr uint32_t kMostReaders = (1u << 28) - 2;
constexpr uint32_t kUpgrading = 1u << 28;

class LockStates : public ::testing::Test {
 protected:
  static uint32_t acquire(Lock &lock, uint32_t mode, bool wait) {
    return qzhost::acquireLock(&lock.table, mode, wait ? 1 : 0);
  }
  static void release(Lock &lock) { qzhost::releaseLock(&lock.table); }

  // Whether a thread that does not wait gets the lock.
  static bool isToBeHad(Lock &lock, uint32_t mode) {
    bool got = false;
    std::thread([&] {
      got = acquire(lock, mode, false) == 0;
      if (got) release(lock);
    }).join();
    return got;
  }

  HostPtr host = makeHost();
  Lock lock{host.get()};
};

TEST_F(LockStates, AReaderMoreThanCanBeCountedWaitsUntilOneHasGone) {
  lock.state = kMostReaders;
  EXPECT_FALSE(isToBeHad(lock, MORVA_LOCK_READ));
  std::atomic<int> yields{0};
  const Instead counted(theSystem.sched_yield, [&] {
    ++yields;
    return 0;
  });
  std::atomic<bool> got{false};
  std::thread reader([&] {
    acquire(lock, MORVA_LOCK_READ, true);
    got = true;
    release(lock);
  });
  while (yields == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_FALSE(got);
  --lock.state;
  reader.join();
  EXPECT_TRUE(got);
  EXPECT_EQ(lock.state, kMostReaders - 1);
}

// A reader that waits to be the only one would wait for ever for one that does too.
TEST_F(LockStates, AnOrderListThatIsRefusedItsLockDoesNotReleaseIt) {
  QZHostOptions options = QZ_HOST_OPTIONS_DEFAULT;
  options.lockedTrees = 1;
  host = makeHost(options);
  OrderListExt *companion = &host->orderListExt.table;
  OrderList *list = companion->makeOrderList(companion, &host->treeExt.table);
  auto &held = *reinterpret_cast<Lock *>(list->lock);
  ASSERT_EQ(acquire(held, MORVA_LOCK_READ, true), 0u);
  held.state |= kUpgrading;
  OrderNode node = {};
  companion->append(list, &node);
  EXPECT_EQ(list->head, &node);
  EXPECT_EQ(held.state, kUpgrading | 1);
  held.state &= ~kUpgrading;
  release(held);
  EXPECT_EQ(held.state, 0u);
  list->destroy(list);
}

// A thread remembers six shared holds by itself; for more it needs memory.
TEST_F(LockStates, AThreadWithoutMemoryForASharedHoldGetsAnExclusiveOne) {
  std::vector<std::unique_ptr<Lock>> others;
  for (int i = 0; i < 6; ++i) others.push_back(std::make_unique<Lock>(host.get()));
  std::thread([&] {
    for (const auto &other : others) ASSERT_EQ(acquire(*other, MORVA_LOCK_READ, true), 0u);
    {
      const Instead refused(theSystem.hasMemory, never);
      ASSERT_EQ(acquire(lock, MORVA_LOCK_READ, true), 0u);
    }
    EXPECT_FALSE(isToBeHad(lock, MORVA_LOCK_READ));
    release(lock);
    EXPECT_TRUE(isToBeHad(lock, MORVA_LOCK_CHANGE));
    for (const auto &other : others) release(*other);
  }).join();
}

TEST_F(LockStates, AnExclusiveHoldForWantOfMemoryIsRefusedWhileOthersHoldTheLock) {
  std::vector<std::unique_ptr<Lock>> others;
  for (int i = 0; i < 6; ++i) others.push_back(std::make_unique<Lock>(host.get()));
  ASSERT_EQ(acquire(lock, MORVA_LOCK_READ, true), 0u);
  std::thread([&] {
    for (const auto &other : others) ASSERT_EQ(acquire(*other, MORVA_LOCK_READ, true), 0u);
    {
      const Instead refused(theSystem.hasMemory, never);
      EXPECT_EQ(acquire(lock, MORVA_LOCK_READ, false), 1u);
    }
    EXPECT_EQ(acquire(lock, MORVA_LOCK_READ, false), 0u);
    release(lock);
    for (const auto &other : others) release(*other);
  }).join();
  release(lock);
  EXPECT_EQ(lock.state, 0u);
}

}  // namespace
}  // namespace host_test
