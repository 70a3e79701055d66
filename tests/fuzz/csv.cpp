// The reader of the command-line program, given any text in pieces of any sizes: it
// must read what a plain reading finds, and read its own rows again once written.
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "check.h"
#include "csv_reference.h"
#include "error.h"
#include "input.h"
#include "reader.h"
#include "text.h"
#include "writer.h"

using morva::cli::Dialect;
using morva::cli::Record;
using morva::cli::RecordReader;
using morva::cli::Writer;
using morva_fuzz::Input;
using morva_fuzz::Piece;
using morva_fuzz::ReadingOptions;

namespace {

// How much each read answers at most, in turn; as much as it is asked for when empty.
std::string pieceSizes;
size_t reads;

// A file in memory.
class File {
 public:
  explicit File(const std::string &content = {}) : fd_(::memfd_create("csv", MFD_CLOEXEC)) {
    FUZZ_CHECK(fd_ >= 0);
    FUZZ_CHECK(::write(fd_, content.data(), content.size()) ==
               static_cast<ssize_t>(content.size()));
  }
  ~File() { ::close(fd_); }
  File(const File &) = delete;
  File &operator=(const File &) = delete;

  int fd() const { return fd_; }
  std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  int fd_;
};

using Rows = std::vector<std::vector<std::string>>;

std::vector<std::string> copyOf(const Record &record) {
  return {record.fields.begin(), record.fields.end()};
}

// For messages.
std::string shown(const Rows &rows) {
  std::string text;
  for (const std::vector<std::string> &row : rows) {
    for (const std::string &field : row) text += morva::cli::quoted(field) + ' ';
    text += '\n';
  }
  return text;
}

class Run {
 public:
  explicit Run(Input &input) {
    static constexpr char kDelimiters[] = {',', '\t', ';', '|', ' ', 'a'};
    const uint8_t bits = input.byte();
    options_.dialect.quotes = (bits & 3) != 0;
    options_.dialect.delimiter = kDelimiters[input.below(std::size(kDelimiters))];
    options_.keepBlankLines = (bits & 4) != 0;
    if ((bits & 8) != 0) options_.comment = input.bit() ? "#" : takeComment(input);
    if ((bits & 16) != 0) options_.fieldLimit = 1 + input.below(5);
    isHeader_ = (bits & 32) != 0;
    asFields_ = (bits & 64) != 0;
    bufferSize_ = 1 + input.below(64);
    // Half of the time no row is too long.
    if ((bits & 128) != 0) maxRecord_ = 1 + input.below(128);
    pieceSizes = input.bytes(input.below(8));
    reads = 0;
    text_ = input.rest();
  }

  void run() {
    expectReading();
    const Rows rows = readRows(text_, options_, nullptr);
    expectSameAgain(rows, options_.dialect, options_.comment);
    // Without quotes nothing can tell a row from a blank line or a comment.
    expectSameAgain(rows, morva::cli::kTsv, "");
    expectSameAgain(rows, morva::cli::kCsv, options_.comment);
  }

 private:
  // Any text but one with quotes, which rows that need quotes begin with.
  static std::string takeComment(Input &input) {
    std::string comment = input.bytes(1 + input.below(3));
    std::erase(comment, '"');
    return comment;
  }

  RecordReader::Options readerOptions() const {
    RecordReader::Options options;
    options.dialect = options_.dialect;
    options.comment = options_.comment;
    options.bufferSize = bufferSize_;
    options.maxRecord = maxRecord_;
    return options;
  }

  // Longer rows than this are refused.
  size_t mostBytes() const {
    size_t capacity = std::max<size_t>(bufferSize_, 4);
    while (capacity < maxRecord_) capacity *= 2;
    return capacity;
  }

  void expectReading() {
    const File file(text_);
    RecordReader reader(file.path(), readerOptions());
    reader.setKeepBlankLines(options_.keepBlankLines);
    reader.setFieldLimit(options_.fieldLimit);
    FUZZ_CHECK(reader.size() == text_.size() && reader.isRegular());
    const std::vector<Piece> pieces = morva_fuzz::piecesOf(text_, options_);
    Record record;
    size_t at = 0;
    bool first = true;
    for (;; ++at) {
      while (at < pieces.size() && pieces[at].kind == Piece::skipped) {
        // Blank lines and comments are not kept, but have to fit once.
        metLong_ = metLong_ || mayBeTooLong(pieces[at]);
        ++at;
      }
      const Piece *piece = at < pieces.size() ? &pieces[at] : nullptr;
      metLong_ = metLong_ || (piece != nullptr && mayBeTooLong(*piece));
      if (!readOne(reader, record, piece)) return;
      if (first) expectLineEnds(reader, record, *piece);
      first = false;
    }
  }

  bool mayBeTooLong(const Piece &piece) const {
    return maxRecord_ < SIZE_MAX && piece.end - piece.begin + 2 > mostBytes();
  }

  static void expectPlace(const std::string &message, const std::string &place) {
    FUZZ_CHECK_EMPTY(message.starts_with(place + ": ") ? "" : message + " -- not at " + place);
  }

