// Definitions that fail, and instances not defined yet.
#include "definition_test.h"

namespace morva_test {
namespace {

class DefineFailures : public DefinitionTest {};

TEST_F(DefineFailures, WithoutAPoolClosingIsRefusedAndMayBeRepeated) {
  MORVAInst *inst = open();
  EXPECT_EQ(field(inst, 8), MORVA_OK);
  host.forget();
  host.failCall(Call::createPool);
  EXPECT_EQ(done(inst), MORVA_INVALID);
  EXPECT_EQ(host.story(), "createPool(records)!");
  EXPECT_EQ(inst->flags & flagDefined, 0u);
  EXPECT_EQ(inst->recordPool, nullptr);
  EXPECT_EQ(inst->recordBlockMax, 2013265);
  EXPECT_EQ(add(inst, 1), MORVA_INVALID);
  EXPECT_EQ(done(inst), MORVA_OK);
  EXPECT_EQ(inst->recordBlockMax, 2013265 / 64);
  EXPECT_EQ(add(inst, 1), MORVA_OK);
}

TEST_F(DefineFailures, AClosingThatThePackerRefusesLeavesItsPoolToTheHost) {
  MORVAInst *inst = open();
  EXPECT_EQ(field(inst, 8), MORVA_OK);
  host.forget();
  host.failCall(Call::finish);
  EXPECT_EQ(done(inst), MORVA_NO_MEMORY);
  EXPECT_EQ(host.story(), "createPool(records) finish!");
  EXPECT_EQ(inst->flags & flagDefined, 0u);
  EXPECT_EQ(inst->recordBlockMax, 2013265);
  EXPECT_EQ(add(inst, 1), MORVA_INVALID);
  EXPECT_EQ(host.poolsAlive(), 2u);

  host.forget();
  EXPECT_EQ(done(inst), MORVA_OK);
  EXPECT_EQ(host.story(), "createPool(records) finish");
  EXPECT_EQ(host.poolsAlive(), 3u);
  EXPECT_EQ(inst->recordBlockMax, 2013265 / 64);
  EXPECT_EQ(add(inst, 1), MORVA_OK);

  // The instance knows its newest pool only.
  destroy(inst);
  EXPECT_EQ(host.poolsAlive(), 2u);
}

TEST_F(DefineFailures, FieldsMayFollowAClosingThatFailed) {
  MORVAInst *inst = open();
  EXPECT_EQ(field(inst, 8), MORVA_OK);
  host.failCall(Call::finish);
  EXPECT_EQ(done(inst), MORVA_NO_MEMORY);
  EXPECT_EQ(field(inst, 4), MORVA_OK);
  EXPECT_EQ(done(inst), MORVA_OK);
  EXPECT_EQ(inst->keyLength, 12u);
}

TEST_F(DefineFailures, WithoutAServiceTableClosingIsRefused) {
  MORVAInst *inst = open();
  EXPECT_EQ(field(inst, 8), MORVA_OK);
  qzextent(nullptr);
  EXPECT_EQ(done(inst), MORVA_INVALID);
  EXPECT_EQ(inst->flags & flagDefined, 0u);
  qzextent(host.services());
  EXPECT_EQ(done(inst), MORVA_OK);
}

TEST_F(DefineFailures, RecordsBeyondThirtyTwoBitsAreRefused) {
  struct Case {
    uint32_t flags;
    std::vector<uint32_t> lengths;
    uint32_t dataLength;
  };
  const Case cases[] = {{0, {0xFFFFFFD1}, 0},       {0, {8}, 0xFFFFFFC9},
                        {flagSum, {8}, 0xFFFFFFC1}, {flagMultiData, {8}, 0xFFFFFFB1},
                        {flagSum, {0xFFFFFFC9}, 0}, {0, {0x80000000, 0x80000000}, 0},
                        {0, {0xFFFFFFFF, 9}, 16},   {0, {8}, 0xFFFFFFFF}};
  for (const Case &c : cases) {
    MORVAInst *inst = open(c.flags);
    for (const uint32_t length : c.lengths) field(inst, length);
    EXPECT_EQ(done(inst, 0, c.dataLength), MORVA_INVALID);
    EXPECT_EQ(inst->flags & flagDefined, 0u);
    EXPECT_EQ(add(inst, 1), MORVA_INVALID);
  }
}

TEST_F(DefineFailures, TheLargestRecordsThatFitAreAccepted) {
  MORVAInst *inst = open(flagSum | flagMultiData);
  EXPECT_EQ(field(inst, 8), MORVA_OK);
  EXPECT_EQ(done(inst, 0, 0xFFFFFFA8), MORVA_OK);
  EXPECT_EQ(inst->recordSize, 0xFFFFFFD0u);
  EXPECT_EQ(inst->RecSize(inst), 0xFFFFFFF0u);
}

// ---- before the definition --------------------------------------------------

TEST_F(DefineFailures, AnOpenInstanceRefusesEveryOperationWithoutCallingTheHost) {
  MORVAInst *inst = open(flagSum | flagMultiData);
  MORVAInst *other = create(Mode::fixed);
  EXPECT_EQ(field(inst, 8), MORVA_OK);
  host.forget();
  uint64_t key = 1;
  char data[16] = {};
  void *found = data;
  void *cursor = data;
  double sum = 7;
  uint32_t number = 7;
  alignas(8) char probe[64];
  RecordNode *node = nullptr;
  EXPECT_EQ(MORVAAdd(inst, data, &key, 8), MORVA_INVALID);
  EXPECT_EQ(MORVAReplace(inst, data, &key, 8), MORVA_INVALID);
  EXPECT_EQ(MORVAFastAdd(inst, data, &key, 8), MORVA_INVALID);
  EXPECT_EQ(MORVAFastReplace(inst, data, &key, 8), MORVA_INVALID);
  EXPECT_EQ(MORVAFind(inst, &key, 8, &found), MORVA_INVALID);
  EXPECT_EQ(MORVAFastFind(inst, &key, 8, &found), MORVA_INVALID);
  EXPECT_EQ(MORVAFind2(inst, &key, 8, reinterpret_cast<RecordNode *>(probe), &found),
            MORVA_INVALID);
  EXPECT_EQ(MORVAFindNode(inst, &key, 8, &node, &number), MORVA_INVALID);
  EXPECT_EQ(MORVARemove(inst, &key, 8), MORVA_INVALID);
  EXPECT_EQ(MORVARemoveDup(inst, &cursor, &key, 8), MORVA_INVALID);
  EXPECT_EQ(MORVASum(inst, &key, 8, &sum), MORVA_INVALID);
  EXPECT_EQ(MORVASumDup(inst, data, &sum), MORVA_INVALID);
  EXPECT_EQ(MORVASumKey(inst, data, &sum, 0), MORVA_INVALID);
  EXPECT_EQ(MORVAReplaceDup(inst, data, data), MORVA_INVALID);
  EXPECT_EQ(MORVAFindNext(inst, data, &found), MORVA_INVALID);
  EXPECT_EQ(MORVAFindPrev(inst, data, &found), MORVA_INVALID);
  EXPECT_EQ(MORVAHasNext(inst, data), 0u);
  EXPECT_EQ(MORVAHasPrev(inst, data), 0u);
  EXPECT_EQ(MORVAHashVal(inst, &key, 8, &number), MORVA_INVALID);
  EXPECT_EQ(MORVAEquals(inst, other, &number), MORVA_INVALID);
  EXPECT_EQ(MORVAEquals(other, inst, &number), MORVA_INVALID);
  EXPECT_EQ(MORVAClear(inst), MORVA_INVALID);
  EXPECT_EQ(MORVAClear2(inst), MORVA_INVALID);
  MORVASetSumInc(inst, 3.0);
  EXPECT_EQ(inst->sumIncrement, 0.0);
  EXPECT_EQ(found, data);
  EXPECT_EQ(cursor, data);
  EXPECT_EQ(sum, 7);
  EXPECT_EQ(number, 7u);
  EXPECT_EQ(host.story(), "");
}

}  // namespace
}  // namespace morva_test
