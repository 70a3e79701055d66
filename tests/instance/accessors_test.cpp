// The accessors: sizes and shapes, read without any call on the host.
#include <limits>

#include "instance_test.h"

namespace morva_test {
namespace {

using Accessors = InstanceTest;

TEST_F(Accessors, ANullInstanceYieldsZero) {
  EXPECT_EQ(MORVANumElements(nullptr), 0u);
  EXPECT_EQ(MORVAHashSize(nullptr), 0u);
  EXPECT_EQ(MORVABucketSize(nullptr, 0), 0u);
  EXPECT_EQ(MORVARecSize(nullptr), 0u);
  EXPECT_EQ(MORVATotalMem(nullptr), 0u);
}

TEST_F(Accessors, AnInstanceWithoutItsDefinitionYieldsZero) {
  Shape shape;
  shape.flags = 0;
  MORVAInst *inst = create(shape);
  const MORVAKeyDesc desc = {8, 1, 0, 0};
  ASSERT_EQ(inst->DefineKey(inst, &desc), MORVA_OK);
  EXPECT_EQ(inst->NumElements(inst), 0u);
  EXPECT_EQ(inst->HashSize(inst), 0u);
  EXPECT_EQ(inst->BucketSize(inst, 0), 0u);
  EXPECT_EQ(inst->RecSize(inst), 0u);
  EXPECT_EQ(inst->TotalMem(inst), 0u);
  ASSERT_EQ(inst->DefineDone(inst, 0, 16), MORVA_OK);
  EXPECT_EQ(inst->HashSize(inst), 16u);
  EXPECT_EQ(inst->RecSize(inst), 64u);
}

TEST_F(Accessors, NumElementsCountsRecordsDuplicatesIncluded) {
  MORVAInst *inst = create(Mode::fixed, flagMultiData);
  EXPECT_EQ(inst->NumElements(inst), 0u);
  addAll(inst, 1, 3);
  EXPECT_EQ(add(inst, 2), MORVA_OK);
  EXPECT_EQ(add(inst, 2), MORVA_OK);
  EXPECT_EQ(inst->NumElements(inst), 5u);
  EXPECT_EQ(remove(inst, 2), MORVA_OK);
  EXPECT_EQ(inst->NumElements(inst), 2u);
}

TEST_F(Accessors, HashSizeIsTheNumberOfBuckets) {
  for (int32_t exponent = 0; exponent <= 20; exponent += 4) {
    MORVAInst *inst = create(Mode::variable, 0, 16, exponent);
    EXPECT_EQ(inst->HashSize(inst), uint32_t{1} << exponent);
    destroy(inst);
  }
}

TEST_F(Accessors, BucketSizesAddUpAndFollowTheBucketOfEachKey) {
  for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    MORVAInst *inst = create(mode);
    std::vector<uint32_t> expected(16, 0);
    for (uint64_t key = 1; key != 101; ++key) {
      ASSERT_EQ(add(inst, key), MORVA_OK);
      uint32_t bucket = 99;
      ASSERT_EQ(inst->HashVal(inst, &key, 8, &bucket), MORVA_OK);
      ASSERT_LT(bucket, 16u);
      ++expected[bucket];
    }
    for (uint32_t index = 0; index != 16; ++index) {
      EXPECT_EQ(inst->BucketSize(inst, index), expected[index]) << nameOf(mode) << index;
    }
  }
}

TEST_F(Accessors, BucketSizeAnswersUpToTheMaskAndZeroBeyond) {
  MORVAInst *inst = create(Mode::fixed, 0, 16, 3);
  // Fill until the last bucket holds a record.
  uint64_t key = 1;
  uint32_t bucket = 0;
  for (; bucket != 7; ++key) {
    ASSERT_EQ(add(inst, key), MORVA_OK);
    ASSERT_EQ(inst->HashVal(inst, &key, 8, &bucket), MORVA_OK);
  }
  EXPECT_EQ(inst->BucketSize(inst, 7), 1u);
  EXPECT_EQ(inst->BucketSize(inst, 8), 0u);
  EXPECT_EQ(inst->BucketSize(inst, 0x80000000), 0u);
  EXPECT_EQ(inst->BucketSize(inst, std::numeric_limits<uint32_t>::max()), 0u);
}

TEST_F(Accessors, RecSizeOfVariableKeysIsTheLastKeys) {
  MORVAInst *inst = create(Mode::variable);
  EXPECT_EQ(inst->RecSize(inst), 32u);
  const std::string key(100, 'k');
  const char data[16] = {};
  ASSERT_EQ(inst->Add(inst, data, key.data(), 1), MORVA_OK);
  // 1 + 12 rounded up is 16; 16 of data; rounded with the header.
  EXPECT_EQ(inst->RecSize(inst), 64u);
  ASSERT_EQ(inst->Add(inst, data, key.data(), 100), MORVA_OK);
  EXPECT_EQ(inst->RecSize(inst), 160u);
  ASSERT_EQ(inst->Find(inst, key.data(), 1, nullptr), MORVA_OK);
  EXPECT_EQ(inst->RecSize(inst), 64u);
}

TEST_F(Accessors, TotalMemIsZeroUntilTheFirstBlock) {
  MORVAInst *inst = create(Mode::fixed);
  EXPECT_EQ(inst->TotalMem(inst), 0u);
  ASSERT_EQ(add(inst, 1), MORVA_OK);
  EXPECT_EQ(inst->TotalMem(inst), 1296u);
}

TEST_F(Accessors, TotalMemGrowsWithALookupThatNeedsAProbe) {
  MORVAInst *inst = create(Mode::fixed);
  EXPECT_EQ(find(inst, 1), nullptr);
  EXPECT_EQ(inst->TotalMem(inst), 1296u);
}

TEST_F(Accessors, TotalMemAddsUpTheBlocks) {
  MORVAInst *inst = create(Mode::fixed);
  addAll(inst, 1, 16);
  EXPECT_EQ(inst->TotalMem(inst), 16u * 80 + 16);
  ASSERT_EQ(add(inst, 17), MORVA_OK);
  EXPECT_EQ(inst->TotalMem(inst), 48u * 80 + 32);
  EXPECT_EQ(inst->TotalMem(inst), host.bytesAlive("records"));
}

TEST_F(Accessors, TotalMemStaysWhenRecordsGoAndFallsToZeroWhenCleared) {
  MORVAInst *inst = create(Mode::fixed);
  addAll(inst, 1, 40);
  const uint64_t full = inst->TotalMem(inst);
  for (uint64_t key = 1; key != 41; ++key) EXPECT_EQ(remove(inst, key), MORVA_OK);
  EXPECT_EQ(inst->TotalMem(inst), full);
  EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
  EXPECT_EQ(inst->TotalMem(inst), full);
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(inst->TotalMem(inst), 0u);
}

TEST_F(Accessors, TotalMemOfVariableKeysIsZero) {
  MORVAInst *inst = create(Mode::variable);
  addAll(inst, 1, 10);
  EXPECT_EQ(inst->TotalMem(inst), 0u);
}

TEST_F(Accessors, CallNothingOfTheHost) {
  MORVAInst *inst = create(Mode::fixed);
  ASSERT_EQ(add(inst, 1), MORVA_OK);
  host.forget();
  inst->NumElements(inst);
  inst->HashSize(inst);
  inst->BucketSize(inst, 0);
  inst->RecSize(inst);
  inst->TotalMem(inst);
  EXPECT_EQ(host.story(), "");
}

}  // namespace
}  // namespace morva_test
