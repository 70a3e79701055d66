// Partitioned tables: what is particular to them; their histories are compared
// with a model in partitioned_model_test.cpp.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <optional>
#include <ranges>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "morva/throws.hpp"
#include "tables.h"

namespace cpp_test {
namespace {

using morva::duplicates;
using morva::errc;
using morva::ordered;
using morva::sums;
using morva::throws;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

template <class Key, class... Features>
using Parted = morva::partitioned_table<Key, int, Features...>;
using Numbers = Parted<std::uint64_t>;
using Everything = Parted<std::uint64_t, ordered, duplicates, sums>;

class PartitionedTables : public ::testing::Test {
 protected:
  template <class Table>
  Table make(std::size_t parts = 8) {
    return got(Table::make(library, {.expected = 64, .parts = parts}));
  }

  morva::extension library = linkedLibrary();
};

template <class Table>
std::vector<int> dataInOrder(Table &table) {
  std::vector<int> all;
  auto walk = got(table.in_order());
  for (const auto entry : walk) all.push_back(entry.data);
  return all;
}

// ---- Making -----------------------------------------------------------------------------

TEST_F(PartitionedTables, HaveAsManyPartsAsAskedFor) {
  for (const std::size_t parts : {1U, 2U, 16U, 1024U}) {
    const auto table = got(Numbers::make(library, {.expected = 1, .parts = parts}));
    EXPECT_EQ(table.parts(), parts);
    EXPECT_EQ(table.max_size(), parts * std::size_t{UINT32_MAX});
  }
}

TEST_F(PartitionedTables, RefuseANumberOfPartsThatIsNoPowerOfTwoOrTooLarge) {
  for (const std::size_t parts : {std::size_t{3}, std::size_t{12}, std::size_t{65535},
                                  std::size_t{131072}, ~std::size_t{0}, std::size_t{1} << 63}) {
    EXPECT_EQ(Numbers::make(library, {.parts = parts}).error(), errc::refused) << parts;
  }
}

TEST_F(PartitionedTables, ChooseTheNumberOfPartsThemselves) {
  EXPECT_EQ(got(Numbers::make(library)).parts(), 16U);
  EXPECT_EQ(got(Numbers::make(library, {.expected = 1 << 22})).parts(), 64U);
}

TEST_F(PartitionedTables, GiveEachPartItsShareOfTheBuckets) {
  const auto table = got(Numbers::make(library, {.expected = 1600, .parts = 16}));
  for (std::size_t i = 0; i < 16; ++i) EXPECT_EQ(table.part(i).bucket_count(), 256U);
  EXPECT_EQ(table.bucket_count(), 16U * 256U);
  EXPECT_EQ(got(Numbers::make(library, {.expected = 1024, .parts = 1})).bucket_count(), 2048U);
}

TEST_F(PartitionedTables, HandTheirOptionsToAllParts) {
  const auto table =
      got(Numbers::make(library, {.name = "many", .hash = morva::hash_method::elf, .parts = 4}));
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(std::string_view(table.part(i).native()->name, 4), "many");
    EXPECT_EQ(table.part(i).native()->hashMethod,
              static_cast<std::uint32_t>(morva::hash_method::elf));
  }
}

TEST_F(PartitionedTables, AreNotMadeOnAnExtensionThatWasMovedFrom) {
  const morva::extension taken = std::move(library);
  EXPECT_EQ(Numbers::make(library).error(), errc::not_loaded);
}

// ---- Parts ----------------------------------------------------------------------------------

TEST_F(PartitionedTables, KeepEachKeyInThePartThatItsHashSays) {
  auto table = make<Numbers>(32);
  for (std::uint64_t key = 0; key < 1000; ++key) {
    ASSERT_TRUE(got(table.insert(key, 1)));
    const std::size_t part = table.part_of(key);
    ASSERT_EQ(part, morva::partition_hash(key) >> 59);
    ASSERT_TRUE(table.part(part).contains(key));
  }
  std::size_t records = 0;
  for (std::size_t i = 0; i < 32; ++i) {
    EXPECT_GT(table.part(i).size(), 0U);
    records += table.part(i).size();
  }
  EXPECT_EQ(records, 1000U);
  EXPECT_EQ(table.size(), 1000U);
}

TEST_F(PartitionedTables, HashTheTextOfATextKey) {
  const auto any = make<Parted<std::string_view>>(64);
  const auto bounded = make<Parted<morva::text<8>>>(64);
  for (const std::string_view key : {"", "a", "pear", "12345678"}) {
    const auto hash = morva::partition_hash(std::as_bytes(std::span(key)));
    EXPECT_EQ(any.part_of(key), hash >> 58);
    EXPECT_EQ(bounded.part_of(key), hash >> 58);
  }
  EXPECT_EQ(bounded.part_of("123456789"), 0U);
}

TEST_F(PartitionedTables, HashTheBytesOfAFixedKey) {
  using Key = std::array<std::uint8_t, 12>;
  const auto table = make<Parted<Key>>(64);
  const Key key = {1, 2, 3, 250};
  EXPECT_EQ(table.part_of(key), morva::partition_hash(std::as_bytes(std::span(key))) >> 58);
}

struct Place {
  char name[12];
  std::int32_t zone;
  double height;
};
using PlaceKey = morva::composed<morva::caseless<&Place::name>, &Place::height, &Place::zone>;

// What is equal is in one part, whatever else the row holds.
TEST_F(PartitionedTables, HashThePackedFieldsOfAComposedKey) {
  auto table = make<Parted<PlaceKey, ordered, sums>>(64);
  std::set<std::size_t> parts;
  for (int n = 0; n < 200; ++n) {
    Place place{"hill\0abc", n, 0.0};
    Place same{"HILL\0xyz", n, -0.0};
    ASSERT_EQ(table.part_of(place), table.part_of(same));
    parts.insert(table.part_of(place));
    ASSERT_TRUE(got(table.insert(place, n)));
    ASSERT_TRUE(table.contains(same));
    ASSERT_FALSE(got(table.insert(same, n)));
    ASSERT_EQ(got(table.add_to_sum(same, 2.0)), 2.0);
    ASSERT_EQ(table.reader().sum(place), 2.0);
  }
  EXPECT_GT(parts.size(), 40U);
  const auto at = table.find({"Hill", 17, 0.0});
  ASSERT_TRUE(at);
  EXPECT_EQ(at->key.get<0>(), "HILL");
  EXPECT_FALSE(got(table.erase(at)));
  EXPECT_FALSE(table.contains({"hill", 17, 0.0}));
  EXPECT_EQ(table.size(), 199U);
}

TEST_F(PartitionedTables, WalkEachPartByItself) {
  auto table = make<Everything>(16);
  for (int n = 0; n < 300; ++n) {
    ASSERT_TRUE(got(table.insert(static_cast<std::uint64_t>(n % 100), n)));
  }
  int records = 0;
  for (std::size_t i = 0; i < table.parts(); ++i) {
    for (auto at = table.begin(i); at != table.end(i); ++at, ++records) {
      ASSERT_EQ(table.part_of(at->key), i);
    }
    // It ends with the part also where records are taken out.
    for (auto at = table.begin(i); at != table.end(i);) at = got(table.erase(at));
    ASSERT_EQ(table.part(i).size(), 0U);
  }
  EXPECT_EQ(records, 300);
  EXPECT_TRUE(table.empty());
}

// ---- Walking ----------------------------------------------------------------------------------

static_assert(std::forward_iterator<Numbers::iterator>);
static_assert(std::forward_iterator<Numbers::const_iterator>);
static_assert(std::forward_iterator<Everything::cursor>);
static_assert(std::ranges::forward_range<const Everything>);
static_assert(std::ranges::forward_range<decltype(std::declval<Numbers &>().equal_range(1))>);
static_assert(std::ranges::input_range<decltype(std::declval<Everything &>().in_order().value())>);
static_assert(std::is_convertible_v<Numbers::cursor, Numbers::const_cursor>);
static_assert(std::is_convertible_v<Numbers::iterator, Numbers::const_iterator>);
static_assert(std::is_convertible_v<Numbers::iterator, Numbers::const_cursor>);
static_assert(!std::is_convertible_v<Numbers::const_cursor, Numbers::cursor>);
static_assert(!std::is_convertible_v<Numbers::const_iterator, Numbers::cursor>);

// Records show the data alone, also where there is a stamp behind it.
static_assert(std::is_same_v<decltype(Everything::reference::data), int &>);
static_assert(std::is_same_v<decltype(Everything::const_reference::data), const int &>);
static_assert(std::is_same_v<Everything::part_type::mapped_type, morva::stamped<int>>);
static_assert(std::is_same_v<Numbers::part_type::mapped_type, int>);

TEST_F(PartitionedTables, MergeTheirPartsInInsertionOrder) {
  auto table = make<Everything>(64);
  std::vector<int> expected;
  for (int n = 0; n < 1000; ++n) {
    ASSERT_TRUE(got(table.insert(static_cast<std::uint64_t>(n) * 7919, n)));
    expected.push_back(n);
  }
  EXPECT_THAT(dataInOrder(table), ElementsAreArray(expected));
  auto walk = got(table.in_order());
  for (auto [key, data] : walk) data = static_cast<int>(key % 1000);
  EXPECT_EQ(table.find(7919 * 3)->data, 757);
}

TEST_F(PartitionedTables, KeepTheOrderOfAKeyUntilItsLastRecordGoes) {
  auto table = make<Everything>();
  for (const auto &[key, data] : {std::pair{5, 50}, {6, 60}, {7, 70}, {5, 51}, {6, 61}}) {
    ASSERT_TRUE(got(table.insert(static_cast<std::uint64_t>(key), data)));
  }
  EXPECT_THAT(dataInOrder(table), ElementsAre(50, 51, 60, 61, 70));
  got(table.erase(table.find(5)));  // the second record takes the first one's place
  EXPECT_THAT(dataInOrder(table), ElementsAre(51, 60, 61, 70));
  EXPECT_FALSE(got(table.insert_or_assign(6, 66)));
  EXPECT_THAT(dataInOrder(table), ElementsAre(51, 66, 66, 70));
  got(table.insert(5, 52));
  EXPECT_THAT(dataInOrder(table), ElementsAre(51, 52, 66, 66, 70));
  EXPECT_EQ(got(table.erase(5)), 2U);
  got(table.add_to_sum(5, 1.0, 53));
  EXPECT_THAT(dataInOrder(table), ElementsAre(66, 66, 70, 53));
  table.clear_keeping_memory();
  EXPECT_THAT(dataInOrder(table), IsEmpty());
  got(table.find_or_insert(9, 90));
  got(table.find_or_insert(8, 80));
  EXPECT_THAT(dataInOrder(table), ElementsAre(90, 80));
}

TEST_F(PartitionedTables, GoThroughAMergedWalkOnce) {
  auto table = make<Parted<int, ordered>>();
  for (int n = 0; n < 5; ++n) got(table.insert(n, n));
  auto walk = got(table.in_order());
  auto at = walk.begin();
  ++at;
  at++;
  auto rest = std::move(walk);
  std::vector<int> seen;
  for (const auto entry : rest) seen.push_back(entry.key);
  EXPECT_THAT(seen, ElementsAre(2, 3, 4));
  EXPECT_TRUE(rest.begin() == rest.end());
  EXPECT_TRUE(walk.begin() == walk.end());
  rest = got(table.in_order());
  decltype(table)::cursor record = rest.begin();
  EXPECT_EQ(record->key, 0);
}

TEST_F(PartitionedTables, WorkWithAlgorithmsAndViews) {
  auto table = make<Numbers>();
  for (std::uint64_t key = 0; key < 100; ++key) got(table.insert(key, static_cast<int>(key)));
  const auto large = [](const auto &entry) { return entry.data >= 90; };
  EXPECT_EQ(std::count_if(table.begin(), table.end(), large), 10);
  const auto found = std::ranges::find_if(table, large);
  ASSERT_TRUE(found != table.end());
  EXPECT_TRUE(found == table.find(found->key));
  EXPECT_TRUE(table.find(1000) == table.end());
  EXPECT_EQ(std::ranges::distance(table), 100);
}

// ---- Sets, text, sums
// -----------------------------------------------------------------------------

struct Nothing {};

TEST_F(PartitionedTables, AreSetsWithoutData) {
  auto table = got(morva::partitioned_table<std::string_view, Nothing, ordered>::make(library));
  static_assert(sizeof(decltype(table)::part_type::mapped_type) == 8);
  EXPECT_TRUE(got(table.insert("pear")));
  EXPECT_TRUE(got(table.insert("apple")));
  EXPECT_FALSE(got(table.insert("pear")));
  EXPECT_FALSE(got(table.insert_or_assign("pear", {})));
  table.find("apple")->data = Nothing{};
  std::vector<std::string> seen;
  auto walk = got(table.in_order());
  for (const auto entry : walk) seen.emplace_back(entry.key);
  EXPECT_THAT(seen, ElementsAre("pear", "apple"));
  EXPECT_TRUE(table == table);
}

TEST_F(PartitionedTables, KeepTheWholeOfTheirData) {
  struct Wide {
    char first;
    double numbers[5];
    char last;
  };
  auto table = got(morva::partitioned_table<int, Wide, ordered>::make(library));
  for (int n = 0; n < 100; ++n) {
    const auto mark = static_cast<char>(n);
    got(table.insert(n, {mark, {1.0, 2.0, 3.0, 4.0, n * 0.5}, mark}));
  }
  for (int n = 0; n < 100; ++n) {
    const Wide &data = table.find(n)->data;
    ASSERT_EQ(data.first, data.last);
    ASSERT_EQ(data.numbers[4], n * 0.5);
  }
}

TEST_F(PartitionedTables, FindLongTextThroughTheirReaders) {
  auto table = make<Parted<std::string_view>>(4);
  auto reader = table.reader();
  const auto text = [](int n) { return std::string(static_cast<std::size_t>(40 * n), 'x'); };
  for (int n = 0; n < 40; ++n) {
    EXPECT_FALSE(reader.contains(text(n)));
    ASSERT_TRUE(got(table.insert(text(n), n)));
    ASSERT_EQ(reader.find(text(n))->data, n);
  }
  for (int n = 0; n < 40; ++n) ASSERT_EQ(reader.find(text(n))->data, n);
  // It belongs to the table object, whatever parts that has.
  auto other = make<Parted<std::string_view>>(32);
  got(other.insert(text(20), -1));
  table.swap(other);
  EXPECT_EQ(reader.find(text(20))->data, -1);
  EXPECT_FALSE(reader.contains(text(21)));
  table = {};
  EXPECT_FALSE(reader.contains(text(20)));
}

TEST_F(PartitionedTables, RefuseTextThatIsTooLong) {
  auto table = make<Parted<morva::text<8>, ordered>>();
  EXPECT_EQ(table.insert("123456789", 1).error(), errc::key_too_long);
  EXPECT_EQ(table.insert_or_assign("123456789", 1).error(), errc::key_too_long);
  EXPECT_EQ(table.find_or_insert("123456789", 1).error(), errc::key_too_long);
  EXPECT_FALSE(table.find("123456789"));
  EXPECT_EQ(got(table.erase("123456789")), 0U);
  EXPECT_TRUE(table.empty());
}

TEST_F(PartitionedTables, RefuseWhatIsNotANumber) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto refuses = [&](auto table) {
    EXPECT_EQ(table.add_to_sum(1, nan, 1).error(), errc::not_a_number);
    EXPECT_TRUE(table.empty());
    EXPECT_EQ(table.add_to_sum(1, 1.0).error(), errc::not_found);
    got(table.insert(1, 1));
    EXPECT_EQ(table.add_to_sum(1, nan).error(), errc::not_a_number);
    EXPECT_EQ(table.add_to_sum(table.find(1), nan).error(), errc::not_a_number);
    EXPECT_EQ(table.add_to_sum(1, nan, 1).error(), errc::not_a_number);
    EXPECT_EQ(table.sum(1), 0.0);
  };
  refuses(make<Everything>());
  refuses(make<Parted<std::uint64_t, sums>>());
}

