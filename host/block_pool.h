// The allocator under every pool.
//
// Memory lies in segments of 2 MiB, aligned to their size, so that free() finds
// everything about a block by masking its address and blocks carry no headers.
//
//   segment   slice 0              slice 1 .. 31 (64 KiB each)
//             header page | 60 KiB
//
//   run       one or more slices, cut into blocks of one size class; handed out
//             from its free list, else by moving `bump`
//
// A block above 256 KiB is a run by itself (a long block); one that fits in no
// segment, above 1984 KiB, has a mapping of its own: a header of 64 bytes, the
// block (a large block).
//
// Which run serves a class. `current` does, until it has neither freed blocks
// nor room; then the first run on the class's partial list, then a new one.
//
//   current  --used up-->  full  --a block is freed-->  partial
//      ^                                                 |    |
//      +-------------------------------------------------+    +--empty--> free slices
//
// Counting. The pages of a run are taken from the host's account as `bump`
// reaches them, in steps that grow from 4 to 64 KiB, and stay counted until the
// segment is unmapped: Segment::touched remembers per slice how far. A segment
// on huge pages is counted whole, as the system hands it over whole.
//
// Huge pages. What costs is the first touch: 2 MiB as one huge page take as long
// as some 90 KiB of small ones. A pool's first segment is on small pages. On huge
// ones are those it makes when it has 1.5 MiB, and those made for long blocks,
// since a pool that takes one is likely to go on doubling: with slots of 64 bytes
// the record blocks of 256, 512 and 1024 KiB fill one segment. The tail of a
// large block is rounded up to a huge page where little is lost. All that only as
// far as the account allows; where it does not, the same lies on small pages.
//
// Giving back. A run goes back to its segment when its last block is freed; a
// segment without live blocks is unmapped, except that one is kept as a spare
// for the next time: filling and emptying in turn neither grows nor keeps
// mapping and unmapping. The segments of a pool that is destroyed may stay with
// the host (idle_segments.h), where pools look before they map a new one. Where
// the limit leaves no room for more, all that is kept so is given back.
//
// Hardening. A free block holds its link scrambled with the pool's secret and a
// seal in the word behind it. A link that does not unscramble to a place in the
// segment ends the list instead of being followed; a block that still carries
// its seal when it is freed has been freed before. Whatever is not a live block
// of this pool is left alone and counted in misuses(): that covers any address
// in any pool's memory. An address outside of all pools cannot be told from one
// inside and must not be passed.
//
// With the address sanitizer everything that is not a live block is poisoned,
// the end of a block beyond the size asked for too; freeing twice is then
// reported instead of ignored.
//
// Thread-safety: none; the pool in front of it serialises where that is needed.
// The counters alone may be read at any time from any thread.
//
// In block_pool.cpp are the small blocks, in block_pool_large.cpp the long and
// the large ones, in block_pool_segments.cpp the segments and the account.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "idle_segments.h"
#include "poison.h"
#include "segment.h"

namespace qzhost {

// A number that one thread at a time changes and any thread reads: no
// read-modify-write instruction is needed.
class Counter {
 public:
  void add(uint64_t n) { set(get() + n); }
  void sub(uint64_t n) { set(get() - n); }
  void set(uint64_t n) { value_.store(n, std::memory_order_relaxed); }
  uint64_t get() const { return value_.load(std::memory_order_relaxed); }

 private:
  std::atomic<uint64_t> value_{0};
};

class BlockPool {
 public:
  BlockPool(MemoryAccount *account, IdleSegments *idle, bool hugePages, uint64_t secret);
  ~BlockPool() { releaseAll(); }
  BlockPool(const BlockPool &) = delete;
  BlockPool &operator=(const BlockPool &) = delete;

  // A block of `size` bytes and more, or null. All zero with `zero`.
  void *allocate(uint64_t size, bool zero) {
    if (size > kLargestSmall) [[unlikely]]
      return allocateBig(size, zero);
    const uint32_t c = classOf(size);
    Run *run = current_[c];
    if (uint64_t *block = run->freeList) return reuse(run, c, block, size, zero);
    const uint32_t blockSize = kClassTable.size[c];
    if (static_cast<size_t>(run->committed - run->bump) >= blockSize) [[likely]]
      return advance(run, blockSize, size, zero);
    return refill(c, size, zero);
  }

  // Gives back a block; anything else is left alone and counted.
  void free(void *block);

  // Gives back everything; the pool is as new.
  void releaseAll();

  uint64_t bytesLive() const { return bytesLive_.get(); }
  uint64_t bytesPeak() const {
    const uint64_t live = bytesLive_.get(), peak = bytesPeak_.get();
    return live > peak ? live : peak;
  }
  uint64_t bytesMapped() const { return bytesMapped_.get(); }
  uint64_t blocksLive() const { return blocksLive_.get(); }
  uint64_t misuses() const { return misuses_.get(); }

