// Keys that an attacker would send: as many as wanted, different, and all of one
// hash under a method that is known.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench::hostile {

inline constexpr uint32_t kFirstMethod = 2;
inline constexpr uint32_t kLastMethod = 9;

// The last eight bytes of a key. What stands before them is zeros.
inline constexpr size_t kTail = 8;
using Tail = std::array<unsigned char, kTail>;

// How many low bits of the hash the keys have in common: all 32, but for method
// 3, whose keys must be searched for one by one.
uint32_t sharedBits(uint32_t method);

// The tails of `count` different keys of `length` bytes, 8 or more, that share
// those bits, so that they lie in one bucket of a table of up to 2^sharedBits. In
// no order of their own; alike on every machine. At most 2^24 of method 4.
std::vector<Tail> collidingTails(uint32_t method, size_t length, size_t count);

// The keys themselves.
template <size_t Length>
std::vector<std::array<unsigned char, Length>> collidingKeys(uint32_t method, size_t count) {
  static_assert(Length >= kTail);
  std::vector<std::array<unsigned char, Length>> keys;
  keys.reserve(count);
  for (const Tail &tail : collidingTails(method, Length, count)) {
    std::array<unsigned char, Length> &key = keys.emplace_back();
    for (size_t i = 0; i < kTail; ++i) key[Length - kTail + i] = tail[i];
  }
  return keys;
}

}  // namespace bench::hostile
