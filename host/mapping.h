// Memory from the system, and the account of it.
//
// All system calls for memory are made here. A MemoryAccount belongs to a host
// and is shared by all its pools: memory is reserved in the account first, then
// taken from the system and entered as taken, so that the limit holds at every
// moment, whatever the threads do, and what the system refuses shows nowhere.
// What counts as taken is decided by the pools (a page of a segment when it is
// first used, a large block as a whole).
//
// Thread-safety: everything here may be called from any thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace qzhost {

// Segments and large blocks start at multiples of this, so that the head of the
// mapping of any block is found by masking its address; it is also the size of
// a huge page.
inline constexpr size_t kSegmentBytes = size_t{2} << 20;

// The step in which the first use of memory is counted.
inline constexpr size_t kPageBytes = 4096;

class MemoryAccount {
 public:
  // `limit` 0 means no limit.
  explicit MemoryAccount(uint64_t limit) : limit_(limit) {}

  // Reserves `bytes`, or answers false and reserves nothing. Never passes the
  // limit, not even for a moment that another thread could see. What is reserved
  // is then either entered as taken or cancelled.
  bool reserve(uint64_t bytes);
  void enter(uint64_t bytes);
  void cancel(uint64_t bytes) { reserved_.fetch_sub(bytes, std::memory_order_release); }
  // Gives back what was entered.
  void give(uint64_t bytes) {
    taken_.fetch_sub(bytes, std::memory_order_relaxed);
    cancel(bytes);
  }

  // Whether `bytes` more would leave half of the limit untaken: what is taken for
  // speed only is taken while that holds.
  bool hasRoom(uint64_t bytes) const { return limit_ == 0 || taken() + bytes <= limit_ / 2; }

  // Bytes of huge pages that are taken but that no run or block has a use for yet.
  // For speed alone no more may be left so than 16 MiB, which a few pools never
  // notice, or an eighth of what is taken, where there are many; and never more
  // than a sixteenth of the limit, which would miss it.
  void leaveUnused(uint64_t bytes) { unused_.fetch_add(bytes, std::memory_order_relaxed); }
  void putToUse(uint64_t bytes) { unused_.fetch_sub(bytes, std::memory_order_relaxed); }
  bool mayLeaveUnused(uint64_t bytes) const {
    const uint64_t after = unused_.load(std::memory_order_relaxed) + bytes;
    return (after <= kFreelyUnused || after <= taken() / 8) &&
           (limit_ == 0 || after <= limit_ / 16);
  }

  void countRefusal() { refused_.fetch_add(1, std::memory_order_relaxed); }

  uint64_t taken() const { return taken_.load(std::memory_order_relaxed); }
  uint64_t peak() const { return peak_.load(std::memory_order_relaxed); }
  uint64_t limit() const { return limit_; }
  uint64_t refused() const { return refused_.load(std::memory_order_relaxed); }

 private:
  static constexpr uint64_t kFreelyUnused = uint64_t{16} << 20;

  // Never less than what is taken.
  std::atomic<uint64_t> reserved_{0};
  std::atomic<uint64_t> taken_{0};
  std::atomic<uint64_t> peak_{0};
  std::atomic<uint64_t> refused_{0};
  std::atomic<uint64_t> unused_{0};
  const uint64_t limit_;
};

// `bytes` rounded up to whole system pages; 0 when that passes 2^63.
uint64_t roundToPages(uint64_t bytes);

// Zero-filled memory at a multiple of kSegmentBytes, or null. `bytes` must be
// whole system pages. The system commits it as it is touched.
void *mapAligned(size_t bytes);

// Gives back what mapAligned answered.
void unmap(void *start, size_t bytes);

// Gives back pages inside of a mapping, which are zero when they are touched
// again; false when the system cannot, as where its pages are larger.
bool discard(void *start, size_t bytes);

// Asks for huge pages; a system without them leaves things as they are.
void adviseHugePages(void *start, size_t bytes);

// Asks for small pages, also where the system gives huge ones to everybody: a
// huge page comes whole at its first touch, more than has been counted.
void adviseSmallPages(void *start, size_t bytes);

// A number that other processes, and other runs of this one, cannot guess.
uint64_t randomSecret();

}  // namespace qzhost
