// Partitioned tables on hosts that have no memory.
#include "recording_tables.h"

namespace cpp_test {
namespace {

using morva::duplicates;
using morva::ordered;
using morva::sums;

template <class Key, class... Features>
using Parted = morva::partitioned_table<Key, int, Features...>;

template <class Table>
class PartitionedFailures : public RecordingTables {};
using Tables =
    ::testing::Types<Parted<std::uint32_t>, Parted<std::uint32_t, ordered, duplicates, sums>,
                     Parted<std::string_view, ordered>, Parted<RowKey, ordered, sums>>;
TYPED_TEST_SUITE(PartitionedFailures, Tables);

TYPED_TEST(PartitionedFailures, MakingATableLeavesNothingBehind) {
  auto &recording = this->recording;
  const std::uint64_t pools = recording.poolsAlive();
  const std::uint64_t blocks = recording.blocksAlive();
  for (const bool allLater : {false, true}) {
    this->failEverywhere(
        allLater,
        [&] { return errorOf(TypeParam::make(*this->library, {.expected = 8, .parts = 4})); },
        [&] {
          EXPECT_EQ(recording.poolsAlive(), pools);
          EXPECT_EQ(recording.blocksAlive(), blocks);
          EXPECT_EQ(recording.companionsAlive(), 0U);
          EXPECT_EQ(recording.objectsAlive(), 0U);
        });
  }
  EXPECT_TRUE(TypeParam::make(*this->library, {.parts = 2}));
  // The lock of a part whose order list could not be made is left to the host.
  this->locksLeft = recording.locksAlive();
}

// Inserts key `number` in one of all the ways there are.
template <class Table>
std::optional<errc> store(Table &table, int number) {
  const auto key = keyOf<Table>(number);
  switch (number % 5) {
    case 0:
      return errorOf(table.insert(key, number));
    case 1:
      return errorOf(table.insert_or_assign(key, number));
    case 2:
      return errorOf(table.find_or_insert(key, number));
    case 3:
      return errorOf(table.insert_range(std::vector<std::pair<decltype(key), int>>{{key, number}}));
    default:
      break;
  }
  if constexpr (requires { table.add_to_sum(key, 1.0, 1); }) {
    return errorOf(table.add_to_sum(key, number + 0.5, number));
  } else {
    return errorOf(table.insert(key, number));
  }
}

template <class Table>
std::vector<int> numbersInOrder(const Table &table) {
  std::vector<int> numbers;
  auto walk = got(table.in_order());
  for (const auto entry : walk) {
    numbers.push_back(KeyKind<typename Table::key_type>::number(entry.key));
  }
  return numbers;
}

TYPED_TEST(PartitionedFailures, StoringLeavesTheTableAsItWas) {
  for (const bool allLater : {false, true}) {
    auto table = got(TypeParam::make(*this->library, {.expected = 4, .parts = 4}));
    std::vector<int> inserted;
    int failures = 0;
    for (int n = 0; n < 300; ++n) {
      SCOPED_TRACE(::testing::Message() << "key " << n);
      const auto before = look(table);
      this->failEverywhere(
          allLater, [&] { return store(table, n); },
          [&] {
            ++failures;
            ASSERT_EQ(look(table), before);
            ASSERT_FALSE(table.contains(keyOf<TypeParam>(n)));
          });
      if (this->HasFatalFailure()) return;
      // Where a way was repeated until it stored, it stored once.
      ASSERT_EQ(table.count(keyOf<TypeParam>(n)), 1U);
      inserted.push_back(n);
    }
    EXPECT_GT(failures, 8);
    if constexpr (requires { table.in_order(); }) {
      EXPECT_EQ(numbersInOrder(table), inserted);
    }
    for (int n = 0; n < 300; n += 2) ASSERT_EQ(got(table.erase(keyOf<TypeParam>(n))), 1U);
    EXPECT_EQ(table.size(), 150U);
    table.clear();
    EXPECT_EQ(this->recording.blocksAlive("records"), 0U);
    EXPECT_EQ(this->recording.blocksAlive("varkeys"), 0U);
    EXPECT_EQ(this->recording.locksHeld(), 0U);
  }
}

class PartitionedOnOwnHosts : public RecordingTables {};

TEST_F(PartitionedOnOwnHosts, WithoutAWalkAreNotOrdered) {
  library.reset();
  host = morva::host::of(recording.services()).value();
  library = morva::extension::linked(*host).value();
  const std::uint64_t pools = recording.poolsAlive();
  EXPECT_EQ((Parted<int, ordered>::make(*library)).error(), errc::unsupported);
  EXPECT_EQ(recording.poolsAlive(), pools) << "nothing was begun";
  EXPECT_TRUE((Parted<int>::make(*library)));
}

TEST_F(PartitionedOnOwnHosts, GiveAllLocksBackAfterAGuardOfAllParts) {
  auto table = got(Parted<int>::make(*library, {.parts = 8}));
  {
    auto all = table.lock();
    EXPECT_EQ(recording.locksHeld(), 8U);
    const auto moved = std::move(all);
    EXPECT_EQ(recording.locksHeld(), 8U);
    ASSERT_TRUE(got(table.insert(1, 1)));
    const auto one = table.lock(1);
  }
  EXPECT_EQ(recording.locksHeld(), 0U);
}

// ---- Memory limits ------------------------------------------------------------------------

template <class Table>
class PartitionedLimits : public ::testing::Test {};
using LimitedTables =
    ::testing::Types<Parted<std::uint64_t>, Parted<std::uint32_t, ordered, duplicates, sums>,
                     Parted<std::string_view, ordered>>;
TYPED_TEST_SUITE(PartitionedLimits, LimitedTables);

TYPED_TEST(PartitionedLimits, AreMetWithATableThatGoesOn) {
  for (const std::uint64_t limit : {300'000U, 500'000U, 1'000'000U}) {
    SCOPED_TRACE(limit);
    const auto library = morva::extension::linked({.memory_limit = limit}).value();
    auto table = got(TypeParam::make(library, {.expected = 64, .parts = 4}));
    // The parts do not come to their limits at once: what one cannot store, another may.
    std::vector<int> stored;
    int refused = 0;
    for (int n = 0; refused < 50; ++n) {
      const auto answer = table.insert(keyOf<TypeParam>(n), n);
      if (answer) {
        stored.push_back(n);
        continue;
      }
      ++refused;
      ASSERT_EQ(answer.error(), errc::no_memory);
      ASSERT_FALSE(table.contains(keyOf<TypeParam>(n)));
      ASSERT_EQ(table.size(), stored.size());
    }
    ASSERT_GT(stored.size(), 50U);
    std::vector<int> numbers = keyNumbers(table);
    std::sort(numbers.begin(), numbers.end());
    ASSERT_EQ(numbers, stored);
    if constexpr (requires { table.in_order(); }) {
      ASSERT_EQ(numbersInOrder(table), stored);
    }
    for (const int n : stored) ASSERT_EQ(table.find(keyOf<TypeParam>(n))->data, n);
    table.clear();
    EXPECT_TRUE(table.empty());
    ASSERT_TRUE(got(table.insert(keyOf<TypeParam>(1), 1)));
  }
}

TEST(PartitionedMemoryLimits, RefuseATableWithTooManyBuckets) {
  const auto library = morva::extension::linked({.memory_limit = 1 << 20}).value();
  EXPECT_EQ(Parted<int>::make(library, {.expected = 1 << 20}).error(), errc::no_memory);
  EXPECT_TRUE(Parted<int>::make(library, {.expected = 1 << 10}));
  // As many parts as there can be are not refused, but need memory.
  EXPECT_EQ(Parted<int>::make(library, {.expected = 1, .parts = 65536}).error(), errc::no_memory);
}

}  // namespace
}  // namespace cpp_test
