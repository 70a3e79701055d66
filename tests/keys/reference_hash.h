// The hash methods once more, byte by byte, for comparison. Shares nothing with
// the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace keys_test {

// The hash of `n` bytes under `method`, 2 to 9.
uint32_t referenceHash(int method, const uint8_t *bytes, size_t n);

inline uint32_t referenceHash(int method, const std::string &bytes) {
  return referenceHash(method, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

// The bytes that the table of fixed hashes was made from.
std::vector<uint8_t> goldenText(size_t length);

}  // namespace keys_test
