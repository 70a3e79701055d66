// Cursors and iterators beside each other, sets, and data of unusual types.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <ranges>
#include <string>
#include <utility>
#include <vector>

#include "tables.h"

namespace cpp_test {
namespace {

using morva::errc;
using Table = morva::table<std::uint32_t, int, morva::ordered, morva::duplicates>;

class Positions : public ::testing::Test {
 protected:
  Positions() {
    for (std::uint32_t key = 0; key < 5; ++key) {
      got(table.insert(key, static_cast<int>(key)));
      got(table.insert(key, -static_cast<int>(key)));
    }
  }

  morva::extension library = linkedLibrary();
  Table table = got(Table::make(library));
  const Table &constant = table;
};

// As an expression of two operands in both orders, and of its negation.
template <class A, class B>
constexpr bool comparable = requires(const A &a, const B &b) {
  a == b;
  b == a;
  a != b;
  b != a;
};

TEST_F(Positions, OfEveryKindCompare) {
  EXPECT_TRUE(table.begin() == table.find(0));
  EXPECT_TRUE(table.find(0) == table.begin());
  EXPECT_TRUE(constant.find(0) == table.find(0));
  EXPECT_TRUE(constant.begin() == constant.find(0));
  EXPECT_TRUE(constant.find(9) == constant.end());
  EXPECT_TRUE(table.find(9) == table.end());
  EXPECT_TRUE(table.find(1) != table.end());
  EXPECT_TRUE(std::next(table.find(1)) != table.find(1));
  static_assert(comparable<Table::cursor, Table::cursor>);
  static_assert(comparable<Table::cursor, Table::const_cursor>);
  static_assert(comparable<Table::iterator, Table::iterator>);
  static_assert(comparable<Table::iterator, Table::cursor>);
  static_assert(comparable<Table::const_iterator, Table::const_cursor>);
  static_assert(comparable<Table::const_iterator, Table::cursor>);
}

TEST_F(Positions, AnIteratorComparesWithOneThatOnlyReads) {
  EXPECT_TRUE((comparable<Table::iterator, Table::const_iterator>));
  EXPECT_TRUE((comparable<Table::iterator, Table::const_cursor>));
}

TEST_F(Positions, BecomeThoseThatPromiseLess) {
  const Table::iterator iterator = table.begin();
  const Table::cursor cursor = iterator;
  const Table::const_iterator readingIterator = iterator;
  const Table::const_cursor readingCursor = cursor;
  const Table::const_cursor fromIterator = iterator;
  const Table::const_cursor fromReading = readingIterator;
  EXPECT_EQ(cursor->data, 0);
  EXPECT_EQ(readingIterator->data, 0);
  EXPECT_TRUE(readingCursor == fromIterator);
  EXPECT_TRUE(readingCursor == fromReading);
  EXPECT_EQ(std::distance(readingIterator, constant.end()), 10);
  EXPECT_EQ(readingCursor.native(), cursor.native());
  EXPECT_NE(cursor.native(), nullptr);
  EXPECT_EQ(Table::cursor().native(), nullptr);
}

TEST_F(Positions, MadeFromNothingAreTheEndOfEverything) {
  EXPECT_TRUE(Table::iterator() == table.end());
  EXPECT_TRUE(Table::const_iterator() == constant.end());
  EXPECT_TRUE(Table::cursor() == table.end());
  EXPECT_FALSE(Table::cursor());
  EXPECT_TRUE(morva::records<Table::cursor>().empty());
  EXPECT_EQ(Table().begin(), Table().end());
}

TEST_F(Positions, MayBeGoneThroughTwiceAndCopied) {
  const auto start = std::next(table.begin(), 3);
  auto one = start;
  auto two = start;
  ++one;
  EXPECT_TRUE(two++ == start);
  EXPECT_TRUE(one == two);
  EXPECT_TRUE(one != start);
  auto cursor = table.find(2);
  EXPECT_EQ((cursor++)->data, 2);
  EXPECT_EQ((cursor++)->data, -2);
  EXPECT_FALSE(cursor);
}

TEST_F(Positions, GoWithTheRangesOfTheStandardLibrary) {
  const auto key = [](auto entry) { return entry.key; };
  EXPECT_EQ(std::ranges::count(constant, 3U, key), 2);
  EXPECT_EQ(std::ranges::find(table, 4U, key)->data, 4);
  EXPECT_TRUE(std::ranges::any_of(constant.equal_range(3), [](auto e) { return e.data == -3; }));
  const auto records = table.equal_range(3);
  EXPECT_EQ(std::ranges::distance(records), 2);
  std::vector<Table::const_reference> copies(constant.begin(), constant.end());
  EXPECT_EQ(copies.size(), 10U);
  EXPECT_EQ(copies[9].data, -4);
}

// ---- sets -----------------------------------------------------------------------

struct Nothing {};

template <class Set>
void worksAsASet(const morva::extension &library) {
  auto set = got(Set::make(library, {.expected = 16}));
  for (int round = 0; round < 2; ++round) {
    for (int n = 0; n < 100; ++n) ASSERT_TRUE(got(set.insert(keyOf<Set>(n))));
    ASSERT_EQ(set.size(), 100U);
    std::vector<int> numbers = keyNumbers(set);
    std::sort(numbers.begin(), numbers.end());
    ASSERT_EQ(numbers.size(), 100U);
    ASSERT_EQ(numbers.front(), 0);
    ASSERT_EQ(numbers.back(), 99);
    ASSERT_FALSE(got(set.insert_or_assign(keyOf<Set>(1), {})));
    ASSERT_TRUE(got(set.insert_or_assign(keyOf<Set>(100), {})));
    ASSERT_FALSE(got(set.find_or_insert(keyOf<Set>(100))).inserted);
    auto other = got(Set::make(library, {.expected = 1000}));
    for (int n = 100; n >= 0; --n) ASSERT_TRUE(got(other.insert(keyOf<Set>(n), {})));
    ASSERT_TRUE(set == other);
    ASSERT_EQ(got(other.erase(keyOf<Set>(50))), 1U);
    ASSERT_FALSE(set == other);
    ASSERT_FALSE(got(set.erase(set.find(keyOf<Set>(100)))));
    for (auto at = set.begin(); at != set.end();) at = got(set.erase(at));
    ASSERT_TRUE(set.empty());
  }
}

TEST(Sets, HaveKeysAndNoData) {
  const morva::extension library = linkedLibrary();
  worksAsASet<morva::table<std::uint32_t, Nothing>>(library);
  worksAsASet<morva::table<std::uint32_t, Nothing, morva::ordered, morva::sums>>(library);
  worksAsASet<morva::table<morva::text<9>, Nothing, morva::locked>>(library);
  worksAsASet<morva::table<std::string_view, Nothing, morva::ordered>>(library);
  worksAsASet<morva::table<SaleKey, Nothing>>(library);
}

TEST(Sets, OfDuplicatesCount) {
  const morva::extension library = linkedLibrary();
  using Bag = morva::table<std::uint32_t, Nothing, morva::duplicates>;
  auto bag = got(Bag::make(library));
  for (std::uint32_t n = 0; n < 60; ++n) ASSERT_TRUE(got(bag.insert(n % 6)));
  EXPECT_EQ(bag.count(3), 10U);
  EXPECT_TRUE(got(bag.erase(bag.find(3))));
  EXPECT_EQ(bag.count(3), 9U);
  auto other = got(Bag::make(library));
  EXPECT_EQ(got(other.insert_range(bag)), 59U);
  EXPECT_TRUE(other == bag);
  got(other.erase(std::next(other.find(4))));
  got(other.insert(3));
  EXPECT_FALSE(other == bag);
}

// ---- data -------------------------------------------------------------------------

TEST(Data, NeedNoDefaultAndNoComparison) {
  const morva::extension library = linkedLibrary();
  struct Amount {
    explicit Amount(double given) : value(given) {}
    double value;
  };
  auto table = got(morva::table<int, Amount>::make(library));
  ASSERT_TRUE(got(table.insert(1, Amount(2.5))));
  EXPECT_FALSE(got(table.find_or_insert(1, Amount(3.5))).inserted);
  EXPECT_EQ(table.find(1)->data.value, 2.5);
}

TEST(Data, MayBeLargeAndOddlySized) {
  const morva::extension library = linkedLibrary();
  using Large = std::array<char, 100'001>;
  auto table = got(morva::table<int, Large, morva::duplicates, morva::sums>::make(library));
  auto large = std::make_unique<Large>();
  for (int n = 0; n < 20; ++n) {
    large->fill(static_cast<char>('a' + n));
    ASSERT_TRUE(got(table.insert(n % 10, *large)));
  }
  for (int n = 0; n < 10; ++n) {
    const auto first = table.find(n);
    EXPECT_EQ(first->data[100'000], 'a' + n);
    EXPECT_EQ(std::next(first)->data[0], 'a' + n + 10);
  }
  struct Odd {
    char bytes[3];
  };
  auto odd = got(morva::table<std::string_view, Odd>::make(library));
  for (std::size_t n = 0; n < 50; ++n) {
    ASSERT_TRUE(got(odd.insert(std::string(n, 'x'), Odd{{'a', 'b', 'c'}})));
  }
  for (const auto entry : odd) EXPECT_EQ(entry.data.bytes[2], 'c');
}

TEST(Data, MayLieInTheTableItself) {
  const morva::extension library = linkedLibrary();
  using Chains = morva::table<int, std::array<int, 4>, morva::duplicates>;
  auto table = got(Chains::make(library));
  ASSERT_TRUE(got(table.insert(1, {1, 2, 3, 4})));
  for (int n = 0; n < 100; ++n) ASSERT_TRUE(got(table.insert(n % 3, table.find(1)->data)));
  ASSERT_FALSE(got(table.insert_or_assign(1, std::next(table.find(1))->data)));
  for (const auto entry : table) EXPECT_EQ(entry.data, (std::array<int, 4>{1, 2, 3, 4}));
}

TEST(Data, IsAlignedForItsType) {
  const morva::extension library = linkedLibrary();
  auto text = got(morva::table<std::string_view, double>::make(library));
  auto bounded = got(morva::table<morva::text<5>, double, morva::duplicates>::make(library));
  for (std::size_t n = 0; n < 6; ++n) {
    got(text.insert(std::string(n, 'x'), 1.0));
    got(bounded.insert(std::string(n % 3, 'x'), 1.0));
  }
  const auto aligned = [](const double &data) {
    return reinterpret_cast<std::uintptr_t>(&data) % alignof(double) == 0;
  };
  for (const auto entry : text) EXPECT_TRUE(aligned(entry.data));
  for (const auto entry : bounded) EXPECT_TRUE(aligned(entry.data));
}

}  // namespace
}  // namespace cpp_test