  // False when there is no more to read.
  bool readOne(RecordReader &reader, Record &record, const Piece *piece) {
    try {
      if (!reader.next(record)) {
        FUZZ_CHECK(piece == nullptr);
        return false;
      }
    } catch (const morva::cli::RowError &error) {
      FUZZ_CHECK(piece != nullptr && piece->kind == Piece::badRow);
      expectPlace(error.what(), reader.place(piece->line));
      return true;
    } catch (const morva::cli::Error &error) {
      const std::string message = error.what();
      if (message.find(": the row that starts here is longer than ") != std::string::npos) {
        FUZZ_CHECK(metLong_);
        return false;
      }
      FUZZ_CHECK(piece != nullptr &&
                 (piece->kind == Piece::neverClosed || piece->kind == Piece::commentWithReturn));
      expectPlace(message, reader.place(piece->line));
      return false;
    }
    FUZZ_CHECK(piece != nullptr && piece->kind == Piece::row);
    FUZZ_CHECK(record.line == piece->line && record.plain == piece->plain);
    FUZZ_CHECK(copyOf(record) == piece->fields);
    FUZZ_CHECK(maxRecord_ == SIZE_MAX || piece->end - piece->begin <= mostBytes() + 2);
    return true;
  }

  void expectLineEnds(const RecordReader &reader, const Record &record, const Piece &piece) const {
    if (piece.kind != Piece::row) return;
    const bool onlyLine = piece.begin <= 3 && piece.line == 1 && piece.end == text_.size() &&
                          text_.find('\n') == std::string::npos;
    bool refused = false;
    try {
      reader.checkLineEnds(record, isHeader_);
    } catch (const morva::cli::Error &) {
      refused = true;
    }
    FUZZ_CHECK(refused == (piece.bareReturn && (isHeader_ || onlyLine)));
  }

  // The rows of a text, bad ones left out, and what `each` does with them.
  Rows readRows(const std::string &text, const ReadingOptions &how, Writer *copy) const {
    const File file(text);
    RecordReader::Options options = readerOptions();
    options.dialect = how.dialect;
    options.comment = how.comment;
    options.maxRecord = SIZE_MAX;
    RecordReader reader(file.path(), options);
    reader.setKeepBlankLines(how.keepBlankLines);
    Rows rows;
    Record record;
    for (;;) {
      try {
        if (!reader.next(record)) return rows;
        rows.push_back(copyOf(record));
        if (copy != nullptr) copy->record(record, how.dialect);
        if (copy != nullptr) copy->endRow();
      } catch (const morva::cli::RowError &) {
      } catch (const morva::cli::UnwritableField &) {
        copy->flush();
        rows.pop_back();
      } catch (const morva::cli::Error &) {
        return rows;
      }
    }
  }

  static bool isWritable(const std::vector<std::string> &row, const Dialect &dialect) {
    if (dialect.quotes) return true;
    for (const std::string &field : row) {
      if (field.find(dialect.delimiter) != std::string::npos) return false;
      if (field.find('\n') != std::string::npos) return false;
    }
    return !row.back().ends_with('\r');
  }

  // Written as fields, or as they were read, the rows that can be written are read again.
  void expectSameAgain(const Rows &rows, const Dialect &dialect, const std::string &comment) {
    const File file;
    Writer writer(file.fd(), "copy", dialect, comment);
    Rows written;
    if (asFields_) {
      for (const std::vector<std::string> &row : rows) {
        bool carried = true;
        try {
          for (const std::string &field : row) writer.field(field);
          writer.endRow();
        } catch (const morva::cli::UnwritableField &) {
          carried = false;
          writer.flush();
        }
        FUZZ_CHECK(carried == isWritable(row, dialect));
        if (carried) written.push_back(row);
      }
    } else {
      written = readRows(text_, options_, &writer);
    }
    FUZZ_CHECK(writer.rows() == written.size());
    writer.flush();
    std::string text(static_cast<size_t>(::lseek(file.fd(), 0, SEEK_END)), '\0');
    FUZZ_CHECK(::pread(file.fd(), text.data(), text.size(), 0) ==
               static_cast<ssize_t>(text.size()));
    ReadingOptions again;
    again.dialect = dialect;
    again.comment = comment;
    again.keepBlankLines = true;
    // Without quotes nothing tells a field from the mark that readers drop.
    if (!dialect.quotes && text.starts_with("\xEF\xBB\xBF")) text = "\xEF\xBB\xBF" + text;
    const Rows found = readRows(text, again, nullptr);
    FUZZ_CHECK_EMPTY(found == written ? ""
                                      : "written\n" + shown(written) + "read\n" + shown(found));
  }

  ReadingOptions options_;
  bool isHeader_ = false;
  bool asFields_ = false;
  bool metLong_ = false;
  size_t bufferSize_ = 4;
  size_t maxRecord_ = SIZE_MAX;
  std::string text_;
};

}  // namespace

extern "C" {

// In the place of read(2): it may always answer less than it is asked for.
ssize_t __real_read(int fd, void *to, size_t size);
ssize_t __wrap_read(int fd, void *to, size_t size) {
  if (!pieceSizes.empty()) {
    const auto most = static_cast<uint8_t>(pieceSizes[reads++ % pieceSizes.size()]);
    size = std::min<size_t>(size, size_t{most} + 1);
  }
  return __real_read(fd, to, size);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input input(data, size);
  Run(input).run();
  pieceSizes.clear();
  return 0;
}
}
