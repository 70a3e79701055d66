// What pools and their host tell about memory.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "qz_host.h"
#include "size_classes.h"

namespace host_test {
namespace {

uint64_t roundedUp(uint64_t size) {
  return qzhost::sizeOfClass(qzhost::classOf(size));
}

TEST(PoolStats, ANewPoolHoldsNothing) {
  const HostPtr host = makeHost();
  makePool(host, 0, "records");
  const QZPoolStats pool = poolStatsOf(host).at(0);
  EXPECT_STREQ(pool.name, "records");
  EXPECT_EQ(pool.bytesLive, 0u);
  EXPECT_EQ(pool.bytesPeak, 0u);
  EXPECT_EQ(pool.bytesMapped, 0u);
  EXPECT_EQ(pool.blocksLive, 0u);
}

TEST(PoolStats, LiveBytesAreThoseOfTheSizeClasses) {
  const HostPtr host = makeHost();
  HostPool *pool = makePool(host);
  uint64_t live = 0, blocks = 0;
  for (uint64_t size = 0; size <= 256 << 10; size += size / 7 + 1) {
    ASSERT_NE(pool->allocate(pool, size, 0), nullptr);
    live += roundedUp(size);
    const QZPoolStats stats = poolStatsOf(host).at(0);
    ASSERT_EQ(stats.bytesLive, live) << size;
    ASSERT_EQ(stats.blocksLive, ++blocks);
    ASSERT_GE(stats.bytesMapped, live);
  }
}

TEST(PoolStats, FreeingTakesOffWhatAllocatingPutOn) {
  const HostPtr host = makeHost();
  HostPool *pool = makePool(host, MORVA_POOL_RECORDS);
  std::vector<std::pair<void *, uint64_t>> blocks;
  uint64_t live = 0;
  for (uint64_t size = 1; size < 100000; size *= 3) {
    blocks.emplace_back(pool->allocate(pool, size, 0), size);
    live += roundedUp(size);
  }
  const uint64_t peak = live;
  while (!blocks.empty()) {
    pool->free(pool, blocks.back().first);
    live -= roundedUp(blocks.back().second);
    blocks.pop_back();
    const QZPoolStats stats = poolStatsOf(host).at(0);
    EXPECT_EQ(stats.bytesLive, live);
    EXPECT_EQ(stats.blocksLive, blocks.size());
    EXPECT_EQ(stats.bytesPeak, peak);
  }
}

TEST(PoolStats, ThePeakIsTheMostThatWasLiveAtOnce) {
  const HostPtr host = makeHost();
  HostPool *pool = makePool(host);
  const auto peak = [&] { return poolStatsOf(host).at(0).bytesPeak; };
  void *a = pool->allocate(pool, 1024, 0), *b = pool->allocate(pool, 1024, 0);
  EXPECT_EQ(peak(), 2048u);
  pool->free(pool, a);
  EXPECT_EQ(peak(), 2048u);
  a = pool->allocate(pool, 512, 0);
  EXPECT_EQ(peak(), 2048u);
  void *c = pool->allocate(pool, 1024, 0);
  EXPECT_EQ(peak(), 2560u);
  for (void *block : {a, b, c}) pool->free(pool, block);
  EXPECT_EQ(peak(), 2560u);
  pool->allocate(pool, 256 << 10, 0);
  EXPECT_EQ(peak(), uint64_t{256} << 10);
}

TEST(PoolStats, NamesAreCutToThirtyOneCharacters) {
  const HostPtr host = makeHost();
  const std::string letters = "abcdefghijklmnopqrstuvwxyz0123456789";
  for (const size_t length : {0, 1, 30, 31, 32, 36})
    makePool(host, 0, letters.substr(0, length).c_str());
  const auto pools = poolStatsOf(host);
  ASSERT_EQ(pools.size(), 6u);
  const size_t shown[] = {0, 1, 30, 31, 31, 31};
  for (size_t i = 0; i < 6; ++i) EXPECT_EQ(pools[i].name, letters.substr(0, shown[i]));
}

TEST(PoolStats, NamesAreCopied) {
  const HostPtr host = makeHost();
  char name[] = "first";
  makePool(host, 0, name);
  memset(name, 'x', 5);
  EXPECT_STREQ(poolStatsOf(host).at(0).name, "first");
}

TEST(PoolStats, PoolsComeOldestFirst) {
  const HostPtr host = makeHost();
  HostPool *pools[5];
  const char *const names[] = {"a", "b", "c", "d", "e"};
  for (int i = 0; i < 5; ++i) pools[i] = makePool(host, 0, names[i]);
  const auto shown = [&] {
    std::string all;
    for (const QZPoolStats &pool : poolStatsOf(host)) all += pool.name;
    return all;
  };
  EXPECT_EQ(shown(), "abcde");
  pools[2]->destroy(pools[2]);
  EXPECT_EQ(shown(), "abde");
  pools[0]->destroy(pools[0]);
  pools[4]->destroy(pools[4]);
  EXPECT_EQ(shown(), "bd");
  makePool(host, 0, "f");
  EXPECT_EQ(shown(), "bdf");
}

TEST(PoolStats, NoMoreEntriesAreWrittenThanThereIsRoomFor) {
  const HostPtr host = makeHost();
  for (const char *name : {"a", "b", "c"}) makePool(host, 0, name);
  for (uint32_t capacity = 0; capacity <= 5; ++capacity) {
    std::vector<QZPoolStats> pools(6);
    for (QZPoolStats &pool : pools) memset(&pool, 0xEE, sizeof pool);
    EXPECT_EQ(QZHostGetPoolStats(host.get(), pools.data(), capacity), 3u);
    for (uint32_t i = 0; i < pools.size(); ++i) {
      if (i < capacity && i < 3) {
        EXPECT_EQ(std::string(pools[i].name), std::string(1, static_cast<char>('a' + i)));
      } else {
        EXPECT_EQ(pools[i].blocksLive, UINT64_C(0xEEEEEEEEEEEEEEEE)) << capacity << ", " << i;
      }
    }
  }
}

TEST(PoolStats, WithoutAPlaceForEntriesThePoolsAreCounted) {
  const HostPtr host = makeHost();
  EXPECT_EQ(QZHostGetPoolStats(host.get(), nullptr, 0), 0u);
  makePool(host);
  EXPECT_EQ(QZHostGetPoolStats(host.get(), nullptr, 0), 1u);
  EXPECT_EQ(QZHostGetPoolStats(host.get(), nullptr, 10), 1u);
}

TEST(PoolStats, TheHostsNumbersAreTheSumsOfItsPools) {
  const HostPtr host = makeHost();
  HostPool *pools[3];
  for (HostPool *&pool : pools) pool = makePool(host);
  for (uint64_t i = 0; i < 300; ++i) {
    HostPool *pool = pools[i % 3];
    void *block = pool->allocate(pool, i * i * 10, 0);
    if (i % 5 == 0) pool->free(pool, block);
  }
  uint64_t live = 0, mapped = 0;
  for (const QZPoolStats &pool : poolStatsOf(host)) {
    live += pool.bytesLive;
    mapped += pool.bytesMapped;
  }
  const QZHostStats stats = statsOf(host);
  EXPECT_EQ(stats.bytesLive, live);
  EXPECT_EQ(stats.bytesMapped, mapped);
  EXPECT_GE(stats.bytesMappedPeak, mapped);
  EXPECT_EQ(stats.pools, 3u);
}

TEST(PoolStats, TheHostsPeakStaysWhenMemoryGoesBack) {
  const HostPtr host = makeHost();
  HostPool *pool = makePool(host);
  void *block = pool->allocate(pool, 10 << 20, 0);
  const uint64_t peak = statsOf(host).bytesMapped;
  pool->free(pool, block);
  EXPECT_EQ(statsOf(host).bytesMapped, 0u);
  EXPECT_EQ(statsOf(host).bytesMappedPeak, peak);
  pool->allocate(pool, 1 << 20, 0);
  EXPECT_EQ(statsOf(host).bytesMappedPeak, peak);
}

TEST(PoolStats, WhatTheSystemCouldNotGiveIsNoPeak) {
  const HostPtr host = makeHost();
  HostPool *pool = makePool(host);
  // More than any address space has.
  EXPECT_EQ(pool->allocate(pool, UINT64_C(1) << 60, 0), nullptr);
  const QZHostStats stats = statsOf(host);
  EXPECT_EQ(stats.allocationsRefused, 1u);
  EXPECT_EQ(stats.bytesMapped, 0u);
  EXPECT_EQ(stats.bytesMappedPeak, 0u);
  EXPECT_EQ(poolStatsOf(host).at(0).bytesMapped, 0u);
}

}  // namespace
}  // namespace host_test
