#include <gtest/gtest.h>

#include <algorithm>

#include "bytes.h"
#include "guarded_area.h"
#include "morva/port.h"

using port_test::GuardedArea;
using port_test::longest;

TEST(Fill, WritesExactlyTheBytesAskedFor) {
  for (size_t align = 0; align < 33; align++) {
    for (size_t n = 0; n <= longest; n++) {
      const auto c = static_cast<uint8_t>(n * 5 + align);
      std::vector<uint8_t> area = port_test::randomBytes(longest + 80, n);
      std::vector<uint8_t> wanted = area;
      for (size_t i = 0; i < n; i++) wanted[align + i] = c;
      skMemSet(area.data() + align, c, n);
      ASSERT_EQ(area, wanted) << "length " << n << " alignment " << align;
    }
  }
}

TEST(Fill, TouchesNothingOutside) {
  GuardedArea area(longest);
  for (size_t n = 0; n <= longest; n++) {
    for (uint8_t *p : {area.last(n), area.begin()}) {
      skMemSet(p, 0xEE, n);
      for (size_t i = 0; i < n; i++) ASSERT_EQ(p[i], 0xEE);
      skMemSet(p, 0, n);
      for (size_t i = 0; i < n; i++) ASSERT_EQ(p[i], 0);
    }
  }
}

TEST(Fill, WritesALargeArea) {
  std::vector<uint8_t> area(1 << 20, 1);
  skMemSet(area.data() + 3, 0x5A, area.size() - 7);
  std::vector<uint8_t> wanted(area.size(), 1);
  std::fill(wanted.begin() + 3, wanted.end() - 4, 0x5A);
  EXPECT_TRUE(area == wanted);
}

TEST(Fill, OfNullDoesNothing) {
  skMemSet(nullptr, 1, 0);
  skMemSet(nullptr, 1, 40);
}

TEST(WideFill, WritesExactlyTheUnitsAskedForAndAnswersTheirNumber) {
  for (size_t align = 0; align < 9; align++) {
    for (size_t n = 0; n <= longest; n++) {
      const auto c = static_cast<uint32_t>(0x80112233u + n * 0x01020305u);
      std::vector<uint32_t> area = port_test::randomUnits(longest + 20, n);
      std::vector<uint32_t> wanted = area;
      for (size_t i = 0; i < n; i++) wanted[align + i] = c;
      ASSERT_EQ(skMemTSet(area.data() + align, c, n), n);
      ASSERT_EQ(area, wanted) << "length " << n << " alignment " << align;
    }
  }
}

TEST(WideFill, TouchesNothingOutside) {
  GuardedArea area(longest * 4);
  for (size_t n = 0; n <= longest; n++) {
    for (uint8_t *p : {area.last(n * 4), area.begin()}) {
      auto *units = reinterpret_cast<uint32_t *>(p);
      ASSERT_EQ(skMemTSet(units, 0xAABBCCDD, n), n);
      for (size_t i = 0; i < n; i++) ASSERT_EQ(units[i], 0xAABBCCDDu);
    }
  }
}

TEST(WideFill, OfNullWritesNothing) {
  EXPECT_EQ(skMemTSet(nullptr, 1, 0), 0u);
  skMemTSet(nullptr, 1, 40);
}
