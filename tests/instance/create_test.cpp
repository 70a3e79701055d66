// Creation that succeeds: what the host is asked for, in which order, and what
// the new instance holds.
#include "instance_test.h"

namespace morva_test {
namespace {

class Create : public InstanceTest {
 protected:
  // The host calls of one creation.
  std::string storyOf(uint32_t flags, const char *name = nullptr) {
    Shape shape;
    shape.flags = flags;
    host.forget();
    EXPECT_NE(create(shape, name), nullptr);
    return host.story();
  }
};

// ---- the order of the host calls --------------------------------------------

TEST_F(Create, FixedKeysAskForRecordsBucketsTreeAndLock) {
  EXPECT_EQ(storyOf(flagFixedKey),
            "allocate(MORVA Extension) createPool(records) allocate(MORVA Extension) "
            "loadExtension(qzeavl) makeTree createLock");
}

TEST_F(Create, VariableKeysAskForTheVarkeysPoolInstead) {
  EXPECT_EQ(storyOf(flagVarKey),
            "allocate(MORVA Extension) createPool(varkeys) allocate(MORVA Extension) "
            "loadExtension(qzeavl) makeTree createLock");
}

TEST_F(Create, DefinedKeysAskForThePackerAndForNoPoolYet) {
  EXPECT_EQ(storyOf(0),
            "allocate(MORVA Extension) loadExtension(qzevp) makePacker allocate(MORVA Extension) "
            "loadExtension(qzeavl) makeTree createLock");
}

TEST_F(Create, ANameIsCopiedRightAfterTheInstance) {
  EXPECT_EQ(storyOf(flagFixedKey, "orders"),
            "allocate(MORVA Extension) allocate(MORVA Extension) createPool(records) "
            "allocate(MORVA Extension) loadExtension(qzeavl) makeTree createLock");
}

TEST_F(Create, TheOrderListComesAfterTheLock) {
  const std::string order = " createPool(inodes) loadExtension(qzeai) makeOrderList";
  EXPECT_EQ(storyOf(flagFixedKey | flagOrdered),
            "allocate(MORVA Extension) createPool(records) allocate(MORVA Extension) "
            "loadExtension(qzeavl) makeTree createLock" +
                order);
  EXPECT_EQ(storyOf(flagVarKey | flagOrdered),
            "allocate(MORVA Extension) createPool(varkeys) allocate(MORVA Extension) "
            "loadExtension(qzeavl) makeTree createLock" +
                order);
  EXPECT_EQ(storyOf(flagOrdered),
            "allocate(MORVA Extension) loadExtension(qzevp) makePacker allocate(MORVA Extension) "
            "loadExtension(qzeavl) makeTree createLock" +
                order);
}

TEST_F(Create, NoLockMakesNone) {
  EXPECT_EQ(storyOf(flagFixedKey | flagNoLock),
            "allocate(MORVA Extension) createPool(records) allocate(MORVA Extension) "
            "loadExtension(qzeavl) makeTree");
  EXPECT_EQ(storyOf(flagFixedKey | flagNoLock | flagOrdered),
            "allocate(MORVA Extension) createPool(records) allocate(MORVA Extension) "
            "loadExtension(qzeavl) makeTree createPool(inodes) loadExtension(qzeai) "
            "makeOrderList");
}

// ---- what the host is told --------------------------------------------------

TEST_F(Create, EachPoolHasItsOptionWordAndNoContext) {
  create(Mode::fixed, flagOrdered);
  create(Mode::variable);
  create(Mode::defined);
  const std::vector<Event> pools = host.eventsOf(Call::createPool);
  ASSERT_EQ(pools.size(), 5u);
  const auto expect = [&](size_t index, const char *name, uint32_t options) {
    EXPECT_EQ(pools[index].text, name);
    EXPECT_EQ(pools[index].a, 0u);
    EXPECT_EQ(pools[index].b, options);
  };
  expect(0, "MORVA Extension", 0);
  expect(1, "records", 0x1000000);
  expect(2, "inodes", 0);
  expect(3, "varkeys", 0x80000000);
  expect(4, "records", 0x1000000);
}

TEST_F(Create, CompanionsAreAskedForByLengthAndZero) {
  create(Mode::defined, flagOrdered);
  const std::vector<Event> loads = host.eventsOf(Call::loadExtension);
  ASSERT_EQ(loads.size(), 3u);
  EXPECT_EQ(loads[0].a, 5u);
  EXPECT_EQ(loads[1].a, 6u);
  EXPECT_EQ(loads[2].a, 5u);
  for (const Event &load : loads) EXPECT_EQ(load.b, 0u);
}

TEST_F(Create, ThePackerIsMadeWithZero) {
  create(Mode::defined);
  ASSERT_EQ(host.count(Call::makePacker), 1u);
  EXPECT_EQ(host.eventsOf(Call::makePacker)[0].a, 0u);
}

TEST_F(Create, TheTreeIsMadeWithTheExportedCallbacks) {
  create(Mode::fixed);
  ASSERT_EQ(host.count(Call::makeTree), 1u);
  const Event tree = host.eventsOf(Call::makeTree)[0];
  EXPECT_EQ(tree.a, 0u);
  EXPECT_EQ(tree.b, 1u);
  EXPECT_EQ(tree.c, reinterpret_cast<uintptr_t>(&aa_tree));
  EXPECT_EQ(tree.d, 0u);
}

TEST_F(Create, TheOrderListIsMadeWithTheTreeCompanion) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  ASSERT_EQ(host.count(Call::makeOrderList), 1u);
  EXPECT_EQ(host.eventsOf(Call::makeOrderList)[0].c, reinterpret_cast<uintptr_t>(inst->treeExt));
}

TEST_F(Create, TheLockGetsTheCallersContextAndNamePointer) {
  const char name[] = "ledger";
  int context = 0;
  MORVAParms parms = parmsOf(Shape());
  ASSERT_NE(adopt(ext->Create(ext.get(), &parms, &context, name)), nullptr);
  const Event lock = host.eventsOf(Call::createLock).at(0);
  EXPECT_EQ(lock.a, reinterpret_cast<uintptr_t>(&context));
  EXPECT_EQ(lock.d, reinterpret_cast<uintptr_t>(name));
  EXPECT_EQ(lock.b, 0u);
  EXPECT_EQ(lock.c, 1u);
}

TEST_F(Create, TheLockOfANamelessInstanceGetsANullName) {
  create(Mode::fixed);
  EXPECT_EQ(host.eventsOf(Call::createLock).at(0).d, 0u);
}

TEST_F(Create, LockOptTurnsTheSecondOptionByteOff) {
  create(Mode::fixed, flagLockOpt);
  const Event lock = host.eventsOf(Call::createLock).at(0);
  EXPECT_EQ(lock.b, 0u);
  EXPECT_EQ(lock.c, 0u);
}

TEST_F(Create, InstanceAndBucketsAreZeroFilledAndTheNameIsNot) {
  MORVAInst *inst = create(Shape(), "orders");
  ASSERT_NE(inst, nullptr);
  std::vector<Event> blocks = host.eventsOf(Call::allocate);
  ASSERT_EQ(blocks.size(), 4u);  // the extension object is the first
  EXPECT_EQ(blocks[1].c, reinterpret_cast<uintptr_t>(inst));
  EXPECT_GE(blocks[1].a, sizeof(MORVAInst));
  EXPECT_EQ(blocks[1].b, MORVA_ZERO_FILL);
  EXPECT_EQ(blocks[2].c, reinterpret_cast<uintptr_t>(inst->name));
  EXPECT_EQ(blocks[2].a, 6u);
  EXPECT_EQ(blocks[2].b, 0u);
  EXPECT_EQ(blocks[3].c, reinterpret_cast<uintptr_t>(inst->buckets));
  EXPECT_EQ(blocks[3].a, 16u * 16 + 32);
  EXPECT_EQ(blocks[3].b, MORVA_ZERO_FILL);
}

// ---- the name ---------------------------------------------------------------

TEST_F(Create, TheNameCopyHasTheCharactersAndNoTerminator) {
  char name[] = "orders";
  MORVAInst *inst = create(Shape(), name);
  ASSERT_NE(inst, nullptr);
  name[0] = '#';
  ASSERT_NE(inst->name, name);
  EXPECT_EQ(host.blockSize(inst->name), 6u);
  EXPECT_EQ(std::string(inst->name, 6), "orders");
}

TEST_F(Create, ANameOfLengthZeroGivesACopyOfLengthZero) {
  MORVAInst *inst = create(Shape(), "");
  ASSERT_NE(inst, nullptr);
  ASSERT_NE(inst->name, nullptr);
  EXPECT_TRUE(host.isBlock(inst->name));
  EXPECT_EQ(host.blockSize(inst->name), 0u);
}

TEST_F(Create, NoNameStaysNull) {
  EXPECT_EQ(create(Shape())->name, nullptr);
}

TEST_F(Create, ANameThatCannotBeCopiedIsLeftOut) {
  host.failCall(Call::allocate, 2);
  MORVAInst *inst = create(Shape(), "orders");
  ASSERT_NE(inst, nullptr);
  EXPECT_EQ(host.failuresDelivered(), 1u);
  EXPECT_EQ(inst->name, nullptr);
  // The lock hears the name all the same.
  EXPECT_EQ(host.eventsOf(Call::createLock).at(0).text, "orders");
  EXPECT_EQ(add(inst, 1), MORVA_OK);
}

// ---- the operation table ----------------------------------------------------

void expectCommonOperations(const MORVAInst *inst) {
  EXPECT_EQ(inst->Destroy, &MORVADestroy);
  EXPECT_EQ(inst->Remove, &MORVARemove);
  EXPECT_EQ(inst->DefineKey, &MORVADefineKey);
  EXPECT_EQ(inst->DefineDone, &MORVADefineDone);
  EXPECT_EQ(inst->Sum, &MORVASum);
  EXPECT_EQ(inst->FindNext, &MORVAFindNext);
  EXPECT_EQ(inst->FindPrev, &MORVAFindPrev);
  EXPECT_EQ(inst->HasNext, &MORVAHasNext);
  EXPECT_EQ(inst->HasPrev, &MORVAHasPrev);
  EXPECT_EQ(inst->SumDup, &MORVASumDup);
  EXPECT_EQ(inst->SumKey, &MORVASumKey);
  EXPECT_EQ(inst->ReplaceDup, &MORVAReplaceDup);
  EXPECT_EQ(inst->RemoveDup, &MORVARemoveDup);
  EXPECT_EQ(inst->Clear, &MORVAClear);
  EXPECT_EQ(inst->Equals, &MORVAEquals);
  EXPECT_EQ(inst->HashVal, &MORVAHashVal);
  EXPECT_EQ(inst->NumElements, &MORVANumElements);
  EXPECT_EQ(inst->HashSize, &MORVAHashSize);
  EXPECT_EQ(inst->BucketSize, &MORVABucketSize);
  EXPECT_EQ(inst->SetSumInc, &MORVASetSumInc);
  EXPECT_EQ(inst->RecSize, &MORVARecSize);
  EXPECT_EQ(inst->TotalMem, &MORVATotalMem);
  EXPECT_EQ(inst->Clear2, &MORVAClear2);
  EXPECT_EQ(inst->Find2, &MORVAFind2);
  EXPECT_EQ(inst->Recoff, &MORVARecoff);
  EXPECT_EQ(inst->FindNode, &MORVAFindNode);
}

TEST_F(Create, FastOperationsServeInstancesWithoutSumsAndDuplicates) {
  for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    for (const uint32_t flags : {uint32_t{0}, uint32_t{flagOrdered}, uint32_t{flagNoLock}}) {
      MORVAInst *inst = create(mode, flags);
      EXPECT_EQ(inst->Add, &MORVAFastAdd);
      EXPECT_EQ(inst->Replace, &MORVAFastReplace);
      EXPECT_EQ(inst->Find, &MORVAFastFind);
      expectCommonOperations(inst);
    }
  }
}

TEST_F(Create, GeneralOperationsServeSumsAndDuplicates) {
  for (const Mode mode : {Mode::fixed, Mode::defined}) {
    for (const uint32_t flags :
         {uint32_t{flagSum}, uint32_t{flagMultiData}, uint32_t{flagSum | flagMultiData}}) {
      MORVAInst *inst = create(mode, flags);
      EXPECT_EQ(inst->Add, &MORVAAdd);
      EXPECT_EQ(inst->Replace, &MORVAReplace);
      EXPECT_EQ(inst->Find, &MORVAFind);
      expectCommonOperations(inst);
    }
  }
}

}  // namespace
}  // namespace morva_test
