// Creation that fails: what is given back, in which order, and what is not.
#include "instance_test.h"

namespace morva_test {
namespace {

// Words of a story that recur.
const char kExt[] = "(MORVA Extension)";

std::string allocated(int times) {
  std::string text;
  for (int i = 0; i != times; ++i) text += std::string("allocate") + kExt + " ";
  return text;
}

std::string freed(int times) {
  std::string text;
  for (int i = 0; i != times; ++i) text += std::string(i == 0 ? "" : " ") + "freeBlock" + kExt;
  return text;
}

class CreateFailures : public InstanceTest {
 protected:
  // The host calls of a creation that must answer null.
  std::string failing(const Shape &shape, const char *name = "ab") {
    host.forget();
    parms_ = parmsOf(shape);
    MORVAInst *inst = adopt(ext->Create(ext.get(), &parms_, nullptr, name));
    EXPECT_EQ(inst, nullptr);
    host.failNever();
    return host.story();
  }

  std::string failing(uint32_t flags, Call call, uint64_t n = 1) {
    Shape shape;
    shape.flags = flags;
    host.failCall(call, n);
    return failing(shape);
  }

  // Nothing but the extension object and `locks` locks remains.
  void expectNothingLeft(uint64_t locks = 0) {
    EXPECT_EQ(host.poolsAlive(), 1u);
    EXPECT_EQ(host.blocksAlive(), 1u);
    EXPECT_EQ(host.companionsAlive(), 0u);
    EXPECT_EQ(host.objectsAlive(), 0u);
    EXPECT_EQ(host.locksAlive(), locks);
  }

  // Blocks of the extension's pool are given back as buckets, name, instance:
  // the last ones taken first, the instance before its name.
  void expectFreedInOrder() {
    std::vector<uint64_t> taken, given;
    for (const Event &event : host.events()) {
      if (event.call == Call::allocate && event.c != 0) taken.push_back(event.c);
      if (event.call == Call::freeBlock) given.push_back(event.c);
    }
    std::reverse(taken.begin(), taken.end());
    EXPECT_EQ(given, taken);
  }

