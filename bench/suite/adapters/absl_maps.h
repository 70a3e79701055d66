#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/container/node_hash_map.h>
#include <absl/strings/string_view.h>

#include "../workloads/threads.h"
#include "records_of_map.h"

namespace bench {

// Its own hash of texts, for the standard's views of them.
struct AbslTextHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const {
    return absl::Hash<absl::string_view>()(absl::string_view(text.data(), text.size()));
  }
};

template <class Key>
using AbslHash = std::conditional_t<isText<Key>, AbslTextHash, absl::Hash<Key>>;

template <template <class Key, class Data, class Hash> class Container>
struct AbslMap {
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kMapFamilies;

  template <class Key>
  using Map = StandardMap<Container<Stored<Key>, uint64_t, AbslHash<Key>>, Key>;
  template <class Key>
  using Colliding = StandardMap<Container<Stored<Key>, uint64_t, OneHash>, Key>;
};

template <class Key, class Data, class Hash>
using AbslFlat = absl::flat_hash_map<Key, Data, Hash, std::equal_to<>>;
template <class Key, class Data, class Hash>
using AbslNode = absl::node_hash_map<Key, Data, Hash, std::equal_to<>>;

struct AbslFlatHashMap : AbslMap<AbslFlat> {
  static constexpr char name[] = "absl::flat_hash_map";
  static constexpr unsigned does = kMapFamilies | kRecords | kThreads;

  template <class Key>
  using Records = RecordsOfMap<AbslFlat<Stored<Key>, AmountRecords, AbslHash<Key>>, Key, false>;
  template <class Key>
  using Shared = WithMutex<Map<Key>>;
};

struct AbslNodeHashMap : AbslMap<AbslNode> {
  static constexpr char name[] = "absl::node_hash_map";
};

using Contenders = ContenderList<AbslFlatHashMap, AbslNodeHashMap>;

}  // namespace bench
