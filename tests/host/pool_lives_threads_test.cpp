// Threads that make and destroy pools of one host, and so hand each other the
// memory of the pools that went.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "qz_host.h"

namespace host_test {
namespace {

// Fills blocks that double with `mark`; false when one was not zero or not to be had.
bool live(HostPool *pool, unsigned char mark) {
  std::vector<std::pair<unsigned char *, uint64_t>> blocks;
  bool sound = true;
  for (uint64_t size = 1040; size <= (300 << 10); size = 2 * size - 16) {
    auto *block = static_cast<unsigned char *>(pool->allocate(pool, size, MORVA_ZERO_FILL));
    if (block == nullptr) continue;
    sound = sound && block[0] == 0 && memcmp(block, block + 1, size - 1) == 0;
    memset(block, mark, size);
    blocks.emplace_back(block, size);
  }
  for (const auto &[block, size] : blocks)
    sound = sound && block[0] == mark && memcmp(block, block + 1, size - 1) == 0;
  return sound;
}

void churn(const HostPtr &host, std::atomic<int> &damaged) {
  std::vector<std::thread> threads;
  for (unsigned char mark = 1; mark <= 3; ++mark) {
    threads.emplace_back([&, mark] {
      for (int life = 0; life < 150; ++life) {
        HostPool *pool = makePool(host, life % 2 == 0 ? MORVA_POOL_RECORDS : MORVA_POOL_VARKEYS);
        if (!live(pool, mark)) ++damaged;
        const QZHostStats stats = statsOf(host);
        if (stats.memoryLimit != 0 && stats.bytesMapped > stats.memoryLimit) ++damaged;
        pool->destroy(pool);
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
}

TEST(PoolLives, OnOneHostInSeveralThreadsGiveEachOtherMemoryThatIsSound) {
  const HostPtr host = makeHost();
  std::atomic<int> damaged{0};
  HostPool *stays = makePool(host);
  churn(host, damaged);
  EXPECT_EQ(damaged, 0);
  EXPECT_LE(statsOf(host).bytesMapped, uint64_t{4} << 20);
  EXPECT_EQ(statsOf(host).allocationsRefused, 0u);
  stays->destroy(stays);
  EXPECT_EQ(statsOf(host).bytesMapped, 0u);
}

TEST(PoolLives, UnderALimitNeverPassIt) {
  const HostPtr host = makeHostWithLimit(1 << 20);
  std::atomic<int> damaged{0};
  HostPool *stays = makePool(host);
  churn(host, damaged);
  EXPECT_EQ(damaged, 0);
  EXPECT_LE(statsOf(host).bytesMappedPeak, 1u << 20);
  // All of it is to be had again.
  EXPECT_NE(stays->allocate(stays, (1 << 20) - 4096, 0), nullptr);
}

// Without a pool that stays, the last one to go takes the idle memory along,
// again and again.
TEST(PoolLives, EndWithNothingKept) {
  const HostPtr host = makeHost();
  std::atomic<int> damaged{0};
  churn(host, damaged);
  EXPECT_EQ(damaged, 0);
  EXPECT_EQ(statsOf(host).bytesMapped, 0u);
}

}  // namespace
}  // namespace host_test
