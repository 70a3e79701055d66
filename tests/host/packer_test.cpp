// The record packer's field types and refusals, through its slots.
#include "packer_fields.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <limits>

namespace host_test {
namespace {

using std::string_literals::operator""s;

std::string bytesOf(double value) {
  return std::string(reinterpret_cast<const char *>(&value), sizeof value);
}

// The image of a row by a packer of one field.
std::string packed(const Field &field, const std::string &row) {
  CompanionHost host;
  const DrivenPacker packer(host, {field});
  return packer.pack(row);
}

bool accepts(const Field &field) {
  CompanionHost host;
  DrivenPacker packer(host);
  return packer.define(field);
}

// ---- floats ----------------------------------------------------------------

TEST(PackedFloats, KeepTheirBytes) {
  for (const double value :
       {0.0, 1.0, -1.5, 1e300, std::numeric_limits<double>::denorm_min(),
        -std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(packed({1, 8}, bytesOf(value)), bytesOf(value)) << value;
  }
}

TEST(PackedFloats, HaveOneZero) {
  EXPECT_EQ(packed({1, 8}, bytesOf(-0.0)), bytesOf(0.0));
  EXPECT_NE(bytesOf(-0.0), bytesOf(0.0));
}

TEST(PackedFloats, KeepEveryNanApart) {
  for (const uint64_t bits : {UINT64_C(0x7FF8000000000000), UINT64_C(0xFFF8000000000000),
                              UINT64_C(0x7FF8000000000001), UINT64_C(0x7FF0000000000001)}) {
    const std::string row(reinterpret_cast<const char *>(&bits), sizeof bits);
    EXPECT_EQ(packed({1, 8}, row), row) << std::hex << bits;
  }
}

TEST(PackedFloats, HaveEightBytesOnly) {
  EXPECT_TRUE(accepts({1, 8}));
  for (const uint32_t length : {0, 1, 2, 4, 7, 9, 10, 16}) {
    EXPECT_FALSE(accepts({1, length})) << length;
  }
}

// ---- fixed-length text -----------------------------------------------------

TEST(PackedFixedText, TurnsTrailingBlanksAndNulsIntoBlanks) {
  EXPECT_EQ(packed({2, 6}, "ab    "), "ab    ");
  EXPECT_EQ(packed({2, 6}, "ab\0\0\0\0"s), "ab    ");
  EXPECT_EQ(packed({2, 6}, "ab \0 \0"s), "ab    ");
  EXPECT_EQ(packed({2, 6}, "ab\0\0\0 "s), "ab    ");
  EXPECT_EQ(packed({2, 6}, "abcdef"), "abcdef");
}

TEST(PackedFixedText, KeepsLeadingAndInnerBlanksAndNuls) {
  EXPECT_EQ(packed({2, 6}, "  ab  "), "  ab  ");
  EXPECT_EQ(packed({2, 6}, "\0\0ab\0\0"s), "\0\0ab  "s);
  EXPECT_EQ(packed({2, 6}, "a\0 b\0 "s), "a\0 b  "s);
}

TEST(PackedFixedText, IsAllBlankWhenThereIsNothingElse) {
  EXPECT_EQ(packed({2, 4}, "    "), "    ");
  EXPECT_EQ(packed({2, 4}, "\0\0\0\0"s), "    ");
  EXPECT_EQ(packed({2, 4}, " \0 \0"s), "    ");
  EXPECT_EQ(packed({2, 1}, "\0"s), " ");
}

TEST(PackedFixedText, TakesNoOtherByteForABlank) {
  EXPECT_EQ(packed({2, 4}, "a\t\t\t"), "a\t\t\t");
  EXPECT_EQ(packed({2, 4}, "a\n\r\x0B"), "a\n\r\x0B");
  EXPECT_EQ(packed({2, 4}, "a\xA0\xA0\xA0"), "a\xA0\xA0\xA0");
}

// ---- text up to a NUL ------------------------------------------------------

TEST(PackedText, EndsAtTheFirstNul) {
  EXPECT_EQ(packed({5, 6}, "ab\0xyz"s), "ab\0\0\0\0"s);
  EXPECT_EQ(packed({5, 6}, "\0bcdef"s), "\0\0\0\0\0\0"s);
  EXPECT_EQ(packed({5, 6}, "abcdef"), "abcdef");
  EXPECT_EQ(packed({5, 6}, "abcde\0"s), "abcde\0"s);
}

TEST(PackedText, KeepsBlanks) {
  EXPECT_EQ(packed({5, 6}, "ab   \0"s), "ab   \0"s);
  EXPECT_EQ(packed({5, 6}, "ab \0  "s), "ab \0\0\0"s);
  EXPECT_EQ(packed({5, 6}, "  ab  "), "  ab  ");
  EXPECT_NE(packed({5, 4}, "ab \0"s), packed({5, 4}, "ab\0\0"s));
}

// ---- the option ------------------------------------------------------------

TEST(PackedCase, DoesNotMatterInTextsWithTheOption) {
  for (const uint32_t type : {2u, 5u}) {
    EXPECT_EQ(packed({type, 6, 0, 1}, "aBcXyZ"), "ABCXYZ") << type;
    EXPECT_EQ(packed({type, 6}, "aBcXyZ"), "aBcXyZ") << type;
  }
}

TEST(PackedCase, IsThatOfAsciiLettersAndNoOtherByte) {
  std::string row, expected;
  for (int byte = 1; byte < 256; ++byte) {
    row += static_cast<char>(byte);
    expected += static_cast<char>(byte >= 'a' && byte <= 'z' ? byte - 32 : byte);
  }
  for (const uint32_t type : {2u, 5u}) {
    EXPECT_EQ(packed({type, 255, 0, 1}, row), expected) << type;
    EXPECT_EQ(packed({type, 255}, row), row) << type;
  }
}

TEST(PackedCase, LeavesTheRulesOfTheTypeAlone) {
  EXPECT_EQ(packed({2, 6, 0, 1}, "ab \0\0 "s), "AB    ");
  EXPECT_EQ(packed({5, 6, 0, 1}, "ab \0cd"s), "AB \0\0\0"s);
}

TEST(PackedCase, IsDecidedByBitZeroAlone) {
  EXPECT_EQ(packed({2, 2, 0, 2}, "ab"), "ab");
  EXPECT_EQ(packed({5, 2, 0, 0xFFFFFFFE}, "ab"), "ab");
  EXPECT_EQ(packed({2, 2, 0, 3}, "ab"), "AB");
}

TEST(PackedCase, MattersInBytesAndNumbersWhateverTheOption) {
  EXPECT_EQ(packed({4, 4, 0, 1}, "abcd"), "abcd");
  EXPECT_EQ(packed({3, 4, 0, 1}, "abcd"), "abcd");
  EXPECT_EQ(packed({1, 8, 0, 1}, "abcdefgh"), "abcdefgh");
}

// ---- integers and bytes ----------------------------------------------------

TEST(PackedIntegers, KeepTheirBytes) {
  EXPECT_EQ(packed({3, 1}, "\x80"), "\x80");
  EXPECT_EQ(packed({3, 2}, "\xFF\x7F"), "\xFF\x7F");
  EXPECT_EQ(packed({3, 4}, "\0\0\0\x80"s), "\0\0\0\x80"s);
  EXPECT_EQ(packed({3, 8}, "\0\0\0\0\0\0\0\x80"s), "\0\0\0\0\0\0\0\x80"s);
}

TEST(PackedIntegers, HaveOneTwoFourOrEightBytes) {
  for (uint32_t length = 0; length < 20; ++length) {
    EXPECT_EQ(accepts({3, length}), length == 1 || length == 2 || length == 4 || length == 8)
        << length;
  }
}

TEST(PackedBytes, AreKeptAtAnyLength) {
  std::string row;
  for (int byte = 0; byte < 300; ++byte) row += static_cast<char>(byte * 7);
  for (const uint32_t length : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 16u, 31u, 255u, 256u, 300u}) {
    EXPECT_EQ(packed({4, length}, row), row.substr(0, length));
  }
}

// ---- where fields lie ------------------------------------------------------

TEST(PackedFields, AreTakenFromTheirPlaceInTheRow) {
  CompanionHost host;
  constexpr uint32_t kFar = 5'000'000;
  std::string row(kFar + 8, '.');
  row.replace(kFar, 8, "12345678");
  row.replace(70'000, 4, "abcd");
  const DrivenPacker packer(host, {{4, 8, kFar}, {2, 4, 70'000, 1}, {4, 1, 0}});
  EXPECT_EQ(packer.pack(row), "12345678ABCD.");
}

TEST(PackedFields, MayUseTheSameBytesOfTheRowAgain) {
  CompanionHost host;
  const DrivenPacker packer(host, {{2, 4, 0}, {5, 4, 0}, {2, 4, 0, 1}, {4, 4, 0}, {4, 2, 1}});
  EXPECT_EQ(packer.pack("a\0b\0"s), "a\0b a\0\0\0A\0B a\0b\0\0b"s);
}

TEST(PackedFields, LieEndToEndInTheOrderOfTheirDefinition) {
  CompanionHost host;
  // Neighbours in the row, in order and not, with and without a gap.
  const DrivenPacker packer(host, {{4, 2, 0},
                                   {4, 2, 2},
                                   {4, 1, 4},
                                   {4, 1, 5},
                                   {4, 2, 6},
                                   {4, 2, 6},
                                   {4, 1, 0},
                                   {3, 1, 1},
                                   {3, 4, 2},
                                   {4, 1, 7}});
  EXPECT_EQ(packer.keyLength(), 17u);
  EXPECT_EQ(packer.pack("abcdefgh"), "abcdefghghabcdefh");
}

TEST(PackedFields, ByTheHundredAreAllPacked) {
  CompanionHost host;
  DrivenPacker packer(host);
  std::string row, expected;
  for (uint32_t i = 0; i < 1000; ++i) {
    row += {static_cast<char>('a' + i % 26), static_cast<char>(i)};
    ASSERT_TRUE(packer.define(Field{2, 1, 2 * i, i % 2}));
    expected += static_cast<char>(i % 2 == 0 ? 'a' + i % 26 : 'A' + i % 26);
  }
  ASSERT_TRUE(packer.finish());
  EXPECT_EQ(packer.pack(row), expected);
}

TEST(PackedFields, MeanTheSameInEveryClass) {
  for (const uint32_t fieldClass : {1u, 3u, 4u}) {
    CompanionHost host;
    DrivenPacker packer(host);
    ASSERT_TRUE(packer.define(packerField({2, 3, 1}, 0, fieldClass)));
    ASSERT_TRUE(packer.define(packerField({1, 8, 4}, 3, fieldClass)));
    ASSERT_TRUE(packer.finish());
    EXPECT_EQ(packer.pack("xab\0"s + bytesOf(-0.0)), "ab " + bytesOf(0.0)) << fieldClass;
  }
}

TEST(PackedRows, ThatAreNullPackAsZeros) {
  CompanionHost host;
  const DrivenPacker packer(host, {{2, 3, 0}, {1, 8, 8}, {5, 2, 0, 1}, {3, 4, 100}, {4, 5, 0}});
  EXPECT_EQ(packer.pack(nullptr), std::string(22, '\0'));
  // Blanks and zeros are different keys.
  EXPECT_NE(packer.pack(std::string(104, '\0')), packer.pack(nullptr));
}

TEST(PackedRows, OfNoFieldsHaveAnEmptyImage) {
  CompanionHost host;
  const DrivenPacker packer(host, {});
  EXPECT_EQ(packer.pack("row"s), "");
  EXPECT_EQ(packer.pack(nullptr), "");
}

// ---- refusals --------------------------------------------------------------

TEST(PackerDefinition, RefusesUnknownTypes) {
  CompanionHost host;
  DrivenPacker packer(host);
  for (const uint32_t type : {0u, 5u, 6u, 27u, 0x80000001u, 0xFFFFFFFFu}) {
    PackerField block = packerField({4, 8}, 0);
    block.typeCode = block.typeCodeAgain = type;
    EXPECT_FALSE(packer.define(block)) << type;
  }
  // A sub-type is known of texts only.
  for (const uint32_t type : {1u, 3u, 4u}) {
    PackerField block = packerField({type, 8}, 0);
    block.subType = 27;
    EXPECT_FALSE(packer.define(block)) << type;
  }
  PackerField block = packerField({5, 8}, 0);
  block.subType = 26;
  EXPECT_FALSE(packer.define(block));
  EXPECT_TRUE(packer.define(packerField({4, 8}, 0)));
}

TEST(PackerDefinition, RefusesEmptyFieldsOfEveryType) {
  for (uint32_t type = 1; type <= 5; ++type) EXPECT_FALSE(accepts({type, 0})) << type;
  for (const uint32_t type : {2u, 4u, 5u}) EXPECT_TRUE(accepts({type, 1})) << type;
}

TEST(PackerDefinition, RefusesFieldsLongerThanAKeyCanBe) {
  CompanionHost host;
  DrivenPacker packer(host);
  for (const uint64_t length : {UINT64_C(1) << 32, UINT64_MAX}) {
    PackerField block = packerField({4, 1}, 0);
    block.fieldLength = block.fieldLengthAgain = length;
    EXPECT_FALSE(packer.define(block)) << length;
  }
  // One whose place in the row does not exist.
  PackerField block = packerField({4, 8}, 0);
  block.fieldArg = UINT64_MAX - 3;
  EXPECT_FALSE(packer.define(block));
  EXPECT_TRUE(packer.finish(packerClosing(0)));
}

TEST(PackerDefinition, RefusesFieldsThatDoNotStartWhereTheLastOneEnded) {
  CompanionHost host;
  DrivenPacker packer(host);
  EXPECT_FALSE(packer.define(packerField({4, 4}, 1)));
  EXPECT_TRUE(packer.define(packerField({4, 4}, 0)));
  for (const uint64_t offset : {UINT64_C(0), UINT64_C(3), UINT64_C(5), UINT64_C(8), UINT64_MAX})
    EXPECT_FALSE(packer.define(packerField({4, 4}, offset))) << offset;
  EXPECT_TRUE(packer.define(packerField({4, 4}, 4)));
  EXPECT_TRUE(packer.finish());
}

TEST(PackerDefinition, IsNotChangedByWhatItRefuses) {
  CompanionHost host;
  DrivenPacker packer(host);
  EXPECT_TRUE(packer.define(Field{4, 2, 0}));
  EXPECT_FALSE(packer.define(Field{1, 4, 2}));
  EXPECT_FALSE(packer.define(packerField({4, 2, 2}, 9)));
  EXPECT_FALSE(packer.finish(packerClosing(3)));
  EXPECT_TRUE(packer.define(Field{4, 2, 4}));
  EXPECT_TRUE(packer.finish());
  EXPECT_EQ(packer.pack("abcdef"s), "abef");
}

TEST(PackerDefinition, RefusesNullBlocks) {
  CompanionHost host;
  DrivenPacker packer(host);
  EXPECT_NE(packer->defineField(packer.get(), nullptr), 0u);
  EXPECT_NE(packer->finish(packer.get(), nullptr), 0u);
  EXPECT_TRUE(packer.finish());
}

TEST(PackerClosingBlock, MustHaveTheKeyLengthAndAKnownWord) {
  CompanionHost host;
  DrivenPacker packer(host);
  ASSERT_TRUE(packer.define(Field{4, 8}));
  for (const uint64_t length : {UINT64_C(0), UINT64_C(7), UINT64_C(9), UINT64_C(1) << 32 | 8})
    EXPECT_FALSE(packer.finish(packerClosing(length))) << length;
  for (const uint32_t word : {0u, 1u, 15u, 17u, 512u, 527u, 529u, 544u})
    EXPECT_FALSE(packer.finish(packerClosing(8, word))) << word;
  EXPECT_TRUE(packer.finish(packerClosing(8, 16)));
}

TEST(PackerClosingBlock, MayCarryEitherWordAndAnyArgument) {
  for (const uint32_t word : {16u, 528u}) {
    for (const int64_t argument : {INT64_C(0), INT64_C(-1), INT64_C(0x7FFFFFFF)}) {
      CompanionHost host;
      DrivenPacker packer(host);
      ASSERT_TRUE(packer.define(Field{2, 3}));
      PackerClosing closing = packerClosing(3, word);
      closing.packerArg = argument;
      EXPECT_TRUE(packer.finish(closing));
      EXPECT_EQ(packer.pack("a\0b"s), "a\0b"s);
      EXPECT_EQ(packer.pack("ab\0"s), "ab ");
    }
  }
}

TEST(PackerClosingBlock, EndsTheDefinitionForGood) {
  CompanionHost host;
  DrivenPacker packer(host);
  ASSERT_TRUE(packer.define(Field{4, 2}));
  ASSERT_TRUE(packer.finish());
  EXPECT_FALSE(packer.finish());
  EXPECT_FALSE(packer.define(Field{4, 2, 2}));
  EXPECT_EQ(packer.pack("abcd"s), "ab");
}

TEST(PackerCompanion, CountsItsPackersAndNamesTheirOperations) {
  CompanionHost host;
  {
    DrivenPacker one(host), two(host);
    EXPECT_EQ(host.stats().packers, 2u);
    EXPECT_NE(one.get(), two.get());
    EXPECT_THAT(one->slot0, testing::Each(nullptr));
    EXPECT_EQ(one->slot3, nullptr);
    EXPECT_EQ(one->slot5, nullptr);
    // Definitions are each packer's own.
    EXPECT_TRUE(one.define(Field{4, 4}));
    EXPECT_TRUE(two.define(Field{2, 2, 1}));
    EXPECT_TRUE(one.finish());
    EXPECT_TRUE(two.finish());
    EXPECT_EQ(one.pack("abcd"s), "abcd");
    EXPECT_EQ(two.pack("abcd"s), "bc");
  }
  EXPECT_EQ(host.stats().packers, 0u);
}

}  // namespace
}  // namespace host_test
