// The eight hash methods.
//
// They decide the bucket of a key and nothing else; no hash is stored. Every
// method takes any byte string, the empty one included.
#pragma once

#include <cstdint>

namespace morva::core {

// The hash of `length` bytes under `method`, 2 to 9.
uint32_t hashKey(uint32_t method, const unsigned char *bytes, uint32_t length);

}  // namespace morva::core
