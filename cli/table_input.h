// A file as a table: header, columns, and what is to be done about bad rows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "columns.h"
#include "options.h"
#include "reader.h"

namespace morva::cli {

class TableInput {
 public:
  // Opens `file` and reads its header, or without one its first row.
  TableInput(const std::string &file, const Options &options);

  const Columns &columns() const { return columns_; }
  const Dialect &dialect() const { return dialect_; }
  RecordReader &reader() { return reader_; }
  // Columns of the header, or of the first row; 0 for an empty file without a header.
  size_t width() const { return width_; }

  // Rows must have this many columns at least, to be told apart by the last of them in messages;
  // only these are split where rows need not be whole.
  void needColumns(const std::vector<size_t> &columns);
  void needOnlyThese();
  // Rows must not have more columns than this.
  void setMostColumns(size_t columns) { mostColumns_ = columns; }

  // Reads the next row that can be used; false at the end.
  bool next();
  // Before the first call of next, the header if there is one.
  const Record &row() const { return record_; }
  // Rows read and used so far.
  uint64_t rows() const { return rows_; }

  // The row read last is bad: throws Error, or counts it as skipped. `reason` is a clause.
  void reject(const std::string &reason);

  // "orders.csv:17", for the row read last.
  std::string place() const;

  // Tells on the standard error how many rows were skipped, if any.
  void reportSkipped() const;

 private:
  void readHeader();
  bool read();
  bool isComplete();
  void refuse(const std::string &message);

  RecordReader reader_;
  Dialect dialect_;
  bool hasHeader_;
  bool skipBad_;
  Columns columns_;
  size_t width_ = 0;
  size_t leastColumns_ = 0;
  size_t mostColumns_ = SIZE_MAX;
  Record record_;
  // The first row was read ahead.
  bool pending_ = false;
  uint64_t rows_ = 0;
  uint64_t skipped_ = 0;
  std::string firstSkipped_;
};

}  // namespace morva::cli
