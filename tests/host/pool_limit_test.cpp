// The most memory that the pools of a host may take.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "qz_host.h"

namespace host_test {
namespace {

// As many blocks as the pool gives.
std::vector<void *> fill(HostPool *pool, uint64_t size) {
  std::vector<void *> blocks;
  while (void *block = pool->allocate(pool, size, 0)) blocks.push_back(block);
  return blocks;
}

void freeAll(HostPool *pool, std::vector<void *> &blocks) {
  for (void *block : blocks) pool->free(pool, block);
  blocks.clear();
}

TEST(PoolLimit, IsTold) {
  EXPECT_EQ(statsOf(makeHost()).memoryLimit, 0u);
  EXPECT_EQ(statsOf(makeHostWithLimit(12345)).memoryLimit, 12345u);
}

TEST(PoolLimit, IsNeverPassedAndEveryRefusalIsCounted) {
  std::mt19937_64 random(11);
  for (const uint64_t limit : {1, 4095, 4096, 8191, 8192, 65536, 1000000, (10 << 20) + 123}) {
    const HostPtr host = makeHostWithLimit(limit);
    HostPool *pools[] = {makePool(host), makePool(host, MORVA_POOL_RECORDS),
                         makePool(host, MORVA_POOL_VARKEYS)};
    std::vector<std::pair<HostPool *, void *>> blocks;
    uint64_t refused = 0;
    for (int i = 0; i < 20000; ++i) {
      if (!blocks.empty() && random() % 3 == 0) {
        std::swap(blocks[random() % blocks.size()], blocks.back());
        blocks.back().first->free(blocks.back().first, blocks.back().second);
        blocks.pop_back();
      } else {
        HostPool *pool = pools[random() % 3];
        const uint64_t size = random() % (UINT64_C(1) << (random() % 21));
        if (void *block = pool->allocate(pool, size, 0)) {
          blocks.emplace_back(pool, block);
        } else {
          ++refused;
        }
      }
      const QZHostStats stats = statsOf(host);
      ASSERT_LE(stats.bytesMapped, limit);
      ASSERT_LE(stats.bytesMappedPeak, limit);
      ASSERT_EQ(stats.allocationsRefused, refused);
    }
    EXPECT_GT(refused, 0u) << limit;
  }
}

// Huge pages come whole; they are not to eat up what the limit leaves to others.
TEST(PoolLimit, LeavesRoomForManyPoolsThatBeginTheirSecondSegment) {
  constexpr int kPools = 40;
  const HostPtr host = makeHostWithLimit(UINT64_C(112) << 20);
  for (int i = 0; i < kPools; ++i) {
    HostPool *pool = makePool(host);
    for (int block = 0; block < 2048; ++block) {
      ASSERT_NE(pool->allocate(pool, 1024, 0), nullptr) << i << ' ' << block;
    }
  }
  EXPECT_EQ(statsOf(host).allocationsRefused, 0u);
}

TEST(PoolLimit, BelowOnePageNothingIsToBeHad) {
  const HostPtr host = makeHostWithLimit(4095);
  HostPool *pool = makePool(host);
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(pool->allocate(pool, 1, 0), nullptr);
  EXPECT_EQ(pool->allocate(pool, 1 << 20, 0), nullptr);
  EXPECT_EQ(statsOf(host).allocationsRefused, 2u);
  EXPECT_EQ(statsOf(host).bytesMapped, 0u);
}

TEST(PoolLimit, SmallBlocksUseItToTheLastPage) {
  for (const uint64_t limit : {8192, 65536, 81920, 1 << 20, (5 << 20) + 4095}) {
    const HostPtr host = makeHostWithLimit(limit);
    fill(makePool(host), 16);
    EXPECT_EQ(statsOf(host).bytesMapped, limit / 4096 * 4096);
  }
}

TEST(PoolLimit, OneLargeBlockCanHaveItAll) {
  constexpr uint64_t kLimit = 8 << 20;
  const HostPtr host = makeHostWithLimit(kLimit);
  HostPool *pool = makePool(host);
  // The largest size that is granted.
  uint64_t granted = 0, refused = kLimit + 1;
  while (refused - granted > 1) {
    const uint64_t size = granted + (refused - granted) / 2;
    void *block = pool->allocate(pool, size, 0);
    if (block != nullptr) {
      granted = size;
      pool->free(pool, block);
    } else {
      refused = size;
    }
  }
  EXPECT_GE(granted, kLimit - 4096);
  ASSERT_NE(pool->allocate(pool, granted, 0), nullptr);
  EXPECT_EQ(statsOf(host).bytesMapped, kLimit);
  EXPECT_EQ(pool->allocate(pool, 1, 0), nullptr);
}

TEST(PoolLimit, FreeingOneBlockMakesRoomForOne) {
  for (const uint64_t size : {16, 300, 4000, 50000, 200000, 1 << 20}) {
    const HostPtr host = makeHostWithLimit(6 << 20);
    HostPool *pool = makePool(host);
    std::vector<void *> blocks = fill(pool, size);
    ASSERT_GT(blocks.size(), 3u);
    for (size_t i = 0; i < blocks.size(); i += blocks.size() / 3) {
      pool->free(pool, blocks[i]);
      EXPECT_NE(blocks[i] = pool->allocate(pool, size, 0), nullptr) << size;
      EXPECT_EQ(pool->allocate(pool, size, 0), nullptr) << size;
    }
  }
}

TEST(PoolLimit, AfterFreeingAllAsMuchIsToBeHadAsBefore) {
  for (const uint64_t size : {16, 300, 4000, 50000, 200000, 1 << 20}) {
    const HostPtr host = makeHostWithLimit(7 << 20);
    HostPool *pool = makePool(host);
    std::vector<void *> blocks = fill(pool, size);
    const size_t count = blocks.size();
    for (int round = 0; round < 4; ++round) {
      freeAll(pool, blocks);
      blocks = fill(pool, size);
      EXPECT_EQ(blocks.size(), count) << size;
    }
  }
}

TEST(PoolLimit, FreedSmallBlocksMakeRoomForBlocksOfAnySize) {
  constexpr uint64_t kLimit = 7 << 20;
  const uint64_t sizes[] = {16, 6 << 20, 300, 4000, 3 << 20, 50000, (7 << 20) - 4096, 200000};
  const HostPtr host = makeHostWithLimit(kLimit);
  HostPool *pool = makePool(host);
  for (int round = 0; round < 3; ++round) {
    for (const uint64_t size : sizes) {
      std::vector<void *> blocks = fill(pool, size);
      EXPECT_GE(blocks.size() * size, kLimit / 5 * 2) << size;
      freeAll(pool, blocks);
    }
  }
}

TEST(PoolLimit, IsOneForAllPoolsTogether) {
  constexpr uint64_t kLimit = 4 << 20;
  const HostPtr host = makeHostWithLimit(kLimit);
  HostPool *first = makePool(host), *second = makePool(host);
  fill(first, 100);
  EXPECT_EQ(second->allocate(second, 100, 0), nullptr);
  EXPECT_EQ(second->allocate(second, 1 << 20, 0), nullptr);
  first->destroy(first);
  EXPECT_LE(statsOf(host).bytesMapped, kLimit / 2);
  EXPECT_GE(fill(second, 100).size() * 100, kLimit * 8 / 10);
}

TEST(PoolLimit, OfOneHostIsNothingToAnother) {
  const HostPtr small = makeHostWithLimit(4096), large = makeHost();
  HostPool *refused = makePool(small), *granted = makePool(large);
  EXPECT_EQ(refused->allocate(refused, 1 << 20, 0), nullptr);
  EXPECT_NE(granted->allocate(granted, 1 << 20, 0), nullptr);
  EXPECT_EQ(statsOf(large).allocationsRefused, 0u);
}

TEST(PoolLimit, NoLimitMeansNone) {
  const HostPtr host = makeHostWithLimit(0);
  HostPool *pool = makePool(host);
  EXPECT_NE(pool->allocate(pool, UINT64_C(1) << 32, 0), nullptr);
  EXPECT_EQ(statsOf(host).allocationsRefused, 0u);
}

TEST(PoolLimit, BlocksThatAreAliveStayWhatTheyAreWhenMoreIsRefused) {
  const HostPtr host = makeHostWithLimit(3 << 20);
  HostPool *pool = makePool(host);
  std::vector<void *> blocks = fill(pool, 64);
  for (size_t i = 0; i < blocks.size(); ++i) *static_cast<uint64_t *>(blocks[i]) = i;
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(pool->allocate(pool, 64, 0), nullptr);
    EXPECT_EQ(pool->allocate(pool, 5000, 0), nullptr);
    EXPECT_EQ(pool->allocate(pool, 1 << 20, 0), nullptr);
  }
  for (size_t i = 0; i < blocks.size(); ++i) ASSERT_EQ(*static_cast<uint64_t *>(blocks[i]), i);
}

}  // namespace
}  // namespace host_test
