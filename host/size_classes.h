// The sizes in which small blocks are handed out: steps of 16 bytes up to 128,
// then eight sizes per doubling, so that rounding up never wastes more than an
// eighth. Every size is a multiple of 16, every size above 512 of 64: a record
// of 64 bytes in a block of records starts at the same place of a cache line as
// the first one.
#pragma once

#include <bit>
#include <cstdint>

#include "mapping.h"

namespace qzhost {

// What segments are cut into. A run is one or more of these.
inline constexpr uint32_t kSliceBytes = 64 << 10;
inline constexpr uint32_t kSlices = kSegmentBytes / kSliceBytes;

// Larger blocks have a run each, of as many slices as they need.
inline constexpr uint32_t kLargestSmall = 256 << 10;

// Blocks larger than this do not fit in a segment and are mapped one by one.
inline constexpr uint32_t kLargestLong = (kSlices - 1) * kSliceBytes;

// Runs of blocks up to this size may lie in what the header leaves of the first
// slice, so that a pool of a few small blocks touches two pages in all.
inline constexpr uint32_t kLargestInFirstSlice = 16 << 10;

inline constexpr uint32_t kClasses = 96;

// The class of blocks of `size` bytes; `size` up to kLargestSmall. 0 is served
// as 1.
constexpr uint32_t classOf(uint64_t size) {
  if (size <= 128) return size == 0 ? 0 : static_cast<uint32_t>((size - 1) / 16);
  const uint64_t n = size - 1;
  const uint32_t top = 63 - static_cast<uint32_t>(std::countl_zero(n));
  return 8 + (top - 7) * 8 + static_cast<uint32_t>((n >> (top - 3)) & 7);
}

// The bytes of a block of class `c`.
constexpr uint32_t sizeOfClass(uint32_t c) {
  if (c < 8) return (c + 1) * 16;
  const uint32_t top = 7 + (c - 8) / 8;
  return (9 + (c - 8) % 8) << (top - 3);
}

// The slices of a run of blocks of `size` bytes: four blocks and more of the
// sizes up to 64 KiB, two and more of the others.
constexpr uint32_t slicesOfRun(uint32_t size) {
  if (size <= 16 << 10) return 1;
  if (size <= 64 << 10) return 4;
  return (2 * size + kSliceBytes - 1) / kSliceBytes;
}

// Divides offsets in a run by the block size without dividing: exact while
// offset * size stays below 2^40, and both factors are below 2^20 here.
inline constexpr int kReciprocalShift = 40;
constexpr uint64_t reciprocalOf(uint32_t size) {
  return ((UINT64_C(1) << kReciprocalShift) + size - 1) / size;
}

struct ClassTable {
  uint32_t size[kClasses];
  uint64_t reciprocal[kClasses];
};

inline constexpr ClassTable kClassTable = [] {
  ClassTable table{};
  for (uint32_t c = 0; c < kClasses; ++c) {
    table.size[c] = sizeOfClass(c);
    table.reciprocal[c] = reciprocalOf(sizeOfClass(c));
  }
  return table;
}();

static_assert(classOf(0) == 0 && classOf(16) == 0 && classOf(17) == 1 && classOf(128) == 7);
static_assert(classOf(129) == 8 && sizeOfClass(8) == 144 && sizeOfClass(15) == 256);
static_assert(classOf(kLargestSmall) == kClasses - 1);
static_assert(sizeOfClass(kClasses - 1) == kLargestSmall);
static_assert(slicesOfRun(kLargestSmall) * kSliceBytes < (1 << 20));

}  // namespace qzhost
