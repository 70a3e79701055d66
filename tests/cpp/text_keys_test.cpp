// Text as a key: bounded, and of any length.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "tables.h"

namespace cpp_test {
namespace {

using morva::errc;

// ---- bounded ----------------------------------------------------------------------

template <std::size_t N>
using Bounded = morva::table<morva::text<N>, std::size_t, morva::sums>;

// Keys that differ in their length only, and in their last byte only.
template <std::size_t N>
void takesEveryLength(const morva::extension &library) {
  SCOPED_TRACE(N);
  auto table = got(Bounded<N>::make(library, {.expected = 16}));
  std::vector<std::string> keys;
  for (std::size_t length = 0; length <= N; length += length < 300 ? 1 : 97) {
    keys.emplace_back(length, '\0');
    if (length != 0) keys.push_back(std::string(length - 1, '\0') + "x");
  }
  keys.emplace_back(N, 'y');
  for (std::size_t i = 0; i < keys.size(); ++i) {
    ASSERT_FALSE(table.contains(keys[i])) << i;
    ASSERT_TRUE(got(table.insert(keys[i], i))) << i;
  }
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const auto found = table.find(keys[i]);
    ASSERT_TRUE(found) << i;
    ASSERT_EQ(found->data, i);
    ASSERT_EQ(found->key, keys[i]);
    ASSERT_EQ(got(table.add_to_sum(keys[i], 1.5)), 1.5);
  }
  for (const auto entry : table) ASSERT_EQ(entry.key, keys[entry.data]);
  for (const std::string &key : keys) ASSERT_EQ(got(table.erase(key)), 1U);
  EXPECT_TRUE(table.empty());
}

TEST(BoundedText, TakesEveryLengthUpToItsLimit) {
  const morva::extension library = linkedLibrary();
  takesEveryLength<1>(library);
  takesEveryLength<2>(library);
  takesEveryLength<7>(library);
  takesEveryLength<8>(library);
  takesEveryLength<9>(library);
  takesEveryLength<12>(library);
  takesEveryLength<13>(library);
  takesEveryLength<255>(library);
  takesEveryLength<4096>(library);
}

TEST(BoundedText, RefusesALongerKeyAndHasNone) {
  const morva::extension library = linkedLibrary();
  using Table = morva::table<morva::text<8>, int, morva::sums, morva::duplicates>;
  auto table = got(Table::make(library));
  ASSERT_TRUE(got(table.insert("12345678", 1)));
  // Up to 12 more the instance would take, and overwrite.
  for (std::size_t length = 9; length <= 40; ++length) {
    const std::string key = "12345678" + std::string(length - 8, '9');
    EXPECT_EQ(table.insert(key, 2).error(), errc::key_too_long) << length;
    EXPECT_EQ(table.insert_or_assign(key, 2).error(), errc::key_too_long) << length;
    EXPECT_EQ(table.find_or_insert(key, 2).error(), errc::key_too_long) << length;
    EXPECT_EQ(table.add_to_sum(key, 1.0, 2).error(), errc::key_too_long) << length;
    const std::vector<std::pair<std::string, int>> pairs{{"in", 3}, {key, 4}, {"out", 5}};
    EXPECT_EQ(table.insert_range(pairs).error(), errc::key_too_long) << length;
    EXPECT_EQ(got(table.erase("in")), 1U) << "what came before the failure stays";
    EXPECT_EQ(table.add_to_sum(key, 1.0).error(), errc::not_found) << length;
    EXPECT_EQ(table.at(key).error(), errc::not_found) << length;
    EXPECT_FALSE(table.contains(key)) << length;
    EXPECT_FALSE(table.find(key)) << length;
    EXPECT_TRUE(table.equal_range(key).empty()) << length;
    EXPECT_EQ(table.count(key), 0U) << length;
    EXPECT_EQ(table.sum(key), 0.0) << length;
    EXPECT_EQ(got(table.erase(key)), 0U) << length;
    EXPECT_FALSE(table.reader().contains(key)) << length;
  }
  EXPECT_EQ(table.size(), 1U);
  EXPECT_EQ(table.find("12345678")->data, 1);
}

TEST(BoundedText, ARefusedKeyCostsNoMemory) {
  const morva::extension library = linkedLibrary();
  auto table = got(morva::table<morva::text<4>, int>::make(library));
  ASSERT_TRUE(got(table.insert("fits", 1)));
  const std::uint64_t before = table.memory();
  for (int i = 0; i < 10000; ++i) ASSERT_FALSE(table.insert("too long", 1));
  EXPECT_EQ(table.memory(), before);
}

TEST(BoundedText, TakesTextWithoutAnAddress) {
  const morva::extension library = linkedLibrary();
  auto table = got(morva::table<morva::text<4>, int>::make(library));
  const std::string_view nothing;
  EXPECT_FALSE(table.contains(nothing));
  EXPECT_TRUE(got(table.insert(nothing, 1)));
  EXPECT_FALSE(got(table.insert("", 2)));
  EXPECT_EQ(table.find(nothing)->key, "");
  EXPECT_EQ(got(table.erase(nothing)), 1U);
}

// ---- any length ---------------------------------------------------------------------

template <class Key>
class AnyText : public ::testing::Test {
 protected:
  using Table = morva::table<Key, int, morva::ordered>;
  morva::extension library = linkedLibrary();
};
using Types = ::testing::Types<std::string_view, std::string>;
TYPED_TEST_SUITE(AnyText, Types);

// Around what a lookup keeps on the stack, and far beyond.
std::vector<std::string> keysOfManyLengths() {
  std::vector<std::string> keys;
  for (const std::size_t length :
       {0, 1, 2, 7, 8, 9, 63, 64, 254, 255, 256, 257, 258, 263, 264, 265, 4096, 5000, 1 << 20}) {
    keys.emplace_back(length, '\0');
    if (length != 0) keys.push_back(std::string(length - 1, '\0') + "x");
  }
  return keys;
}

TYPED_TEST(AnyText, IsFoundWhateverItsLengthAndBytes) {
  auto table = got(TestFixture::Table::make(this->library));
  static_assert(std::is_same_v<decltype(table.begin()->key), std::string_view>);
  const std::vector<std::string> keys = keysOfManyLengths();
  for (std::size_t i = 0; i < keys.size(); ++i) {
    ASSERT_FALSE(table.contains(keys[i])) << keys[i].size();
    ASSERT_TRUE(got(table.insert(keys[i], static_cast<int>(i)))) << keys[i].size();
    ASSERT_FALSE(got(table.insert(keys[i], -1))) << keys[i].size();
  }
  const auto &constant = table;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const auto found = constant.find(keys[i]);
    ASSERT_TRUE(found) << keys[i].size();
    ASSERT_EQ(found->data, static_cast<int>(i));
    ASSERT_TRUE(found->key == keys[i]) << keys[i].size();
    ASSERT_EQ(constant.count(keys[i]), 1U);
    ASSERT_EQ(got(constant.at(keys[i])), static_cast<int>(i));
    ASSERT_FALSE(constant.contains(keys[i] + "y")) << keys[i].size();
  }
  std::size_t walked = 0;
  for (const auto entry : constant) ASSERT_TRUE(entry.key == keys[walked++]);
  EXPECT_EQ(walked, keys.size());
  for (std::size_t i = 0; i < keys.size(); i += 2) ASSERT_EQ(got(table.erase(keys[i])), 1U);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    ASSERT_EQ(constant.contains(keys[i]), i % 2 != 0) << keys[i].size();
  }
}

