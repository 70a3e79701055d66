// What count and sum have in common: one number per group of rows.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "library.h"
#include "options.h"
#include "statistics.h"
#include "table_input.h"
#include "tiered_table.h"

namespace morva::cli {

class Grouping {
 public:
  // Opens the file and resolves the columns of --by, and `valueColumn` unless it is empty.
  Grouping(const Options &options, const std::string &valueColumn);

  // Goes to the next row; false at the end.
  bool next() { return input_.next(); }
  TableInput &input() { return input_; }

  // The row's field in the value column, and what the column is called in messages.
  std::string_view value() const { return input_.row().fields[valueColumn_]; }
  std::string valueName() const { return input_.columns().describe(valueColumn_); }

  // Adds to the group of the row.
  void add(double number);

  // Throws Error if a sum is not finite.
  void checkSums();

  // Writes the groups with their sums, in a column of that name, and the statistics asked for.
  void finish(const char *resultName);

 private:
  void writeGroups(const char *resultName);

  const Options &options_;
  Statistics statistics_;
  TableInput input_;
  KeyMaker keys_;
  size_t valueColumn_ = 0;
  Library library_;
  TieredTable table_;
};

}  // namespace morva::cli
