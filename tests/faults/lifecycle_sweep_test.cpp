// Loading the library, making an instance, defining its key and ending it,
// with every call to the host that can fail failing in turn.
#include "world.h"

namespace morva_test {
namespace {

constexpr Failing kFailings[] = {Failing::once, Failing::fromThenOn};

class LifecycleSweep : public testing::Test {
 protected:
  static void expectQuiet(RecordingHost &host) {
    host.checkGuards();
    for (const std::string &complaint : host.complaints()) ADD_FAILURE() << complaint;
    EXPECT_EQ(host.locksHeld(), 0u);
    EXPECT_EQ(host.unmatchedReleases(), 0u);
  }

  // The call that was made to fail first: what it answered nothing for.
  static const Event *firstFailed(const std::vector<Event> &events) {
    for (const Event &event : events) {
      if (!canFail(event.call)) continue;
      const bool field = event.call == Call::defineField || event.call == Call::finish;
      const bool failed = event.call == Call::allocate ? event.c == 0
                          : field                      ? event.a != 0
                                                       : event.object == 0;
      if (failed) return &event;
    }
    return nullptr;
  }

  static MORVAParms parmsOf(const Shape &shape) {
    MORVAParms parms = {};
    parms.flags = shape.flags();
    parms.dataLength = shape.dataLength;
    parms.keyLength = shape.keyLength;
    parms.hashMethod = shape.hashMethod;
    parms.hashExp = shape.hashExp;
    return parms;
  }
};

TEST_F(LifecycleSweep, LoadingLeavesNothingBehindWhenItFails) {
  for (Failing failing : kFailings) {
    uint64_t failures = 0;
    for (bool more = true; more;) {
      RecordingHost host;
      Exported_QZHandle = host.services();
      arm(host, failing, failures + 1);
      MORVAExt *ext = morva::morva(nullptr, nullptr);
      more = host.failuresDelivered() != 0;
      host.failNever();
      EXPECT_EQ(ext == nullptr, more);
      if (more) {
        failures++;
        ASSERT_LT(failures, 10u);
      } else {
        EXPECT_EQ(ext->RealDestroy(ext), MORVA_OK);
      }
      EXPECT_TRUE(host.nothingAlive()) << host.alive();
      expectQuiet(host);
    }
    EXPECT_EQ(failures, 2u) << "the pool and the extension object";
  }
}

class CreateSweep : public LifecycleSweep, public testing::WithParamInterface<Shape> {
 protected:
  // Calls of a creation with a name that can fail.
  static uint64_t callsOf(const Shape &shape) {
    const uint64_t instanceAndName = 2;
    const uint64_t storage = shape.keys == Keys::defined ? 2 : 1;
    const uint64_t bucketsAndTree = 3;
    const uint64_t lock = shape.has(flagNoLock) ? 0 : 1;
    const uint64_t order = shape.has(flagOrdered) ? 3 : 0;
    return instanceAndName + storage + bucketsAndTree + lock + order;
  }
};

INSTANTIATE_TEST_SUITE_P(Shapes, CreateSweep, testing::ValuesIn(shapes()), nameOfShape);

TEST_P(CreateSweep, ReleasesWhatItMadeExceptTheLockOfItsLastStep) {
  const Shape &shape = GetParam();
  for (Failing failing : kFailings) {
    uint64_t failures = 0;
    for (bool more = true; more;) {
      SCOPED_TRACE(testing::Message() << "call " << failures + 1 << " fails " << nameOf(failing));
      RecordingHost host;
      auto ext = std::make_unique<Extension>(host);
      MORVAParms parms = parmsOf(shape);
      host.forget();
      arm(host, failing, failures + 1);
      MORVAInst *inst = (*ext)->Create(ext->get(), &parms, nullptr, "name");
      more = host.failuresDelivered() != 0;
      host.failNever();
      uint64_t locksLeft = 0;
      if (more) {
        failures++;
        ASSERT_LT(failures, 20u);
        const Event *failed = firstFailed(host.events());
        ASSERT_NE(failed, nullptr);
        const bool nameCopy = failures == 2;
        // The name is the one thing an instance can do without.
        EXPECT_EQ(inst != nullptr, nameCopy && failing == Failing::once);
        if (nameCopy) {
          EXPECT_EQ(failed->call, Call::allocate);
        }
        const bool lastStep = failed->text == "inodes" || failed->text == "qzeai" ||
                              failed->call == Call::makeOrderList;
        if (lastStep && !shape.has(flagNoLock)) locksLeft = 1;
      }
      if (inst == nullptr) {
        EXPECT_TRUE(more);
        EXPECT_EQ(host.locksAlive(), locksLeft);
        EXPECT_EQ(host.poolsAlive(), 1u) << host.alive();
        EXPECT_EQ(host.blocksAlive(), 1u) << host.alive();
        EXPECT_EQ(host.companionsAlive() + host.objectsAlive(), 0u) << host.alive();
      } else {
        EXPECT_EQ(inst->name == nullptr, more);
        EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
      }
      ext.reset();
      EXPECT_EQ(host.nothingAlive(), locksLeft == 0) << host.alive();
      EXPECT_EQ(host.locksAlive(), locksLeft);
      EXPECT_EQ(host.poolsAlive() + host.companionsAlive() + host.objectsAlive(), 0u);
      expectQuiet(host);
    }
    EXPECT_EQ(failures, callsOf(shape));
  }
}

TEST_P(CreateSweep, AFailedCreationDoesNotDisturbAnInstanceMadeBefore) {
  const Shape &shape = GetParam();
  RecordingHost host;
  {
    Extension ext(host);
    Table table(host, ext.get(), shape);
    for (uint64_t n = 1; n <= callsOf(shape); n++) {
      const std::string key = numbered("k", n);
      table.put(key, "x");
      MORVAParms parms = parmsOf(shape);
      host.failFromNth(n);
      EXPECT_EQ(ext->Create(ext.get(), &parms, nullptr, "name"), nullptr) << n;
      host.failNever();
      EXPECT_EQ(table.all(key), "x");
      EXPECT_EQ(table.elements(), n);
    }
  }
  expectQuiet(host);
}

TEST_P(CreateSweep, DestructionNeedsNothingThatCanFail) {
  const Shape &shape = GetParam();
  World world(shape);
  world.host.failFromNth(1);
  EXPECT_EQ(world.table->destroy(), MORVA_OK);
  EXPECT_EQ(world.other->destroy(), MORVA_OK);
  EXPECT_EQ(world.host.failuresDelivered(), 0u);
  world.expectNothingLeft();
}

class DefineSweep : public LifecycleSweep, public testing::WithParamInterface<Shape> {};

INSTANTIATE_TEST_SUITE_P(Shapes, DefineSweep,
                         testing::ValuesIn(shapes(0, flagFixedKey | flagVarKey)), nameOfShape);

TEST_P(DefineSweep, ARefusedFieldStaysCountedAndTheInstanceCanBeDestroyed) {
  for (Failing failing : kFailings) {
    RecordingHost host;
    auto ext = std::make_unique<Extension>(host);
    MORVAParms parms = parmsOf(GetParam());
    MORVAInst *inst = (*ext)->Create(ext->get(), &parms, nullptr, "name");
    ASSERT_NE(inst, nullptr);
    const MORVAKeyDesc field = {8, 2, 0, 0};
    arm(host, failing, 2);
    EXPECT_EQ(inst->DefineKey(inst, &field), MORVA_OK);
    EXPECT_EQ(host.failuresDelivered(), 0u);
    EXPECT_EQ(inst->DefineKey(inst, &field), MORVA_INVALID);
    EXPECT_EQ(host.failuresDelivered(), 1u);
    host.failNever();
    EXPECT_EQ(inst->definedKeyLength, 16u);
    EXPECT_EQ(inst->flags & flagDefined, 0u);
    EXPECT_EQ(inst->Add(inst, "0123456789abcdef", "0123456789abcdef", 8), MORVA_INVALID);
    EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
    ext.reset();
    EXPECT_TRUE(host.nothingAlive()) << host.alive();
    expectQuiet(host);
  }
}

TEST_P(DefineSweep, ARefusedEndOfTheDefinitionCanBeTriedAgain) {
  const Shape &shape = GetParam();
  const MORVAStatus statuses[] = {MORVA_INVALID, MORVA_NO_MEMORY, MORVA_OK};
  const uint64_t poolsLeft[] = {0, 1, 0};
  int64_t blockMax[3] = {};
  for (Failing failing : kFailings) {
    for (int call = 0; call < 3; call++) {
      SCOPED_TRACE(testing::Message() << "call " << call + 1 << " fails " << nameOf(failing));
      RecordingHost host;
      auto ext = std::make_unique<Extension>(host);
      MORVAParms parms = parmsOf(shape);
      MORVAInst *inst = (*ext)->Create(ext->get(), &parms, nullptr, "name");
      ASSERT_NE(inst, nullptr);
      const MORVAKeyDesc field = {8, 2, 0, 0};
      EXPECT_EQ(inst->DefineKey(inst, &field), MORVA_OK);
      const int64_t asCreated = inst->recordBlockMax;
      arm(host, failing, call + 1);
      EXPECT_EQ(inst->DefineDone(inst, 0, 16), statuses[call]);
      EXPECT_EQ(host.failuresDelivered(), call < 2 ? 1u : 0u);
      host.failNever();
      if (call < 2) {
        EXPECT_EQ(inst->flags & flagDefined, 0u);
        EXPECT_EQ(inst->recordBlockMax, asCreated);
        EXPECT_EQ(inst->Add(inst, "0123456789abcdef", "01234567", 8), MORVA_INVALID);
        EXPECT_EQ(inst->DefineDone(inst, 0, 16), MORVA_OK);
      }
      EXPECT_NE(inst->flags & flagDefined, 0u);
      blockMax[call] = inst->recordBlockMax;
      EXPECT_EQ(inst->Add(inst, "0123456789abcdef", "01234567", 8), MORVA_OK);
      EXPECT_EQ(inst->NumElements(inst), 1u);
      EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
      ext.reset();
      // The pool of an end that the packer refused is the host's.
      EXPECT_EQ(host.poolsAlive(), poolsLeft[call]) << host.alive();
      EXPECT_EQ(
          host.blocksAlive() + host.locksAlive() + host.companionsAlive() + host.objectsAlive(), 0u)
          << host.alive();
      expectQuiet(host);
    }
    EXPECT_EQ(blockMax[0], blockMax[2]);
    EXPECT_EQ(blockMax[1], blockMax[2]);
  }
}

TEST_P(DefineSweep, AnUndefinedInstanceCanBeDestroyedAfterEitherFailure) {
  for (uint64_t call : {1, 2}) {
    RecordingHost host;
    auto ext = std::make_unique<Extension>(host);
    MORVAParms parms = parmsOf(GetParam());
    MORVAInst *inst = (*ext)->Create(ext->get(), &parms, nullptr, "name");
    ASSERT_NE(inst, nullptr);
    host.failNth(call);
    EXPECT_NE(inst->DefineDone(inst, 0, 16), MORVA_OK);
    EXPECT_EQ(host.failuresDelivered(), 1u);
    EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
    ext.reset();
    EXPECT_TRUE(host.nothingAlive()) << host.alive();
    expectQuiet(host);
  }
}

}  // namespace
}  // namespace morva_test
