#include "block_pool.h"

#include <algorithm>
#include <bit>

namespace qzhost {

namespace {

// Stands in for the current run of a class that has none: used up, and never
// written, because a block is needed before anything of a run changes.
constinit Run noRun{};

// A pool's first segment stays on small pages; one that comes after this much
// may as well be a huge page.
constexpr uint64_t kHugeFrom = 3 * (kSegmentBytes / 4);

}  // namespace

BlockPool::BlockPool(MemoryAccount *account, IdleSegments *idle, bool hugePages, uint64_t secret)
    // The lowest bits stay 0, so that a scrambled link keeps its alignment and
    // a damaged one shows.
    : secret_(secret & ~UINT64_C(15)), account_(account), idle_(idle), hugePages_(hugePages) {
  forgetRuns();
}

void BlockPool::forgetRuns() {
  for (uint32_t c = 0; c < kClasses; ++c) {
    current_[c] = &noRun;
    partial_[c] = {};
  }
}

void BlockPool::forgetCurrent(uint32_t c) {
  current_[c] = &noRun;
}

// ---- small blocks: taking ------------------------------------------------

void *BlockPool::refill(uint32_t c, uint64_t size, bool zero) {
  const uint32_t blockSize = kClassTable.size[c];
  Run *run = current_[c];
  if (static_cast<size_t>(run->end - run->bump) < blockSize) {
    // Used up.
    if (run != &noRun) run->state = RunState::kFull;
    run = partial_[c].first();
    if (run != nullptr) {
      partial_[c].remove(run);
    } else {
      run = newRun(c);
    }
    current_[c] = run != nullptr ? run : &noRun;
    if (run == nullptr) {
      account_->countRefusal();
      return nullptr;
    }
    run->state = RunState::kCurrent;
    if (uint64_t *block = run->freeList) return reuse(run, c, block, size, zero);
  }
  if (!commit(run, blockSize)) {
    // There is no new memory, but there may be freed blocks in other runs.
    void *block = reuseOfPartial(c, size, zero);
    if (block == nullptr) account_->countRefusal();
    return block;
  }
  return advance(run, blockSize, size, zero);
}

// Hands out a freed block of a run that does not become current; null when there
// is none.
void *BlockPool::reuseOfPartial(uint32_t c, uint64_t size, bool zero) {
  Run *run = partial_[c].first();
  if (run == nullptr) return nullptr;
  void *block = reuse(run, c, run->freeList, size, zero);
  if (run->freeList == nullptr) {
    partial_[c].remove(run);
    run->state = RunState::kFull;
  }
  return block;
}

// Counts further memory of the run: as much again as it has, up to 64 KiB, or
// just what the next block needs where the limit is near.
bool BlockPool::commit(Run *run, uint32_t blockSize) {
  Segment *segment = segmentOf(run);
  char *start = segment->start() + offsetOfRun(run->firstSlice);
  const auto used = static_cast<uint64_t>(run->committed - start);
  const uint64_t step = std::clamp<uint64_t>(used, kPageBytes, kSliceBytes);
  char *needed = run->bump + blockSize;
  return commitTo(run, std::max(run->committed + step, needed)) || commitTo(run, needed);
}

bool BlockPool::commitTo(Run *run, char *end) {
  Segment *segment = segmentOf(run);
  const uint32_t from = offsetOf(run->committed);
  // The end of the last block stands for the end of the run: what is behind it
  // is never touched.
  const auto last = static_cast<uint64_t>(run->end - segment->start());
  const auto wanted = static_cast<uint64_t>(end - segment->start());
  const uint64_t to = (std::min(wanted, last) + kPageBytes - 1) & ~(kPageBytes - 1);

  const uint32_t firstSlice = from / kSliceBytes;
  const auto lastSlice = static_cast<uint32_t>((to - 1) / kSliceBytes);
  const auto pagesOf = [&](uint32_t slice) {
    const uint64_t reached = std::min<uint64_t>(to - uint64_t{slice} * kSliceBytes, kSliceBytes);
    return static_cast<uint32_t>(reached / kPageBytes);
  };
  uint64_t pages = 0;
  for (uint32_t slice = firstSlice; slice <= lastSlice; ++slice) {
    if (pagesOf(slice) > segment->touched[slice]) pages += pagesOf(slice) - segment->touched[slice];
  }
  if (segment->countedWhole == 0 && pages != 0) {
    if (!reserve(pages * kPageBytes, segment)) return false;
    enter(pages * kPageBytes);
  }
  for (uint32_t slice = firstSlice; slice <= lastSlice; ++slice) {
    segment->touched[slice] =
        static_cast<uint8_t>(std::max<uint32_t>(segment->touched[slice], pagesOf(slice)));
  }
  run->committed = segment->start() + to;
  return true;
}

Run *BlockPool::newRun(uint32_t c) {
  const uint32_t size = kClassTable.size[c];
  const uint32_t slices = slicesOfRun(size);
  const uint32_t usable = size <= kLargestInFirstSlice ? kAllFree : kAllFree - 1;
  Room room = findRoom(slices, usable, false);
  if (room.segment == nullptr) {
    const bool huge = bytesMapped_.get() >= kHugeFrom && account_->mayLeaveUnused(kSegmentBytes);
    Segment *segment = huge ? newSegment(true) : nullptr;
    if (segment == nullptr) segment = newSegment(false);
    if (segment == nullptr) return nullptr;
    room = roomIn(segment, slices, usable);
  }
  Run *run = openRun(room, slices, size);
  run->sizeClass = static_cast<uint16_t>(c);
  run->state = RunState::kCurrent;
  return run;
}

// ---- small blocks: giving back -------------------------------------------

void BlockPool::free(void *p) {
  Segment *segment = segmentOf(p);
  if (segment == nullptr || segment->head.magic != magicOf(segment)) return misuses_.add(1);
  if (segment->head.large != 0) return freeLarge(reinterpret_cast<LargeBlock *>(segment), p);

  const uint32_t offset = offsetOf(p);
  Run *run = &segment->runs[segment->firstSlice[offset / kSliceBytes]];
  const uint32_t start = offsetOfRun(run->firstSlice);
  const uint32_t blockSize = kClassTable.size[run->sizeClass];
  const uint32_t inRun = offset - start;
  const uint64_t index = (inRun * kClassTable.reciprocal[run->sizeClass]) >> kReciprocalShift;
  if (run->state == RunState::kFree || offset < start || p >= run->bump ||
      index * blockSize != inRun) [[unlikely]] {
    if (run->state == RunState::kLong && p == run->bump) return freeLong(segment, run);
    return misuses_.add(1);
  }

  auto *block = static_cast<uint64_t *>(p);
  if constexpr (kAsan) {
    // Reported by the sanitizer when the block is free.
    (void)*static_cast<volatile char *>(p);
    unpoison(p, blockSize);
  } else if (block[1] == sealOf(block)) [[unlikely]] {
    return misuses_.add(1);
  }
  block[0] = reinterpret_cast<uintptr_t>(run->freeList) ^ secret_;
  block[1] = sealOf(block);
  run->freeList = block;
  poison(p, blockSize);
  noteFreed(blockSize);

  if (--run->live == 0) return runEmptied(segment, run);
  if (run->state == RunState::kFull) {
    run->state = RunState::kPartial;
    partial_[run->sizeClass].pushFront(run);
  }
}

void BlockPool::runEmptied(Segment *segment, Run *run) {
  if (run->state == RunState::kCurrent) {
    // Stays, and hands its blocks out in the order of their addresses again.
    run->freeList = nullptr;
    run->bump = segment->start() + offsetOfRun(run->firstSlice);
    run->fresh = std::max(run->fresh, offsetOf(run->committed - 1) + 1);
  } else {
    releaseRun(segment, run);
  }
  sweep(segment);
}

}  // namespace qzhost
