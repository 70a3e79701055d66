// Blocks between 256 KiB and what fits in a segment, and tails of larger ones:
// where they lie, and what becomes of that near a limit.
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <vector>

#include "block_pool.h"

namespace qzhost {
namespace {

bool isZero(const void *block, uint64_t size) {
  const auto *bytes = static_cast<const char *>(block);
  return bytes[0] == 0 && memcmp(bytes, bytes + 1, size - 1) == 0;
}

class LongBlocks : public ::testing::Test {
 protected:
  static bool isHuge(const void *block) { return segmentOf(block)->countedWhole != 0; }

  MemoryAccount account{0}, narrow{3 << 20};
  IdleSegments idle{&account}, narrowIdle{&narrow};
  BlockPool pool{&account, &idle, true, 0xB10C};
  BlockPool smallPages{&account, &idle, false, 0xB10C5};
  BlockPool limited{&narrow, &narrowIdle, true, 0xB10C55};
};

TEST_F(LongBlocks, OfDoublingSizesShareOneSegmentOnHugePages) {
  EXPECT_FALSE(isHuge(pool.allocate((128 << 10) + 16, false)));
  const uint64_t before = pool.bytesMapped();
  const void *first = pool.allocate((256 << 10) + 16, false);
  for (const uint64_t size : {(512 << 10) + 16, (1 << 20) + 16}) {
    const void *block = pool.allocate(size, false);
    EXPECT_EQ(segmentOf(block), segmentOf(first));
  }
  EXPECT_TRUE(isHuge(first));
  EXPECT_EQ(pool.bytesMapped(), before + kSegmentBytes);
}

TEST_F(LongBlocks, StayOnSmallPagesWithoutTheOption) {
  for (uint64_t size = 300 << 10; size <= kLargestLong; size += 100 << 10)
    ASSERT_FALSE(isHuge(smallPages.allocate(size, false))) << size;
  // Only their own pages count, and the headers.
  EXPECT_LE(smallPages.bytesMapped(), smallPages.bytesLive() + (40 * kPageBytes));
}

TEST_F(LongBlocks, StayOnSmallPagesWhereHugeOnesWouldTakeMostOfTheLimit) {
  const void *block = limited.allocate(300 << 10, true);
  ASSERT_NE(block, nullptr);
  EXPECT_FALSE(isHuge(block));
  EXPECT_LE(limited.bytesMapped(), (300u << 10) + 2 * kPageBytes);
  // So that as many are to be had as small pages allow.
  int more = 0;
  while (limited.allocate(300 << 10, false) != nullptr) ++more;
  EXPECT_EQ(more, 9);
  EXPECT_EQ(narrow.refused(), 1u);
  EXPECT_LE(narrow.peak(), narrow.limit());
}

TEST_F(LongBlocks, FillMostOfALimitOnSmallPagesEvenWhereTheyWouldFillAHugeOne) {
  const void *block = limited.allocate(kLargestLong, false);
  ASSERT_NE(block, nullptr);
  EXPECT_FALSE(isHuge(block));
  EXPECT_LE(limited.bytesMapped(), kLargestLong + 2 * kPageBytes);
}

TEST_F(LongBlocks, MissNothingOfALimitForHugePagesTheyLeaveHalfUnused) {
  MemoryAccount wider{6 << 20};
  IdleSegments widerIdle{&wider};
  BlockPool blocks{&wider, &widerIdle, true, 0xB10C555};
  for (int i = 0; i < 5; ++i) ASSERT_NE(blocks.allocate(1 << 20, false), nullptr) << i;
}

TEST_F(LongBlocks, ThatAreRefusedLeaveNoMemoryBehind) {
  ASSERT_NE(limited.allocate(1 << 20, false), nullptr);
  ASSERT_NE(limited.allocate(1536 << 10, false), nullptr);
  const uint64_t full = limited.bytesMapped();
  EXPECT_EQ(limited.allocate(1 << 20, false), nullptr);
  EXPECT_EQ(limited.allocate(kLargestLong, false), nullptr);
  EXPECT_EQ(limited.bytesMapped(), full);
  EXPECT_EQ(narrow.refused(), 2u);
}

TEST_F(LongBlocks, LeaveNoMoreThanSixteenMebibytesOfHugePagesUnused) {
  std::deque<BlockPool> pools;
  int huge = 0;
  for (uint64_t secret = 100; secret < 3000; secret += 100)
    pools.emplace_back(&account, &idle, true, secret);
  for (BlockPool &one : pools) huge += isHuge(one.allocate(260 << 10, false)) ? 1 : 0;
  EXPECT_GT(huge, 5);
  EXPECT_LT(huge, 12);
}

TEST_F(LongBlocks, AreZeroWhenAskedForWhateverWasThere) {
  for (BlockPool *one : {&pool, &smallPages, &limited}) {
    for (int round = 0; round < 4; ++round) {
      for (const uint64_t size : {1 << 20, 300 << 10, 1500 << 10, 700 << 10}) {
        void *block = one->allocate(size, true);
        ASSERT_NE(block, nullptr) << size;
        ASSERT_TRUE(isZero(block, size)) << size;
        memset(block, 0xA7, size);
        void *small = one->allocate(9000, true);
        ASSERT_TRUE(isZero(small, 9000));
        memset(small, 0xA7, 9000);
        one->free(block);
        one->free(small);
      }
    }
    EXPECT_EQ(one->bytesLive(), 0u);
    EXPECT_EQ(one->misuses(), 0u);
  }
}

TEST_F(LongBlocks, GiveTheirSlicesBackToBlocksOfAnySize) {
  std::vector<void *> blocks;
  for (int round = 0; round < 5; ++round) {
    const uint64_t before = pool.bytesMapped();
    for (const uint64_t size : {300 << 10, 900 << 10, 600 << 10, 1300 << 10})
      blocks.push_back(pool.allocate(size, false));
    for (int i = 0; i < 20; ++i) blocks.push_back(pool.allocate(100 << 10, false));
    if (round > 1) {
      EXPECT_LE(pool.bytesMapped(), before + 3 * kSegmentBytes);
    }
    for (void *block : blocks) pool.free(block);
    blocks.clear();
    EXPECT_LE(pool.bytesMapped(), 2 * kSegmentBytes);
  }
  EXPECT_EQ(pool.bytesLive(), 0u);
}

TEST_F(LongBlocks, AreCountedOncePerPageAndFreedOnce) {
  for (const uint64_t size : {(256 << 10) + 1, 1000 << 10, int{kLargestLong}}) {
    void *block = pool.allocate(size, false);
    EXPECT_EQ(pool.bytesLive(), (size + kPageBytes - 1) / kPageBytes * kPageBytes);
    const uint64_t misuses = pool.misuses();
    pool.free(static_cast<char *>(block) + kSliceBytes);
    pool.free(static_cast<char *>(block) + 16);
    EXPECT_EQ(pool.misuses(), misuses + 2);
    pool.free(block);
    EXPECT_EQ(pool.bytesLive(), 0u);
    pool.free(block);
    EXPECT_EQ(pool.misuses(), misuses + 3);
  }
}

TEST_F(LongBlocks, AreAlignedToCacheLinesLikeAllAboveFiveHundredAndTwelveBytes) {
  for (uint64_t size = 513; size <= 3 << 20; size += size / 3) {
    for (int i = 0; i < 4; ++i) {
      void *block = pool.allocate(size, false);
      ASSERT_EQ(reinterpret_cast<uintptr_t>(block) % 64, 0u) << size;
    }
  }
}

TEST_F(LongBlocks, OfTwoMebibytesAndMoreAreRoundedUpWhereLittleIsLost) {
  constexpr uint64_t kMore = 64;
  const auto mappedFor = [](BlockPool &from, uint64_t size) {
    void *block = from.allocate(size, false);
    EXPECT_NE(block, nullptr);
    const uint64_t mapped = from.bytesMapped();
    from.free(block);
    return mapped;
  };
  EXPECT_EQ(mappedFor(pool, 3584 << 10), uint64_t{4} << 20);
  EXPECT_EQ(mappedFor(pool, (9 << 20) + kMore), uint64_t{10} << 20);
  EXPECT_EQ(mappedFor(pool, (2 << 20) + kMore), (uint64_t{2} << 20) + kPageBytes);
  EXPECT_EQ(mappedFor(pool, 2560 << 10), (uint64_t{2560} << 10) + kPageBytes);
  EXPECT_EQ(mappedFor(smallPages, 3584 << 10), (uint64_t{3584} << 10) + kPageBytes);
  EXPECT_EQ(mappedFor(limited, 2000 << 10), (uint64_t{2000} << 10) + kPageBytes);
}

}  // namespace
}  // namespace qzhost
