// Keys as programs have them, made alike on every machine: counters, numbers,
// addresses, dates, words, links, identifiers. Or the lines of a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

using Keys = std::vector<std::string>;

struct KeySet {
  std::string name;
  // At most `count` different keys: fewer where the set has no more.
  std::function<Keys(size_t count)> make;
};

// The sets that need no file.
const std::vector<KeySet> &keySets();

// The first lines of `path` that differ and are not empty; throws std::runtime_error when it cannot
// be read.
KeySet linesOf(const std::string &name, const std::string &path);

// The number `index` of a sequence without repetition that looks random
// (the output function of SplitMix64, a permutation of the 64-bit numbers).
uint64_t scrambled(uint64_t index);

}  // namespace bench
