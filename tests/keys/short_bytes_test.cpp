// Comparing and moving few bytes without a call.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "keys/compare.h"
#include "keys/move_bytes.h"

using morva::core::moveBytes;
using morva::detail::compare_bytes;

namespace {

int sign(int comparison) {
  return (comparison > 0) - (comparison < 0);
}

// A copy of its exact size, so that a memory checker sees a byte too many.
std::unique_ptr<unsigned char[]> exact(const std::vector<unsigned char> &bytes) {
  std::unique_ptr<unsigned char[]> copy(new unsigned char[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), copy.get());
  return copy;
}

void expectAsMemcmp(const std::vector<unsigned char> &a, const std::vector<unsigned char> &b) {
  const auto left = exact(a);
  const auto right = exact(b);
  const auto n = static_cast<uint32_t>(a.size());
  ASSERT_EQ(sign(compare_bytes(left.get(), right.get(), n)),
            n == 0 ? 0 : sign(std::memcmp(a.data(), b.data(), n)))
      << testing::PrintToString(a) << " and " << testing::PrintToString(b);
}

TEST(CompareBytes, TellsOneDifferenceAtEveryPlaceOfEveryLength) {
  for (size_t n = 0; n <= 100; ++n) {
    const std::vector<unsigned char> a(n, 0x7F);
    expectAsMemcmp(a, a);
    for (size_t place = 0; place < n; ++place) {
      for (const unsigned char other : {0x00, 0x7E, 0x80, 0xFF}) {
        std::vector<unsigned char> b = a;
        b[place] = other;
        expectAsMemcmp(a, b);
        expectAsMemcmp(b, a);
      }
    }
  }
}

TEST(CompareBytes, TheFirstOfSeveralDifferencesDecides) {
  std::mt19937 random(3);
  for (int round = 0; round < 20000; ++round) {
    std::vector<unsigned char> a(random() % 50);
    for (unsigned char &byte : a) byte = static_cast<unsigned char>(random() % 3 * 127);
    std::vector<unsigned char> b = a;
    for (unsigned char &byte : b) {
      if (random() % 8 == 0) byte = static_cast<unsigned char>(random());
    }
    expectAsMemcmp(a, b);
  }
}

TEST(MoveBytes, MovesEveryLengthAndNothingElse) {
  for (size_t n = 0; n <= 80; ++n) {
    std::vector<unsigned char> from(n);
    for (size_t i = 0; i < n; ++i) from[i] = static_cast<unsigned char>(i + 1);
    std::vector<unsigned char> to(n + 2, 0xEE);
    moveBytes(to.data() + 1, exact(from).get(), n);
    EXPECT_EQ(to.front(), 0xEE);
    EXPECT_EQ(to.back(), 0xEE);
    EXPECT_TRUE(std::equal(from.begin(), from.end(), to.begin() + 1)) << n;
  }
}

TEST(MoveBytes, AreasMayOverlapEitherWay) {
  constexpr int kRoom = 120;
  for (int n = 0; n <= 40; ++n) {
    for (int shift = -40; shift <= 40; ++shift) {
      std::vector<unsigned char> moved(kRoom);
      for (int i = 0; i < kRoom; ++i) moved[static_cast<size_t>(i)] = static_cast<unsigned char>(i);
      std::vector<unsigned char> expected = moved;
      std::memmove(expected.data() + 40 + shift, expected.data() + 40, static_cast<size_t>(n));
      moveBytes(moved.data() + 40 + shift, moved.data() + 40, static_cast<size_t>(n));
      ASSERT_EQ(moved, expected) << n << " bytes by " << shift;
    }
  }
}

}  // namespace
