// Long random histories of partitioned tables, compared with the plainest model
// there can be.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "morva/throws.hpp"
#include "tables.h"

namespace cpp_test {
namespace {

using morva::duplicates;
using morva::locked;
using morva::ordered;
using morva::sums;
using morva::throws;

struct Record {
  int data;
  double sum;
};

// The records of each key, and the keys as they first came.
struct Model {
  std::map<int, std::vector<Record>> records;
  std::vector<int> order;

  std::vector<Record> *find(int key) {
    const auto at = records.find(key);
    return at != records.end() ? &at->second : nullptr;
  }
  std::vector<Record> &make(int key) {
    if (records.count(key) == 0) order.push_back(key);
    return records[key];
  }
  void erase(int key) {
    records.erase(key);
    std::erase(order, key);
  }
  void eraseRecord(int key, std::size_t index) {
    auto &chain = records.at(key);
    chain.erase(chain.begin() + static_cast<std::ptrdiff_t>(index));
    if (chain.empty()) erase(key);
  }
  std::size_t size() const {
    std::size_t count = 0;
    for (const auto &[key, chain] : records) count += chain.size();
    return count;
  }
};

template <class Table>
class PartitionedHistories : public ::testing::Test {
 protected:
  using Key = typename Table::key_type;
  using Cursor = typename Table::cursor;
  static constexpr bool kDuplicates = requires(Cursor at) { at.previous(); };
  static constexpr bool kSums = requires(Table table, Cursor at) { table.sum(at); };
  static constexpr bool kOrdered = requires(Table table) { table.in_order(); };
  static constexpr bool kThrows =
      std::is_same_v<decltype(std::declval<Table &>().erase(Cursor())), Cursor>;
  static constexpr int kKeys = 60;

  auto key(int number) { return keyOf<Table>(number); }
  int below(std::size_t limit) { return static_cast<int>(random() % limit); }

  void step() {
    const int number = below(kKeys);
    const auto key = this->key(number);
    const int data = below(1'000'000);
    std::vector<Record> *there = model.find(number);
    switch (below(24)) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4: {
        const bool stored = got(table.insert(key, data));
        ASSERT_EQ(stored, kDuplicates || there == nullptr);
        if (stored) model.make(number).push_back({data, 0.0});
        break;
      }
      case 5:
      case 6: {
        ASSERT_EQ(got(table.insert_or_assign(key, data)), there == nullptr);
        auto &chain = model.make(number);
        if (there == nullptr) chain.push_back({data, 0.0});
        for (Record &record : chain) record.data = data;
        chain.front().sum = 0.0;
        break;
      }
      case 7: {
        auto answer = got(table.find_or_insert(key, data));
        ASSERT_EQ(answer.inserted, there == nullptr);
        if (there == nullptr) model.make(number).push_back({data, 0.0});
        ASSERT_EQ(answer.position->data, model.find(number)->front().data);
        break;
      }
      case 8:
      case 9:
        ASSERT_EQ(got(table.erase(key)), there == nullptr ? 0U : there->size());
        if (there != nullptr) model.erase(number);
        break;
      case 10:
      case 11:
      case 12:
        eraseByCursor(number, key);
        break;
      case 13:
      case 14:
        eraseByIterator();
        break;
      case 15:
      case 16:
      case 17:
        addToSums(number, key, data);
        break;
      case 18:
        if (there != nullptr) {
          const std::size_t index = random() % there->size();
          const auto guard = table.lock(key);
          std::next(table.find(key), static_cast<int>(index))->data = data;
          (*there)[index].data = data;
        }
        break;
      case 19:
        if (below(40) == 0) clear();
        break;
      case 20:
        if (below(20) == 0) eraseByCondition();
        break;
      case 21:
        insertRange(data);
        break;
      case 22:
        index(number, key, data);
        break;
      default:
        lookUp(number, key);
        break;
    }
  }

  template <class Argument>
  void lookUp(int number, const Argument &key) {
    const std::vector<Record> *there = model.find(number);
    ASSERT_EQ(std::as_const(table).contains(key), there != nullptr);
    ASSERT_EQ(table.count(key), there == nullptr ? 0U : there->size());
    std::vector<int> expected;
    if (there != nullptr) {
      for (const Record &record : *there) expected.push_back(record.data);
    }
    ASSERT_EQ(chainOf(table, key), expected);
    auto reader = table.reader();
    ASSERT_EQ(reader.contains(key), there != nullptr);
    ASSERT_EQ(reader.find(key), table.find(key));
    if constexpr (kSums) {
      ASSERT_EQ(table.sum(key), there == nullptr ? 0.0 : there->front().sum);
      ASSERT_EQ(reader.sum(key), table.sum(key));
    }
    if (there != nullptr) {
      ASSERT_EQ(got(std::as_const(table).at(key)), there->front().data);
    } else if constexpr (kThrows) {
      ASSERT_THROW(table.at(key), std::out_of_range);
    } else {
      ASSERT_EQ(table.at(key).error(), morva::errc::not_found);
    }
  }

