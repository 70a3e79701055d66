// Hash AND mask, through the operation.
#include <gtest/gtest.h>

#include <climits>

#include "hash_table.h"
#include "keys_test.h"
#include "reference_hash.h"

using keys_test::firstMethod;
using keys_test::goldenHashes;
using keys_test::goldenText;
using keys_test::knownHashes;
using keys_test::lastMethod;
using keys_test::longestGolden;
using keys_test::referenceHash;
using morva_test::Mode;
using morva_test::Shape;

namespace {

constexpr uint32_t lowTwentyBits = 0xFFFFF;

uint32_t flagOf(Mode mode) {
  return mode == Mode::fixed ? flagFixedKey : mode == Mode::variable ? flagVarKey : 0;
}

class BucketIndex : public keys_test::KeysTest {
 protected:
  MORVAInst *createWith(Mode mode, int32_t method, int32_t hashExp, uint32_t keyLength,
                        uint32_t flags = 0) {
    Shape shape;
    shape.flags = flagOf(mode) | flags;
    shape.keyLength = keyLength;
    shape.dataLength = 4;
    shape.hashMethod = method;
    shape.hashExp = hashExp;
    return createShape(shape);
  }
};

class BucketIndexOfMethod : public BucketIndex, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(Methods, BucketIndexOfMethod, testing::Range(firstMethod, lastMethod + 1),
                         [](const auto &info) { return "Method" + std::to_string(info.param); });

std::string stringOf(const std::vector<uint8_t> &bytes) {
  return std::string(bytes.begin(), bytes.end());
}

}  // namespace

TEST_P(BucketIndexOfMethod, IsTheLowTwentyBitsOfTheKnownHashesOfRawKeys) {
  for (Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = createWith(mode, GetParam(), 20, 12);
    for (const auto &row : knownHashes) {
      EXPECT_EQ(bucketOf(inst, row.key), row.hash[GetParam() - firstMethod] & lowTwentyBits)
          << nameOf(mode) << " \"" << row.key << '"';
    }
    destroy(inst);
  }
}

TEST_P(BucketIndexOfMethod, IsTheLowTwentyBitsOfTheKnownHashesOfDefinedKeys) {
  for (const auto &row : knownHashes) {
    const std::string key = row.key;
    MORVAInst *inst = createWith(Mode::defined, GetParam(), 20, static_cast<uint32_t>(key.size()));
    EXPECT_EQ(bucketOf(inst, key), row.hash[GetParam() - firstMethod] & lowTwentyBits) << key;
    destroy(inst);
  }
}

TEST_P(BucketIndexOfMethod, IsTheLowTwentyBitsOfTheFixedHashesAtEveryLengthAndAlignment) {
  for (Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = createWith(mode, GetParam(), 20, longestGolden);
    for (size_t n = 0; n <= longestGolden; n++) {
      const std::string text = stringOf(goldenText(n));
      const uint32_t wanted = goldenHashes[n][GetParam() - firstMethod] & lowTwentyBits;
      for (size_t align = 0; align < 8; align++) {
        const std::string area = std::string(align, '#') + text;
        uint32_t bucket = untouched;
        ASSERT_EQ(inst->HashVal(inst, area.data() + align, static_cast<int32_t>(n), &bucket),
                  MORVA_OK);
        ASSERT_EQ(bucket, wanted) << nameOf(mode) << ", " << n << " bytes, alignment " << align;
      }
    }
    destroy(inst);
  }
}

TEST_P(BucketIndexOfMethod, OfDefinedKeysIsThatOfThePackedBytesAtEveryLength) {
  for (uint32_t n = 0; n <= longestGolden; n++) {
    MORVAInst *inst = createWith(Mode::defined, GetParam(), 10, n);
    EXPECT_EQ(bucketOf(inst, stringOf(goldenText(n))),
              goldenHashes[n][GetParam() - firstMethod] & 0x3FF)
        << n;
    destroy(inst);
  }
}

