// Several records of one key.
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "tables.h"

namespace cpp_test {
namespace {

template <class Table>
class Duplicates : public ::testing::Test {
 protected:
  // Key 5 with records 0 to count - 1, between two other keys.
  Table chain(int count) {
    auto table = got(Table::make(library, {.expected = 1}));
    got(table.insert(keyOf<Table>(4), 400));
    for (int n = 0; n < count; ++n) got(table.insert(keyOf<Table>(5), n));
    got(table.insert(keyOf<Table>(6), 600));
    return table;
  }

  static auto nth(Table &table, int n) { return std::next(table.find(keyOf<Table>(5)), n); }

  morva::extension library = linkedLibrary();
};
using Tables = ::testing::Types<
    morva::table<std::uint32_t, int, morva::duplicates>,
    morva::table<morva::text<10>, int, morva::duplicates, morva::ordered, morva::locked>,
    morva::table<SaleKey, int, morva::duplicates, morva::ordered, morva::sums>>;
TYPED_TEST_SUITE(Duplicates, Tables);

TYPED_TEST(Duplicates, StandInTheOrderOfTheirInsertion) {
  auto table = this->chain(6);
  EXPECT_EQ(table.count(keyOf<TypeParam>(5)), 6U);
  EXPECT_EQ(chainOf(table, keyOf<TypeParam>(5)), (std::vector<int>{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(chainOf(table, keyOf<TypeParam>(4)), (std::vector<int>{400}));
  EXPECT_EQ(table.size(), 8U);
}

TYPED_TEST(Duplicates, AreWalkedBackwards) {
  auto table = this->chain(6);
  std::vector<int> back;
  for (auto at = this->nth(table, 5); at; at = at.previous()) back.push_back(at->data);
  EXPECT_EQ(back, (std::vector<int>{5, 4, 3, 2, 1, 0}));
  const auto only = table.find(keyOf<TypeParam>(4));
  EXPECT_FALSE(only.previous());
  EXPECT_FALSE(std::next(only));
  const typename TypeParam::const_cursor reading = this->nth(table, 2);
  EXPECT_EQ(reading.previous()->data, 1);
}

TYPED_TEST(Duplicates, AreErasedAnywhereInTheirChain) {
  for (int count = 1; count <= 5; ++count) {
    for (int gone = 0; gone < count; ++gone) {
      SCOPED_TRACE(::testing::Message() << gone << " of " << count);
      auto table = this->chain(count);
      std::vector<int> expected;
      for (int n = 0; n < count; ++n) {
        if (n != gone) expected.push_back(n);
      }
      const auto next = got(table.erase(this->nth(table, gone)));
      ASSERT_EQ(static_cast<bool>(next), gone + 1 < count);
      if (next) {
        ASSERT_EQ(next->data, gone + 1);
      }
      ASSERT_EQ(chainOf(table, keyOf<TypeParam>(5)), expected);
      std::vector<int> back;
      if (!expected.empty()) {
        for (auto at = this->nth(table, count - 2); at; at = at.previous()) {
          back.insert(back.begin(), at->data);
        }
      }
      ASSERT_EQ(back, expected);
      ASSERT_TRUE(got(table.insert(keyOf<TypeParam>(5), 99)));
      expected.push_back(99);
      ASSERT_EQ(chainOf(table, keyOf<TypeParam>(5)), expected) << "the next goes to the end";
      ASSERT_EQ(table.size(), expected.size() + 2);
    }
  }
}

TYPED_TEST(Duplicates, IteratorsGoThroughAChainAndErasingFollows) {
  for (int count = 1; count <= 4; ++count) {
    // Every choice of records to erase on the way.
    for (int choice = 0; choice < 1 << count; ++choice) {
      SCOPED_TRACE(::testing::Message() << count << " records, choice " << choice);
      auto table = this->chain(count);
      std::vector<int> seen;
      std::vector<int> kept;
      for (auto at = table.begin(); at != table.end();) {
        const int data = at->data;
        seen.push_back(data);
        if (data < count && (choice >> data & 1) != 0) {
          at = got(table.erase(at));
        } else {
          if (data < count) kept.push_back(data);
          ++at;
        }
      }
      ASSERT_EQ(seen.size(), static_cast<std::size_t>(count) + 2);
      ASSERT_EQ(chainOf(table, keyOf<TypeParam>(5)), kept);
      ASSERT_EQ(table.contains(keyOf<TypeParam>(5)), !kept.empty());
    }
  }
}

TYPED_TEST(Duplicates, ComeAndGoByTheThousand) {
  auto table = this->chain(0);
  for (int n = 0; n < 5000; ++n) ASSERT_TRUE(got(table.insert(keyOf<TypeParam>(5), n)));
  EXPECT_EQ(table.count(keyOf<TypeParam>(5)), 5000U);
  for (auto at = table.find(keyOf<TypeParam>(5)); at;) {
    if (at->data % 5 != 0) {
      at = got(table.erase(at));
    } else {
      ++at;
    }
  }
  EXPECT_EQ(table.count(keyOf<TypeParam>(5)), 1000U);
  EXPECT_EQ(got(table.erase(keyOf<TypeParam>(5))), 1000U);
  EXPECT_EQ(table.size(), 2U);
}

TYPED_TEST(Duplicates, CompareInTheirOrder) {
  auto one = this->chain(3);
  auto two = this->chain(3);
  EXPECT_TRUE(one == two);
  std::swap(this->nth(two, 0)->data, this->nth(two, 2)->data);
  EXPECT_FALSE(one == two);
  std::swap(this->nth(two, 0)->data, this->nth(two, 2)->data);
  got(two.erase(this->nth(two, 2)));
  got(two.insert(keyOf<TypeParam>(6), 2));
  EXPECT_EQ(one.size(), two.size());
  EXPECT_FALSE(one == two) << "as many records, but in other chains";
  EXPECT_FALSE(two == one);
}

}  // namespace
}  // namespace cpp_test
