// Emptying an instance and giving its memory back, step by step.
#include <limits>

#include "instance_test.h"

namespace morva_test {
namespace {

using Clear = InstanceTest;

class ClearWithContainerLocks : public InstanceTest {
 protected:
  ClearWithContainerLocks() : InstanceTest(withContainerLocks()) {}
};

// ---- refusals ---------------------------------------------------------------

TEST_F(Clear, AMissingInstanceIsRefused) {
  EXPECT_EQ(MORVAClear(nullptr), MORVA_INVALID);
  EXPECT_EQ(MORVAClear2(nullptr), MORVA_INVALID);
}

TEST_F(Clear, AnOpenInstanceIsRefusedWithoutTheLock) {
  Shape shape;
  shape.flags = 0;
  MORVAInst *inst = create(shape);
  host.forget();
  EXPECT_EQ(inst->Clear(inst), MORVA_INVALID);
  EXPECT_EQ(inst->Clear2(inst), MORVA_INVALID);
  EXPECT_EQ(host.story(), "");
}

// ---- the calls of MORVAClear ------------------------------------------------

TEST_F(Clear, WalksTheBucketThenFreesTheBlocksUnderTheLock) {
  MORVAInst *inst = create(Mode::fixed, 0, 16, 0);
  addAll(inst, 1, 3);
  host.forget();
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(host.story(),
            "acquire treeFirst treeNext treeNext treeNext freeBlock(records) release");
  expectEmpty(inst);
}

TEST_F(Clear, AsksForEveryBucketUpToTheMask) {
  for (const bool keep : {false, true}) {
    MORVAInst *inst = create(Mode::fixed);
    ASSERT_EQ(add(inst, 1), MORVA_OK);
    host.forget();
    EXPECT_EQ(keep ? inst->Clear2(inst) : inst->Clear(inst), MORVA_OK);
    const std::vector<Event> firsts = host.eventsOf(Call::treeFirst);
    ASSERT_EQ(firsts.size(), 16u);
    for (uint32_t index = 0; index != 16; ++index) {
      EXPECT_EQ(firsts[index].c, reinterpret_cast<uintptr_t>(MORVABucketAt(inst->buckets, index)));
    }
  }
}

TEST_F(Clear, AnEmptyInstanceIsNotWalked) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  host.forget();
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(host.story(), "acquire release");
  host.forget();
  EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
  EXPECT_EQ(host.story(), "acquire release");
}

TEST_F(Clear, AnEmptyInstanceStillGivesItsBlocksBack) {
  MORVAInst *inst = create(Mode::fixed);
  find(inst, 1);
  ASSERT_EQ(host.blocksAlive("records"), 1u);
  host.forget();
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(host.story(), "acquire freeBlock(records) release");
  EXPECT_EQ(inst->TotalMem(inst), 0u);
  EXPECT_EQ(inst->freeRecords, nullptr);
  EXPECT_EQ(inst->recordBlocks, nullptr);
}

TEST_F(Clear, FreesEveryBlockNewestFirst) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered | flagNoLock, 16, 0);
  addAll(inst, 1, 16 + 32 + 64);
  std::vector<uintptr_t> expected;
  for (void *block : blockChain(inst->recordBlocks)) {
    expected.push_back(reinterpret_cast<uintptr_t>(block));
  }
  for (void *block : blockChain(inst->inodeBlocks)) {
    expected.push_back(reinterpret_cast<uintptr_t>(block));
  }
  ASSERT_EQ(expected.size(), 6u);
  host.forget();
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  std::vector<uintptr_t> freed;
  for (const Event &event : host.eventsOf(Call::freeBlock)) freed.push_back(event.c);
  EXPECT_EQ(freed, expected);
  EXPECT_EQ(host.blocksAlive("records"), 0u);
  EXPECT_EQ(host.blocksAlive("inodes"), 0u);
}

TEST_F(Clear, WithoutALockTakesNone) {
  MORVAInst *inst = create(Mode::fixed, flagNoLock | flagOrdered, 16, 0);
  ASSERT_EQ(add(inst, 1), MORVA_OK);
  host.forget();
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(host.story(), "treeFirst treeNext freeBlock(records) freeBlock(inodes)");
  ASSERT_EQ(add(inst, 1), MORVA_OK);
  host.forget();
  EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
  EXPECT_EQ(host.story(), "treeFirst treeNext unlink");
}

