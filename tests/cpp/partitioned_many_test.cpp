// Operations of partitioned tables on many keys at a time, on one table, against
// the operations on one key after another, on its twin.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <limits>
#include <memory>
#include <optional>
#include <ranges>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "morva/throws.hpp"
#include "recording_tables.h"

namespace cpp_test {
namespace {

using morva::duplicates;
using morva::ordered;
using morva::sums;
using morva::throws;

template <class Key, class... Features>
using Parted = morva::partitioned_table<Key, int, Features...>;
using Number = std::uint64_t;

template <class Table>
inline constexpr bool isOrdered = requires(Table table) {
  table.in_order();
};
template <class Table>
inline constexpr bool isSummed = requires(Table table, typename Table::cursor at) {
  table.sum(at);
};

// What an operation has answered, with results or with exceptions.
struct Outcome {
  std::size_t count = 0;
  std::optional<errc> error;
  bool operator==(const Outcome &) const = default;
  friend std::ostream &operator<<(std::ostream &out, const Outcome &outcome) {
    return outcome.error ? out << describe(*outcome.error) : out << outcome.count;
  }
};

template <class T>
Outcome outcomeOf(const T &answer) {
  return {std::is_same_v<T, double> ? 1 : static_cast<std::size_t>(answer), std::nullopt};
}
template <class T>
Outcome outcomeOf(const morva::result<T> &answer) {
  return answer ? outcomeOf(*answer) : Outcome{0, answer.error()};
}

template <class Call>
Outcome run(Call call) {
  try {
    return outcomeOf(call());
  } catch (const std::bad_alloc &) {
    return {0, errc::no_memory};
  } catch (const std::out_of_range &) {
    return {0, errc::not_found};
  } catch (const morva::failure &failure) {
    return {0, failure.error()};
  }
}

// Calls each(0), each(1) and so on, until one fails.
template <class Each>
Outcome oneByOne(std::size_t count, Each each) {
  Outcome all;
  for (std::size_t i = 0; i < count; ++i) {
    const Outcome done = run([&] { return each(i); });
    if (done.error) return done;
    all.count += done.count;
  }
  return all;
}

// So many answers of one kind, all of one value.
class Flags {
 public:
  explicit Flags(std::size_t count, bool value = false)
      : flags_(std::make_unique<bool[]>(count)), count_(count) {
    std::fill_n(flags_.get(), count, value);
  }
  operator std::span<bool>() const { return {flags_.get(), count_}; }
  bool operator[](std::size_t i) const { return flags_[i]; }
  std::ptrdiff_t count(bool value) const {
    return std::count(flags_.get(), flags_.get() + count_, value);
  }

 private:
  std::unique_ptr<bool[]> flags_;
  std::size_t count_;
};

using Row = std::tuple<int, int, double>;

template <class Table, class At>
Row rowOf(const Table &table, const At &at) {
  double sum = 0;
  if constexpr (isSummed<Table>) sum = table.sum(at);
  return {KeyKind<typename Table::key_type>::number(at->key), at->data, sum};
}

template <class Table>
std::vector<Row> rowsOf(const Table &table) {
  std::vector<Row> rows;
  for (auto at = table.begin(); at != table.end(); ++at) rows.push_back(rowOf(table, at));
  return rows;
}

template <class Table>
std::vector<Row> rowsInOrder(const Table &table) {
  std::vector<Row> rows;
  if constexpr (isOrdered<Table>) {
    auto walk = got(table.in_order());
    for (auto at = walk.begin(); at != walk.end(); ++at) {
      rows.push_back(rowOf(table, typename Table::const_cursor(at)));
    }
  }
  return rows;
}

// Leaves ones where later calls have their locals.
[[gnu::noinline]] void fillTheStackWithOnes() {
  std::array<volatile char, 100'000> room;
  for (volatile char &each : room) each = 1;
}

// ---- Twins --------------------------------------------------------------------------------

template <class Table>
class PartitionedMany : public ::testing::Test {
 protected:
  using Key = decltype(keyOf<Table>(0));
  using Cursor = typename Table::cursor;
  using ConstCursor = typename Table::const_cursor;

