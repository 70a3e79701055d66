// Moving few bytes without a call: keys and data are mostly short.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace morva::core {

// As std::memmove. All is read before anything is written.
inline void moveBytes(void *to, const void *from, size_t n) {
  auto *out = static_cast<unsigned char *>(to);
  const auto *in = static_cast<const unsigned char *>(from);
  // Two words that may overlap make up any length between one word and two.
  const auto moveTwo = [&]<class Word>(Word first, Word last) {
    std::memcpy(&first, in, sizeof first);
    std::memcpy(&last, in + n - sizeof last, sizeof last);
    std::memcpy(out, &first, sizeof first);
    std::memcpy(out + n - sizeof last, &last, sizeof last);
  };
  if (n > 16) {
    std::memmove(to, from, n);
  } else if (n >= 8) {
    moveTwo(uint64_t{}, uint64_t{});
  } else if (n >= 4) {
    moveTwo(uint32_t{}, uint32_t{});
  } else if (n >= 2) {
    moveTwo(uint16_t{}, uint16_t{});
  } else if (n == 1) {
    *out = *in;
  }
}

}  // namespace morva::core
