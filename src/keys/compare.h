// The key order: what finds records, and what bucket trees are sorted by.
//
// An order object is a probe's key, ready to be compared with stored ones:
// negative when the probe sorts first, 0 when the keys are equal. The layout
// is looked at once, when the object is made; a walk then runs one comparison.
#pragma once

#include <cstring>

#include "instance/record.h"

namespace morva::core {

template <class Word>
Word loadWord(const unsigned char *from) {
  Word word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

// As std::memcmp. Keys are mostly short: words are compared without a call.
inline int compareBytes(const unsigned char *a, const unsigned char *b, uint32_t n) {
  constexpr uint32_t kShort = 32;
  if (n > kShort) return std::memcmp(a, b, n);
  const auto order = [](uint64_t x, uint64_t y) { return x < y ? -1 : 1; };
  if (n >= 8) {
    for (uint32_t i = 0;; i = i + 16 <= n ? i + 8 : n - 8) {
      const auto x = loadWord<uint64_t>(a + i);
      const auto y = loadWord<uint64_t>(b + i);
      if (x != y) return order(__builtin_bswap64(x), __builtin_bswap64(y));
      if (i == n - 8) return 0;  // the last word may take in equal bytes again
    }
  }
  if (n >= 4) {
    const uint64_t x = uint64_t{__builtin_bswap32(loadWord<uint32_t>(a))} << 32 |
                       __builtin_bswap32(loadWord<uint32_t>(a + n - 4));
    const uint64_t y = uint64_t{__builtin_bswap32(loadWord<uint32_t>(b))} << 32 |
                       __builtin_bswap32(loadWord<uint32_t>(b + n - 4));
    return x == y ? 0 : order(x, y);
  }
  for (uint32_t i = 0; i < n; ++i) {
    if (a[i] != b[i]) return order(a[i], b[i]);
  }
  return 0;
}

inline const unsigned char *bytesBehind(const KeyPrefix *prefix) {
  return reinterpret_cast<const unsigned char *>(prefix + 1);
}

// Length-prefixed keys: the shorter one sorts first whatever its bytes, and
// only keys of one length compare by their bytes, unsigned.
class PrefixedOrder {
 public:
  explicit PrefixedOrder(RecordNode *probe)
      : length_(prefixOf(probe)->length), bytes_(bytesBehind(prefixOf(probe))) {}

  int operator()(RecordNode *stored) const {
    const KeyPrefix *other = prefixOf(stored);
    if (length_ != other->length) return length_ < other->length ? -1 : 1;
    return compareBytes(bytes_, bytesBehind(other), length_);
  }

 private:
  uint32_t length_;
  const unsigned char *bytes_;
};

// Length-prefixed keys of 8 bytes, as one number.
class PrefixedWordOrder {
 public:
  static constexpr uint32_t kLength = 8;

  explicit PrefixedWordOrder(RecordNode *probe) : key_(wordBehind(prefixOf(probe))) {}

  int operator()(RecordNode *stored) const {
    const KeyPrefix *other = prefixOf(stored);
    if (other->length != kLength) return kLength < other->length ? -1 : 1;
    const uint64_t key = wordBehind(other);
    return (key_ > key) - (key_ < key);
  }

 private:
  static uint64_t wordBehind(const KeyPrefix *prefix) {
    return __builtin_bswap64(loadWord<uint64_t>(bytesBehind(prefix)));
  }

  uint64_t key_;
};

// Packed keys: the bytes the record packer wrote, unsigned.
class PackedOrder {
 public:
  PackedOrder(RecordNode *probe, uint32_t length) : length_(length), bytes_(baseOf(probe)) {}

  int operator()(RecordNode *stored) const { return compareBytes(bytes_, baseOf(stored), length_); }

 private:
  uint32_t length_;
  const unsigned char *bytes_;
};

// Apart from the walk of the most usual keys, which so needs few registers.
template <class Order, class Walk>
[[gnu::noinline]] auto walkApart(const Order &order, Walk walk) {
  return walk(order);
}

// Runs walk(order) with the order of the instance that owns `probe`.
template <class Walk>
auto withKeyOrder(RecordNode *probe, Walk walk) {
  const auto *owner = static_cast<const MORVAInst *>(probe->owner);
  if ((owner->modeBits & (flagFixedKey | flagVarKey)) != 0) {
    if (prefixOf(probe)->length == PrefixedWordOrder::kLength)
      return walk(PrefixedWordOrder(probe));
    return walkApart(PrefixedOrder(probe), walk);
  }
  return walkApart(PackedOrder(probe, owner->keyLength), walk);
}

}  // namespace morva::core