TYPED_TEST(AnyText, LongestFirstOrLastIsTheSame) {
  std::vector<std::string> keys = keysOfManyLengths();
  for (const bool reversed : {false, true}) {
    if (reversed) std::reverse(keys.begin(), keys.end());
    auto table = got(TestFixture::Table::make(this->library));
    for (const std::string &key : keys) ASSERT_TRUE(got(table.insert(key, 1)));
    for (const std::string &key : keys) ASSERT_TRUE(table.contains(key)) << key.size();
    for (const std::string &key : keys) {
      ASSERT_FALSE(got(table.insert_or_assign(key, 2))) << key.size();
      ASSERT_EQ(table.find(key)->data, 2);
    }
    while (!table.empty()) got(table.erase(table.begin()));
    for (const std::string &key : keys) ASSERT_FALSE(table.contains(key)) << key.size();
  }
}

TYPED_TEST(AnyText, AKeyLongerThanAnyStoredIsNotThere) {
  auto table = got(TestFixture::Table::make(this->library));
  const std::string huge(1 << 20, 'x');
  EXPECT_FALSE(std::as_const(table).contains(huge));
  EXPECT_EQ(got(table.erase(huge)), 0U);
  ASSERT_TRUE(got(table.insert(std::string(300, 'x'), 1)));
  EXPECT_TRUE(std::as_const(table).contains(std::string_view(huge).substr(0, 300)));
  EXPECT_FALSE(std::as_const(table).contains(std::string_view(huge).substr(0, 299)));
  EXPECT_FALSE(std::as_const(table).contains(std::string_view(huge).substr(0, 301)));
  EXPECT_FALSE(std::as_const(table).find(huge));
  EXPECT_EQ(std::as_const(table).count(huge), 0U);
  EXPECT_EQ(std::as_const(table).at(huge).error(), errc::not_found);
  EXPECT_EQ(got(table.erase(huge)), 0U);
}

