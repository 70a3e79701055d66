// Morva through its C++ interface.
#pragma once

#include <cstdio>
#include <stdexcept>

#include "morva/morva.hpp"
#include "records_of_map.h"

namespace bench {

inline const morva::extension &tableExtension() {
  static const auto loaded = morva::extension::linked();
  if (!loaded) throw std::runtime_error(std::string(loaded.error().sentence()));
  return *loaded;
}

template <class Result>
auto valueOf(Result result) {
  if (!result) throw std::runtime_error("an operation of Morva failed");
  return *std::move(result);
}

template <class Table>
Table makeTable(size_t told) {
  morva::table_options options;
  if (told != 0) options.expected = told;
  return valueOf(Table::make(tableExtension(), options));
}

template <class Key, class TableKey, class... Features>
class MorvaTable {
 public:
  explicit MorvaTable(size_t told) : table_(makeTable<Table>(told)) {}

  bool insert(Key key, uint64_t word) { return valueOf(table_.insert(key, word)); }
  void replace(Key key, uint64_t word) { valueOf(table_.insert_or_assign(key, word)); }
  bool lookup(Key key, uint64_t &word) const {
    const auto at = table_.find(key);
    if (!at) return false;
    word = at->data;
    return true;
  }
  bool remove(Key key) { return valueOf(table_.erase(key)) != 0; }
  size_t size() const { return table_.size(); }

  void accumulate(Key key, uint64_t word) {
    valueOf(table_.find_or_insert(key, 0)).position->data += word;
  }

 private:
  using Table = morva::table<TableKey, uint64_t, Features...>;
  Table table_;
};

template <class Key, class TableKey>
class MorvaTableOneBucket : public MorvaTable<Key, TableKey> {
 public:
  explicit MorvaTableOneBucket(size_t) : MorvaTable<Key, TableKey>(1) {}
};

// The amount is in the data: a sum can be given to a key's first record, not to the one
// just stored.
template <class Key, class TableKey>
class MorvaTableRecords {
 public:
  static constexpr bool keepsOrder = true;

  explicit MorvaTableRecords(size_t told) : table_(makeTable<Table>(told)) {}

  void add(Key key, uint64_t word, double amount) { valueOf(table_.insert(key, {word, amount})); }

  template <class Use>
  void forEach(Key key, Use use) {
    for (auto record : table_.equal_range(key)) use(record.data.word);
  }

  double sum(Key key) {
    double total = 0;
    for (auto record : table_.equal_range(key)) total += record.data.amount;
    return total;
  }

  void removeFirst(Key key) {
    const auto at = table_.find(key);
    if (at) valueOf(table_.erase(at));
  }

  size_t removeAll(Key key) { return valueOf(table_.erase(key)); }

  template <class Use>
  void forAll(Use use) {
    for (auto record : table_) use(record.data.word);
  }

 private:
  using Table = morva::table<TableKey, AmountRecord, morva::ordered, morva::duplicates>;
  Table table_;
};

// Texts of bounded length; numbers as they are.
template <class Key>
using Bounded = std::conditional_t<isText<Key>, morva::text<kLongestText>, Key>;

struct MorvaTableBounded {
  static constexpr char name[] = "morva::table";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kMapFamilies | kRecords | kThreads;

  template <class Key>
  using Map = MorvaTable<Key, Bounded<Key>>;
  template <class Key>
  using Colliding = MorvaTableOneBucket<Key, Bounded<Key>>;
  template <class Key>
  using Records = MorvaTableRecords<Key, Bounded<Key>>;
  template <class Key>
  using Shared = MorvaTable<Key, Bounded<Key>, morva::locked>;
};

struct MorvaTableAnyText {
  static constexpr char name[] = "morva::table, any text";
  template <class Key>
  static constexpr bool takes = isText<Key>;
  static constexpr unsigned does = kMapFamilies;

  template <class Key>
  using Map = MorvaTable<Key, Key>;
  template <class Key>
  using Colliding = MorvaTableOneBucket<Key, Key>;
};

using Contenders = ContenderList<MorvaTableBounded, MorvaTableAnyText>;

}  // namespace bench
