// Idle segments as the pools of a host see them.
#include "idle_segments.h"

#include <gtest/gtest.h>

#include <cstring>

#include "block_pool.h"

namespace qzhost {
namespace {

class IdleSegmentsTest : public ::testing::Test {
 protected:
  void SetUp() override { idle.poolMade(); }

  // What a pool leaves that took `count` blocks of `size` bytes; answers the first one.
  char *liveAndDie(uint64_t size, int count) {
    BlockPool pool{&account, &idle, true, 0x5EC2E7};
    auto *first = static_cast<char *>(pool.allocate(size, false));
    memset(first, 1, size);
    for (int i = 1; i < count; ++i) memset(pool.allocate(size, false), 1, size);
    return first;
  }

  MemoryAccount account{0};
  IdleSegments idle{&account};
};

TEST_F(IdleSegmentsTest, ComeBackAtTheSamePlaceWithoutOwnerAndRuns) {
  const char *block = liveAndDie(1000, 20);
  const uint64_t taken = account.taken();
  Segment *segment = idle.take(false);
  ASSERT_EQ(segment, segmentOf(block));
  EXPECT_EQ(segment->head.magic, 0u);
  EXPECT_EQ(segment->freeSlices, kAllFree);
  EXPECT_EQ(segment->counted(), taken);
  EXPECT_EQ(idle.take(false), nullptr);
  ASSERT_TRUE(idle.keep(segment));
}

TEST_F(IdleSegmentsTest, AreOfTheKindThatWasAskedFor) {
  liveAndDie(1000, 20);
  liveAndDie(600 << 10, 1);
  Segment *huge = idle.take(true), *small = idle.take(false);
  ASSERT_NE(huge, nullptr);
  ASSERT_NE(small, nullptr);
  EXPECT_EQ(huge->countedWhole, 1u);
  EXPECT_EQ(small->countedWhole, 0u);
  EXPECT_TRUE(idle.keep(huge));
  EXPECT_TRUE(idle.keep(small));
}

TEST_F(IdleSegmentsTest, WithTheFewestPagesComeFirst) {
  BlockPool pools[3] = {
      {&account, &idle, true, 1}, {&account, &idle, true, 2}, {&account, &idle, true, 3}};
  const char *few = nullptr;
  for (int i = 0; i < 3; ++i) {
    const int blocks = i == 1 ? 1 : 20;
    for (int n = 0; n < blocks; ++n) {
      const auto *block = static_cast<char *>(pools[i].allocate(4000, false));
      if (i == 1) few = block;
    }
  }
  for (BlockPool &pool : pools) pool.releaseAll();
  Segment *segment = idle.take(false);
  EXPECT_EQ(segment, segmentOf(few));
  EXPECT_TRUE(idle.keep(segment));
}

TEST_F(IdleSegmentsTest, WithManyTouchedSmallPagesAreNotKept) {
  liveAndDie(1000, 1200);
  EXPECT_EQ(account.taken(), 0u);
}

TEST_F(IdleSegmentsTest, AreFourAtMost) {
  {
    BlockPool pools[6] = {{&account, &idle, true, 1}, {&account, &idle, true, 2},
                          {&account, &idle, true, 3}, {&account, &idle, true, 4},
                          {&account, &idle, true, 5}, {&account, &idle, true, 6}};
    for (BlockPool &pool : pools) ASSERT_NE(pool.allocate(100, false), nullptr);
  }
  EXPECT_EQ(account.taken(), IdleSegments::kMostSegments * 2 * kPageBytes);
}

TEST_F(IdleSegmentsTest, AreGivenBackWhenAskedForAndWithTheLastPool) {
  liveAndDie(1000, 20);
  EXPECT_GT(account.taken(), 0u);
  idle.giveBack();
  EXPECT_EQ(account.taken(), 0u);
  liveAndDie(1000, 20);
  idle.poolGone();
  EXPECT_EQ(account.taken(), 0u);
  // Nobody is left to take it.
  liveAndDie(1000, 20);
  EXPECT_EQ(account.taken(), 0u);
  idle.poolMade();
}

TEST_F(IdleSegmentsTest, AreNothingThatAPoolFreesBlocksOf) {
  BlockPool pool{&account, &idle, true, 7};
  char *block = liveAndDie(1000, 20);
  pool.free(block);
  EXPECT_EQ(pool.misuses(), 1u);
}

#if QZHOST_ASAN
TEST_F(IdleSegmentsTest, ArePoisonedBeforeAndAfterTheyAreTakenAgain) {
  volatile char *block = liveAndDie(1000, 20);
  EXPECT_DEATH(block[10] = 1, "use-after-poison");
  volatile char *longBlock = liveAndDie(600 << 10, 1);
  EXPECT_DEATH(longBlock[300 << 10] = 1, "use-after-poison");
  BlockPool pool{&account, &idle, true, 8};
  auto *next = static_cast<volatile char *>(pool.allocate(1000, false));
  ASSERT_EQ(next, block);
  next[10] = 1;
  EXPECT_DEATH(next[1000] = 1, "use-after-poison");
  EXPECT_DEATH(next[5000] = 1, "use-after-poison");
}
#endif

}  // namespace
}  // namespace qzhost