  void makeTwins(const morva::extension &library, std::size_t parts) {
    // With few parts each is large enough to be worth a look ahead.
    const std::uint64_t expected = parts <= 16 ? 10000 * parts : 2000;
    many = got(Table::make(library, {.expected = expected, .parts = parts}));
    one = got(Table::make(library, {.expected = expected, .parts = parts}));
  }

  int below(std::size_t limit) {
    return static_cast<int>(random() % std::max<std::size_t>(limit, 1));
  }

  // Keys with repetitions, adjacent and far.
  void chooseKeys(std::size_t count) {
    keys.clear();
    for (std::size_t i = 0; i < count; ++i) {
      keys.push_back(i > 0 && below(8) == 0 ? Key(keys.back())
                                            : keyOf<Table>(below(count + count / 2)));
    }
  }

  void insert(bool tell) {
    std::vector<int> data(keys.size());
    for (int &each : data) each = below(1000);
    Flags expected(keys.size());
    const std::span<bool> expect = expected;
    const Flags stored(keys.size() + 1, true);
    const Outcome single = oneByOne(keys.size(), [&](std::size_t i) {
      auto answer = one.insert(keys[i], data[i]);
      expect[i] = outcomeOf(answer).count != 0;
      return answer;
    });
    ASSERT_EQ(run([&] {
                return tell ? many.insert_many(keys, data, stored) : many.insert_many(keys, data);
              }),
              single);
    for (std::size_t i = 0; tell && i < keys.size(); ++i) ASSERT_EQ(stored[i], expected[i]) << i;
    ASSERT_TRUE(stored[keys.size()]);
  }

  void find() {
    std::vector<Cursor> found(keys.size() + 1, many.begin());
    std::vector<ConstCursor> constant(keys.size() + 1, many.begin());
    const Flags there(keys.size() + 1, true);
    const Outcome single =
        oneByOne(keys.size(), [&](std::size_t i) { return one.contains(keys[i]); });
    ASSERT_EQ(run([&] { return many.find_many(keys, std::span(found)); }), single);
    ASSERT_EQ(run([&] { return std::as_const(many).find_many(keys, std::span(constant)); }),
              single);
    ASSERT_EQ(run([&] { return std::as_const(many).contains_many(keys, there); }), single);
    for (std::size_t i = 0; i < keys.size(); ++i) {
      ASSERT_EQ(found[i], many.find(keys[i])) << i;
      ASSERT_EQ(constant[i], std::as_const(many).find(keys[i])) << i;
      const auto expected = one.find(keys[i]);
      ASSERT_EQ(there[i], static_cast<bool>(expected)) << i;
      ASSERT_EQ(static_cast<bool>(found[i]), there[i]) << i;
      if (expected) {
        ASSERT_EQ(rowOf(many, found[i]), rowOf(one, expected)) << i;
      }
    }
    // What is behind the last key stays as it was.
    ASSERT_TRUE(found.back() == many.begin() && constant.back() == many.begin());
    ASSERT_TRUE(there[keys.size()]);
  }

  void add(bool withData) {
    if constexpr (isSummed<Table>) {
      std::vector<double> amounts(keys.size());
      for (double &each : amounts) each = below(400) / 4.0 - 20;
      const Outcome single = oneByOne(keys.size(), [&](std::size_t i) {
        return withData ? one.add_to_sum(keys[i], amounts[i], 77)
                        : one.add_to_sum(keys[i], amounts[i]);
      });
      ASSERT_EQ(run([&] {
                  return withData ? many.add_to_sum_many(keys, amounts, 77)
                                  : many.add_to_sum_many(keys, amounts);
                }),
                single);
    }
  }

