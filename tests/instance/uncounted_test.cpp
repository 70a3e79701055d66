// When no order node can be had, a record stays in its tree without being
// counted. Whatever is done with the instance afterwards, no operation may
// reach memory that was given back or never written.
#include "instance_test.h"

namespace morva_test {
namespace {

enum class Way { clear, clear2 };

struct Situation {
  Mode mode;
  uint32_t flags;
  Way way;
};

class Uncounted : public InstanceTest, public ::testing::WithParamInterface<Situation> {
 protected:
  MORVAInst *make() { return create(GetParam().mode, flagOrdered | GetParam().flags); }

  // An add whose order node cannot be had. All order nodes must be in use.
  void addUncounted(MORVAInst *inst, uint64_t key) {
    const uint32_t before = inst->NumElements(inst);
    // The lookup leaves a scratch record, so that the add needs no memory for its own.
    ASSERT_EQ(find(inst, key), nullptr);
    host.failCall(Call::allocate);
    EXPECT_EQ(add(inst, key), MORVA_NO_MEMORY);
    EXPECT_EQ(host.failuresDelivered(), 1u);
    host.failNever();
    EXPECT_NE(find(inst, key), nullptr);
    EXPECT_EQ(inst->NumElements(inst), before);
  }

  MORVAStatus clear(MORVAInst *inst) {
    return GetParam().way == Way::clear ? inst->Clear(inst) : inst->Clear2(inst);
  }

