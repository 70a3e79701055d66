#pragma once

#include <tsl/ordered_map.h>
#include <tsl/robin_map.h>

#include "records_of_map.h"

namespace bench {

// Their iterators show data that can be written through value().
struct TslAccess : StandardAccess {
  template <class Iterator>
  static auto &data(Iterator at) {
    return at.value();
  }
  // An ordered_map's erase moves all later records; unordered_erase gives their order up
  // instead, which no workload needs any more when it removes.
  template <class Container, class Iterator>
  static void erase(Container &from, Iterator at) {
    if constexpr (requires { from.unordered_erase(at); }) {
      from.unordered_erase(at);
    } else {
      from.erase(at);
    }
  }
};

template <template <class Key, class Data, class Hash> class Container>
struct TslMap {
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kMapFamilies;

  template <class Key>
  using Map = StandardMap<Container<Stored<Key>, uint64_t, StandardHash<Key>>, Key, TslAccess>;
  template <class Key>
  using Colliding = StandardMap<Container<Stored<Key>, uint64_t, OneHash>, Key, TslAccess>;
};

template <class Key, class Data, class Hash>
using TslRobin = tsl::robin_map<Key, Data, Hash, std::equal_to<>>;
template <class Key, class Data, class Hash>
using TslOrdered = tsl::ordered_map<Key, Data, Hash, std::equal_to<>>;

struct TslRobinMap : TslMap<TslRobin> {
  static constexpr char name[] = "tsl::robin_map";
};

struct TslOrderedMap : TslMap<TslOrdered> {
  static constexpr char name[] = "tsl::ordered_map";
  static constexpr unsigned does = kMapFamilies | kRecords;

  template <class Key>
  using Records =
      RecordsOfMap<TslOrdered<Stored<Key>, AmountRecords, StandardHash<Key>>, Key, true, TslAccess>;
};

using Contenders = ContenderList<TslRobinMap, TslOrderedMap>;

}  // namespace bench
