// Tables that several threads use at once.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "morva/morva.hpp"
#include "together.h"

namespace {

using cpp_test::kThreads;
using cpp_test::together;

TEST(Readers, SearchBesideEachOtherWithoutTheLock) {
  const auto extension = morva::extension::linked().value();
  using Table = morva::table<std::uint64_t, std::uint64_t, morva::ordered, morva::duplicates,
                             morva::sums, morva::locked>;
  auto table = Table::make(extension).value();
  constexpr std::uint64_t kKeys = 2000;
  for (std::uint64_t key = 0; key < kKeys; ++key) {
    ASSERT_TRUE(table.insert(key, key * 3));
    ASSERT_TRUE(table.add_to_sum(key, static_cast<double>(key)));
  }
  const auto before = table.memory();
  together([&](int number) {
    auto reader = table.reader();
    for (std::uint64_t i = 0; i < kKeys; ++i) {
      const std::uint64_t key = (i * 7 + static_cast<std::uint64_t>(number) * 13) % (kKeys + 100);
      const auto at = reader.find(key);
      if (key < kKeys) {
        ASSERT_TRUE(at);
        ASSERT_EQ(at->data, key * 3);
        ASSERT_EQ(reader.sum(key), static_cast<double>(key));
      } else {
        ASSERT_FALSE(reader.contains(key));
      }
    }
  });
  EXPECT_EQ(table.memory(), before);
}

// Holds its lock from the outside: a reader that took it would wait for ever.
TEST(Readers, DoNotWaitForTheLock) {
  const auto extension = morva::extension::linked().value();
  auto table = morva::table<int, int, morva::locked>::make(extension).value();
  ASSERT_TRUE(table.insert(1, 2));
  const auto guard = table.lock();
  std::thread([&] { EXPECT_TRUE(table.reader().contains(1)); }).join();
}

TEST(Readers, SearchForLongTextBesideEachOther) {
  const auto extension = morva::extension::linked().value();
  auto table = morva::table<std::string_view, int>::make(extension).value();
  std::vector<std::string> keys;
  for (int i = 0; i < 200; ++i) {
    keys.push_back(std::string(static_cast<std::size_t>(200 + 3 * i), 'x') + std::to_string(i));
    ASSERT_TRUE(table.insert(keys.back(), i));
  }
  // With readers of their own, and through the const table, where the long ones take turns.
  const auto &shared = table;
  together([&](int number) {
    auto reader = shared.reader();
    for (int i = 0; i < 200; ++i) {
      const auto &key = keys[static_cast<std::size_t>((i * 7 + number) % 200)];
      ASSERT_EQ(reader.find(key)->data, (i * 7 + number) % 200);
      ASSERT_EQ(shared.find(key)->data, (i * 7 + number) % 200);
      ASSERT_FALSE(shared.contains(key + "y"));
    }
  });
}

TEST(ConstTables, AreReadAndWalkedByManyThreads) {
  const auto extension = morva::extension::linked().value();
  auto table = morva::table<int, int, morva::duplicates>::make(extension).value();
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(table.insert(i % 100, i));
  const auto &shared = table;
  together([&](int) {
    int walked = 0;
    for (const auto entry : shared) walked += entry.data;
    ASSERT_EQ(walked, 999 * 1000 / 2);
    for (int key = 0; key < 100; ++key) ASSERT_EQ(shared.count(key), 10U);
    ASSERT_EQ(shared.size(), 1000U);
  });
}

TEST(LockedTables, TakeEveryKindOfChangeFromAllThreads) {
  const auto extension = morva::extension::linked().value();
  using Table =
      morva::table<int, int, morva::ordered, morva::duplicates, morva::sums, morva::locked>;
  auto table = Table::make(extension).value();
  constexpr int kEach = 300;
  std::atomic<int> inserted{0};
  together([&](int number) {
    for (int i = 0; i < kEach; ++i) {
      const int own = number * kEach + i;
      ASSERT_TRUE(table.insert(own, i));
      ASSERT_TRUE(table.add_to_sum(-1, 1.0, 0));
      if (table.find_or_insert(-2 - i % 10, i).value().inserted) ++inserted;
      if (i % 3 == 0) {
        ASSERT_EQ(table.erase(own).value(), 1U);
      }
      if (i % 50 == 0) {
        const auto guard = table.lock();
        int walked = 0;
        for (const auto entry : table) walked += entry.data >= 0 ? 1 : 0;
        ASSERT_EQ(static_cast<std::size_t>(walked), table.size());
      }
    }
  });
  EXPECT_EQ(table.sum(-1), kThreads * kEach);
  EXPECT_EQ(inserted, 10);
  EXPECT_EQ(table.size(), static_cast<std::size_t>(kThreads * kEach * 2 / 3 + 1 + 10));
}

TEST(LockedTables, AGuardKeepsOthersOutWhileDataIsChangedInPlace) {
  const auto extension = morva::extension::linked().value();
  auto table = morva::table<std::string_view, long, morva::locked>::make(extension).value();
  ASSERT_TRUE(table.insert("n", 0));
  together([&](int) {
    for (int i = 0; i < 1000; ++i) {
      const auto guard = table.lock();
      const auto at = table.find("n");
      at->data = at->data + 1;
    }
  });
  EXPECT_EQ(table.find("n")->data, kThreads * 1000);
}

TEST(LockedTables, RangesAndConditionsAreOneStep) {
  const auto extension = morva::extension::linked().value();
  auto table = morva::table<int, int, morva::locked>::make(extension).value();
  std::vector<std::pair<int, int>> pairs;
  for (int i = 0; i < 50; ++i) pairs.emplace_back(i, i);
  std::atomic<bool> torn{false};
  together([&](int number) {
    for (int i = 0; i < 100; ++i) {
      if (number % 2 == 0) {
        if (!table.insert_range(pairs)) torn = true;
        if (!erase_if(table, [](auto) { return true; })) torn = true;
      } else {
        const std::size_t seen = table.size();
        const auto guard = table.lock();
        // All or nothing while the lock is held.
        if (table.size() != 0 && table.size() != 50) torn = true;
        if (seen > 50) torn = true;
      }
    }
  });
  EXPECT_FALSE(torn);
}

TEST(LockedTables, TwoMayBeComparedInBothDirectionsAtOnce) {
  const auto extension = morva::extension::linked().value();
  using Table = morva::table<int, int, morva::locked>;
  auto one = Table::make(extension).value();
  auto two = Table::make(extension).value();
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(one.insert(i, i));
    ASSERT_TRUE(two.insert(49 - i, 49 - i));
  }
  together([&](int number) {
    for (int i = 0; i < 100; ++i) {
      ASSERT_TRUE(number % 2 == 0 ? one == two : two == one);
      ASSERT_TRUE(one == one);
    }
  });
}

TEST(Extensions, MakeTablesForManyThreads) {
  const auto extension = morva::extension::linked().value();
  together([&](int number) {
    for (int i = 0; i < 20; ++i) {
      auto table = morva::table<int, int, morva::ordered>::make(extension).value();
      ASSERT_TRUE(table.insert(number, i));
      ASSERT_EQ(table.begin()->data, i);
    }
  });
}

}  // namespace
