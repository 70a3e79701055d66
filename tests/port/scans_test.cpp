#include <gtest/gtest.h>

#include <cstring>

#include "bytes.h"
#include "guarded_area.h"
#include "morva/port.h"

using port_test::GuardedArea;
using port_test::longest;

namespace {

int64_t firstEqual(const uint8_t *p, size_t n, uint8_t c) {
  for (size_t i = 0; i < n; i++) {
    if (p[i] == c) return static_cast<int64_t>(i);
  }
  return -1;
}

template <typename Unit>
int64_t firstOther(const Unit *p, size_t n, Unit c) {
  for (size_t i = 0; i < n; i++) {
    if (p[i] != c) return static_cast<int64_t>(i);
  }
  return -1;
}

}  // namespace

TEST(Scan, WithoutAMatchOrWithoutBytesIsMinusOne) {
  EXPECT_EQ(skMemScan("aaaa", 4, 'b'), -1);
  EXPECT_EQ(skMemScan("b", 0, 'b'), -1);
}

TEST(Scan, OfNullIsMinusOne) {
  EXPECT_EQ(skMemScan(nullptr, 0, 0), -1);
  EXPECT_EQ(skMemScan(nullptr, 9, 0), -1);
}

TEST(Scan, FindsTheFirstMatchAtEveryPlaceOfEveryLength) {
  for (size_t n = 0; n <= longest; n++) {
    std::vector<uint8_t> area(n + 40, 'x');
    area[n + 3] = 'y';  // behind the area, must not be found
    ASSERT_EQ(skMemScan(area.data() + 3, n, 'y'), -1) << n;
    for (size_t at = 0; at < n; at++) {
      area[3 + at] = 'y';
      area[3 + n - 1] = 'y';
      ASSERT_EQ(skMemScan(area.data() + 3, n, 'y'), static_cast<int64_t>(at)) << n;
      area[3 + at] = 'x';
      area[3 + n - 1] = 'x';
    }
  }
}

TEST(Scan, AgreesWithAPlainLoopOnAllByteValuesAndAlignments) {
  for (size_t align = 0; align < 33; align++) {
    const std::vector<uint8_t> area = port_test::randomBytes(400, align);
    for (int c = 0; c < 256; c++) {
      ASSERT_EQ(skMemScan(area.data() + align, longest, static_cast<uint8_t>(c)),
                firstEqual(area.data() + align, longest, static_cast<uint8_t>(c)))
          << c << " alignment " << align;
    }
  }
}

TEST(Scan, LooksAtNothingOutside) {
  GuardedArea area(longest);
  std::memset(area.begin(), 1, area.size());
  for (size_t n = 0; n <= longest; n++) {
    ASSERT_EQ(skMemScan(area.last(n), n, 2), -1);
    ASSERT_EQ(skMemScan(area.begin(), n, 2), -1);
  }
}

TEST(ScanForAnother, WithoutOneOrWithoutBytesIsMinusOne) {
  EXPECT_EQ(skMemNScan("aaaa", 4, 'a'), -1);
  EXPECT_EQ(skMemNScan("b", 0, 'a'), -1);
}

TEST(ScanForAnother, OfNullIsMinusOne) {
  EXPECT_EQ(skMemNScan(nullptr, 0, 1), -1);
  EXPECT_EQ(skMemNScan(nullptr, 9, 1), -1);
}

TEST(ScanForAnother, FindsTheFirstOtherByteAtEveryPlaceOfEveryLength) {
  for (size_t n = 0; n <= longest; n++) {
    std::vector<uint8_t> area(n + 40, 'x');
    area[n + 3] = 'y';
    ASSERT_EQ(skMemNScan(area.data() + 3, n, 'x'), -1) << n;
    for (size_t at = 0; at < n; at++) {
      area[3 + at] = 'x' ^ 0x80;
      area[3 + n - 1] = 'w';
      ASSERT_EQ(skMemNScan(area.data() + 3, n, 'x'), firstOther<uint8_t>(area.data() + 3, n, 'x'))
          << n << " at " << at;
      area[3 + at] = 'x';
      area[3 + n - 1] = 'x';
    }
  }
}

TEST(ScanForAnother, IsRightAtEveryAlignment) {
  for (size_t align = 0; align < 33; align++) {
    std::vector<uint8_t> area(400, 0xFF);
    area[align + 130] = 0xFE;
    ASSERT_EQ(skMemNScan(area.data() + align, longest, 0xFF), 130) << align;
    ASSERT_EQ(skMemNScan(area.data() + align, 130, 0xFF), -1) << align;
  }
}

TEST(ScanForAnother, LooksAtNothingOutside) {
  GuardedArea area(longest);
  std::memset(area.begin(), 1, area.size());
  for (size_t n = 0; n <= longest; n++) {
    ASSERT_EQ(skMemNScan(area.last(n), n, 1), -1);
    ASSERT_EQ(skMemNScan(area.begin(), n, 1), -1);
  }
}

TEST(WideScanForAnother, WithoutOneOrWithoutUnitsIsMinusOne) {
  const uint32_t same[] = {5, 5, 5}, other[] = {6};
  EXPECT_EQ(skMemTNScan(same, 3, 5), -1);
  EXPECT_EQ(skMemTNScan(other, 0, 5), -1);
}

TEST(WideScanForAnother, OfNullIsMinusOne) {
  EXPECT_EQ(skMemTNScan(nullptr, 0, 1), -1);
  EXPECT_EQ(skMemTNScan(nullptr, 9, 1), -1);
}

TEST(WideScanForAnother, FindsTheFirstOtherUnitAtEveryPlaceOfEveryLength) {
  for (size_t n = 0; n <= longest; n++) {
    std::vector<uint32_t> area(n + 8, 0x20202020);
    area[n + 1] = 0;
    ASSERT_EQ(skMemTNScan(area.data() + 1, n, 0x20202020), -1) << n;
    for (size_t at = 0; at < n; at++) {
      for (uint32_t bit : {0x1u, 0x8000u, 0x80000000u}) {
        area[1 + at] ^= bit;
        ASSERT_EQ(skMemTNScan(area.data() + 1, n, 0x20202020), static_cast<int64_t>(at)) << n;
        area[1 + at] ^= bit;
      }
      area[1 + at] = 0;
      area[1 + n - 1] = 1;
      ASSERT_EQ(skMemTNScan(area.data() + 1, n, 0x20202020), static_cast<int64_t>(at)) << n;
      area[1 + at] = 0x20202020;
      area[1 + n - 1] = 0x20202020;
    }
  }
}

TEST(WideScanForAnother, LooksAtNothingOutside) {
  GuardedArea area(longest * 4);
  std::memset(area.begin(), 1, area.size());
  for (size_t n = 0; n <= longest; n++) {
    ASSERT_EQ(skMemTNScan(reinterpret_cast<uint32_t *>(area.last(n * 4)), n, 0x01010101), -1);
    ASSERT_EQ(skMemTNScan(reinterpret_cast<uint32_t *>(area.begin()), n, 0x01010101), -1);
  }
}
