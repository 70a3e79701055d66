// Lookups in trees that the table walks itself, against MORVAFind2.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "tables.h"

namespace cpp_test {

struct Pair {
  std::uint32_t a;
  std::uint16_t b;
  std::uint16_t c;
  std::uint32_t d;
};
template <>
struct KeyKind<Pair> {
  static Pair make(int number) {
    const auto n = static_cast<std::uint32_t>(number);
    return {0x01010101, static_cast<std::uint16_t>(n / 100), static_cast<std::uint16_t>(n), n * 5};
  }
};

namespace {

using morva::hash_method;

constexpr std::int32_t kFirstMethod = 2;
constexpr std::int32_t kLastMethod = 9;

// What MORVAFind2 finds of a key, as the operations take it.
void *findTwo(MORVAInst *inst, const void *key, std::size_t length) {
  const std::size_t area = std::max<std::size_t>(inst->keyLength, length) + 32;
  const auto room = std::make_unique<std::uint64_t[]>((sizeof(RecordNode) + area + 15) / 8);
  void *data = room.get();
  EXPECT_EQ(inst->Find2(inst, key, static_cast<std::int32_t>(length),
                        reinterpret_cast<RecordNode *>(room.get()), &data),
            MORVA_OK);
  return data;
}
void *findTwo(MORVAInst *inst, const std::string &key) {
  return findTwo(inst, key.data(), key.size());
}
template <class Key>
void *findTwo(MORVAInst *inst, const Key &key) {
  return findTwo(inst, &key, sizeof(Key));
}

template <class Table>
class Lookups : public ::testing::Test {
 protected:
  using Key = decltype(keyOf<Table>(0));
  static constexpr int kKeys = 700;

  void expectSame(Table &table) {
    std::vector<Key> keys;
    for (int i = 0; i < 500; ++i) keys.push_back(keyOf<Table>(below(kKeys + kKeys / 2)));
    std::vector<typename Table::cursor> found(keys.size());
    const std::size_t many = got(table.find_many(keys, found));
    auto reader = table.reader();
    std::size_t count = 0;
    for (std::size_t i = 0; i < keys.size(); ++i) {
      const Key &key = keys[i];
      const void *data = findTwo(table.native(), key);
      const auto at = table.find(key);
      const auto read = reader.find(key);
      ASSERT_EQ(at ? &at->data : nullptr, data) << i;
      ASSERT_EQ(read ? &read->data : nullptr, data) << i;
      ASSERT_EQ(found[i] ? &found[i]->data : nullptr, data) << i;
      ASSERT_EQ(std::as_const(table).contains(key), data != nullptr) << i;
      count += data != nullptr;
    }
    ASSERT_EQ(many, count);
    ASSERT_GT(count, 0U);
    ASSERT_LT(count, keys.size());
  }

  int below(int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }

  void live(const morva::extension &library) {
    for (std::int32_t method = kFirstMethod; method <= kLastMethod; ++method) {
      for (const std::uint64_t expected : {1U, 64U}) {
        SCOPED_TRACE(::testing::Message() << "method " << method << ", " << expected << " buckets");
        auto table = got(
            Table::make(library, {.expected = expected, .hash = static_cast<hash_method>(method)}));
        ASSERT_EQ(table.native()->hashMethod, static_cast<std::uint32_t>(method));
        for (int i = 0; i < kKeys; ++i) got(table.insert(keyOf<Table>(below(kKeys)), i));
        expectSame(table);
        for (int i = 0; i < kKeys / 2; ++i) got(table.erase(keyOf<Table>(below(kKeys))));
        expectSame(table);
        if (this->HasFatalFailure()) return;
      }
    }
  }

