// Segments of a pool: where runs find room, and how the memory comes and goes.
#include <algorithm>
#include <bit>

#include "block_pool.h"

namespace qzhost {

namespace {

// How many segments are asked for room before a new one is made. More than a
// few are only passed over where runs of many slices meet scattered free ones.
constexpr int kSegmentsAsked = 8;

// The first of `slices` neighbouring free slices, or kSlices.
uint32_t findFree(uint32_t freeSlices, uint32_t slices) {
  uint32_t starts = freeSlices;
  for (uint32_t i = 1; i < slices; ++i) starts &= freeSlices >> i;
  return static_cast<uint32_t>(std::countr_zero(starts));
}

// How many slices those are. (std::popcount would be a call into a library more.)
uint32_t countOf(uint32_t slices) {
  uint32_t count = 0;
  for (; slices != 0; slices &= slices - 1) ++count;
  return count;
}

}  // namespace

// ---- the account ---------------------------------------------------------

// Where the limit is in the way, what is kept without need goes first: what is
// idle, then what the pool itself does not use; `keep` is in use, whatever its
// runs say.
bool BlockPool::reserve(uint64_t bytes, const Segment *keep) {
  if (account_->reserve(bytes)) return true;
  idle_->giveBack();
  if (account_->reserve(bytes)) return true;
  return giveBackUnused(keep) && account_->reserve(bytes);
}

// For huge pages, which small ones can replace: nothing is given back for them.
bool BlockPool::reserveHuge(uint64_t bytes) {
  return hugePages_ && account_->reserve(bytes);
}

void BlockPool::enter(uint64_t bytes) {
  bytesMapped_.add(bytes);
  account_->enter(bytes);
}

void BlockPool::give(uint64_t bytes) {
  bytesMapped_.sub(bytes);
  account_->give(bytes);
}

// ---- taking --------------------------------------------------------------

BlockPool::Room BlockPool::roomIn(Segment *segment, uint32_t slices, uint32_t usable) {
  const uint32_t slice = findFree(segment->freeSlices & usable, slices);
  return {slice < kSlices ? segment : nullptr, slice};
}

// Neighbouring free slices of those in `usable`, in a segment on huge pages only
// or in any.
BlockPool::Room BlockPool::findRoom(uint32_t slices, uint32_t usable, bool hugeOnly) const {
  int asked = 0;
  for (Segment *segment = open_.first(); segment != nullptr && asked < kSegmentsAsked;
       segment = open_.next(segment), ++asked) {
    if (hugeOnly && segment->countedWhole == 0) continue;
    const Room room = roomIn(segment, slices, usable);
    if (room.segment != nullptr) return room;
  }
  return {};
}

// A run for blocks of `size` bytes, without class and state.
Run *BlockPool::openRun(const Room &room, uint32_t slices, uint32_t size) {
  const auto [segment, slice] = room;
  if (segment == spare_) spare_ = nullptr;
  segment->freeSlices &= ~bitsOf(slice, slices);
  if (segment->freeSlices == 0) open_.remove(segment);
  if (segment->countedWhole != 0) account_->putToUse(uint64_t{slices} * kSliceBytes);
  for (uint32_t i = 0; i < slices; ++i)
    segment->firstSlice[slice + i] = static_cast<uint8_t>(slice);

  const uint32_t start = offsetOfRun(slice);
  const uint32_t bytes = (slice + slices) * kSliceBytes - start;
  Run *run = &segment->runs[slice];
  run->freeList = nullptr;
  run->bump = run->committed = segment->start() + start;
  run->end = run->bump + static_cast<size_t>(bytes / size) * size;
  run->live = 0;
  run->fresh = start;
  for (uint32_t i = slice; i < slice + slices; ++i) {
    if (segment->touched[i] != 0) {
      run->fresh = std::max<uint32_t>(
          start, i * kSliceBytes + segment->touched[i] * static_cast<uint32_t>(kPageBytes));
    }
  }
  run->firstSlice = static_cast<uint8_t>(slice);
  return run;
}

// A segment on huge pages or on small ones, if need be from the system; null
// when it is not to be had.
Segment *BlockPool::newSegment(bool huge) {
  Segment *segment = huge && !hugePages_ ? nullptr : idle_->take(huge);
  if (segment == nullptr) segment = mapSegment(huge);
  if (segment == nullptr) return nullptr;
  bytesMapped_.add(segment->counted());
  segment->head.magic = magicOf(segment);
  segments_.pushBack(segment);
  open_.pushFront(segment);
  if (huge) account_->leaveUnused(kSegmentBytes);
  return segment;
}

// In the account, but not in the pool's numbers yet.
Segment *BlockPool::mapSegment(bool huge) {
  const uint64_t counted = huge ? kSegmentBytes : kPageBytes;
  if (!(huge ? reserveHuge(counted) : reserve(counted))) return nullptr;
  auto *segment = static_cast<Segment *>(mapAligned(kSegmentBytes));
  if (segment == nullptr) {
    account_->cancel(counted);
    return nullptr;
  }
  account_->enter(counted);
  huge ? adviseHugePages(segment, kSegmentBytes) : adviseSmallPages(segment, kSegmentBytes);
  segment->freeSlices = kAllFree;
  segment->countedWhole = huge ? 1 : 0;
  segment->touched[0] = 1;
  poison(segment->start() + kPageBytes, kSegmentBytes - kPageBytes);
  return segment;
}

// ---- giving back ---------------------------------------------------------

void BlockPool::releaseRun(Segment *segment, Run *run) {
  if (run->state == RunState::kPartial) partial_[run->sizeClass].remove(run);
  if (run->state == RunState::kCurrent) forgetCurrent(run->sizeClass);
  run->state = RunState::kFree;
  if (segment->freeSlices == 0) open_.pushFront(segment);
  segment->freeSlices |= bitsOf(run->firstSlice, slicesOf(*run));
  if (segment->countedWhole != 0) account_->leaveUnused(uint64_t{slicesOf(*run)} * kSliceBytes);
}

// Whether none of its runs has a live block.
bool BlockPool::isUnused(const Segment *segment) {
  for (uint32_t used = ~segment->freeSlices; used != 0;) {
    const Run &run = segment->runs[std::countr_zero(used)];
    if (run.live != 0) return false;
    used &= ~bitsOf(run.firstSlice, slicesOf(run));
  }
  return true;
}

void BlockPool::releaseRuns(Segment *segment) {
  while (segment->freeSlices != kAllFree) {
    releaseRun(segment, &segment->runs[std::countr_zero(~segment->freeSlices)]);
  }
}

// Retires the segment if it is unused. What can be left then are current runs of
// some classes, which a pool's only segment may keep.
void BlockPool::sweep(Segment *segment) {
  if (segments_.count() == 1 && segment->freeSlices != kAllFree) return;
  if (!isUnused(segment)) return;
  releaseRuns(segment);
  retire(segment);
}

// Gives back all unused segments but `keep`, and what was touched in free slices
// of the others; answers whether there was something.
bool BlockPool::giveBackUnused(const Segment *keep) {
  const uint64_t before = bytesMapped_.get();
  for (Segment *segment = segments_.first(), *next = nullptr; segment != nullptr; segment = next) {
    next = segments_.next(segment);
    if (segment == keep || !isUnused(segment)) {
      trim(segment);
    } else {
      releaseRuns(segment);
      unmapSegment(segment);
    }
  }
  return bytesMapped_.get() != before;
}

void BlockPool::trim(Segment *segment) {
  if (segment->countedWhole != 0) return;
  for (uint32_t left = segment->freeSlices; left != 0; left &= left - 1) {
    const auto slice = static_cast<uint32_t>(std::countr_zero(left));
    const auto kept = static_cast<uint8_t>(slice == 0 ? 1 : 0);  // the header
    if (segment->touched[slice] <= kept) continue;
    const uint64_t bytes = (segment->touched[slice] - kept) * kPageBytes;
    if (!discard(segment->start() + size_t{slice} * kSliceBytes + kept * kPageBytes, bytes))
      continue;
    segment->touched[slice] = kept;
    give(bytes);
  }
}

void BlockPool::retire(Segment *segment) {
  if (spare_ != nullptr) return unmapSegment(segment);
  spare_ = segment;
  open_.remove(segment);
  open_.pushBack(segment);
}

void BlockPool::unmapSegment(Segment *segment) {
  dropSegment(segment);
  const uint64_t counted = segment->counted();
  unmap(segment, kSegmentBytes);
  account_->give(counted);
}

// Takes the segment off the pool, its memory still being there.
void BlockPool::dropSegment(Segment *segment) {
  if (segment == spare_) spare_ = nullptr;
  if (segment->freeSlices != 0) open_.remove(segment);
  if (segment->countedWhole != 0)
    account_->putToUse(uint64_t{countOf(segment->freeSlices)} * kSliceBytes);
  segments_.remove(segment);
  bytesMapped_.sub(segment->counted());
}

void BlockPool::releaseAll() {
  while (LargeBlock *large = large_.first()) unmapLarge(large);
  while (Segment *segment = segments_.first()) {
    dropSegment(segment);
    if (idle_->keep(segment)) continue;
    const uint64_t counted = segment->counted();
    unmap(segment, kSegmentBytes);
    account_->give(counted);
  }
  if (bytesPeak_.get() < bytesLive_.get()) bytesPeak_.set(bytesLive_.get());
  bytesLive_.set(0);
  blocksLive_.set(0);
  forgetRuns();
}

}  // namespace qzhost
