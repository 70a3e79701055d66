// Operations on many keys at a time, on one table, against the same operations
// on one key after another, on another: nobody can tell the two apart.
#include <array>
#include <memory>
#include <span>
#include <tuple>

#include "morva/throws.hpp"
#include "recording_tables.h"

namespace cpp_test {

struct Triple {
  std::uint32_t a;
  std::uint32_t b;
  std::uint32_t c;
  bool operator==(const Triple &) const = default;
};
template <>
struct KeyKind<Triple> {
  static Triple make(int number) {
    const auto n = static_cast<std::uint32_t>(number);
    return {n % 3, n, n * 7};
  }
  static int number(const Triple &key) { return static_cast<int>(key.b); }
};

// Names in another spelling each time, which is the same key to a packer that
// knows what the fields are.
struct Person {
  char name[10];
  char city[14];
  std::int32_t number;
  double amount;
  std::string note;
};
using PersonKey = morva::composed<morva::caseless<morva::padded<&Person::name>>,
                                  morva::caseless<&Person::city>, &Person::number, &Person::amount>;
template <>
struct KeyKind<PersonKey> {
  static Person make(int number) {
    static unsigned spelling = 0;
    Person person{};
    const bool upper = ++spelling % 2 == 0;
    std::snprintf(person.name, sizeof person.name, upper ? "NAME%d  " : "naMe%d", number % 9);
    std::snprintf(person.city, sizeof person.city, upper ? "CITY %d" : "city %d", number % 5);
    person.number = number;
    person.amount = number % 6 == 0 ? (upper ? 0.0 : -0.0) : number / 8.0;
    return person;
  }
  template <class View>
  static int number(const View &key) {
    return key.template field<&Person::number>();
  }
};

// Keys of which few are looked for at once: 26 of 300 bytes, one of 4096.
template <std::size_t Size>
struct Wide {
  std::array<unsigned char, Size - 4> bytes;
  std::int32_t number;
};
template <std::size_t Size>
using WideKey = morva::composed<&Wide<Size>::bytes, &Wide<Size>::number>;
template <std::size_t Size>
struct WideKind {
  static Wide<Size> make(int number) {
    Wide<Size> row{};
    row.bytes.fill(static_cast<unsigned char>(number % 3));
    row.number = number;
    return row;
  }
  template <class View>
  static int number(const View &key) {
    return key.template field<&Wide<Size>::number>();
  }
};
template <>
struct KeyKind<WideKey<300>> : WideKind<300> {};
template <>
struct KeyKind<WideKey<4096>> : WideKind<4096> {};

// Text of up to 40 bytes, the empty one and ones that are too long among it.
template <>
struct KeyKind<morva::text<40>> : TextKind {
  static std::string make(int number) {
    if (number == 0) return {};
    return std::string(static_cast<std::size_t>(number) % 33, 'k') + "#" + std::to_string(number);
  }
};

namespace {

using morva::duplicates;
using morva::locked;
using morva::ordered;
using morva::sums;
using morva::throws;

template <class Feature, class Table>
inline constexpr bool has = false;
template <class Feature, class Key, class Data, class... Features>
inline constexpr bool has<Feature, morva::table<Key, Data, Features...>> =
    (std::is_same_v<Feature, Features> || ...);

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
Outcome outcomeOf(const morva::result<T> &answer) {
  if (!answer) return {0, answer.error()};
  return {std::is_same_v<T, double> ? 1 : static_cast<std::size_t>(*answer), std::nullopt};
}
template <class T>
Outcome outcomeOf(const T &answer) {
  return {std::is_same_v<T, double> ? 1 : static_cast<std::size_t>(answer), std::nullopt};
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

template <class Table>
class ManyKeys : public ::testing::Test {
 protected:
  using Key = decltype(keyOf<Table>(0));
  using Cursor = typename Table::cursor;
  using ConstCursor = typename Table::const_cursor;
  static constexpr bool kSums = has<sums, Table>;

  void makeTwins(const morva::extension &library, std::uint64_t expected, double increment) {
    many = got(Table::make(library, {.expected = expected}));
    one = got(Table::make(library, {.expected = expected}));
    for (MORVAInst *inst : {many.native(), one.native()}) inst->SetSumInc(inst, increment);
  }

  int below(int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(std::max(limit, 1)));
  }

  // Keys with repetitions, adjacent and far.
  void chooseKeys(std::size_t count) {
    keys.clear();
    for (std::size_t i = 0; i < count; ++i) {
      if (i > 0 && below(8) == 0) {
        keys.push_back(Key(keys.back()));
      } else {
        keys.push_back(keyOf<Table>(below(static_cast<int>(count) * 3 / 2)));
      }
    }
  }

  void expectSame() {
    EXPECT_EQ(many.size(), one.size());
    EXPECT_EQ(many.memory(), one.memory());
    EXPECT_TRUE(look(many).records == look(one).records);
  }

  void insert(bool tell) {
    std::vector<int> data;
    for (std::size_t i = 0; i < keys.size(); ++i) data.push_back(below(1000));
    std::vector<char> expected(keys.size() + 3, 2);
    const auto stored = std::make_unique<bool[]>(keys.size());
    const std::span<bool> told(stored.get(), keys.size());
    const Outcome single = oneByOne(keys.size(), [&](std::size_t i) {
      auto answer = one.insert(keys[i], data[i]);
      expected[i] = outcomeOf(answer).count != 0;
      return answer;
    });
    const Outcome all = run(
        [&] { return tell ? many.insert_many(keys, data, told) : many.insert_many(keys, data); });
    EXPECT_EQ(all, single);
    for (std::size_t i = 0; tell && i < keys.size(); ++i) {
      ASSERT_EQ(stored[i], expected[i] == 1) << i;
    }
  }

  template <class Found>
  void compareFound(const Found &all, const Found &single) {
    for (std::size_t i = 0; i < keys.size(); ++i) {
      ASSERT_EQ(static_cast<bool>(all[i]), static_cast<bool>(single[i])) << i;
      if (!single[i]) continue;
      using Kind = KeyKind<typename Table::key_type>;
      ASSERT_EQ(Kind::number(all[i]->key), Kind::number(single[i]->key)) << i;
      // All records of the key.
      auto a = all[i];
      auto b = single[i];
      for (; a && b; ++a, ++b) ASSERT_EQ(a->data, b->data) << i;
      ASSERT_EQ(static_cast<bool>(a), static_cast<bool>(b)) << i;
    }
  }

  void find() {
    std::vector<Cursor> expected(keys.size());
    std::vector<Cursor> found(keys.size() + 2, many.begin());
    const Outcome single = oneByOne(keys.size(), [&](std::size_t i) {
      expected[i] = one.find(keys[i]);
      return static_cast<bool>(expected[i]);
    });
    EXPECT_EQ(run([&] { return many.find_many(keys, std::span(found)); }), single);
    compareFound(found, expected);
    // What is behind the last key stays as it was.
    EXPECT_TRUE(found[keys.size()] == many.begin() && found[keys.size() + 1] == many.begin());

    const Table &constant = many;
    const Table &constantOne = one;
    std::vector<ConstCursor> constantFound(keys.size());
    std::vector<ConstCursor> constantExpected;
    for (const Key &key : keys) constantExpected.push_back(constantOne.find(key));
    EXPECT_EQ(run([&] { return constant.find_many(keys, std::span(constantFound)); }), single);
    compareFound(constantFound, constantExpected);

    const auto there = std::make_unique<bool[]>(keys.size());
    EXPECT_EQ(run([&] {
                return constant.contains_many(keys, std::span<bool>(there.get(), keys.size()));
              }),
              oneByOne(keys.size(), [&](std::size_t i) { return constantOne.contains(keys[i]); }));
    for (std::size_t i = 0; i < keys.size(); ++i) {
      ASSERT_EQ(there[i], static_cast<bool>(expected[i])) << i;
    }
  }

  void add(bool withData) {
    if constexpr (kSums) {
      std::vector<double> amounts;
      for (std::size_t i = 0; i < keys.size(); ++i) amounts.push_back(below(400) / 4.0 - 20);
      const Outcome single = oneByOne(keys.size(), [&](std::size_t i) {
        return withData ? one.add_to_sum(keys[i], amounts[i], 77)
                        : one.add_to_sum(keys[i], amounts[i]);
      });
      EXPECT_EQ(run([&] {
                  return withData ? many.add_to_sum_many(keys, amounts, 77)
                                  : many.add_to_sum_many(keys, amounts);
                }),
                single);
    }
  }

  void erase() {
    const Outcome single = oneByOne(keys.size(), [&](std::size_t i) { return one.erase(keys[i]); });
    EXPECT_EQ(run([&] { return many.erase_many(keys); }), single);
  }

  void live(const morva::extension &library, double increment) {
    for (const std::size_t count : {0U, 1U, 127U, 128U, 129U, 1000U}) {
      if (count > 500 && sizeof(Key) > 1000) continue;
      SCOPED_TRACE(::testing::Message() << count << " keys, increment " << increment);
      // Large enough to be worth a look ahead, or with deep trees.
      makeTwins(library, count % 2 == 0 ? 20000 : 2, increment);
      chooseKeys(count);
      find();
      erase();
      expectSame();
      for (int round = 0; round < 2; ++round) {
        chooseKeys(count);
        insert(round == 0);
        expectSame();
        add(false);
        chooseKeys(count);
        find();
        add(false);
        expectSame();
        add(true);
        expectSame();
        chooseKeys(count / 2);
        erase();
        expectSame();
        if (this->HasFailure()) return;
      }
      // What went is taken again in the same order.
      chooseKeys(count);
      insert(true);
      expectSame();
      if (this->HasFailure()) return;
    }
  }

  void live(const morva::extension &library) {
    live(library, 0.0);
    if (kSums && !this->HasFailure()) live(library, 0.25);
  }

  std::mt19937_64 random{testSeed()};
  Table many;
  Table one;
  std::vector<Key> keys;
};

using Tables = ::testing::Types<
    morva::table<std::uint64_t, int>,
    morva::table<std::uint64_t, int, ordered, duplicates, sums, locked>,
    morva::table<std::uint32_t, int, sums, throws>, morva::table<Triple, int, duplicates, locked>,
    morva::table<morva::text<40>, int, ordered, sums>, morva::table<std::string_view, int, throws>,
    morva::table<std::string, int, ordered, locked>,
    morva::table<PersonKey, int, ordered, duplicates, sums>, morva::table<WideKey<300>, int, sums>,
    morva::table<WideKey<4096>, int>>;
TYPED_TEST_SUITE(ManyKeys, Tables);

TYPED_TEST(ManyKeys, AreAnsweredLikeOneAfterAnotherOnAnEmbeddedHost) {
  this->live(morva::extension::linked().value());
}

TYPED_TEST(ManyKeys, AreAnsweredLikeOneAfterAnotherWhereTreesAreLocked) {
  this->live(morva::extension::linked({.locked_trees = true}).value());
}

TYPED_TEST(ManyKeys, AreAnsweredLikeOneAfterAnotherOnAHostOfOnesOwn) {
  RecordingHost recording;
  recording.keepLog(false);
  {
    const auto host = morva::host::of(recording.services(), {&firstInOrder, &nextInOrder}).value();
    this->live(morva::extension::linked(host).value());
    this->many = TypeParam();
    this->one = TypeParam();
  }
  recording.checkGuards();
  EXPECT_EQ(recording.locksHeld(), 0U);
  EXPECT_THAT(recording.complaints(), ::testing::IsEmpty());
  EXPECT_TRUE(recording.nothingAlive()) << recording.alive();
}

}  // namespace
}  // namespace cpp_test
