// Tables that several threads ask for many keys at a time.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "tables.h"
#include "together.h"

namespace cpp_test {
namespace {

template <class Table>
void expectManyReaders(const morva::extension &library) {
  constexpr int kKeys = 600;
  auto table = Table::make(library, {.expected = 64}).value();
  std::vector<decltype(keyOf<Table>(0))> keys;
  for (int n = 0; n < kKeys; ++n) {
    keys.push_back(keyOf<Table>(n));
    if (n % 3 != 0) {
      ASSERT_TRUE(table.insert(keys.back(), n));
    }
  }
  const Table &shared = table;
  together([&](int number) {
    std::vector<typename Table::const_cursor> found(kKeys);
    const auto there = std::make_unique<bool[]>(kKeys);
    for (int round = 0; round < 4; ++round) {
      ASSERT_EQ(shared.find_many(keys, std::span(found)).value(), std::size_t{kKeys} / 3 * 2);
      for (int n = number; n < kKeys; n += kThreads) {
        const auto at = found[static_cast<std::size_t>(n)];
        ASSERT_EQ(static_cast<bool>(at), n % 3 != 0) << n;
        if (at) {
          ASSERT_EQ(at->data, n);
        }
      }
      ASSERT_EQ(shared.contains_many(keys, {there.get(), kKeys}).value(),
                std::size_t{kKeys} / 3 * 2);
    }
  });
}

TEST(ConstTables, AreAskedForManyKeysByManyThreads) {
  for (const bool plain : {true, false}) {
    const auto library = morva::extension::linked({.locked_trees = !plain}).value();
    expectManyReaders<morva::table<std::uint64_t, int>>(library);
    expectManyReaders<morva::table<std::string_view, int, morva::ordered>>(library);
    expectManyReaders<morva::table<SaleKey, int, morva::duplicates, morva::sums>>(library);
    expectManyReaders<morva::table<morva::text<24>, int, morva::locked>>(library);
  }
}

// A batch is one step: others see all of its keys, or none.
TEST(LockedTables, TakeManyKeysInOneStep) {
  using Table = morva::table<std::uint32_t, int, morva::ordered, morva::locked>;
  for (const bool plain : {true, false}) {
    const auto library = morva::extension::linked({.locked_trees = !plain}).value();
    auto table = Table::make(library, {.expected = 64}).value();
    constexpr std::size_t kKeys = 300;
    std::vector<std::uint32_t> keys(kKeys);
    for (std::size_t i = 0; i < kKeys; ++i) keys[i] = KeyKind<std::uint32_t>::make(int(i));
    const std::vector<int> data(kKeys, 1);
    std::atomic<int> torn{0};
    together([&](int number) {
      std::vector<Table::cursor> found(kKeys);
      const auto there = std::make_unique<bool[]>(kKeys);
      for (int round = 0; round < 40; ++round) {
        std::size_t count = 0;
        if (number == 0) {
          count = table.insert_many(keys, data).value();
        } else if (number == 1) {
          count = table.erase_many(keys).value();
        } else if (number == 2) {
          count = table.find_many(keys, found).value();
        } else {
          count = table.contains_many(keys, {there.get(), kKeys}).value();
        }
        if (count != 0 && count != kKeys) ++torn;
      }
    });
    EXPECT_EQ(torn, 0);
  }
}

TEST(LockedTables, AddUpManyAmountsFromAllThreads) {
  using Table = morva::table<std::uint64_t, int, morva::sums, morva::locked>;
  const auto library = linkedLibrary();
  auto table = Table::make(library, {.expected = 20000}).value();
  constexpr int kRounds = 20;
  std::vector<std::uint64_t> keys;
  for (std::uint64_t n = 0; n < 260; ++n) keys.push_back(n % 130);
  const std::vector<double> amounts(keys.size(), 1.0);
  together([&](int number) {
    const std::vector<std::uint64_t> own(130, 1000 + static_cast<std::uint64_t>(number));
    for (int round = 0; round < kRounds; ++round) {
      ASSERT_TRUE(table.add_to_sum_many(keys, amounts, 0));
      ASSERT_EQ(table.insert_many(own, std::vector<int>(own.size())).value(), 1U);
      ASSERT_EQ(table.erase_many(own).value(), 1U);
    }
  });
  EXPECT_EQ(table.size(), 130U);
  for (std::uint64_t n = 0; n < 130; ++n) ASSERT_EQ(table.sum(n), 2.0 * kRounds * kThreads);
}

// A guard holds through several batches.
TEST(LockedTables, AGuardKeepsOthersOutBetweenBatches) {
  using Table = morva::table<std::uint64_t, int, morva::locked>;
  const auto library = linkedLibrary();
  auto table = Table::make(library).value();
  std::vector<std::uint64_t> keys(200);
  for (std::size_t i = 0; i < keys.size(); ++i) keys[i] = i;
  together([&](int) {
    std::vector<Table::cursor> found(keys.size());
    for (int round = 0; round < 20; ++round) {
      const auto guard = table.lock();
      ASSERT_EQ(table.insert_many(keys, std::vector<int>(keys.size())).value(), keys.size());
      ASSERT_EQ(table.find_many(keys, found).value(), keys.size());
      for (const auto at : found) at->data += 1;
      ASSERT_EQ(table.erase_many(keys).value(), keys.size());
    }
  });
  EXPECT_TRUE(table.empty());
}

}  // namespace
}  // namespace cpp_test
