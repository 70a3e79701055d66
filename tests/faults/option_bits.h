// Every combination of option bits, and the one rule for which of them creation accepts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/table_shape.h"
#include "morva/flags.h"

namespace fault_test {

// All bits that morva/flags.h knows: eleven, without a gap.
inline constexpr uint32_t kKnownBits = flagUnordered | flagDefined | flagFixedKey | flagNoLock |
                                       flagLockOpt | flagVarKey | flagOrdered | flagPackOpt |
                                       flagSum | flagMultiData | flagDefineOpt;
inline constexpr uint32_t kCombinations = kKnownBits + 1;

// The rule: a raw key is fixed or variable, and a variable one excludes chains and sums.
constexpr bool isAccepted(uint32_t flags) {
  if ((flags & flagVarKey) == 0) return true;
  return (flags & (flagFixedKey | flagMultiData | flagSum)) == 0;
}

constexpr bool isRaw(uint32_t flags) {
  return (flags & (flagFixedKey | flagVarKey)) != 0;
}

// All that the rule accepts, ascending.
const std::vector<uint32_t> &acceptedFlags();

// Small records of the instances made here: keys of all field kinds together, or 8 raw bytes.
morva_test::TableShape shapeOf(uint32_t flags);

std::string textOf(uint32_t flags);

}  // namespace fault_test