  MORVAParms parms_;
};

// ---- nothing to start with --------------------------------------------------

TEST_F(CreateFailures, WithoutAnExtensionNothingIsDone) {
  MORVAParms parms = parmsOf(Shape());
  host.forget();
  EXPECT_EQ(MORVACreate(nullptr, &parms, nullptr, "ab"), nullptr);
  EXPECT_EQ(host.story(), "");
}

TEST_F(CreateFailures, WithoutParametersNothingIsDone) {
  host.forget();
  EXPECT_EQ(ext->Create(ext.get(), nullptr, nullptr, "ab"), nullptr);
  EXPECT_EQ(host.story(), "");
}

TEST_F(CreateFailures, WithoutAServiceTableNothingIsLeft) {
  for (const uint32_t flags : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, uint32_t{0}}) {
    Shape shape;
    shape.flags = flags;
    qzextent(nullptr);
    failing(shape);
    qzextent(host.services());
    expectNothingLeft();
  }
}

TEST_F(CreateFailures, WithoutMemoryForTheInstanceNothingElseIsDone) {
  EXPECT_EQ(failing(flagFixedKey | flagOrdered, Call::allocate, 1), "allocate(MORVA Extension)!");
  expectNothingLeft();
}

// ---- bits that exclude each other -------------------------------------------

TEST_F(CreateFailures, FixedWithVariableKeysIsRefusedBeforeAnyPool) {
  for (const uint32_t more : {0u, 0x8u, 0x40u, 0x100u, 0x200u, 0x343u}) {
    Shape shape;
    shape.flags = 0x24 | more;
    EXPECT_EQ(failing(shape), allocated(2) + freed(2));
    expectFreedInOrder();
    expectNothingLeft();
  }
}

TEST_F(CreateFailures, VariableKeysWithDuplicatesAreRefusedBeforeAnyPool) {
  for (const uint32_t more : {0u, 0x8u, 0x40u, 0x100u}) {
    Shape shape;
    shape.flags = 0x220 | more;
    EXPECT_EQ(failing(shape), allocated(2) + freed(2));
    expectFreedInOrder();
    expectNothingLeft();
  }
}

TEST_F(CreateFailures, VariableKeysWithSumsAreRefusedAfterTheirPool) {
  Shape shape;
  shape.flags = 0x120;
  EXPECT_EQ(failing(shape), allocated(2) + "createPool(varkeys) destroyPool(varkeys) " + freed(2));
  expectFreedInOrder();
  expectNothingLeft();
}

TEST_F(CreateFailures, ARefusalWithoutANameFreesTheInstanceOnly) {
  Shape shape;
  shape.flags = 0x24;
  EXPECT_EQ(failing(shape, nullptr), allocated(1) + freed(1));
  expectNothingLeft();
}

// ---- fixed keys, step by step -----------------------------------------------

class FixedKeyFailures : public CreateFailures {
 protected:
  const uint32_t flags_ = flagFixedKey | flagOrdered;
  const std::string buckets_ = allocated(2) + "createPool(records) " + allocated(1);
  const std::string tree_ = buckets_ + "loadExtension(qzeavl) makeTree ";
};

TEST_F(FixedKeyFailures, RecordsPool) {
  EXPECT_EQ(failing(flags_, Call::createPool), allocated(2) + "createPool(records)! " + freed(2));
  expectFreedInOrder();
  expectNothingLeft();
}

TEST_F(FixedKeyFailures, Buckets) {
  EXPECT_EQ(failing(flags_, Call::allocate, 3),
            allocated(2) + "createPool(records) allocate(MORVA Extension)! destroyPool(records) " +
                freed(2));
  expectFreedInOrder();
  expectNothingLeft();
}

TEST_F(FixedKeyFailures, TreeCompanion) {
  EXPECT_EQ(failing(flags_, Call::loadExtension, 1),
            buckets_ + "loadExtension(qzeavl)! destroyPool(records) " + freed(3));
  expectNothingLeft();
}

TEST_F(FixedKeyFailures, Tree) {
  EXPECT_EQ(failing(flags_, Call::makeTree),
            buckets_ +
                "loadExtension(qzeavl) makeTree! releaseCompanion(qzeavl) "
                "destroyPool(records) " +
                freed(3));
  expectFreedInOrder();
  expectNothingLeft();
}

TEST_F(FixedKeyFailures, Lock) {
  EXPECT_EQ(
      failing(flags_, Call::createLock),
      tree_ + "createLock! destroyTree releaseCompanion(qzeavl) destroyPool(records) " + freed(3));
  expectFreedInOrder();
  expectNothingLeft();
}

TEST_F(FixedKeyFailures, OrderNodePoolLeavesTheLockToTheHost) {
  EXPECT_EQ(failing(flags_, Call::createPool, 2),
            tree_ +
                "createLock createPool(inodes)! destroyTree releaseCompanion(qzeavl) "
                "destroyPool(records) " +
                freed(3));
  expectFreedInOrder();
  expectNothingLeft(1);
}

TEST_F(FixedKeyFailures, OrderCompanionLeavesTheLockToTheHost) {
  EXPECT_EQ(failing(flags_, Call::loadExtension, 2),
            tree_ +
                "createLock createPool(inodes) loadExtension(qzeai)! destroyTree "
                "releaseCompanion(qzeavl) destroyPool(records) destroyPool(inodes) " +
                freed(3));
  expectFreedInOrder();
  expectNothingLeft(1);
}

TEST_F(FixedKeyFailures, OrderListLeavesTheLockToTheHost) {
  EXPECT_EQ(failing(flags_, Call::makeOrderList),
            tree_ +
                "createLock createPool(inodes) loadExtension(qzeai) makeOrderList! destroyTree "
                "releaseCompanion(qzeavl) releaseCompanion(qzeai) destroyPool(records) "
                "destroyPool(inodes) " +
                freed(3));
  expectFreedInOrder();
  expectNothingLeft(1);
}

TEST_F(FixedKeyFailures, OrderListWithoutALockLeavesNothing) {
  EXPECT_EQ(failing(flags_ | flagNoLock, Call::makeOrderList),
            tree_ +
                "createPool(inodes) loadExtension(qzeai) makeOrderList! destroyTree "
                "releaseCompanion(qzeavl) releaseCompanion(qzeai) destroyPool(records) "
                "destroyPool(inodes) " +
                freed(3));
  expectNothingLeft();
}

// ---- variable keys ----------------------------------------------------------

class VariableKeyFailures : public CreateFailures {
 protected:
  const uint32_t flags_ = flagVarKey | flagOrdered;
  const std::string tree_ =
      allocated(2) + "createPool(varkeys) " + allocated(1) + "loadExtension(qzeavl) makeTree ";
};

TEST_F(VariableKeyFailures, VarkeysPool) {
  EXPECT_EQ(failing(flags_, Call::createPool), allocated(2) + "createPool(varkeys)! " + freed(2));
  expectNothingLeft();
}

TEST_F(VariableKeyFailures, VarkeysPoolThatWasToBeRefusedAnyway) {
  EXPECT_EQ(failing(flags_ | flagSum, Call::createPool),
            allocated(2) + "createPool(varkeys)! " + freed(2));
  expectNothingLeft();
}

TEST_F(VariableKeyFailures, Buckets) {
  EXPECT_EQ(failing(flags_, Call::allocate, 3),
            allocated(2) + "createPool(varkeys) allocate(MORVA Extension)! destroyPool(varkeys) " +
                freed(2));
  expectNothingLeft();
}

TEST_F(VariableKeyFailures, OrderList) {
  EXPECT_EQ(failing(flags_, Call::makeOrderList),
            tree_ +
                "createLock createPool(inodes) loadExtension(qzeai) makeOrderList! destroyTree "
                "releaseCompanion(qzeavl) releaseCompanion(qzeai) destroyPool(varkeys) "
                "destroyPool(inodes) " +
                freed(3));
  expectFreedInOrder();
  expectNothingLeft(1);
}

// ---- defined keys -----------------------------------------------------------

class DefinedKeyFailures : public CreateFailures {
 protected:
  const uint32_t flags_ = flagOrdered;
  const std::string packer_ = allocated(2) + "loadExtension(qzevp) makePacker ";
  const std::string tree_ = packer_ + allocated(1) + "loadExtension(qzeavl) makeTree ";
};

TEST_F(DefinedKeyFailures, PackerCompanion) {
  EXPECT_EQ(failing(flags_, Call::loadExtension),
            allocated(2) + "loadExtension(qzevp)! " + freed(2));
  expectFreedInOrder();
  expectNothingLeft();
}

TEST_F(DefinedKeyFailures, Packer) {
  EXPECT_EQ(failing(flags_, Call::makePacker),
            allocated(2) + "loadExtension(qzevp) makePacker! releaseCompanion(qzevp) " + freed(2));
  expectNothingLeft();
}

TEST_F(DefinedKeyFailures, Buckets) {
  EXPECT_EQ(
      failing(flags_, Call::allocate, 3),
      packer_ + "allocate(MORVA Extension)! destroyPacker releaseCompanion(qzevp) " + freed(2));
  expectNothingLeft();
}

TEST_F(DefinedKeyFailures, TreeCompanion) {
  EXPECT_EQ(failing(flags_, Call::loadExtension, 2),
            packer_ + allocated(1) +
                "loadExtension(qzeavl)! destroyPacker releaseCompanion(qzevp) " + freed(3));
  expectNothingLeft();
}

TEST_F(DefinedKeyFailures, OrderNodePool) {
  EXPECT_EQ(failing(flags_, Call::createPool),
            tree_ +
                "createLock createPool(inodes)! destroyPacker releaseCompanion(qzevp) "
                "destroyTree releaseCompanion(qzeavl) " +
                freed(3));
  expectNothingLeft(1);
}

TEST_F(DefinedKeyFailures, OrderList) {
  EXPECT_EQ(failing(flags_, Call::makeOrderList),
            tree_ +
                "createLock createPool(inodes) loadExtension(qzeai) makeOrderList! "
                "destroyPacker releaseCompanion(qzevp) destroyTree releaseCompanion(qzeavl) "
                "releaseCompanion(qzeai) destroyPool(inodes) " +
                freed(3));
  expectFreedInOrder();
  expectNothingLeft(1);
}

// ---- everywhere -------------------------------------------------------------

TEST_F(CreateFailures, WhicheverCallFailsNothingButALockIsLeft) {
  for (const uint32_t mode : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, uint32_t{0}}) {
    for (const uint32_t more : {uint32_t{0}, uint32_t{flagNoLock}, uint32_t{flagOrdered},
                                uint32_t{flagOrdered | flagNoLock}}) {
      for (uint64_t n = 1;; ++n) {
        RecordingHost other;
        Extension extension(other);
        Shape shape;
        shape.flags = mode | more;
        MORVAParms parms = parmsOf(shape);
        other.failNth(n);
        MORVAInst *inst = extension->Create(extension.get(), &parms, nullptr, "ab");
        const bool delivered = other.failuresDelivered() != 0;
        if (inst != nullptr) {
          // Either nothing failed, or only the copy of the name did.
          EXPECT_TRUE(!delivered || (n == 2 && inst->name == nullptr)) << n;
          EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
        }
        // The calls after the lock was made are those of the order list.
        const bool lockLeft = inst == nullptr && other.count(Call::createLock) == 1 &&
                              other.eventsOf(Call::createLock)[0].object != 0;
        EXPECT_EQ(other.locksAlive(), lockLeft ? 1u : 0u) << n;
        EXPECT_EQ(other.poolsAlive(), 1u) << n;
        EXPECT_EQ(other.blocksAlive(), 1u) << n;
        EXPECT_EQ(other.companionsAlive(), 0u) << n;
        EXPECT_EQ(other.objectsAlive(), 0u) << n;
        EXPECT_THAT(other.complaints(), ::testing::IsEmpty());
        if (!delivered) break;
      }
    }
  }
  qzextent(host.services());
}

