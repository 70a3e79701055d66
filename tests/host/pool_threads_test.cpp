// Pools under threads: one for all of them, and one for each.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "qz_host.h"

namespace host_test {
namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kRounds = 8000;
#else
constexpr int kRounds = 60000;
#endif

struct Block {
  unsigned char *start;
  uint64_t size;
  unsigned char mark;

  bool isIntact() const {
    for (uint64_t at = 0; at < size; at += 61)
      if (start[at] != mark) return false;
    return size == 0 || start[size - 1] == mark;
  }
};

// Allocates and frees at random; blocks travel between threads by `exchange`.
class Exchange {
 public:
  // Leaves one block and takes another; an empty one at first.
  Block swap(const Block &block, size_t place) {
    const std::lock_guard guard(mutex_);
    return std::exchange(places_[place % 64], block);
  }

 private:
  std::mutex mutex_;
  Block places_[64]{};
};

uint64_t someSize(std::mt19937 &random) {
  if (random() % 500 == 0) return random() % (1 << 20);
  return random() % (1u << (random() % 13));
}

TEST(PoolThreads, OnePoolServesAllThreads) {
  const HostPtr host = makeHost();
  HostPool *pool = makePool(host, 0);
  Exchange exchange;
  std::atomic<uint64_t> damaged{0};
  std::vector<std::thread> threads;
  for (uint32_t seed = 0; seed < 4; ++seed) {
    threads.emplace_back([&, seed] {
      std::mt19937 random(seed);
      for (int i = 0; i < kRounds; ++i) {
        Block block{nullptr, someSize(random), static_cast<unsigned char>(random())};
        block.start = static_cast<unsigned char *>(
            pool->allocate(pool, block.size, random() % 2 == 0 ? MORVA_ZERO_FILL : 0));
        if (block.start == nullptr) continue;
        memset(block.start, block.mark, block.size);
        const Block other = exchange.swap(block, random());
        if (other.start == nullptr) continue;
        if (!other.isIntact()) ++damaged;
        pool->free(pool, other.start);
      }
    });
  }
  // Statistics at any time, meanwhile.
  std::atomic<bool> stop{false};
  std::thread observer([&] {
    while (!stop) {
      const QZHostStats stats = statsOf(host);
      if (stats.pools != 1) ++damaged;
      QZPoolStats entry;
      if (QZHostGetPoolStats(host.get(), &entry, 1) != 1) ++damaged;
      std::this_thread::yield();
    }
  });
  for (std::thread &thread : threads) thread.join();
  stop = true;
  observer.join();
  EXPECT_EQ(damaged, 0u);
  EXPECT_LE(poolStatsOf(host).at(0).blocksLive, 64u);
  for (size_t place = 0; place < 64; ++place) {
    const Block block = exchange.swap({}, place);
    if (block.start == nullptr) continue;
    EXPECT_TRUE(block.isIntact());
    pool->free(pool, block.start);
  }
  EXPECT_EQ(statsOf(host).bytesLive, 0u);
  EXPECT_EQ(statsOf(host).allocationsRefused, 0u);
}

TEST(PoolThreads, EveryThreadHasPoolsOfItsOwnUnderOneLimit) {
  constexpr uint64_t kLimit = 6 << 20;
  const HostPtr host = makeHostWithLimit(kLimit);
  std::atomic<uint64_t> refused{0}, passed{0};
  std::vector<std::thread> threads;
  for (uint32_t seed = 0; seed < 4; ++seed) {
    threads.emplace_back([&, seed] {
      std::mt19937 random(seed);
      for (int life = 0; life < 10; ++life) {
        HostPool *pool =
            makePool(host, random() % 2 == 0 ? MORVA_POOL_RECORDS : MORVA_POOL_VARKEYS);
        std::vector<void *> blocks;
        for (int i = 0; i < kRounds / 20; ++i) {
          if (!blocks.empty() && random() % 4 == 0) {
            pool->free(pool, blocks.back());
            blocks.pop_back();
          } else if (void *block = pool->allocate(pool, 10 * someSize(random), 0)) {
            blocks.push_back(block);
          } else {
            ++refused;
          }
          const QZHostStats stats = statsOf(host);
          if (stats.bytesMapped > kLimit || stats.bytesMappedPeak > kLimit) ++passed;
        }
        pool->destroy(pool);
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  const QZHostStats stats = statsOf(host);
  EXPECT_EQ(passed, 0u);
  EXPECT_GT(refused, 0u);
  EXPECT_EQ(stats.allocationsRefused, refused);
  EXPECT_EQ(stats.bytesMapped, 0u);
  EXPECT_EQ(stats.pools, 0u);
}

}  // namespace
}  // namespace host_test
