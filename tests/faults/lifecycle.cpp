#include "lifecycle.h"

#include <initializer_list>

#include "keys.h"
#include "option_bits.h"

namespace fault_test {
namespace {

Sequence sequence(std::initializer_list<Asked> asked) {
  Sequence made;
  for (const Asked one : asked) made.add(one);
  return made;
}

}  // namespace

Sequence sequenceOfLoading() {
  return sequence({Asked::extensionPool, Asked::extensionBlock});
}

Sequence sequenceOfCreation(uint32_t flags, bool hasName) {
  const auto has = [flags](uint32_t bits) { return (flags & bits) == bits; };
  Sequence asked = sequence({Asked::extensionBlock});
  if (hasName) asked.add(Asked::extensionBlock);
  if (has(flagFixedKey | flagVarKey) || has(flagVarKey | flagMultiData)) return asked;
  if (has(flagVarKey)) {
    asked.add(Asked::varkeyPool);
    if (has(flagSum)) return asked;
  } else if (has(flagFixedKey)) {
    asked.add(Asked::recordPool);
  } else {
    asked.add(Asked::packerCompanion);
    asked.add(Asked::packer);
  }
  for (const Asked one : {Asked::extensionBlock, Asked::treeCompanion, Asked::tree}) asked.add(one);
  if (!has(flagNoLock)) asked.add(Asked::lock);
  if (has(flagOrdered)) {
    for (const Asked one : {Asked::inodePool, Asked::orderCompanion, Asked::orderList}) {
      asked.add(one);
    }
  }
  return asked;
}

Sequence sequenceOfDefinition(size_t fields) {
  Sequence asked;
  for (size_t i = 0; i < fields; ++i) asked.add(Asked::field);
  asked.add(Asked::recordPool);
  asked.add(Asked::finish);
  return asked;
}

Sequence sequenceOfCopying() {
  return sequence({Asked::extensionBlock});
}

bool leavesTheLock(Asked asked) {
  return asked == Asked::inodePool || asked == Asked::orderCompanion || asked == Asked::orderList;
}

const std::vector<std::vector<MORVAKeyDesc>> &definitions() {
  static const std::vector<std::vector<MORVAKeyDesc>> kDefinitions = [] {
    std::vector<std::vector<MORVAKeyDesc>> made = {
        {}, std::vector<MORVAKeyDesc>(std::begin(kRowFields), std::end(kRowFields))};
    for (MORVAKeyDesc field : kRowFields) {
      for (const uint32_t option : {0u, 1u}) {
        field.fieldOptions = option;
        made.push_back({field});
      }
    }
    return made;
  }();
  return kDefinitions;
}

}  // namespace fault_test
