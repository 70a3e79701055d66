#include "text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>

namespace morva::cli {
namespace {

std::string formatted(double value) {
  char text[kNumberSize];
  return {text, formatNumber(value, text)};
}

double parsed(std::string_view text) {
  double value = -12345;
  EXPECT_EQ(parseNumber(text, value), NumberKind::kFinite) << text;
  return value;
}

NumberKind kindOf(std::string_view text) {
  double value = 0;
  return parseNumber(text, value);
}

TEST(Numbers, AreReadInAllDecimalForms) {
  EXPECT_EQ(parsed("12"), 12);
  EXPECT_EQ(parsed("-0.5"), -0.5);
  EXPECT_EQ(parsed("+3e8"), 3e8);
  EXPECT_EQ(parsed(".25"), 0.25);
  EXPECT_EQ(parsed("7."), 7);
  EXPECT_EQ(parsed("0000012"), 12);
  EXPECT_EQ(parsed(" \t1.5  "), 1.5);
  EXPECT_EQ(parsed("1E-3"), 0.001);
}

TEST(Numbers, AreNotReadFromAnythingElse) {
  for (const char *text :
       {"",     " ",   "+",   "-",        ".",   "abc", "1x",  "1 2", "1,5", "0x10", "inf",
        "-inf", "nan", "NaN", "infinity", "+-1", "--1", "++1", "1e",  "$5",  "1_000"}) {
    EXPECT_EQ(kindOf(text), NumberKind::kNotANumber) << text;
  }
  EXPECT_EQ(kindOf("1e999"), NumberKind::kOutOfRange);
  EXPECT_EQ(kindOf("-1e999"), NumberKind::kOutOfRange);
}

TEST(Numbers, TooSmallForAFloatAreTheNearestOne) {
  EXPECT_EQ(parsed("1e-400"), 0);
  EXPECT_EQ(parsed("-1e-400"), 0);
  EXPECT_EQ(parsed("0." + std::string(500, '0') + "1"), 0);
  EXPECT_EQ(parsed(" +4e-324 "), std::numeric_limits<double>::denorm_min());
  EXPECT_EQ(parsed("2e-324"), 0);
  EXPECT_EQ(kindOf("1e-400x"), NumberKind::kNotANumber);
}

TEST(Numbers, ThatAreWholeAreReadFromDigitsAlone) {
  uint64_t number = 0;
  EXPECT_TRUE(parseWhole("18446744073709551615", number));
  EXPECT_EQ(number, UINT64_MAX);
  EXPECT_TRUE(parseWhole("007", number));
  EXPECT_EQ(number, 7U);
  for (const char *text : {"", "-1", "+1", " 1", "1 ", "1x", "1.5", "18446744073709551616"}) {
    EXPECT_FALSE(parseWhole(text, number)) << text;
  }
}

TEST(Numbers, AreWrittenWithoutPointWhenWhole) {
  EXPECT_EQ(formatted(0), "0");
  EXPECT_EQ(formatted(-0.0), "0");
  EXPECT_EQ(formatted(-17), "-17");
  EXPECT_EQ(formatted(1000000), "1000000");
  EXPECT_EQ(formatted(9007199254740992.0), "9007199254740992");
  EXPECT_EQ(formatted(1e20), "100000000000000000000");
}

TEST(Numbers, AreWrittenWithExponentOnlyWhenVeryLargeOrSmall) {
  EXPECT_EQ(formatted(1e21), "1e+21");
  EXPECT_EQ(formatted(0.00001), "0.00001");
  EXPECT_EQ(formatted(0.000001), "1e-06");
  EXPECT_EQ(formatted(-1.7976931348623157e308), "-1.7976931348623157e+308");
}

TEST(Numbers, ReadBackAsTheyWereWritten) {
  std::mt19937_64 random(5);
  for (int i = 0; i < 100000; ++i) {
    const uint64_t bits = random();
    double value;
    static_assert(sizeof value == sizeof bits);
    std::memcpy(&value, &bits, sizeof value);
    if (!std::isfinite(value)) continue;
    const std::string text = formatted(value);
    ASSERT_EQ(std::strtod(text.c_str(), nullptr), value) << text;
    ASSERT_EQ(parsed(text), value) << text;
  }
  for (int i = 0; i < 1000; ++i) {
    const double tiny = static_cast<double>(random() >> 12) * 0x1p-1074;
    ASSERT_EQ(parsed(formatted(tiny)), tiny);
  }
  for (int i = 0; i < 100000; ++i) {
    const double value =
        static_cast<double>(static_cast<int64_t>(random() % 20000000) - 10000000) / 100;
    ASSERT_EQ(parsed(formatted(value)), value);
  }
}

TEST(Texts, AreQuotedWithControlCharactersSpelledOut) {
  EXPECT_EQ(quoted("a b"), "'a b'");
  EXPECT_EQ(quoted("a\tb\nc\rd\x01\x7F"), "'a\\tb\\nc\\rd\\x01\\x7f'");
  EXPECT_EQ(quotedList({"a", "b"}), "'a', 'b'");
}

TEST(Texts, AreCutBetweenCharacters) {
  EXPECT_EQ(quoted("abcdef", 3), "'abc...'");
  EXPECT_EQ(quoted("abcdef", 6), "'abcdef'");
  EXPECT_EQ(quoted("a\xC3\xA9z", 2), "'a...'");
}

TEST(Texts, CountThings) {
  EXPECT_EQ(counted(0, "row"), "0 rows");
  EXPECT_EQ(counted(1, "row"), "1 row");
  EXPECT_EQ(byteSize(17), "17 bytes");
  EXPECT_EQ(byteSize(1024), "1 KiB");
  EXPECT_EQ(byteSize(1536), "1.5 KiB");
  EXPECT_EQ(byteSize(uint64_t{64} << 20), "64 MiB");
  EXPECT_EQ(byteSize(UINT64_MAX), "16 EiB");
}

}  // namespace
}  // namespace morva::cli
