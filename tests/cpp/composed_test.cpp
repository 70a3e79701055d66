// Keys made of members of a row: what counts, what does not, and what a record
// shows.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "tables.h"

namespace cpp_test {
namespace {

enum class Colour : std::uint8_t { red, blue };
enum class Wide : std::int64_t { far = -5 };

struct Place {
  std::int32_t x;
  std::int32_t y;
  friend bool operator==(const Place &, const Place &) = default;
};

// A member of every kind, and some that are in no key, the last one too.
struct Row {
  std::string before = "before";
  char text[8] = {};
  char blanks[6] = {};
  char any[5] = {};
  char anyBlanks[4] = {};
  std::int8_t i8 = 0;
  std::int16_t i16 = 0;
  std::int32_t i32 = 0;
  std::int64_t i64 = 0;
  std::uint8_t u8 = 0;
  std::uint16_t u16 = 0;
  std::uint32_t u32 = 0;
  std::uint64_t u64 = 0;
  Colour colour = Colour::red;
  Wide wide = {};
  bool flag = false;
  char letter = 0;
  double real = 0;
  std::array<std::uint8_t, 3> array = {};
  std::int16_t plain[3] = {};
  Place place = {};
  unsigned char raw[4] = {};
  std::vector<int> after;
};
static_assert(std::is_standard_layout_v<Row>);

using morva::caseless;
using morva::padded;
using Everything =
    morva::composed<&Row::text, padded<&Row::blanks>, caseless<&Row::any>,
                    caseless<padded<&Row::anyBlanks>>, &Row::i8, &Row::i16, &Row::i32, &Row::i64,
                    &Row::u8, &Row::u16, &Row::u32, &Row::u64, &Row::colour, &Row::wide, &Row::flag,
                    &Row::letter, &Row::real, &Row::array, &Row::plain, &Row::place, &Row::raw>;

template <std::size_t N>
void put(char (&member)[N], std::string_view value) {
  ASSERT_LE(value.size(), N);
  std::memset(member, 0, N);
  std::memcpy(member, value.data(), value.size());
}

Row fullRow() {
  Row row;
  put(row.text, "text");
  put(row.blanks, "ab ");
  put(row.any, "aZ{@y");
  put(row.anyBlanks, "q");
  row.i8 = -8;
  row.i16 = -1600;
  row.i32 = -320000;
  row.i64 = -6400000000000;
  row.u8 = 200;
  row.u16 = 60000;
  row.u32 = 4000000000;
  row.u64 = UINT64_MAX;
  row.colour = Colour::blue;
  row.wide = Wide::far;
  row.flag = true;
  row.letter = 'c';
  row.real = 2.5;
  row.array = {1, 2, 3};
  row.plain[0] = -1;
  row.plain[1] = 2;
  row.plain[2] = -3;
  row.place = {7, -7};
  for (unsigned char &byte : row.raw) byte = 0xfe;
  row.after = {1, 2, 3};
  return row;
}

template <class... Features>
auto tableOf(const morva::extension &library) {
  return got(morva::table<Everything, int, Features...>::make(library, {.expected = 8}));
}

TEST(ComposedKeys, ShowEveryMember) {
  const morva::extension library = linkedLibrary();
  auto table = tableOf<>(library);
  ASSERT_TRUE(got(table.insert(fullRow(), 1)));
  const auto key = table.begin()->key;
  static_assert(std::is_same_v<decltype(key.get<0>()), std::string_view>);
  static_assert(std::is_same_v<decltype(key.get<1>()), std::string_view>);
  static_assert(std::is_same_v<decltype(key.field<&Row::i16>()), std::int16_t>);
  static_assert(std::is_same_v<decltype(key.field<&Row::plain>()), std::array<std::int16_t, 3>>);
  EXPECT_EQ(key.get<0>(), "text");
  EXPECT_EQ(key.get<1>(), "ab");
  EXPECT_EQ(key.get<2>(), "AZ{@Y");
  EXPECT_EQ(key.get<3>(), "Q");
  EXPECT_EQ(key.get<4>(), -8);
  EXPECT_EQ(key.get<20>(), (std::array<unsigned char, 4>{0xfe, 0xfe, 0xfe, 0xfe}));
  EXPECT_EQ(key.field<&Row::text>(), "text");
  EXPECT_EQ(key.field<padded<&Row::blanks>>(), "ab");
  EXPECT_EQ(key.field<caseless<&Row::any>>(), "AZ{@Y");
  EXPECT_EQ(key.field<caseless<padded<&Row::anyBlanks>>>(), "Q");
  EXPECT_EQ(key.field<&Row::i16>(), -1600);
  EXPECT_EQ(key.field<&Row::i32>(), -320000);
  EXPECT_EQ(key.field<&Row::i64>(), -6400000000000);
  EXPECT_EQ(key.field<&Row::u8>(), 200);
  EXPECT_EQ(key.field<&Row::u16>(), 60000);
  EXPECT_EQ(key.field<&Row::u32>(), 4000000000);
  EXPECT_EQ(key.field<&Row::u64>(), UINT64_MAX);
  EXPECT_EQ(key.field<&Row::colour>(), Colour::blue);
  EXPECT_EQ(key.field<&Row::wide>(), Wide::far);
  EXPECT_TRUE(key.field<&Row::flag>());
  EXPECT_EQ(key.field<&Row::letter>(), 'c');
  EXPECT_EQ(key.field<&Row::real>(), 2.5);
  EXPECT_EQ(key.field<&Row::array>(), (std::array<std::uint8_t, 3>{1, 2, 3}));
  EXPECT_EQ(key.field<&Row::plain>(), (std::array<std::int16_t, 3>{-1, 2, -3}));
  EXPECT_EQ(key.field<&Row::place>(), (Place{7, -7}));
}

// Each change makes another key.
std::vector<Row> variants() {
  std::vector<Row> rows(1, fullRow());
  const auto add = [&](auto change) {
    rows.push_back(fullRow());
    change(rows.back());
  };
  add([](Row &row) { put(row.text, "tex"); });
  add([](Row &row) { put(row.text, "Text"); });
  add([](Row &row) { put(row.text, "text "); });
  add([](Row &row) { put(row.text, "text5678"); });
  add([](Row &row) { put(row.text, "text567\xff"); });
  add([](Row &row) { put(row.text, ""); });
  add([](Row &row) { put(row.blanks, "a b"); });
  add([](Row &row) { put(row.blanks, " ab"); });
  add([](Row &row) { put(row.blanks, "AB"); });
  add([](Row &row) { put(row.blanks, ""); });
  add([](Row &row) { put(row.blanks, "abcdef"); });
  add([](Row &row) { put(row.blanks, {"a\0b", 3}); });
  add([](Row &row) { put(row.any, "aZ[@y"); });
  add([](Row &row) { put(row.any, "aZ{`y"); });
  add([](Row &row) { put(row.any, "\xe1Z{@y"); });
  add([](Row &row) { put(row.any, "\xc1Z{@y"); });
  add([](Row &row) { put(row.anyBlanks, "qq"); });
  add([](Row &row) { row.i8 = 8; });
  add([](Row &row) { row.i16 = 1600; });
  add([](Row &row) { row.i32 ^= 1 << 30; });
  add([](Row &row) { row.i64 = 0; });
  add([](Row &row) { row.u8 = 201; });
  add([](Row &row) { row.u16 = 0; });
  add([](Row &row) { row.u32 = 0; });
  add([](Row &row) { row.u64 -= 1; });
  add([](Row &row) { row.colour = Colour::red; });
  add([](Row &row) { row.wide = {}; });
  add([](Row &row) { row.flag = false; });
  add([](Row &row) { row.letter = 'C'; });
  add([](Row &row) { row.real = 0.0; });
  add([](Row &row) { row.real = std::nextafter(2.5, 3.0); });
  add([](Row &row) { row.real = -2.5; });
  add([](Row &row) { row.real = std::numeric_limits<double>::infinity(); });
  add([](Row &row) { row.real = std::numeric_limits<double>::quiet_NaN(); });
  add([](Row &row) { row.real = -std::numeric_limits<double>::quiet_NaN(); });
  add([](Row &row) { row.real = std::bit_cast<double>(UINT64_C(0x7ff8000000000123)); });
  add([](Row &row) { row.array[2] = 0; });
  add([](Row &row) { row.plain[1] = 0; });
  add([](Row &row) { row.place.y = 7; });
  add([](Row &row) { row.raw[0] = 0; });
  return rows;
}

// Rows that differ where it does not count.
std::vector<Row> lookalikes() {
  std::vector<Row> rows(1, fullRow());
  const auto add = [&](auto change) {
    rows.push_back(fullRow());
    change(rows.back());
  };
  add([](Row &row) { row.before = std::string(100, 'x'); });
  add([](Row &row) { row.after.clear(); });
  add([](Row &row) { std::memcpy(row.text, "text\0xyz", 8); });
  add([](Row &row) { put(row.blanks, "ab"); });
  add([](Row &row) { put(row.blanks, "ab    "); });
  add([](Row &row) { put(row.blanks, {"ab\0 \0 ", 6}); });
  add([](Row &row) { put(row.any, "Az{@Y"); });
  add([](Row &row) { put(row.anyBlanks, "Q   "); });
  add([](Row &row) { put(row.anyBlanks, {"q\0 ", 3}); });
  return rows;
}

TEST(ComposedKeys, EveryMemberCountsAsItsKindSays) {
  const morva::extension library = linkedLibrary();
  auto table = tableOf<morva::ordered>(library);
  const std::vector<Row> rows = variants();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_FALSE(table.contains(rows[i])) << i;
    ASSERT_TRUE(got(table.insert(rows[i], static_cast<int>(i)))) << i;
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_TRUE(table.find(rows[i])) << i;
    ASSERT_EQ(table.find(rows[i])->data, static_cast<int>(i));
  }
  std::size_t i = 0;
  for (const Row &row : lookalikes()) {
    ASSERT_TRUE(table.find(row)) << i;
    ASSERT_EQ(table.find(row)->data, 0) << i;
    ASSERT_FALSE(got(table.insert(row, -1))) << i;
    ++i;
  }
  EXPECT_EQ(table.size(), rows.size());
}

TEST(ComposedKeys, AreTakenOutAgainByCursorAndIterator) {
  const morva::extension library = linkedLibrary();
  const std::vector<Row> rows = variants();
  auto once = tableOf<morva::ordered>(library);
  auto often = tableOf<morva::duplicates>(library);
  const auto fill = [&] {
    for (const Row &row : rows) {
      ASSERT_TRUE(got(once.insert(row, 0)));
      for (int n = 0; n < 3; ++n) ASSERT_TRUE(got(often.insert(row, n)));
    }
  };
  fill();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_FALSE(got(once.erase(once.find(rows[i])))) << i;
    ASSERT_FALSE(once.contains(rows[i])) << i;
    ASSERT_EQ(once.size(), rows.size() - i - 1);
    for (std::size_t left = 3; left-- != 0;) {
      const auto next = got(often.erase(often.find(rows[i])));
      ASSERT_TRUE(next == often.find(rows[i])) << i;
      ASSERT_EQ(often.count(rows[i]), left) << i;
    }
  }
  EXPECT_TRUE(often.empty());
  fill();
  for (auto at = once.begin(); at != once.end();) at = got(once.erase(at));
  for (auto at = often.begin(); at != often.end();) at = got(often.erase(at));
  EXPECT_TRUE(once.empty());
  EXPECT_TRUE(often.empty());
}

