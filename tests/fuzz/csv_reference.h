// What there is to read in a text, found by going through it character by character.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "reader.h"

namespace morva_fuzz {

struct ReadingOptions {
  morva::cli::Dialect dialect;
  std::string comment;
  bool keepBlankLines = false;
  size_t fieldLimit = SIZE_MAX;
};

// A row, or a stretch of the text that is none.
struct Piece {
  enum Kind { row, skipped, badRow, neverClosed, commentWithReturn };
  Kind kind = row;
  // From its first byte to the first byte of the next piece.
  size_t begin = 0, end = 0;
  // The line it starts in; of a quote that is never closed, the line of that.
  uint64_t line = 1;
  // The row has no quotes that mean something.
  bool plain = true;
  // A carriage return outside quotes that is not part of the line end.
  bool bareReturn = false;
  std::vector<std::string> fields;
};

// All pieces, up to the first that ends the reading.
std::vector<Piece> piecesOf(const std::string &text, const ReadingOptions &options);

}  // namespace morva_fuzz