  template <class Argument>
  void index(int number, const Argument &key, int data) {
    if constexpr (kThrows) {
      if (model.find(number) == nullptr) model.make(number).push_back({0, 0.0});
      table[key] += data % 100;
      model.find(number)->front().data += data % 100;
    }
  }

  void insertRange(int data) {
    using Argument = decltype(this->key(0));
    std::vector<std::pair<Argument, int>> pairs;
    std::size_t stored = 0;
    for (int i = 0; i < 3; ++i) {
      const int number = below(kKeys);
      pairs.emplace_back(key(number), data + i);
      if (!kDuplicates && model.find(number) != nullptr) continue;
      model.make(number).push_back({data + i, 0.0});
      ++stored;
    }
    ASSERT_EQ(got(table.insert_range(pairs)), stored);
  }

  template <class Argument>
  void eraseByCursor(int number, const Argument &key) {
    std::vector<Record> *there = model.find(number);
    if (there == nullptr) return;
    const std::size_t index = random() % there->size();
    const Cursor at = std::next(table.find(key), static_cast<int>(index));
    const auto next =
        below(2) == 0 ? got(table.erase(at)) : got(table.erase(typename Table::const_cursor(at)));
    ASSERT_EQ(static_cast<bool>(next), index + 1 < there->size());
    if (next) {
      ASSERT_EQ(next->data, (*there)[index + 1].data);
    }
    model.eraseRecord(number, index);
  }

  // Goes through a part of the table, and takes some of it out.
  void eraseByIterator() {
    auto at = table.begin();
    std::advance(at, random() % (table.size() + 1));
    for (int i = 0; i < 5 && at != table.end(); ++i) {
      if (below(3) != 0) {
        ++at;
        continue;
      }
      const int number = KeyKind<Key>::number(at->key);
      std::size_t index = 0;
      if constexpr (kDuplicates) {
        Cursor before = at;
        while ((before = before.previous())) ++index;
      }
      const auto next = std::next(at);
      const bool mayMove = kDuplicates && index == 0;
      at = below(2) == 0 ? got(table.erase(at))
                         : got(table.erase(typename Table::const_iterator(at)));
      if (!mayMove) {
        ASSERT_EQ(at, next);
      }
      model.eraseRecord(number, index);
    }
  }

  void eraseByCondition() {
    const int limit = below(1'000'000);
    const auto small = [limit](const auto &record) { return record.data < limit / 4; };
    std::size_t count = 0;
    for (auto &[key, chain] : model.records) count += std::erase_if(chain, small);
    std::erase_if(model.order, [&](int key) { return model.records.at(key).empty(); });
    std::erase_if(model.records, [](const auto &of) { return of.second.empty(); });
    ASSERT_EQ(got(erase_if(table, small)), count);
  }

  template <class Argument>
  void addToSums(int number, const Argument &key, int data) {
    if constexpr (kSums) {
      std::vector<Record> *there = model.find(number);
      const double amount = below(1000) - 500;
      if (there == nullptr) {
        if constexpr (!kThrows) {
          ASSERT_EQ(table.add_to_sum(key, amount).error(), morva::errc::not_found);
        }
        ASSERT_EQ(got(table.add_to_sum(key, amount, data)), amount);
        model.make(number).push_back({data, amount});
        return;
      }
      const std::size_t index = random() % there->size();
      const auto at = std::next(table.find(key), static_cast<int>(index));
      (*there)[index].sum += amount;
      ASSERT_EQ(got(table.add_to_sum(at, amount)), (*there)[index].sum);
      there->front().sum += amount;
      ASSERT_EQ(got(table.add_to_sum(key, amount, data)), there->front().sum);
      there->front().sum += 1;
      ASSERT_EQ(got(table.add_to_sum(key, 1)), there->front().sum);
    }
  }

  void clear() {
    if (below(2) == 0) {
      table.clear();
    } else {
      table.clear_keeping_memory();
    }
    model = {};
  }

  using Row = std::tuple<int, int, double>;

  Row rowOf(typename Table::const_cursor at) const {
    double sum = 0;
    if constexpr (kSums) sum = table.sum(at);
    return {KeyKind<Key>::number(at->key), at->data, sum};
  }

