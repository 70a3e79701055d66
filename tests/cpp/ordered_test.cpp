// Tables that walk in the order of first insertion.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tables.h"

namespace cpp_test {
namespace {

template <class Table>
class Ordered : public ::testing::Test {
 protected:
  static std::vector<int> numbersFrom(int first, int count) {
    std::vector<int> numbers;
    for (int n = first; n < first + count; ++n) numbers.push_back(n);
    return numbers;
  }

  morva::extension library = linkedLibrary();
};
using Tables =
    ::testing::Types<morva::table<std::uint32_t, int, morva::ordered>,
                     morva::table<morva::text<10>, int, morva::ordered, morva::duplicates>,
                     morva::table<std::string_view, int, morva::ordered>,
                     morva::table<SaleKey, int, morva::ordered, morva::sums, morva::locked>>;
TYPED_TEST_SUITE(Ordered, Tables);

TYPED_TEST(Ordered, WalkInTheOrderOfFirstInsertion) {
  for (const std::uint64_t expected : {1, 100'000}) {
    auto table = got(TypeParam::make(this->library, {.expected = expected}));
    std::vector<int> numbers = this->numbersFrom(0, 1000);
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(7));
    for (const int n : numbers) ASSERT_TRUE(got(table.insert(keyOf<TypeParam>(n), n)));
    EXPECT_EQ(keyNumbers(table), numbers);
    for (const int n : numbers) got(table.insert_or_assign(keyOf<TypeParam>(n), -n));
    for (const int n : numbers) got(table.find_or_insert(keyOf<TypeParam>(n), n));
    EXPECT_EQ(keyNumbers(table), numbers) << "writing to a key does not move it";
  }
}

TYPED_TEST(Ordered, AKeyThatComesAgainComesLast) {
  auto table = got(TypeParam::make(this->library, {.expected = 16}));
  std::vector<int> order = this->numbersFrom(0, 300);
  for (const int n : order) got(table.insert(keyOf<TypeParam>(n), n));
  std::mt19937 random(3);
  for (int step = 0; step < 500; ++step) {
    const std::size_t at = random() % order.size();
    const int n = order[at];
    ASSERT_EQ(got(table.erase(keyOf<TypeParam>(n))), 1U);
    order.erase(order.begin() + static_cast<std::ptrdiff_t>(at));
    if (step % 3 != 0) {
      ASSERT_TRUE(got(table.insert(keyOf<TypeParam>(n), n)));
      order.push_back(n);
    }
    if (step % 50 == 0) {
      ASSERT_EQ(keyNumbers(table), order) << step;
    }
  }
  EXPECT_EQ(keyNumbers(table), order);
}

TYPED_TEST(Ordered, BeginAnewAfterClearing) {
  auto table = got(TypeParam::make(this->library, {.expected = 16}));
  for (int round = 0; round < 4; ++round) {
    for (int n = 0; n < 300; ++n) got(table.insert(keyOf<TypeParam>(n + round), n));
    EXPECT_EQ(keyNumbers(table), this->numbersFrom(round, 300));
    if (round % 2 == 0) {
      table.clear();
    } else {
      table.clear_keeping_memory();
    }
    EXPECT_TRUE(keyNumbers(table).empty());
  }
}

TYPED_TEST(Ordered, EndsCanBeTakenOffAllTheTime) {
  // First in, first out.
  auto table = got(TypeParam::make(this->library, {.expected = 16}));
  for (int n = 0; n < 2000; ++n) {
    got(table.insert(keyOf<TypeParam>(n), n));
    if (n >= 10) {
      ASSERT_EQ(table.begin()->data, n - 10);
      got(table.erase(table.begin()));
    }
  }
  EXPECT_EQ(keyNumbers(table), this->numbersFrom(1990, 10));
}

TEST(OrderedDuplicates, AKeyKeepsItsPlaceWhileOneRecordIsLeft) {
  const morva::extension library = linkedLibrary();
  using Table = morva::table<std::uint32_t, int, morva::ordered, morva::duplicates>;
  auto table = got(Table::make(library));
  for (int round = 0; round < 3; ++round) {
    for (std::uint32_t key = 1; key <= 3; ++key) got(table.insert(key, round));
  }
  const auto walked = [&] {
    std::vector<std::pair<std::uint32_t, int>> records;
    for (const auto entry : table) records.emplace_back(entry.key, entry.data);
    return records;
  };
  got(table.erase(table.find(2)));
  EXPECT_EQ(walked(), (std::vector<std::pair<std::uint32_t, int>>{
                          {1, 0}, {1, 1}, {1, 2}, {2, 1}, {2, 2}, {3, 0}, {3, 1}, {3, 2}}));
  got(table.erase(table.find(1)));
  got(table.erase(table.find(1)));
  EXPECT_EQ(walked(), (std::vector<std::pair<std::uint32_t, int>>{
                          {1, 2}, {2, 1}, {2, 2}, {3, 0}, {3, 1}, {3, 2}}));
  got(table.erase(table.find(1)));
  got(table.insert(1, 9));
  EXPECT_EQ(walked(), (std::vector<std::pair<std::uint32_t, int>>{
                          {2, 1}, {2, 2}, {3, 0}, {3, 1}, {3, 2}, {1, 9}}));
}

}  // namespace
}  // namespace cpp_test
