#include "writer.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

#include "error.h"
#include "text.h"

namespace morva::cli {

namespace {

constexpr size_t kBufferSize = size_t{64} << 10;

// What a field holds that the dialect takes for something else. Without quotes a carriage return is
// harmful at the end of a row only, which is for endRow to see.
bool hasSpecial(std::string_view field, const Dialect &dialect) {
  for (const char c : field) {
    if (c == dialect.delimiter || c == '\n') return true;
    if (dialect.quotes && (c == '"' || c == '\r')) return true;
  }
  return false;
}

[[noreturn]] void refuse(std::string_view field) {
  throw UnwritableField("the value " + quoted(field) +
                        " holds a tab or a line break, which tab-separated text cannot carry");
}

void encodeQuoted(std::string_view field, std::string &to) {
  to += '"';
  for (const char c : field) {
    if (c == '"') to += '"';
    to += c;
  }
  to += '"';
}

}  // namespace

void encodeField(std::string_view field, const Dialect &dialect, std::string &to) {
  if (!hasSpecial(field, dialect)) {
    to += field;
  } else if (dialect.quotes) {
    encodeQuoted(field, to);
  } else {
    refuse(field);
  }
}

Writer::Writer(int fd, std::string name, Dialect dialect, std::string comment)
    : fd_(fd), name_(std::move(name)), dialect_(dialect), comment_(std::move(comment)) {
  buffer_.reserve(2 * kBufferSize);
}

void Writer::startField(std::string_view text) {
  if (rowStarted_) put({&dialect_.delimiter, 1});
  loneEmptyField_ = !rowStarted_ && text.empty();
  rowStarted_ = true;
}

void Writer::put(std::string_view text) {
  buffer_ += text;
}

// Whether a row that begins with `field` could be taken for a comment.
bool Writer::looksLikeComment(std::string_view field) const {
  if (comment_.empty()) return false;
  const size_t cut = comment_.find(dialect_.delimiter);
  return cut == std::string::npos ? field.starts_with(comment_)
                                  : field == std::string_view(comment_).substr(0, cut);
}

// Whether a row could be taken for a comment once further fields follow this text of whole ones.
bool Writer::startsComment(std::string_view text) const {
  return comment_.size() > text.size() && comment_[text.size()] == dialect_.delimiter &&
         comment_.starts_with(text);
}

// Whether readers would drop the start of a row that begins so, as that of the file.
bool Writer::looksLikeMark(std::string_view text) const {
  return rows_ == 0 && text.starts_with("\xEF\xBB\xBF");
}

void Writer::field(std::string_view text) {
  const bool first = !rowStarted_;
  startField(text);
  if (first && dialect_.quotes && (looksLikeComment(text) || looksLikeMark(text))) {
    encodeQuoted(text, buffer_);
    loneEmptyField_ = false;
  } else {
    encodeField(text, dialect_, buffer_);
  }
}

void Writer::number(double value) {
  char text[kNumberSize];
  field({text, formatNumber(value, text)});
}

void Writer::number(uint64_t value) {
  char text[kNumberSize];
  field({text, std::to_chars(text, text + kNumberSize, value).ptr});
}

void Writer::encoded(std::string_view text) {
  startField(text);
  put(text);
}

void Writer::record(const Record &record, const Dialect &dialect) {
  // A carriage return at the end would become part of the line end.
  if (record.plain && dialect == dialect_ && !record.text.ends_with('\r')) {
    if (dialect_.quotes && !rowStarted_ &&
        (looksLikeMark(record.text) || startsComment(record.text))) {
      // It may have been cut into its first fields only.
      field(record.fields.front());
      append(record.text.substr(record.fields.front().size()));
    } else {
      encoded(record.text);
    }
    return;
  }
  for (const std::string_view text : record.fields) field(text);
}

void Writer::append(std::string_view text) {
  if (!text.empty()) loneEmptyField_ = false;
  put(text);
}

void Writer::lines(std::string_view text) {
  put(text);
  rowBegin_ = buffer_.size();
}

void Writer::endRow() {
  // A row of nothing but one empty field would be an empty line, which readers skip.
  if (loneEmptyField_ && dialect_.quotes) put("\"\"");
  // Readers would take it for a part of the line end.
  if (!dialect_.quotes && buffer_.ends_with('\r')) {
    throw UnwritableField(
        "the row to be written ends in a carriage return, which tab-separated text cannot carry");
  }
  put("\n");
  rowBegin_ = buffer_.size();
  rowStarted_ = false;
  loneEmptyField_ = false;
  ++rows_;
  if (rowBegin_ >= kBufferSize) flush();
}

void Writer::flush() {
  // Before the write, which may fail: nothing must go out twice.
  const size_t complete = std::exchange(rowBegin_, 0);
  rowStarted_ = false;
  writeOut(buffer_.data(), complete);
  buffer_.clear();
}

void Writer::writeOut(const char *data, size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(fd_, data, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      throw Error("cannot write to " + name_ + ": " + std::strerror(errno));
    }
    data += written;
    size -= static_cast<size_t>(written);
  }
}

}  // namespace morva::cli
