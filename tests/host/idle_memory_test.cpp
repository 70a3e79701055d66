// What a host keeps of the pools that were destroyed, as seen from outside.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "qz_host.h"

namespace host_test {
namespace {

// As much as a table of some thousand records takes, in blocks that double.
constexpr uint64_t kLargestBlock = (64 << 10) + 16;

std::vector<char *> takeDoubling(HostPool *pool, uint32_t options = 0,
                                 uint64_t largest = kLargestBlock) {
  std::vector<char *> blocks;
  for (uint64_t size = 2064; size <= largest; size = 2 * (size - 16) + 16) {
    blocks.push_back(static_cast<char *>(pool->allocate(pool, size, options)));
    EXPECT_NE(blocks.back(), nullptr);
  }
  return blocks;
}

void write(const std::vector<char *> &blocks) {
  uint64_t size = 2064;
  for (char *block : blocks) {
    memset(block, 0xC3, size);
    size = 2 * (size - 16) + 16;
  }
}

bool areZero(const std::vector<char *> &blocks) {
  uint64_t size = 2064;
  for (const char *block : blocks) {
    if (block[0] != 0 || memcmp(block, block + 1, size - 1) != 0) return false;
    size = 2 * (size - 16) + 16;
  }
  return true;
}

uint64_t mappedOfPools(const HostPtr &host) {
  uint64_t mapped = 0;
  for (const QZPoolStats &pool : poolStatsOf(host)) mapped += pool.bytesMapped;
  return mapped;
}

uint64_t idle(const HostPtr &host) {
  return statsOf(host).bytesMapped - mappedOfPools(host);
}

HostPtr hostWithHugePages(uint32_t hugePages) {
  QZHostOptions options = QZ_HOST_OPTIONS_DEFAULT;
  options.hugePages = hugePages;
  return makeHost(options);
}

TEST(IdleMemory, OfADestroyedPoolIsKeptAndToldWhileThereAreOthers) {
  const HostPtr host = makeHost();
  makePool(host, 0, "stays");
  HostPool *pool = makePool(host, MORVA_POOL_RECORDS);
  takeDoubling(pool);
  const uint64_t mapped = statsOf(host).bytesMapped;
  EXPECT_EQ(idle(host), 0u);
  pool->destroy(pool);
  EXPECT_EQ(idle(host), mapped);
  EXPECT_EQ(statsOf(host).bytesMapped, mapped);
  EXPECT_EQ(statsOf(host).bytesLive, 0u);
}

TEST(IdleMemory, IsTakenByTheNextPoolInsteadOfNewMemory) {
  const HostPtr host = makeHost();
  makePool(host, 0, "stays");
  uint64_t mapped = 0;
  for (int life = 0; life < 50; ++life) {
    HostPool *pool = makePool(host, MORVA_POOL_RECORDS);
    const uint64_t before = idle(host);
    write(takeDoubling(pool));
    if (life == 0) mapped = statsOf(host).bytesMapped;
    EXPECT_EQ(before, life == 0 ? 0 : mapped);
    EXPECT_EQ(idle(host), 0u);
    pool->destroy(pool);
    EXPECT_EQ(statsOf(host).bytesMapped, mapped);
  }
  EXPECT_EQ(statsOf(host).bytesMappedPeak, mapped);
}

TEST(IdleMemory, OnHugePagesIsTakenForLongBlocks) {
  const HostPtr host = makeHost();
  makePool(host, 0, "stays");
  uint64_t mapped = 0;
  for (int life = 0; life < 20; ++life) {
    HostPool *pool = makePool(host, MORVA_POOL_RECORDS);
    write(takeDoubling(pool, 0, (1 << 20) + 16));
    if (life == 0) mapped = statsOf(host).bytesMapped;
    EXPECT_EQ(idle(host), 0u);
    pool->destroy(pool);
    EXPECT_EQ(idle(host), mapped);
  }
  EXPECT_EQ(statsOf(host).bytesMappedPeak, mapped);
}

TEST(IdleMemory, GivesZeroFilledBlocksThatAreZero) {
  for (const uint32_t hugePages : {0u, 1u}) {
    const HostPtr host = hostWithHugePages(hugePages);
    makePool(host, 0, "stays");
    for (int life = 0; life < 6; ++life) {
      HostPool *pool = makePool(host, life % 2 == 0 ? MORVA_POOL_RECORDS : MORVA_POOL_VARKEYS);
      const uint64_t largest = life % 3 == 0 ? kLargestBlock : (1 << 20) + 16;
      const std::vector<char *> blocks = takeDoubling(pool, MORVA_ZERO_FILL, largest);
      EXPECT_TRUE(areZero(blocks)) << life;
      write(blocks);
      std::vector<char *> small(5000);
      for (char *&block : small) {
        block = static_cast<char *>(pool->allocate(pool, 40, MORVA_ZERO_FILL));
        ASSERT_TRUE(std::all_of(block, block + 40, [](char c) { return c == 0; }));
      }
      for (char *block : small) memset(block, 0xFF, 40);
      pool->destroy(pool);
    }
  }
}

TEST(IdleMemory, IsBoundedHoweverMuchThePoolsHad) {
  const HostPtr host = makeHost();
  makePool(host, 0, "stays");
  for (int round = 0; round < 3; ++round) {
    std::vector<HostPool *> pools;
    for (int i = 0; i < 12; ++i) {
      pools.push_back(makePool(host, MORVA_POOL_VARKEYS));
      for (int n = 0; n < 6000 * i; ++n) pools.back()->allocate(pools.back(), 100, 0);
      takeDoubling(pools.back(), 0, (1 << 20) + 16);
    }
    for (HostPool *pool : pools) pool->destroy(pool);
    EXPECT_GT(idle(host), 0u);
    EXPECT_LE(idle(host), uint64_t{4} << 20);
  }
}

TEST(IdleMemory, GoesWithTheLastPool) {
  const HostPtr host = makeHost();
  HostPool *pools[3];
  for (HostPool *&pool : pools) takeDoubling(pool = makePool(host, MORVA_POOL_RECORDS));
  pools[1]->destroy(pools[1]);
  pools[0]->destroy(pools[0]);
  EXPECT_GT(idle(host), 0u);
  pools[2]->destroy(pools[2]);
  EXPECT_EQ(statsOf(host).bytesMapped, 0u);
}

TEST(IdleMemory, GoesBeforeTheLimitRefusesABlock) {
  constexpr uint64_t kLimit = 4 << 20;
  const HostPtr host = makeHostWithLimit(kLimit);
  HostPool *stays = makePool(host);
  HostPool *pool = makePool(host, MORVA_POOL_RECORDS);
  takeDoubling(pool);
  pool->destroy(pool);
  ASSERT_GT(idle(host), 0u);
  void *all = stays->allocate(stays, kLimit - 4096, 0);
  EXPECT_NE(all, nullptr);
  EXPECT_EQ(idle(host), 0u);
  EXPECT_EQ(statsOf(host).bytesMapped, kLimit);
  EXPECT_EQ(statsOf(host).allocationsRefused, 0u);
  EXPECT_EQ(stays->allocate(stays, 16, 0), nullptr);
  EXPECT_EQ(statsOf(host).allocationsRefused, 1u);
}

// A pool that took memory somebody else had touched gives back what it does not
// use before it is refused more.
TEST(IdleMemory, LeavesThePoolThatTookItWhatALimitThatJustFitsAllows) {
  constexpr uint64_t kLimit = 4 << 20, kLarge = kLimit - (3 << 12);
  const HostPtr host = makeHostWithLimit(kLimit);
  makePool(host, 0, "stays");
  const auto fits = [&] {
    HostPool *pool = makePool(host, MORVA_POOL_RECORDS);
    const bool small = pool->allocate(pool, 100, 0) != nullptr;
    const bool large = pool->allocate(pool, kLarge, 0) != nullptr;
    pool->destroy(pool);
    return small && large;
  };
  EXPECT_TRUE(fits());
  for (int round = 0; round < 3; ++round) {
    HostPool *pool = makePool(host, MORVA_POOL_RECORDS);
    write(takeDoubling(pool));
    pool->destroy(pool);
    ASSERT_GT(idle(host), 100u << 10);
    EXPECT_TRUE(fits());
  }
  EXPECT_EQ(statsOf(host).allocationsRefused, 0u);
  EXPECT_LE(statsOf(host).bytesMappedPeak, kLimit);
}

TEST(IdleMemory, IsNotKeptWhileMostOfTheLimitIsTaken) {
  const HostPtr host = makeHostWithLimit(4 << 20);
  HostPool *stays = makePool(host);
  ASSERT_NE(stays->allocate(stays, 3 << 20, 0), nullptr);
  HostPool *pool = makePool(host, MORVA_POOL_RECORDS);
  takeDoubling(pool);
  pool->destroy(pool);
  EXPECT_EQ(idle(host), 0u);
}

TEST(IdleMemory, OfOneHostIsNothingToAnother) {
  const HostPtr host = makeHost(), other = makeHost();
  makePool(host, 0, "stays");
  HostPool *pool = makePool(host);
  takeDoubling(pool);
  pool->destroy(pool);
  const uint64_t kept = idle(host);
  EXPECT_GT(kept, 0u);
  takeDoubling(makePool(other));
  EXPECT_EQ(idle(host), kept);
}

}  // namespace
}  // namespace host_test
