// Keys of fixed size: each type's values are told apart, found and shown again.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <type_traits>
#include <vector>

#include "tables.h"

namespace cpp_test {
namespace {

enum class Small : std::uint8_t { red, green, blue };
enum class Large : std::int64_t { none = -1 };
enum Plain : std::int32_t { kOne = 1, kTwo };

struct Point {
  std::int32_t x;
  std::int32_t y;
  friend bool operator==(const Point &, const Point &) = default;
};
struct Nested {
  Point from;
  std::array<std::uint8_t, 8> tag;
  friend bool operator==(const Nested &, const Nested &) = default;
};

// The n-th value of a type: the bytes of n, as many as there is room for.
template <class Key>
Key nth(std::uint32_t n) {
  Key key{};
  if constexpr (std::is_same_v<Key, bool>) {
    key = n % 2 != 0;
  } else {
    std::memcpy(std::addressof(key), &n, std::min(sizeof key, sizeof n));
  }
  return key;
}

template <class Key>
constexpr std::uint32_t valuesOf() {
  if (std::is_same_v<Key, bool>) return 2;
  return sizeof(Key) == 1 ? 256 : 1500;
}

template <class Key>
class FixedKeys : public ::testing::Test {
 protected:
  morva::extension library = linkedLibrary();
};
using Types = ::testing::Types<bool, char, signed char, std::uint8_t, std::int16_t, std::uint16_t,
                               std::int32_t, std::uint32_t, std::int64_t, std::uint64_t, wchar_t,
                               char32_t, std::byte, Small, Large, Plain, std::array<char, 3>,
                               std::array<std::uint16_t, 5>, std::array<std::uint64_t, 2>, Point,
                               Nested, std::array<std::byte, 4095>, std::array<std::byte, 4096>>;
TYPED_TEST_SUITE(FixedKeys, Types);

TYPED_TEST(FixedKeys, EveryValueIsAKeyOfItsOwn) {
  using Key = TypeParam;
  auto table = got(morva::table<Key, std::uint32_t>::make(this->library, {.expected = 64}));
  const std::uint32_t values = valuesOf<Key>();
  for (std::uint32_t n = 0; n < values; ++n) {
    const Key key = nth<Key>(n);
    ASSERT_FALSE(table.contains(key)) << n;
    ASSERT_TRUE(got(table.insert(key, n))) << n;
    ASSERT_FALSE(got(table.insert(key, n + 1))) << n;
  }
  EXPECT_EQ(table.size(), values);
  for (std::uint32_t n = 0; n < values; ++n) {
    const auto found = std::as_const(table).find(nth<Key>(n));
    ASSERT_TRUE(found) << n;
    ASSERT_EQ(found->data, n);
    ASSERT_TRUE(found->key == nth<Key>(n)) << n;
  }
  for (std::uint32_t n = 0; n < values; n += 2) {
    ASSERT_EQ(got(table.erase(nth<Key>(n))), 1U) << n;
  }
  for (std::uint32_t n = 0; n < values; ++n) {
    ASSERT_EQ(table.contains(nth<Key>(n)), n % 2 != 0) << n;
  }
}

TYPED_TEST(FixedKeys, AreShownWhereTheirTypeMayLie) {
  using Key = TypeParam;
  auto table = got(morva::table<Key, char>::make(this->library));
  static_assert(std::is_same_v<decltype(table.begin()->key), const Key &>);
  for (std::uint32_t n = 0; n < 2; ++n) ASSERT_TRUE(got(table.insert(nth<Key>(n), 'x')));
  for (const auto entry : table) {
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(std::addressof(entry.key)) % alignof(Key), 0U);
  }
}

template <class Number>
void tellsLimitsApart(const morva::extension &library) {
  using Limits = std::numeric_limits<Number>;
  auto table = got(morva::table<Number, int>::make(library));
  const std::vector<Number> numbers = {Limits::min(), Number{0}, Number{1}, Limits::max()};
  for (const Number number : numbers) got(table.insert_or_assign(number, 1));
  EXPECT_EQ(table.size(), std::is_signed_v<Number> ? 4U : 3U);
  for (const Number number : numbers) EXPECT_TRUE(table.contains(number));
  EXPECT_FALSE(table.contains(static_cast<Number>(Limits::max() - 1)));
  EXPECT_FALSE(table.contains(static_cast<Number>(Limits::min() + 2)));
}

TEST(NumberKeys, TellTheirLimitsApart) {
  const morva::extension library = linkedLibrary();
  tellsLimitsApart<std::int8_t>(library);
  tellsLimitsApart<std::uint8_t>(library);
  tellsLimitsApart<std::int16_t>(library);
  tellsLimitsApart<std::uint16_t>(library);
  tellsLimitsApart<std::int32_t>(library);
  tellsLimitsApart<std::uint32_t>(library);
  tellsLimitsApart<std::int64_t>(library);
  tellsLimitsApart<std::uint64_t>(library);
}

TEST(NumberKeys, TakeEveryHashMethodAndAnyNumberOfBuckets) {
  const morva::extension library = linkedLibrary();
  for (int method = 2; method <= 9; ++method) {
    for (const std::uint64_t expected : {0, 1, 2, 1000}) {
      SCOPED_TRACE(::testing::Message() << "method " << method << ", expected " << expected);
      auto table = got(morva::table<std::uint32_t, std::uint32_t>::make(
          library, {.expected = expected, .hash = morva::hash_method{method}}));
      for (std::uint32_t n = 0; n < 500; ++n) ASSERT_TRUE(got(table.insert(n * n, n)));
      for (std::uint32_t n = 0; n < 500; ++n) ASSERT_EQ(table.find(n * n)->data, n);
      EXPECT_EQ(std::distance(table.begin(), table.end()), 500);
    }
  }
}

TEST(NumberKeys, BucketsFollowTheExpectedNumber) {
  const morva::extension library = linkedLibrary();
  using Table = morva::table<int, int>;
  const auto buckets = [&](std::uint64_t expected) {
    return got(Table::make(library, {.expected = expected})).bucket_count();
  };
  EXPECT_EQ(buckets(0), 1U);
  EXPECT_EQ(buckets(1), 1U);
  EXPECT_EQ(buckets(2), 4U);
  EXPECT_EQ(buckets(3), 8U);
  EXPECT_EQ(buckets(4096), 8192U);
  EXPECT_EQ(buckets(4097), 16384U);
  EXPECT_EQ(buckets(65536), 131072U);
  EXPECT_EQ(buckets(65537), 131072U) << "from here on one bucket a key";
  EXPECT_EQ(buckets(131073), 262144U);
  EXPECT_EQ(buckets(UINT64_MAX), 1U << 20);
  EXPECT_EQ(got(Table::make(library)).bucket_count(), 8192U);
}

TEST(NumberKeys, MayLieInTheTableItself) {
  const morva::extension library = linkedLibrary();
  auto table = got(morva::table<int, int>::make(library));
  for (int n = 0; n < 100; ++n) ASSERT_TRUE(got(table.insert(n, n)));
  auto other = got(morva::table<int, int>::make(library));
  EXPECT_EQ(got(other.insert_range(table)), 100U);
  while (!table.empty()) ASSERT_EQ(got(table.erase(table.begin()->key)), 1U);
  EXPECT_EQ(other.size(), 100U);
}

}  // namespace
}  // namespace cpp_test
