#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "bytes.h"
#include "guarded_area.h"
#include "morva/port.h"

using port_test::GuardedArea;
using port_test::longest;

namespace {

// Expects that `n` bytes moved from offset `from` to offset `to` of one area
// leave the destination equal to what the source was, and the rest alone.
void expectMoved(size_t from, size_t to, size_t n) {
  std::vector<uint8_t> area = port_test::randomBytes(std::max(from, to) + n + 9, n + from);
  std::vector<uint8_t> wanted = area;
  std::copy_n(area.begin() + static_cast<long>(from), n, wanted.begin() + static_cast<long>(to));
  skMemSCpy(area.data() + from, area.data() + to, n);
  ASSERT_TRUE(area == wanted) << n << " bytes from " << from << " to " << to;
}

}  // namespace

TEST(OverlappingCopy, TenBytesThreeFurtherOnArriveWhole) {
  char area[] = "0123456789abc";
  skMemSCpy(area, area + 3, 10);
  EXPECT_STREQ(area, "0120123456789");
}

TEST(OverlappingCopy, IsRightForEveryLengthAndEveryDistanceUpwards) {
  for (size_t n = 0; n <= longest; n++) {
    for (size_t distance = 0; distance <= n + 2; distance++) {
      ASSERT_NO_FATAL_FAILURE(expectMoved(3, 3 + distance, n));
    }
  }
}

TEST(OverlappingCopy, IsRightForEveryLengthAndEveryDistanceDownwards) {
  for (size_t n = 0; n <= longest; n++) {
    for (size_t distance = 0; distance <= n + 2; distance++) {
      ASSERT_NO_FATAL_FAILURE(expectMoved(3 + distance, 3, n));
    }
  }
}

TEST(OverlappingCopy, IsRightAtEveryAlignment) {
  for (size_t from = 0; from < 17; from++) {
    for (size_t to = 0; to < 50; to++) {
      for (size_t n : {31, 32, 33, 64, 96, 97, 130})
        ASSERT_NO_FATAL_FAILURE(expectMoved(from, to, n));
    }
  }
}

TEST(OverlappingCopy, IsRightForLargeAreas) {
  for (size_t distance : {1, 8, 63, 64, 4096, 40000, 50000, 65535, 65536, 70000}) {
    ASSERT_NO_FATAL_FAILURE(expectMoved(1, 1 + distance, 65536));
    ASSERT_NO_FATAL_FAILURE(expectMoved(1 + distance, 1, 65536));
  }
}

TEST(OverlappingCopy, TouchesNothingOutside) {
  GuardedArea area(2 * longest);
  for (size_t n = 0; n <= longest; n++) {
    for (size_t distance : {size_t{0}, size_t{1}, n / 3, n / 2, n}) {
      uint8_t *p = area.last(n + distance);
      const std::vector<uint8_t> text = port_test::randomBytes(n, n);
      std::copy(text.begin(), text.end(), p);
      skMemSCpy(p, p + distance, n);
      ASSERT_TRUE(std::equal(text.begin(), text.end(), p + distance)) << n << " by " << distance;
      p = area.begin();
      std::copy(text.begin(), text.end(), p + distance);
      skMemSCpy(p + distance, p, n);
      ASSERT_TRUE(std::equal(text.begin(), text.end(), p)) << n << " by " << distance;
    }
  }
}

TEST(OverlappingCopy, BetweenSeparateAreasCopies) {
  for (size_t n = 0; n <= longest; n++) {
    const std::vector<uint8_t> source = port_test::randomBytes(n, n);
    std::vector<uint8_t> target(n + 2, 0x77);
    skMemSCpy(source.data(), target.data() + 1, n);
    ASSERT_TRUE(std::equal(source.begin(), source.end(), target.begin() + 1)) << n;
    ASSERT_EQ(target.front(), 0x77);
    ASSERT_EQ(target.back(), 0x77);
  }
}

TEST(OverlappingCopy, ANullAreaCountsAsEmpty) {
  uint8_t area[] = {1, 2, 3};
  skMemSCpy(nullptr, area, 3);
  skMemSCpy(area, nullptr, 3);
  skMemSCpy(nullptr, nullptr, 3);
  EXPECT_EQ(area[0], 1);
  EXPECT_EQ(area[1], 2);
  EXPECT_EQ(area[2], 3);
}
