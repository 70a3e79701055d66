// The key order: what finds records, and what bucket trees are sorted by.
//
// An order object is a probe's key, ready to be compared with stored ones:
// negative when the probe sorts first, 0 when the keys are equal. The layout
// is looked at once, when the object is made; a walk then runs one comparison.
#pragma once

#include <cstring>

#include "instance/record.h"

namespace morva::core {

// Length-prefixed keys: the shorter one sorts first whatever its bytes, and
// only keys of one length compare by their bytes, unsigned.
class PrefixedOrder {
 public:
  explicit PrefixedOrder(RecordNode *probe)
      : length_(prefixOf(probe)->length), bytes_(prefixOf(probe) + 1) {}

  int operator()(RecordNode *stored) const {
    const KeyPrefix *other = prefixOf(stored);
    if (length_ != other->length) return length_ < other->length ? -1 : 1;
    return std::memcmp(bytes_, other + 1, length_);
  }

 private:
  uint32_t length_;
  const void *bytes_;
};

// Packed keys: the bytes the record packer wrote, unsigned.
class PackedOrder {
 public:
  PackedOrder(RecordNode *probe, uint32_t length) : length_(length), bytes_(baseOf(probe)) {}

  int operator()(RecordNode *stored) const { return std::memcmp(bytes_, baseOf(stored), length_); }

 private:
  uint32_t length_;
  const void *bytes_;
};

// Runs walk(order) with the order of the instance that owns `probe`.
template <class Walk>
auto withKeyOrder(RecordNode *probe, Walk walk) {
  const auto *owner = static_cast<const MORVAInst *>(probe->owner);
  if ((owner->modeBits & (flagFixedKey | flagVarKey)) != 0) return walk(PrefixedOrder(probe));
  return walk(PackedOrder(probe, owner->keyLength));
}

}  // namespace morva::core
