// What a pool promises about its blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <set>
#include <vector>

#include "poison.h"
#include "qz_host.h"
#include "size_classes.h"

namespace host_test {
namespace {

// Around every size at which something changes, from 0 to a few huge pages.
std::vector<uint64_t> interestingSizes() {
  std::vector<uint64_t> sizes{0, 1, 2, 7, 8};
  const auto around = [&](uint64_t size) {
    for (uint64_t s = size - 1; s <= size + 1; ++s) sizes.push_back(s);
  };
  for (uint32_t c = 0; c < qzhost::kClasses; ++c) around(qzhost::sizeOfClass(c));
  for (const uint64_t large : {300 << 10, 512 << 10, 1 << 20, 1984 << 10, 2 << 20, 3 << 20}) {
    around(large);
    around(large - 64);
  }
  return sizes;
}

bool isAllZero(const void *block, uint64_t size) {
  const auto *bytes = static_cast<const char *>(block);
  return size == 0 || (bytes[0] == 0 && memcmp(bytes, bytes + 1, size - 1) == 0);
}

class PoolsOfEveryKind : public ::testing::TestWithParam<uint32_t> {
 protected:
  void *take(uint64_t size, uint32_t options = 0) { return pool->allocate(pool, size, options); }
  void give(void *block) { pool->free(pool, block); }
  uint64_t mapped() { return poolStatsOf(host).at(0).bytesMapped; }

