// Emptying an instance while its memory is kept for reuse.
#include "instance_test.h"

namespace morva_test {
namespace {

using Clear2 = InstanceTest;

class Clear2WithContainerLocks : public InstanceTest {
 protected:
  Clear2WithContainerLocks() : InstanceTest(withContainerLocks()) {}
};

TEST_F(Clear2WithContainerLocks, Clear2UnlinksEachNodeAndThenEmptiesTreeAndOrderList) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered, 16, 0);
  addAll(inst, 1, 2);
  host.forget();
  std::vector<bool> headSet;
  host.onEvent = [&](const Event &event) {
    if (event.text == "tree") headSet.push_back(inst->tree->head != nullptr);
  };
  EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
  EXPECT_EQ(host.story(),
            "acquire treeFirst treeNext unlink treeNext unlink acquire(tree) release(tree) "
            "acquire(order) release(order) release");
  EXPECT_THAT(headSet, ::testing::ElementsAre(true, false));
  EXPECT_EQ(inst->tree->head, nullptr);
  EXPECT_EQ(inst->orderList->head, nullptr);
  for (const Event &event : host.eventsOf(Call::acquire)) EXPECT_EQ(event.a, 1u);
  // The instance's lock and one other, never both others.
  EXPECT_EQ(host.mostLocksHeldAtOnce(), 2u);
}

TEST_F(Clear2, Clear2SetsTheHeadsWithoutLocksToo) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered, 16, 0);
  ASSERT_EQ(add(inst, 1), MORVA_OK);
  // A pinned record stays linked in the order until the head is cleared.
  pin(inst, nodeOf(inst, 1));
  ASSERT_NE(inst->tree->head, nullptr);
  ASSERT_NE(inst->orderList->head, nullptr);
  EXPECT_EQ(inst->Clear2(inst), MORVA_PINNED);
  EXPECT_EQ(inst->tree->head, nullptr);
  EXPECT_EQ(inst->orderList->head, nullptr);
}

TEST_F(Clear2WithContainerLocks, Clear2OfAnEmptyInstanceEmptiesTheContainersAllTheSame) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  ASSERT_NE(inst->tree->head, nullptr);
  host.forget();
  EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
  EXPECT_EQ(host.story(),
            "acquire acquire(tree) release(tree) acquire(order) release(order) release");
  EXPECT_EQ(inst->tree->head, nullptr);
}

TEST_F(Clear2, Clear2PutsNodesOnTheFreeChainsInTheOrderOfTheWalk) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered, 16, 0);
  // Big-endian order of single bytes: keys 1, 2, 3 come in this order.
  host.forget();
  for (const uint64_t key : {2, 3, 1}) ASSERT_EQ(add(inst, key), MORVA_OK);
  const std::vector<Event> appended = host.eventsOf(Call::append);
  RecordNode *nodes[] = {nodeOf(inst, 1), nodeOf(inst, 2), nodeOf(inst, 3)};
  RecordNode *scratch = inst->freeRecords;
  EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
  EXPECT_THAT(freeRecordsOf(inst), ::testing::ElementsAre(nodes[2], nodes[1], nodes[0], scratch));
  const auto inode = [&](size_t index) { return reinterpret_cast<OrderNode *>(appended[index].a); };
  EXPECT_THAT(freeInodesOf(inst), ::testing::ElementsAre(inode(1), inode(0), inode(2)));
}

TEST_F(Clear2, Clear2PutsDuplicatesOnTheFreeChainBeforeTheirFirstRecord) {
  MORVAInst *inst = create(Mode::fixed, flagMultiData, 16, 0);
  for (int i = 0; i != 3; ++i) ASSERT_EQ(add(inst, 1), MORVA_OK);
  // Slots follow one another: the first record, its two duplicates, the scratch.
  void *block = inst->recordBlocks;
  const uint64_t slotSize = inst->RecSize(inst);
  EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
  EXPECT_THAT(freeRecordsOf(inst),
              ::testing::ElementsAre(slotOf(block, slotSize, 0), slotOf(block, slotSize, 2),
                                     slotOf(block, slotSize, 1)));
}

TEST_F(Clear2, Clear2LeavesBlocksAndTheirCountersAlone) {
  for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    MORVAInst *inst = create(mode, flagOrdered);
    addAll(inst, 1, 70);
    MORVAInst before = *inst;
    const uint64_t records = host.blocksAlive("records"), nodes = host.blocksAlive("varkeys");
    const uint64_t inodes = host.blocksAlive("inodes");
    host.forget();
    EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
    EXPECT_EQ(host.count(Call::freeBlock), 0u);
    EXPECT_EQ(host.blocksAlive("records"), records);
    EXPECT_EQ(host.blocksAlive("varkeys"), nodes);
    EXPECT_EQ(host.blocksAlive("inodes"), inodes);
    expectEmpty(inst);
    EXPECT_EQ(freeRecordsOf(inst).size(), 70u);
    EXPECT_EQ(freeInodesOf(inst).size(), 70u);
    before.freeRecords = inst->freeRecords;
    before.freeInodes = inst->freeInodes;
    EXPECT_EQ(std::memcmp(inst, &before, sizeof before), 0);
  }
}

TEST_F(Clear2, AfterClear2AsManyRecordsTakeNoMemory) {
  for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    const uint32_t more = mode == Mode::variable ? 0 : uint32_t{flagMultiData};
    MORVAInst *inst = create(mode, flagOrdered | more);
    addAll(inst, 1, 100);
    if (more != 0) addAll(inst, 1, 30);
    EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
    host.forget();
    addAll(inst, 1000, 100);
    if (more != 0) addAll(inst, 1000, 30);
    EXPECT_EQ(host.count(Call::allocate), 0u) << nameOf(mode);
  }
}

}  // namespace
}  // namespace morva_test
