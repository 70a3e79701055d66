#include <string>

#include "commands.h"
#include "grouping.h"
#include "text.h"

namespace morva::cli {

namespace {

// Why the field is no number that can be added; null if it is one.
const char *readValue(std::string_view field, bool emptyAsZero, double &value) {
  switch (parseNumber(field, value)) {
    case NumberKind::kFinite:
      return nullptr;
    case NumberKind::kOutOfRange:
      return " is beyond the range of 64-bit floats";
    case NumberKind::kNotANumber:
      break;
  }
  if (!field.empty()) return " is not a finite number";
  if (!emptyAsZero) return " is not a number; --empty-as-zero takes it for 0";
  value = 0;
  return nullptr;
}

}  // namespace

void runSum(const Options &options) {
  Grouping groups(options, options.value);
  while (groups.next()) {
    double value = 0;
    const char *wrong = readValue(groups.value(), options.emptyAsZero, value);
    if (wrong == nullptr) {
      groups.add(value);
    } else {
      groups.input().reject(groups.valueName() + ": " + quoted(groups.value()) + wrong);
    }
  }
  groups.checkSums();
  groups.finish("sum");
}

}  // namespace morva::cli
