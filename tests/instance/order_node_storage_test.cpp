// Blocks of order nodes: how they grow, and which node is taken next.
#include "instance_test.h"

namespace morva_test {
namespace {

using OrderNodes = InstanceTest;

TEST_F(OrderNodes, TheFirstOrderNodeBlockHasSixteenNodes) {
  for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    MORVAInst *inst = create(mode, flagOrdered);
    host.forget();
    ASSERT_EQ(add(inst, 1), MORVA_OK);
    EXPECT_THAT(sizesTaken("inodes"), ::testing::ElementsAre(16 * 24 + 16));
    for (const Event &event : host.eventsOf(Call::allocate)) EXPECT_EQ(event.b, 0u);
    EXPECT_EQ(inst->inodeBlockCapacity, 16);
    EXPECT_EQ(inst->inodesUsed, 1);
  }
}

TEST_F(OrderNodes, OrderNodesLieInTheirBlocksAndHoldTheirRecords) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  host.forget();
  addAll(inst, 1, 48);
  const std::vector<Event> appended = host.eventsOf(Call::append);
  ASSERT_EQ(appended.size(), 48u);
  const std::vector<void *> blocks = blockChain(inst->inodeBlocks);
  ASSERT_EQ(blocks.size(), 2u);
  for (uint64_t i = 0; i != 48; ++i) {
    const void *block = i < 16 ? blocks[1] : blocks[0];
    const uint64_t slot = i < 16 ? i : i - 16;
    EXPECT_EQ(appended[i].a, reinterpret_cast<uintptr_t>(block) + 8 + slot * 24);
    EXPECT_EQ(reinterpret_cast<RecordNode *>(appended[i].b), host.order(inst)[i]);
  }
  EXPECT_EQ(host.blockSize(blocks[0]), 32u * 24 + 16);
}

TEST_F(OrderNodes, OrderNodeBlocksCountNeitherAsMemoryNorAsBlocks) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  addAll(inst, 1, 17);
  EXPECT_EQ(inst->recordBlockCount, 2u);
  EXPECT_EQ(inst->TotalMem(inst), host.bytesAlive("records"));
  EXPECT_EQ(blockChain(inst->inodeBlocks).size(), 2u);
}

TEST_F(OrderNodes, OrderNodeCapacitiesDoubleUpToSixtyFiveThousandAndStay) {
  Shape shape;
  shape.flags = flagFixedKey | flagOrdered | flagNoLock;
  shape.dataLength = 0;
  shape.hashMethod = 8;
  shape.hashExp = 17;
  MORVAInst *inst = create(shape);
  host.keepLog(false);
  std::vector<uint64_t> capacities;
  host.onEvent = [&](const Event &event) {
    if (event.call != Call::allocate || event.text != "inodes") return;
    ASSERT_EQ((event.a - 16) % 24, 0u);
    capacities.push_back((event.a - 16) / 24);
  };
  // The blocks below 65536 nodes, two of 65536, and one node more.
  const uint64_t count = (65536 - 16) + 65536 + 65536 + 1;
  for (uint64_t key = 0; key != count; ++key)
    ASSERT_EQ(inst->Add(inst, nullptr, &key, 8), MORVA_OK);
  host.onEvent = nullptr;
  EXPECT_THAT(capacities, ::testing::ElementsAre(16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192,
                                                 16384, 32768, 65536, 65536, 65536));
  EXPECT_EQ(inst->inodeBlockCapacity, 65536);
}

TEST_F(OrderNodes, TheLastReleasedOrderNodeIsTheNextTaken) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  host.forget();
  addAll(inst, 1, 3);
  const std::vector<Event> appended = host.eventsOf(Call::append);
  EXPECT_EQ(remove(inst, 2), MORVA_OK);
  EXPECT_EQ(remove(inst, 1), MORVA_OK);
  OrderNode *one = reinterpret_cast<OrderNode *>(appended[0].a);
  OrderNode *two = reinterpret_cast<OrderNode *>(appended[1].a);
  EXPECT_THAT(freeInodesOf(inst), ::testing::ElementsAre(one, two));
  EXPECT_EQ(add(inst, 9), MORVA_OK);
  EXPECT_EQ(host.eventsOf(Call::append).back().a, reinterpret_cast<uintptr_t>(one));
  EXPECT_THAT(freeInodesOf(inst), ::testing::ElementsAre(two));
  EXPECT_EQ(inst->inodesUsed, 3);
}

TEST_F(OrderNodes, OnlyTheFirstRecordOfAKeyHasAnOrderNode) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered | flagMultiData);
  for (int i = 0; i != 5; ++i) EXPECT_EQ(add(inst, 1), MORVA_OK);
  EXPECT_EQ(inst->inodesUsed, 1);
  EXPECT_EQ(host.order(inst).size(), 1u);
}

TEST_F(OrderNodes, ARefusedOrderNodeBlockChangesNoCounter) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  host.failCall(Call::allocate, 2);
  EXPECT_EQ(add(inst, 1), MORVA_NO_MEMORY);
  EXPECT_EQ(inst->inodeBlockCapacity, 8);
  EXPECT_EQ(inst->inodesUsed, 8);
  EXPECT_EQ(inst->inodeBlocks, nullptr);
  EXPECT_EQ(inst->NumElements(inst), 0u);
  EXPECT_EQ(host.order(inst).size(), 0u);
  host.failNever();
  host.forget();
  EXPECT_EQ(add(inst, 2), MORVA_OK);
  EXPECT_THAT(sizesTaken("inodes"), ::testing::ElementsAre(16 * 24 + 16));
}

}  // namespace
}  // namespace morva_test