  HostPtr host = makeHost();
  HostPool *pool = makePool(host, GetParam());
};
INSTANTIATE_TEST_SUITE_P(Options, PoolsOfEveryKind,
                         ::testing::Values(0u, MORVA_POOL_RECORDS, MORVA_POOL_VARKEYS));

TEST_P(PoolsOfEveryKind, BlocksAreAlignedToSixteenAndAboveFiveHundredAndTwelveBytesToSixtyFour) {
  for (const uint64_t size : interestingSizes()) {
    const uintptr_t alignment = size > 512 ? 64 : 16;
    for (int i = 0; i < 5; ++i) {
      const void *block = take(size);
      ASSERT_NE(block, nullptr);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignment, 0u) << size;
    }
  }
}

TEST_P(PoolsOfEveryKind, EveryByteOfABlockIsTheCallers) {
  std::vector<std::pair<unsigned char *, uint64_t>> blocks;
  for (const uint64_t size : interestingSizes()) {
    blocks.emplace_back(static_cast<unsigned char *>(take(size)), size);
    memset(blocks.back().first, static_cast<int>(blocks.size() & 255), size);
  }
  for (size_t i = 0; i < blocks.size(); ++i) {
    const auto [block, size] = blocks[i];
    ASSERT_TRUE(std::all_of(block, block + size, [&](unsigned char byte) {
      return byte == ((i + 1) & 255);
    })) << size;
    give(block);
  }
  EXPECT_EQ(statsOf(host).bytesLive, 0u);
}

TEST_P(PoolsOfEveryKind, BlocksOfNoBytesAreBlocksToo) {
  std::set<void *> blocks;
  for (int i = 0; i < 100; ++i) blocks.insert(take(0));
  EXPECT_EQ(blocks.size(), 100u);
  EXPECT_EQ(blocks.count(nullptr), 0u);
  for (void *block : blocks) give(block);
  EXPECT_EQ(statsOf(host).bytesLive, 0u);
}

TEST_P(PoolsOfEveryKind, ZeroFilledBlocksAreZeroOnFreshMemory) {
  for (const uint64_t size : interestingSizes())
    ASSERT_TRUE(isAllZero(take(size, MORVA_ZERO_FILL), size)) << size;
}

TEST_P(PoolsOfEveryKind, ZeroFilledBlocksAreZeroAfterReuse) {
  for (const uint64_t size : interestingSizes()) {
    // One block stays alive, so that the others come back from a free list.
    void *first = take(size);
    for (int round = 0; round < 3; ++round) {
      void *blocks[4];
      for (void *&block : blocks) {
        block = take(size, MORVA_ZERO_FILL);
        ASSERT_TRUE(isAllZero(block, size)) << size;
        memset(block, 0xA5, size);
      }
      for (void *block : blocks) give(block);
    }
    give(first);
  }
}

TEST_P(PoolsOfEveryKind, ZeroFilledBlocksAreZeroWhereBlocksOfOtherSizesWere) {
  const uint64_t sizes[] = {48 << 10, 24, 9000, 100 << 10, 16, 256 << 10, 700};
  for (int round = 0; round < 3; ++round) {
    for (const uint64_t size : sizes) {
      std::vector<void *> blocks;
      for (uint64_t bytes = 0; bytes < 3 << 20; bytes += size) {
        blocks.push_back(take(size, MORVA_ZERO_FILL));
        ASSERT_TRUE(isAllZero(blocks.back(), size)) << size;
        memset(blocks.back(), 0xFF, size);
      }
      for (void *block : blocks) give(block);
    }
  }
}

TEST(Pools, ThePoolsOwnOptionZeroFillsEveryBlock) {
  const HostPtr host = makeHost();
  HostPool *pool = makePool(host, MORVA_POOL_VARKEYS);
  for (const uint64_t size : interestingSizes()) {
    void *keep = pool->allocate(pool, size, 0);
    for (int round = 0; round < 3; ++round) {
      void *block = pool->allocate(pool, size, 0);
      ASSERT_TRUE(isAllZero(block, size)) << size;
      memset(block, 0x5A, size);
      pool->free(pool, block);
    }
    pool->free(pool, keep);
  }
}

TEST_P(PoolsOfEveryKind, FillingAgainAfterFreeingTakesNoMoreFromTheSystem) {
  std::mt19937 random(7);
  for (const uint64_t size : {1, 16, 64, 100, 1000, 5000, 20000, 70000, 200000}) {
    const uint64_t count = std::clamp<uint64_t>((5 << 20) / size, 20, 40000);
    std::vector<void *> blocks(count);
    const auto fill = [&] {
      for (void *&block : blocks) ASSERT_NE(block = take(size), nullptr);
    };
    fill();
    const uint64_t before = mapped();
    for (int round = 0; round < 6; ++round) {
      if (round % 3 == 1) std::reverse(blocks.begin(), blocks.end());
      if (round % 3 == 2) std::shuffle(blocks.begin(), blocks.end(), random);
      for (void *block : blocks) give(block);
      EXPECT_LE(mapped(), before) << size;
      fill();
      EXPECT_EQ(mapped(), before) << size << ", round " << round;
    }
    for (void *block : blocks) give(block);
  }
}

TEST_P(PoolsOfEveryKind, AFreedBlockIsTheNextOneOfItsSize) {
  std::vector<void *> blocks;
  for (int i = 0; i < 1000; ++i) blocks.push_back(take(48));
  const uint64_t before = mapped();
  for (int i = 0; i < 100000; ++i) {
    void *&block = blocks[static_cast<size_t>(i) % blocks.size()];
    void *freed = block;
    give(block);
    ASSERT_EQ(block = take(40), freed);
  }
  EXPECT_EQ(mapped(), before);
}

TEST_P(PoolsOfEveryKind, FreedBlocksOfOneSizeMakeRoomForAnother) {
  uint64_t highest = 0;
  for (int round = 0; round < 20; ++round) {
    const uint64_t size = round % 2 == 0 ? 40 : 3000;
    std::vector<void *> blocks;
    for (uint64_t bytes = 0; bytes < 8 << 20; bytes += size) blocks.push_back(take(size));
    if (round == 1) highest = mapped();
    if (round > 1) {
      EXPECT_LE(mapped(), highest + (2 << 20));
    }
    for (void *block : blocks) give(block);
  }
}

TEST_P(PoolsOfEveryKind, MostMemoryGoesBackToTheSystemWithTheBlocks) {
  std::vector<void *> blocks;
  for (int i = 0; i < 500000; ++i) blocks.push_back(take(64));
  EXPECT_GE(mapped(), 500000u * 64);
  for (void *block : blocks) give(block);
  EXPECT_LE(mapped(), uint64_t{4} << 20);
}

TEST_P(PoolsOfEveryKind, AFewSmallBlocksTakeAFewPagesOnly) {
  for (int i = 0; i < 10; ++i) take(100);
  EXPECT_LE(mapped(), 2u * 4096);
}

TEST(Pools, APoolCanBeDestroyedWithItsBlocksAlive) {
  const HostPtr host = makeHost();
  for (const uint32_t option : {0u, MORVA_POOL_RECORDS, MORVA_POOL_VARKEYS}) {
    HostPool *pool = makePool(host, option);
    for (const uint64_t size : interestingSizes()) memset(pool->allocate(pool, size, 0), 1, size);
    pool->destroy(pool);
    const QZHostStats stats = statsOf(host);
    EXPECT_EQ(stats.pools, 0u);
    EXPECT_EQ(stats.bytesLive, 0u);
    EXPECT_EQ(stats.bytesMapped, 0u);
    EXPECT_GT(stats.bytesMappedPeak, 0u);
  }
}

TEST(Pools, DestroyingOneLeavesTheBlocksOfOthersAlone) {
  const HostPtr host = makeHost();
  HostPool *stays = makePool(host, 0, "stays");
  auto *block = static_cast<char *>(stays->allocate(stays, 5000, 0));
  memset(block, 'x', 5000);
  HostPool *goes = makePool(host, 0, "goes");
  for (int i = 0; i < 1000; ++i) goes->allocate(goes, 5000, MORVA_ZERO_FILL);
  goes->destroy(goes);
  EXPECT_TRUE(std::all_of(block, block + 5000, [](char c) { return c == 'x'; }));
  // What is more is kept for the next pool.
  EXPECT_LE(statsOf(host).bytesMapped, poolStatsOf(host).at(0).bytesMapped + (4 << 20));
}

TEST(Pools, OptionsMayBeNull) {
  const HostPtr host = makeHost();
  HostServices *services = QZHostServices(host.get());
  HostPool *pool = services->createPool(services, nullptr, nullptr, nullptr);
  ASSERT_NE(pool, nullptr);
  void *block = pool->allocate(pool, 100, MORVA_ZERO_FILL);
  EXPECT_TRUE(isAllZero(block, 100));
  pool->free(pool, block);
  EXPECT_STREQ(poolStatsOf(host).at(0).name, "");
}

#if QZHOST_ASAN
using PoolsDeathTest = PoolsOfEveryKind;
INSTANTIATE_TEST_SUITE_P(Options, PoolsDeathTest,
                         ::testing::Values(0u, MORVA_POOL_RECORDS, MORVA_POOL_VARKEYS));

TEST_P(PoolsDeathTest, TheSanitizerReportsAnAccessBehindABlock) {
  for (const uint64_t size : {13, 100, 5000, 300000}) {
    auto *block = static_cast<volatile char *>(take(size));
    block[size - 1] = 1;
    EXPECT_DEATH(block[size] = 1, "use-after-poison") << size;
  }
}

TEST_P(PoolsDeathTest, TheSanitizerReportsAnAccessToAFreedBlock) {
  auto *block = static_cast<volatile char *>(take(100));
  give(const_cast<char *>(block));
  EXPECT_DEATH(block[50] = 1, "use-after-poison");
}
#endif

}  // namespace
}  // namespace host_test