  void erase() {
    const Outcome single = oneByOne(keys.size(), [&](std::size_t i) { return one.erase(keys[i]); });
    ASSERT_EQ(run([&] { return many.erase_many(keys); }), single);
  }

  void expectSame() {
    ASSERT_EQ(many.size(), one.size());
    ASSERT_EQ(many.memory(), one.memory());
    ASSERT_TRUE(many == one);
    ASSERT_TRUE(rowsOf(many) == rowsOf(one));
    ASSERT_TRUE(rowsInOrder(many) == rowsInOrder(one));
  }

  void live(const morva::extension &library, std::size_t parts,
            const std::vector<std::size_t> &counts) {
    makeTwins(library, parts);
    for (const std::size_t count : counts) {
      SCOPED_TRACE(::testing::Message() << parts << " parts, " << count << " keys");
      chooseKeys(count);
      find();
      insert(count % 2 != 0);
      add(false);
      expectSame();
      chooseKeys(count);
      find();
      add(true);
      chooseKeys(count);
      erase();
      find();
      expectSame();
      chooseKeys(count);
      insert(true);
      if (this->HasFatalFailure()) return;
    }
    // One key all over again: more than a part is given at once, or than are sorted at once.
    keys.assign(4500, keyOf<Table>(1));
    add(true);
    insert(true);
    add(false);
    find();
    expectSame();
    erase();
    expectSame();
  }