  // Uses all of the instance once more.
  void useAgain(MORVAInst *inst) {
    addAll(inst, 1, 59);
    for (uint64_t key = 1; key != 60; ++key) EXPECT_NE(find(inst, key), nullptr);
    for (uint64_t key = 1; key != 60; ++key) EXPECT_EQ(remove(inst, key), MORVA_OK);
    for (uint64_t key = 1; key != 60; ++key) EXPECT_EQ(find(inst, key), nullptr);
  }
};

TEST_P(Uncounted, TheFirstRecordOfAnInstance) {
  MORVAInst *inst = make();
  addUncounted(inst, 1);
  EXPECT_EQ(clear(inst), MORVA_OK);
  EXPECT_EQ(inst->NumElements(inst), 0u);
  EXPECT_EQ(find(inst, 1), nullptr);
  useAgain(inst);
}

TEST_P(Uncounted, ARecordAmongOthers) {
  MORVAInst *inst = make();
  addAll(inst, 1, 16);
  addUncounted(inst, 17);
  EXPECT_EQ(clear(inst), MORVA_OK);
  EXPECT_EQ(inst->NumElements(inst), 0u);
  for (uint64_t key = 1; key != 18; ++key) EXPECT_EQ(find(inst, key), nullptr);
  useAgain(inst);
}

TEST_P(Uncounted, ItsRemovalMakesTheCountFallBelowTheRecordsHeld) {
  MORVAInst *inst = make();
  addAll(inst, 1, 16);
  for (uint64_t key = 2; key != 17; ++key) ASSERT_EQ(remove(inst, key), MORVA_OK);
  // Take the order nodes back into use, so that the next one needs a block.
  addAll(inst, 101, 15);
  addUncounted(inst, 2);
  // The order list does not know it; it is removed and counted down all the same.
  EXPECT_EQ(remove(inst, 2), MORVA_INVALID);
  EXPECT_EQ(find(inst, 2), nullptr);
  EXPECT_EQ(inst->NumElements(inst), 15u);
  for (uint64_t key = 101; key != 116; ++key) ASSERT_EQ(remove(inst, key), MORVA_OK);
  // One record is there, and none is counted.
  ASSERT_EQ(inst->NumElements(inst), 0u);
  ASSERT_NE(find(inst, 1), nullptr);
  EXPECT_EQ(clear(inst), MORVA_OK);
  EXPECT_EQ(find(inst, 1), nullptr);
  useAgain(inst);
}

TEST_P(Uncounted, ACountBelowZero) {
  MORVAInst *inst = make();
  addUncounted(inst, 1);
  EXPECT_EQ(remove(inst, 1), MORVA_INVALID);
  EXPECT_EQ(inst->NumElements(inst), 0xFFFFFFFFu);
  EXPECT_EQ(add(inst, 2), MORVA_OK);
  EXPECT_EQ(clear(inst), MORVA_OK);
  EXPECT_EQ(inst->NumElements(inst), 0u);
  EXPECT_EQ(find(inst, 2), nullptr);
  useAgain(inst);
}

TEST_P(Uncounted, IsForgottenOnceTheInstanceIsCleared) {
  MORVAInst *inst = make();
  addUncounted(inst, 1);
  ASSERT_EQ(clear(inst), MORVA_OK);
  // Empty for good: the next clear has no bucket to walk.
  host.forget();
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(host.count(Call::treeFirst), 0u);
}

TEST_P(Uncounted, GivesItsMemoryBackWithTheOthers) {
  MORVAInst *inst = make();
  addUncounted(inst, 1);
  ASSERT_EQ(clear(inst), MORVA_OK);
  if (GetParam().way == Way::clear) {
    EXPECT_EQ(host.blocksAlive("records"), 0u);
    EXPECT_EQ(host.blocksAlive("varkeys"), 0u);
  }
  destroy(inst);
  EXPECT_EQ(host.blocksAlive(), 1u);
}

TEST_P(Uncounted, IsAnsweredReplacedAndFollowedByFurtherRecords) {
  MORVAInst *inst = make();
  addUncounted(inst, 1);
  const std::string data(16, 'r');
  const uint64_t key = 1;
  EXPECT_EQ(inst->Replace(inst, data.data(), &key, 8), MORVA_OK);
  EXPECT_EQ(std::string(find(inst, 1), 16), data);
  if ((inst->flags & flagMultiData) != 0) {
    EXPECT_EQ(inst->HasNext(inst, find(inst, 1)), 0u);
    EXPECT_EQ(inst->HasPrev(inst, find(inst, 1)), 0u);
    EXPECT_EQ(add(inst, 1, 'a'), MORVA_OK);
    EXPECT_EQ(add(inst, 1, 'b'), MORVA_OK);
    std::string fills;
    for (void *at = find(inst, 1); at != nullptr;) {
      fills += *static_cast<char *>(at);
      ASSERT_EQ(inst->FindNext(inst, at, &at), MORVA_OK);
    }
    EXPECT_EQ(fills, "rab");
  } else {
    EXPECT_EQ(add(inst, 1), MORVA_PRESENT);
  }
  EXPECT_EQ(clear(inst), MORVA_OK);
  useAgain(inst);
}

std::vector<Situation> situations() {
  std::vector<Situation> all;
  for (const Way way : {Way::clear, Way::clear2}) {
    for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
      all.push_back({mode, 0, way});
      if (mode == Mode::variable) continue;
      all.push_back({mode, flagMultiData, way});
      all.push_back({mode, flagSum, way});
      all.push_back({mode, flagSum | flagMultiData, way});
    }
  }
  return all;
}

std::string nameOf(const Situation &situation) {
  std::string name = morva_test::nameOf(situation.mode);
  if ((situation.flags & flagSum) != 0) name += "Sum";
  if ((situation.flags & flagMultiData) != 0) name += "MultiData";
  return name + (situation.way == Way::clear ? "Clear" : "Clear2");
}

void PrintTo(const Situation &situation, std::ostream *stream) {
  *stream << nameOf(situation);
}

std::string situationName(const ::testing::TestParamInfo<Situation> &info) {
  return nameOf(info.param);
}

INSTANTIATE_TEST_SUITE_P(EveryKind, Uncounted, ::testing::ValuesIn(situations()), situationName);

}  // namespace
}  // namespace morva_test