TEST_F(PartitionedTables, RefuseNoRecord) {
  auto table = make<Everything>();
  EXPECT_EQ(table.erase(Everything::cursor()).error(), errc::no_record);
  EXPECT_EQ(table.erase(Everything::const_cursor()).error(), errc::no_record);
  EXPECT_EQ(table.erase(table.end()).error(), errc::no_record);
  EXPECT_EQ(table.erase(table.cend()).error(), errc::no_record);
  EXPECT_EQ(table.add_to_sum(Everything::cursor(), 1.0).error(), errc::no_record);
  EXPECT_EQ(table.sum(Everything::const_cursor()), 0.0);
  EXPECT_FALSE(Everything::cursor());
}

// ---- Comparing
// --------------------------------------------------------------------------------------

TEST_F(PartitionedTables, AreComparedWhateverTheirParts) {
  auto one = make<Parted<SaleKey, duplicates, sums>>(2);
  auto two = make<Parted<SaleKey, duplicates, sums>>(32);
  EXPECT_TRUE(one == two);
  for (int n = 0; n < 50; ++n) {
    for (int more : {0, 1}) {
      got(one.insert(keyOf<decltype(one)>(n), n + more));
      got(two.insert(keyOf<decltype(one)>(49 - n), 49 - n + more));
    }
  }
  EXPECT_TRUE(one == two);
  got(one.add_to_sum(keyOf<decltype(one)>(7), 1.5));
  EXPECT_FALSE(one == two);
  got(two.add_to_sum(keyOf<decltype(one)>(7), 1.5));
  EXPECT_TRUE(two == one);
  // As many records in all, and equal ones, but not as many under each key.
  one.clear();
  two.clear();
  for (int number : {1, 1, 2}) {
    got(one.insert(keyOf<decltype(one)>(number), 0));
    got(two.insert(keyOf<decltype(one)>(3 - number), 0));
  }
  EXPECT_FALSE(one == two);
  EXPECT_FALSE(two == one);
}