TEST_F(CreateFailures, HashExpIsWrittenBackOnlyOnceTheStorageIsMade) {
  Shape shape;
  shape.hashExp = -1;

  shape.flags = 0x24;
  failing(shape);
  EXPECT_EQ(parms_.hashExp, -1);

  shape.flags = 0x120;
  failing(shape);
  EXPECT_EQ(parms_.hashExp, -1);

  shape.flags = flagFixedKey;
  host.failCall(Call::createPool);
  failing(shape);
  EXPECT_EQ(parms_.hashExp, -1);

  shape.flags = 0;
  host.failCall(Call::makePacker);
  failing(shape);
  EXPECT_EQ(parms_.hashExp, -1);

  shape.flags = flagFixedKey;
  host.failCall(Call::allocate, 3);
  failing(shape);
  EXPECT_EQ(parms_.hashExp, 8);

  shape.hashExp = 21;
  host.failCall(Call::createLock);
  failing(shape);
  EXPECT_EQ(parms_.hashExp, 20);
}

TEST_F(CreateFailures, AFailedCreationDoesNotHinderTheNext) {
  failing(flagFixedKey | flagOrdered, Call::makeTree);
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  ASSERT_NE(inst, nullptr);
  EXPECT_EQ(add(inst, 1), MORVA_OK);
}

}  // namespace
}  // namespace morva_test
