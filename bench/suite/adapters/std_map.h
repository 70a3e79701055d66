#pragma once

#include <map>

#include "standard_map.h"

namespace bench {

struct StdMap {
  static constexpr char name[] = "std::map";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kMapFamilies;

  template <class Key>
  using Map = StandardMap<std::map<Stored<Key>, uint64_t, std::less<>>, Key>;
  // It has no buckets: all keys are as good as any.
  template <class Key>
  using Colliding = Map<Key>;
};

using Contenders = ContenderList<StdMap>;

}  // namespace bench
