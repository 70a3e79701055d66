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

// How many segments are asked for room before a new one is made. More than a
// few are only passed over where runs of many slices meet scattered free ones.
constexpr int kSegmentsAsked = 8;

Segment *segmentOf(const void *p) {
  return reinterpret_cast<Segment *>(reinterpret_cast<uintptr_t>(p) & ~(kSegmentBytes - 1));
}

uint32_t offsetOf(const void *p) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p) & (kSegmentBytes - 1));
}

uint32_t bitsOf(uint32_t slice, uint32_t slices) {
  return static_cast<uint32_t>(((UINT64_C(1) << slices) - 1) << slice);
}

// The first of `slices` neighbouring free slices, or kSlices.
uint32_t findFree(uint32_t freeSlices, uint32_t slices) {
  uint32_t starts = freeSlices;
  for (uint32_t i = 1; i < slices; ++i) starts &= freeSlices >> i;
  return static_cast<uint32_t>(std::countr_zero(starts));
}

}  // namespace

BlockPool::BlockPool(MemoryAccount *account, bool hugePages, uint64_t secret)
    // The lowest bits stay 0, so that a scrambled link keeps its alignment and
    // a damaged one shows.
    : secret_(secret & ~UINT64_C(15)), account_(account), hugePages_(hugePages) {
  std::fill_n(current_, kClasses, &noRun);
}

// Where the limit is in the way, what the pool has without need goes first; that
// is not `keep`.
bool BlockPool::reserve(uint64_t bytes, const Segment *keep) {
  return account_->reserve(bytes) || (unmapUnused(keep) && account_->reserve(bytes));
}

void BlockPool::enter(uint64_t bytes) {
  bytesMapped_.add(bytes);
  account_->enter(bytes);
}

void BlockPool::give(uint64_t bytes) {
  bytesMapped_.sub(bytes);
  account_->give(bytes);
}

// ---- small blocks: taking ------------------------------------------------