  std::mt19937_64 random{testSeed()};
};

using Tables =
    ::testing::Types<morva::table<std::uint64_t, int>, morva::table<std::uint32_t, int>,
                     morva::table<Pair, int, morva::duplicates>,
                     morva::table<morva::text<24>, int, morva::sums>,
                     morva::table<std::string_view, int>,
                     morva::table<SaleKey, int, morva::ordered, morva::duplicates, morva::sums>>;
TYPED_TEST_SUITE(Lookups, Tables);

TYPED_TEST(Lookups, FindWhatTheLibraryFinds) {
  this->live(morva::extension::linked().value());
}

TYPED_TEST(Lookups, FindWhatTheLibraryFindsWhereTreesAreLocked) {
  this->live(morva::extension::linked({.locked_trees = true}).value());
}

// ---- Keys of other lengths than the table's ---------------------------------------

// Through the C interface a fixed key may be shorter, and up to 4 bytes longer.
TEST(KeysOfOtherLengths, AreBesideTheTablesOwnAndNeverThemselves) {
  using Table = morva::table<std::uint64_t, int>;
  const auto library = linkedLibrary();
  for (std::int32_t method = kFirstMethod; method <= kLastMethod; ++method) {
    SCOPED_TRACE(method);
    auto table =
        Table::make(library, {.expected = 1, .hash = static_cast<hash_method>(method)}).value();
    MORVAInst *inst = table.native();
    std::mt19937_64 random(testSeed());
    std::set<std::string> keys;
    for (int i = 0; i < 600; ++i) {
      std::string key(random() % 13, '\0');
      for (char &byte : key) byte = static_cast<char>(random() % 3 * 127);
      const bool isNew = keys.insert(key).second;
      const int data = i;
      ASSERT_EQ(inst->Add(inst, &data, key.data(), static_cast<std::int32_t>(key.size())),
                isNew ? MORVA_OK : MORVA_PRESENT);
    }
    std::vector<std::uint64_t> numbers;
    for (int i = 0; i < 400; ++i) {
      std::string key(8, '\0');
      for (char &byte : key) byte = static_cast<char>(random() % 3 * 127);
      std::uint64_t number;
      std::memcpy(&number, key.data(), sizeof number);
      numbers.push_back(number);
      ASSERT_EQ(table.contains(number), keys.count(key) != 0);
      const auto at = table.find(number);
      ASSERT_EQ(at ? &at->data : nullptr, findTwo(inst, number));
    }
    std::vector<Table::cursor> found(numbers.size());
    ASSERT_TRUE(table.find_many(numbers, found));
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      ASSERT_TRUE(found[i] == table.find(numbers[i])) << i;
      ASSERT_TRUE(!found[i] || found[i]->key == numbers[i]) << i;
    }
    // Taking the table's own away leaves the others.
    std::size_t own = 0;
    for (const std::string &key : keys) own += key.size() == 8;
    const std::set<std::uint64_t> distinct(numbers.begin(), numbers.end());
    std::size_t there = 0;
    for (const std::uint64_t number : distinct) there += table.contains(number);
    ASSERT_EQ(table.erase_many(numbers).value(), there);
    ASSERT_LE(there, own);
    ASSERT_EQ(table.size(), keys.size() - there);
    for (const std::string &key : keys) {
      if (key.size() != 8) {
        ASSERT_NE(findTwo(inst, key), nullptr);
      }
    }
  }
}

TEST(KeysOfOtherLengths, OfAnEmptyKeyAndTheShortestNumber) {
  using Table = morva::table<std::uint8_t, int>;
  auto table = Table::make(linkedLibrary(), {.expected = 1}).value();
  MORVAInst *inst = table.native();
  const int data = 1;
  ASSERT_EQ(inst->Add(inst, &data, nullptr, 0), MORVA_OK);
  ASSERT_EQ(inst->Add(inst, &data, "\0\0", 2), MORVA_OK);
  EXPECT_FALSE(table.contains(0));
  ASSERT_TRUE(table.insert(0, 5).value());
  EXPECT_EQ(table.find(0)->data, 5);
  EXPECT_EQ(table.size(), 3U);
}

// ---- The order of keys ---------------------------------------------------------------

// In one bucket, a walk shows the order: the shorter key first, then by bytes.
template <class Table>
void expectOrderByLength() {
  auto table = Table::make(linkedLibrary(), {.expected = 1}).value();
  ASSERT_EQ(table.bucket_count(), 1U);
  std::mt19937_64 random(testSeed());
  std::set<std::string> keys;
  for (int i = 0; i < 800; ++i) {
    std::string key(random() % 41, 'a');
    // Equal but for a few bytes, high ones among them.
    for (int change = 0; change < 2 && !key.empty(); ++change) {
      key[random() % key.size()] = static_cast<char>(random());
    }
    ASSERT_EQ(table.insert(key, i).value(), keys.insert(key).second);
  }
  std::vector<std::string> expected(keys.begin(), keys.end());
  std::sort(expected.begin(), expected.end(), [](const std::string &a, const std::string &b) {
    return a.size() != b.size() ? a.size() < b.size()
                                : std::memcmp(a.data(), b.data(), a.size()) < 0;
  });
  std::vector<std::string> walked;
  for (const auto entry : table) walked.emplace_back(entry.key);
  ASSERT_EQ(walked, expected);
  const auto there = std::make_unique<bool[]>(expected.size());
  EXPECT_EQ(table.contains_many(expected, {there.get(), expected.size()}).value(), expected.size());
  for (std::string &key : expected) {
    ASSERT_TRUE(table.contains(key));
    // Something that is not there beside everything that is.
    key.push_back('\0');
    ASSERT_EQ(table.contains(key), keys.count(key) != 0);
    key.pop_back();
    if (!key.empty()) {
      key.back() = static_cast<char>(key.back() + 1);
      ASSERT_EQ(table.contains(key), keys.count(key) != 0);
    }
  }
}

TEST(KeyOrder, IsByLengthFirst) {
  expectOrderByLength<morva::table<morva::text<40>, int>>();
  expectOrderByLength<morva::table<std::string_view, int>>();
}

// ---- Erasing without looking first -----------------------------------------------------

template <class Table>
void expectNothingToErase() {
  auto table = Table::make(linkedLibrary(), {.expected = 4}).value();
  for (int i = 0; i < 40; ++i) ASSERT_EQ(table.erase(keyOf<Table>(i)).value(), 0U);
  ASSERT_TRUE(table.empty());
  // A key that is not there costs no memory that one that is there does not.
  const std::uint64_t before = table.memory();
  for (int i = 0; i < 40; ++i) ASSERT_EQ(table.erase(keyOf<Table>(i)).value(), 0U);
  EXPECT_EQ(table.memory(), before);
  for (int i = 0; i < 40; ++i) ASSERT_TRUE(table.insert(keyOf<Table>(i), i).value());
  for (int i = 0; i < 80; ++i) {
    ASSERT_EQ(table.erase(keyOf<Table>(i)).value(), i < 40 ? 1U : 0U) << i;
    ASSERT_EQ(table.erase(keyOf<Table>(i)).value(), 0U) << i;
  }
  EXPECT_TRUE(table.empty());
  Table moved = std::move(table);
  EXPECT_EQ(table.erase(keyOf<Table>(1)).error(), morva::errc::no_table);
}

TEST(ErasingKeysThatAreNotThere, AnswersNoneAndTakesNothing) {
  expectNothingToErase<morva::table<std::uint64_t, int>>();
  expectNothingToErase<morva::table<std::uint32_t, int, morva::ordered, morva::sums>>();
  expectNothingToErase<morva::table<morva::text<24>, int, morva::ordered>>();
  expectNothingToErase<morva::table<SaleKey, int, morva::locked>>();
  expectNothingToErase<morva::table<std::string_view, int>>();
}

TEST(ErasingKeysThatAreNotThere, LeavesKeysThatAreTooLongAlone) {
  auto table = morva::table<morva::text<4>, int>::make(linkedLibrary()).value();
  ASSERT_TRUE(table.insert("abcd", 1));
  EXPECT_EQ(table.erase("abcde").value(), 0U);
  EXPECT_EQ(table.erase(std::string(5000, 'x')).value(), 0U);
  EXPECT_EQ(table.size(), 1U);
}

}  // namespace
}  // namespace cpp_test
