// Numbers without order, the same in every run: splitmix64 (Steele, Lea, Flood 2014).
#pragma once

#include <cstdint>

namespace morva::cli::check {

class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint64_t next() {
    uint64_t mixed = state_ += UINT64_C(0x9E3779B97F4A7C15);
    mixed = (mixed ^ mixed >> 30) * UINT64_C(0xBF58476D1CE4E5B9);
    mixed = (mixed ^ mixed >> 27) * UINT64_C(0x94D049BB133111EB);
    return mixed ^ mixed >> 31;
  }
  // 0 to `bound` - 1.
  uint64_t below(uint64_t bound) { return next() % bound; }

 private:
  uint64_t state_;
};

}  // namespace morva::cli::check