TEST_F(ClearWithContainerLocks, ClearEmptiesTheOrderListUnderItsLockBeforeTheBlocksGo) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered, 16, 0);
  ASSERT_EQ(add(inst, 1), MORVA_OK);
  ASSERT_NE(inst->tree->head, nullptr);
  host.forget();
  std::vector<bool> headSet;
  host.onEvent = [&](const Event &event) {
    if (event.text == "order") headSet.push_back(inst->orderList->head != nullptr);
  };
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(host.story(),
            "acquire treeFirst treeNext acquire(order) release(order) freeBlock(records) "
            "freeBlock(inodes) release");
  EXPECT_THAT(headSet, ::testing::ElementsAre(true, false));
  for (const Event &event : host.eventsOf(Call::acquire)) EXPECT_EQ(event.a, 1u);
  EXPECT_EQ(host.mostLocksHeldAtOnce(), 2u);
  // The tree's head is for the other clear operation only.
  EXPECT_NE(inst->tree->head, nullptr);
}

TEST_F(ClearWithContainerLocks, ClearWithoutALockStillTakesTheOrderLists) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered | flagNoLock, 16, 0);
  host.forget();
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(host.story(), "acquire(order) release(order)");
}

TEST_F(ClearWithContainerLocks, ClearWithoutAnOrderListTakesNoContainerLock) {
  MORVAInst *inst = create(Mode::fixed);
  host.forget();
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(host.story(), "acquire release");
}

// ---- what MORVAClear leaves -------------------------------------------------

TEST_F(Clear, ResetsWhatCountsBlocksAndKeepsWhatWasChosen) {
  for (const Mode mode : {Mode::fixed, Mode::defined}) {
    MORVAInst *inst = create(mode, flagOrdered | flagSum | flagMultiData);
    inst->SetSumInc(inst, 1.5);
    const MORVAInst before = *inst;
    addAll(inst, 1, 50);
    addAll(inst, 1, 20);
    EXPECT_EQ(remove(inst, 3), MORVA_OK);
    EXPECT_EQ(inst->Clear(inst), MORVA_OK);
    expectEmpty(inst);
    EXPECT_EQ(inst->recordBlocks, nullptr);
    EXPECT_EQ(inst->inodeBlocks, nullptr);
    EXPECT_EQ(inst->freeRecords, nullptr);
    EXPECT_EQ(inst->freeInodes, nullptr);
    EXPECT_EQ(inst->recordsUsed, 8);
    EXPECT_EQ(inst->recordBlockCapacity, 8);
    EXPECT_EQ(inst->inodesUsed, 8);
    EXPECT_EQ(inst->inodeBlockCapacity, 8);
    EXPECT_EQ(inst->recordBlockCount, 0u);
    EXPECT_EQ(inst->totalMem, 0u);
    // Nothing else has changed since the instance was made.
    EXPECT_EQ(std::memcmp(inst, &before, sizeof before), 0);
  }
}

TEST_F(Clear, TheNextRecordStartsABlockOfSixteen) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  addAll(inst, 1, 100);
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  host.forget();
  ASSERT_EQ(add(inst, 1), MORVA_OK);
  const std::vector<Event> blocks = host.eventsOf(Call::allocate);
  ASSERT_EQ(blocks.size(), 2u);
  EXPECT_EQ(blocks[0].a, 16u * 80 + 16);
  EXPECT_EQ(blocks[1].a, 16u * 24 + 16);
}

TEST_F(Clear, KeepsALimitThatWasHalved) {
  Shape shape;
  shape.dataLength = (uint32_t{32} << 20) - 56;
  shape.memHint = std::numeric_limits<int64_t>::max();
  MORVAInst *inst = create(shape);
  ASSERT_EQ(inst->Find(inst, "k", 1, nullptr), MORVA_OK);
  ASSERT_EQ(inst->recordBlockMax, 8);
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(inst->recordBlockMax, 8);
  host.forget();
  ASSERT_EQ(inst->Find(inst, "k", 1, nullptr), MORVA_OK);
  EXPECT_EQ(host.eventsOf(Call::allocate).at(0).a, (uint64_t{256} << 20) + 16);
}

