// Several records per key for peers that have none: a map from the key to a
// vector of records.
#pragma once

#include <vector>

#include "standard_map.h"

namespace bench {

struct AmountRecord {
  uint64_t word;
  double amount;
};

using AmountRecords = std::vector<AmountRecord>;

template <class Container, class Key, bool KeepsOrder, class Access = StandardAccess>
class RecordsOfMap {
 public:
  static constexpr bool keepsOrder = KeepsOrder;

  explicit RecordsOfMap(size_t told) { map_.reserve(told); }

  void add(Key key, uint64_t word, double amount) {
    auto at = map_.find(key);
    if (at == map_.end()) at = map_.emplace(Stored<Key>(key), AmountRecords()).first;
    Access::data(at).push_back({word, amount});
  }

  template <class Use>
  void forEach(Key key, Use use) {
    const auto at = map_.find(key);
    if (at == map_.end()) return;
    for (const AmountRecord &record : Access::data(at)) use(record.word);
  }

  double sum(Key key) {
    double sum = 0;
    const auto at = map_.find(key);
    if (at == map_.end()) return sum;
    for (const AmountRecord &record : Access::data(at)) sum += record.amount;
    return sum;
  }

  void removeFirst(Key key) {
    const auto at = map_.find(key);
    if (at == map_.end()) return;
    AmountRecords &records = Access::data(at);
    records.erase(records.begin());
    if (records.empty()) Access::erase(map_, at);
  }

  size_t removeAll(Key key) {
    const auto at = map_.find(key);
    if (at == map_.end()) return 0;
    const size_t count = Access::data(at).size();
    Access::erase(map_, at);
    return count;
  }

  template <class Use>
  void forAll(Use use) {
    const auto [begin, end] = Access::inOrder(map_);
    for (auto at = begin; at != end; ++at) {
      for (const AmountRecord &record : Access::data(at)) use(record.word);
    }
  }

 private:
  Container map_;
};

}  // namespace bench
