#include "reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "error.h"
#include "text.h"

namespace morva::cli {

namespace {

// Beyond this, a record that is still incomplete is looked at again only after it has grown by half
// of its length, so that long records cost linear time however small the pieces arrive.
constexpr size_t kPatience = size_t{64} << 10;

constexpr const char *kLineEnds = "; lines must end in LF or CRLF";

std::string systemMessage() {
  return std::strerror(errno);
}

}  // namespace

RecordReader::RecordReader(const std::string &file, Options options)
    : name_(file == "-" ? "standard input" : file), options_(std::move(options)) {
  fd_ = file == "-" ? STDIN_FILENO : ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) throw Error(name_ + ": cannot open it: " + systemMessage());
  struct stat status {};
  if (::fstat(fd_, &status) == 0 && S_ISREG(status.st_mode)) {
    regular_ = true;
    size_ = static_cast<uint64_t>(status.st_size);
    ::posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
  }
  capacity_ = std::max<size_t>(options_.bufferSize, 4);
  buffer_ = std::make_unique_for_overwrite<char[]>(capacity_);
  try {
    dropByteOrderMark();
  } catch (...) {
    if (fd_ != STDIN_FILENO) ::close(fd_);
    throw;
  }
}

RecordReader::~RecordReader() {
  if (fd_ != STDIN_FILENO) ::close(fd_);
}

void RecordReader::dropByteOrderMark() {
  while (end_ < 3 && !atEnd_) fill();
  if (end_ >= 3 && std::memcmp(buffer_.get(), "\xEF\xBB\xBF", 3) == 0) begin_ = 3;
}

size_t RecordReader::find(char c, size_t from, size_t to) const {
  const char *base = buffer_.get();
  const void *found = from < to ? std::memchr(base + from, c, to - from) : nullptr;
  return found == nullptr ? to : static_cast<size_t>(static_cast<const char *>(found) - base);
}

size_t RecordReader::readOnce() {
  for (;;) {
    const ssize_t got = ::read(fd_, buffer_.get() + end_, capacity_ - end_);
    if (got >= 0) return static_cast<size_t>(got);
    if (errno != EINTR) throw Error(name_ + ": cannot read it: " + systemMessage());
  }
}

void RecordReader::grow() {
  if (capacity_ >= options_.maxRecord) {
    throw Error(place(line_) + ": the row that starts here is longer than " +
                byteSize(options_.maxRecord) +
                (options_.dialect.quotes ? "; is a closing quote missing?" : ""));
  }
  const size_t capacity = capacity_ * 2;
  auto buffer = std::make_unique_for_overwrite<char[]>(capacity);
  std::memcpy(buffer.get(), buffer_.get(), end_);
  buffer_ = std::move(buffer);
  capacity_ = capacity;
}

// Gets more bytes behind the unread ones, which move to the front of the buffer.
void RecordReader::fill() {
  if (begin_ > 0) {
    std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
    end_ -= begin_;
    lineSearched_ -= std::min(lineSearched_, begin_);
    quoteSearched_ -= std::min(quoteSearched_, begin_);
    begin_ = 0;
  }
  const size_t wanted = end_ > kPatience ? end_ + end_ / 2 : end_ + 1;
  if (!regular_ && beforeWaiting_) beforeWaiting_();
  while (end_ < wanted && !atEnd_) {
    if (end_ == capacity_) grow();
    const size_t got = readOnce();
    end_ += got;
    atEnd_ = got == 0;
  }
}

// Finds the end of the line at begin_; false when the file has no further line.
bool RecordReader::findLine(size_t &lineEnd) {
  lineSearched_ = std::max(lineSearched_, begin_);
  for (;;) {
    lineEnd = find('\n', lineSearched_, end_);
    if (lineEnd < end_) return true;
    if (atEnd_) return begin_ < end_;
    lineSearched_ = end_;
    fill();
  }
}

