// The bytes that a fuzzer made up, taken from the front as choices. When they are
// used up every choice is 0.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace morva_fuzz {

class Input {
 public:
  Input(const uint8_t *data, size_t size) : at_(data), end_(data + size) {}

  bool empty() const { return at_ == end_; }
  size_t size() const { return static_cast<size_t>(end_ - at_); }

  uint8_t byte() { return empty() ? uint8_t{0} : *at_++; }
  bool bit() { return (byte() & 1) != 0; }

  // A number of the lowest `count` bytes, which come lowest first.
  uint64_t word(size_t count) {
    uint64_t word = 0;
    for (size_t i = 0; i < count; ++i) word |= uint64_t{byte()} << (8 * i);
    return word;
  }

  // A number below `n`, from as few bytes as can tell.
  uint64_t below(uint64_t n) {
    if (n <= 1) return 0;
    if (n <= 0x100) return byte() % n;
    return (n <= 0x10000 ? word(2) : word(4)) % n;
  }

  // At most `count` bytes.
  std::string bytes(size_t count) {
    const std::string taken(reinterpret_cast<const char *>(at_), std::min(count, size()));
    at_ += taken.size();
    return taken;
  }
  // Exactly `count`: what is missing is 0.
  std::string filled(size_t count) {
    std::string taken = bytes(count);
    taken.resize(count);
    return taken;
  }
  std::string rest() { return bytes(size()); }

 private:
  const uint8_t *at_;
  const uint8_t *end_;
};

}  // namespace morva_fuzz