  std::mt19937_64 random{testSeed()};
  Table many;
  Table one;
  std::vector<Key> keys;
};

using Tables =
    ::testing::Types<Parted<Number>, Parted<Number, ordered>, Parted<Number, ordered, duplicates>,
                     Parted<std::string_view, ordered>, Parted<SaleKey, sums>,
                     Parted<morva::text<24>, ordered, sums>, Parted<std::string, throws>,
                     Parted<SaleKey, throws, ordered, duplicates, sums>>;
TYPED_TEST_SUITE(PartitionedMany, Tables);

TYPED_TEST(PartitionedMany, AreAnsweredLikeOneAfterAnother) {
  SCOPED_TRACE(::testing::Message() << "MORVA_TEST_SEED=" << testSeed());
  const auto library = linkedLibrary();
  this->live(library, 16, {0, 1, 255, 256, 257, 4095, 4096, 4097, 9000});
  this->live(library, 256, {1, 257, 4097});
  this->live(library, 1, {0, 257, 1000});
  this->live(library, 512, {0, 1, 256, 4096});
}

TYPED_TEST(PartitionedMany, AreAnsweredLikeOneAfterAnotherWhereTreesAreLocked) {
  const auto library = morva::extension::linked({.locked_trees = true}).value();
  this->live(library, 16, {1, 257, 4097});
  this->live(library, 512, {300});
}

// ---- What is refused -----------------------------------------------------------------------

TYPED_TEST(PartitionedMany, AreRefusedWithTooFewPlacesOrData) {
  const auto library = linkedLibrary();
  for (const std::size_t parts : {16U, 512U}) {
    this->makeTwins(library, parts);
    this->chooseKeys(300);
    auto &table = this->many;
    const auto &keys = this->keys;
    const std::vector<int> data(300, 1);
    const Outcome refused{0, errc::refused};
    const Flags few(299, true);
    EXPECT_EQ(run([&] { return table.insert_many(keys, data, few); }), refused);
    EXPECT_EQ(few.count(true), 299);
    for (const std::size_t wrong : {0U, 1U, 299U, 301U}) {
      EXPECT_EQ(run([&] { return table.insert_many(keys, std::vector<int>(wrong)); }), refused);
      if constexpr (isSummed<TypeParam>) {
        const std::vector<double> amounts(wrong, 1.0);
        EXPECT_EQ(run([&] { return table.add_to_sum_many(keys, amounts); }), refused);
        EXPECT_EQ(run([&] { return table.add_to_sum_many(keys, amounts, 5); }), refused);
      }
    }
    EXPECT_TRUE(table.empty());
    this->expectSame();
    // And no keys, for which there are data.
    EXPECT_EQ(run([&] { return table.insert_many(std::span(keys).first(0), data); }), refused);
  }
}

// Finding answers in the same way; it must not end the program where it throws.
template <class Table>
[[noreturn]] void exitWithWhatFindingAnswers(Table &table) {
  const std::vector<decltype(keyOf<Table>(0))> keys(3, keyOf<Table>(1));
  std::array<typename Table::cursor, 2> found;
  std::array<typename Table::const_cursor, 2> constant;
  std::array<bool, 2> there{};
  const Outcome refused{0, errc::refused};
  int wrong = 0;
  wrong += run([&] { return table.find_many(keys, found); }) != refused;
  wrong += run([&] { return std::as_const(table).find_many(keys, constant); }) != refused;
  wrong += run([&] { return table.contains_many(keys, there); }) != refused;
  wrong += found[0] || constant[0] || there[0];
  std::_Exit(wrong);
}

TYPED_TEST(PartitionedMany, AreNotLookedForWithTooFewPlacesForTheAnswers) {
  const auto library = linkedLibrary();
  this->makeTwins(library, 4);
  ASSERT_TRUE(got(this->many.insert(keyOf<TypeParam>(1), 1)));
  EXPECT_EXIT(exitWithWhatFindingAnswers(this->many), ::testing::ExitedWithCode(0), "");
}

TYPED_TEST(PartitionedMany, AreAnsweredLikeOneAfterAnotherByATableThatWasMovedFrom) {
  const auto library = linkedLibrary();
  this->makeTwins(library, 16);
  this->chooseKeys(300);
  this->insert(true);
  const TypeParam taken = std::move(this->many);
  auto &table = this->many;
  TypeParam none;
  const auto &keys = this->keys;
  std::vector<typename TypeParam::cursor> found(300, this->one.begin());
  const Flags there(300, true);
  EXPECT_EQ(run([&] { return table.find_many(keys, std::span(found)); }), Outcome{});
  EXPECT_TRUE(std::none_of(found.begin(), found.end(), [](auto at) { return bool(at); }));
  EXPECT_EQ(run([&] { return table.contains_many(keys, there); }), Outcome{});
  EXPECT_EQ(there.count(true), 0);
  EXPECT_EQ(run([&] { return table.erase_many(keys); }), run([&] { return none.erase(keys[0]); }));
  const Flags stored(300);
  const std::vector<int> data(300);
  fillTheStackWithOnes();
  EXPECT_EQ(run([&] { return table.insert_many(keys, data, stored); }),
            (Outcome{0, errc::no_table}));
  EXPECT_EQ(stored.count(true), 0) << "nothing was stored";
  if constexpr (isSummed<TypeParam>) {
    for (const double amount : {1.0, std::nan("")}) {
      const std::vector<double> amounts(300, amount);
      EXPECT_EQ(run([&] { return table.add_to_sum_many(keys, amounts); }),
                run([&] { return none.add_to_sum(keys[0], amount); }));
      EXPECT_EQ(run([&] { return table.add_to_sum_many(keys, amounts, 5); }),
                run([&] { return none.add_to_sum(keys[0], amount, 5); }));
    }
  }
  EXPECT_FALSE(table);
  EXPECT_TRUE(taken == this->one);
}

// Of one part each, or of several.
TEST(PartitionedManyKeys, ThatAreTooLongAreNotThereAndNotStored) {
  using Table = Parted<morva::text<8>, sums>;
  using InOrder = Parted<morva::text<8>, sums, ordered>;
  const auto library = linkedLibrary();
  const auto check = [&]<class T>(std::type_identity<T>, std::size_t parts) {
    auto table = got(T::make(library, {.expected = 64, .parts = parts}));
    std::vector<std::string> keys;
    for (int n = 0; n < 600; ++n) {
      keys.push_back(n == 350 ? std::string(9, 'x') : std::to_string(n));
    }
    const Flags stored(600);
    fillTheStackWithOnes();
    EXPECT_EQ(table.insert_many(keys, std::views::iota(0, 600), stored).error(),
              errc::key_too_long);
    std::array<typename T::cursor, 600> found;
    EXPECT_EQ(table.find_many(keys, found).value(), table.size());
    EXPECT_LT(table.size(), 600U);
    for (std::size_t i = 0; i < 600; ++i) {
      ASSERT_EQ(static_cast<bool>(found[i]), stored[i]) << i;
      if (found[i]) {
        ASSERT_EQ(found[i]->data, static_cast<int>(i));
      }
    }
    EXPECT_FALSE(found[350]);
    const std::vector<double> amounts(600, 1.0);
    EXPECT_EQ(table.add_to_sum_many(keys, amounts, 0).error(), errc::key_too_long);
    EXPECT_FALSE(table.contains(keys[350]));
    const std::size_t size = table.size();
    EXPECT_EQ(table.erase_many(keys).value(), size);
    EXPECT_TRUE(table.empty());
    EXPECT_EQ(table.add_to_sum_many(std::span(keys).subspan(350, 1), std::array{1.0}).error(),
              errc::not_found);
  };
  for (const std::size_t parts : {1U, 16U, 512U}) {
    check(std::type_identity<Table>(), parts);
    check(std::type_identity<InOrder>(), parts);
  }
}

// ---- Sums that fail ------------------------------------------------------------------------

template <class Table>
class PartitionedManySums : public ::testing::Test {};
using SummedTables = ::testing::Types<Parted<Number, sums>, Parted<Number, ordered, sums>>;
TYPED_TEST_SUITE(PartitionedManySums, SummedTables);

TYPED_TEST(PartitionedManySums, ThatCannotBeAddedLeaveTheOthersWholeOrDone) {
  const auto library = linkedLibrary();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const std::size_t parts : {1U, 16U, 512U}) {
    std::vector<Number> keys;
    for (int n = 0; n < 5000; ++n) keys.push_back(keyOf<TypeParam>(n));
    for (const std::size_t bad : {0U, 2500U, 4999U}) {
      for (const int why : {0, 1, 2, 3}) {
        SCOPED_TRACE(::testing::Message() << parts << " parts, " << bad << ", " << why);
        auto table = got(TypeParam::make(library, {.expected = 5000, .parts = parts}));
        // Every second is there, and the bad one where it cannot be added to.
        std::vector<Number> some;
        for (std::size_t i = bad % 2; i < keys.size(); i += 2) some.push_back(keys[i]);
        if (why == 1) std::erase(some, keys[bad]);
        if (why == 3) some = keys;
        if (why == 3) std::erase(some, keys[bad]);
        ASSERT_TRUE(table.insert_many(some, std::vector<int>(some.size(), 3)));
        std::vector<double> amounts(keys.size(), 0.5);
        amounts[bad] = std::numeric_limits<double>::quiet_NaN();
        if (why == 2) {
          ASSERT_TRUE(table.add_to_sum(keys[bad], kInfinity));
          amounts[bad] = -kInfinity;
        }
        if (why == 3) amounts[bad] = 0.5;  // and not there
        const auto answer = why == 3 ? table.add_to_sum_many(keys, amounts)
                                     : table.add_to_sum_many(keys, amounts, 4);
        ASSERT_EQ(answer.error(), why == 3 ? errc::not_found : errc::not_a_number);
        ASSERT_EQ(table.contains(keys[bad]), why == 0 || why == 2);
        ASSERT_EQ(table.sum(keys[bad]), why == 2 ? kInfinity : 0.0);
        const Flags there(keys.size());
        ASSERT_EQ(table.contains_many(keys, there).value(), table.size());
        for (std::size_t i = 0; i < keys.size(); ++i) {
          if (i == bad || !there[i]) continue;
          const double sum = table.sum(keys[i]);
          const int data = table.find(keys[i])->data;
          ASSERT_TRUE(data == 4 ? sum == 0.5 : data == 3 && (sum == 0.0 || sum == 0.5)) << i;
        }
        if constexpr (isOrdered<TypeParam>) {
          ASSERT_EQ(rowsInOrder(table).size(), table.size());
        }
      }
    }
  }
}

// An increment counts each lookup once, as it does where they are single.
TYPED_TEST(PartitionedManySums, CountLookupsAsSingleOperationsDo) {
  const auto library = linkedLibrary();
  auto many = got(TypeParam::make(library, {.expected = 300, .parts = 4}));
  auto one = got(TypeParam::make(library, {.expected = 300, .parts = 4}));
  std::vector<Number> keys;
  for (int n = 0; n < 300; ++n) keys.push_back(keyOf<TypeParam>(n));
  const std::vector<int> data(300, 1);
  const std::vector<double> amounts(300, 10.0);
  for (std::size_t i = 0; i < 4; ++i) {
    for (const auto *table : {&many, &one}) {
      MORVAInst *inst = table->part(i).native();
      inst->SetSumInc(inst, 1.0);
    }
  }
  const auto expectSameSums = [&](const char *after) {
    EXPECT_EQ(rowsOf(many) == rowsOf(one), true)
        << "after " << after << ": " << many.sum(keys[7]) << " and " << one.sum(keys[7]);
  };
  ASSERT_EQ(many.insert_many(keys, data).value(), 300U);
  for (const Number key : keys) ASSERT_TRUE(one.insert(key, 1).value());
  expectSameSums("storing");
  std::array<typename TypeParam::cursor, 300> found;
  ASSERT_EQ(many.find_many(keys, found).value(), 300U);
  for (const Number key : keys) ASSERT_TRUE(one.find(key));
  expectSameSums("finding");
  ASSERT_EQ(many.add_to_sum_many(keys, amounts).value(), 300U);
  for (const Number key : keys) ASSERT_TRUE(one.add_to_sum(key, 10.0));
  expectSameSums("adding");
  ASSERT_EQ(many.add_to_sum_many(keys, amounts, 5).value(), 300U);
  for (const Number key : keys) ASSERT_TRUE(one.add_to_sum(key, 10.0, 5));
  expectSameSums("adding with data");
  ASSERT_EQ(many.insert_many(keys, data).value(), 0U);
  for (const Number key : keys) ASSERT_FALSE(one.insert(key, 1).value());
  expectSameSums("storing again");
}

// ---- Ranges ---------------------------------------------------------------------------------

struct Holder {
  Number id;
  std::string name;
  int amount;
};

TEST(PartitionedManyKeys, AreInAnyRangeInARow) {
  const auto library = linkedLibrary();
  constexpr int kCount = 5000;
  std::deque<Holder> holders(1, Holder{});
  for (int n = 0; n < kCount; ++n) holders.push_back({Number(n), "name" + std::to_string(n), n});
  const auto behind = std::views::drop(holders, 1);
  const auto ids = behind | std::views::transform(&Holder::id);
  const auto names = behind | std::views::transform([](const Holder &holder) {
                       return std::string_view(holder.name);
                     });
  for (const std::size_t parts : {16U, 512U}) {
    auto numbers = got(Parted<Number, sums>::make(library, {.parts = parts}));
    const auto amounts = behind | std::views::transform(&Holder::amount);
    EXPECT_EQ(numbers.insert_many(ids, std::views::iota(0, kCount)).value(), std::size_t{kCount});
    EXPECT_EQ(
        numbers.add_to_sum_many(ids | std::views::reverse, amounts | std::views::reverse).value(),
        std::size_t{kCount});
    std::vector<Parted<Number, sums>::const_cursor> found(kCount);
    EXPECT_EQ(std::as_const(numbers).find_many(ids, std::span(found)).value(), found.size());
    for (int n = 0; n < kCount; ++n) {
      const auto at = found[static_cast<std::size_t>(n)];
      ASSERT_TRUE(at && at->data == n && numbers.sum(at) == n) << n;
    }
    auto words =
        got(morva::partitioned_table<std::string_view, bool>::make(library, {.parts = parts}));
    std::vector<bool> odd(kCount);
    for (std::size_t i = 1; i < odd.size(); i += 2) odd[i] = true;
    EXPECT_EQ(words.insert_many(names, odd).value(), std::size_t{kCount});
    for (int n = 0; n < kCount; ++n) {
      ASSERT_EQ(words.find("name" + std::to_string(n))->data, n % 2 != 0) << n;
    }
    EXPECT_EQ(words.erase_many(std::array{"name1", "name2", "name1", "none"}).value(), 2U);
    // Keys that are their own records'.
    std::vector<std::string_view> own;
    for (const auto entry : words) own.push_back(entry.key);
    EXPECT_EQ(words.erase_many(own).value(), std::size_t{kCount - 2});
    EXPECT_TRUE(words.empty());
  }
}

// ---- Memory limits --------------------------------------------------------------------------

template <class Table>
class PartitionedManyLimits : public ::testing::Test {};
using LimitedTables =
    ::testing::Types<Parted<Number, sums>, Parted<Number, ordered, sums>, Parted<std::string_view>>;
TYPED_TEST_SUITE(PartitionedManyLimits, LimitedTables);

TYPED_TEST(PartitionedManyLimits, EndABatchInTheMiddleOfATableThatGoesOn) {
  for (const std::uint64_t limit : {300'000U, 1'000'000U}) {
    for (const bool bySum : {false, true}) {
      if (bySum && !isSummed<TypeParam>) continue;
      SCOPED_TRACE(::testing::Message() << limit << (bySum ? " by sums" : ""));
      const auto library = morva::extension::linked({.memory_limit = limit}).value();
      auto table = got(TypeParam::make(library, {.expected = 64, .parts = 4}));
      constexpr int kBatch = 900;
      std::vector<decltype(keyOf<TypeParam>(0))> all;
      int failures = 0;
      for (int first = 0; failures < 4; first += kBatch) {
        ASSERT_LT(first, 200'000);
        const std::size_t before = table.size();
        for (int n = first; n < first + kBatch; ++n) all.push_back(keyOf<TypeParam>(n));
        const auto keys = std::span(all).last(kBatch);
        const Flags stored(kBatch);
        fillTheStackWithOnes();
        morva::result<std::size_t> answer = errc::refused;
        if (!bySum) {
          answer = table.insert_many(keys, std::views::iota(first, first + kBatch), stored);
        }
        if constexpr (isSummed<TypeParam>) {
          if (bySum) answer = table.add_to_sum_many(keys, std::vector<double>(kBatch, 1.0), 6);
        }
        const Flags there(kBatch);
        const std::size_t found = table.contains_many(keys, there).value();
        ASSERT_EQ(table.size(), before + found);
        for (std::size_t i = 0; i < kBatch; ++i) {
          if (!bySum) {
            ASSERT_EQ(stored[i], there[i]) << i;
          }
          if (!there[i]) continue;
          ASSERT_EQ(table.find(keys[i])->data, bySum ? 6 : first + static_cast<int>(i));
        }
        if (answer) {
          ASSERT_EQ(*answer, std::size_t{kBatch});
          continue;
        }
        ASSERT_EQ(answer.error(), errc::no_memory);
        ASSERT_LT(found, std::size_t{kBatch});
        ++failures;
      }
      std::vector<int> numbers = keyNumbers(table);
      ASSERT_EQ(numbers.size(), table.size());
      std::sort(numbers.begin(), numbers.end());
      if constexpr (isOrdered<TypeParam>) {
        std::vector<int> walked;
        for (const Row &row : rowsInOrder(table)) walked.push_back(std::get<0>(row));
        ASSERT_EQ(walked, numbers);
      }
      const Flags there(all.size());
      ASSERT_EQ(table.contains_many(all, there).value(), numbers.size());
      table.clear();
      EXPECT_EQ(table.contains_many(all, there).value(), 0U);
      EXPECT_EQ(table.insert_many(std::span(all).first(100), std::vector<int>(100)).value(), 100U);
      EXPECT_EQ(table.erase_many(std::span(all).first(100)).value(), 100U);
    }
  }
}

// ---- A host that fails at every moment there is -----------------------------------------------

template <class Table>
class PartitionedManyFailures : public RecordingTables {};
using FailingTables =
    ::testing::Types<Parted<std::uint32_t>, Parted<std::uint32_t, ordered, duplicates, sums>,
                     Parted<std::string_view, ordered>>;
TYPED_TEST_SUITE(PartitionedManyFailures, FailingTables);

TYPED_TEST(PartitionedManyFailures, LeaveATableThatSaysWhatItHas) {
  constexpr std::size_t kCount = 300;
  std::vector<decltype(keyOf<TypeParam>(0))> keys;
  for (std::size_t i = 0; i < kCount; ++i) keys.push_back(keyOf<TypeParam>(static_cast<int>(i)));
  auto &recording = this->recording;
  for (const bool bySum : {false, true}) {
    if (bySum && !isSummed<TypeParam>) continue;
    bool failed = true;
    for (std::uint64_t n = 1; failed; ++n) {
      SCOPED_TRACE(::testing::Message() << "failure " << n << (bySum ? " in sums" : ""));
      ASSERT_LT(n, 1000U);
      recording.forget();
      auto table = got(TypeParam::make(*this->library, {.expected = 8, .parts = 4}));
      const Flags stored(kCount);
      fillTheStackWithOnes();
      recording.failFromNth(n);
      morva::result<std::size_t> answer = errc::refused;
      if (!bySum) answer = table.insert_many(keys, std::vector<int>(kCount, 7), stored);
      if constexpr (isSummed<TypeParam>) {
        if (bySum) answer = table.add_to_sum_many(keys, std::vector<double>(kCount, 1.0), 7);
      }
      failed = recording.failuresDelivered() != 0;
      recording.failNever();
      ASSERT_EQ(static_cast<bool>(answer), !failed);
      ASSERT_EQ(errorOf(answer).value_or(errc::no_memory), errc::no_memory);
      ASSERT_EQ(recording.locksHeld(), 0U);
      const Flags there(kCount);
      ASSERT_EQ(table.contains_many(keys, there).value(), table.size());
      for (std::size_t i = 0; !bySum && i < kCount; ++i) ASSERT_EQ(stored[i], there[i]) << i;
      ASSERT_EQ(rowsOf(table).size(), table.size());
      if constexpr (isOrdered<TypeParam>) {
        ASSERT_EQ(rowsInOrder(table).size(), table.size());
      }
      // To remove a key may take memory.
      const std::size_t before = table.size();
      recording.failFromNth(1);
      const auto erased = table.erase_many(keys);
      recording.failNever();
      ASSERT_EQ(errorOf(erased).value_or(errc::no_memory), errc::no_memory);
      ASSERT_EQ(recording.locksHeld(), 0U);
      ASSERT_EQ(table.contains_many(keys, there).value(), table.size());
      if (erased) {
        ASSERT_EQ(*erased, before);
      }
      const std::size_t rest = table.size();
      ASSERT_EQ(table.erase_many(keys).value(), rest);
      ASSERT_TRUE(table.empty());
    }
  }
}

}  // namespace
}  // namespace cpp_test
