#include "option_bits.h"

#include "keys.h"

namespace fault_test {
namespace {

constexpr double kBytesPerHint = 30.72;

}  // namespace

const std::vector<uint32_t> &acceptedFlags() {
  static const std::vector<uint32_t> accepted = [] {
    std::vector<uint32_t> made;
    for (uint32_t flags = 0; flags < kCombinations; ++flags) {
      if (isAccepted(flags)) made.push_back(flags);
    }
    return made;
  }();
  return accepted;
}

morva_test::TableShape shapeOf(uint32_t flags) {
  using morva_test::KeyMode;
  morva_test::TableShape shape;
  shape.keyMode = (flags & flagFixedKey) != 0 ? KeyMode::fixed
                  : (flags & flagVarKey) != 0 ? KeyMode::variable
                                              : KeyMode::defined;
  shape.flags = flags;
  shape.keyLength = isRaw(flags) ? kLongestRawKey : sizeof(Row);
  shape.dataLength = sizeof(uint64_t);
  // The first block has 16 slots, which the keys of a table fill. Chains fill another one of 16;
  // where there are none the next one would have 32.
  const int64_t largestBlock = (flags & flagMultiData) != 0 ? 12 : 24;
  const auto bytes = static_cast<double>(largestBlock * shape.slotSizeFor(0));
  shape.memHint = static_cast<int64_t>(bytes / kBytesPerHint) + 1;
  return shape;
}

std::string textOf(uint32_t flags) {
  static constexpr struct {
    uint32_t bit;
    const char *name;
  } kNames[] = {
      {flagUnordered, "unordered"},  {flagDefined, "defined"},        {flagFixedKey, "fixed key"},
      {flagNoLock, "no lock"},       {flagLockOpt, "lock option"},    {flagVarKey, "variable key"},
      {flagOrdered, "ordered"},      {flagPackOpt, "pack option"},    {flagSum, "sums"},
      {flagMultiData, "multi data"}, {flagDefineOpt, "define option"}};
  std::string text = "flags " + std::to_string(flags) + ":";
  for (const auto &[bit, name] : kNames) {
    if ((flags & bit) != 0) text.append(" ").append(name).append(",");
  }
  text.pop_back();
  return text;
}

}  // namespace fault_test