TEST_P(BucketIndexOfMethod, IsTheHashMaskedWithTheBucketCount) {
  struct {
    int32_t exponent;
    uint32_t buckets;
  } const rows[] = {{0, 1},    {1, 2},         {4, 16},        {8, 256},
                    {-1, 256}, {19, 1u << 19}, {20, 1u << 20}, {25, 1u << 20}};
  for (const auto &row : rows) {
    MORVAInst *inst = createWith(Mode::variable, GetParam(), row.exponent, 0);
    ASSERT_EQ(inst->buckets->mask, row.buckets - 1);
    for (const char *key :
         {"", "a", "abc", "hello world!", "0123456789abcdefghijklmnopqrstuvwxyz"}) {
      EXPECT_EQ(bucketOf(inst, key), referenceHash(GetParam(), key) % row.buckets)
          << key << " with " << row.buckets << " buckets";
    }
    destroy(inst);
  }
}

TEST_P(BucketIndexOfMethod, IsWhereEveryKeyedOperationPutsAndFindsTheKey) {
  for (Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    for (uint32_t flags : {uint32_t{0}, uint32_t{flagMultiData}}) {
      if (mode == Mode::variable && flags != 0) continue;
      MORVAInst *inst = createWith(mode, GetParam(), 6, 9, flags);
      for (int i = 0; i < 60; i++) {
        const std::string key = std::to_string(100000000 + i * 977);
        const uint32_t bucket = bucketOf(inst, key);
        ASSERT_EQ(bucket, referenceHash(GetParam(), key) & 63) << nameOf(mode) << " " << key;
        ASSERT_EQ(addKey(inst, key), MORVA_OK);
        RecordNode *node = nullptr;
        uint32_t found = untouched;
        ASSERT_EQ(inst->FindNode(inst, bytesOf(key), lengthOf(key), &node, &found), MORVA_OK);
        ASSERT_NE(node, nullptr);
        ASSERT_EQ(found, bucket);
        const auto nodes = walk(inst, bucket);
        ASSERT_NE(std::find(nodes.begin(), nodes.end(), node), nodes.end());
        ASSERT_EQ(bucketOf(inst, key), bucket);
        void *data = nullptr;
        ASSERT_EQ(inst->Find(inst, bytesOf(key), lengthOf(key), &data), MORVA_OK);
        ASSERT_NE(data, nullptr);
        const uint32_t before = inst->BucketSize(inst, bucket);
        ASSERT_EQ(removeKey(inst, key), MORVA_OK);
        ASSERT_EQ(inst->BucketSize(inst, bucket), before - 1);
        ASSERT_EQ(addKey(inst, key), MORVA_OK);
        ASSERT_EQ(inst->BucketSize(inst, bucket), before);
      }
      destroy(inst);
    }
  }
}

TEST_F(BucketIndex, AnEmptyKeyFallsWhereItsHashSays) {
  for (int method : {2, 4, 5, 7, 8, 9}) {
    EXPECT_EQ(bucketOf(createWith(Mode::variable, method, 12, 0), ""), 0u) << method;
    EXPECT_EQ(bucketOf(createWith(Mode::fixed, method, 12, 8), ""), 0u) << method;
  }
  EXPECT_EQ(bucketOf(createWith(Mode::variable, 6, 12, 0), ""), 1234u);
  EXPECT_EQ(bucketOf(createWith(Mode::fixed, 6, 8, 0), ""), 1234u & 0xFF);
  EXPECT_EQ(bucketOf(createWith(Mode::variable, 3, 20, 0), ""), 0x4a788badu & 0xFFFFF);
  EXPECT_EQ(bucketOf(createWith(Mode::fixed, 3, 4, 0), ""), 0xDu);
}

TEST_F(BucketIndex, MethodsOutOfRangeBehaveExactlyLikeTwo) {
  for (int32_t method : {0, 1, 10, -5, INT_MAX, INT_MIN}) {
    MORVAInst *inst = createWith(Mode::variable, method, 16, 0);
    EXPECT_EQ(inst->hashMethod, 2u) << method;
    for (const char *key : {"a", "abc", "hello world!"}) {
      EXPECT_EQ(bucketOf(inst, key), referenceHash(2, key) & 0xFFFF) << method << " " << key;
    }
    destroy(inst);
  }
}

