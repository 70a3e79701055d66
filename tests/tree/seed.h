// The seed of the random tests: fixed, or MORVA_TEST_SEED of the environment.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace tree_test {

inline uint64_t testSeed() {
  const char *text = std::getenv("MORVA_TEST_SEED");
  return text != nullptr ? std::strtoull(text, nullptr, 0) : UINT64_C(20240611);
}

}  // namespace tree_test
