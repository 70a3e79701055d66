// What is looked at before the first record, and what is not looked at.
#include <gtest/gtest.h>

#include "equals_test.h"

namespace {

class EqualsShape : public keys_test::EqualsTest {
 protected:
  // 0 without a look at any record.
  void expectOtherShape(MORVAInst *a, MORVAInst *b) {
    host.forget();
    EXPECT_EQ(equal(a, b), 0u);
    EXPECT_EQ(host.count(Call::treeFirst), 0u);
    EXPECT_EQ(host.count(Call::treeNext), 0u);
  }

  // An instance of one bucket with one record "12345678".
  MORVAInst *oneRecord(uint32_t flags, uint32_t keyLength, uint32_t dataLength,
                       int32_t hashExp = 0) {
    Shape shape;
    shape.flags = flags;
    shape.keyLength = keyLength;
    shape.dataLength = dataLength;
    shape.hashExp = hashExp;
    MORVAInst *inst = createShape(shape);
    EXPECT_EQ(addKey(inst, "12345678"), MORVA_OK);
    return inst;
  }
};

}  // namespace

TEST_F(EqualsShape, AnotherKeyLengthIsUnequal) {
  expectOtherShape(oneRecord(flagFixedKey, 8, 4), oneRecord(flagFixedKey, 9, 4));
}

TEST_F(EqualsShape, AnotherDataLengthIsUnequal) {
  expectOtherShape(oneRecord(flagFixedKey, 8, 4), oneRecord(flagFixedKey, 8, 5));
}

TEST_F(EqualsShape, AnotherDataOffsetIsUnequal) {
  MORVAInst *plain = oneRecord(flagFixedKey, 8, 16);
  MORVAInst *summed = oneRecord(flagFixedKey | flagSum, 8, 8);
  ASSERT_EQ(plain->keyLength, summed->keyLength);
  ASSERT_NE(plain->dataOffset, summed->dataOffset);
  ASSERT_EQ(plain->recordSize, summed->recordSize);
  expectOtherShape(plain, summed);
}

TEST_F(EqualsShape, AnotherNumberOfRecordsIsUnequal) {
  MORVAInst *one = oneRecord(flagFixedKey, 8, 4), *two = oneRecord(flagFixedKey, 8, 4);
  ASSERT_EQ(addKey(two, "another"), MORVA_OK);
  expectOtherShape(one, two);
  ASSERT_EQ(removeKey(two, "another"), MORVA_OK);
  EXPECT_EQ(equal(one, two), 1u);
}

TEST_F(EqualsShape, AnotherNumberOfBucketsIsUnequalEvenWithTheSameRecords) {
  expectOtherShape(oneRecord(flagFixedKey, 8, 4, 3), oneRecord(flagFixedKey, 8, 4, 4));
}

TEST_F(EqualsShape, DuplicatesAllowedOnOneSideOnlyIsUnequal) {
  expectOtherShape(oneRecord(flagFixedKey, 8, 28), oneRecord(flagFixedKey | flagMultiData, 8, 4));
  expectOtherShape(oneRecord(flagFixedKey, 8, 4), oneRecord(flagFixedKey | flagMultiData, 8, 4));
}

// Each word by itself: instances that are equal but for the one.
TEST_F(EqualsShape, EveryWordOfTheShapeDecidesAlone) {
  MORVAInst *a = oneRecord(flagFixedKey | flagMultiData, 8, 4);
  MORVAInst *b = oneRecord(flagFixedKey | flagMultiData, 8, 4);
  const auto withOther = [&](uint32_t &word, uint32_t bits) {
    word ^= bits;
    expectOtherShape(a, b);
    word ^= bits;
    EXPECT_EQ(equal(a, b), 1u);
  };
  withOther(b->keyLength, 1);
  withOther(b->dataOffset, 8);
  withOther(b->dataLength, 1);
  withOther(b->recordSize, 1);
  withOther(b->buckets->elementCount, 2);
  withOther(b->buckets->mask, 1);
  withOther(b->flags, flagMultiData);
}

TEST_F(EqualsShape, NoOtherWordOfTheInstanceIsCompared) {
  MORVAInst *a = oneRecord(flagFixedKey | flagMultiData, 8, 4);
  MORVAInst *b = oneRecord(flagFixedKey | flagMultiData, 8, 4);
  const auto withOther = [&](uint32_t &word, uint32_t bits) {
    word ^= bits;
    EXPECT_EQ(equal(a, b), 1u);
    word ^= bits;
  };
  withOther(b->hashMethod, 1);
  withOther(b->sumOffset, 8);
  withOther(b->definedKeyLength, 4);
  withOther(b->buckets->usedBuckets, 3);
  for (uint32_t bits : {uint32_t{flagSum}, uint32_t{flagFixedKey}, uint32_t{flagLockOpt},
                        uint32_t{flagPackOpt}, uint32_t{flagDefineOpt}, uint32_t{flagUnordered}}) {
    withOther(b->flags, bits);
  }
}