// A comment, or an empty line where those do not count.
bool RecordReader::skipsLine(size_t contentEnd) const {
  const size_t length = contentEnd - begin_;
  if (length == 0) return !keepBlankLines_;
  const std::string &comment = options_.comment;
  return !comment.empty() && length >= comment.size() &&
         std::memcmp(buffer_.get() + begin_, comment.data(), comment.size()) == 0;
}

// A comment that is the whole file and has a CR inside: rows behind it would be lost with it.
void RecordReader::checkComment(size_t lineEnd) const {
  const bool wholeFile = line_ == 1 && lineEnd == end_;
  if (wholeFile && find('\r', begin_, lineEnd) + 1 < lineEnd) {
    throw Error(place(line_) + ": the comment holds a carriage return and no line feed follows" +
                kLineEnds);
  }
}

bool RecordReader::hasBareReturn(const Record &record) const {
  if (record.plain) return record.text.find('\r') != std::string_view::npos;
  return std::any_of(spans_.begin(), spans_.end(), [this](const Span &span) {
    return !span.quoted && find('\r', span.begin, span.end) < span.end;
  });
}

void RecordReader::checkLineEnds(const Record &first, bool isHeader) const {
  if (!hasBareReturn(first)) return;
  if (isHeader) {
    throw Error(place(first.line) + ": the header holds a carriage return" + kLineEnds);
  }
  // The one line there is, and not even that ends in LF.
  if (line_ == 2 && begin_ == end_ && buffer_[end_ - 1] != '\n') {
    throw Error(place(first.line) + ": the row holds a carriage return and no line feed follows" +
                kLineEnds);
  }
}

bool RecordReader::next(Record &record) {
  for (size_t lineEnd = 0; findLine(lineEnd);) {
    size_t contentEnd = lineEnd;
    if (contentEnd > begin_ && buffer_[contentEnd - 1] == '\r') --contentEnd;
    if (skipsLine(contentEnd)) {
      checkComment(lineEnd);
      passLine(lineEnd);
      continue;
    }
    record.line = line_;
    record.plain = !hasQuote(lineEnd);
    if (record.plain) {
      splitPlain(record, contentEnd);
      passLine(lineEnd);
    } else {
      readQuoted(record);
    }
    return true;
  }
  return false;
}

void RecordReader::passLine(size_t lineEnd) {
  begin_ = std::min(lineEnd + 1, end_);
  ++line_;
}

// Whether the line at begin_ has a quote that means something.
bool RecordReader::hasQuote(size_t lineEnd) {
  if (!options_.dialect.quotes) return false;
  quoteSearched_ = std::max(quoteSearched_, begin_);
  if (quoteSearched_ < lineEnd) quoteSearched_ = find('"', quoteSearched_, end_);
  return quoteSearched_ < lineEnd;
}

void RecordReader::splitPlain(Record &record, size_t contentEnd) {
  const char *at = buffer_.get() + begin_;
  const char *const end = buffer_.get() + contentEnd;
  record.text = {at, end};
  record.fields.clear();
  // Such a record is not passed on as it is: its fields are needed, all of them.
  const size_t limit = record.text.ends_with('\r') ? SIZE_MAX : fieldLimit_;
  for (;;) {
    const void *found = std::memchr(at, options_.dialect.delimiter, static_cast<size_t>(end - at));
    const char *fieldEnd = found == nullptr ? end : static_cast<const char *>(found);
    record.fields.emplace_back(at, fieldEnd);
    if (found == nullptr || record.fields.size() >= limit) return;
    at = fieldEnd + 1;
  }
}

// Reads a record with quotes in it. Nothing in the buffer is changed before the record is known to
// be complete, since it is scanned again whenever more bytes had to be got.
void RecordReader::readQuoted(Record &record) {
  size_t recordEnd = 0;
  while (!scanQuoted(recordEnd)) fill();
  finishQuoted(record, recordEnd);
}