TEST(ComposedKeys, MakeTablesThatCompare) {
  const morva::extension library = linkedLibrary();
  auto one = tableOf<>(library);
  auto two = got(morva::table<Everything, int>::make(
      library, {.expected = 1, .hash = morva::hash_method::fnv}));
  const std::vector<Row> rows = variants();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_TRUE(got(one.insert(rows[i], 1)));
    ASSERT_TRUE(got(two.insert(rows[rows.size() - 1 - i], 1)));
  }
  EXPECT_TRUE(one == two);
  ASSERT_EQ(got(two.erase(rows[5])), 1U);
  EXPECT_FALSE(one == two);
  ASSERT_EQ(got(one.erase(rows[6])), 1U);
  EXPECT_FALSE(one == two);
}

TEST(ComposedKeys, OfRecordsCompareAsTheyCount) {
  const morva::extension library = linkedLibrary();
  auto one = tableOf<>(library);
  auto two = tableOf<>(library);
  const std::vector<Row> rows = variants();
  const std::vector<Row> alike = lookalikes();
  ASSERT_TRUE(got(one.insert(alike[5], 1)));
  ASSERT_TRUE(got(two.insert(alike[8], 1)));
  EXPECT_TRUE(one.begin()->key == two.begin()->key);
  for (std::size_t i = 1; i < rows.size(); ++i) {
    two.clear();
    ASSERT_TRUE(got(two.insert(rows[i], 1)));
    EXPECT_FALSE(one.begin()->key == two.begin()->key) << i;
  }
}

