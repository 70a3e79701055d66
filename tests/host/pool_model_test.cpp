// Pools under random use, compared with a model that remembers every block.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <vector>

#include "qz_host.h"
#include "size_classes.h"

namespace host_test {
namespace {

struct Setting {
  uint32_t option;
  uint32_t hugePages;
  uint64_t limit;
  uint32_t seed;
};

void PrintTo(const Setting &setting, std::ostream *out) {
  *out << "option " << setting.option << ", huge pages " << setting.hugePages << ", limit "
       << setting.limit;
}

class PoolModel : public ::testing::TestWithParam<Setting> {
 protected:
  struct Block {
    char *start;
    uint64_t size;
    uint64_t pattern;
  };

  static HostPtr hostOf(const Setting &setting) {
    QZHostOptions options = QZ_HOST_OPTIONS_DEFAULT;
    options.memoryLimit = setting.limit;
    options.hugePages = setting.hugePages;
    return makeHost(options);
  }

  // Mostly small; the classes' ends and their neighbours; now and then large.
  uint64_t someSize() {
    switch (random() % 8) {
      case 0:
        return qzhost::sizeOfClass(random() % qzhost::kClasses) + random() % 3 - 1;
      case 1:
        return random() % (UINT64_C(1) << (random() % 20));
      case 2:
        return random() % 200 == 0 ? random() % (4 << 20) : random() % 100;
      default:
        return random() % 600;
    }
  }

  static void writePattern(const Block &block) {
    uint64_t word = block.pattern;
    uint64_t at = 0;
    for (; at + 8 <= block.size; at += 8) memcpy(block.start + at, &word, 8);
    memcpy(block.start + at, &word, block.size - at);
  }

  static bool hasPattern(const Block &block) {
    uint64_t at = 0;
    for (; at + 8 <= block.size; at += 8)
      if (memcmp(block.start + at, &block.pattern, 8) != 0) return false;
    return memcmp(block.start + at, &block.pattern, block.size - at) == 0;
  }

  static bool isAllZero(const Block &block) {
    return std::all_of(block.start, block.start + block.size, [](char c) { return c == 0; });
  }

  void take() {
    const uint64_t size = someSize();
    const bool zero = random() % 4 == 0;
    auto *start = static_cast<char *>(pool->allocate(pool, size, zero ? MORVA_ZERO_FILL : 0));
    if (start == nullptr) {
      ++refused;
      return;
    }
    const Block block{start, size, random()};
    ASSERT_EQ(reinterpret_cast<uintptr_t>(start) % (size > 512 ? 64 : 16), 0u);
    if (zero || GetParam().option == MORVA_POOL_VARKEYS) {
      ASSERT_TRUE(isAllZero(block)) << size;
    }
    // Neither the block before it nor the one behind reaches into it.
    const auto [place, isNew] = extents.emplace(start, std::max<uint64_t>(size, 1));
    ASSERT_TRUE(isNew);
    if (const auto after = std::next(place); after != extents.end()) {
      ASSERT_LE(start + place->second, after->first);
    }
    if (place != extents.begin()) {
      ASSERT_LE(std::prev(place)->first + std::prev(place)->second, start);
    }
    writePattern(block);
    blocks.push_back(block);
    if (size <= qzhost::kLargestSmall) {
      smallBytes += qzhost::sizeOfClass(qzhost::classOf(size));
    } else {
      ++large;
    }
  }

  void give() {
    std::swap(blocks[random() % blocks.size()], blocks.back());
    const Block block = blocks.back();
    blocks.pop_back();
    ASSERT_TRUE(hasPattern(block)) << block.size;
    extents.erase(block.start);
    pool->free(pool, block.start);
    if (block.size <= qzhost::kLargestSmall) {
      smallBytes -= qzhost::sizeOfClass(qzhost::classOf(block.size));
    } else {
      --large;
    }
  }

  void compare() {
    const QZPoolStats stats = poolStatsOf(host).at(0);
    ASSERT_EQ(stats.blocksLive, blocks.size());
    if (large == 0) {
      ASSERT_EQ(stats.bytesLive, smallBytes);
    } else {
      ASSERT_GT(stats.bytesLive, smallBytes);
    }
    highest = std::max(highest, stats.bytesLive);
    ASSERT_GE(stats.bytesPeak, highest);
    ASSERT_GE(stats.bytesMapped, stats.bytesLive);
    if (GetParam().limit != 0) {
      ASSERT_LE(stats.bytesMapped, GetParam().limit);
    }
    ASSERT_EQ(statsOf(host).allocationsRefused, refused);
  }

  std::mt19937_64 random{GetParam().seed};
  HostPtr host = hostOf(GetParam());
  HostPool *pool = makePool(host, GetParam().option);
  std::vector<Block> blocks;
  std::map<char *, uint64_t> extents;
  uint64_t smallBytes = 0, large = 0, refused = 0, highest = 0;
};

INSTANTIATE_TEST_SUITE_P(Settings, PoolModel,
                         ::testing::Values(Setting{0, 1, 0, 1}, Setting{0, 0, 0, 2},
                                           Setting{MORVA_POOL_RECORDS, 1, 0, 3},
                                           Setting{MORVA_POOL_VARKEYS, 1, 0, 4},
                                           Setting{MORVA_POOL_VARKEYS, 0, 0, 5},
                                           Setting{0, 1, 3 << 20, 6},
                                           Setting{MORVA_POOL_RECORDS, 0, 5 << 20, 7},
                                           Setting{MORVA_POOL_VARKEYS, 1, 9 << 20, 8}));

TEST_P(PoolModel, AgreesWithThePoolThroughGrowingAndShrinking) {
  // Growing and shrinking by turns, each time to the last block.
  for (int phase = 0; phase < 6; ++phase) {
    const bool grows = phase % 2 == 0;
    for (int i = 0; i < 12000; ++i) {
      if (!blocks.empty() && random() % 10 < (grows ? 3u : 8u)) {
        ASSERT_NO_FATAL_FAILURE(give());
      } else {
        ASSERT_NO_FATAL_FAILURE(take());
      }
      if (i % 64 == 0) {
        ASSERT_NO_FATAL_FAILURE(compare());
      }
    }
    if (grows) continue;
    while (!blocks.empty()) ASSERT_NO_FATAL_FAILURE(give());
    ASSERT_NO_FATAL_FAILURE(compare());
    EXPECT_EQ(statsOf(host).bytesLive, 0u);
  }
  if (GetParam().limit != 0) {
    EXPECT_GT(refused, 0u);
  }
}

}  // namespace
}  // namespace host_test
