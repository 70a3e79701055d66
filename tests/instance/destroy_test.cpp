// The end of an instance: what is released, in which order.
#include "instance_test.h"

namespace morva_test {
namespace {

class Destroy : public InstanceTest {
 protected:
  std::string storyOf(MORVAInst *inst) {
    host.forget();
    destroy(inst);
    return host.story();
  }

  std::vector<uintptr_t> freed() {
    std::vector<uintptr_t> addresses;
    for (const Event &event : host.eventsOf(Call::freeBlock)) addresses.push_back(event.c);
    return addresses;
  }

  void expectNothingLeft() {
    EXPECT_EQ(host.poolsAlive(), 1u);
    EXPECT_EQ(host.blocksAlive(), 1u);
    EXPECT_EQ(host.locksAlive(), 0u);
    EXPECT_EQ(host.companionsAlive(), 0u);
    EXPECT_EQ(host.objectsAlive(), 0u);
  }
};

const std::string kFree = "freeBlock(MORVA Extension)";

TEST_F(Destroy, FixedKeys) {
  Shape shape;
  MORVAInst *inst = create(shape, "name");
  addAll(inst, 1, 100);
  EXPECT_EQ(storyOf(inst),
            "destroyTree releaseCompanion(qzeavl) destroyLock destroyPool(records) " + kFree + " " +
                kFree + " " + kFree);
  expectNothingLeft();
}

TEST_F(Destroy, FixedKeysInOrder) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  addAll(inst, 1, 100);
  EXPECT_EQ(storyOf(inst),
            "destroyTree destroyOrderList releaseCompanion(qzeavl) releaseCompanion(qzeai) "
            "destroyLock destroyPool(records) destroyPool(inodes) " +
                kFree + " " + kFree);
  expectNothingLeft();
}

TEST_F(Destroy, VariableKeysInOrder) {
  MORVAInst *inst = create(Mode::variable, flagOrdered);
  addAll(inst, 1, 100);
  EXPECT_EQ(storyOf(inst),
            "destroyTree destroyOrderList releaseCompanion(qzeavl) releaseCompanion(qzeai) "
            "destroyLock destroyPool(varkeys) destroyPool(inodes) " +
                kFree + " " + kFree);
  expectNothingLeft();
}

TEST_F(Destroy, DefinedKeysInOrder) {
  MORVAInst *inst = create(Mode::defined, flagOrdered | flagSum | flagMultiData);
  addAll(inst, 1, 100);
  EXPECT_EQ(storyOf(inst),
            "destroyPacker releaseCompanion(qzevp) destroyTree destroyOrderList "
            "releaseCompanion(qzeavl) releaseCompanion(qzeai) destroyLock destroyPool(records) "
            "destroyPool(inodes) " +
                kFree + " " + kFree);
  expectNothingLeft();
}

TEST_F(Destroy, AnOpenInstanceHasNoRecordsPool) {
  Shape shape;
  shape.flags = 0;
  MORVAInst *inst = create(shape);
  EXPECT_EQ(storyOf(inst),
            "destroyPacker releaseCompanion(qzevp) destroyTree releaseCompanion(qzeavl) "
            "destroyLock " +
                kFree + " " + kFree);
  expectNothingLeft();
}

TEST_F(Destroy, WithoutALockDestroysNone) {
  MORVAInst *inst = create(Mode::fixed, flagNoLock);
  EXPECT_EQ(storyOf(inst),
            "destroyTree releaseCompanion(qzeavl) destroyPool(records) " + kFree + " " + kFree);
  expectNothingLeft();
}

TEST_F(Destroy, FreesBucketsThenNameThenInstance) {
  MORVAInst *inst = create(Shape(), "name");
  const std::vector<uintptr_t> expected = {reinterpret_cast<uintptr_t>(inst->buckets),
                                           reinterpret_cast<uintptr_t>(inst->name),
                                           reinterpret_cast<uintptr_t>(inst)};
  host.forget();
  destroy(inst);
  EXPECT_EQ(freed(), expected);
}

TEST_F(Destroy, FreesPinnedEntriesThenExtraBlocksBeforeAnythingElse) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  addAll(inst, 1, 5);
  std::vector<uintptr_t> expected;
  for (const uint64_t key : {1, 2, 3}) {
    PinnedEntry *entry = pin(inst, nodeOf(inst, key));
    expected.insert(expected.begin(), reinterpret_cast<uintptr_t>(entry));
  }
  std::vector<uintptr_t> extra;
  for (int i = 0; i != 3; ++i) {
    void *block = ext->pool->allocate(ext->pool, 100, 0);
    std::memcpy(block, &inst->extraBlocksB, sizeof inst->extraBlocksB);
    inst->extraBlocksB = block;
    extra.insert(extra.begin(), reinterpret_cast<uintptr_t>(block));
  }
  expected.insert(expected.end(), extra.begin(), extra.end());
  expected.push_back(reinterpret_cast<uintptr_t>(inst->buckets));
  expected.push_back(reinterpret_cast<uintptr_t>(inst));
  std::string six;
  for (int i = 0; i != 6; ++i) six += kFree + " ";
  EXPECT_EQ(storyOf(inst),
            six +
                "destroyTree destroyOrderList releaseCompanion(qzeavl) releaseCompanion(qzeai) "
                "destroyLock destroyPool(records) destroyPool(inodes) " +
                kFree + " " + kFree);
  EXPECT_EQ(freed(), expected);
  expectNothingLeft();
}