// ---- Moving, and tables that are none
// --------------------------------------------------------------------

TEST_F(PartitionedTables, AreMovedWithTheirRecords) {
  auto table = make<Everything>();
  for (int n = 0; n < 20; ++n) got(table.insert(static_cast<std::uint64_t>(n), n));
  const auto at = table.find(7);
  Everything moved = std::move(table);
  EXPECT_TRUE(moved);
  EXPECT_TRUE(moved.find(7) == at);
  EXPECT_EQ(moved.size(), 20U);

  // The order goes on where it was.
  got(moved.insert(100, 100));
  EXPECT_EQ(dataInOrder(moved).back(), 100);
  Everything other = make<Everything>(2);
  got(other.insert(1, -1));
  swap(moved, other);
  EXPECT_EQ(moved.size(), 1U);
  EXPECT_EQ(other.parts(), 8U);
  got(other.insert(101, 101));
  got(moved.insert(2, -2));
  EXPECT_EQ(dataInOrder(other).back(), 101);
  EXPECT_THAT(dataInOrder(moved), ElementsAre(-1, -2));
  other = std::move(moved);
  got(other.insert(3, -3));
  EXPECT_THAT(dataInOrder(other), ElementsAre(-1, -2, -3));
  auto &self = other;
  other = std::move(self);
  EXPECT_EQ(other.size(), 3U);
}

