// The sizes small blocks come in.
#include "size_classes.h"

#include <gtest/gtest.h>

namespace qzhost {
namespace {

TEST(SizeClasses, GrowFromSixteenBytesToTwoHundredAndFiftySixKibibytes) {
  EXPECT_EQ(sizeOfClass(0), 16u);
  EXPECT_EQ(sizeOfClass(kClasses - 1), uint32_t{256} << 10);
  for (uint32_t c = 1; c < kClasses; ++c) EXPECT_GT(sizeOfClass(c), sizeOfClass(c - 1));
}

TEST(SizeClasses, EverySizeHasTheSmallestClassItFitsIn) {
  uint32_t expected = 0;
  for (uint32_t size = 0; size <= kLargestSmall; ++size) {
    if (size > sizeOfClass(expected)) ++expected;
    ASSERT_EQ(classOf(size), expected) << size;
  }
}

TEST(SizeClasses, RoundingUpWastesAnEighthAtMost) {
  for (uint32_t size = 128; size <= kLargestSmall; ++size) {
    const uint32_t waste = sizeOfClass(classOf(size)) - size;
    ASSERT_LE(waste * 8, size) << size;
  }
}

TEST(SizeClasses, KeepTheAlignmentOfBlocks) {
  for (uint32_t c = 0; c < kClasses; ++c) {
    EXPECT_EQ(sizeOfClass(c) % 16, 0u);
    if (sizeOfClass(c) > 512) {
      EXPECT_EQ(sizeOfClass(c) % 64, 0u);
    }
  }
}

TEST(SizeClasses, RunsOfManySlicesHoldTwoBlocksAndMore) {
  for (uint32_t c = 0; c < kClasses; ++c) {
    const uint32_t size = sizeOfClass(c), slices = slicesOfRun(size);
    EXPECT_LT(slices, kSlices);
    EXPECT_GE(slices * kSliceBytes, 2 * size);
    // What the header leaves of the first slice holds some, too.
    if (size <= kLargestInFirstSlice) {
      EXPECT_GE((kSliceBytes - kPageBytes) / size, 3u);
    }
  }
}

// For every offset in the longest run, since free() trusts it for any address.
TEST(SizeClasses, TheReciprocalDividesExactly) {
  for (uint32_t c = 0; c < kClasses; ++c) {
    const uint32_t size = sizeOfClass(c), run = slicesOfRun(size) * kSliceBytes;
    for (uint64_t offset = 0; offset < run; ++offset)
      ASSERT_EQ((offset * kClassTable.reciprocal[c]) >> kReciprocalShift, offset / size)
          << size << " at " << offset;
  }
}

}  // namespace
}  // namespace qzhost
