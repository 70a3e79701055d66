// Taking records out, for every kind of table.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "table_kinds.h"

namespace cpp_test {
namespace {

template <class Table>
class RemovalTest : public TableTest<Table> {};
TYPED_TEST_SUITE(RemovalTest, TableKinds);

constexpr int kKeys = 200;

TYPED_TEST(RemovalTest, ErasingAKeyTakesAllItsRecords) {
  auto table = this->make();
  this->fill(table, kKeys);
  std::size_t left = table.size();
  for (int n = 0; n < kKeys; n += 2) {
    const std::size_t records = this->filled(n).size();
    ASSERT_EQ(got(table.erase(this->key(n))), records) << n;
    ASSERT_EQ(got(table.erase(this->key(n))), 0U) << n;
    ASSERT_EQ(table.size(), left -= records);
  }
  for (int n = 0; n < kKeys; ++n) ASSERT_EQ(table.contains(this->key(n)), n % 2 != 0) << n;
  std::vector<int> numbers = keyNumbers(table);
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  EXPECT_EQ(numbers.size(), kKeys / 2U);
}

TYPED_TEST(RemovalTest, ErasingACursorTakesOneRecordAndLeadsToTheNextOfItsKey) {
  auto table = this->make();
  this->fill(table, kKeys);
  for (int n = 0; n < kKeys; ++n) {
    std::vector<int> chain = this->filled(n);
    auto at = table.find(this->key(n));
    while (!chain.empty()) {
      ASSERT_EQ(at->data, chain.front());
      chain.erase(chain.begin());
      at = got(table.erase(at));
      ASSERT_EQ(chainOf(table, this->key(n)), chain);
      ASSERT_EQ(static_cast<bool>(at), !chain.empty());
    }
    ASSERT_FALSE(table.contains(this->key(n)));
  }
  EXPECT_TRUE(table.empty());
}

TYPED_TEST(RemovalTest, ErasingIteratorsLeadsThroughTheWholeTable) {
  // Takes what `rhythm` says, and sees every record once.
  for (const int rhythm : {1, 2, 3, 5}) {
    auto table = this->make();
    this->fill(table, kKeys);
    std::vector<int> expected;
    for (const auto entry : std::as_const(table)) expected.push_back(entry.data);
    std::vector<int> seen;
    std::vector<int> kept;
    int step = 0;
    for (auto at = table.begin(); at != table.end();) {
      seen.push_back(at->data);
      if (step++ % rhythm == 0) {
        at = got(table.erase(at));
      } else {
        kept.push_back(at->data);
        ++at;
      }
    }
    ASSERT_EQ(seen, expected) << rhythm;
    std::vector<int> left;
    for (const auto entry : table) left.push_back(entry.data);
    ASSERT_EQ(left, kept) << rhythm;
    ASSERT_EQ(table.size(), kept.size());
  }
}

TYPED_TEST(RemovalTest, ErasingByConditionTellsHowMany) {
  auto table = this->make();
  this->fill(table, kKeys);
  const std::size_t before = table.size();
  const auto odd = [](auto entry) { return entry.data % 2 != 0; };
  const auto count = static_cast<std::size_t>(std::count_if(table.begin(), table.end(), odd));
  EXPECT_EQ(got(erase_if(table, [](auto) { return false; })), 0U);
  EXPECT_EQ(got(erase_if(table, odd)), count);
  EXPECT_EQ(table.size(), before - count);
  EXPECT_TRUE(std::none_of(table.begin(), table.end(), odd));
  EXPECT_EQ(got(erase_if(table, [](auto) { return true; })), before - count);
  EXPECT_TRUE(table.empty());
  TypeParam none;
  EXPECT_EQ(got(erase_if(none, [](auto) { return true; })), 0U);
}

TYPED_TEST(RemovalTest, ClearingLeavesATableThatTakesRecords) {
  auto table = this->make();
  for (const bool keeping : {true, false, true}) {
    this->fill(table, kKeys);
    const std::uint64_t memory = table.memory();
    if (keeping) {
      table.clear_keeping_memory();
      EXPECT_EQ(table.memory(), memory);
    } else {
      table.clear();
      EXPECT_EQ(table.memory(), 0U);
    }
    EXPECT_TRUE(table.empty());
    EXPECT_TRUE(table.begin() == table.end());
    for (int n = 0; n < kKeys; ++n) ASSERT_FALSE(table.contains(this->key(n)));
  }
  this->fill(table, kKeys);
  const std::uint64_t memory = table.memory();
  table.clear_keeping_memory();
  this->fill(table, kKeys);
  EXPECT_EQ(table.memory(), memory) << "what was kept is used";
  for (int n = 0; n < kKeys; ++n) ASSERT_EQ(chainOf(table, this->key(n)), this->filled(n));
}

}  // namespace
}  // namespace cpp_test
