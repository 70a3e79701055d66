// Running sums.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>

#include "tables.h"

namespace cpp_test {
namespace {

using morva::errc;

template <class Table>
class Sums : public ::testing::Test {
 protected:
  morva::extension library = linkedLibrary();
  Table table = got(Table::make(library, {.expected = 8}));
};
using Tables =
    ::testing::Types<morva::table<std::uint32_t, int, morva::sums>,
                     morva::table<morva::text<10>, int, morva::sums, morva::duplicates>,
                     morva::table<SaleKey, int, morva::sums, morva::ordered, morva::locked>>;
TYPED_TEST_SUITE(Sums, Tables);

TYPED_TEST(Sums, BeginAtZeroAndGrowByWhatIsAdded) {
  auto &table = this->table;
  const auto key = keyOf<TypeParam>(1);
  EXPECT_EQ(table.sum(key), 0.0) << "there is no such key";
  ASSERT_TRUE(got(table.insert(key, 1)));
  EXPECT_EQ(table.sum(key), 0.0);
  EXPECT_EQ(got(table.add_to_sum(key, 2.5)), 2.5);
  EXPECT_EQ(got(table.add_to_sum(table.find(key), -1.0)), 1.5);
  EXPECT_EQ(got(table.add_to_sum(table.begin(), 0.25)), 1.75);
  EXPECT_EQ(got(table.add_to_sum(key, 1.0, 7)), 2.75);
  EXPECT_EQ(table.sum(key), 2.75);
  EXPECT_EQ(table.sum(table.find(key)), 2.75);
  EXPECT_EQ(table.sum(std::as_const(table).find(key)), 2.75);
  EXPECT_EQ(table.sum(table.begin()), 2.75);
  EXPECT_EQ(table.sum(table.cbegin()), 2.75);
  EXPECT_EQ(table.reader().sum(key), 2.75);
  EXPECT_EQ(table.find(key)->data, 1);
  EXPECT_EQ(table.sum(typename TypeParam::cursor()), 0.0);
  EXPECT_EQ(table.reader().sum(keyOf<TypeParam>(2)), 0.0);
}

TYPED_TEST(Sums, GroupRowsInOneStepEach) {
  auto &table = this->table;
  for (int row = 0; row < 1000; ++row) {
    got(table.add_to_sum(keyOf<TypeParam>(row % 7), row, row % 7));
  }
  EXPECT_EQ(table.size(), 7U);
  double all = 0;
  for (auto at = table.begin(); at != table.end(); ++at) {
    all += table.sum(at);
    EXPECT_EQ(KeyKind<typename TypeParam::key_type>::number(at->key), at->data);
  }
  EXPECT_EQ(all, 999.0 * 1000 / 2);
}

TYPED_TEST(Sums, AreNotChangedByLooking) {
  auto &table = this->table;
  const auto key = keyOf<TypeParam>(1);
  got(table.add_to_sum(key, 5.0, 1));
  auto reader = table.reader();
  for (int i = 0; i < 3; ++i) {
    table.find(key);
    table.contains(key);
    table.count(key);
    got(table.at(key));
    got(table.find_or_insert(key, 1));
    reader.find(key);
    reader.sum(key);
    table.sum(key);
    for (const auto entry : std::as_const(table)) ASSERT_EQ(entry.data, 1);
  }
  EXPECT_EQ(table.sum(key), 5.0);
}

TYPED_TEST(Sums, ReplacingARecordBeginsItsSumAnew) {
  auto &table = this->table;
  const auto key = keyOf<TypeParam>(1);
  got(table.add_to_sum(key, 5.0, 1));
  EXPECT_FALSE(got(table.insert_or_assign(key, 2)));
  EXPECT_EQ(table.sum(key), 0.0);
  got(table.add_to_sum(key, 5.0));
  got(table.erase(key));
  got(table.insert(key, 1));
  EXPECT_EQ(table.sum(key), 0.0) << "a used slot does not remember";
}

TYPED_TEST(Sums, TakeNoNaN) {
  auto &table = this->table;
  const auto key = keyOf<TypeParam>(1);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(table.add_to_sum(key, nan, 1).error(), errc::not_a_number);
  EXPECT_TRUE(table.empty()) << "nor is the record stored";
  got(table.add_to_sum(key, 2.0, 1));
  EXPECT_EQ(table.add_to_sum(key, nan).error(), errc::not_a_number);
  EXPECT_EQ(table.add_to_sum(key, -nan, 1).error(), errc::not_a_number);
  EXPECT_EQ(table.add_to_sum(table.find(key), nan).error(), errc::not_a_number);
  EXPECT_EQ(table.sum(key), 2.0);
}

// An infinity and its opposite have no sum.
TYPED_TEST(Sums, NeverBecomeANaN) {
  auto &table = this->table;
  const auto key = keyOf<TypeParam>(1);
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(got(table.add_to_sum(key, infinity, 1)), infinity);
  EXPECT_EQ(table.add_to_sum(key, -infinity).error(), errc::not_a_number);
  EXPECT_EQ(table.sum(key), infinity) << "as it was before";
}

TYPED_TEST(Sums, NeedARecord) {
  auto &table = this->table;
  EXPECT_EQ(table.add_to_sum(keyOf<TypeParam>(1), 1.0).error(), errc::not_found);
  EXPECT_EQ(table.add_to_sum(typename TypeParam::cursor(), 1.0).error(), errc::no_record);
  EXPECT_EQ(table.add_to_sum(table.end(), 1.0).error(), errc::no_record);
  EXPECT_TRUE(table.empty());
  TypeParam none;
  EXPECT_EQ(none.sum(keyOf<TypeParam>(1)), 0.0);
  EXPECT_FALSE(none.add_to_sum(keyOf<TypeParam>(1), 1.0));
  EXPECT_EQ(none.add_to_sum(keyOf<TypeParam>(1), 1.0, 1).error(), errc::no_table);
}

TYPED_TEST(Sums, CountWhenTablesCompare) {
  auto other = got(TypeParam::make(this->library));
  got(this->table.add_to_sum(keyOf<TypeParam>(1), 2.0, 1));
  got(other.add_to_sum(keyOf<TypeParam>(1), 1.0, 1));
  EXPECT_FALSE(this->table == other);
  got(other.add_to_sum(keyOf<TypeParam>(1), 1.0));
  EXPECT_TRUE(this->table == other);
}

TEST(SumsOfDuplicates, AreOneForEachRecord) {
  const morva::extension library = linkedLibrary();
  using Table = morva::table<std::uint32_t, int, morva::sums, morva::duplicates, morva::ordered>;
  auto table = got(Table::make(library));
  for (int n = 0; n < 3; ++n) got(table.insert(1, n));
  const auto first = table.find(1);
  const auto second = std::next(first);
  const auto third = std::next(second);
  got(table.add_to_sum(first, 1.0));
  got(table.add_to_sum(second, 2.0));
  got(table.add_to_sum(third, 4.0));
  EXPECT_EQ(table.sum(1), 1.0) << "of the key: its first record's";
  EXPECT_EQ(table.sum(second), 2.0);
  EXPECT_EQ(table.sum(third), 4.0);
  got(table.insert_or_assign(1, 9));
  EXPECT_EQ(table.sum(first), 0.0);
  EXPECT_EQ(table.sum(second), 2.0);
  EXPECT_EQ(table.sum(third), 4.0);
  got(table.erase(first));
  EXPECT_EQ(table.sum(1), 2.0);
  EXPECT_EQ(got(table.add_to_sum(1, 1.0)), 3.0);
  EXPECT_EQ(table.sum(third), 4.0);
}

}  // namespace
}  // namespace cpp_test
