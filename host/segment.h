// The headers that pool memory starts with: Segment and LargeBlock begin alike,
// so that the mapping of any block can be told by its first words.
#pragma once

#include <cstddef>
#include <cstdint>

#include "intrusive_list.h"
#include "mapping.h"
#include "size_classes.h"

namespace qzhost {

enum class RunState : uint8_t {
  kFree,     // describes no run
  kCurrent,  // serves its class
  kPartial,  // has freed blocks, waits to become current
  kFull,     // all blocks are live
  kLong      // is one live block of a size of its own
};

// One or more slices cut into blocks of one size. One cache line. The only block
// of a long run starts at `bump`, so that to free() it looks like none that was
// handed out and costs other blocks no comparison.
struct alignas(64) Run {
  // Freed blocks, linked through their first word, which is scrambled.
  uint64_t *freeList;
  // What has never been handed out starts at `bump`; it is counted as taken up
  // to `committed`. `end` is the end of the last block.
  char *bump;
  char *committed;
  char *end;
  Link<Run> link;
  uint32_t live;
  // Offset in the segment from which on the memory has never been written.
  uint32_t fresh;
  uint16_t sizeClass;
  uint8_t firstSlice;
  RunState state;
};
static_assert(sizeof(Run) == 64);

struct MappingHead {
  // Ties the mapping to its pool and its address.
  uint64_t magic;
  // 1 for a LargeBlock.
  uint64_t large;
};

struct Segment {
  MappingHead head;
  Link<Segment> all;
  Link<Segment> open;
  // One bit per slice.
  uint32_t freeSlices;
  // Counted as a whole, since huge pages come whole.
  uint32_t countedWhole;
  // The pages of each slice that have been counted, from its start.
  uint8_t touched[kSlices];
  // The first slice of the run that a slice belongs to.
  uint8_t firstSlice[kSlices];
  // The run that starts at a slice.
  Run runs[kSlices];

  char *start() { return reinterpret_cast<char *>(this); }
  // The bytes of it that are in the account.
  uint64_t counted() const {
    if (countedWhole != 0) return kSegmentBytes;
    uint64_t pages = 0;
    for (const uint8_t of : touched) pages += of;
    return pages * kPageBytes;
  }
};
static_assert(sizeof(Segment) <= kPageBytes, "the header of a segment is one page");
static_assert(kSlices == 32, "freeSlices has a bit for each slice");

inline constexpr uint32_t kAllFree = ~UINT32_C(0);

// Offset of the first block of a run that starts at `slice`.
inline uint32_t offsetOfRun(uint32_t slice) {
  return slice == 0 ? static_cast<uint32_t>(kPageBytes) : slice * kSliceBytes;
}

// The segment or large block that an address may lie in.
inline Segment *segmentOf(const void *p) {
  return reinterpret_cast<Segment *>(reinterpret_cast<uintptr_t>(p) & ~(kSegmentBytes - 1));
}

inline uint32_t offsetOf(const void *p) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p) & (kSegmentBytes - 1));
}

// As in Segment::freeSlices.
inline uint32_t bitsOf(uint32_t slice, uint32_t slices) {
  return static_cast<uint32_t>(((UINT64_C(1) << slices) - 1) << slice);
}

// The slices a run takes; the end of its last block is in the last one of them.
inline uint32_t slicesOf(const Run &run) {
  return (offsetOf(run.end - 1) / kSliceBytes) + 1 - run.firstSlice;
}

struct alignas(64) LargeBlock {
  MappingHead head;
  Link<LargeBlock> link;
  // Bytes of the mapping, and of the block; there may be unused ones behind it.
  uint64_t mapped;
  uint64_t usable;

  char *block() { return reinterpret_cast<char *>(this + 1); }
};
static_assert(sizeof(LargeBlock) == 64, "blocks are aligned to 64 bytes");

}  // namespace qzhost
