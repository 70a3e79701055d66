#pragma once

#include <boost/container_hash/hash.hpp>
#include <boost/unordered/unordered_flat_map.hpp>

#include "../workloads/threads.h"
#include "records_of_map.h"

namespace bench {

struct BoostTextHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const { return boost::hash<std::string_view>()(text); }
};

struct BoostFlatMap {
  static constexpr char name[] = "boost::unordered_flat_map";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kMapFamilies | kRecords | kThreads;

  template <class Key>
  using OwnHash = std::conditional_t<isText<Key>, BoostTextHash, boost::hash<Key>>;
  template <class Key, class Data, class Hash = OwnHash<Key>>
  using Container = boost::unordered_flat_map<Stored<Key>, Data, Hash, std::equal_to<>>;

  template <class Key>
  using Map = StandardMap<Container<Key, uint64_t>, Key>;
  template <class Key>
  using Colliding = StandardMap<Container<Key, uint64_t, OneHash>, Key>;
  template <class Key>
  using Records = RecordsOfMap<Container<Key, AmountRecords>, Key, false>;
  template <class Key>
  using Shared = WithMutex<Map<Key>>;
};

using Contenders = ContenderList<BoostFlatMap>;

}  // namespace bench
