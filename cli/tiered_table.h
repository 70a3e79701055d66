// A table with keys of any length, made of instances of the library.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <string_view>

#include "library.h"
#include "morva/inst.h"

namespace morva::cli {

// An instance that keeps sums or several records per key has keys of bounded length. So a table is
// a row of instances, its tiers: the first for keys of up to 16 bytes, each further one for keys
// twice as long, made when the first such key turns up. A key has its place in one tier only.
//
// What a tier cannot know by itself is the order across tiers: the data of a record in a table of
// sums is the number of keys there were before it.
class TieredTable {
 public:
  enum class Kind {
    kSums,  // one record per key, with a running sum
    kRows,  // any number of records per key, each referring to a row
    kKeys,  // keys alone
  };

  // A row that is kept elsewhere, as the data of a record.
  struct Row {
    const char *text;
    uint64_t length;
    uint64_t columns;
  };

  // A place in the records of one key.
  struct Cursor {
    MORVAInst *tier = nullptr;
    void *data = nullptr;

    explicit operator bool() const { return data != nullptr; }
    Row row() const;
  };

  // `inputBytes` is the size of the input that is going to be put in, 0 if unknown; it decides how
  // many buckets there are.
  TieredTable(Library &library, Kind kind, uint64_t inputBytes);
  ~TieredTable();
  TieredTable(const TieredTable &) = delete;
  TieredTable &operator=(const TieredTable &) = delete;

  // kSums and kKeys: how many keys there are.
  uint64_t keys() const { return keys_; }

  // All that add and find may throw OutOfMemory.

  // kSums: adds a number, not a NaN, to the key's sum.
  void addToSum(std::string_view key, double number);

  // kSums: calls visit(key, sum) for every key in the order in which they were added first.
  template <typename Visit>
  void visitSums(Visit visit);

  // kRows: puts a row behind the rows that the key has.
  void addRow(std::string_view key, const Row &row);
  // kRows: the key's first row; a cursor that is false if it has none.
  Cursor findRows(std::string_view key);
  // kRows: on to the key's next row.
  void next(Cursor &cursor);

  // kKeys: true if the key is new.
  bool insert(std::string_view key);

 private:
  static constexpr size_t kFirstTierBits = 4;
  static constexpr size_t kTiers = 27;

  // Goes through the insertion orders of all tiers at once.
  class OrderedWalk {
   public:
    explicit OrderedWalk(TieredTable &table);
    // The record with the lowest number among those not visited; false when there is none.
    bool next(std::string_view &key, double &sum);

   private:
    struct Head {
      MORVAInst *tier;
      OrderNode *node;
      uint64_t number;
    };
    static bool settle(Head &head);

    std::array<Head, kTiers> heads_;
    size_t count_ = 0;
  };

  static size_t tierOf(size_t keyLength) {
    return keyLength <= (size_t{1} << kFirstTierBits)
               ? 0
               : static_cast<size_t>(std::bit_width(keyLength - 1)) - kFirstTierBits;
  }
  MORVAInst *tierFor(std::string_view key) {
    const size_t index = tierOf(key.size());
    return index < kTiers && tiers_[index] != nullptr ? tiers_[index] : makeTier(index);
  }
  MORVAInst *makeTier(size_t index);
  int32_t hashExpFor(size_t index) const;
  int64_t memHint() const;
  void check(MORVAStatus status) const;

  Library &library_;
  Kind kind_;
  uint64_t inputBytes_;
  uint64_t keys_ = 0;
  std::array<MORVAInst *, kTiers> tiers_{};
};

template <typename Visit>
void TieredTable::visitSums(Visit visit) {
  OrderedWalk walk(*this);
  std::string_view key;
  double sum = 0;
  while (walk.next(key, sum)) visit(key, sum);
}

}  // namespace morva::cli
