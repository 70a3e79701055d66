// Hosts that have no memory, at every moment there is.
#include "recording_tables.h"

namespace cpp_test {
namespace {

using morva::duplicates;
using morva::locked;
using morva::ordered;
using morva::sums;

template <class Feature, class Table>
inline constexpr bool has = false;
template <class Feature, class Key, class Data, class... Features>
inline constexpr bool has<Feature, morva::table<Key, Data, Features...>> =
    (std::is_same_v<Feature, Features> || ...);

template <class Table>
class Failures : public RecordingTables {
 protected:
  static auto key(int number) { return keyOf<Table>(number); }
};
using Tables = ::testing::Types<
    morva::table<std::uint32_t, int>, morva::table<std::uint32_t, int, ordered>,
    morva::table<std::uint32_t, int, ordered, duplicates, sums, locked>,
    morva::table<morva::text<16>, int, duplicates>, morva::table<std::string_view, int>,
    morva::table<std::string_view, int, ordered, locked>, morva::table<RowKey, int, sums>,
    morva::table<RowKey, int, ordered, duplicates, locked>>;
TYPED_TEST_SUITE(Failures, Tables);

TYPED_TEST(Failures, MakingATableLeavesNothingBehind) {
  auto &recording = this->recording;
  const std::uint64_t pools = recording.poolsAlive();
  const std::uint64_t blocks = recording.blocksAlive();
  for (const bool allLater : {false, true}) {
    this->failEverywhere(
        allLater,
        [&] { return errorOf(TypeParam::make(*this->library, {.name = "t", .expected = 2})); },
        [&] {
          EXPECT_EQ(recording.poolsAlive(), pools);
          EXPECT_EQ(recording.blocksAlive(), blocks);
          EXPECT_EQ(recording.companionsAlive(), 0U);
          EXPECT_EQ(recording.objectsAlive(), 0U);
        });
  }
  EXPECT_TRUE(TypeParam::make(*this->library));
  // The lock of a creation that fails later is left to the host, which makes its
  // order list last.
  const bool both = has<locked, TypeParam> && has<ordered, TypeParam>;
  EXPECT_EQ(recording.locksAlive() != 0, both);
  this->locksLeft = recording.locksAlive();
}

// Inserts key `number` in all the ways there are, one after the other.
template <class Table>
std::vector<std::function<std::optional<errc>(int)>> waysToStore(Table &table) {
  std::vector<std::function<std::optional<errc>(int)>> ways = {
      [&](int n) { return errorOf(table.insert(keyOf<Table>(n), n)); },
      [&](int n) { return errorOf(table.insert_or_assign(keyOf<Table>(n), n)); },
      [&](int n) { return errorOf(table.find_or_insert(keyOf<Table>(n), n)); },
      [&](int n) {
        const auto key = keyOf<Table>(n);
        return errorOf(table.insert_range(std::vector<std::pair<decltype(key), int>>{{key, n}}));
      }};
  if constexpr (requires { table.add_to_sum(keyOf<Table>(1), 1.0, 1); }) {
    ways.push_back([&](int n) { return errorOf(table.add_to_sum(keyOf<Table>(n), n + 0.5, n)); });
  }
  return ways;
}

// Among the hundreds of keys come all moments at which record blocks and blocks
// of order nodes are taken.
TYPED_TEST(Failures, StoringLeavesTheTableAsItWas) {
  for (const bool allLater : {false, true}) {
    auto table = got(TypeParam::make(*this->library, {.expected = 4}));
    const auto ways = waysToStore(table);
    int failures = 0;
    for (int n = 0; n < 400; ++n) {
      SCOPED_TRACE(::testing::Message() << "key " << n);
      const auto before = look(table);
      this->failEverywhere(
          allLater, [&] { return ways[static_cast<std::size_t>(n) % ways.size()](n); },
          [&] {
            ++failures;
            ASSERT_EQ(look(table), before);
            ASSERT_FALSE(table.contains(this->key(n)));
            ASSERT_FALSE(table.find(this->key(n)));
            ASSERT_EQ(table.count(this->key(n)), 0U);
            if (n > 0) {
              ASSERT_TRUE(table.contains(this->key(n - 1)));
            }
          });
      if (this->HasFatalFailure()) return;
      ASSERT_TRUE(table.contains(this->key(n)));
      // Where a way was repeated until it stored, it stored once.
      ASSERT_EQ(table.count(this->key(n)), 1U);
      ASSERT_EQ(table.size(), static_cast<std::size_t>(n) + 1);
    }
    EXPECT_GT(failures, 3);
    for (int n = 0; n < 400; ++n) ASSERT_EQ(table.find(this->key(n))->data, n);
    for (int n = 0; n < 400; n += 2) ASSERT_EQ(got(table.erase(this->key(n))), 1U);
    EXPECT_EQ(table.size(), 200U);
    table.clear();
    EXPECT_EQ(this->recording.blocksAlive("records"), 0U);
    EXPECT_EQ(this->recording.blocksAlive("varkeys"), 0U);
    EXPECT_EQ(this->recording.blocksAlive("inodes"), 0U);
    EXPECT_EQ(this->recording.locksHeld(), 0U);
    ASSERT_TRUE(got(table.insert(this->key(1), 1)));
  }
}

TYPED_TEST(Failures, ErasingAndLookingUpNeedNoMemoryOfAHostThatHasNone) {
  auto table = got(TypeParam::make(*this->library, {.expected = 4}));
  for (int n = 0; n < 100; ++n) got(table.insert(this->key(n), n));
  this->recording.failFromNth(1);
  const auto &constant = table;
  for (int n = 0; n < 200; ++n) {
    ASSERT_EQ(constant.contains(this->key(n)), n < 100);
    ASSERT_EQ(constant.count(this->key(n)), n < 100 ? 1U : 0U);
  }
  ASSERT_EQ(look(constant).records.size(), 100U);
  EXPECT_EQ(this->recording.failuresDelivered(), 0U);
  // Erasing takes a slot for a moment, which may be the first of a new block.
  for (int n = 0; n < 100; ++n) {
    const auto before = look(table);
    const auto erased = table.erase(this->key(n));
    if (!erased) {
      ASSERT_EQ(erased.error(), errc::no_memory);
      ASSERT_EQ(look(table), before);
      this->recording.failNever();
      ASSERT_EQ(got(table.erase(this->key(n))), 1U);
      this->recording.failFromNth(1);
    }
    ASSERT_FALSE(table.contains(this->key(n)));
  }
  this->recording.failNever();
  EXPECT_TRUE(table.empty());
}

// ---- the order node that cannot be had ----------------------------------------------

template <class Table>
class OrderNodes : public RecordingTables {
 protected:
  // Whether the next new key takes a block of order nodes.
  static bool atTheEdge(const Table &table) {
    const MORVAInst *inst = table.native();
    return inst->freeInodes == nullptr && inst->inodesUsed >= inst->inodeBlockCapacity;
  }
};
using OrderedTables =
    ::testing::Types<morva::table<std::uint32_t, int, ordered>,
                     morva::table<std::uint32_t, int, ordered, duplicates, sums, locked>,
                     morva::table<std::string_view, int, ordered>,
                     morva::table<RowKey, int, ordered, duplicates>>;
TYPED_TEST_SUITE(OrderNodes, OrderedTables);

TYPED_TEST(OrderNodes, ThatCannotBeHadStopTheInsertAndNothingElse) {
  auto table = got(TypeParam::make(*this->library, {.expected = 1}));
  int edges = 0;
  for (int n = 0; n < 300; ++n) {
    if (this->atTheEdge(table)) {
      SCOPED_TRACE(::testing::Message() << "key " << n);
      ++edges;
      // Slots for the records, so that it is the order node that fails.
      for (int more = 1000; more < 1040; ++more) {
        got(table.find_or_insert(keyOf<TypeParam>(more), more));
      }
      while (!this->atTheEdge(table)) {
        got(table.insert(keyOf<TypeParam>(5000 + static_cast<int>(table.size())), 0));
      }
      const auto before = look(table);
      for (int again = 0; again < 3; ++again) {
        this->recording.failFromNth(1);
        const auto stored = table.insert(keyOf<TypeParam>(n), n);
        const auto replaced = table.insert_or_assign(keyOf<TypeParam>(n), n);
        this->recording.failNever();
        ASSERT_EQ(stored.error(), errc::no_memory);
        ASSERT_EQ(replaced.error(), errc::no_memory);
        ASSERT_EQ(look(table), before);
        ASSERT_FALSE(table.contains(keyOf<TypeParam>(n)));
      }
    }
    ASSERT_TRUE(got(table.insert(keyOf<TypeParam>(n), n)));
  }
  EXPECT_GE(edges, 2);
  const std::vector<int> numbers = keyNumbers(table);
  EXPECT_EQ(numbers.size(), table.size());
  for (int n = 0; n < 300; ++n) ASSERT_EQ(got(table.erase(keyOf<TypeParam>(n))), 1U);
  for (auto at = table.begin(); at != table.end();) at = got(table.erase(at));
  EXPECT_TRUE(table.empty());
}

TYPED_TEST(OrderNodes, AreNotNeededForKeysThatAreThere) {
  auto table = got(TypeParam::make(*this->library, {.expected = 1}));
  for (int edge = 0; edge < 3; ++edge) {
    do {
      const int n = static_cast<int>(table.size());
      got(table.insert(keyOf<TypeParam>(n), n));
    } while (!this->atTheEdge(table));
    // A free slot to look the key up with.
    got(table.find_or_insert(keyOf<TypeParam>(0)));
    got(table.insert_or_assign(keyOf<TypeParam>(0), 1));
    const std::size_t size = table.size();
    this->recording.failFromNth(1);
    const auto replaced = table.insert_or_assign(keyOf<TypeParam>(0), 2);
    const auto found = table.find_or_insert(keyOf<TypeParam>(0), 3);
    this->recording.failNever();
    ASSERT_TRUE(replaced);
    EXPECT_FALSE(*replaced);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->position->data, 2);
    EXPECT_EQ(table.size(), size);
  }
}

TYPED_TEST(OrderNodes, OfATableThatIsClearedAfterAFailureComeAnew) {
  auto table = got(TypeParam::make(*this->library, {.expected = 1}));
  for (const bool keeping : {true, false, true}) {
    for (int n = 0; n < 100 || !this->atTheEdge(table); ++n) {
      got(table.insert(keyOf<TypeParam>(n), n));
    }
    this->recording.failFromNth(1);
    EXPECT_FALSE(table.insert(keyOf<TypeParam>(9999), 1));
    this->recording.failNever();
    if (keeping) {
      table.clear_keeping_memory();
    } else {
      table.clear();
    }
    EXPECT_TRUE(table.empty());
    EXPECT_EQ(look(table).records.size(), 0U);
    for (int n = 0; n < 200; ++n) ASSERT_TRUE(got(table.insert(keyOf<TypeParam>(n), n)));
    EXPECT_EQ(look(table).records.size(), 200U);
    table.clear();
  }
}

class OwnHosts : public RecordingTables {};

TEST_F(OwnHosts, WithoutAWalkHaveNoOrderedTables) {
  library.reset();
  host = morva::host::of(recording.services()).value();
  library = morva::extension::linked(*host).value();
  using Ordered = morva::table<int, int, ordered>;
  const std::uint64_t pools = recording.poolsAlive();
  EXPECT_EQ(Ordered::make(*library).error(), errc::unsupported);
  EXPECT_EQ(recording.poolsAlive(), pools) << "nothing was begun";
  EXPECT_TRUE((morva::table<int, int>::make(*library)));
}

TEST_F(OwnHosts, WithAWalkHaveThem) {
  auto table = got(morva::table<int, int, ordered>::make(*library));
  for (const int key : {5, 3, 9, 1}) got(table.insert(key, key));
  got(table.erase(9));
  std::vector<int> walked;
  for (const auto entry : table) walked.push_back(entry.key);
  EXPECT_EQ(walked, (std::vector<int>{5, 3, 1}));
}

TEST_F(OwnHosts, WhosePackerTakesNoKeyAreRefused) {
  using Table = morva::table<RowKey, int>;
  const std::uint64_t pools = recording.poolsAlive();
  for (const std::uint64_t field : {1, 2}) {
    recording.failCall(Call::defineField, field);
    EXPECT_EQ(Table::make(*library).error(), errc::refused) << field;
  }
  recording.failCall(Call::finish);
  EXPECT_EQ(Table::make(*library).error(), errc::refused);
  recording.failNever();
  EXPECT_EQ(recording.poolsAlive(), pools);
  EXPECT_TRUE(Table::make(*library));
}

TEST_F(OwnHosts, WithoutMemoryGiveNoExtension) {
  library.reset();
  failEverywhere(
      false,
      [&]() -> std::optional<errc> {
        const auto made = morva::extension::linked(*host);
        if (made) return std::nullopt;
        return made.error().code;
      },
      [&] { EXPECT_EQ(recording.alive(), ""); });
  EXPECT_TRUE(morva::extension::linked(*host));
}

}  // namespace
}  // namespace cpp_test