TYPED_TEST(AnyText, BeyondAllBoundsIsRefusedUnread) {
  auto table = got(TestFixture::Table::make(this->library));
  // Nothing may look at bytes that are not there.
  const std::string_view endless("x", 0x7fff0001);
  EXPECT_EQ(table.insert(endless, 1).error(), errc::key_too_long);
  EXPECT_EQ(table.insert_or_assign(endless, 1).error(), errc::key_too_long);
  EXPECT_EQ(table.find_or_insert(endless, 1).error(), errc::key_too_long);
  for (const std::size_t length : {std::size_t{0x7fff0000}, std::size_t{0x80000000},
                                   std::size_t{0x100000001}, std::size_t{0xffffffff}}) {
    const std::string_view key("x", length);
    EXPECT_FALSE(table.contains(key)) << length;
    EXPECT_FALSE(table.find(key)) << length;
    EXPECT_EQ(got(table.erase(key)), 0U) << length;
    EXPECT_FALSE(table.reader().contains(key)) << length;
  }
  EXPECT_TRUE(got(table.insert("x", 1))) << "as long as the last one modulo 2^32";
}

TYPED_TEST(AnyText, MayBeWhatTheTableShows) {
  auto table = got(TestFixture::Table::make(this->library));
  for (const std::string &key : keysOfManyLengths()) ASSERT_TRUE(got(table.insert(key, 1)));
  for (auto entry : table) {
    ASSERT_EQ(table.count(entry.key), 1U);
    ASSERT_FALSE(got(table.insert(entry.key, 2)));
    ASSERT_FALSE(got(table.insert_or_assign(entry.key, entry.data)));
  }
  while (!table.empty()) ASSERT_EQ(got(table.erase(table.begin()->key)), 1U);
}

TYPED_TEST(AnyText, RoomForLongKeysGoesWhereTheTableGoes) {
  auto table = got(TestFixture::Table::make(this->library));
  const std::string key(3000, 'x');
  ASSERT_TRUE(got(table.insert(key, 1)));
  auto moved = std::move(table);
  EXPECT_TRUE(moved.contains(key));
  auto small = got(TestFixture::Table::make(this->library));
  swap(small, moved);
  EXPECT_TRUE(small.contains(key));
  EXPECT_FALSE(moved.contains(key));
  ASSERT_TRUE(got(moved.insert(key + key, 2)));
  EXPECT_TRUE(moved.contains(key + key));
  EXPECT_FALSE(small == moved);
  small.clear();
  EXPECT_FALSE(small.contains(key));
  ASSERT_TRUE(got(small.insert(key + key, 2)));
  EXPECT_TRUE(small == moved);
}

TYPED_TEST(AnyText, AReaderFindsKeysThatCameAfterIt) {
  auto table = got(TestFixture::Table::make(this->library));
  auto first = table.reader();
  ASSERT_TRUE(got(table.insert(std::string(1000, 'x'), 1)));
  auto second = table.reader();
  ASSERT_TRUE(got(table.insert(std::string(2000, 'x'), 2)));
  auto third = std::move(second);
  for (auto *reader : {&first, &third}) {
    EXPECT_EQ(reader->find(std::string(1000, 'x'))->data, 1);
    EXPECT_EQ(reader->find(std::string(2000, 'x'))->data, 2);
    EXPECT_FALSE(reader->contains(std::string(3000, 'x')));
    EXPECT_FALSE(reader->contains(std::string(1500, 'x')));
    EXPECT_FALSE(reader->contains(""));
  }
}

}  // namespace
}  // namespace cpp_test
