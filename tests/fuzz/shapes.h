// A table's options and the keys it is used with, as the input has them.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "input.h"
#include "table_shape.h"

namespace morva_fuzz {

inline morva_test::TableShape takeShape(Input &input) {
  using morva_test::KeyMode;
  morva_test::TableShape shape;
  shape.keyMode = static_cast<KeyMode>(input.below(3));
  const uint8_t bits = input.byte();
  if ((bits & 1) != 0) shape.flags |= flagNoLock;
  if ((bits & 2) != 0) shape.flags |= flagOrdered;
  if ((bits & 4) != 0) shape.flags |= flagLockOpt;
  if ((bits & 8) != 0) shape.flags |= flagPackOpt | flagDefineOpt;
  if ((bits & 16) != 0) shape.flags |= flagUnordered;
  if (shape.keyMode != KeyMode::variable) {
    if ((bits & 32) != 0) shape.flags |= flagSum;
    if ((bits & 64) != 0) shape.flags |= flagMultiData;
  }
  const uint8_t sizes = input.byte();
  shape.hashExp = sizes % 5;
  shape.hashMethod = 2 + sizes / 5 % 8;
  static constexpr int64_t kHints[] = {0, 1, 30, 100, 5000};
  shape.memHint = kHints[sizes / 40 % 5];
  shape.dataLength = static_cast<uint32_t>(input.below(50));
  if (shape.keyMode == KeyMode::fixed) shape.keyLength = static_cast<uint32_t>(input.below(40));
  return shape;
}

// All different; many share their lengths and all bytes but the last.
inline std::vector<std::string> takeKeys(const morva_test::TableShape &shape, Input &input) {
  std::set<std::string> keys;
  for (uint64_t count = 1 + input.below(24); count > 0; --count) {
    size_t length = shape.longestKey();
    if (shape.rawKeys()) length = input.below(length + 1);
    const uint8_t kind = input.byte();
    if (kind < 64) {
      keys.insert(input.filled(length));
    } else {
      std::string key(length, static_cast<char>(kind));
      if (length > 0) key.back() = static_cast<char>(input.byte());
      keys.insert(key);
    }
  }
  return {keys.begin(), keys.end()};
}

}  // namespace morva_fuzz
