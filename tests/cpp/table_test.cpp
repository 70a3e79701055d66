// Storing, finding, walking and comparing, for every kind of table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <numeric>
#include <ranges>
#include <type_traits>
#include <utility>
#include <vector>

#include "table_kinds.h"

namespace cpp_test {
namespace {

TYPED_TEST_SUITE(TableTest, TableKinds);

constexpr int kKeys = 200;

TYPED_TEST(TableTest, FindsWhatWasStoredAndNothingElse) {
  auto table = this->make();
  EXPECT_TRUE(table);
  EXPECT_TRUE(table.empty());
  EXPECT_FALSE(table.contains(this->key(1)));
  EXPECT_TRUE(table.begin() == table.end());
  this->fill(table, kKeys);
  EXPECT_EQ(table.size(), this->recordsFilled(kKeys));
  EXPECT_FALSE(table.empty());
  EXPECT_EQ(table.bucket_count(), 64U);

  const auto &constant = table;
  for (int n = 0; n < kKeys; ++n) {
    const auto key = this->key(n);
    const std::vector<int> chain = this->filled(n);
    ASSERT_TRUE(constant.contains(key)) << n;
    ASSERT_EQ(constant.count(key), chain.size()) << n;
    ASSERT_EQ(got(table.at(key)), n);
    ASSERT_EQ(got(constant.at(key)), n);
    ASSERT_EQ(table.find(key)->data, n);
    ASSERT_EQ(KeyKind<typename TypeParam::key_type>::number(constant.find(key)->key), n);
    ASSERT_EQ(chainOf(constant, key), chain) << n;
    ASSERT_EQ(table.reader().find(key)->data, n);
  }
  for (int n = kKeys; n < 2 * kKeys; ++n) {
    const auto key = this->key(n);
    ASSERT_FALSE(constant.contains(key)) << n;
    ASSERT_FALSE(table.find(key)) << n;
    ASSERT_TRUE(table.find(key) == table.end());
    ASSERT_TRUE(constant.find(key) == constant.end());
    ASSERT_EQ(constant.count(key), 0U);
    ASSERT_TRUE(constant.equal_range(key).empty());
    ASSERT_FALSE(table.reader().contains(key)) << n;
  }
}

TYPED_TEST(TableTest, InsertTellsWhetherTheRecordWasStored) {
  auto table = this->make();
  EXPECT_TRUE(got(table.insert(this->key(1), 10)));
  EXPECT_EQ(got(table.insert(this->key(1), 11)), this->kDuplicates);
  EXPECT_EQ(table.find(this->key(1))->data, 10);
  EXPECT_EQ(table.size(), this->kDuplicates ? 2U : 1U);
  EXPECT_TRUE(got(table.insert(this->key(2))));
  EXPECT_EQ(table.find(this->key(2))->data, 0);
}

TYPED_TEST(TableTest, InsertOrAssignWritesTheDataOfAllRecords) {
  auto table = this->make();
  EXPECT_TRUE(got(table.insert_or_assign(this->key(0), 5)));
  EXPECT_EQ(got(table.erase(this->key(0))), 1U);
  this->fill(table, kKeys);
  for (int n = 0; n < kKeys + 3; ++n) {
    ASSERT_EQ(got(table.insert_or_assign(this->key(n), -n)), n >= kKeys) << n;
    const std::size_t records = n < kKeys ? this->filled(n).size() : 1;
    ASSERT_EQ(chainOf(table, this->key(n)), std::vector<int>(records, -n)) << n;
  }
  EXPECT_EQ(table.size(), this->recordsFilled(kKeys) + 3);
}

TYPED_TEST(TableTest, FindOrInsertStoresOnce) {
  auto table = this->make();
  for (const bool first : {true, false}) {
    for (int n = 0; n < kKeys; ++n) {
      const auto answer = got(table.find_or_insert(this->key(n), first ? n : -1));
      ASSERT_EQ(answer.inserted, first) << n;
      ASSERT_EQ(answer.position->data, n);
      ASSERT_TRUE(answer.position == table.find(this->key(n)));
    }
  }
  EXPECT_EQ(table.size(), static_cast<std::size_t>(kKeys));
  EXPECT_EQ(got(table.find_or_insert(this->key(kKeys))).position->data, 0);
}

TYPED_TEST(TableTest, DataIsWrittenInPlaceThroughEveryWayIn) {
  auto table = this->make();
  this->fill(table, 4);
  table.find(this->key(1))->data += 100;
  EXPECT_EQ(got(table.at(this->key(1))), 101);
  got(table.at(this->key(1))) += 100;
  EXPECT_EQ(table.find(this->key(1))->data, 201);
  got(table.find_or_insert(this->key(1), 0)).position->data += 100;
  (*table.find(this->key(1))).data += 100;
  for (auto [key, data] : table) data = -data;
  EXPECT_EQ(got(table.at(this->key(1))), -401);
  for (auto entry : table.equal_range(this->key(1))) entry.data = 1;
  EXPECT_EQ(got(table.at(this->key(1))), 1);
}

TYPED_TEST(TableTest, IsAForwardRangeOfAllItsRecords) {
  using Table = TypeParam;
  static_assert(std::ranges::forward_range<Table>);
  static_assert(std::ranges::forward_range<const Table>);
  static_assert(std::forward_iterator<typename Table::iterator>);
  static_assert(std::forward_iterator<typename Table::const_iterator>);
  static_assert(std::forward_iterator<typename Table::cursor>);
  static_assert(std::forward_iterator<typename Table::const_cursor>);
  static_assert(std::ranges::view<morva::records<typename Table::cursor>>);
  static_assert(std::ranges::borrowed_range<morva::records<typename Table::const_cursor>>);
  static_assert(std::ranges::forward_range<morva::records<typename Table::const_cursor>>);
  static_assert(std::is_convertible_v<typename Table::iterator, typename Table::const_iterator>);
  static_assert(std::is_convertible_v<typename Table::iterator, typename Table::cursor>);
  static_assert(std::is_convertible_v<typename Table::iterator, typename Table::const_cursor>);
  static_assert(std::is_convertible_v<typename Table::cursor, typename Table::const_cursor>);
  static_assert(!std::is_convertible_v<typename Table::const_iterator, typename Table::iterator>);
  static_assert(!std::is_convertible_v<typename Table::const_cursor, typename Table::cursor>);
  static_assert(!std::is_copy_constructible_v<Table> &&
                std::is_nothrow_move_constructible_v<Table>);

  auto table = this->make();
  this->fill(table, kKeys);
  const auto &constant = table;
  std::vector<int> expected;
  for (int n = 0; n < kKeys; ++n) {
    for (const int data : this->filled(n)) expected.push_back(data);
  }
  std::vector<int> walked;
  for (auto at = table.begin(); at != table.end(); at++) walked.push_back(at->data);
  std::vector<int> again;
  for (auto at = constant.cbegin(); at != constant.cend(); ++at) again.push_back((*at).data);
  EXPECT_EQ(walked, again);
  if (!this->kOrdered) {
    std::ranges::sort(walked);
    std::ranges::sort(expected);
  }
  EXPECT_EQ(walked, expected);

  EXPECT_EQ(std::distance(constant.begin(), constant.end()),
            static_cast<std::ptrdiff_t>(expected.size()));
  EXPECT_EQ(std::ranges::count_if(constant, [](auto entry) { return entry.data < 10; }), 10);
  const auto found =
      std::find_if(table.begin(), table.end(), [](auto entry) { return entry.data == 77; });
  ASSERT_TRUE(found != table.end());
  EXPECT_TRUE(found == table.find(this->key(77)));
  const auto add = [](long sum, auto entry) { return sum + entry.data; };
  EXPECT_EQ(std::accumulate(constant.begin(), constant.end(), 0L, add),
            std::accumulate(expected.begin(), expected.end(), 0L));
  EXPECT_TRUE(std::ranges::none_of(constant, [](auto entry) { return entry.data < 0; }));
}

TYPED_TEST(TableTest, TakesRangesOfPairs) {
  using Key = decltype(this->key(0));
  std::vector<std::pair<Key, int>> pairs;
  for (int n = 0; n < kKeys; ++n) pairs.emplace_back(this->key(n), n);
  auto table = this->make();
  EXPECT_EQ(got(table.insert_range(std::vector<std::pair<Key, int>>())), 0U);
  EXPECT_EQ(got(table.insert_range(pairs)), 200U);
  EXPECT_EQ(got(table.insert_range(pairs)), this->kDuplicates ? 200U : 0U);
  EXPECT_EQ(table.size(), this->kDuplicates ? 400U : 200U);
  std::list<std::pair<Key, int>> evens;
  for (int n = 0; n < kKeys; n += 2) evens.emplace_back(this->key(n), n);
  auto other = this->make();
  EXPECT_EQ(got(other.insert_range(evens)), 100U);
  EXPECT_TRUE(other.contains(this->key(10)));
  EXPECT_FALSE(other.contains(this->key(11)));
}

TYPED_TEST(TableTest, ComparesByContentsWhateverItsMaking) {
  auto table = this->make();
  this->fill(table, kKeys);
  auto copy = got(TypeParam::make(
      this->library, {.name = "copy", .expected = 1000, .hash = morva::hash_method::elf}));
  EXPECT_FALSE(table == copy);
  for (int n = kKeys; n-- != 0;) {
    for (const int data : this->filled(n)) got(copy.insert(this->key(n), data));
  }
  EXPECT_TRUE(table == copy);
  EXPECT_TRUE(copy == table);
  EXPECT_TRUE(table == table);
  EXPECT_FALSE(table != copy);

  copy.find(this->key(5))->data = -1;
  EXPECT_FALSE(table == copy);
  copy.find(this->key(5))->data = 5;
  EXPECT_TRUE(table == copy);
  ASSERT_EQ(got(copy.erase(this->key(7))), 1U);
  EXPECT_FALSE(table == copy);
  ASSERT_TRUE(got(copy.insert(this->key(kKeys), 7)));
  EXPECT_FALSE(table == copy) << "as many records, but another key";
  EXPECT_FALSE(copy == table);
  EXPECT_FALSE(table == TypeParam());
  EXPECT_TRUE(TypeParam() == TypeParam());
}

TYPED_TEST(TableTest, MovesAndSwapsWithoutMovingARecord) {
  auto table = this->make();
  this->fill(table, kKeys);
  const int *data = &table.find(this->key(3))->data;
  const auto at = table.find(this->key(4));
  TypeParam moved(std::move(table));
  EXPECT_FALSE(table);
  EXPECT_TRUE(table.empty());
  EXPECT_EQ(&moved.find(this->key(3))->data, data);
  EXPECT_EQ(at->data, 4);
  auto other = this->make();
  ASSERT_TRUE(got(other.insert(this->key(3), 1)));
  swap(moved, other);
  EXPECT_EQ(moved.size(), 1U);
  EXPECT_EQ(&other.find(this->key(3))->data, data);
  moved = std::move(other);
  EXPECT_EQ(&moved.find(this->key(3))->data, data);
  EXPECT_EQ(moved.size(), this->recordsFilled(kKeys));
  table = this->make();
  EXPECT_TRUE(got(table.insert(this->key(3), 1))) << "a moved table takes another";
}

}  // namespace
}  // namespace cpp_test
