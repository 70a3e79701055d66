// Reproducible contents for the tests of the portable routines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace port_test {

constexpr size_t longest = 300;

// A small generator, the same on every machine.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed * 2 + 1) {}
  uint32_t next() {
    state_ = state_ * UINT64_C(6364136223846793005) + UINT64_C(1442695040888963407);
    return static_cast<uint32_t>(state_ >> 32);
  }

 private:
  uint64_t state_;
};

inline std::vector<uint8_t> randomBytes(size_t n, uint64_t seed) {
  Random random(seed);
  std::vector<uint8_t> bytes(n);
  for (uint8_t &b : bytes) b = static_cast<uint8_t>(random.next() >> 11);
  return bytes;
}

inline std::vector<uint32_t> randomUnits(size_t n, uint64_t seed) {
  Random random(seed);
  std::vector<uint32_t> units(n);
  for (uint32_t &u : units) u = random.next();
  return units;
}

}  // namespace port_test
