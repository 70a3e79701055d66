// What operations on many keys at a time take: kinds of ranges, keys that no
// table has, too little room, tables that were moved from.
#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <limits>
#include <memory>
#include <ranges>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "morva/throws.hpp"
#include "tables.h"

namespace cpp_test {
namespace {

using morva::errc;
using morva::sums;
using morva::throws;

using Number = std::uint64_t;
using Numbers = morva::table<Number, int>;
using Summed = morva::table<Number, int, sums>;
using Words = morva::table<std::string_view, int>;
using Short = morva::table<morva::text<4>, int, sums>;

struct Holder {
  int before;
  Number id;
  std::string name;
};

// ---- Ranges -------------------------------------------------------------------------

class ManyRanges : public ::testing::Test {
 protected:
  template <class Keys>
  void expectTwoOf(Keys &&keys) {
    std::array<Numbers::cursor, 3> found;
    EXPECT_EQ(numbers.find_many(keys, found).value(), 2U);
    EXPECT_TRUE(found[0] && found[0]->data == 10);
    EXPECT_FALSE(found[1]);
    EXPECT_TRUE(found[2] && found[2]->data == 30);
    std::array<bool, 3> there{};
    EXPECT_EQ(std::as_const(numbers).contains_many(std::forward<Keys>(keys), there).value(), 2U);
    EXPECT_EQ(there, (std::array{true, false, true}));
  }
  template <class Keys>
  void expectTwoWordsOf(Keys &&keys) {
    std::array<Words::const_cursor, 3> found;
    EXPECT_EQ(std::as_const(words).find_many(keys, found).value(), 2U);
    EXPECT_TRUE(found[0] && found[0]->data == 10);
    EXPECT_FALSE(found[1]);
    EXPECT_TRUE(found[2] && found[2]->data == 30);
    EXPECT_EQ(words.erase_many(std::forward<Keys>(keys)).value(), 2U);
    EXPECT_EQ(words.insert_many(keys, std::array{10, 20, 30}).value(), 3U);
    EXPECT_EQ(words.erase("two").value(), 1U);
  }

  void SetUp() override {
    for (const Number key : {1U, 3U}) ASSERT_TRUE(numbers.insert(key, static_cast<int>(key) * 10));
    ASSERT_TRUE(words.insert("one", 10));
    ASSERT_TRUE(words.insert(long3, 30));
  }

