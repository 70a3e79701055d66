// Writes records to a file descriptor through a buffer.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "dialect.h"
#include "reader.h"

namespace morva::cli {

// Appends `field` to `to`, in quotes where `dialect` needs them. Throws UnwritableField for one
// that a dialect without quotes cannot carry.
void encodeField(std::string_view field, const Dialect &dialect, std::string &to);

class Writer {
 public:
  // `fd` stays the caller's; `name` is what messages call it. Where the dialect has quotes to
  // prevent it, no row will look like a comment that starts with `comment`, and none begins the
  // file with what looks like a byte order mark.
  Writer(int fd, std::string name, Dialect dialect, std::string comment = {});
  Writer(const Writer &) = delete;
  Writer &operator=(const Writer &) = delete;

  // One field after the other, then the end of the row. Both throw UnwritableField for what a
  // dialect without quotes cannot carry; the row is then dropped by flush.
  void field(std::string_view text);
  void number(double value);
  void number(uint64_t value);
  // Text that is encoded already: whole fields with the delimiters between them.
  void encoded(std::string_view text);
  // All fields of a record read in `dialect`.
  void record(const Record &record, const Dialect &dialect);
  // Text that follows the fields written so far as it is.
  void append(std::string_view text);
  // Text between rows, which counts as none.
  void lines(std::string_view text);
  void endRow();

  // Rows written so far.
  uint64_t rows() const { return rows_; }
  const Dialect &dialect() const { return dialect_; }

  // Hands all rows that are complete to the system and forgets a row begun. Throws Error when that
  // fails, as every other call may; nothing is written when a Writer goes away without.
  void flush();

 private:
  void startField(std::string_view text);
  void put(std::string_view text);
  bool looksLikeComment(std::string_view field) const;
  bool startsComment(std::string_view text) const;
  bool looksLikeMark(std::string_view text) const;
  void writeOut(const char *data, size_t size);

  int fd_;
  std::string name_;
  Dialect dialect_;
  std::string comment_;
  // Complete rows, then from rowBegin_ on the one begun.
  std::string buffer_;
  size_t rowBegin_ = 0;
  bool rowStarted_ = false;
  bool loneEmptyField_ = false;
  uint64_t rows_ = 0;
  std::string scratch_;
};

}  // namespace morva::cli