template <class Table>
void expectNoTable(Table &table, const typename Table::key_type &key) {
  EXPECT_FALSE(table);
  EXPECT_EQ(table.parts(), 0U);
  EXPECT_EQ(table.size() + table.bucket_count() + table.memory() + table.max_size(), 0U);
  EXPECT_TRUE(table.empty());
  EXPECT_EQ(table.insert(key, 1).error(), errc::no_table);
  EXPECT_EQ(table.insert_or_assign(key, 1).error(), errc::no_table);
  EXPECT_EQ(table.find_or_insert(key, 1).error(), errc::no_table);
  EXPECT_EQ(table.insert_range(std::vector{std::pair{key, 1}}).error(), errc::no_table);
  EXPECT_EQ(table.add_to_sum(key, 1.0, 1).error(), errc::no_table);
  EXPECT_EQ(table.add_to_sum(key, 1.0).error(), errc::not_found);
  EXPECT_EQ(table.erase(key).error(), errc::no_table);
  EXPECT_EQ(table.erase(typename Table::cursor()).error(), errc::no_table);
  EXPECT_EQ(table.erase(table.begin()).error(), errc::no_table);
  EXPECT_EQ(table.at(key).error(), errc::not_found);
  EXPECT_FALSE(table.find(key));
  EXPECT_FALSE(table.contains(key));
  EXPECT_FALSE(table.reader().contains(key));
  EXPECT_EQ(table.count(key), 0U);
  EXPECT_EQ(table.part_of(key), 0U);
  EXPECT_EQ(table.sum(key), 0.0);
  EXPECT_TRUE(table.begin() == table.end());
  EXPECT_EQ(got(erase_if(table, [](const auto &) { return true; })), 0U);
  table.clear();
  table.clear_keeping_memory();
  const auto all = table.lock();
  const auto one = table.lock(key);
  EXPECT_TRUE(table == Table());
}

