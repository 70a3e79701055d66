/**
 * @file
 * How a partitioned table is made, and what its parts are: how many, for how
 * many keys each, which of them a key belongs to, and how all are held at once.
 */
#ifndef MORVA_PARTITION_HPP
#define MORVA_PARTITION_HPP

#include <bit>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <type_traits>
#include <utility>

#include "morva/composed.hpp"
#include "morva/key.hpp"
#include "morva/options.hpp"
#include "morva/partition_hash.hpp"

namespace morva {

/** How a partitioned table is made. */
struct partition_options {
  /** Shown by debuggers and handed to the host, for every part; copied; may be null. */
  const char *name = nullptr;
  /** How many keys are expected in all parts together; more are fine. */
  std::uint64_t expected = 4096;
  /** Chooses the bucket within a part. */
  hash_method hash = hash_method::automatic;
  /** As in table_options, for every part. */
  std::int64_t memory_hint = 0;
  /**
   * How many parts: a power of two, 1 to 65536. 0 lets `expected` say: 16, so
   * that a small table is cheap to make; 64 from 2^22 keys on, so that many
   * threads rarely meet at one part's lock, and each part is still large enough
   * for large blocks of records; above 2^26 keys as many as leave at most 2^20
   * to each, one for every bucket it can have.
   */
  std::size_t parts = 0;
};

namespace detail {

inline constexpr std::size_t most_parts = 65536;

constexpr bool is_part_count(std::size_t parts) noexcept {
  return std::has_single_bit(parts) && parts <= most_parts;
}

// The number of parts that suits so many keys.
constexpr std::size_t parts_for(std::uint64_t expected) noexcept {
  constexpr std::uint64_t kMostBuckets = 1U << 20;
  std::size_t parts = expected < (1U << 22) ? 16 : 64;
  while (parts < most_parts && expected / parts + (expected % parts != 0) > kMostBuckets) {
    parts *= 2;
  }
  return parts;
}

// How many keys one part should expect. Chance gives some parts a few more, and
// their buckets hold a little more than one record.
constexpr std::uint64_t share_of(std::uint64_t expected, std::size_t parts) noexcept {
  return expected / parts + (expected % parts != 0);
}

// ---- The partition hash of a key ---------------------------------------------
//
// of             the hash of a key that fits, for the parts of which `inst` is one
// of_stored      the hash of a stored record's key
// with_argument  calls back with a stored record's key as operations take it

template <class Key>
struct partition_key {
  using traits = key_traits<Key>;

  static std::uint64_t of(const MORVAInst *, typename traits::argument key) noexcept {
    return of_raw(traits::raw(key));
  }

  static std::uint64_t of_stored(const RecordNode *node) noexcept {
    return of_raw(stored_bytes(node));
  }

  template <class Use>
  static auto with_argument(const RecordNode *node, Use use) {
    return use(traits::show(node));
  }

 private:
  static std::uint64_t of_raw(raw_key key) noexcept {
    const auto *bytes = static_cast<const std::byte *>(key.bytes);
    if constexpr (traits::length == 8 && !std::is_base_of_v<text_key, traits>) {
      return partition_hash(xxh64::load<std::uint64_t>(bytes));
    }
    return partition_hash(std::span(bytes, static_cast<std::size_t>(key.length)));
  }
};

template <auto... Fields>
struct partition_key<composed<Fields...>> {
  using traits = key_traits<composed<Fields...>>;
  using row = typename traits::row;

  // A packer packs for any number of threads at once (morva/record_packer.h),
  // and those of all parts pack alike.
  static std::uint64_t of(const MORVAInst *inst, const row &key) noexcept {
    // Packers may use some bytes behind the key as well.
    alignas(8) std::byte image[traits::packed_size + 8];
    inst->recordPacker->pack(inst->recordPacker, std::addressof(key), image, 1);
    return partition_hash(std::span<const std::byte>(image, traits::packed_size));
  }

  static std::uint64_t of_stored(const RecordNode *node) noexcept {
    return partition_hash(std::span(traits::packed(node), traits::packed_size));
  }

  template <class Use>
  static auto with_argument(const RecordNode *node, Use use) {
    return traits::with_stored(node, [&](raw_key stored) {
      row key{};
      const auto *from = static_cast<const std::byte *>(stored.bytes);
      auto *to = reinterpret_cast<std::byte *>(std::addressof(key));
      (std::memcpy(to + field_of<Fields>::offset(), from + field_of<Fields>::offset(),
                   field_of<Fields>::size),
       ...);
      return use(std::as_const(key));
    });
  }
};

}  // namespace detail

/** Holds the locks of parts of a partitioned table while it lives. Goes before the table. */
template <class Part>
class [[nodiscard]] some_parts_guard {
  using selection = std::bitset<256>;

 public:
  /** Takes the locks of all parts, from the first to the last; none when `count` is 0. */
  some_parts_guard(const Part *parts, std::size_t count) noexcept : parts_(parts), count_(count) {
    take();
  }
  /** Takes the locks of those of up to 256 parts that are `wanted`. */
  some_parts_guard(const Part *parts, std::size_t count, const selection &wanted) noexcept
      : parts_(parts), count_(count), wanted_(wanted), all_(false) {
    take();
  }
  some_parts_guard(some_parts_guard &&other) noexcept
      : parts_(other.parts_),
        count_(std::exchange(other.count_, 0)),
        wanted_(other.wanted_),
        all_(other.all_) {}
  some_parts_guard &operator=(some_parts_guard &&) = delete;
  some_parts_guard(const some_parts_guard &) = delete;
  some_parts_guard &operator=(const some_parts_guard &) = delete;
  ~some_parts_guard() {
    for (std::size_t i = count_; i-- > 0;) {
      if (HostLock *lock = lockOf(i)) lock->release(lock);
    }
  }

 private:
  void take() noexcept {
    for (std::size_t i = 0; i < count_; ++i) {
      if (HostLock *lock = lockOf(i)) lock->acquire(lock, MORVA_LOCK_CHANGE, 1);
    }
  }
  HostLock *lockOf(std::size_t i) const noexcept {
    return all_ || wanted_[i] ? parts_[i].native()->lock : nullptr;
  }

  const Part *parts_;
  std::size_t count_;
  selection wanted_;
  bool all_ = true;
};

}  // namespace morva

#endif
