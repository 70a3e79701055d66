// Blocks of more than 256 KiB, most of them mapped one by one, and sizes that nobody can have.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "qz_host.h"
#include "size_classes.h"

namespace host_test {
namespace {

class LargeBlocks : public ::testing::TestWithParam<uint32_t> {
 protected:
  static HostPtr hostWithHugePages(uint32_t hugePages) {
    QZHostOptions options = QZ_HOST_OPTIONS_DEFAULT;
    options.hugePages = hugePages;
    return makeHost(options);
  }
  HostPtr host = hostWithHugePages(GetParam());
  HostPool *pool = makePool(host);
};
INSTANTIATE_TEST_SUITE_P(HugePages, LargeBlocks, ::testing::Values(0u, 1u));

constexpr uint64_t kSizes[] = {(256 << 10) + 1, 1 << 20,        (2 << 20) - 65, (2 << 20) - 64,
                               2 << 20,         (2 << 20) + 1,  5 << 20,        (16 << 20) - 64,
                               16 << 20,        (64 << 20) + 17};

TEST_P(LargeBlocks, AreZeroAtFirstAndWritableToTheLastByte) {
  for (const uint64_t size : kSizes) {
    auto *block = static_cast<char *>(pool->allocate(pool, size, MORVA_ZERO_FILL));
    ASSERT_NE(block, nullptr);
    for (uint64_t at = 0; at < size; at += 1021) ASSERT_EQ(block[at], 0) << size;
    EXPECT_EQ(block[size - 1], 0);
    for (uint64_t at = 0; at < size; at += 4093) block[at] = 1;
    block[size - 1] = 1;
    pool->free(pool, block);
  }
}

TEST_P(LargeBlocks, GoBackToTheSystemWhenFreed) {
  for (const uint64_t size : kSizes) {
    if (size <= qzhost::kLargestLong) continue;
    void *block = pool->allocate(pool, size, 0);
    const QZPoolStats stats = poolStatsOf(host).at(0);
    EXPECT_GE(stats.bytesLive, size);
    EXPECT_LE(stats.bytesLive, size + 8192);
    EXPECT_GE(stats.bytesMapped, stats.bytesLive);
    // Huge pages come whole.
    EXPECT_LE(stats.bytesMapped, size + 8192 + (GetParam() == 1 ? size / 4 : 0));
    EXPECT_EQ(stats.blocksLive, 1u);
    pool->free(pool, block);
    EXPECT_EQ(poolStatsOf(host).at(0).bytesLive, 0u);
    EXPECT_EQ(poolStatsOf(host).at(0).bytesMapped, 0u);
  }
}

TEST_P(LargeBlocks, LiveBesideEachOtherAndBesideSmallOnes) {
  struct Block {
    char *start;
    uint64_t size;
    char mark;
  };
  std::vector<Block> blocks;
  for (int i = 0; i < 60; ++i) {
    const uint64_t size = i % 3 == 0 ? 100 : kSizes[i % 7];
    const char mark = static_cast<char>(i + 1);
    auto *start = static_cast<char *>(pool->allocate(pool, size, 0));
    ASSERT_NE(start, nullptr);
    memset(start, mark, size);
    blocks.push_back({start, size, mark});
  }
  for (const Block &block : blocks) {
    EXPECT_EQ(block.start[0], block.mark);
    EXPECT_EQ(memcmp(block.start, block.start + 1, block.size - 1), 0);
    pool->free(pool, block.start);
  }
  EXPECT_EQ(statsOf(host).bytesLive, 0u);
}

TEST_P(LargeBlocks, OfImpossibleSizesAreRefusedAndCounted) {
  std::vector<uint64_t> sizes;
  for (uint64_t less = 0; less <= 130; ++less) sizes.push_back(UINT64_MAX - less);
  for (const uint64_t less : {4095, 4096, 4097, 1 << 20, (2 << 20) - 1, 2 << 20, 4 << 20})
    sizes.push_back(UINT64_MAX - less);
  for (int bit = 48; bit < 64; ++bit) {
    sizes.push_back(UINT64_C(1) << bit);
    sizes.push_back((UINT64_C(1) << bit) - 1 + (UINT64_C(1) << 47));
  }
  uint64_t refused = 0;
  for (const uint64_t size : sizes) {
    ASSERT_EQ(pool->allocate(pool, size, MORVA_ZERO_FILL), nullptr) << size;
    ASSERT_EQ(statsOf(host).allocationsRefused, ++refused);
  }
  EXPECT_EQ(statsOf(host).bytesMapped, 0u);
  EXPECT_EQ(statsOf(host).bytesLive, 0u);
  EXPECT_NE(pool->allocate(pool, 100, 0), nullptr);
}

}  // namespace
}  // namespace host_test
