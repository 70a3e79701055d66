#include <gtest/gtest.h>

#include <cstring>

#include "bytes.h"
#include "guarded_area.h"
#include "morva/port.h"

using port_test::GuardedArea;
using port_test::longest;
using port_test::Random;

namespace {

int32_t compareBytes(const uint8_t *a, const uint8_t *b, size_t n) {
  for (size_t i = 0; i < n; i++) {
    if (a[i] > b[i]) return 1;
    if (a[i] < b[i]) return -1;
  }
  return 0;
}

int32_t compareUnits(const uint32_t *a, const uint32_t *b, size_t n) {
  for (size_t i = 0; i < n; i++) {
    if (a[i] == b[i]) continue;
    const uint64_t wrapped = (uint64_t{a[i]} + (uint64_t{1} << 32) - b[i]) % (uint64_t{1} << 32);
    return wrapped >= (uint64_t{1} << 31) ? -1 : 1;
  }
  return 0;
}

}  // namespace

TEST(Compare, OfNoBytesIsZero) {
  EXPECT_EQ(skMemCmp("a", "b", 0), 0);
  EXPECT_EQ(skMemCmp(nullptr, "b", 0), 0);
  EXPECT_EQ(skMemCmp("a", nullptr, 0), 0);
  EXPECT_EQ(skMemCmp(nullptr, nullptr, 0), 0);
}

TEST(Compare, AbSortsBeforeAc) {
  EXPECT_EQ(skMemCmp("ab", "ac", 2), -1);
  EXPECT_EQ(skMemCmp("ac", "ab", 2), 1);
  EXPECT_EQ(skMemCmp("ab", "ac", 1), 0);
}

TEST(Compare, NullSortsBeforeAnyAreaAndEqualsNull) {
  EXPECT_EQ(skMemCmp(nullptr, "\0", 1), -1);
  EXPECT_EQ(skMemCmp("\0", nullptr, 1), 1);
  EXPECT_EQ(skMemCmp(nullptr, nullptr, 1), 0);
  EXPECT_EQ(skMemCmp(nullptr, nullptr, 99), 0);
}

TEST(Compare, AnswersExactlyOneOrMinusOneForEveryPairOfBytes) {
  for (int a = 0; a < 256; a++) {
    for (int b = 0; b < 256; b++) {
      const auto left = static_cast<uint8_t>(a);
      const auto right = static_cast<uint8_t>(b);
      ASSERT_EQ(skMemCmp(&left, &right, 1), a == b ? 0 : a > b ? 1 : -1) << a << " " << b;
    }
  }
}

TEST(Compare, TheFirstDifferenceDecidesAtEveryLengthAndPlace) {
  for (size_t n = 1; n <= longest; n++) {
    std::vector<uint8_t> a = port_test::randomBytes(n, n);
    for (size_t at = 0; at < n; at++) {
      std::vector<uint8_t> b = a;
      b[at] = static_cast<uint8_t>(b[at] ^ 0x80);
      if (at + 1 < n) b[at + 1] = static_cast<uint8_t>(~b[at + 1]);
      if (n > at + 5) b[n - 1] = static_cast<uint8_t>(~b[n - 1]);
      ASSERT_EQ(skMemCmp(a.data(), b.data(), n), compareBytes(a.data(), b.data(), n))
          << n << " at " << at;
      ASSERT_EQ(skMemCmp(b.data(), a.data(), n), compareBytes(b.data(), a.data(), n))
          << n << " at " << at;
      ASSERT_EQ(skMemCmp(a.data(), b.data(), at), 0);
    }
  }
}

