#pragma once

#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/sequenced_index.hpp>
#include <boost/multi_index_container.hpp>
#include <utility>

#include "records_of_map.h"

namespace bench {

// Hashed by the key, and in the order of insertion; with as much of a map's
// interface as the adapters use. Elements can be written but for the key.
template <class Key, class Data, class Hash>
class SequencedMap {
 public:
  struct Element {
    Stored<Key> first;
    mutable Data second;
  };

  void reserve(size_t count) { hashed().reserve(count); }
  size_t size() const { return elements_.size(); }

  template <class KeyArgument>
  auto find(const KeyArgument &key) const {
    return hashed().find(key, Hash(), std::equal_to<>());
  }
  auto end() const { return hashed().end(); }
  auto emplace(Stored<Key> key, Data data) {
    return hashed().insert(Element{std::move(key), std::move(data)});
  }
  template <class Iterator>
  void erase(Iterator at) {
    hashed().erase(at);
  }

  auto &sequence() const { return elements_.template get<1>(); }

 private:
  using Indexes = boost::multi_index::indexed_by<
      boost::multi_index::hashed_unique<
          boost::multi_index::member<Element, Stored<Key>, &Element::first>, Hash, std::equal_to<>>,
      boost::multi_index::sequenced<>>;

  auto &hashed() { return elements_.template get<0>(); }
  auto &hashed() const { return elements_.template get<0>(); }

  boost::multi_index_container<Element, Indexes> elements_;
};

struct SequencedAccess : StandardAccess {
  template <class Container>
  static auto inOrder(Container &all) {
    return StandardAccess::inOrder(all.sequence());
  }
};

struct BoostMultiIndex {
  static constexpr char name[] = "boost::multi_index";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kMapFamilies | kRecords;

  template <class Key>
  using Map = StandardMap<SequencedMap<Key, uint64_t, StandardHash<Key>>, Key>;
  template <class Key>
  using Colliding = StandardMap<SequencedMap<Key, uint64_t, OneHash>, Key>;
  template <class Key>
  using Records =
      RecordsOfMap<SequencedMap<Key, AmountRecords, StandardHash<Key>>, Key, true, SequencedAccess>;
};

using Contenders = ContenderList<BoostMultiIndex>;

}  // namespace bench
