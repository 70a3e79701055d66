// skMemNot and skMemTNot: does an area hold one value only?
#include <gtest/gtest.h>

#include <cstring>

#include "bytes.h"
#include "guarded_area.h"
#include "morva/port.h"

using port_test::GuardedArea;
using port_test::longest;

TEST(Uniformity, OfNoBytesHolds) {
  EXPECT_EQ(skMemNot('a', "b", 0), 1u);
  EXPECT_EQ(skMemNot('a', nullptr, 0), 1u);
}

TEST(Uniformity, OfANullAreaHoldsAsOfAnEmptyOne) {
  EXPECT_EQ(skMemNot('a', nullptr, 9), 1u);
}

TEST(Uniformity, HoldsForEveryLengthAndFailsForOneStrangeByteAnywhere) {
  for (size_t align = 0; align < 17; align++) {
    for (size_t n = 0; n <= longest; n++) {
      const auto c = static_cast<uint8_t>(n);
      std::vector<uint8_t> area(longest + 40, static_cast<uint8_t>(~c));
      std::memset(area.data() + align, c, n);
      ASSERT_EQ(skMemNot(c, area.data() + align, n), 1u) << n;
      ASSERT_EQ(skMemNot(c, area.data() + align, n + 1), 0u) << n;
      const size_t step = align == 0 ? 1 : 13;
      for (size_t at = 0; at < n; at += step) {
        area[align + at] ^= 0x80;
        ASSERT_EQ(skMemNot(c, area.data() + align, n), 0u) << n << " at " << at;
        area[align + at] ^= 0x81;
        ASSERT_EQ(skMemNot(c, area.data() + align, n), 0u) << n << " at " << at;
        area[align + at] ^= 0x01;
      }
    }
  }
}

TEST(Uniformity, LooksAtNothingBehindTheArea) {
  GuardedArea area(longest);
  std::memset(area.begin(), 9, area.size());
  for (size_t n = 0; n <= longest; n++) ASSERT_EQ(skMemNot(9, area.last(n), n), 1u);
}

TEST(WideUniformity, OfNoUnitsHolds) {
  const uint32_t b[] = {2};
  EXPECT_EQ(skMemTNot(1, b, 0), 1u);
  EXPECT_EQ(skMemTNot(1, nullptr, 0), 1u);
}

TEST(WideUniformity, OfANullAreaHoldsAsOfAnEmptyOne) {
  EXPECT_EQ(skMemTNot(1, nullptr, 9), 1u);
}

TEST(WideUniformity, HoldsForEveryLengthAndFailsForOneStrangeUnitAnywhere) {
  for (size_t n = 0; n <= longest; n++) {
    const auto c = static_cast<uint32_t>(0x01010101u * (n % 256) + 0x80000000u);
    std::vector<uint32_t> area(longest + 4, ~c);
    for (size_t i = 0; i < n; i++) area[1 + i] = c;
    ASSERT_EQ(skMemTNot(c, area.data() + 1, n), 1u) << n;
    ASSERT_EQ(skMemTNot(c, area.data() + 1, n + 1), 0u) << n;
    for (size_t at = 0; at < n; at++) {
      for (uint32_t bit : {0x1u, 0x100u, 0x10000u, 0x80000000u}) {
        area[1 + at] ^= bit;
        ASSERT_EQ(skMemTNot(c, area.data() + 1, n), 0u) << n << " at " << at;
        area[1 + at] ^= bit;
      }
    }
  }
}

TEST(WideUniformity, LooksAtNothingBehindTheArea) {
  GuardedArea area(longest * 4);
  std::memset(area.begin(), 9, area.size());
  for (size_t n = 0; n <= longest; n++) {
    ASSERT_EQ(skMemTNot(0x09090909, reinterpret_cast<uint32_t *>(area.last(n * 4)), n), 1u);
  }
}
