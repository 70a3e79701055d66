#pragma once

#include <unordered_map>

#include "../workloads/threads.h"
#include "records_of_map.h"

namespace bench {

struct StdUnorderedMap {
  static constexpr char name[] = "std::unordered_map";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kMapFamilies | kRecords | kThreads;

  template <class Key, class Data, class Hash = StandardHash<Key>>
  using Container = std::unordered_map<Stored<Key>, Data, Hash, std::equal_to<>>;

  template <class Key>
  using Map = StandardMap<Container<Key, uint64_t>, Key>;
  template <class Key>
  using Colliding = StandardMap<Container<Key, uint64_t, OneHash>, Key>;
  template <class Key>
  using Records = RecordsOfMap<Container<Key, AmountRecords>, Key, false>;
  template <class Key>
  using Shared = WithMutex<Map<Key>>;
};

using Contenders = ContenderList<StdUnorderedMap>;

}  // namespace bench
