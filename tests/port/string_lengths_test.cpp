#include <gtest/gtest.h>

#include <cstring>

#include "bytes.h"
#include "guarded_area.h"
#include "morva/port.h"

using port_test::GuardedArea;
using port_test::longest;

TEST(StringLength, OfTheEmptyStringAndOfNullIsZero) {
  EXPECT_EQ(skStrLen(""), 0u);
  EXPECT_EQ(skStrLen(nullptr), 0u);
}

TEST(StringLength, CountsTheBytesBeforeTheTerminatorAtEveryAlignment) {
  std::vector<char> area(longest + 80, 'x');
  for (size_t align = 0; align < 33; align++) {
    for (size_t n = 0; n <= longest; n++) {
      area[align + n] = '\0';
      ASSERT_EQ(skStrLen(area.data() + align), n) << "alignment " << align;
      area[align + n] = 'x';
    }
  }
}

TEST(StringLength, StopsAtTheFirstOfSeveralZeros) {
  EXPECT_EQ(skStrLen("abc\0def\0"), 3u);
}

TEST(StringLength, CountsBytesWithTheHighBitSet) {
  for (int b = 1; b < 256; b++) {
    char s[40];
    std::memset(s, b, sizeof s);
    s[39] = '\0';
    ASSERT_EQ(skStrLen(s), 39u) << "byte " << b;
  }
}

TEST(StringLength, LooksAtNothingBehindTheTerminator) {
  GuardedArea area(longest + 1);
  for (size_t n = 0; n <= longest; n++) {
    uint8_t *s = area.last(n + 1);
    std::memset(s, 'x', n);
    s[n] = 0;
    ASSERT_EQ(skStrLen(reinterpret_cast<char *>(s)), n);
  }
}

TEST(WideStringLength, OfTheEmptyStringAndOfNullIsZero) {
  const uint32_t empty[] = {0};
  EXPECT_EQ(skStrTLen(empty), 0u);
  EXPECT_EQ(skStrTLen(nullptr), 0u);
}

TEST(WideStringLength, CountsTheUnitsBeforeTheTerminatorAtEveryAlignment) {
  std::vector<uint32_t> area(longest + 20, 0x78);
  for (size_t align = 0; align < 9; align++) {
    for (size_t n = 0; n <= longest; n++) {
      area[align + n] = 0;
      ASSERT_EQ(skStrTLen(area.data() + align), n) << "alignment " << align;
      area[align + n] = 0x78;
    }
  }
}

TEST(WideStringLength, ZeroBytesInsideAUnitDoNotEndTheString) {
  const uint32_t s[] = {0xff000000, 0x00ff0000, 0x0000ff00, 0x000000ff, 0x80000000, 1, 0, 7};
  EXPECT_EQ(skStrTLen(s), 6u);
}

TEST(WideStringLength, LooksAtNothingBehindTheTerminator) {
  GuardedArea area((longest + 1) * 4);
  for (size_t n = 0; n <= longest; n++) {
    auto *s = reinterpret_cast<uint32_t *>(area.last((n + 1) * 4));
    for (size_t i = 0; i < n; i++) s[i] = 0x100;
    s[n] = 0;
    ASSERT_EQ(skStrTLen(s), n);
  }
}
