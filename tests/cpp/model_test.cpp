// Long random histories, compared with the plainest model there can be.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tables.h"

namespace cpp_test {
namespace {

struct Record {
  int data;
  double sum;
};

// Keys in the order of their first insertion, each with its records.
class Model {
 public:
  struct Chain {
    int key;
    std::vector<Record> records;
  };

  std::vector<Record> *find(int key) {
    const auto at = std::find_if(chains.begin(), chains.end(),
                                 [key](const Chain &chain) { return chain.key == key; });
    return at != chains.end() ? &at->records : nullptr;
  }

  std::vector<Record> &make(int key) {
    if (auto *records = find(key)) return *records;
    return chains.emplace_back(Chain{key, {}}).records;
  }

  void erase(int key) {
    std::erase_if(chains, [key](const Chain &chain) { return chain.key == key; });
  }

  void eraseRecord(int key, std::size_t index) {
    auto &records = *find(key);
    records.erase(records.begin() + static_cast<std::ptrdiff_t>(index));
    if (records.empty()) erase(key);
  }

  std::size_t size() const {
    std::size_t count = 0;
    for (const Chain &chain : chains) count += chain.records.size();
    return count;
  }

  std::vector<Chain> chains;
};

// Rows that differ in ways the key must see, and must not see.
auto keyFor(const SaleKey *, int number, std::mt19937_64 &random) {
  Sale sale = KeyKind<SaleKey>::make(number);
  // Behind the NUL and in further members anything may be.
  const std::size_t used = std::string_view(sale.region).size() + 1;
  for (std::size_t i = used; i < sizeof sale.region; ++i) {
    sale.region[i] = static_cast<char>(random());
  }
  if (number == 0) sale.price = random() % 2 == 0 ? 0.0 : -0.0;
  sale.note = std::to_string(random());
  return sale;
}
template <class Key>
auto keyFor(const Key *, int number, std::mt19937_64 &) {
  return KeyKind<Key>::make(number);
}

template <class Table>
class Histories : public ::testing::Test {
 protected:
  using Key = typename Table::key_type;
  static constexpr bool kDuplicates = requires(typename Table::cursor at) { at.previous(); };
  static constexpr bool kSums = requires(Table table, typename Table::cursor at) { table.sum(at); };
  static constexpr int kKeys = 60;

  auto key(int number) { return keyFor(static_cast<const Key *>(nullptr), number, random); }
  int below(std::size_t limit) { return static_cast<int>(random() % limit); }

  void step() {
    const int number = below(kKeys);
    const auto key = this->key(number);
    const int data = below(1'000'000);
    std::vector<Record> *there = model.find(number);
    switch (below(22)) {
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
        auto &records = model.make(number);
        if (there == nullptr) records.push_back({data, 0.0});
        for (Record &record : records) record.data = data;
        records.front().sum = 0.0;
        break;
      }
      case 7: {
        const auto answer = got(table.find_or_insert(key, data));
        ASSERT_EQ(answer.inserted, there == nullptr);
        if (there == nullptr) model.make(number).push_back({data, 0.0});
        ASSERT_EQ(answer.position->data, model.find(number)->front().data);
        break;
      }
      case 8:
      case 9: {
        ASSERT_EQ(got(table.erase(key)), there == nullptr ? 0U : there->size());
        if (there != nullptr) model.erase(number);
        break;
      }
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
      default:
        ASSERT_EQ(std::as_const(table).contains(key), there != nullptr);
        ASSERT_EQ(table.count(key), there == nullptr ? 0U : there->size());
        break;
    }
  }