TEST_F(Destroy, TakesNoLock) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  addAll(inst, 1, 5);
  host.forget();
  destroy(inst);
  EXPECT_EQ(host.count(Call::acquire), 0u);
  EXPECT_EQ(host.count(Call::release), 0u);
}

TEST_F(Destroy, ReturnsPoolsWholeAndWalksNoRecord) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered | flagMultiData);
  addAll(inst, 1, 200);
  addAll(inst, 1, 200);
  host.forget();
  destroy(inst);
  EXPECT_EQ(host.count(Call::treeFirst), 0u);
  EXPECT_EQ(host.count(Call::unlink), 0u);
  for (const Event &event : host.eventsOf(Call::freeBlock)) {
    EXPECT_EQ(event.text, "MORVA Extension");
  }
}

TEST_F(Destroy, AClearedInstanceEndsTheSameWay) {
  for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    MORVAInst *inst = create(mode, flagOrdered);
    addAll(inst, 1, 30);
    EXPECT_EQ(inst->Clear(inst), MORVA_OK);
    destroy(inst);
    expectNothingLeft();
  }
}

TEST_F(Destroy, APartlyBuiltInstanceLosesWhatItHas) {
  // Everything an instance may be without is taken from it.
  MORVAInst *inst = create(Mode::defined, flagOrdered);
  inst->recordPacker->destroy(inst->recordPacker);
  inst->recordPacker = nullptr;
  inst->vpExt->release(inst->vpExt);
  inst->vpExt = nullptr;
  inst->tree->destroy(inst->tree);
  inst->tree = nullptr;
  inst->orderList->destroy(inst->orderList);
  inst->orderList = nullptr;
  inst->treeExt->release(inst->treeExt);
  inst->treeExt = nullptr;
  inst->aiExt->release(inst->aiExt);
  inst->aiExt = nullptr;
  inst->lock->destroy(inst->lock);
  inst->lock = nullptr;
  inst->recordPool->destroy(inst->recordPool);
  inst->recordPool = nullptr;
  inst->inodePool->destroy(inst->inodePool);
  inst->inodePool = nullptr;
  ext->pool->free(ext->pool, inst->buckets);
  inst->buckets = nullptr;
  EXPECT_EQ(storyOf(inst), kFree);
  expectNothingLeft();
}

TEST_F(Destroy, OneInstanceLeavesTheOthersAlone) {
  MORVAInst *one = create(Mode::fixed, flagOrdered);
  MORVAInst *two = create(Mode::fixed, flagOrdered);
  addAll(one, 1, 20);
  addAll(two, 1, 20);
  destroy(one);
  for (uint64_t key = 1; key != 21; ++key) EXPECT_NE(find(two, key), nullptr);
  EXPECT_EQ(host.order(two).size(), 20u);
}

}  // namespace
}  // namespace morva_test
