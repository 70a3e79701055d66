// Hashes that must never change.
#pragma once

#include <cstddef>
#include <cstdint>

namespace keys_test {

constexpr int firstMethod = 2;
constexpr int lastMethod = 9;
constexpr size_t methods = 8;
constexpr size_t longestGolden = 130;

struct KnownHashes {
  const char *key;
  uint32_t hash[methods];
};

inline constexpr KnownHashes knownHashes[] = {
    {"",
     {0x00000000, 0x4a788bad, 0x00000000, 0x00000000, 0x000004d2, 0x00000000, 0x00000000,
      0x00000000}},
    {"a",
     {0x00000064, 0x7b934af6, 0x00000061, 0x00000071, 0x000004d2, 0x00000061, 0xca2e9442,
      0x00000061}},
    {"abc",
     {0x0001b6f3, 0x1bb225c7, 0x0000679a, 0x00005756, 0x00000472, 0x00021546, 0xed131f5b,
      0x84f09160}},
    {"hello world!",
     {0x8b1f5d60, 0x20d18103, 0x014a93d5, 0xd7276010, 0x00000238, 0xed70ef1d, 0x9bd919d3,
      0x9827fa1d}},
};

inline constexpr uint32_t goldenHashes[longestGolden + 1][methods] = {
#include "golden_hashes.inc"
};

}  // namespace keys_test
