#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "bytes.h"
#include "guarded_area.h"
#include "morva/port.h"

using port_test::GuardedArea;
using port_test::longest;

namespace {

// What a copy of single units from front to back leaves in `area`.
template <typename Unit>
void copyOneByOne(std::vector<Unit> &area, size_t from, size_t to) {
  while (true) {
    const Unit unit = area[from++];
    area[to++] = unit;
    if (unit == 0) return;
  }
}

}  // namespace

TEST(StringCopy, CopiesTheTerminatorAndNothingBehindIt) {
  for (size_t align = 0; align < 17; align++) {
    for (size_t n = 0; n <= longest; n++) {
      std::vector<char> source(align + n + 20, 'y');
      for (size_t i = 0; i < n; i++) source[align + i] = static_cast<char>(1 + (i * 7 + n) % 255);
      source[align + n] = '\0';
      std::vector<char> target(n + 40, '#');
      std::vector<char> wanted = target;
      std::copy_n(source.data() + align, n + 1, wanted.data() + 9);
      skStrCpy(source.data() + align, target.data() + 9);
      ASSERT_EQ(target, wanted) << "length " << n << " alignment " << align;
    }
  }
}

TEST(StringCopy, TouchesNothingBehindTheTerminator) {
  GuardedArea from(longest + 1);
  GuardedArea to(longest + 1);
  for (size_t n = 0; n <= longest; n++) {
    uint8_t *s = from.last(n + 1);
    std::memset(s, 0x81, n);
    s[n] = 0;
    uint8_t *d = to.last(n + 1);
    skStrCpy(reinterpret_cast<char *>(s), reinterpret_cast<char *>(d));
    ASSERT_EQ(std::memcmp(s, d, n + 1), 0) << n;
  }
}

TEST(StringCopy, DownwardsIntoItselfIsRight) {
  for (size_t distance = 0; distance < 40; distance++) {
    for (size_t n : {0, 1, 7, 8, 15, 16, 31, 32, 33, 100, 300}) {
      std::vector<char> area(distance + n + 8, '#');
      for (size_t i = 0; i < n; i++) area[distance + i] = static_cast<char>('a' + i % 26);
      area[distance + n] = '\0';
      std::vector<char> wanted = area;
      copyOneByOne(wanted, distance, 0);
      skStrCpy(area.data() + distance, area.data());
      ASSERT_EQ(area, wanted) << "length " << n << " distance " << distance;
    }
  }
}

TEST(StringCopy, ToNullDoesNothing) {
  skStrCpy("abc", nullptr);
  skStrCpy(nullptr, nullptr);
}

TEST(StringCopy, FromNullMakesTheTargetEmpty) {
  char target[] = "abc";
  skStrCpy(nullptr, target);
  EXPECT_EQ(0, std::memcmp(target, "\0bc\0", 4));
}

TEST(WideStringCopy, CopiesTheTerminatorAndNothingBehindIt) {
  for (size_t align = 0; align < 5; align++) {
    for (size_t n = 0; n <= longest; n++) {
      std::vector<uint32_t> source(align + n + 20, 0x79);
      for (size_t i = 0; i < n; i++) {
        source[align + i] = static_cast<uint32_t>(i % 3 == 0 ? 0xff000000u - i * 256 : i + 1);
      }
      source[align + n] = 0;
      std::vector<uint32_t> target(n + 20, 0x23232323);
      std::vector<uint32_t> wanted = target;
      std::copy_n(source.data() + align, n + 1, wanted.data() + 3);
      skStrTCpy(source.data() + align, target.data() + 3);
      ASSERT_EQ(target, wanted) << "length " << n << " alignment " << align;
    }
  }
}

TEST(WideStringCopy, TouchesNothingBehindTheTerminator) {
  GuardedArea from((longest + 1) * 4);
  GuardedArea to((longest + 1) * 4);
  for (size_t n = 0; n <= longest; n++) {
    auto *s = reinterpret_cast<uint32_t *>(from.last((n + 1) * 4));
    for (size_t i = 0; i < n; i++) s[i] = 0x10000;
    s[n] = 0;
    auto *d = reinterpret_cast<uint32_t *>(to.last((n + 1) * 4));
    skStrTCpy(s, d);
    ASSERT_EQ(std::memcmp(s, d, (n + 1) * 4), 0) << n;
  }
}

TEST(WideStringCopy, DownwardsIntoItselfIsRight) {
  for (size_t distance = 0; distance < 20; distance++) {
    for (size_t n : {0, 1, 3, 4, 7, 8, 9, 31, 100, 300}) {
      std::vector<uint32_t> area(distance + n + 4, 0x23);
      for (size_t i = 0; i < n; i++) area[distance + i] = static_cast<uint32_t>(i + 1);
      area[distance + n] = 0;
      std::vector<uint32_t> wanted = area;
      copyOneByOne(wanted, distance, 0);
      skStrTCpy(area.data() + distance, area.data());
      ASSERT_EQ(area, wanted) << "length " << n << " distance " << distance;
    }
  }
}

TEST(WideStringCopy, ToNullDoesNothing) {
  const uint32_t source[] = {1, 2, 0};
  skStrTCpy(source, nullptr);
  skStrTCpy(nullptr, nullptr);
}

TEST(WideStringCopy, FromNullMakesTheTargetEmpty) {
  uint32_t target[] = {7, 8, 9};
  skStrTCpy(nullptr, target);
  EXPECT_EQ(target[0], 0u);
  EXPECT_EQ(target[1], 8u);
  EXPECT_EQ(target[2], 9u);
}
