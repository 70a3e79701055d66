// A block that was written to after it was freed.
#include <gtest/gtest.h>

#include <cstring>

#include "qz_host.h"

namespace host_test {
namespace {

TEST(DamagedBlock, EndsTheListOfFreedOnesAndIsCounted) {
  const HostPtr host = makeHost();
  HostPool *pool = makePool(host);
  void *blocks[3];
  for (void *&block : blocks) block = pool->allocate(pool, 64, 0);
  pool->free(pool, blocks[0]);
  pool->free(pool, blocks[1]);
  memset(blocks[1], 0x41, 64);
  EXPECT_EQ(pool->allocate(pool, 64, 0), blocks[1]);
  EXPECT_EQ(poolStatsOf(host)[0].ignoredFrees, 1u);
  void *next = pool->allocate(pool, 64, 0);
  EXPECT_NE(next, nullptr);
  EXPECT_NE(next, blocks[0]);
}

}  // namespace
}  // namespace host_test