// Cuts the record at begin_ into spans_; false when it does not end within the buffer.
bool RecordReader::scanQuoted(size_t &recordEnd) {
  spans_.clear();
  size_t at = begin_;
  size_t lineEnd = begin_;
  for (;;) {
    const bool isQuoted = at < end_ && buffer_[at] == '"';
    if (!(isQuoted ? scanQuotedField(at) : scanBareField(at, lineEnd))) return false;
    if (at == end_ || buffer_[at] != options_.dialect.delimiter) break;
    ++at;
  }
  recordEnd = at;
  return true;
}

// A field that starts with a quote at `at`; leaves `at` on what ends the field.
bool RecordReader::scanQuotedField(size_t &at) {
  Span span{at + 1, at + 1, true, false};
  for (;;) {
    span.end = find('"', span.end, end_);
    if (span.end + 1 >= end_ && !atEnd_) return false;
    if (span.end == end_) {
      throw Error(place(line_ + lineBreaks(begin_, at)) +
                  ": the quote opened here is never closed");
    }
    if (span.end + 1 == end_ || buffer_[span.end + 1] != '"') break;
    span.escapes = true;
    span.end += 2;
  }
  spans_.push_back(span);
  at = span.end + 1;
  if (at == end_ || buffer_[at] == options_.dialect.delimiter || buffer_[at] == '\n') return true;
  if (buffer_[at] == '\r') {
    if (at + 1 == end_ && !atEnd_) return false;
    if (at + 1 == end_ || buffer_[at + 1] == '\n') return true;
  }
  refuseTextAfterQuote(at);
}

// A field that starts with anything else. `lineEnd` remembers the end of the line it is in.
bool RecordReader::scanBareField(size_t &at, size_t &lineEnd) {
  if (lineEnd <= at) lineEnd = find('\n', at, end_);
  if (lineEnd == end_ && !atEnd_) return false;
  const size_t contentEnd = lineEnd > at && buffer_[lineEnd - 1] == '\r' ? lineEnd - 1 : lineEnd;
  const size_t fieldEnd = find(options_.dialect.delimiter, at, contentEnd);
  spans_.push_back({at, fieldEnd, false, false});
  at = fieldEnd;
  return true;
}

// Gives up the record at begin_, which has text at `at` behind a closing quote, and goes on to the
// next line.
void RecordReader::refuseTextAfterQuote(size_t at) {
  for (;;) {
    const size_t offset = at - begin_;
    const size_t lineEnd = find('\n', at, end_);
    if (lineEnd < end_ || atEnd_) {
      const std::string text = quoted({buffer_.get() + begin_, lineEnd - begin_});
      std::string message = place(line_) + ": there is text behind a closing quote: ";
      message += text;
      line_ += lineBreaks(begin_, lineEnd);
      passLine(lineEnd);
      throw RowError(message);
    }
    fill();
    at = begin_ + offset;
  }
}

void RecordReader::finishQuoted(Record &record, size_t recordEnd) {
  record.fields.clear();
  // Before fields are moved about where they stand.
  line_ += lineBreaks(begin_, recordEnd);
  for (const Span &span : spans_) record.fields.push_back(unescape(span));
  if (recordEnd < end_ && buffer_[recordEnd] == '\r') ++recordEnd;
  passLine(recordEnd);
}

// The field's text; doubled quotes become one, in place.
std::string_view RecordReader::unescape(const Span &span) {
  char *const first = buffer_.get() + span.begin;
  if (!span.escapes) return {first, span.end - span.begin};
  const char *from = first;
  const char *const last = buffer_.get() + span.end;
  char *to = first;
  while (from < last) {
    const void *found = std::memchr(from, '"', static_cast<size_t>(last - from));
    const char *stop = found == nullptr ? last : static_cast<const char *>(found) + 1;
    std::memmove(to, from, static_cast<size_t>(stop - from));
    to += stop - from;
    from = found == nullptr ? last : stop + 1;
  }
  return {first, to};
}

uint64_t RecordReader::lineBreaks(size_t from, size_t to) const {
  return static_cast<uint64_t>(std::count(buffer_.get() + from, buffer_.get() + to, '\n'));
}

}  // namespace morva::cli