TEST_F(EqualsShape, TheHashMethodIsNotCompared) {
  // One bucket: the records lie alike whatever the method.
  const std::vector<std::pair<std::string, std::string>> records = {
      {"one", "1"}, {"two", "2"}, {"three", "3"}};
  EXPECT_EQ(equal(with(Mode::fixed, records, 0, 0, 2), with(Mode::fixed, records, 0, 0, 8)), 1u);
  // Many buckets, and two methods that put one-byte keys into the same ones.
  const std::vector<std::pair<std::string, std::string>> letters = {
      {"a", "1"}, {"b", "2"}, {"c", "3"}};
  EXPECT_EQ(equal(with(Mode::fixed, letters, 0, 8, 7), with(Mode::fixed, letters, 0, 8, 9)), 1u);
}

TEST_F(EqualsShape, AnotherHashMethodThatPlacesRecordsElsewhereIsUnequal) {
  std::vector<std::pair<std::string, std::string>> records;
  for (int i = 0; i < 20; i++) records.push_back({std::to_string(7000 + i), "v"});
  EXPECT_EQ(equal(with(Mode::fixed, records, 0, 4, 2), with(Mode::fixed, records, 0, 4, 8)), 0u);
  EXPECT_EQ(equal(with(Mode::fixed, records, 0, 4, 8), with(Mode::fixed, records, 0, 4, 8)), 1u);
}

TEST_F(EqualsShape, SumsAreNotCompared) {
  MORVAInst *a = with(Mode::fixed, {}, flagSum), *b = with(Mode::fixed, {}, flagSum);
  a->SetSumInc(a, 1.0);
  b->SetSumInc(b, 1000.0);
  for (MORVAInst *inst : {a, b}) ASSERT_EQ(addKey(inst, "k", "v"), MORVA_OK);
  double sumA = 0, sumB = 0;
  ASSERT_EQ(a->Sum(a, "k", 1, &sumA), MORVA_OK);
  ASSERT_EQ(b->Sum(b, "k", 1, &sumB), MORVA_OK);
  ASSERT_NE(sumA, sumB);
  EXPECT_EQ(equal(a, b), 1u);
}

TEST_F(EqualsShape, FixedKeysAndDefinedKeysOfTheSameBytesAreEqual) {
  // The key area of a fixed key, written by the packer: length, zero word, bytes,
  // four bytes more.
  MORVAInst *fixed = oneRecord(flagFixedKey, 8, 4);
  MORVAInst *fields = create(Shape{.flags = 0, .hashExp = 0});
  define(fields, {20}, 4);
  ASSERT_EQ(addKey(fields, std::string("\x08\0\0\0\0\0\0\0"
                                       "12345678\0\0\0\0",
                                       20)),
            MORVA_OK);
  EXPECT_EQ(equal(fixed, fields), 1u);
}

TEST_F(EqualsShape, TheInsertionOrderIsNotCompared) {
  const std::vector<std::pair<std::string, std::string>> records = {
      {"a", "1"}, {"b", "2"}, {"c", "3"}};
  const std::vector<std::pair<std::string, std::string>> backwards(records.rbegin(),
                                                                   records.rend());
  MORVAInst *forth = with(Mode::fixed, records, flagOrdered);
  MORVAInst *back = with(Mode::fixed, backwards, flagOrdered);
  MORVAInst *none = with(Mode::fixed, records);
  EXPECT_EQ(equal(forth, back), 1u);
  EXPECT_EQ(equal(forth, none), 1u);
}

TEST_F(EqualsShape, LocksAndPackerOptionsAreNotCompared) {
  const std::vector<std::pair<std::string, std::string>> records = {{"12345678", "1"}};
  MORVAInst *plain = with(Mode::defined, records);
  for (uint32_t flags : {uint32_t{flagNoLock}, uint32_t{flagLockOpt}, uint32_t{flagPackOpt},
                         uint32_t{flagDefineOpt}, uint32_t{flagUnordered}}) {
    EXPECT_EQ(equal(plain, with(Mode::defined, records, flags)), 1u) << flags;
  }
}
