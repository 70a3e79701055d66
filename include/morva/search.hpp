/**
 * @file
 * The key order, and the walk through a bucket's tree: what finds records.
 *
 * An order object is a key, ready to be compared with the keys of stored
 * records: negative when it sorts first, 0 when they are equal.
 */
#ifndef MORVA_SEARCH_HPP
#define MORVA_SEARCH_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "morva/record_node.h"

namespace morva::detail {

// With flagVarKey: from the record base to the data behind a key of `length` bytes.
constexpr std::uint64_t var_data_offset(std::uint64_t length) noexcept {
  return (length + 19) & ~std::uint64_t{7};
}

template <class Word>
Word load_word(const unsigned char *from) noexcept {
  Word word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

// As std::memcmp. Keys are mostly short: words are compared without a call.
inline int compare_bytes(const unsigned char *a, const unsigned char *b, std::uint32_t n) noexcept {
  constexpr std::uint32_t few = 32;
  if (n > few) return std::memcmp(a, b, n);
  const auto order = [](std::uint64_t x, std::uint64_t y) { return x < y ? -1 : 1; };
  if (n >= 8) {
    for (std::uint32_t i = 0;; i = i + 16 <= n ? i + 8 : n - 8) {
      const auto x = load_word<std::uint64_t>(a + i);
      const auto y = load_word<std::uint64_t>(b + i);
      if (x != y) return order(__builtin_bswap64(x), __builtin_bswap64(y));
      if (i == n - 8) return 0;  // the last word may take in equal bytes again
    }
  }
  if (n >= 4) {
    const auto both = [n](const unsigned char *p) {
      return std::uint64_t{__builtin_bswap32(load_word<std::uint32_t>(p))} << 32 |
             __builtin_bswap32(load_word<std::uint32_t>(p + n - 4));
    };
    const std::uint64_t x = both(a);
    const std::uint64_t y = both(b);
    return x == y ? 0 : order(x, y);
  }
  for (std::uint32_t i = 0; i < n; ++i) {
    if (a[i] != b[i]) return order(a[i], b[i]);
  }
  return 0;
}

inline const unsigned char *base_of(const RecordNode *node) noexcept {
  return reinterpret_cast<const unsigned char *>(node + 1);
}

inline const KeyPrefix *prefix_of(const RecordNode *node) noexcept {
  return reinterpret_cast<const KeyPrefix *>(node + 1);
}

inline const unsigned char *bytes_behind(const KeyPrefix *prefix) noexcept {
  return reinterpret_cast<const unsigned char *>(prefix + 1);
}

// Length-prefixed keys: the shorter one sorts first whatever its bytes, and
// only keys of one length compare by their bytes, unsigned.
class prefixed_order {
 public:
  prefixed_order() = default;
  prefixed_order(const unsigned char *bytes, std::uint32_t length) noexcept
      : length_(length), bytes_(bytes) {}

  int operator()(const RecordNode *stored) const noexcept {
    const KeyPrefix *other = prefix_of(stored);
    if (length_ != other->length) return length_ < other->length ? -1 : 1;
    return compare_bytes(bytes_, bytes_behind(other), length_);
  }

 private:
  std::uint32_t length_;
  const unsigned char *bytes_;
};

// Length-prefixed keys of 8 bytes, as one number.
class prefixed_word_order {
 public:
  static constexpr std::uint32_t length = 8;

  prefixed_word_order() = default;
  explicit prefixed_word_order(const unsigned char *bytes) noexcept : key_(word_at(bytes)) {}

  int operator()(const RecordNode *stored) const noexcept {
    const KeyPrefix *other = prefix_of(stored);
    if (other->length != length) return length < other->length ? -1 : 1;
    const std::uint64_t key = word_at(bytes_behind(other));
    return (key_ > key) - (key_ < key);
  }

 private:
  static std::uint64_t word_at(const unsigned char *bytes) noexcept {
    return __builtin_bswap64(load_word<std::uint64_t>(bytes));
  }

  std::uint64_t key_;
};

// Packed keys: the bytes the record packer wrote, unsigned.
class packed_order {
 public:
  packed_order() = default;
  packed_order(const unsigned char *bytes, std::uint32_t length) noexcept
      : length_(length), bytes_(bytes) {}

  int operator()(const RecordNode *stored) const noexcept {
    return compare_bytes(bytes_, base_of(stored), length_);
  }

 private:
  std::uint32_t length_;
  const unsigned char *bytes_;
};

// The link word that a walk takes after a comparison that was not 0. The two
// words are neighbours: the side is an index, so that no branch is guessed wrong
// half of the time.
static_assert(offsetof(RecordNode, right) == offsetof(RecordNode, left) + sizeof(std::uintptr_t));

inline std::uintptr_t link_after(const RecordNode *node, int comparison) noexcept {
  const auto *words = reinterpret_cast<const unsigned char *>(node);
  return load_word<std::uintptr_t>(words + offsetof(RecordNode, left) +
                                   sizeof(std::uintptr_t) * (comparison > 0));
}

inline bool is_thread(std::uintptr_t link) noexcept {
  return (link & LINK_THREAD) != 0;
}

inline RecordNode *node_of(std::uintptr_t link) noexcept {
  return reinterpret_cast<RecordNode *>(link & ~std::uintptr_t{LINK_HEAVY | LINK_THREAD});
}

// The record of a tree node, where its key is; tables have an offset of 0.
inline RecordNode *record_of(RecordNode *node, std::int32_t record_offset) noexcept {
  return reinterpret_cast<RecordNode *>(reinterpret_cast<unsigned char *>(node) + record_offset);
}

// The node of a tree with the key of `order`, or null.
template <class Order>
inline RecordNode *search(RecordNode *root, const Order &order,
                          std::int32_t record_offset = 0) noexcept {
  for (RecordNode *at = root; at != nullptr;) {
    const int comparison = order(record_of(at, record_offset));
    if (comparison == 0) return at;
    const std::uintptr_t link = link_after(at, comparison);
    if (is_thread(link)) break;
    at = node_of(link);
  }
  return nullptr;
}

}  // namespace morva::detail

#endif