TEST(Compare, IsRightAtEveryPairOfAlignments) {
  const std::vector<uint8_t> text = port_test::randomBytes(64, 3);
  for (size_t alignA = 0; alignA < 17; alignA++) {
    for (size_t alignB = 0; alignB < 17; alignB++) {
      std::vector<uint8_t> a(100, 1), b(100, 2);
      std::copy(text.begin(), text.end(), a.begin() + static_cast<long>(alignA));
      std::copy(text.begin(), text.end(), b.begin() + static_cast<long>(alignB));
      ASSERT_EQ(skMemCmp(a.data() + alignA, b.data() + alignB, 64), 0);
      b[alignB + 63]++;
      ASSERT_EQ(skMemCmp(a.data() + alignA, b.data() + alignB, 64),
                compareBytes(a.data() + alignA, b.data() + alignB, 64));
      ASSERT_EQ(skMemCmp(a.data() + alignA, b.data() + alignB, 63), 0);
    }
  }
}

TEST(Compare, LooksAtNothingBehindTheAreas) {
  GuardedArea left(longest), right(longest);
  for (size_t n = 0; n <= longest; n++) {
    std::memset(left.last(n), 7, n);
    std::memset(right.last(n), 7, n);
    ASSERT_EQ(skMemCmp(left.last(n), right.last(n), n), 0);
  }
}

TEST(WideCompare, OfNoUnitsIsZero) {
  const uint32_t a[] = {1}, b[] = {2};
  EXPECT_EQ(skWMemCmp(a, b, 0), 0);
  EXPECT_EQ(skWMemCmp(nullptr, b, 0), 0);
  EXPECT_EQ(skWMemCmp(a, nullptr, 0), 0);
  EXPECT_EQ(skWMemCmp(nullptr, nullptr, 0), 0);
}

TEST(WideCompare, NullSortsBeforeAnyAreaAndEqualsNull) {
  const uint32_t zero[] = {0};
  EXPECT_EQ(skWMemCmp(nullptr, zero, 1), -1);
  EXPECT_EQ(skWMemCmp(zero, nullptr, 1), 1);
  EXPECT_EQ(skWMemCmp(nullptr, nullptr, 1), 0);
}

TEST(WideCompare, DecidesByTheSignOfTheWrappedDifferenceNotByUnsignedOrder) {
  struct {
    uint32_t a, b;
    int32_t wanted;
  } const rows[] = {
      {0, 0, 0},
      {1, 0, 1},
      {0, 1, -1},
      {0x80000000, 0, -1},
      {0, 0x80000000, -1},
      {0x7fffffff, 0, 1},
      {0, 0x7fffffff, -1},
      {0xffffffff, 0, -1},
      {0, 0xffffffff, 1},
      {0x80000000, 1, 1},
      {1, 0x80000000, -1},
      {0x80000001, 1, -1},
      {0x7fffffff, 0xffffffff, -1},
      {0xffffffff, 0x7fffffff, -1},
      {0x7fffffff, 0x80000000, -1},
      {0x80000000, 0x7fffffff, 1},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(skWMemCmp(&row.a, &row.b, 1), row.wanted) << row.a << " " << row.b;
  }
}

TEST(WideCompare, TheFirstDifferingUnitDecidesAtEveryLengthAndPlace) {
  Random random(17);
  for (size_t n = 1; n <= longest; n++) {
    std::vector<uint32_t> a = port_test::randomUnits(n, n);
    for (size_t at = 0; at < n; at++) {
      std::vector<uint32_t> b = a;
      b[at] = random.next();
      if (at + 1 < n) b[at + 1] = random.next();
      ASSERT_EQ(skWMemCmp(a.data(), b.data(), n), compareUnits(a.data(), b.data(), n))
          << n << " at " << at;
      ASSERT_EQ(skWMemCmp(a.data(), b.data(), at), 0);
    }
  }
}

TEST(WideCompare, LooksAtNothingBehindTheAreas) {
  GuardedArea left(longest * 4), right(longest * 4);
  for (size_t n = 0; n <= longest; n++) {
    std::memset(left.last(n * 4), 7, n * 4);
    std::memset(right.last(n * 4), 7, n * 4);
    ASSERT_EQ(skWMemCmp(reinterpret_cast<uint32_t *>(left.last(n * 4)),
                        reinterpret_cast<uint32_t *>(right.last(n * 4)), n),
              0);
  }
}
