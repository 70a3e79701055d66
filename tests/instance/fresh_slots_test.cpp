// What a record's memory holds before anything is written to it: the host hands
// out blocks with whatever lay there.
#include "instance_test.h"

namespace morva_test {
namespace {

class FreshSlots : public InstanceTest {};

// Two instances are compared over their whole key areas.
TEST_F(FreshSlots, KeyAreasOfEveryLengthAreZeroBehindTheKey) {
  for (uint32_t declared = 0; declared <= 140; ++declared) {
    Shape shape;
    shape.keyLength = declared;
    shape.dataLength = 4;
    MORVAInst *inst = create(shape);
    ASSERT_NE(inst, nullptr);
    const size_t length = declared == 0 ? 0 : 1;
    ASSERT_EQ(inst->Add(inst, "data", "k", static_cast<int32_t>(length)), MORVA_OK);
    const RecordNode *node = slotOf(inst->recordBlocks, inst->RecSize(inst), 0);
    const std::string area(reinterpret_cast<const char *>(node + 1), inst->keyLength);
    const size_t used = sizeof(KeyPrefix) + length;
    EXPECT_EQ(area.substr(used), std::string(inst->keyLength - used, '\0')) << declared;
    destroy(inst);
  }
}

TEST_F(FreshSlots, EqualTablesOfLongKeysAreEqualWhateverTheirMemoryHeld) {
  Shape shape;
  shape.keyLength = 100;
  MORVAInst *one = create(shape);
  addAll(one, 1, 10);
  // What the second table's memory may be made of.
  MORVAInst *before = create(shape);
  for (char c = 'a'; c != 'z'; ++c) {
    ASSERT_EQ(before->Add(before, std::string(16, c).data(), std::string(100, c).data(), 100),
              MORVA_OK);
  }
  destroy(before);
  MORVAInst *other = create(shape);
  addAll(other, 1, 10);
  uint32_t equal = 0;
  ASSERT_EQ(one->Equals(one, other, &equal), MORVA_OK);
  EXPECT_EQ(equal, 1u);
}

class FreshSlotsOfMode : public InstanceTest, public ::testing::WithParamInterface<Mode> {};

INSTANTIATE_TEST_SUITE_P(EveryMode, FreshSlotsOfMode,
                         ::testing::Values(Mode::fixed, Mode::variable, Mode::defined),
                         [](const auto &info) { return nameOf(info.param); });

// Found, but neither counted nor in the order: it must not show what lay there.
TEST_P(FreshSlotsOfMode, ARecordWithoutAnOrderNodeHasDataOfZeros) {
  MORVAInst *inst = create(GetParam(), flagOrdered);
  // The lookup leaves a scratch record, so that the add needs no memory for its own.
  ASSERT_EQ(find(inst, 1), nullptr);
  host.failCall(Call::allocate);
  ASSERT_EQ(add(inst, 1, 'x'), MORVA_NO_MEMORY);
  host.failNever();
  const char *data = find(inst, 1);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(std::string(data, inst->dataLength), std::string(inst->dataLength, '\0'));
}

}  // namespace
}  // namespace morva_test
