#include "extension_checks.h"

#include <vector>

#include "extension_parts.h"

namespace morva::cli::check {

std::span<const Check> extensionChecks() {
  static const std::vector<Check> all = [] {
    std::vector<Check> checks;
    for (const auto part :
         {entryChecks(),    createChecks(),    defineChecks(),   keyChecks(),     storeChecks(),
          lookupChecks(),   duplicateChecks(), sumChecks(),      orderChecks(),   clearChecks(),
          accessorChecks(), equalityChecks(),  hashChecks(),     treeChecks(),    recordChecks(),
          lockChecks(),     memoryChecks(),    togetherChecks(), routineChecks(), randomChecks()}) {
      checks.insert(checks.end(), part.begin(), part.end());
    }
    return checks;
  }();
  return all;
}

}  // namespace morva::cli::check
