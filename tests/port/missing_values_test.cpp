#include <gtest/gtest.h>

#include <bit>
#include <limits>

#include "bytes.h"
#include "guarded_area.h"
#include "morva/port.h"

namespace {

using Limits = std::numeric_limits<double>;

// NaNs of every kind, as bits: quiet, signalling, of either sign, with any payload.
const uint64_t nanBits[] = {
    UINT64_C(0x7ff8000000000000), UINT64_C(0xfff8000000000000), UINT64_C(0x7ff0000000000001),
    UINT64_C(0xfff0000000000001), UINT64_C(0x7fffffffffffffff), UINT64_C(0xffffffffffffffff),
    UINT64_C(0x7ff0000100000000), UINT64_C(0xfff7ffffffffffff), UINT64_C(0x7ff0000080000000)};

// Numbers that look like NaNs but are none.
const double numbers[] = {0.0,
                          -0.0,
                          1.0,
                          -1.0,
                          Limits::infinity(),
                          -Limits::infinity(),
                          Limits::max(),
                          Limits::lowest(),
                          Limits::min(),
                          Limits::denorm_min(),
                          -Limits::denorm_min()};

}  // namespace

TEST(MissingValues, OneNaNAmongNumbersIsSeen) {
  const double v[] = {1.0, Limits::quiet_NaN()};
  EXPECT_EQ(skMissArray(v, 2), 1u);
  EXPECT_EQ(skMissArray(v, 1), 0u);
}

TEST(MissingValues, NumbersAreNotMissing) {
  const double v[] = {1.0, 2.0};
  EXPECT_EQ(skMissArray(v, 2), 0u);
  for (double number : numbers) EXPECT_EQ(skMissArray(&number, 1), 0u) << number;
  EXPECT_EQ(skMissArray(numbers, std::size(numbers)), 0u);
}

TEST(MissingValues, OfNoValuesNoneIsMissing) {
  const double v[] = {Limits::quiet_NaN()};
  EXPECT_EQ(skMissArray(v, 0), 0u);
  EXPECT_EQ(skMissArray(nullptr, 0), 0u);
  EXPECT_EQ(skMissArray(nullptr, 7), 0u);
}

TEST(MissingValues, EveryKindOfNaNIsSeen) {
  for (uint64_t bits : nanBits) {
    const double value = std::bit_cast<double>(bits);
    EXPECT_EQ(skMissArray(&value, 1), 1u) << std::hex << bits;
  }
}

TEST(MissingValues, ANaNIsSeenAtEveryPlaceOfEveryLength) {
  std::vector<double> v(port_test::longest + 2);
  for (size_t i = 0; i < v.size(); i++) v[i] = numbers[i % std::size(numbers)];
  for (size_t n = 0; n <= port_test::longest; n++) {
    v[1 + n] = Limits::quiet_NaN();  // behind the array, must not be seen
    ASSERT_EQ(skMissArray(v.data() + 1, n), 0u) << n;
    v[1 + n] = 0.5;
    for (size_t at = 0; at < n; at++) {
      const double kept = v[1 + at];
      v[1 + at] = at % 2 == 0 ? Limits::quiet_NaN() : -Limits::quiet_NaN();
      ASSERT_EQ(skMissArray(v.data() + 1, n), 1u) << n << " at " << at;
      v[1 + at] = kept;
    }
  }
}

TEST(MissingValues, NothingOutsideIsLookedAt) {
  port_test::GuardedArea area(port_test::longest * 8);
  for (size_t n = 0; n <= port_test::longest; n++) {
    auto *v = reinterpret_cast<double *>(area.last(n * 8));
    for (size_t i = 0; i < n; i++) v[i] = 3.5;
    ASSERT_EQ(skMissArray(v, n), 0u);
  }
}