TEST_F(Clear, ClearingTwiceAnswersZeroBothTimes) {
  for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    MORVAInst *inst = create(mode, flagOrdered);
    addAll(inst, 1, 30);
    EXPECT_EQ(inst->Clear(inst), MORVA_OK);
    EXPECT_EQ(inst->Clear(inst), MORVA_OK);
    addAll(inst, 1, 30);
    EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
    EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
    expectEmpty(inst);
  }
}

TEST_F(Clear, AClearedInstanceTakesRecordsAtOnce) {
  for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    for (const bool keep : {false, true}) {
      MORVAInst *inst = create(mode, flagOrdered);
      addAll(inst, 1, 40);
      EXPECT_EQ(keep ? inst->Clear2(inst) : inst->Clear(inst), MORVA_OK);
      for (uint64_t key = 1; key != 41; ++key) EXPECT_EQ(find(inst, key), nullptr);
      addAll(inst, 21, 40);
      for (uint64_t key = 1; key != 61; ++key) EXPECT_EQ(find(inst, key) != nullptr, key >= 21);
      EXPECT_EQ(inst->NumElements(inst), 40u);
      EXPECT_EQ(host.order(inst).size(), 40u);
      EXPECT_EQ(host.order(inst).front(), nodeOf(inst, 21));
    }
  }
}

TEST_F(Clear, ManyRecordsUnderOneKeyGoWithIt) {
  for (const bool keep : {false, true}) {
    MORVAInst *inst = create(Mode::fixed, flagMultiData | flagOrdered);
    for (int i = 0; i != 25; ++i) ASSERT_EQ(add(inst, 1), MORVA_OK);
    ASSERT_EQ(add(inst, 2), MORVA_OK);
    EXPECT_EQ(keep ? inst->Clear2(inst) : inst->Clear(inst), MORVA_OK);
    expectEmpty(inst);
    EXPECT_EQ(find(inst, 1), nullptr);
  }
}

// ---- variable keys ----------------------------------------------------------

TEST_F(Clear, VariableKeysGiveEveryNodeBack) {
  MORVAInst *inst = create(Mode::variable, flagOrdered);
  for (int round = 0; round != 20; ++round) {
    addAll(inst, 1, 60);
    for (uint64_t key = 1; key != 21; ++key) EXPECT_EQ(remove(inst, key), MORVA_OK);
    EXPECT_EQ(add(inst, 30), MORVA_PRESENT);
    EXPECT_GT(host.blocksAlive("varkeys"), 40u);
    EXPECT_EQ(inst->Clear(inst), MORVA_OK);
    EXPECT_EQ(host.blocksAlive("varkeys"), 0u);
    EXPECT_EQ(host.blocksAlive("inodes"), 0u);
    EXPECT_EQ(inst->freeRecords, nullptr);
    expectEmpty(inst);
  }
}

TEST_F(Clear, VariableKeysGiveTheScratchNodesOfAnEmptyInstanceBack) {
  MORVAInst *inst = create(Mode::variable);
  for (const int32_t length : {1, 5, 9}) {
    ASSERT_EQ(inst->Find(inst, "something", length, nullptr), MORVA_OK);
  }
  ASSERT_EQ(host.blocksAlive("varkeys"), 3u);
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(host.blocksAlive("varkeys"), 0u);
  EXPECT_EQ(inst->freeRecords, nullptr);
}

TEST_F(Clear, VariableKeysGivePinnedNodesBackToo) {
  MORVAInst *inst = create(Mode::variable);
  addAll(inst, 1, 5);
  pin(inst, nodeOf(inst, 3));
  EXPECT_EQ(inst->Clear(inst), MORVA_PINNED);
  EXPECT_EQ(host.blocksAlive("varkeys"), 0u);
  expectEmpty(inst);
}

TEST_F(Clear, VariableKeysAreGivenBackUnderTheLock) {
  MORVAInst *inst = create(Mode::variable);
  addAll(inst, 1, 5);
  host.forget();
  host.onEvent = [&](const Event &event) {
    if (event.call == Call::freeBlock) {
      EXPECT_EQ(host.locksHeld(), 1u);
    }
  };
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(host.count(Call::freeBlock), 5u);
}

}  // namespace
}  // namespace morva_test
