// Partitioned tables that several threads use at once.
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "morva/morva.hpp"
#include "together.h"

namespace {

using morva::duplicates;
using morva::ordered;
using morva::sums;

using cpp_test::kThreads;
using cpp_test::together;

struct Visit {
  char site[12];
  std::int32_t day;
};
using VisitKey = morva::composed<&Visit::site, &Visit::day>;

template <class Key, class... Features>
using Parted = morva::partitioned_table<Key, int, Features...>;

template <class Table>
Table make(const morva::extension &library, std::size_t parts = 8) {
  return Table::make(library, {.expected = 1000, .parts = parts}).value();
}

// Keys of each kind by number.
std::uint64_t keyOf(const std::uint64_t *, int number) {
  return static_cast<std::uint64_t>(number);
}
std::string keyOf(const std::string_view *, int number) {
  // Every third is too long for the image on the stack.
  return std::string(number % 3 == 2 ? 300 : 3, 'k') + std::to_string(number);
}
Visit keyOf(const VisitKey *, int number) {
  return {{'s', static_cast<char>('a' + number % 20)}, number};
}

template <class Table>
class PartitionedThreads : public ::testing::Test {
 protected:
  static auto key(int number) {
    return keyOf(static_cast<const typename Table::key_type *>(nullptr), number);
  }
};
using Tables = ::testing::Types<Parted<std::uint64_t>, Parted<std::uint64_t, ordered, duplicates>,
                                Parted<std::string_view, ordered>, Parted<VisitKey, ordered>>;
TYPED_TEST_SUITE(PartitionedThreads, Tables);

// Each thread has keys of its own, and all share some.
TYPED_TEST(PartitionedThreads, InsertLookUpAndEraseInParallel) {
  const auto library = morva::extension::linked().value();
  auto table = make<TypeParam>(library);
  constexpr int kEach = 300;
  constexpr int kShared = 20;
  std::atomic<int> inserted{0};
  together([&](int number) {
    for (int i = 0; i < kEach; ++i) {
      const int own = kShared + i * kThreads + number;
      ASSERT_TRUE(table.insert(this->key(own), own).value());
      ASSERT_EQ(table.find(this->key(own))->data, own);
      if (table.find_or_insert(this->key(i % kShared), 0).value().inserted) ++inserted;
      ASSERT_TRUE(table.contains(this->key(i % kShared)));
      if (i % 3 == 0) {
        ASSERT_EQ(table.erase(this->key(own)).value(), 1U);
        ASSERT_EQ(table.count(this->key(own)), 0U);
      } else if (i % 3 == 1) {
        ASSERT_FALSE(table.erase(table.find(this->key(own))).value());
        ASSERT_TRUE(table.insert_or_assign(this->key(own), -own).value());
      }
    }
  });
  EXPECT_EQ(inserted, kShared);
  EXPECT_EQ(table.size(), static_cast<std::size_t>(kThreads * kEach * 2 / 3 + kShared));
  for (int n = kShared; n < kShared + kThreads * kEach; ++n) {
    const int i = (n - kShared) / kThreads;
    const auto at = table.find(this->key(n));
    ASSERT_EQ(static_cast<bool>(at), i % 3 != 0);
    if (at) {
      ASSERT_EQ(at->data, i % 3 == 1 ? -n : n);
    }
  }
}

// What one thread inserts after another record of its own comes after it.
TYPED_TEST(PartitionedThreads, EachInsertInAnOrderThatTheMergedWalkKeeps) {
  if constexpr (requires(TypeParam table) { table.in_order(); }) {
    const auto library = morva::extension::linked().value();
    auto table = make<TypeParam>(library, 16);
    constexpr int kEach = 500;
    together([&](int number) {
      for (int i = 0; i < kEach; ++i) {
        const int own = i * kThreads + number;
        ASSERT_TRUE(table.insert(this->key(own), own).value());
      }
    });
    std::vector<int> last(kThreads, -1);
    std::size_t walked = 0;
    auto walk = table.in_order().value();
    for (const auto entry : walk) {
      int &before = last[static_cast<std::size_t>(entry.data % kThreads)];
      ASSERT_LT(before, entry.data);
      before = entry.data;
      ++walked;
    }
    EXPECT_EQ(walked, static_cast<std::size_t>(kThreads * kEach));
  }
}

// Each thread has keys of its own, and all share some.
TYPED_TEST(PartitionedThreads, StoreFindAndEraseManyKeysInParallel) {
  const auto library = morva::extension::linked().value();
  auto table = make<TypeParam>(library);
  constexpr std::size_t kOwn = 300;
  constexpr std::size_t kShared = 80;
  constexpr int kRounds = 6;
  std::vector<decltype(this->key(0))> shared;
  for (std::size_t i = 0; i < kShared; ++i) shared.push_back(this->key(static_cast<int>(i)));
  std::atomic<std::size_t> stored{0};
  std::atomic<std::size_t> erased{0};
  together([&](int number) {
    // Each other key is one that all have.
    std::vector<decltype(this->key(0))> keys;
    std::vector<int> data;
    for (std::size_t i = 0; i < kOwn; ++i) {
      const int own = 1000 + static_cast<int>(i) * kThreads + number;
      keys.push_back(this->key(own));
      data.push_back(own);
      keys.push_back(shared[(i * 7 + static_cast<std::size_t>(number)) % kShared]);
      data.push_back(-1);
    }
    std::vector<typename TypeParam::cursor> found(keys.size());
    const auto there = std::make_unique<bool[]>(keys.size());
    const std::span<bool> flags(there.get(), keys.size());
    for (int round = 0; round < kRounds; ++round) {
      stored += table.insert_many(keys, data, flags).value();
      for (std::size_t i = 0; i < keys.size(); i += 2) ASSERT_TRUE(there[i]) << i;
      ASSERT_GE(table.find_many(keys, std::span(found)).value(), kOwn);
      for (std::size_t i = 0; i < keys.size(); i += 2) {
        ASSERT_TRUE(found[i]) << i;
        ASSERT_EQ(found[i]->data, data[i]);
      }
      if (round + 1 == kRounds) break;
      const std::size_t went = table.erase_many(keys).value();
      ASSERT_GE(went, kOwn);
      erased += went;
      table.contains_many(keys, flags).value();
      for (std::size_t i = 0; i < keys.size(); i += 2) ASSERT_FALSE(there[i]) << i;
    }
  });
  EXPECT_EQ(table.size(), stored - erased);
  const auto there = std::make_unique<bool[]>(kShared);
  EXPECT_EQ(table.contains_many(shared, {there.get(), kShared}).value(), kShared);
  // Removes all records of each.
  const std::size_t before = table.size();
  EXPECT_EQ(table.erase_many(shared).value(), before - kThreads * kOwn);
  EXPECT_EQ(table.size(), kThreads * kOwn);
}

// Where the order is kept, a batch is one step for all: nobody else's keys come between.
TYPED_TEST(PartitionedThreads, StoreManyKeysInARowOfTheMergedWalk) {
  if constexpr (requires(TypeParam table) { table.in_order(); }) {
    const auto library = morva::extension::linked().value();
    auto table = make<TypeParam>(library, 16);
    constexpr int kBatches = 8;
    constexpr int kEach = 60;
    std::atomic<int> torn{0};
    together([&](int number) {
      for (int batch = 0; batch < kBatches; ++batch) {
        std::vector<decltype(this->key(0))> keys;
        std::vector<int> data;
        for (int i = 0; i < kEach; ++i) {
          data.push_back((batch * kThreads + number) * kEach + i);
          keys.push_back(this->key(data.back()));
        }
        ASSERT_EQ(table.insert_many(keys, data).value(), keys.size());
        const auto all = table.lock();
        if (table.size() % kEach != 0) ++torn;
      }
    });
    EXPECT_EQ(torn, 0);
    int last = kEach - 1;
    auto walk = table.in_order().value();
    for (const auto entry : walk) {
      if (last % kEach == kEach - 1) {
        ASSERT_EQ(entry.data % kEach, 0);
      } else {
        ASSERT_EQ(entry.data, last + 1);
      }
      last = entry.data;
    }
    EXPECT_EQ(table.size(), static_cast<std::size_t>(kThreads * kBatches * kEach));
  }
}

TYPED_TEST(PartitionedThreads, SearchThroughReadersBesideEachOther) {
  const auto library = morva::extension::linked().value();
  auto table = make<TypeParam>(library);
  constexpr int kKeys = 600;
  for (int n = 0; n < kKeys; ++n) ASSERT_TRUE(table.insert(this->key(n), n * 3));
  together([&](int number) {
    auto reader = table.reader();
    for (int i = 0; i < kKeys; ++i) {
      const int n = (i * 7 + number * 13) % (kKeys + 50);
      const auto at = reader.find(this->key(n));
      ASSERT_EQ(static_cast<bool>(at), n < kKeys);
      if (at) {
        ASSERT_EQ(at->data, n * 3);
      }
      ASSERT_EQ(reader.contains(this->key(n)), n < kKeys);
    }
  });
}

template <class Table>
void sumInParallel() {
  const auto library = morva::extension::linked().value();
  auto table = make<Table>(library);
  constexpr int kEach = 2000;
  constexpr int kGroups = 50;
  together([&](int number) {
    for (int i = 0; i < kEach; ++i) {
      const auto group = static_cast<std::uint64_t>((i + number) % kGroups);
      ASSERT_TRUE(table.add_to_sum(group, i, 0));
      if (i % 4 == 0) {
        ASSERT_TRUE(table.add_to_sum(group, 1.0));
        ASSERT_TRUE(table.add_to_sum(table.find(group), -1.0));
      }
      ASSERT_GE(table.sum(group), 0.0);
    }
  });
  EXPECT_EQ(table.size(), std::size_t{kGroups});
  double total = 0;
  for (std::uint64_t group = 0; group < kGroups; ++group) total += table.sum(group);
  EXPECT_EQ(total, kThreads * (kEach * (kEach - 1) / 2));
}

TEST(PartitionedSums, AreAddedUpInParallel) {
  sumInParallel<Parted<std::uint64_t, sums>>();
}

TEST(PartitionedSums, AreAddedUpInParallelBySumsThatComeInOrder) {
  sumInParallel<Parted<std::uint64_t, sums, ordered>>();
}

template <class Table>
void sumManyInParallel(std::size_t parts) {
  const auto library = morva::extension::linked().value();
  auto table = make<Table>(library, parts);
  constexpr int kRounds = 10;
  constexpr std::size_t kGroups = 130;
  std::vector<std::uint64_t> groups;
  for (std::uint64_t n = 0; n < 2 * kGroups; ++n) groups.push_back(n % kGroups);
  const std::vector<double> ones(groups.size(), 1.0);
  together([&](int number) {
    // And some that no other thread has, which come and go.
    std::vector<std::uint64_t> own;
    for (std::uint64_t n = 0; n < 200; ++n) {
      own.push_back(1000 * (static_cast<std::uint64_t>(number) + 1) + n % 100);
    }
    const std::vector<double> amounts(own.size(), 0.25);
    for (int round = 0; round < kRounds; ++round) {
      ASSERT_EQ(table.add_to_sum_many(groups, ones, number).value(), groups.size());
      ASSERT_EQ(table.add_to_sum_many(groups, ones).value(), groups.size());
      ASSERT_EQ(table.add_to_sum_many(own, amounts, number).value(), own.size());
      ASSERT_EQ(table.sum(own.back()), 0.5);
      ASSERT_EQ(table.erase_many(own).value(), own.size() / 2);
    }
  });
  EXPECT_EQ(table.size(), kGroups);
  for (std::uint64_t n = 0; n < kGroups; ++n) ASSERT_EQ(table.sum(n), 4.0 * kRounds * kThreads);
}

TEST(PartitionedSums, OfManyKeysAreAddedUpInParallel) {
  sumManyInParallel<Parted<std::uint64_t, sums>>(8);
  sumManyInParallel<Parted<std::uint64_t, sums>>(512);
}

TEST(PartitionedSums, OfManyKeysAreAddedUpInParallelBySumsThatComeInOrder) {
  sumManyInParallel<Parted<std::uint64_t, sums, ordered>>(8);
  sumManyInParallel<Parted<std::uint64_t, sums, ordered>>(512);
}

TEST(PartitionedGuards, OfAllPartsKeepOthersOutBetweenBatches) {
  const auto library = morva::extension::linked().value();
  auto table = make<Parted<std::uint64_t>>(library);
  std::vector<std::uint64_t> keys(400);
  for (std::size_t i = 0; i < keys.size(); ++i) keys[i] = i;
  together([&](int) {
    std::vector<Parted<std::uint64_t>::cursor> found(keys.size());
    for (int round = 0; round < 20; ++round) {
      const auto all = table.lock();
      ASSERT_EQ(table.insert_many(keys, std::vector<int>(keys.size())).value(), keys.size());
      ASSERT_EQ(table.find_many(keys, std::span(found)).value(), keys.size());
      for (const auto at : found) at->data += 1;
      ASSERT_EQ(table.erase_many(keys).value(), keys.size());
    }
  });
  EXPECT_TRUE(table.empty());
}

TEST(PartitionedGuards, OfAKeyKeepOthersOutOfItsPart) {
  const auto library = morva::extension::linked().value();
  auto table = make<Parted<std::uint64_t>>(library);
  constexpr int kEach = 1000;
  together([&](int number) {
    for (int i = 0; i < kEach; ++i) {
      const auto key = static_cast<std::uint64_t>((i + number) % 10);
      const auto hold = table.lock(key);
      const auto at = table.find_or_insert(key, 0).value().position;
      at->data = at->data + 1;
    }
  });
  int total = 0;
  for (const auto entry : table) total += entry.data;
  EXPECT_EQ(total, kThreads * kEach);
}

TEST(PartitionedGuards, OfAllPartsLetAThreadSeeTheWholeTable) {
  const auto library = morva::extension::linked().value();
  auto table = make<Parted<std::uint64_t, ordered>>(library);
  for (std::uint64_t key = 0; key < 100; ++key) ASSERT_TRUE(table.insert(key, 10));
  together([&](int number) {
    for (int i = 0; i < 60; ++i) {
      const auto all = table.lock();
      if (number % 2 == 0) {
        // From one key to another: the total stays.
        table.find(static_cast<std::uint64_t>(i))->data -= 5;
        table.find(static_cast<std::uint64_t>(99 - i))->data += 5;
      } else {
        int total = 0;
        auto walk = table.in_order().value();
        for (const auto entry : walk) total += entry.data;
        ASSERT_EQ(total, 1000);
      }
    }
  });
}

TEST(PartitionedWalks, AreSharedByThreadsPartByPart) {
  const auto library = morva::extension::linked().value();
  auto table = make<Parted<std::uint64_t>>(library, 16);
  for (std::uint64_t key = 0; key < 3000; ++key) {
    ASSERT_TRUE(table.insert(key, static_cast<int>(key)));
  }
  std::atomic<std::size_t> next{0};
  std::atomic<int> total{0};
  together([&](int) {
    for (std::size_t part; (part = next++) < table.parts();) {
      int sum = 0;
      for (auto at = table.begin(part); at != table.end(part); ++at) sum += at->data;
      total += sum;
    }
  });
  EXPECT_EQ(total, 2999 * 3000 / 2);
}

TEST(PartitionedTables, AreClearedComparedAndCountedBesideChanges) {
  const auto library = morva::extension::linked().value();
  auto one = make<Parted<std::uint64_t, ordered>>(library, 4);
  auto two = make<Parted<std::uint64_t, ordered>>(library, 8);
  std::vector<std::pair<std::uint64_t, int>> pairs;
  for (std::uint64_t key = 0; key < 50; ++key) pairs.emplace_back(key, 1);
  together([&](int number) {
    for (int i = 0; i < 50; ++i) {
      switch (number) {
        case 0:
          ASSERT_TRUE(one.insert_range(pairs));
          ASSERT_TRUE(two.insert_range(pairs));
          break;
        case 1:
          ASSERT_TRUE(erase_if(one, [](const auto &entry) { return entry.key % 2 == 0; }));
          if (i % 2 == 0) {
            two.clear();
          } else {
            two.clear_keeping_memory();
          }
          break;
        case 2:
          ASSERT_TRUE((one == two) || one.size() <= 50);
          break;
        default:
          ASSERT_TRUE((two == one) || two.size() <= 50);
          ASSERT_EQ(one.empty() && one.size() > 50, false);
          break;
      }
    }
  });
  one.clear();
  two.clear();
  EXPECT_TRUE(one == two);
}

// Who holds a part may use the keys of that part, many at a time too.
TEST(PartitionedThreads, HoldAPartEachAndInsertManyKeysOfIt) {
  auto library = morva::extension::linked().value();
  auto table = make<Parted<std::uint64_t, ordered>>(library, kThreads);
  std::vector<std::vector<std::uint64_t>> keys(kThreads);
  for (std::uint64_t key = 0; key < 1000; ++key) keys[table.part_of(key)].push_back(key);
  std::barrier all_hold(kThreads);
  together([&](int number) {
    const auto &own = keys[static_cast<std::size_t>(number)];
    const morva::guard hold = table.lock(own.front());
    all_hold.arrive_and_wait();
    EXPECT_EQ(table.insert_many(own, std::vector<int>(own.size(), number)).value(), own.size());
  });
  EXPECT_EQ(table.size(), 1000U);
}

}  // namespace
