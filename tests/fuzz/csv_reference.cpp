#include "csv_reference.h"

#include <algorithm>

namespace morva_fuzz {
namespace {

class Cutter {
 public:
  Cutter(const std::string &text, const ReadingOptions &options) : text_(text), options_(options) {}

  std::vector<Piece> run() {
    std::vector<Piece> pieces;
    if (text_.starts_with("\xEF\xBB\xBF")) at_ = 3;
    while (at_ < text_.size()) {
      Piece piece = cut();
      piece.end = at_;
      pieces.push_back(piece);
      if (piece.kind == Piece::neverClosed || piece.kind == Piece::commentWithReturn) break;
    }
    return pieces;
  }

 private:
  Piece cut() {
    Piece piece;
    piece.begin = at_;
    piece.line = line_;
    const size_t lineEnd = std::min(text_.find('\n', at_), text_.size());
    std::string content = text_.substr(at_, lineEnd - at_);
    if (content.ends_with('\r')) content.pop_back();

    const bool isComment = !options_.comment.empty() && content.starts_with(options_.comment);
    if (content.empty() ? !options_.keepBlankLines : isComment) {
      const bool onlyLine = line_ == 1 && lineEnd == text_.size();
      const bool hasReturn = text_.find('\r', at_) < lineEnd - 1;
      piece.kind = onlyLine && isComment && hasReturn ? Piece::commentWithReturn : Piece::skipped;
      goBehind(lineEnd);
    } else if (!options_.dialect.quotes || text_.find('"', at_) >= lineEnd) {
      piece.bareReturn = content.find('\r') != std::string::npos;
      piece.fields = split(content);
      goBehind(lineEnd);
    } else {
      piece.plain = false;
      cutQuoted(piece);
    }
    return piece;
  }

  std::vector<std::string> split(const std::string &content) const {
    std::vector<std::string> fields(1);
    const bool all = content.ends_with('\r');
    for (const char c : content) {
      if (c != options_.dialect.delimiter) {
        fields.back() += c;
      } else {
        if (!all && fields.size() >= options_.fieldLimit) break;
        fields.emplace_back();
      }
    }
    return fields;
  }

  void cutQuoted(Piece &piece) {
    for (;;) {
      const uint64_t line = line_;
      if (here() != '"') {
        takeBare(piece);
      } else if (!takeQuoted(piece)) {
        if (piece.kind == Piece::neverClosed) piece.line = line;
        return;
      }
      if (here() != options_.dialect.delimiter || at_ == text_.size()) break;
      ++at_;
    }
    if (here() == '\r') ++at_;
    goBehind(at_);
  }

  void takeBare(Piece &piece) {
    std::string field;
    while (at_ < text_.size() && here() != options_.dialect.delimiter && !atLineEnd()) {
      field += text_[at_++];
    }
    piece.bareReturn = piece.bareReturn || field.find('\r') != std::string::npos;
    piece.fields.push_back(field);
  }

  // False when the field's closing quote is missing, or not the end of the field.
  bool takeQuoted(Piece &piece) {
    std::string field;
    for (++at_;; ++at_) {
      if (at_ == text_.size()) {
        piece.kind = Piece::neverClosed;
        return false;
      }
      if (here() == '"') {
        ++at_;
        if (here() != '"') break;
      }
      field += here();
      if (here() == '\n') ++line_;
    }
    piece.fields.push_back(field);
    if (at_ == text_.size() || here() == options_.dialect.delimiter || atLineEnd()) return true;
    piece.kind = Piece::badRow;
    goBehind(std::min(text_.find('\n', at_), text_.size()));
    return false;
  }

  // At LF, or at the CR in front of it or of the end of the text.
  bool atLineEnd() const {
    if (here() == '\n') return true;
    return here() == '\r' && (at_ + 1 == text_.size() || text_[at_ + 1] == '\n');
  }

  char here() const { return at_ < text_.size() ? text_[at_] : '\0'; }

  void goBehind(size_t lineEnd) {
    at_ = std::min(lineEnd + 1, text_.size());
    ++line_;
  }

  const std::string &text_;
  const ReadingOptions &options_;
  size_t at_ = 0;
  uint64_t line_ = 1;
};

}  // namespace

std::vector<Piece> piecesOf(const std::string &text, const ReadingOptions &options) {
  return Cutter(text, options).run();
}

}  // namespace morva_fuzz