  morva::extension library = linkedLibrary();
  Numbers numbers = Numbers::make(library).value();
  Words words = Words::make(library).value();
  std::string long3 = std::string(300, '3');
};

TEST_F(ManyRanges, AreVectorsSpansArraysDequesAndViews) {
  std::vector<Number> vector{1, 2, 3};
  expectTwoOf(vector);
  expectTwoOf(std::as_const(vector));
  expectTwoOf(std::vector<Number>{1, 2, 3});
  expectTwoOf(std::span(vector));
  expectTwoOf(std::span<const Number, 3>(vector));
  expectTwoOf(std::array<Number, 3>{1, 2, 3});
  const Number plain[] = {1, 2, 3};
  expectTwoOf(plain);
  // A deque of several blocks, begun in the middle of one.
  std::deque<Number> deque(1000, 7);
  deque.insert(deque.end(), {1, 2, 3});
  deque.erase(deque.begin(), deque.begin() + 1000);
  expectTwoOf(deque);
  expectTwoOf(std::views::reverse(std::array<Number, 3>{3, 2, 1}));
  std::vector<Number> more{0, 1, 2, 3, 4};
  expectTwoOf(more | std::views::drop(1) | std::views::take(3));
  expectTwoOf(std::ranges::subrange(more.begin() + 1, more.end() - 1));
  std::vector<Holder> holders{{0, 1, ""}, {0, 2, ""}, {0, 3, ""}};
  expectTwoOf(holders | std::views::transform(&Holder::id));
}

TEST_F(ManyRanges, OfTextAreWhateverShowsAsAView) {
  const char *three = long3.c_str();
  expectTwoWordsOf(std::vector<std::string>{"one", "two", long3});
  expectTwoWordsOf(std::vector<std::string_view>{"one", "two", long3});
  expectTwoWordsOf(std::array<const char *, 3>{"one", "two", three});
  expectTwoWordsOf(std::deque<std::string>{"one", "two", long3});
  std::vector<Holder> holders{{0, 1, "one"}, {0, 2, "two"}, {0, 3, long3}};
  expectTwoWordsOf(holders | std::views::transform(&Holder::name));
  expectTwoWordsOf(holders | std::views::transform([](const Holder &holder) {
                     return std::string_view(holder.name);
                   }));
}

TEST_F(ManyRanges, OfDataAndAmountsAreAnyInARow) {
  std::vector<Holder> holders{{10, 1, ""}, {20, 2, ""}, {30, 3, ""}};
  const auto ids = holders | std::views::transform(&Holder::id);
  auto table = Summed::make(library).value();
  EXPECT_EQ(table.insert_many(ids, holders | std::views::transform(&Holder::before)).value(), 3U);
  EXPECT_EQ(table.find(2)->data, 20);
  // Made on the way, for they are copied at once.
  const auto tenth = [](const Holder &holder) { return holder.before / 10.0; };
  EXPECT_EQ(table.add_to_sum_many(ids, holders | std::views::transform(tenth)).value(), 3U);
  EXPECT_EQ(table.add_to_sum_many(ids, std::deque<double>{1, 2, 3}, 5).value(), 3U);
  EXPECT_EQ(table.sum(3), 6.0);
  std::vector<Number> more{4, 5, 6};
  EXPECT_EQ(table.insert_many(more, std::views::iota(40, 43)).value(), 3U);
  EXPECT_EQ(table.find(6)->data, 42);
  auto flags = morva::table<Number, bool>::make(library).value();
  EXPECT_EQ(flags.insert_many(more, std::vector<bool>{true, false, true}).value(), 3U);
  EXPECT_TRUE(flags.find(4)->data && !flags.find(5)->data && flags.find(6)->data);
}

template <class Table, class Keys>
concept FindsMany = requires(Table &table, Keys &&keys, std::span<typename Table::cursor> found) {
  table.find_many(std::forward<Keys>(keys), found);
};

template <class Element>
using MadeOnTheWay = decltype(std::declval<std::vector<Holder> &>() |
                              std::views::transform(std::declval<Element (*)(Holder &)>()));

TEST(RangesOfKeys, AreRefusedWhenTheirElementsAreNoKeysInPlace) {
  EXPECT_TRUE((FindsMany<Numbers, std::vector<Number>>));
  EXPECT_TRUE((FindsMany<Numbers, const std::vector<Number> &>));
  EXPECT_TRUE((FindsMany<Words, std::vector<std::string> &>));
  EXPECT_TRUE((FindsMany<Words, MadeOnTheWay<std::string_view>>));
  EXPECT_TRUE((FindsMany<Numbers, MadeOnTheWay<Number &>>));
  EXPECT_FALSE((FindsMany<Numbers, std::vector<int> &>));
  EXPECT_FALSE((FindsMany<Numbers, std::vector<std::uint32_t> &>));
  EXPECT_FALSE((FindsMany<Numbers, std::vector<std::int64_t> &>));
  EXPECT_FALSE((FindsMany<Numbers, std::ranges::iota_view<Number, Number>>));
  EXPECT_FALSE((FindsMany<Numbers, MadeOnTheWay<Number>>));
  EXPECT_FALSE((FindsMany<Words, MadeOnTheWay<std::string>>));
  EXPECT_FALSE((FindsMany<Words, MadeOnTheWay<const char *>>));
  EXPECT_FALSE((FindsMany<Words, std::string &>));
  EXPECT_FALSE((FindsMany<Words, std::vector<int> &>));
  EXPECT_FALSE((FindsMany<Numbers, Number>));
  using Flags = morva::table<bool, int>;
  EXPECT_FALSE((FindsMany<Flags, std::vector<bool> &>));
  EXPECT_TRUE((FindsMany<Flags, std::array<bool, 3> &>));
}

// ---- Room and lengths --------------------------------------------------------------

TEST(ManyKeysAtATime, AreRefusedWithTooLittleRoomForTheAnswers) {
  for (const bool plain : {true, false}) {
    const auto library = morva::extension::linked({.locked_trees = !plain}).value();
    auto table = Numbers::make(library).value();
    ASSERT_TRUE(table.insert(1, 1));
    const std::vector<Number> keys{1, 2};
    std::array<Numbers::cursor, 1> found{table.begin()};
    EXPECT_EQ(table.find_many(keys, found).error(), errc::refused);
    EXPECT_TRUE(found[0] == table.begin());
    std::array<Numbers::const_cursor, 1> constant;
    EXPECT_EQ(std::as_const(table).find_many(keys, constant).error(), errc::refused);
    EXPECT_FALSE(constant[0]);
    std::array<bool, 1> there{false};
    EXPECT_EQ(table.contains_many(keys, there).error(), errc::refused);
    EXPECT_FALSE(there[0]);
    EXPECT_EQ(table.find_many(keys, std::span<Numbers::cursor>{}).error(), errc::refused);
    EXPECT_EQ(table.find_many(std::vector<Number>{}, std::span<Numbers::cursor>{}).value(), 0U);
  }
}

TEST(ManyKeysAtATime, AreRefusedWithDataOfAnotherLength) {
  const auto library = linkedLibrary();
  auto table = Summed::make(library).value();
  const std::vector<Number> keys{1, 2};
  std::array<bool, 2> stored{true, true};
  for (const std::size_t length : {0U, 1U, 3U}) {
    const std::vector<int> data(length, 5);
    EXPECT_EQ(table.insert_many(keys, data).error(), errc::refused);
    EXPECT_EQ(table.insert_many(keys, data, stored).error(), errc::refused);
    const std::vector<double> amounts(length, 1.0);
    EXPECT_EQ(table.add_to_sum_many(keys, amounts).error(), errc::refused);
    EXPECT_EQ(table.add_to_sum_many(keys, amounts, 7).error(), errc::refused);
  }
  std::array<bool, 1> few{true};
  EXPECT_EQ(table.insert_many(keys, std::array{1, 2}, few).error(), errc::refused);
  EXPECT_TRUE(few[0] && stored[0] && stored[1]);
  EXPECT_TRUE(table.empty());
  EXPECT_EQ(table.memory(), 0U);
  // More room than keys is no mistake.
  std::array<bool, 4> more{true, false, true, false};
  ASSERT_TRUE(table.insert(2, 2));
  EXPECT_EQ(table.insert_many(keys, std::array{1, 2}, more).value(), 1U);
  EXPECT_EQ(more, (std::array{true, false, true, false}));
}

TEST(ManyKeysAtATime, AreRefusedByThrowingWhereTheTableThrows) {
  using Table = morva::table<Number, int, sums, throws>;
  Table table(linkedLibrary());
  const std::vector<Number> keys{1, 2};
  EXPECT_THROW(table.insert_many(keys, std::array{1}), morva::failure);
  EXPECT_THROW(table.add_to_sum_many(keys, std::array{1.0}), morva::failure);
  EXPECT_THROW(table.add_to_sum_many(keys, std::array{1.0, 2.0}), std::out_of_range);
  std::array<Table::cursor, 1> found;
  std::array<Table::const_cursor, 1> constant;
  std::array<bool, 1> there;
  // An exception that leaves a noexcept function ends the program.
  ASSERT_FALSE(noexcept(table.find_many(keys, found)));
  ASSERT_FALSE(noexcept(std::as_const(table).find_many(keys, constant)));
  ASSERT_FALSE(noexcept(table.contains_many(keys, there)));
  EXPECT_THROW(table.find_many(keys, found), morva::failure);
  EXPECT_THROW(std::as_const(table).find_many(keys, constant), morva::failure);
  EXPECT_THROW(table.contains_many(keys, there), morva::failure);
}

// ---- Keys no table has -----------------------------------------------------------

TEST(ManyKeysAtATime, ThatAreTooLongAreNowhereAndCannotBeStored) {
  for (const bool plain : {true, false}) {
    SCOPED_TRACE(plain);
    const auto library = morva::extension::linked({.locked_trees = !plain}).value();
    auto table = Short::make(library).value();
    const std::vector<std::string> keys{"a", "abcd", "abcde", "b"};
    std::array<bool, 4> stored{false, false, true, true};
    EXPECT_EQ(table.insert_many(keys, std::array{1, 2, 3, 4}, stored).error(), errc::key_too_long);
    EXPECT_EQ(stored, (std::array{true, true, true, true}));  // the last two were not reached
    EXPECT_EQ(table.size(), 2U);
    EXPECT_FALSE(table.contains("b"));
    std::array<Short::cursor, 4> found;
    EXPECT_EQ(table.find_many(keys, found).value(), 2U);
    EXPECT_TRUE(found[0] && found[1] && !found[2] && !found[3]);
    const std::array<double, 4> amounts{1, 2, 3, 4};
    EXPECT_EQ(table.add_to_sum_many(keys, amounts).error(), errc::not_found);
    EXPECT_EQ(table.sum("abcd"), 2.0);
    EXPECT_EQ(table.add_to_sum_many(keys, amounts, 9).error(), errc::key_too_long);
    EXPECT_EQ(table.sum("abcd"), 4.0);
    EXPECT_FALSE(table.contains("b"));
    EXPECT_EQ(table.erase_many(keys).value(), 2U);
    EXPECT_TRUE(table.empty());
  }
}

TEST(ManyKeysAtATime, ThatAreLongerThanAnyTextAreNotLookedAt) {
  for (const bool plain : {true, false}) {
    const auto library = morva::extension::linked({.locked_trees = !plain}).value();
    // Nobody may read that far: 2 GiB at most can be a key, and no table has one so long.
    for (const std::size_t length : {std::size_t{0x7fff0001}, std::size_t{0x80000000},
                                     std::size_t{0x100000001}, std::size_t{0x7fff0000}}) {
      SCOPED_TRACE(length);
      auto table = Words::make(library).value();
      const char byte = 'x';
      const std::string_view endless(&byte, length);
      const std::vector<std::string_view> keys{"a", endless, "b"};
      ASSERT_TRUE(table.insert("a", 1));
      std::array<bool, 3> there{};
      EXPECT_EQ(table.contains_many(keys, there).value(), 1U);
      EXPECT_EQ(there, (std::array{true, false, false}));
      EXPECT_EQ(table.erase_many(keys).value(), 1U);
      if (length == 0x7fff0000) continue;
      EXPECT_EQ(table.insert_many(keys, std::array{1, 2, 3}).error(), errc::key_too_long);
      EXPECT_EQ(table.size(), 1U);
    }
  }
}

TEST(ManyKeysAtATime, MayBeEmptyAndWithoutAnAddress) {
  for (const bool plain : {true, false}) {
    const auto library = morva::extension::linked({.locked_trees = !plain}).value();
    auto words = Words::make(library).value();
    auto texts = Short::make(library).value();
    const std::vector<std::string_view> keys{{}, "", "a", {}};
    const std::array data{1, 2, 3, 4};
    EXPECT_EQ(words.insert_many(keys, data).value(), 2U);
    EXPECT_EQ(texts.insert_many(keys, data).value(), 2U);
    std::array<Words::cursor, 4> found;
    EXPECT_EQ(words.find_many(keys, found).value(), 4U);
    EXPECT_EQ(found[3]->data, 1);
    std::array<bool, 4> there{};
    EXPECT_EQ(texts.contains_many(keys, there).value(), 4U);
    EXPECT_EQ(words.erase_many(keys).value(), 2U);
    EXPECT_EQ(texts.erase_many(keys).value(), 2U);
  }
}

// ---- Tables moved from -------------------------------------------------------------

template <class Table>
void expectNoTable(Table &none) {
  using Key = decltype(keyOf<Table>(0));
  const std::vector<Key> keys{keyOf<Table>(1), keyOf<Table>(2)};
  const std::array data{1, 2};
  std::array<typename Table::cursor, 2> found;
  std::array<bool, 2> there{true, true};
  EXPECT_EQ(none.find_many(keys, found).value(), 0U);
  EXPECT_FALSE(found[0] || found[1]);
  EXPECT_EQ(std::as_const(none).contains_many(keys, there).value(), 0U);
  EXPECT_FALSE(there[0] || there[1]);
  EXPECT_EQ(none.insert_many(keys, data).error(), errc::no_table);
  EXPECT_EQ(none.erase_many(keys).error(), errc::no_table);
  if constexpr (requires { none.sum(keys[0]); }) {
    EXPECT_EQ(none.add_to_sum_many(keys, std::array{1.0, 2.0}).error(), errc::not_found);
    EXPECT_EQ(none.add_to_sum_many(keys, std::array{1.0, 2.0}, 1).error(), errc::no_table);
  }
  const std::vector<Key> no;
  EXPECT_EQ(none.insert_many(no, std::vector<int>{}).value(), 0U);
  EXPECT_EQ(none.erase_many(no).value(), 0U);
  EXPECT_FALSE(none.contains(keys[0]) || none.find(keys[0]));
}

template <class Table>
void expectNoTableAfterMoves(const morva::extension &library) {
  Table never;
  expectNoTable(never);
  auto table = Table::make(library).value();
  ASSERT_TRUE(table.insert(keyOf<Table>(1), 1));
  Table taken = std::move(table);
  expectNoTable(table);
  EXPECT_TRUE(taken.contains(keyOf<Table>(1)));
  swap(taken, never);
  expectNoTable(taken);
  const std::vector keys{keyOf<Table>(1), keyOf<Table>(2)};
  std::array<bool, 2> there{};
  EXPECT_EQ(never.contains_many(keys, there).value(), 1U);
}

TEST(TablesThatAreNone, HaveNothingOfManyKeys) {
  for (const bool plain : {true, false}) {
    const auto library = morva::extension::linked({.locked_trees = !plain}).value();
    expectNoTableAfterMoves<Summed>(library);
    expectNoTableAfterMoves<Words>(library);
    expectNoTableAfterMoves<morva::table<SaleKey, int, morva::locked>>(library);
  }
}

// ---- Sums ------------------------------------------------------------------------

// What is answered when the amounts are these, and the sums of keys 1 to 3 after it.
struct Sums {
  std::optional<errc> error;
  std::vector<double> sums;
  bool operator==(const Sums &) const = default;
};

Sums sumsAfter(Summed &table, const morva::result<std::size_t> &answer) {
  Sums seen;
  if (!answer) seen.error = answer.error();
  for (const Number key : {1U, 2U, 3U}) seen.sums.push_back(table.sum(key));
  return seen;
}

TEST(AmountsThatCannotBeAdded, EndTheAddingWithWhatWentBeforeAsOneAfterAnother) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const std::vector<Number> keys{1, 2, 2, 3};
  const std::vector<std::vector<double>> cases{{1, 2, kNan, 4},
                                               {1, kInfinity, -kInfinity, 4},
                                               {kNan, 2, 3, 4},
                                               {1, kInfinity, 1, kNan},
                                               {-0.0, 1, 2, 3}};
  for (const bool plain : {true, false}) {
    const auto library = morva::extension::linked({.locked_trees = !plain}).value();
    for (const std::size_t there : {0U, 1U, 3U}) {
      for (const double increment : {0.0, 0.5}) {
        for (const bool withData : {false, true}) {
          for (const std::vector<double> &amounts : cases) {
            SCOPED_TRACE(::testing::Message()
                         << (plain ? "plain trees, " : "locked trees, ") << there
                         << " keys there, increment " << increment << (withData ? ", with" : ", no")
                         << " data, amounts " << ::testing::PrintToString(amounts));
            auto many = Summed::make(library).value();
            auto one = Summed::make(library).value();
            for (Summed *table : {&many, &one}) {
              table->native()->SetSumInc(table->native(), increment);
              for (Number key = 1; key <= there; ++key) ASSERT_TRUE(table->insert(key, 0));
            }
            morva::result<std::size_t> single = std::size_t{0};
            for (std::size_t i = 0; i < keys.size() && single; ++i) {
              const auto added = withData ? one.add_to_sum(keys[i], amounts[i], 9)
                                          : one.add_to_sum(keys[i], amounts[i]);
              single = added ? morva::result<std::size_t>(*single + 1) : added.error();
            }
            const auto all = withData ? many.add_to_sum_many(keys, amounts, 9)
                                      : many.add_to_sum_many(keys, amounts);
            // Reading the sums counts as well, in both alike.
            const Sums manySums = sumsAfter(many, all);
            const Sums oneSums = sumsAfter(one, single);
            EXPECT_EQ(manySums.error, oneSums.error);
            EXPECT_EQ(::testing::PrintToString(manySums.sums),
                      ::testing::PrintToString(oneSums.sums));
            EXPECT_EQ(many.size(), one.size());
            if (all) {
              EXPECT_EQ(*all, *single);
            }
          }
        }
      }
    }
  }
}

TEST(ASumIncrement, CountsEveryKeyThatManyLookupsReach) {
  for (const bool plain : {true, false}) {
    const auto library = morva::extension::linked({.locked_trees = !plain}).value();
    auto table = Summed::make(library).value();
    for (const Number key : {1U, 2U}) ASSERT_TRUE(table.insert(key, 0));
    table.native()->SetSumInc(table.native(), 1.0);
    const std::vector<Number> keys{1, 2, 1, 5, 1};
    std::array<Summed::cursor, 5> found;
    std::array<Summed::const_cursor, 5> constant;
    std::array<bool, 5> there;
    EXPECT_EQ(table.find_many(keys, found).value(), 4U);
    EXPECT_EQ(table.sum(found[0]), 3.0);  // a cursor's sum is read without a lookup
    EXPECT_EQ(table.sum(found[1]), 1.0);
    EXPECT_EQ(std::as_const(table).find_many(keys, constant).value(), 4U);
    EXPECT_EQ(table.contains_many(keys, there).value(), 4U);
    EXPECT_EQ(table.sum(found[0]), 9.0);
    EXPECT_EQ(table.sum(found[1]), 3.0);
    const auto one = table.find(1);
    EXPECT_TRUE(table.reader().contains(1));
    EXPECT_EQ(table.sum(one), 11.0);
    EXPECT_EQ(table.sum(1), 12.0);
  }
}

// ---- Sets, and keys repeated -------------------------------------------------------

TEST(Sets, TakeManyKeysWithDataOfNoSize) {
  struct Nothing {};
  using Set = morva::table<Number, Nothing, morva::ordered>;
  auto set = Set::make(linkedLibrary()).value();
  std::vector<Number> keys;
  for (Number i = 0; i < 300; ++i) keys.push_back(i % 200);
  const auto stored = std::make_unique<bool[]>(300);
  EXPECT_EQ(set.insert_many(keys, std::vector<Nothing>(300), {stored.get(), 300}).value(), 200U);
  for (std::size_t i = 0; i < 300; ++i) ASSERT_EQ(stored[i], i < 200) << i;
  Number expected = 0;
  for (const auto entry : set) ASSERT_EQ(entry.key, expected++);
  std::vector<Set::cursor> found(300);
  EXPECT_EQ(set.find_many(keys, found).value(), 300U);
  for (std::size_t i = 0; i < 300; ++i) ASSERT_EQ(found[i]->key, keys[i]);
  EXPECT_EQ(set.erase_many(keys).value(), 200U);
}

TEST(KeysRepeatedInOneBatch, AreStoredSummedAndErasedOnce) {
  for (const bool plain : {true, false}) {
    const auto library = morva::extension::linked({.locked_trees = !plain}).value();
    auto table = Summed::make(library).value();
    std::array<bool, 4> stored{};
    const std::vector<Number> keys{7, 7, 8, 7};
    EXPECT_EQ(table.insert_many(keys, std::array{1, 2, 3, 4}, stored).value(), 2U);
    EXPECT_EQ(stored, (std::array{true, false, true, false}));
    EXPECT_EQ(table.find(7)->data, 1);
    EXPECT_EQ(table.erase_many(keys).value(), 2U);
    EXPECT_EQ(table.add_to_sum_many(keys, std::array{1.0, 2.0, 4.0, 8.0}, 5).value(), 4U);
    EXPECT_EQ(table.size(), 2U);
    EXPECT_EQ(table.sum(7), 11.0);
    EXPECT_EQ(table.sum(8), 4.0);
    EXPECT_EQ(table.find(7)->data, 5);

    using Several = morva::table<Number, int, morva::duplicates>;
    auto several = Several::make(library).value();
    EXPECT_EQ(several.insert_many(keys, std::array{1, 2, 3, 4}).value(), 4U);
    EXPECT_EQ(chainOf(several, Number{7}), (std::vector{1, 2, 4}));
    EXPECT_EQ(several.erase_many(keys).value(), 4U);
    EXPECT_TRUE(several.empty());
  }
}

// Keys may be the table's own, as it shows them.
TEST(KeysShownByTheTable, CanBeErasedTogether) {
  auto table = Words::make(linkedLibrary(), {.expected = 4}).value();
  std::vector<std::string> texts;
  for (int i = 0; i < 400; ++i) texts.push_back(keyOf<Words>(i));
  EXPECT_EQ(table.insert_many(texts, std::vector<int>(400)).value(), 400U);
  std::vector<std::string_view> shown;
  for (const auto entry : table) {
    if (shown.size() < 300) shown.push_back(entry.key);
  }
  EXPECT_EQ(table.erase_many(shown).value(), 300U);
  EXPECT_EQ(table.size(), 100U);
}

}  // namespace
}  // namespace cpp_test