 private:
  // Hands out the first block of the free list.
  void *reuse(Run *run, uint32_t c, uint64_t *block, uint64_t size, bool zero) {
    unpoison(block, kClassTable.size[c]);
    const uint64_t next = block[0] ^ secret_;
    // The next link lies in the same segment, on a block boundary of 16.
    if (next != 0 &&
        (((next ^ reinterpret_cast<uintptr_t>(block)) & ~uint64_t{kSegmentBytes - 16}) != 0))
        [[unlikely]] {
      misuses_.add(1);
      run->freeList = nullptr;
    } else {
      run->freeList = reinterpret_cast<uint64_t *>(next);
    }
    block[0] = 0;
    block[1] = 0;
    if (zero) memset(block, 0, size);
    return handOut(run, block, kClassTable.size[c], size);
  }

  // Hands out the next block that has never been handed out.
  void *advance(Run *run, uint32_t blockSize, uint64_t size, bool zero) {
    char *block = run->bump;
    run->bump = block + blockSize;
    unpoison(block, blockSize);
    if ((reinterpret_cast<uintptr_t>(block) & (kSegmentBytes - 1)) < run->fresh) {
      // The block may have been part of another one; wipe a seal left there.
      memset(block, 0, zero ? blockSize : 16);
    }
    return handOut(run, block, blockSize, size);
  }

  void *handOut(Run *run, void *block, uint32_t blockSize, uint64_t size) {
    ++run->live;
    bytesLive_.add(blockSize);
    blocksLive_.add(1);
    if constexpr (kAsan) {
      poison(block, blockSize);
      unpoison(block, size == 0 ? 1 : size);
    }
    return block;
  }

  // The peak is brought up to date when the live bytes are about to fall, which
  // spares the common case, taking a block, the comparison.
  void noteFreed(uint64_t bytes) {
    const uint64_t live = bytesLive_.get();
    if (bytesPeak_.get() < live) bytesPeak_.set(live);
    bytesLive_.set(live - bytes);
    blocksLive_.sub(1);
  }

  void *refill(uint32_t c, uint64_t size, bool zero);
  void *reuseOfPartial(uint32_t c, uint64_t size, bool zero);
  bool commit(Run *run, uint32_t blockSize);
  bool commitTo(Run *run, char *end);
  Run *newRun(uint32_t c);
  void forgetRuns();
  void forgetCurrent(uint32_t c);
  void runEmptied(Segment *segment, Run *run);

  // Where a run may be opened.
  struct Room {
    Segment *segment = nullptr;
    uint32_t slice = 0;
  };
  static Room roomIn(Segment *segment, uint32_t slices, uint32_t usable);
  Room findRoom(uint32_t slices, uint32_t usable, bool hugeOnly) const;
  Run *openRun(const Room &room, uint32_t slices, uint32_t size);
  Segment *newSegment(bool huge);
  Segment *mapSegment(bool huge);

  void releaseRun(Segment *segment, Run *run);
  static bool isUnused(const Segment *segment);
  void releaseRuns(Segment *segment);
  void sweep(Segment *segment);
  void retire(Segment *segment);
  void dropSegment(Segment *segment);
  void unmapSegment(Segment *segment);

  void *allocateBig(uint64_t size, bool zero);
  void *allocateLong(uint32_t size, bool zero);
  Run *newLongRun(uint32_t bytes);
  void freeLong(Segment *segment, Run *run);
  void *allocateLarge(uint64_t size);
  void freeLarge(LargeBlock *large, void *block);
  void unmapLarge(LargeBlock *large);

  bool reserve(uint64_t bytes, const Segment *keep = nullptr);
  bool reserveHuge(uint64_t bytes);
  void enter(uint64_t bytes);
  void give(uint64_t bytes);
  bool giveBackUnused(const Segment *keep);
  void trim(Segment *segment);
  uint64_t magicOf(const void *start) const { return secret_ + reinterpret_cast<uintptr_t>(start); }
  uint64_t sealOf(const void *block) const { return ~secret_ ^ reinterpret_cast<uintptr_t>(block); }

  Run *current_[kClasses];
  List<Run, &Run::link> partial_[kClasses];
  Counter bytesLive_;
  Counter blocksLive_;
  Counter bytesPeak_;
  Counter bytesMapped_;
  Counter misuses_;
  const uint64_t secret_;
  MemoryAccount *const account_;
  IdleSegments *const idle_;
  List<Segment, &Segment::all> segments_;
  // Those with free slices, the newest first and the spare one last.
  List<Segment, &Segment::open> open_;
  // The segment without runs that is kept, if there is one.
  Segment *spare_ = nullptr;
  List<LargeBlock, &LargeBlock::link> large_;
  const bool hugePages_;
};

}  // namespace qzhost