void *BlockPool::refill(uint32_t c, uint64_t size, bool zero) {
  const uint32_t blockSize = kClassTable.size[c];
  Run *run = current_[c];
  if (static_cast<size_t>(run->end - run->bump) < blockSize) {
    // Used up.
    if (run != &noRun) run->state = RunState::kFull;
    run = firstPartial(c);
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
  if (static_cast<size_t>(run->committed - run->bump) < blockSize && !commit(run, blockSize)) {
    // There is no new memory, but there may be freed blocks in other runs.
    void *block = reuseOfPartial(c, size, zero);
    if (block == nullptr) account_->countRefusal();
    return block;
  }
  return advance(run, blockSize, size, zero);
}

// The first run with freed blocks that waits to become current, or null.
Run *BlockPool::firstPartial(uint32_t c) {
  Run *run = partial_[c].first();
  // A damaged free list may have left a run without blocks; it is then full.
  while (run != nullptr && run->freeList == nullptr) {
    partial_[c].remove(run);
    run->state = RunState::kFull;
    run = partial_[c].first();
  }
  return run;
}

// Hands out a freed block of a run that does not become current; null when there
// is none.
void *BlockPool::reuseOfPartial(uint32_t c, uint64_t size, bool zero) {
  Run *run = firstPartial(c);
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
  int asked = 0;
  for (Segment *segment = open_.first(); segment != nullptr && asked < kSegmentsAsked;
       segment = open_.next(segment), ++asked) {
    const uint32_t slice = findFree(segment->freeSlices & usable, slices);
    if (slice < kSlices) return openRun(segment, slice, slices, c);
  }
  Segment *segment = newSegment();
  if (segment == nullptr) return nullptr;
  return openRun(segment, findFree(segment->freeSlices & usable, slices), slices, c);
}

Run *BlockPool::openRun(Segment *segment, uint32_t slice, uint32_t slices, uint32_t c) {
  if (segment == spare_) spare_ = nullptr;
  segment->freeSlices &= ~bitsOf(slice, slices);
  if (segment->freeSlices == 0) open_.remove(segment);
  for (uint32_t i = 0; i < slices; ++i)
    segment->firstSlice[slice + i] = static_cast<uint8_t>(slice);

  const uint32_t size = kClassTable.size[c];
  const uint32_t start = offsetOfRun(slice);
  const uint32_t room = (slice + slices) * kSliceBytes - start;
  Run *run = &segment->runs[slice];
  run->freeList = nullptr;
  run->bump = run->committed = segment->start() + start;
  run->end = run->bump + static_cast<size_t>(room / size) * size;
  run->live = 0;
  run->fresh = start;
  for (uint32_t i = slice; i < slice + slices; ++i) {
    if (segment->touched[i] != 0) {
      run->fresh = std::max<uint32_t>(
          start, i * kSliceBytes + segment->touched[i] * static_cast<uint32_t>(kPageBytes));
    }
  }
  run->sizeClass = static_cast<uint16_t>(c);
  run->firstSlice = static_cast<uint8_t>(slice);
  run->state = RunState::kCurrent;
  return run;
}

Segment *BlockPool::newSegment() {
  const bool huge = hugePages_ && bytesMapped_.get() >= kHugeFrom && reserve(kSegmentBytes);
  if (!huge && !reserve(kPageBytes)) return nullptr;
  const uint64_t counted = huge ? kSegmentBytes : kPageBytes;
  auto *segment = static_cast<Segment *>(mapAligned(kSegmentBytes));
  if (segment == nullptr) {
    account_->cancel(counted);
    return nullptr;
  }
  enter(counted);
  huge ? adviseHugePages(segment, kSegmentBytes) : adviseSmallPages(segment, kSegmentBytes);
  segment->head.magic = magicOf(segment);
  segment->freeSlices = kAllFree;
  segment->countedWhole = huge ? 1 : 0;
  segment->touched[0] = 1;
  segments_.pushBack(segment);
  open_.pushFront(segment);
  poison(segment->start() + kPageBytes, kSegmentBytes - kPageBytes);
  return segment;
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
  if (run->state == RunState::kFree || offset < start || p >= run->bump || run->live == 0 ||
      index * blockSize != inRun) [[unlikely]]
    return misuses_.add(1);

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

void BlockPool::releaseRun(Segment *segment, Run *run) {
  const uint32_t c = run->sizeClass;
  if (run->state == RunState::kPartial) partial_[c].remove(run);
  if (run->state == RunState::kCurrent) current_[c] = &noRun;
  run->state = RunState::kFree;
  if (segment->freeSlices == 0) open_.pushFront(segment);
  segment->freeSlices |= bitsOf(run->firstSlice, slicesOfRun(kClassTable.size[c]));
}

// Whether none of its runs has a live block.
bool BlockPool::isUnused(const Segment *segment) {
  for (uint32_t used = ~segment->freeSlices; used != 0;) {
    const Run &run = segment->runs[std::countr_zero(used)];
    if (run.live != 0) return false;
    used &= ~bitsOf(run.firstSlice, slicesOfRun(kClassTable.size[run.sizeClass]));
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

// Unmaps all unused segments but `keep`; answers whether there was one.
bool BlockPool::unmapUnused(const Segment *keep) {
  const uint32_t before = segments_.count();
  for (Segment *segment = segments_.first(), *next = nullptr; segment != nullptr; segment = next) {
    next = segments_.next(segment);
    if (segment == keep || !isUnused(segment)) continue;
    releaseRuns(segment);
    unmapSegment(segment);
  }
  return segments_.count() != before;
}

void BlockPool::retire(Segment *segment) {
  if (spare_ != nullptr) return unmapSegment(segment);
  spare_ = segment;
  open_.remove(segment);
  open_.pushBack(segment);
}

void BlockPool::unmapSegment(Segment *segment) {
  uint64_t counted = kSegmentBytes;
  if (segment->countedWhole == 0) {
    counted = 0;
    for (const uint8_t pages : segment->touched) counted += pages * kPageBytes;
  }
  if (segment == spare_) spare_ = nullptr;
  if (segment->freeSlices != 0) open_.remove(segment);
  segments_.remove(segment);
  unmap(segment, kSegmentBytes);
  give(counted);
}

// ---- large blocks --------------------------------------------------------

// Fresh from the system, so zero in any case.
void *BlockPool::allocateLarge(uint64_t size) {
  const uint64_t mapped =
      size > UINT64_MAX - sizeof(LargeBlock) ? 0 : roundToPages(size + sizeof(LargeBlock));
  if (mapped == 0 || !reserve(mapped)) {
    account_->countRefusal();
    return nullptr;
  }
  auto *large = static_cast<LargeBlock *>(mapAligned(mapped));
  if (large == nullptr) {
    account_->cancel(mapped);
    account_->countRefusal();
    return nullptr;
  }
  enter(mapped);
  // Smaller mappings hold no whole huge page, whatever the system does.
  if (mapped >= kSegmentBytes)
    hugePages_ ? adviseHugePages(large, mapped) : adviseSmallPages(large, mapped);
  large->head = {magicOf(large), 1};
  large->mapped = mapped;
  large_.pushBack(large);
  bytesLive_.add(large->usable());
  blocksLive_.add(1);
  if constexpr (kAsan) {
    poison(large->block(), large->usable());
    unpoison(large->block(), size);
  }
  return large->block();
}

void BlockPool::freeLarge(LargeBlock *large, void *block) {
  if (block != large->block()) return misuses_.add(1);
  noteFreed(large->usable());
  unmapLarge(large);
}

void BlockPool::unmapLarge(LargeBlock *large) {
  const uint64_t mapped = large->mapped;
  large_.remove(large);
  unmap(large, mapped);
  give(mapped);
}

void BlockPool::releaseAll() {
  while (LargeBlock *large = large_.first()) unmapLarge(large);
  while (Segment *segment = segments_.first()) unmapSegment(segment);
  if (bytesPeak_.get() < bytesLive_.get()) bytesPeak_.set(bytesLive_.get());
  bytesLive_.set(0);
  blocksLive_.set(0);
  spare_ = nullptr;
  for (uint32_t c = 0; c < kClasses; ++c) {
    current_[c] = &noRun;
    partial_[c] = {};
  }
}

}  // namespace qzhost