TEST_F(PartitionedTables, AnswerThatTheyWereMovedFrom) {
  auto table = make<Everything>();
  const Everything taken = std::move(table);
  expectNoTable(table, 1);
  auto walk = got(table.in_order());
  EXPECT_TRUE(walk.begin() == walk.end());
  Parted<std::uint64_t, sums> never;
  expectNoTable(never, 1);
}

TEST_F(PartitionedTables, OfOtherKeysAnswerThatTheyWereMovedFrom) {
  Parted<PlaceKey> places;
  EXPECT_EQ(places.insert(Place{}, 1).error(), errc::no_table);
  EXPECT_FALSE(places.find(Place{}));
  EXPECT_EQ(places.part_of(Place{}), 0U);
  Parted<std::string_view> texts;
  EXPECT_EQ(texts.insert("a", 1).error(), errc::no_table);
  EXPECT_FALSE(texts.reader().contains(std::string(1000, 'x')));
}

TEST(PartitionedTablesAlone, OutliveTheirExtension) {
  std::optional<morva::extension> library(linkedLibrary());
  auto table = got(Numbers::make(*library));
  library.reset();
  ASSERT_TRUE(got(table.insert(1, 2)));
  EXPECT_EQ(table.find(1)->data, 2);
}

// ---- Throwing
// ---------------------------------------------------------------------------------------------

TEST_F(PartitionedTables, ThrowWithTheFeature) {
  using Words = Parted<std::string_view, ordered, throws>;
  Words words(library, {.expected = 100, .parts = 4});
  ++words["pear"];
  ++words["apple"];
  ++words["pear"];
  EXPECT_EQ(words.at("pear"), 2);
  EXPECT_THROW(words.at("fig"), std::out_of_range);
  EXPECT_TRUE(words.insert("fig", 7));
  std::vector<std::string> seen;
  for (auto [word, count] : words.in_order()) seen.emplace_back(word);
  EXPECT_THAT(seen, ElementsAre("pear", "apple", "fig"));
  EXPECT_EQ(words.erase("pear"), 1U);
  EXPECT_THROW(words.erase(Words::cursor()), morva::failure);
  EXPECT_EQ(erase_if(words, [](const auto &entry) { return entry.data == 7; }), 1U);
  EXPECT_EQ(words.size(), 1U);
  EXPECT_THROW(Words(library, {.parts = 5}), morva::failure);
}

}  // namespace
}  // namespace cpp_test
