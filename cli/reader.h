// Splits a file into records and fields, block by block, in constant memory.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dialect.h"

namespace morva::cli {

// A record. What it refers to stays good until the next one is read.
struct Record {
  std::vector<std::string_view> fields;
  // The record as it stands in the file, without the line end; only when `plain`.
  std::string_view text;
  // No quote characters are involved: `text` is the fields with delimiters between them.
  bool plain = true;
  // The line the record starts in, from 1.
  uint64_t line = 0;
};

// Reads with read(2) through one buffer that grows only for records longer than it. Lines end in LF
// or CRLF, the last one may lack its end; a UTF-8 byte order mark at the start is dropped.
//
// Plain lines are found and cut with memchr alone; the place of the next quote character is
// remembered, so that a file without quotes is searched for them once.
class RecordReader {
 public:
  struct Options {
    Dialect dialect;
    // Lines that start with this are skipped; empty: none.
    std::string comment;
    // Room to start with, and the longest record there may be.
    size_t bufferSize = size_t{256} << 10;
    size_t maxRecord = size_t{1} << 30;
  };

  // Opens `file`; "-" is the standard input. Throws Error.
  RecordReader(const std::string &file, Options options);
  ~RecordReader();
  RecordReader(const RecordReader &) = delete;
  RecordReader &operator=(const RecordReader &) = delete;

  // Reads the next record; false at the end of the file. Throws RowError for a record that breaks
  // the quoting rules, after which the next one can be read, and Error for what ends the reading.
  bool next(Record &record);

  // How the file is called in messages, and a line of it: "orders.csv:17".
  const std::string &name() const { return name_; }
  std::string place(uint64_t line) const { return name_ + ':' + std::to_string(line); }
  // Bytes of the file, or 0 when it has no size of its own (a pipe).
  uint64_t size() const { return size_; }
  // The file is one that could be opened and read once more.
  bool isRegular() const { return regular_; }

  // Throws Error if lines seem to end in CR alone, going by the record read just now, the first of
  // the file: a header with a CR outside quotes, or a row with one that is all there is.
  void checkLineEnds(const Record &first, bool isHeader) const;

  // Plain records are cut into this many fields only, the rest of the line left alone; those that
  // end in a CR, which cannot be passed on as they are, into all their fields.
  void setFieldLimit(size_t limit) { fieldLimit_ = limit; }
  // Empty lines are skipped (the default), or are records of one empty field.
  void setKeepBlankLines(bool keep) { keepBlankLines_ = keep; }
  // Called before a read that may have to wait: from pipes and terminals.
  void setBeforeWaiting(std::function<void()> call) { beforeWaiting_ = std::move(call); }

 private:
  struct Span {
    size_t begin;
    size_t end;
    bool quoted;
    bool escapes;
  };

  bool findLine(size_t &lineEnd);
  void fill();
  void grow();
  size_t readOnce();
  size_t find(char c, size_t from, size_t to) const;
  bool skipsLine(size_t contentEnd) const;
  void checkComment(size_t lineEnd) const;
  bool hasBareReturn(const Record &record) const;
  void passLine(size_t lineEnd);
  bool hasQuote(size_t lineEnd);
  void splitPlain(Record &record, size_t contentEnd);
  void readQuoted(Record &record);
  bool scanQuoted(size_t &recordEnd);
  bool scanQuotedField(size_t &at);
  bool scanBareField(size_t &at, size_t &lineEnd);
  [[noreturn]] void refuseTextAfterQuote(size_t at);
  void finishQuoted(Record &record, size_t recordEnd);
  std::string_view unescape(const Span &span);
  void dropByteOrderMark();
  uint64_t lineBreaks(size_t from, size_t to) const;

  std::string name_;
  Options options_;
  int fd_ = -1;
  bool regular_ = false;
  uint64_t size_ = 0;
  size_t fieldLimit_ = SIZE_MAX;
  bool keepBlankLines_ = false;
  std::function<void()> beforeWaiting_;

  // The unread bytes are buffer_[begin_] to buffer_[end_ - 1].
  std::unique_ptr<char[]> buffer_;
  size_t capacity_ = 0;
  size_t begin_ = 0;
  size_t end_ = 0;
  bool atEnd_ = false;
  // No line end before this, no quote before that, from begin_ on.
  size_t lineSearched_ = 0;
  size_t quoteSearched_ = 0;
  uint64_t line_ = 1;
  std::vector<Span> spans_;
};

}  // namespace morva::cli