TEST(ComposedKeys, MinusZeroIsZeroAndANaNIsItself) {
  const morva::extension library = linkedLibrary();
  auto table = got(morva::table<morva::composed<&Row::real>, int>::make(library));
  Row row;
  row.real = -0.0;
  ASSERT_TRUE(got(table.insert(row, 1)));
  EXPECT_FALSE(std::signbit(table.begin()->key.get<0>()));
  row.real = 0.0;
  EXPECT_FALSE(got(table.insert(row, 2)));
  row.real = std::numeric_limits<double>::quiet_NaN();
  ASSERT_TRUE(got(table.insert(row, 3)));
  EXPECT_FALSE(got(table.insert(row, 4)));
  EXPECT_EQ(table.find(row)->data, 3);
  row.real = -row.real;
  EXPECT_FALSE(table.contains(row));
}

struct Pair {
  std::uint32_t a;
  std::uint32_t b;
};

TEST(ComposedKeys, FieldsHaveTheOrderOfTheKeyNotOfTheRow) {
  const morva::extension library = linkedLibrary();
  auto forward = got(morva::table<morva::composed<&Pair::a, &Pair::b>, int>::make(library));
  auto backward = got(morva::table<morva::composed<&Pair::b, &Pair::a>, int>::make(library));
  for (std::uint32_t a = 0; a < 30; ++a) {
    for (std::uint32_t b = 0; b < 30; ++b) {
      ASSERT_TRUE(got(forward.insert({a, b}, 1)));
      ASSERT_TRUE(got(backward.insert({a, b}, 1)));
    }
  }
  const auto one = forward.find({3, 4})->key;
  const auto two = backward.find({3, 4})->key;
  EXPECT_EQ(one.get<0>(), 3U);
  EXPECT_EQ(one.get<1>(), 4U);
  EXPECT_EQ(two.get<0>(), 4U);
  EXPECT_EQ(two.get<1>(), 3U);
  EXPECT_EQ(two.field<&Pair::a>(), 3U);
  EXPECT_EQ(two.field<&Pair::b>(), 4U);
}

