// Contenders that take many keys at a time.
//
//   static constexpr size_t many        the most keys it is given at once
//   insertMany(keys, words)             answers how many were stored
//   lookupMany(keys, use)               calls use(there, word) for each key in turn
//   removeMany(keys)                    answers how many there were
//   accumulateMany(keys, words)
#pragma once

#include <algorithm>
#include <span>
#include <vector>

namespace bench {

template <class Map>
concept TakesMany = Map::many >
0;

// Calls use(keys, place) for the keys from `first` on, so many of them at once.
// Where they do not lie side by side as the contender takes them, that they are
// brought together is part of the price.
template <class Map, class Keys, class Use>
void inPortions(const Keys &keys, size_t first, size_t count, Use use) {
  if constexpr (requires { keys.row(first, count); }) {
    for (size_t place = first; place < first + count; place += Map::many) {
      use(keys.row(place, std::min(Map::many, first + count - place)), place);
    }
    return;
  }
  std::vector<typename Keys::Key> some;
  some.reserve(Map::many);
  for (size_t place = first; place != first + count; place += some.size()) {
    const size_t size = std::min(Map::many, first + count - place);
    some.clear();
    for (size_t i = 0; i < size; ++i) some.push_back(keys[place + i]);
    use(std::span<const typename Keys::Key>(some), place);
  }
}

}  // namespace bench
