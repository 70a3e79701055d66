#include <gtest/gtest.h>

#include <string>

#include "bytes.h"
#include "guarded_area.h"
#include "morva/port.h"

using port_test::GuardedArea;
using port_test::longest;

namespace {

uint8_t upper(uint8_t b) {
  return b >= 97 && b <= 122 ? static_cast<uint8_t>(b - 32) : b;
}
uint8_t lower(uint8_t b) {
  return b >= 65 && b <= 90 ? static_cast<uint8_t>(b + 32) : b;
}

// Runs `routine` over every length and alignment of an area in which every
// byte value appears, and expects `single` of each byte inside, none outside.
void expectEachByteTurned(void (*routine)(char *, uint64_t), uint8_t (*single)(uint8_t)) {
  for (size_t align = 0; align < 33; align++) {
    for (size_t n = 0; n <= longest; n++) {
      std::vector<uint8_t> area(longest + 80);
      for (size_t i = 0; i < area.size(); i++) area[i] = static_cast<uint8_t>(i * 3 + n);
      std::vector<uint8_t> wanted = area;
      for (size_t i = 0; i < n; i++) wanted[align + i] = single(area[align + i]);
      routine(reinterpret_cast<char *>(area.data()) + align, n);
      ASSERT_EQ(area, wanted) << "length " << n << " alignment " << align;
    }
  }
}

void expectNothingTouchedOutside(void (*routine)(char *, uint64_t), uint8_t (*single)(uint8_t)) {
  GuardedArea area(longest);
  for (size_t n = 0; n <= longest; n++) {
    for (uint8_t *p : {area.last(n), area.begin()}) {
      for (size_t i = 0; i < n; i++) p[i] = static_cast<uint8_t>(50 + i % 100);
      routine(reinterpret_cast<char *>(p), n);
      for (size_t i = 0; i < n; i++) {
        ASSERT_EQ(p[i], single(static_cast<uint8_t>(50 + i % 100))) << n << " at " << i;
      }
    }
  }
}

}  // namespace

TEST(UpperCase, TurnsTheLettersAToZAndNoOtherByte) {
  expectEachByteTurned(skStrUp, upper);
}

TEST(UpperCase, TouchesNothingOutside) {
  expectNothingTouchedOutside(skStrUp, upper);
}

TEST(UpperCase, TurnsEveryByteValueRightInEveryPositionOfABlock) {
  for (int b = 0; b < 256; b++) {
    for (size_t at = 0; at < 70; at++) {
      std::vector<uint8_t> area(70, '{');
      area[at] = static_cast<uint8_t>(b);
      std::vector<uint8_t> wanted = area;
      wanted[at] = upper(static_cast<uint8_t>(b));
      skStrUp(reinterpret_cast<char *>(area.data()), area.size());
      ASSERT_EQ(area, wanted) << "byte " << b << " at " << at;
    }
  }
}

TEST(UpperCase, DoesNotStopAtAZeroByte) {
  char text[] = "ab\0cd";
  skStrUp(text, 5);
  EXPECT_EQ(std::string(text, 5), std::string("AB\0CD", 5));
}

TEST(UpperCase, OfNullDoesNothing) {
  skStrUp(nullptr, 0);
  skStrUp(nullptr, 17);
}

TEST(LowerCase, TurnsTheLettersAToZAndNoOtherByte) {
  expectEachByteTurned(skStrLow, lower);
}

TEST(LowerCase, TouchesNothingOutside) {
  expectNothingTouchedOutside(skStrLow, lower);
}

TEST(LowerCase, TurnsEveryByteValueRightInEveryPositionOfABlock) {
  for (int b = 0; b < 256; b++) {
    for (size_t at = 0; at < 70; at++) {
      std::vector<uint8_t> area(70, '[');
      area[at] = static_cast<uint8_t>(b);
      std::vector<uint8_t> wanted = area;
      wanted[at] = lower(static_cast<uint8_t>(b));
      skStrLow(reinterpret_cast<char *>(area.data()), area.size());
      ASSERT_EQ(area, wanted) << "byte " << b << " at " << at;
    }
  }
}

TEST(LowerCase, DoesNotStopAtAZeroByte) {
  char text[] = "AB\0CD";
  skStrLow(text, 5);
  EXPECT_EQ(std::string(text, 5), std::string("ab\0cd", 5));
}

TEST(LowerCase, OfNullDoesNothing) {
  skStrLow(nullptr, 0);
  skStrLow(nullptr, 17);
}
