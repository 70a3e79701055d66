// Morva through its C++ interface.
#pragma once

#include <array>
#include <cstdio>
#include <stdexcept>

#include "../many.h"
#include "morva/morva.hpp"
#include "records_of_map.h"

namespace bench {

// One for the process.
template <bool HugePages = true>
const morva::extension &tableExtension() {
  static const auto loaded = morva::extension::linked({.huge_pages = HugePages});
  if (!loaded) throw std::runtime_error(std::string(loaded.error().sentence()));
  return *loaded;
}

template <class Result>
auto valueOf(Result result) {
  if (!result) throw std::runtime_error("an operation of Morva failed");
  return *std::move(result);
}

template <class Table, class Options = morva::table_options>
Table makeTable(size_t told, const morva::extension &on = tableExtension()) {
  Options options;
  if (told != 0) options.expected = told;
  return valueOf(Table::make(on, options));
}

template <class Key, class Table, class Options>
class MorvaMap {
 public:
  explicit MorvaMap(size_t told, const morva::extension &on = tableExtension())
      : table_(makeTable<Table, Options>(told, on)) {}

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

 protected:
  Table table_;
};

template <class Key, class TableKey, class... Features>
using MorvaTable =
    MorvaMap<Key, morva::table<TableKey, uint64_t, Features...>, morva::table_options>;

// On a host that asks for no huge pages.
template <class Key, class TableKey>
class MorvaTableOnSmallPages : public MorvaTable<Key, TableKey> {
 public:
  explicit MorvaTableOnSmallPages(size_t told)
      : MorvaTable<Key, TableKey>(told, tableExtension<false>()) {}
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

 protected:
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

struct MorvaTableSmallPages {
  static constexpr char name[] = "morva::table, small pages";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kLatency;

  template <class Key>
  using Map = MorvaTableOnSmallPages<Key, Bounded<Key>>;
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

// ---- many keys at a time ---------------------------------------------------------

inline constexpr size_t kManyKeys = 4096;

template <class Key, class Table, class Options>
class MorvaManyMap : public MorvaMap<Key, Table, Options> {
 public:
  static constexpr size_t many = kManyKeys;
  using MorvaMap<Key, Table, Options>::MorvaMap;

  size_t insertMany(std::span<const Key> keys, std::span<const uint64_t> words) {
    return valueOf(this->table_.insert_many(keys, words));
  }

  template <class Use>
  void lookupMany(std::span<const Key> keys, Use use) const {
    std::array<typename Table::const_cursor, many> found;
    valueOf(this->table_.find_many(keys, found));
    for (size_t i = 0; i < keys.size(); ++i) use(bool{found[i]}, found[i] ? found[i]->data : 0);
  }

  size_t removeMany(std::span<const Key> keys) { return valueOf(this->table_.erase_many(keys)); }
};

// Groups by the running sums of records without data.
template <class Key, class TableKey>
class MorvaManySums {
 public:
  static constexpr size_t many = kManyKeys;

  explicit MorvaManySums(size_t told) : table_(makeTable<Table>(told)) {}

  void accumulateMany(std::span<const Key> keys, std::span<const uint64_t> words) {
    std::array<double, many> amounts;
    for (size_t i = 0; i < keys.size(); ++i) amounts[i] = static_cast<double>(words[i]);
    valueOf(table_.add_to_sum_many(keys, std::span(amounts).first(keys.size()), {}));
  }

  bool lookup(Key key, uint64_t &word) const {
    const auto at = table_.find(key);
    if (!at) return false;
    word = static_cast<uint64_t>(table_.sum(at));
    return true;
  }

 private:
  struct Nothing {};
  using Table = morva::table<TableKey, Nothing, morva::sums>;
  Table table_;
};

template <class Key, class TableKey>
class MorvaManyRecords : public MorvaTableRecords<Key, TableKey> {
  using Single = MorvaTableRecords<Key, TableKey>;
  using Cursor = typename Single::Table::cursor;

 public:
  static constexpr size_t many = kManyKeys;
  using Single::Single;

  void addMany(std::span<const Key> keys, std::span<const AmountRecord> records) {
    valueOf(this->table_.insert_many(keys, records));
  }

  template <class Use>
  void forEachOfMany(std::span<const Key> keys, Use use) {
    for (Cursor at : find(keys)) {
      for (; at; ++at) use(at->data.word);
    }
  }

  template <class Use>
  void sumMany(std::span<const Key> keys, Use use) {
    for (Cursor at : find(keys)) {
      double total = 0;
      for (; at; ++at) total += at->data.amount;
      use(total);
    }
  }

  void removeFirstOfMany(std::span<const Key> keys) {
    for (Cursor at : find(keys)) {
      if (at) valueOf(this->table_.erase(at));
    }
  }

  size_t removeMany(std::span<const Key> keys) { return valueOf(this->table_.erase_many(keys)); }

 private:
  std::span<const Cursor> find(std::span<const Key> keys) {
    valueOf(this->table_.find_many(keys, found_));
    return std::span(found_).first(keys.size());
  }

  std::array<Cursor, many> found_;
};

struct MorvaTableMany {
  static constexpr char name[] = "morva::table, many";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kPoints | kRecords;

  template <class Key>
  using Map = MorvaManyMap<Key, morva::table<Bounded<Key>, uint64_t>, morva::table_options>;
  template <class Key>
  using Records = MorvaManyRecords<Key, Bounded<Key>>;
};

struct MorvaSumsMany {
  static constexpr char name[] = "morva::table sums, many";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kGroups;

  template <class Key>
  using Map = MorvaManySums<Key, Bounded<Key>>;
};

// ---- in parts ----------------------------------------------------------------------

// One table over many, each part with its lock.
struct MorvaPartitionedTable {
  static constexpr char name[] = "morva::partitioned_table";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kPoints | kGroups | kLatency | kThreads;

  template <class Key>
  using Map =
      MorvaMap<Key, morva::partitioned_table<Bounded<Key>, uint64_t>, morva::partition_options>;
  template <class Key>
  using Shared = Map<Key>;
};

struct MorvaPartitionedMany {
  static constexpr char name[] = "morva::partitioned_table, many";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kPoints;

  template <class Key>
  using Map =
      MorvaManyMap<Key, morva::partitioned_table<Bounded<Key>, uint64_t>, morva::partition_options>;
};

using Contenders =
    ContenderList<MorvaTableBounded, MorvaTableSmallPages, MorvaTableAnyText, MorvaTableMany,
                  MorvaSumsMany, MorvaPartitionedTable, MorvaPartitionedMany>;

}  // namespace bench
