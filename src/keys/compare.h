// The key order of an instance: what finds records, and what bucket trees are
// sorted by. The layout is looked at once, when the order object is made; a walk
// then runs one comparison.
#pragma once

#include "instance/record.h"
#include "morva/search.hpp"

namespace morva::core {

using detail::packed_order;
using detail::prefixed_order;
using detail::prefixed_word_order;

// Apart from the walk of the most usual keys, which so needs few registers.
template <class Order, class Walk>
[[gnu::noinline]] auto walkApart(const Order &order, Walk walk) {
  return walk(order);
}

// Runs walk(order) with the order of the instance that owns `probe`.
template <class Walk>
auto withKeyOrder(RecordNode *probe, Walk walk) {
  const auto *owner = static_cast<const MORVAInst *>(probe->owner);
  if ((owner->modeBits & (flagFixedKey | flagVarKey)) == 0) {
    return walkApart(packed_order(baseOf(probe), owner->keyLength), walk);
  }
  const KeyPrefix *prefix = prefixOf(probe);
  const unsigned char *bytes = detail::bytes_behind(prefix);
  if (prefix->length == prefixed_word_order::length) return walk(prefixed_word_order(bytes));
  return walkApart(prefixed_order(bytes, prefix->length), walk);
}

}  // namespace morva::core
