#pragma once

#include <unordered_map>

#include "records_of_map.h"

namespace bench {

// Keeps neither the order of the keys nor that of a key's records.
template <class Key>
class MultimapRecords {
 public:
  static constexpr bool keepsOrder = false;

  explicit MultimapRecords(size_t told) { map_.reserve(told); }

  void add(Key key, uint64_t word, double amount) {
    map_.emplace(Stored<Key>(key), AmountRecord{word, amount});
  }

  template <class Use>
  void forEach(Key key, Use use) {
    const auto [begin, end] = map_.equal_range(key);
    for (auto at = begin; at != end; ++at) use(at->second.word);
  }

  double sum(Key key) {
    double sum = 0;
    const auto [begin, end] = map_.equal_range(key);
    for (auto at = begin; at != end; ++at) sum += at->second.amount;
    return sum;
  }

  void removeFirst(Key key) {
    const auto at = map_.find(key);
    if (at != map_.end()) map_.erase(at);
  }

  size_t removeAll(Key key) {
    const size_t before = map_.size();
    const auto [begin, end] = map_.equal_range(key);
    map_.erase(begin, end);
    return before - map_.size();
  }

 private:
  std::unordered_multimap<Stored<Key>, AmountRecord, StandardHash<Key>, std::equal_to<>> map_;
};

struct StdUnorderedMultimap {
  static constexpr char name[] = "std::unordered_multimap";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kRecords;

  template <class Key>
  using Records = MultimapRecords<Key>;
};

using Contenders = ContenderList<StdUnorderedMultimap>;

}  // namespace bench