TEST_F(BucketIndex, MethodThreeTakesATailOfElevenAFullBlockAndATailOfOne) {
  for (Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = createWith(mode, 3, 20, 13);
    for (size_t n : {11, 12, 13}) {
      const std::string key = std::string("hello world!?").substr(0, n);
      EXPECT_EQ(bucketOf(inst, key), referenceHash(3, key) & lowTwentyBits) << n;
    }
  }
}

TEST_F(BucketIndex, OfOneDefinedKeyAgreesInTheLowBitsWhateverTheBucketCount) {
  for (int method = firstMethod; method <= lastMethod; method++) {
    MORVAInst *few = createWith(Mode::defined, method, 5, 8);
    MORVAInst *many = createWith(Mode::defined, method, 17, 8);
    for (uint64_t number = 0; number < 50; number++) {
      const std::string key = std::to_string(12345678 + number * 31);
      EXPECT_EQ(bucketOf(few, key), bucketOf(many, key) & 31u) << method << " " << key;
    }
  }
}

TEST_F(BucketIndex, OfADefinedKeyIgnoresTheLengthArgument) {
  MORVAInst *inst = createWith(Mode::defined, 9, 20, 12);
  for (int32_t length : {0, 1, 12, 13, 99999, -1, INT_MIN}) {
    uint32_t bucket = untouched;
    ASSERT_EQ(inst->HashVal(inst, "hello world!", length, &bucket), MORVA_OK);
    EXPECT_EQ(bucket, 0x9827fa1du & lowTwentyBits) << length;
  }
}

TEST_F(BucketIndex, OfADefinedKeyGoesByTheBytesThePackerWrote) {
  // Two fields, packed the other way round than they lie in the row.
  Shape shape;
  shape.flags = 0;
  shape.hashMethod = 8;
  shape.hashExp = 20;
  MORVAInst *inst = create(shape);
  const MORVAKeyDesc second = {7, 4, 5, 0}, first = {5, 4, 0, 0};
  ASSERT_EQ(inst->DefineKey(inst, &second), MORVA_OK);
  ASSERT_EQ(inst->DefineKey(inst, &first), MORVA_OK);
  ASSERT_EQ(inst->DefineDone(inst, 0, 4), MORVA_OK);
  EXPECT_EQ(bucketOf(inst, "orld!hello w"), 0x9bd919d3u & lowTwentyBits);
  // What lies in the row outside of the fields is not hashed.
  EXPECT_EQ(bucketOf(inst, "orld!hello w and more"), 0x9bd919d3u & lowTwentyBits);
}

TEST_F(BucketIndex, OfRawKeysLeavesTheLengthWordOut) {
  // Under this method a key of one byte hashes to the byte.
  for (Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = createWith(mode, 7, 8, 8);
    for (int b = 0; b < 256; b++) {
      EXPECT_EQ(bucketOf(inst, std::string(1, static_cast<char>(b))), static_cast<uint32_t>(b));
    }
    // Zero bytes in front change the length and nothing else.
    EXPECT_EQ(bucketOf(inst, std::string("\0\0\0\x2A", 4)), 0x2Au);
  }
}

TEST_F(BucketIndex, IsTheSameInEveryModeForTheSameImage) {
  for (int method = firstMethod; method <= lastMethod; method++) {
    MORVAInst *fixed = createWith(Mode::fixed, method, 16, 12);
    MORVAInst *variable = createWith(Mode::variable, method, 16, 0);
    MORVAInst *fields = createWith(Mode::defined, method, 16, 12);
    const uint32_t bucket = bucketOf(fixed, "hello world!");
    EXPECT_EQ(bucketOf(variable, "hello world!"), bucket);
    EXPECT_EQ(bucketOf(fields, "hello world!"), bucket);
  }
}
