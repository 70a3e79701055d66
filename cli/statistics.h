// What --stats prints.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "library.h"

namespace morva::cli {

class Statistics {
 public:
  // The clock starts here.
  Statistics() : start_(std::chrono::steady_clock::now()) {}

  void add(const char *label, uint64_t number) { lines_.push_back({label, number}); }

  // Prints the numbers added, then the time per row of `rows`, and the memory in use, to the
  // standard error.
  void print(uint64_t rows, const Library &library) const;

 private:
  struct Line {
    const char *label;
    uint64_t number;
  };

  std::chrono::steady_clock::time_point start_;
  std::vector<Line> lines_;
};

}  // namespace morva::cli
