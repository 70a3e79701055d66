#include "grouping.h"

#include <unistd.h>

#include <cmath>

#include "commands.h"
#include "error.h"
#include "text.h"
#include "writer.h"

namespace morva::cli {

Grouping::Grouping(const Options &options, const std::string &valueColumn)
    : options_(options),
      input_(options.files[0], options),
      keys_(input_.columns().findLists(options.by)),
      library_(options.library, options.memoryLimit),
      table_(library_, TieredTable::Kind::kSums, input_.reader().size()) {
  input_.needColumns(keys_.columns());
  if (!valueColumn.empty()) {
    valueColumn_ = input_.columns().find(valueColumn);
    input_.needColumns({valueColumn_});
  }
  input_.needOnlyThese();
}

void Grouping::add(double number) {
  try {
    table_.addToSum(keys_.make(input_.row()), number);
  } catch (const OutOfMemory &error) {
    throw Error(input_.place() + ": " + error.what() + " with " + counted(table_.keys(), "group") +
                "; nothing is written");
  }
}

void Grouping::finish(const char *resultName) {
  writeGroups(resultName);
  input_.reportSkipped();
  if (!options_.stats) return;
  statistics_.add("rows", input_.rows());
  statistics_.add("groups", table_.keys());
  statistics_.print(input_.rows(), library_);
}

void Grouping::checkSums() {
  std::vector<std::string_view> fields;
  table_.visitSums([&](std::string_view key, double sum) {
    if (std::isfinite(sum)) return;
    keys_.split(key, fields);
    throw Error(input_.reader().name() + ": the sum of " +
                quotedList({fields.begin(), fields.end()}) +
                " is beyond the range of 64-bit floats; nothing is written");
  });
}

void Grouping::writeGroups(const char *resultName) {
  Writer out(STDOUT_FILENO, kStandardOutput, input_.dialect(), options_.comment);
  if (!options_.noHeader) {
    for (const size_t column : keys_.columns()) out.field(input_.columns().names()[column]);
    out.field(resultName);
    out.endRow();
  }
  std::vector<std::string_view> fields;
  table_.visitSums([&](std::string_view key, double sum) {
    keys_.split(key, fields);
    for (const std::string_view field : fields) out.field(field);
    out.number(sum);
    out.endRow();
  });
  out.flush();
}

}  // namespace morva::cli
