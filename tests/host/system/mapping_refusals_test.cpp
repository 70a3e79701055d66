// Memory that the system refuses, or hands out where it is not expected.
#include "mapping.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstring>

#include "block_pool.h"
#include "system.h"

namespace qzhost {
namespace {

using host_test::Instead;
using host_test::theSystem;
namespace real = host_test::real;

void *refuse(size_t) {
  errno = ENOMEM;
  return MAP_FAILED;
}

bool isAligned(const void *start) {
  return reinterpret_cast<uintptr_t>(start) % kSegmentBytes == 0;
}

// Memory that starts `offset` behind a multiple of kSegmentBytes.
void *mapAt(size_t offset, size_t bytes) {
  auto *all = static_cast<char *>(real::mmap(bytes + 2 * kSegmentBytes));
  const size_t past = reinterpret_cast<uintptr_t>(all) % kSegmentBytes;
  char *start = all + (kSegmentBytes - past) + offset;
  munmap(all, static_cast<size_t>(start - all));
  munmap(start + bytes, static_cast<size_t>(all + bytes + 2 * kSegmentBytes - (start + bytes)));
  return start;
}

// ---- mappings ----------------------------------------------------------------

TEST(Mapping, IsMovedToABoundaryWhereTheSystemPutsItElsewhere) {
  int asked = 0;
  const Instead unaligned(theSystem.mmap, [&](size_t bytes) {
    ++asked;
    return mapAt(3 * kPageBytes, bytes);
  });
  auto *start = static_cast<char *>(mapAligned(kSegmentBytes));
  ASSERT_NE(start, nullptr);
  EXPECT_EQ(asked, 2);
  EXPECT_TRUE(isAligned(start));
  memset(start, 1, kSegmentBytes);
  unmap(start, kSegmentBytes);
}

TEST(Mapping, StaysWhereItIsOnABoundary) {
  const Instead aligned(theSystem.mmap, [](size_t bytes) { return mapAt(0, bytes); });
  auto *start = static_cast<char *>(mapAligned(5 * kPageBytes));
  ASSERT_NE(start, nullptr);
  EXPECT_TRUE(isAligned(start));
  memset(start, 1, 5 * kPageBytes);
  unmap(start, 5 * kPageBytes);
}

TEST(Mapping, IsNullWhereTheSystemHasNoMemory) {
  const Instead refused(theSystem.mmap, refuse);
  EXPECT_EQ(mapAligned(kSegmentBytes), nullptr);
  EXPECT_EQ(mapAligned(kPageBytes), nullptr);
}

TEST(Mapping, OfMoreThanTheAddressSpaceIsRefused) {
  EXPECT_EQ(mapAligned(SIZE_MAX - kPageBytes + 1), nullptr);
}

// ---- the account ---------------------------------------------------------------

TEST(Account, ReservesNoMoreThanANumberCanSay) {
  MemoryAccount account{0};
  EXPECT_TRUE(account.reserve(10));
  EXPECT_FALSE(account.reserve(UINT64_MAX - 9));
  EXPECT_TRUE(account.reserve(UINT64_MAX - 10));
}

// ---- pools ---------------------------------------------------------------------

class PoolRefusals : public ::testing::Test {
 protected:
  static constexpr uint64_t kLimit = uint64_t{64} << 20;

  // Somebody else has taken all but `bytes` of the limit.
  void leave(uint64_t bytes) {
    const uint64_t others = kLimit - account.taken() - bytes;
    ASSERT_TRUE(account.reserve(others));
    account.enter(others);
    others_ += others;
  }

  void TearDown() override {
    pool.releaseAll();
    idle.giveBack();
    EXPECT_EQ(account.taken(), others_);
  }

  MemoryAccount account{kLimit};
  IdleSegments idle{&account};
  BlockPool pool{&account, &idle, true, UINT64_C(0x123456789ABCDEF)};

 private:
  uint64_t others_ = 0;
};

TEST_F(PoolRefusals, WithoutMemoryOfTheSystemsThereIsNoBlockAndNothingIsCounted) {
  const Instead refused(theSystem.mmap, refuse);
  EXPECT_EQ(pool.allocate(100, false), nullptr);
  EXPECT_EQ(pool.allocate(300000, false), nullptr);
  EXPECT_EQ(pool.allocate(5 << 20, false), nullptr);
  EXPECT_EQ(account.taken(), 0u);
  EXPECT_EQ(account.refused(), 3u);
  EXPECT_EQ(pool.bytesMapped(), 0u);
}

TEST_F(PoolRefusals, WhereTheLimitIsTooNearForHugePagesSmallOnesDo) {
  leave(3 << 20);
  uint64_t got = 0;
  while (pool.allocate(16 << 10, false) != nullptr) got += 16 << 10;
  EXPECT_GT(got, uint64_t{5} << 19);
}

TEST_F(PoolRefusals, AHugePageInUseIsNotGivenBackForALargerBlock) {
  void *inUse = pool.allocate(300000, false);
  ASSERT_NE(inUse, nullptr);
  ASSERT_EQ(pool.bytesMapped(), kSegmentBytes);
  memset(inUse, 7, 300000);
  leave(1 << 20);
  EXPECT_EQ(pool.allocate(5 << 20, false), nullptr);
  EXPECT_EQ(static_cast<char *>(inUse)[299999], 7);
  EXPECT_EQ(pool.bytesMapped(), kSegmentBytes);
}

// Freed pages that the system does not take back stay counted.
TEST_F(PoolRefusals, PagesThatCannotBeGivenBackMakeNoRoom) {
  BlockPool small{&account, &idle, false, 1};
  void *inUse = small.allocate(16, false);
  ASSERT_NE(inUse, nullptr);
  small.free(small.allocate(500000, false));
  const uint64_t counted = small.bytesMapped();
  ASSERT_GT(counted, 500000u);
  leave((5 << 20) - 100000);
  {
    const Instead refused(theSystem.madvise, [](int advice) {
      if (advice != MADV_DONTNEED) return 0;
      errno = EINVAL;
      return -1;
    });
    EXPECT_EQ(small.allocate(5 << 20, false), nullptr);
    EXPECT_EQ(small.bytesMapped(), counted);
  }
  EXPECT_NE(small.allocate(5 << 20, false), nullptr);
}

// ---- secrets -------------------------------------------------------------------

TEST(Secrets, DifferWhereTheSystemHasNoRandomnessYet) {
  const Instead refused(theSystem.getrandom, [] {
    errno = EAGAIN;
    return ssize_t{-1};
  });
  const uint64_t first = randomSecret();
  uint64_t second = randomSecret();
  for (int tries = 0; second == first && tries < 1000; ++tries) second = randomSecret();
  EXPECT_NE(first, second);
}

}  // namespace
}  // namespace qzhost