  void appendChain(std::vector<Row> &rows, int key) {
    for (const Record &record : model.records.at(key)) {
      rows.emplace_back(key, record.data, record.sum);
    }
  }

  void compare() {
    ASSERT_EQ(table.size(), model.size());
    ASSERT_EQ(table.empty(), model.records.empty());
    std::vector<Row> expected;
    for (const auto &of : model.records) appendChain(expected, of.first);
    const auto byKey = [](const Row &a, const Row &b) { return std::get<0>(a) < std::get<0>(b); };

    std::vector<Row> walked;
    for (auto at = table.cbegin(); at != table.cend(); ++at) walked.push_back(rowOf(at));
    std::vector<Row> parts;
    for (std::size_t i = 0; i < table.parts(); ++i) {
      for (auto at = std::as_const(table).begin(i); at != table.cend(i); ++at) {
        parts.push_back(rowOf(at));
        ASSERT_EQ(table.part_of(key(std::get<0>(parts.back()))), i);
      }
    }
    ASSERT_EQ(walked, parts);
    std::stable_sort(walked.begin(), walked.end(), byKey);
    ASSERT_EQ(walked, expected);
    if constexpr (kOrdered) compareOrder();
  }

  void compareOrder() {
    std::vector<Row> expected;
    for (const int key : model.order) appendChain(expected, key);
    const auto all = table.lock();
    std::vector<Row> walked;
    auto walk = got(std::as_const(table).in_order());
    for (auto at = walk.begin(); at != walk.end(); ++at) walked.push_back(rowOf(at));
    ASSERT_EQ(walked, expected);
  }

  // A table of the same contents that was made in another way.
  void compareWithCopy() {
    const std::size_t parts = std::size_t{1} << below(5);
    auto copy = got(
        Table::make(library, {.expected = static_cast<std::uint64_t>(below(500)), .parts = parts}));
    for (auto number = model.order.rbegin(); number != model.order.rend(); ++number) {
      const auto key = this->key(*number);
      for (const Record &record : model.records.at(*number)) {
        ASSERT_TRUE(got(copy.insert(key, record.data)));
        if constexpr (kSums) {
          const auto last = std::next(copy.find(key), static_cast<int>(copy.count(key)) - 1);
          got(copy.add_to_sum(last, record.sum));
        }
      }
    }
    ASSERT_TRUE(table == copy);
    ASSERT_TRUE(copy == table);
    if (table.empty()) return;
    const auto any = std::next(copy.begin(), below(copy.size()));
    any->data += 1;
    ASSERT_FALSE(table == copy);
    any->data -= 1;
    got(copy.erase(any));
    ASSERT_FALSE(table == copy);
    ASSERT_FALSE(copy == table);
  }

  void live(const morva::partition_options &options, int steps) {
    table = got(Table::make(library, options));
    ASSERT_EQ(table.parts(), options.parts);
    model = {};
    for (int n = 1; n <= steps; ++n) {
      SCOPED_TRACE(::testing::Message() << options.parts << " parts, step " << n);
      step();
      if (this->HasFatalFailure()) return;
      if (n % 100 == 0) compare();
      if (n % 500 == 0) compareWithCopy();
      if (this->HasFatalFailure()) return;
    }
  }

  std::mt19937_64 random{testSeed()};
  morva::extension library = linkedLibrary();
  Table table;
  Model model;
};

template <class Key, class... Features>
using Parted = morva::partitioned_table<Key, int, Features...>;
// Every combination of what makes a difference to how records are kept, and every kind of key.
using Tables =
    ::testing::Types<Parted<std::uint64_t>, Parted<std::string_view>,
                     Parted<std::string, throws, ordered>,
                     Parted<std::uint64_t, duplicates, locked>, Parted<std::uint32_t, sums>,
                     Parted<SaleKey, ordered, duplicates>, Parted<std::uint64_t, ordered, sums>,
                     Parted<morva::text<20>, duplicates, sums>,
                     Parted<std::uint32_t, throws, sums, locked, duplicates, ordered>>;
TYPED_TEST_SUITE(PartitionedHistories, Tables);

TYPED_TEST(PartitionedHistories, AgreeWithTheModel) {
  SCOPED_TRACE(::testing::Message() << "MORVA_TEST_SEED=" << testSeed());
  this->live({.expected = 1, .parts = 1}, 1500);
  if (this->HasFatalFailure()) return;
  this->live({.expected = 16, .hash = morva::hash_method::lookup2, .parts = 8}, 3000);
  if (this->HasFatalFailure()) return;
  this->live({.expected = 4096, .memory_hint = 64, .parts = 128}, 1500);
}

}  // namespace
}  // namespace cpp_test
