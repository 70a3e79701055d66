// How fields are told apart in a file.
#pragma once

#include <string_view>

namespace morva::cli {

struct Dialect {
  char delimiter = ',';
  // Fields may stand in double quotes. Without, a quote is a character like any other, and fields
  // hold neither the delimiter nor line breaks.
  bool quotes = true;

  friend bool operator==(const Dialect &, const Dialect &) = default;
};

constexpr Dialect kCsv{',', true};
constexpr Dialect kTsv{'\t', false};

// What the name says: .tsv and .tab are tab-separated, all else is comma-separated.
inline Dialect dialectOf(std::string_view fileName) {
  return fileName.ends_with(".tsv") || fileName.ends_with(".tab") ? kTsv : kCsv;
}

}  // namespace morva::cli
