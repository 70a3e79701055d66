// Counts that no test can reach by storing records: they are set as a life of
// that many records would have left them.
#include "instance_test.h"

namespace morva_test {
namespace {

class LargeCounts : public InstanceTest, public ::testing::WithParamInterface<Mode> {};

INSTANTIATE_TEST_SUITE_P(EveryMode, LargeCounts,
                         ::testing::Values(Mode::fixed, Mode::variable, Mode::defined),
                         [](const auto &info) { return nameOf(info.param); });

// Clearing takes the count for a signed number.
TEST_P(LargeCounts, ClearingReachesTheRecordsFromTwoToTheThirtyFirstOn) {
  for (const bool keepsNodes : {false, true}) {
    MORVAInst *inst = create(GetParam());
    addAll(inst, 1, 10);
    inst->buckets->elementCount = 0x7FFFFFFF;
    ASSERT_EQ(add(inst, 11), MORVA_OK);
    ASSERT_EQ(inst->NumElements(inst), 0x80000000u);
    ASSERT_EQ(add(inst, 12), MORVA_OK);
    EXPECT_EQ(keepsNodes ? inst->Clear2(inst) : inst->Clear(inst), MORVA_OK);
    expectEmpty(inst);
    for (uint64_t key = 1; key != 13; ++key) EXPECT_EQ(find(inst, key), nullptr);
  }
}

TEST_P(LargeCounts, OneRecordFewerIsCountedAsAnyOther) {
  MORVAInst *inst = create(GetParam());
  addAll(inst, 1, 10);
  inst->buckets->elementCount = 0x7FFFFFFF;
  ASSERT_EQ(add(inst, 11), MORVA_OK);
  ASSERT_EQ(remove(inst, 11), MORVA_OK);
  ASSERT_EQ(inst->NumElements(inst), 0x7FFFFFFFu);
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  expectEmpty(inst);
}

}  // namespace
}  // namespace morva_test
