// The eight hash methods, which morva/hash_methods.hpp has.
//
// They decide the bucket of a key and nothing else; no hash is stored. Every
// method takes any byte string, the empty one included.
#pragma once

#include <cstdint>

#include "morva/hash_methods.hpp"

namespace morva::core {

inline constexpr uint32_t kFnv = 9;

// The hash of `length` bytes under `method`, 2 to 9.
uint32_t hashAnyKey(uint32_t method, const unsigned char *bytes, uint32_t length);

// The same. Numbers under the method for numbers, the most usual of all, cost no
// call.
inline uint32_t hashKey(uint32_t method, const unsigned char *bytes, uint32_t length) {
  using eight = detail::hashing::known_length<8>;
  if (length == eight::value && method == kFnv) {
    return detail::hashing::fnv(bytes, eight{});
  }
  return hashAnyKey(method, bytes, length);
}

}  // namespace morva::core
