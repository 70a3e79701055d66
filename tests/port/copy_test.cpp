#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "bytes.h"
#include "guarded_area.h"
#include "morva/port.h"

using port_test::GuardedArea;
using port_test::longest;

namespace {

// A copy of single bytes, front to back: inside one area it copies on what it
// has copied already.
void copyForwards(std::vector<uint8_t> &area, size_t from, size_t to, size_t n) {
  for (size_t i = 0; i < n; i++) area[to + i] = area[from + i];
}

}  // namespace

TEST(Copy, AnswersItsDestination) {
  uint8_t source[128] = {1, 2, 3}, target[128] = {};
  for (uint64_t n : {0, 1, 2, 96, 97, 128}) EXPECT_EQ(skMemCpy(source, target, n), target);
}

TEST(Copy, OfNoBytesAnswersTheDestinationAndChangesNothing) {
  uint8_t source[] = {1}, target[] = {9};
  EXPECT_EQ(skMemCpy(source, target, 0), target);
  EXPECT_EQ(target[0], 9);
  EXPECT_EQ(skMemCpy(nullptr, target, 0), target);
  EXPECT_EQ(skMemCpy(source, nullptr, 0), nullptr);
}

TEST(Copy, ANullAreaCountsAsEmpty) {
  uint8_t source[] = {1, 2}, target[] = {9, 8};
  EXPECT_EQ(skMemCpy(nullptr, target, 2), target);
  EXPECT_EQ(target[0], 9);
  EXPECT_EQ(target[1], 8);
  EXPECT_EQ(skMemCpy(source, nullptr, 2), nullptr);
}

TEST(Copy, IsExactForEveryLengthAndAlignment) {
  const std::vector<uint8_t> source = port_test::randomBytes(longest + 40, 1);
  for (size_t alignFrom = 0; alignFrom < 9; alignFrom++) {
    for (size_t alignTo = 0; alignTo < 9; alignTo++) {
      for (size_t n = 0; n <= longest; n++) {
        std::vector<uint8_t> target(longest + 40, 0xCC);
        std::vector<uint8_t> wanted = target;
        std::copy_n(source.data() + alignFrom, n, wanted.data() + alignTo);
        skMemCpy(source.data() + alignFrom, target.data() + alignTo, n);
        ASSERT_EQ(target, wanted) << n << " from " << alignFrom << " to " << alignTo;
      }
    }
  }
}

TEST(Copy, TouchesNothingOutside) {
  GuardedArea from(longest), to(longest);
  for (size_t n = 0; n <= longest; n++) {
    for (size_t i = 0; i < n; i++) from.last(n)[i] = static_cast<uint8_t>(i + n);
    skMemCpy(from.last(n), to.last(n), n);
    ASSERT_EQ(std::memcmp(from.last(n), to.last(n), n), 0) << n;
    for (size_t i = 0; i < n; i++) from.begin()[i] = static_cast<uint8_t>(i * 3 + n);
    skMemCpy(from.begin(), to.begin(), n);
    ASSERT_EQ(std::memcmp(from.begin(), to.begin(), n), 0) << n;
  }
}

// Deliberately so: a destination inside the source receives copies of copies.
TEST(Copy, UpwardsIntoItsSourceRepeatsTheFirstBytes) {
  for (size_t n = 0; n <= longest; n++) {
    for (size_t distance = 0; distance <= n + 3; distance++) {
      std::vector<uint8_t> area = port_test::randomBytes(2 * longest + 20, n);
      std::vector<uint8_t> wanted = area;
      copyForwards(wanted, 5, 5 + distance, n);
      ASSERT_EQ(skMemCpy(area.data() + 5, area.data() + 5 + distance, n),
                area.data() + 5 + distance);
      ASSERT_TRUE(area == wanted) << n << " bytes, distance " << distance;
    }
  }
}

TEST(Copy, DownwardsIntoItsSourceIsRight) {
  for (size_t n = 0; n <= longest; n++) {
    for (size_t distance = 0; distance <= n + 3; distance++) {
      std::vector<uint8_t> area = port_test::randomBytes(2 * longest + 20, n);
      std::vector<uint8_t> wanted = area;
      copyForwards(wanted, 5 + distance, 5, n);
      skMemCpy(area.data() + 5 + distance, area.data() + 5, n);
      ASSERT_TRUE(area == wanted) << n << " bytes, distance " << distance;
    }
  }
}

TEST(Copy, NearMissesOfAnOverlapAreExactBeyondNinetySixBytes) {
  for (size_t n : {95, 96, 97, 98, 128, 1000, 4096}) {
    for (long extra = -2; extra <= 2; extra++) {
      const size_t distance = static_cast<size_t>(static_cast<long>(n) + extra);
      std::vector<uint8_t> up = port_test::randomBytes(2 * n + 20, n);
      std::vector<uint8_t> wanted = up;
      copyForwards(wanted, 1, 1 + distance, n);
      skMemCpy(up.data() + 1, up.data() + 1 + distance, n);
      ASSERT_TRUE(up == wanted) << n << " up " << distance;
      std::vector<uint8_t> down = port_test::randomBytes(2 * n + 20, n);
      wanted = down;
      copyForwards(wanted, 1 + distance, 1, n);
      skMemCpy(down.data() + 1 + distance, down.data() + 1, n);
      ASSERT_TRUE(down == wanted) << n << " down " << distance;
    }
  }
}

TEST(Copy, OfALargeAreaIsExact) {
  const std::vector<uint8_t> source = port_test::randomBytes((1 << 20) + 3, 4);
  std::vector<uint8_t> target(source.size() + 2, 0x11);
  skMemCpy(source.data(), target.data() + 1, source.size());
  EXPECT_TRUE(std::equal(source.begin(), source.end(), target.begin() + 1));
  EXPECT_EQ(target.front(), 0x11);
  EXPECT_EQ(target.back(), 0x11);
}
