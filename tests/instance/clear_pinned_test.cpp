// Emptying an instance that holds nodes the host has pinned.
#include "instance_test.h"

namespace morva_test {
namespace {

using ClearPinned = InstanceTest;

TEST_F(ClearPinned, APinnedNodeIsToldOfAndItsBucketEmptiedAllTheSame) {
  for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    for (const bool keep : {false, true}) {
      MORVAInst *inst = create(mode, flagOrdered);
      addAll(inst, 1, 20);
      PinnedEntry *entry = pin(inst, nodeOf(inst, 7));
      EXPECT_EQ(keep ? inst->Clear2(inst) : inst->Clear(inst), MORVA_PINNED);
      expectEmpty(inst);
      EXPECT_EQ(inst->pinned, entry);
      if (!keep) {
        EXPECT_EQ(host.blocksAlive("records") + host.blocksAlive("varkeys"), 0u);
      }
      for (uint64_t key = 1; key != 21; ++key) EXPECT_EQ(find(inst, key), nullptr);
      destroy(inst);
    }
  }
}

TEST_F(ClearPinned, APinnedNodeStaysOutOfUseAfterClear2) {
  for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    MORVAInst *inst = create(mode, flagOrdered);
    addAll(inst, 1, 10);
    RecordNode *node = nodeOf(inst, 4);
    const size_t scratch = freeRecordsOf(inst).size();
    pin(inst, node);
    host.forget();
    EXPECT_EQ(inst->Clear2(inst), MORVA_PINNED);
    EXPECT_EQ(host.count(Call::unlink), 9u);
    const std::vector<RecordNode *> chain = freeRecordsOf(inst);
    EXPECT_EQ(chain.size(), 9 + scratch);
    EXPECT_THAT(chain, ::testing::Not(::testing::Contains(node)));
    EXPECT_EQ(freeInodesOf(inst).size(), 9u);
    addAll(inst, 100, 30);
    for (uint64_t key = 100; key != 130; ++key) EXPECT_NE(nodeOf(inst, key), node);
  }
}

TEST_F(ClearPinned, APinnedNodeKeepsItsDuplicatesOffTheFreeChain) {
  MORVAInst *inst = create(Mode::fixed, flagMultiData, 16, 0);
  for (int i = 0; i != 4; ++i) ASSERT_EQ(add(inst, 1), MORVA_OK);
  for (int i = 0; i != 2; ++i) ASSERT_EQ(add(inst, 2), MORVA_OK);
  pin(inst, slotOf(inst->recordBlocks, inst->RecSize(inst), 0));
  EXPECT_EQ(inst->Clear2(inst), MORVA_PINNED);
  EXPECT_EQ(freeRecordsOf(inst).size(), 2u);
  expectEmpty(inst);
}

TEST_F(ClearPinned, EveryPinnedNodeCountsWhereverItIsInTheList) {
  MORVAInst *inst = create(Mode::fixed);
  addAll(inst, 1, 6);
  for (const uint64_t key : {1, 3, 6}) pin(inst, nodeOf(inst, key));
  EXPECT_EQ(inst->Clear2(inst), MORVA_PINNED);
  // Six records and the scratch of the lookups, less three.
  EXPECT_EQ(freeRecordsOf(inst).size(), 4u);
}

TEST_F(ClearPinned, APinnedEntryOfNoStoredNodeChangesNothing) {
  MORVAInst *inst = create(Mode::fixed);
  addAll(inst, 1, 6);
  RecordNode elsewhere = {};
  pin(inst, &elsewhere);
  pin(inst, nullptr);
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
}

}  // namespace
}  // namespace morva_test
