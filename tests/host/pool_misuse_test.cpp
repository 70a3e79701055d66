// Addresses that are no live blocks of a pool are left alone.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "block_pool.h"
#include "morva/host.h"

namespace qzhost {
namespace {

class PoolMisuse : public ::testing::Test {
 protected:
  void *take(uint64_t size) { return pool.allocate(size, false); }

  MemoryAccount account{0};
  IdleSegments idle{&account};
  BlockPool pool{&account, &idle, true, UINT64_C(0x123456789ABCDEF)};
  BlockPool other{&account, &idle, true, UINT64_C(0xFEDCBA987654321)};
};

TEST(PoolStatistics, TellFreesThatWereIgnored) {
  QZHost *host = QZHostCreate(nullptr);
  HostServices *services = QZHostServices(host);
  const PoolOptions options{};
  HostPool *pool = services->createPool(services, &options, nullptr, "blocks");
  HostPool *other = services->createPool(services, &options, nullptr, "others");
  pool->free(pool, other->allocate(other, 100, 0));
  QZPoolStats stats[2]{};
  ASSERT_EQ(QZHostGetPoolStats(host, stats, 2), 2u);
  EXPECT_EQ(stats[0].ignoredFrees, 1u);
  EXPECT_EQ(stats[1].ignoredFrees, 0u);
  EXPECT_EQ(stats[1].blocksLive, 1u);
  QZHostDestroy(host, nullptr);
}

TEST_F(PoolMisuse, NullIsLeftAlone) {
  pool.free(nullptr);
  EXPECT_EQ(pool.misuses(), 1u);
}

TEST_F(PoolMisuse, BlocksOfAnotherPoolAreLeftAlone) {
  uint64_t misuses = 0;
  for (const uint64_t size : {1, 100, 5000, 100000, 300000, 5 << 20}) {
    take(size);
    void *foreign = other.allocate(size, false);
    memset(foreign, 0x77, size);
    pool.free(foreign);
    EXPECT_EQ(pool.misuses(), ++misuses) << size;
    EXPECT_EQ(*static_cast<char *>(foreign), 0x77);
  }
  EXPECT_EQ(pool.blocksLive(), 6u);
  EXPECT_EQ(other.blocksLive(), 6u);
  EXPECT_EQ(other.misuses(), 0u);
}

TEST_F(PoolMisuse, AddressesInsideOfBlocksAreLeftAlone) {
  uint64_t misuses = 0;
  for (const uint64_t size : {16, 100, 5000, 100000, 300000, 5 << 20}) {
    auto *block = static_cast<char *>(take(size));
    memset(block, 0, size);
    for (const uint64_t at : {uint64_t{1}, uint64_t{8}, size / 2, size - 1}) {
      pool.free(block + at);
      EXPECT_EQ(pool.misuses(), ++misuses) << size << " at " << at;
    }
  }
  EXPECT_EQ(pool.blocksLive(), 6u);
}

TEST_F(PoolMisuse, AddressesThatWereNeverHandedOutAreLeftAlone) {
  auto *block = static_cast<char *>(take(64));
  char *segment =
      reinterpret_cast<char *>(reinterpret_cast<uintptr_t>(block) & ~(kSegmentBytes - 1));
  uint64_t misuses = 0;
  // The header, the block after the last one, a slice nobody uses, the end.
  for (char *address : {segment, segment + 64, segment + 4080, block + 64, block + 640,
                        segment + 5 * kSliceBytes, segment + kSegmentBytes - 16}) {
    pool.free(address);
    EXPECT_EQ(pool.misuses(), ++misuses) << address - segment;
  }
  EXPECT_EQ(pool.blocksLive(), 1u);
  pool.free(block);
  EXPECT_EQ(pool.blocksLive(), 0u);
  EXPECT_EQ(pool.misuses(), misuses);
}

TEST_F(PoolMisuse, FreeingTwiceIsLeftAloneOrReported) {
  for (const uint64_t size : {1, 100, 5000, 100000}) {
    void *keep = take(size), *block = take(size);
    pool.free(block);
    if constexpr (kAsan) {
      EXPECT_DEATH(pool.free(block), "use-after-poison");
    } else {
      const uint64_t before = pool.misuses();
      pool.free(block);
      EXPECT_EQ(pool.misuses(), before + 1);
      // The block is handed out once.
      void *first = take(size), *second = take(size);
      EXPECT_EQ(first, block);
      EXPECT_NE(second, block);
      pool.free(first);
      pool.free(second);
    }
    pool.free(keep);
  }
  EXPECT_EQ(pool.blocksLive(), 0u);
}

#if !QZHOST_ASAN
TEST_F(PoolMisuse, FreeingTheLastBlockTwiceIsLeftAlone) {
  for (const uint64_t size : {1, 100, 5000, 100000}) {
    void *block = take(size);
    pool.free(block);
    const uint64_t before = pool.misuses();
    pool.free(block);
    EXPECT_EQ(pool.misuses(), before + 1);
    EXPECT_EQ(pool.blocksLive(), 0u);
    EXPECT_EQ(pool.bytesLive(), 0u);
    EXPECT_EQ(take(size), block);
    pool.free(block);
  }
}

TEST_F(PoolMisuse, FreeingAllBlocksTwiceInAnyOrderIsLeftAlone) {
  std::vector<void *> blocks;
  for (int i = 0; i < 30000; ++i) blocks.push_back(take(80));
  void *keep = take(80);
  for (void *block : blocks) pool.free(block);
  for (void *block : blocks) pool.free(block);
  EXPECT_EQ(pool.blocksLive(), 1u);
  EXPECT_EQ(pool.misuses(), blocks.size());
  pool.free(keep);
  EXPECT_EQ(pool.bytesLive(), 0u);
}

// A write to a freed block costs the free blocks behind it, but leads nowhere.
TEST_F(PoolMisuse, ADamagedFreeBlockEndsTheList) {
  std::vector<void *> blocks;
  for (int i = 0; i < 10; ++i) blocks.push_back(take(64));
  for (int i = 0; i < 5; ++i) pool.free(blocks[static_cast<size_t>(i)]);
  memset(blocks[4], 0x41, 64);
  for (int i = 0; i < 1000; ++i) {
    void *block = take(64);
    ASSERT_NE(block, nullptr);
    memset(block, 1, 64);
  }
  EXPECT_EQ(pool.misuses(), 1u);
  EXPECT_EQ(pool.blocksLive(), 1005u);
}
#endif

TEST_F(PoolMisuse, APoolThatGaveBackEverythingIsAsNew) {
  for (int round = 0; round < 3; ++round) {
    for (const uint64_t size : {16, 1000, 100000, 1 << 20}) {
      for (int i = 0; i < 50; ++i) memset(take(size), 1, size);
    }
    EXPECT_EQ(pool.blocksLive(), 200u);
    pool.releaseAll();
    EXPECT_EQ(pool.blocksLive(), 0u);
    EXPECT_EQ(pool.bytesLive(), 0u);
    EXPECT_EQ(pool.bytesMapped(), 0u);
    EXPECT_EQ(account.taken(), 0u);
  }
}

}  // namespace
}  // namespace qzhost
