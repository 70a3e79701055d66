// Tables on an embedded host whose memory is limited.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tables.h"

namespace cpp_test {
namespace {

using morva::errc;

template <class Table>
class Limits : public ::testing::Test {};
using Tables = ::testing::Types<
    morva::table<std::uint32_t, int>,
    morva::table<std::uint32_t, int, morva::ordered, morva::duplicates, morva::sums, morva::locked>,
    morva::table<std::string_view, int, morva::ordered>,
    morva::table<SaleKey, int, morva::ordered>>;
TYPED_TEST_SUITE(Limits, Tables);

// Stores keys until there is no memory; answers the first that was not stored.
template <class Table>
int fillUp(Table &table, int first) {
  for (int n = first;; ++n) {
    const auto stored = table.insert(keyOf<Table>(n), n);
    if (stored) continue;
    EXPECT_EQ(stored.error(), errc::no_memory);
    EXPECT_FALSE(table.contains(keyOf<Table>(n)));
    EXPECT_EQ(table.size(), static_cast<std::size_t>(n));
    return n;
  }
}

TYPED_TEST(Limits, AreMetWithATableThatGoesOn) {
  for (const std::uint64_t limit : {100'000U, 150'000U, 200'000U, 300'000U, 1'000'000U}) {
    SCOPED_TRACE(limit);
    const auto library = morva::extension::linked({.memory_limit = limit}).value();
    auto made = TypeParam::make(library, {.expected = 256});
    ASSERT_TRUE(made);
    TypeParam table = std::move(*made);
    const int full = fillUp(table, 0);
    ASSERT_GT(full, 10);
    for (int again = 0; again < 3; ++again) {
      EXPECT_EQ(table.insert(keyOf<TypeParam>(full), 1).error(), errc::no_memory);
    }
    std::vector<int> numbers = keyNumbers(table);
    ASSERT_EQ(numbers.size(), static_cast<std::size_t>(full));
    std::sort(numbers.begin(), numbers.end());
    for (int n = 0; n < full; ++n) {
      ASSERT_EQ(numbers[static_cast<std::size_t>(n)], n);
      ASSERT_EQ(table.find(keyOf<TypeParam>(n))->data, n);
    }
    table.clear();
    EXPECT_TRUE(table.empty());
    const int fullAgain = fillUp(table, 0);
    EXPECT_GT(fullAgain, full / 2);
  }
}

TEST(MemoryLimits, RefuseATableWithTooManyBuckets) {
  const auto library = morva::extension::linked({.memory_limit = 1 << 20}).value();
  using Table = morva::table<int, int>;
  EXPECT_EQ(Table::make(library, {.expected = 1 << 20}).error(), errc::no_memory);
  EXPECT_TRUE(Table::make(library, {.expected = 1 << 10}));
}

}  // namespace
}  // namespace cpp_test
