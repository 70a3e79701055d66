// Segments of destroyed pools, kept for the next pools of their host.
//
// Programs make and destroy tables over and over. What that costs is not the
// mapping but the first touch of every page; so a few segments are kept as they
// are, with the pages that were touched, and a pool takes one of them instead of
// a new one. It must wipe what it hands out below Segment::touched, as in any
// segment that has been used before.
//
// How much. Four segments, since two tables at work in turn have two pools each
// that hold blocks; with 4 MiB touched at most, two huge pages. One on small
// pages is kept only if no more than 512 KiB of it were touched: the next pool
// may be a small one that lives long, and then holds what it never uses.
//
// Counting. What is idle stays in the account, so that the host's statistics
// show it and nothing is counted twice. A pool that finds the limit in the way
// gives everything idle back and asks again; besides, nothing is kept or taken
// while more than half of the limit is in use.
//
// Only a host with pools keeps memory: the last pool takes it along.
//
// Thread-safety: everything here may be called from any thread. The mutex is
// held for the length of a call and no other lock is taken inside.
#pragma once

#include <cstdint>
#include <mutex>

#include "intrusive_list.h"
#include "mapping.h"
#include "segment.h"

namespace qzhost {

class IdleSegments {
 public:
  static constexpr uint32_t kMostSegments = 4;
  static constexpr uint64_t kMostBytes = uint64_t{4} << 20;
  static constexpr uint64_t kMostOfASegment = uint64_t{512} << 10;

  explicit IdleSegments(MemoryAccount *account) : account_(account) {}
  ~IdleSegments() { giveBack(); }
  IdleSegments(const IdleSegments &) = delete;
  IdleSegments &operator=(const IdleSegments &) = delete;

  // A pool of the host has come, or has gone with all its memory.
  void poolMade();
  void poolGone();

  // Keeps the segment, on no list of its pool's any more; false when it is not
  // wanted and stays the caller's.
  bool keep(Segment *segment);

  // A segment on huge pages, or on small ones: counted, without runs, poisoned
  // behind its header, and without owner. Null when there is none.
  Segment *take(bool huge);

  // Gives everything idle back to the system. When this returns, nothing is on
  // its way back in another thread either.
  void giveBack();

 private:
  void unmapAll();

  MemoryAccount *const account_;
  std::mutex mutex_;
  List<Segment, &Segment::all> segments_;
  uint64_t bytes_ = 0;
  uint32_t pools_ = 0;
};

}  // namespace qzhost
