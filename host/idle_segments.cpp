#include "idle_segments.h"

#include <cstring>

#include "poison.h"

namespace qzhost {

void IdleSegments::poolMade() {
  const std::lock_guard guard(mutex_);
  ++pools_;
}

void IdleSegments::poolGone() {
  const std::lock_guard guard(mutex_);
  if (--pools_ == 0) unmapAll();
}

bool IdleSegments::keep(Segment *segment) {
  const uint64_t counted = segment->counted();
  if (segment->countedWhole == 0 && counted > kMostOfASegment) return false;
  // The next owner starts with a clean header; until then no address is a block.
  segment->head = {};
  segment->freeSlices = kAllFree;
  memset(segment->firstSlice, 0, sizeof segment->firstSlice);
  memset(static_cast<void *>(segment->runs), 0, sizeof segment->runs);
  poison(segment->start() + kPageBytes, kSegmentBytes - kPageBytes);

  const std::lock_guard guard(mutex_);
  if (pools_ == 0 || segments_.count() == kMostSegments || bytes_ + counted > kMostBytes ||
      !account_->hasRoom(0))
    return false;
  segments_.pushFront(segment);
  bytes_ += counted;
  return true;
}

Segment *IdleSegments::take(bool huge) {
  const std::lock_guard guard(mutex_);
  if (!account_->hasRoom(0)) return nullptr;
  // The one with the fewest pages, for a pool may never need more.
  Segment *least = nullptr;
  for (Segment *segment = segments_.first(); segment != nullptr;
       segment = segments_.next(segment)) {
    if ((segment->countedWhole != 0) != huge) continue;
    if (least == nullptr || segment->counted() < least->counted()) least = segment;
  }
  if (least == nullptr) return nullptr;
  segments_.remove(least);
  bytes_ -= least->counted();
  return least;
}

void IdleSegments::giveBack() {
  const std::lock_guard guard(mutex_);
  unmapAll();
}

void IdleSegments::unmapAll() {
  while (Segment *segment = segments_.first()) {
    const uint64_t counted = segment->counted();
    segments_.remove(segment);
    unmap(segment, kSegmentBytes);
    account_->give(counted);
  }
  bytes_ = 0;
}

}  // namespace qzhost
