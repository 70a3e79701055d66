// Keys as the C interfaces take them: an address and a length.
#pragma once

#include <string_view>

#include "../contender.h"

namespace bench {

inline const void *bytesOf(const uint64_t &key) {
  return &key;
}
inline const void *bytesOf(const std::string_view &key) {
  return key.data();
}

inline size_t lengthOf(const uint64_t &key) {
  return sizeof key;
}
inline size_t lengthOf(const std::string_view &key) {
  return key.size();
}

}  // namespace bench
