// Column lists of the command line, and keys made of several columns.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "reader.h"

namespace morva::cli {

// The columns of one file, as far as names go: `names` is its header, empty if it has none.
class Columns {
 public:
  Columns(std::string file, std::vector<std::string> names, bool hasHeader)
      : file_(std::move(file)), names_(std::move(names)), hasHeader_(hasHeader) {}

  const std::vector<std::string> &names() const { return names_; }

  // The place of a column, from 0. Throws Error for a column that is not there, is there twice, or
  // is not a number where numbers are needed.
  size_t find(const std::string &column) const;

  // The places of all columns in a list "A,B,C" or, where a column is called just so, "A".
  std::vector<size_t> findList(const std::string &list) const;
  std::vector<size_t> findLists(const std::vector<std::string> &lists) const;

  // Whether a column is called just so.
  bool isColumn(const std::string &text) const;

  // What a column is called in messages.
  std::string describe(size_t column) const;

 private:
  size_t findNumber(const std::string &column) const;

  std::string file_;
  std::vector<std::string> names_;
  bool hasHeader_;
};

// "A,B" as "A" and "B".
std::vector<std::string> splitList(std::string_view list);

// Makes one key of the fields in some columns: the field itself if it is one, else every field but
// the last behind its length, so that different fields give different keys.
class KeyMaker {
 public:
  explicit KeyMaker(std::vector<size_t> columns) : columns_(std::move(columns)) {}

  const std::vector<size_t> &columns() const { return columns_; }

  // The key of a record that has all these columns; good until the next call, or the next record.
  std::string_view make(const Record &record) {
    return columns_.size() == 1 ? record.fields[columns_[0]] : makeLong(record);
  }

  // Takes a key apart again.
  void split(std::string_view key, std::vector<std::string_view> &fields) const;

 private:
  std::string_view makeLong(const Record &record);

  std::vector<size_t> columns_;
  std::string key_;
};

}  // namespace morva::cli