  template <class Argument>
  void eraseByCursor(int number, const Argument &key) {
    std::vector<Record> *there = model.find(number);
    if (there == nullptr) return;
    const std::size_t index = random() % there->size();
    const auto next = got(table.erase(std::next(table.find(key), static_cast<int>(index))));
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
        typename Table::cursor before = at;
        while ((before = before.previous())) ++index;
      }
      at = got(table.erase(at));
      model.eraseRecord(number, index);
    }
  }

  void eraseByCondition() {
    const int limit = below(1'000'000);
    const auto small = [limit](const auto &record) { return record.data < limit / 4; };
    std::size_t count = 0;
    for (Model::Chain &chain : model.chains) count += std::erase_if(chain.records, small);
    std::erase_if(model.chains, [](const Model::Chain &chain) { return chain.records.empty(); });
    ASSERT_EQ(got(erase_if(table, small)), count);
  }

  template <class Argument>
  void addToSums(int number, const Argument &key, int data) {
    if constexpr (kSums) {
      std::vector<Record> *there = model.find(number);
      const double amount = below(1000) - 500;
      if (there == nullptr) {
        ASSERT_FALSE(table.add_to_sum(key, amount));
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
      ASSERT_EQ(table.sum(key), there->front().sum);
    }
  }

  void clear() {
    if (below(2) == 0) {
      table.clear();
    } else {
      table.clear_keeping_memory();
    }
    model.chains.clear();
  }

  using Row = std::tuple<int, int, double>;

  Row rowOf(typename Table::const_iterator at) const {
    double sum = 0;
    if constexpr (kSums) sum = table.sum(at);
    return {KeyKind<Key>::number(at->key), at->data, sum};
  }

  void compare(bool ordered) {
    ASSERT_EQ(table.size(), model.size());
    std::vector<Row> walked;
    for (auto at = table.cbegin(); at != table.cend(); ++at) walked.push_back(rowOf(at));
    std::vector<Row> expected;
    for (const Model::Chain &chain : model.chains) {
      for (const Record &record : chain.records) {
        expected.emplace_back(chain.key, record.data, record.sum);
      }
    }
    const auto byKey = [](const Row &a, const Row &b) { return std::get<0>(a) < std::get<0>(b); };
    if (!ordered) {
      std::stable_sort(walked.begin(), walked.end(), byKey);
      std::stable_sort(expected.begin(), expected.end(), byKey);
    }
    ASSERT_EQ(walked, expected);
    for (int number = 0; number < kKeys; ++number) {
      const auto *records = model.find(number);
      ASSERT_EQ(table.reader().contains(key(number)), records != nullptr) << number;
    }
  }

  // A table of the same contents that was made in another way.
  void compareWithCopy() {
    const morva::hash_method method{static_cast<std::int32_t>(2 + below(8))};
    auto copy = got(
        Table::make(library, {.expected = static_cast<std::uint64_t>(below(500)), .hash = method}));
    for (auto chain = model.chains.rbegin(); chain != model.chains.rend(); ++chain) {
      const auto key = this->key(chain->key);
      for (const Record &record : chain->records) {
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

  void live(const morva::table_options &options, bool ordered, int steps) {
    table = got(Table::make(library, options));
    model = {};
    for (int n = 1; n <= steps; ++n) {
      SCOPED_TRACE(::testing::Message() << "step " << n);
      step();
      if (this->HasFatalFailure()) return;
      if (n % 100 == 0) compare(ordered);
      if (n % 500 == 0) compareWithCopy();
      if (this->HasFatalFailure()) return;
    }
  }

  std::mt19937_64 random{testSeed()};
  morva::extension library = linkedLibrary();
  Table table;
  Model model;
};

template <class Table>
struct WalksInOrder : std::false_type {};
template <class Key, class Data, class... Features>
struct WalksInOrder<morva::table<Key, Data, Features...>>
    : std::bool_constant<(std::is_same_v<morva::ordered, Features> || ...)> {};

using Tables = ::testing::Types<
    morva::table<std::uint32_t, int>,
    morva::table<std::uint32_t, int, morva::ordered, morva::duplicates, morva::sums>,
    morva::table<std::uint64_t, int, morva::duplicates, morva::locked>,
    morva::table<morva::text<8>, int, morva::ordered>,
    morva::table<morva::text<20>, int, morva::duplicates, morva::sums, morva::ordered>,
    morva::table<std::string_view, int>,
    morva::table<std::string_view, int, morva::ordered, morva::locked>, morva::table<SaleKey, int>,
    morva::table<SaleKey, int, morva::ordered, morva::duplicates, morva::sums, morva::locked>>;
TYPED_TEST_SUITE(Histories, Tables);

TYPED_TEST(Histories, AgreeWithTheModel) {
  SCOPED_TRACE(::testing::Message() << "MORVA_TEST_SEED=" << testSeed());
  constexpr bool ordered = WalksInOrder<TypeParam>::value;
  this->live({.expected = 1}, ordered, 4000);
  if (this->HasFatalFailure()) return;
  this->live({.expected = 16, .hash = morva::hash_method::lookup2, .memory_hint = 64}, ordered,
             4000);
  if (this->HasFatalFailure()) return;
  this->live({.expected = 4096}, ordered, 4000);
}

}  // namespace
}  // namespace cpp_test
