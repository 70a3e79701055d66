// What stays where it is, and what ends: the promises of the interface about
// cursors, iterators and references.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tables.h"

namespace cpp_test {
namespace {

using Plain = morva::table<std::uint32_t, int>;
using Ordered = morva::table<std::uint32_t, int, morva::ordered>;
using Chains = morva::table<std::uint32_t, int, morva::ordered, morva::duplicates, morva::sums>;

template <class Table>
void keepsAddressesOverManyInserts(const morva::extension &library) {
  auto table = got(Table::make(library, {.expected = 1000}));
  constexpr int kHeld = 500;
  std::vector<std::pair<typename Table::cursor, int *>> held;
  std::vector<typename Table::iterator> iterators;
  for (int n = 0; n < kHeld; ++n) {
    const auto at = got(table.find_or_insert(keyOf<Table>(n), n)).position;
    held.emplace_back(at, &at->data);
  }
  for (auto at = table.begin(); at != table.end(); ++at) iterators.push_back(at);
  for (int n = kHeld; n < 100'000 + kHeld; ++n) {
    ASSERT_TRUE(got(table.insert(keyOf<Table>(n), n)));
  }
  for (int n = 0; n < kHeld; ++n) {
    const auto &[at, data] = held[static_cast<std::size_t>(n)];
    ASSERT_EQ(at->data, n);
    ASSERT_EQ(&at->data, data);
    ASSERT_TRUE(at == table.find(keyOf<Table>(n)));
    ASSERT_EQ(KeyKind<typename Table::key_type>::number(at->key), n);
  }
  for (const auto &at : iterators) {
    ASSERT_TRUE(at == table.find(keyOf<Table>(at->data)));
  }
}

TEST(Addresses, StayOverAHundredThousandInserts) {
  const morva::extension library = linkedLibrary();
  keepsAddressesOverManyInserts<Plain>(library);
  keepsAddressesOverManyInserts<Chains>(library);
  keepsAddressesOverManyInserts<morva::table<std::string_view, int, morva::ordered>>(library);
  keepsAddressesOverManyInserts<morva::table<SaleKey, int>>(library);
}

// Ten keys with records 10n, 10n + 1 and 10n + 2 each.
Chains chains(const morva::extension &library) {
  auto table = got(Chains::make(library, {.expected = 4}));
  for (std::uint32_t key = 0; key < 10; ++key) {
    for (int more = 0; more < 3; ++more) {
      got(table.insert(key, static_cast<int>(key) * 10 + more));
    }
  }
  return table;
}

TEST(Addresses, LookingUpEndsNothing) {
  const morva::extension library = linkedLibrary();
  auto table = chains(library);
  std::vector<Chains::iterator> all;
  for (auto at = table.begin(); at != table.end(); ++at) all.push_back(at);
  for (std::uint32_t key = 0; key < 20; ++key) {
    table.find(key);
    table.contains(key);
    table.count(key);
    table.at(key).has_value();
    table.sum(key);
    table.equal_range(key);
    table.reader().find(key);
  }
  std::size_t i = 0;
  for (auto at = table.begin(); at != table.end(); ++at) ASSERT_TRUE(at == all[i++]);
}

TEST(Addresses, WritingDataKeepsTheRecords) {
  const morva::extension library = linkedLibrary();
  auto table = chains(library);
  const auto first = table.find(3);
  const auto second = std::next(first);
  int *data = &second->data;
  got(table.insert_or_assign(3, -1));
  got(table.add_to_sum(3, 2.0));
  got(table.add_to_sum(second, 2.0));
  EXPECT_EQ(first->data, -1);
  EXPECT_EQ(&second->data, data);
  EXPECT_EQ(*data, -1);
  EXPECT_TRUE(std::next(table.find(3)) == second);
}

TEST(Addresses, ErasingAKeyKeepsTheRecordsOfOthers) {
  const morva::extension library = linkedLibrary();
  auto table = chains(library);
  const auto before = table.find(2);
  const auto after = table.find(4);
  auto walking = table.begin();
  while (!(walking == std::next(before, 2))) ++walking;
  ASSERT_EQ(got(table.erase(3)), 3U);
  EXPECT_EQ(before->data, 20);
  EXPECT_EQ(after->data, 40);
  EXPECT_TRUE(++walking == after) << "what was next went, the one after it is";
}

TEST(Addresses, ErasingALaterRecordKeepsAllOthersOfItsKey) {
  const morva::extension library = linkedLibrary();
  auto table = chains(library);
  const auto first = table.find(3);
  const auto second = std::next(first);
  const auto third = std::next(second);
  const int *dataOfFirst = &first->data;
  const int *dataOfThird = &third->data;
  EXPECT_TRUE(got(table.erase(second)) == third);
  EXPECT_EQ(first->data, 30);
  EXPECT_EQ(third->data, 32);
  EXPECT_EQ(&first->data, dataOfFirst);
  EXPECT_EQ(&third->data, dataOfThird);
  EXPECT_TRUE(std::next(first) == third);
  EXPECT_TRUE(third.previous() == first);
}

TEST(Addresses, ErasingTheFirstOfSeveralShowsTheSecondInItsPlace) {
  const morva::extension library = linkedLibrary();
  auto table = chains(library);
  const auto first = table.find(3);
  const auto third = std::next(first, 2);
  const int &data = first->data;
  const int *dataOfThird = &third->data;
  got(table.add_to_sum(std::next(first), 7.5));
  EXPECT_TRUE(got(table.erase(first)) == first);
  EXPECT_EQ(first->data, 31);
  EXPECT_EQ(data, 31);
  EXPECT_EQ(table.sum(first), 7.5) << "the second's sum came with it";
  EXPECT_TRUE(table.find(3) == first);
  EXPECT_TRUE(std::next(first) == third);
  EXPECT_EQ(&third->data, dataOfThird);
  EXPECT_EQ(keyNumbers(table).size(), 29U);
}

TEST(Addresses, ErasingTheOnlyRecordKeepsAllOfOtherKeys) {
  const morva::extension library = linkedLibrary();
  // One bucket, so that the tree changes its shape around every node.
  auto table = got(Plain::make(library, {.expected = 1}));
  std::vector<Plain::cursor> at;
  for (int n = 0; n < 300; ++n) {
    at.push_back(got(table.find_or_insert(keyOf<Plain>(n), n)).position);
  }
  for (std::size_t n = 0; n < 300; n += 2) ASSERT_FALSE(got(table.erase(at[n])));
  for (std::size_t n = 1; n < 300; n += 2) {
    ASSERT_TRUE(at[n] == table.find(keyOf<Plain>(static_cast<int>(n))));
    ASSERT_EQ(at[n]->data, static_cast<int>(n));
  }
  EXPECT_EQ(std::distance(table.begin(), table.end()), 150);
}

TEST(Addresses, AnIteratorGoesOnWhileOthersAreErasedAndStored) {
  const morva::extension library = linkedLibrary();
  auto table = got(Ordered::make(library, {.expected = 1}));
  for (std::uint32_t key = 0; key < 100; ++key) got(table.insert(key, 0));
  auto at = table.begin();
  for (std::uint32_t key = 0; key < 100; ++key, ++at) {
    ASSERT_EQ(at->key, key);
    if (key > 0) {
      ASSERT_EQ(got(table.erase(key - 1)), 1U);
    }
    if (key < 50) {
      ASSERT_TRUE(got(table.insert(key + 1000, 0)));
    }
  }
  EXPECT_EQ(at->key, 1000U);
  EXPECT_EQ(std::distance(at, table.end()), 50);
}

}  // namespace
}  // namespace cpp_test
