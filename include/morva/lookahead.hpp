/**
 * @file
 * Many lookups at a time: while one waits for the memory, the others go on.
 */
#ifndef MORVA_LOOKAHEAD_HPP
#define MORVA_LOOKAHEAD_HPP

#include <array>
#include <cstddef>
#include <cstdint>

#include "morva/bucket_array.h"
#include "morva/search.hpp"

namespace morva::detail {

// `taken` where `condition` is true, else `other`, without a branch.
template <class T>
T *choose(bool condition, T *taken, T *other) noexcept {
  const std::uintptr_t mask = -std::uintptr_t{condition};
  return reinterpret_cast<T *>((reinterpret_cast<std::uintptr_t>(taken) & mask) |
                               (reinterpret_cast<std::uintptr_t>(other) & ~mask));
}

inline constexpr std::size_t cache_line = 64;

// Lookups that go side by side, at most `most` at once:
//
//   for each key: ahead.begin(bucket, order, bytes);   // the bucket's line is asked for
//   ahead.finish();                                    // all lookups, one step of each in turn
//   for each key: use(ahead.found(i));                 // and then ahead.clear()
//
// A line is asked for a round before it is looked at. Interleaving searches by
// hand: Kocberber, Falsafi and Grot (2015), "Asynchronous memory access chaining".
template <class Order, std::size_t Lanes>
class lookahead {
 public:
  static constexpr std::size_t most = Lanes;

  std::size_t size() const noexcept { return size_; }
  bool is_full() const noexcept { return size_ == most; }

  // Adds a lookup. `bytes` is how much of a record it needs: from the node to
  // the end of the key, and to the data if that is going to be used.
  void begin(const Bucket *bucket, const Order &order, std::size_t bytes) noexcept {
    __builtin_prefetch(bucket);
    lanes_[size_++] = {bucket, order, nullptr, bytes};
  }

  // Adds one that finds nothing.
  void begin_nothing() noexcept { lanes_[size_++] = {&empty, Order(), nullptr, 0}; }

  // Runs all lookups to their ends.
  void finish() noexcept {
    std::array<std::uint8_t, most> under_way;
    std::size_t left = 0;
    for (std::size_t i = 0; i < size_; ++i) {
      lane &one = lanes_[i];
      one.at = one.bucket->root;
      under_way[left] = static_cast<std::uint8_t>(i);
      left += one.at != nullptr;
      fetch(one);
    }
    while (left != 0) {
      std::size_t stay = 0;
      for (std::size_t i = 0; i < left; ++i) {
        const std::uint8_t which = under_way[i];
        under_way[stay] = which;
        stay += advance(lanes_[which]);
      }
      left = stay;
    }
  }

  // The node that a lookup has found, or null; `i` counts from the first begin().
  RecordNode *found(std::size_t i) const noexcept { return lanes_[i].at; }

  void clear() noexcept { size_ = 0; }

 private:
  static_assert(Lanes <= 256, "a lane's number is a byte");

  struct lane {
    const Bucket *bucket;
    Order order;
    RecordNode *at;
    std::size_t bytes;
  };

  static constexpr Bucket empty{};

  // Numbers, for a line may lie behind the record, and there may be no record.
  static void fetch(const lane &one) noexcept {
    const auto first = reinterpret_cast<std::uintptr_t>(one.at);
    __builtin_prefetch(reinterpret_cast<const void *>(first));
    if (one.bytes > cache_line) {
      __builtin_prefetch(reinterpret_cast<const void *>(first + one.bytes - 1));
    }
  }

  // One step; whether there are more. The node stays where the key is found, and
  // becomes null where it is not.
  static bool advance(lane &one) noexcept {
    const int comparison = one.order(one.at);
    if (comparison == 0) return false;
    const std::uintptr_t link = link_after(one.at, comparison);
    const bool more = !is_thread(link);
    one.at = choose<RecordNode>(more, node_of(link), nullptr);
    if (more) fetch(one);
    return more;
  }

  std::array<lane, most> lanes_;
  std::size_t size_ = 0;
};

}  // namespace morva::detail

#endif
