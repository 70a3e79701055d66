// Blocks of more than 256 KiB: long ones, each a run of its own in a segment, and
// large ones, each a mapping of its own.
#include <algorithm>

#include "block_pool.h"

namespace qzhost {

namespace {

// A huge page costs as much as 90 KiB of small pages. A tail of a mapping must
// be longer than that to be rounded up to one, since a block is not always used
// to its end.
constexpr uint64_t kTailForHugePage = uint64_t{128} << 10;

// What rounding up leaves unused is at most this part of the block.
constexpr uint64_t kUnusedPart = 4;

constexpr uint64_t roundUp(uint64_t bytes, uint64_t step) {
  return (bytes + step - 1) & ~(step - 1);
}

}  // namespace

void *BlockPool::allocateBig(uint64_t size, bool zero) {
  void *block =
      size <= kLargestLong ? allocateLong(static_cast<uint32_t>(size), zero) : allocateLarge(size);
  if (block == nullptr) account_->countRefusal();
  return block;
}

// ---- long blocks ---------------------------------------------------------

void *BlockPool::allocateLong(uint32_t size, bool zero) {
  const auto bytes = static_cast<uint32_t>(roundUp(size, kPageBytes));
  Run *run = newLongRun(bytes);
  if (run == nullptr) return nullptr;
  Segment *segment = segmentOf(run);
  run->sizeClass = 0;
  run->state = RunState::kLong;
  if (!commitTo(run, run->end)) {
    releaseRun(segment, run);
    // A segment made for the block goes at once: where the limit is near, others need its header.
    if (segment->freeSlices == kAllFree) unmapSegment(segment);
    return nullptr;
  }
  char *block = run->bump;
  run->live = 1;
  bytesLive_.add(bytes);
  blocksLive_.add(1);
  unpoison(block, size);
  const uint32_t start = offsetOf(block);
  if (zero && start < run->fresh) memset(block, 0, std::min(size, run->fresh - start));
  return block;
}

Run *BlockPool::newLongRun(uint32_t bytes) {
  const uint32_t slices = (bytes + kSliceBytes - 1) / kSliceBytes;
  Room room = findRoom(slices, kAllFree - 1, hugePages_);
  if (room.segment == nullptr) {
    // A pool that takes a block as long as this is likely to go on doubling, so
    // the next ones will fill the segment.
    Segment *segment = nullptr;
    if (account_->hasRoom(kSegmentBytes) &&
        account_->mayLeaveUnused(kSegmentBytes - uint64_t{slices} * kSliceBytes))
      segment = newSegment(true);
    if (segment == nullptr) {
      room = findRoom(slices, kAllFree - 1, false);
      if (room.segment == nullptr) segment = newSegment(false);
    }
    if (segment != nullptr) room = roomIn(segment, slices, kAllFree - 1);
    if (room.segment == nullptr) return nullptr;
  }
  return openRun(room, slices, bytes);
}

void BlockPool::freeLong(Segment *segment, Run *run) {
  const auto bytes = static_cast<uint64_t>(run->end - run->bump);
  poison(run->bump, bytes);
  noteFreed(bytes);
  run->live = 0;
  releaseRun(segment, run);
  sweep(segment);
}

// ---- large blocks --------------------------------------------------------

// Fresh from the system, so zero in any case.
void *BlockPool::allocateLarge(uint64_t size) {
  const uint64_t needed =
      size > UINT64_MAX - sizeof(LargeBlock) ? 0 : roundToPages(size + sizeof(LargeBlock));
  if (needed == 0) return nullptr;
  uint64_t mapped = roundUp(needed, kSegmentBytes);
  if (needed % kSegmentBytes < kTailForHugePage || mapped - needed > needed / kUnusedPart ||
      !account_->hasRoom(mapped) || !reserveHuge(mapped)) {
    mapped = needed;
    if (!reserve(mapped)) return nullptr;
  }
  auto *large = static_cast<LargeBlock *>(mapAligned(mapped));
  if (large == nullptr) {
    account_->cancel(mapped);
    return nullptr;
  }
  enter(mapped);
  // Smaller mappings hold no whole huge page, whatever the system does.
  if (mapped >= kSegmentBytes)
    hugePages_ ? adviseHugePages(large, mapped) : adviseSmallPages(large, mapped);
  large->head = {magicOf(large), 1};
  large->mapped = mapped;
  large->usable = needed - sizeof(LargeBlock);
  large_.pushBack(large);
  bytesLive_.add(large->usable);
  blocksLive_.add(1);
  if constexpr (kAsan) {
    poison(large->block(), mapped - sizeof(LargeBlock));
    unpoison(large->block(), size);
  }
  return large->block();
}

void BlockPool::freeLarge(LargeBlock *large, void *block) {
  if (block != large->block()) return misuses_.add(1);
  noteFreed(large->usable);
  unmapLarge(large);
}

void BlockPool::unmapLarge(LargeBlock *large) {
  const uint64_t mapped = large->mapped;
  large_.remove(large);
  unmap(large, mapped);
  give(mapped);
}

}  // namespace qzhost