struct Long {
  char text[4000];
  std::array<std::uint8_t, 96> rest;
};

TEST(ComposedKeys, MayBeLongAndShort) {
  const morva::extension library = linkedLibrary();
  auto big =
      got(morva::table<morva::composed<&Long::text, &Long::rest>, int, morva::duplicates>::make(
          library));
  auto row = std::make_unique<Long>();
  ASSERT_TRUE(got(big.insert(*row, 1)));
  std::memset(row->text, 'x', sizeof row->text);
  ASSERT_TRUE(got(big.insert(*row, 2)));
  row->rest[95] = 1;
  ASSERT_TRUE(got(big.insert(*row, 3)));
  EXPECT_EQ(big.find(*row)->data, 3);
  EXPECT_EQ(big.find(*row)->key.get<0>().size(), 4000U);
  for (auto at = big.begin(); at != big.end();) at = got(big.erase(at));

  auto small = got(morva::table<morva::composed<&Row::i8>, int>::make(library));
  for (int n = -128; n < 128; ++n) {
    Row one;
    one.i8 = static_cast<std::int8_t>(n);
    ASSERT_TRUE(got(small.insert(one, n)));
  }
  for (const auto entry : small) EXPECT_EQ(entry.key.get<0>(), entry.data);
}

struct Base {
  std::int32_t id = 0;
};
struct Derived : Base {
  void name() {}
};

TEST(ComposedKeys, OfABaseAreTakenFromWhatDerivesFromIt) {
  const morva::extension library = linkedLibrary();
  auto table = got(morva::table<morva::composed<&Derived::id>, int>::make(library));
  Derived row;
  row.id = 5;
  ASSERT_TRUE(got(table.insert(row, 1)));
  EXPECT_TRUE(table.contains(Base{5}));
}

struct Fixed {
  const char name[4] = {};
};

TEST(ComposedKeys, ConstantTextIsTextAsWell) {
  const morva::extension library = linkedLibrary();
  auto table = got(morva::table<morva::composed<&Fixed::name>, int>::make(library));
  const Fixed one{{'a', '\0', 'x', 'x'}};
  const Fixed two{{'a', '\0', 'y', 'y'}};
  ASSERT_TRUE(got(table.insert(one, 1)));
  EXPECT_TRUE(table.contains(two));
}

}  // namespace
}  // namespace cpp_test
