// Record blocks and order-node blocks: how they grow, where their slots lie,
// and which node is taken next.
#include <limits>

#include "instance_test.h"

namespace morva_test {
namespace {

class Storage : public InstanceTest {
 protected:
  Storage() = default;
  explicit Storage(const RecordingHost::Options &options) : InstanceTest(options) {}

  // Takes a record slot without writing a record: a key too long for the
  // instance costs one slot, which stays out of use.
  void loseSlots(MORVAInst *inst, uint64_t count) {
    const std::vector<char> key(inst->keyLength + size_t{1}, 'k');
    for (uint64_t i = 0; i != count; ++i) {
      ASSERT_EQ(inst->Find(inst, key.data(), static_cast<int32_t>(key.size()), nullptr),
                MORVA_INVALID);
    }
  }

  // An instance whose slots are `slotSize` bytes long.
  MORVAInst *withSlots(uint64_t slotSize, int64_t memHint) {
    Shape shape;
    // 24 bytes in front of the data, and slots of up to 47 more than the record.
    shape.dataLength = static_cast<uint32_t>(slotSize - 32 - 24);
    shape.memHint = memHint;
    MORVAInst *inst = create(shape);
    EXPECT_NE(inst, nullptr);
    EXPECT_EQ(inst->RecSize(inst), slotSize);
    return inst;
  }
};

constexpr int64_t kNoLimit = std::numeric_limits<int64_t>::max();
constexpr uint64_t kMiB = uint64_t{1} << 20;

// ---- growth of record blocks ------------------------------------------------

TEST_F(Storage, TheFirstBlockHasSixteenSlots) {
  for (const Mode mode : {Mode::fixed, Mode::defined}) {
    MORVAInst *inst = create(mode);
    host.forget();
    ASSERT_EQ(add(inst, 1), MORVA_OK);
    const uint64_t slotSize = mode == Mode::fixed ? 80 : 64;
    const std::vector<Event> blocks = host.eventsOf(Call::allocate);
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_EQ(blocks[0].text, "records");
    EXPECT_EQ(blocks[0].a, 16 * slotSize + 16);
    EXPECT_EQ(blocks[0].b, 0u);
    EXPECT_EQ(inst->recordBlockCapacity, 16);
    EXPECT_EQ(inst->recordsUsed, 1);
    EXPECT_EQ(inst->recordBlockCount, 1u);
    EXPECT_EQ(inst->totalMem, 16 * slotSize + 16);
  }
}

TEST_F(Storage, BlocksDoubleWhileTheCapacityIsBelowTheLimit) {
  Shape shape;
  shape.memHint = 261;  // 8017 bytes: 100 slots
  MORVAInst *inst = create(shape);
  ASSERT_EQ(inst->recordBlockMax, 100);
  const std::vector<uint64_t> capacities = {16, 32, 64, 128, 128, 128};
  uint64_t key = 1, total = 0;
  for (size_t block = 0; block != capacities.size(); ++block) {
    host.forget();
    for (uint64_t slot = 0; slot != capacities[block]; ++slot) {
      ASSERT_EQ(add(inst, key++), MORVA_OK);
      EXPECT_EQ(inst->recordsUsed, static_cast<int64_t>(slot + 1));
    }
    EXPECT_THAT(sizesTaken("records"), ::testing::ElementsAre(capacities[block] * 80 + 16));
    total += capacities[block] * 80 + 16;
    EXPECT_EQ(inst->recordBlockCapacity, static_cast<int64_t>(capacities[block]));
    EXPECT_EQ(inst->recordBlockCount, block + 1);
    EXPECT_EQ(inst->totalMem, total);
    EXPECT_EQ(inst->recordBlockMax, 100);
  }
}

TEST_F(Storage, ALimitOfEightOrLessKeepsBlocksOfEight) {
  for (const int64_t hint : {1, 2, 3, 20, 21}) {
    Shape shape;
    shape.memHint = hint;  // up to 645 bytes: 8 slots of 80
    MORVAInst *inst = create(shape);
    ASSERT_LE(inst->recordBlockMax, 8);
    host.forget();
    addAll(inst, 1, 17);
    EXPECT_THAT(sizesTaken("records"),
                ::testing::ElementsAre(8 * 80 + 16, 8 * 80 + 16, 8 * 80 + 16));
  }
}

TEST_F(Storage, ALimitOfNineGivesSixteen) {
  Shape shape;
  shape.memHint = 24;  // 737 bytes
  MORVAInst *inst = create(shape);
  ASSERT_EQ(inst->recordBlockMax, 9);
  host.forget();
  addAll(inst, 1, 17);
  EXPECT_THAT(sizesTaken("records"), ::testing::ElementsAre(16 * 80 + 16, 16 * 80 + 16));
}

TEST_F(Storage, BlocksAreChainedThroughTheirFirstWord) {
  MORVAInst *inst = create(Mode::fixed);
  host.forget();
  addAll(inst, 1, 16 + 32 + 1);
  std::vector<void *> taken;
  for (const Event &event : host.eventsOf(Call::allocate)) {
    taken.insert(taken.begin(), reinterpret_cast<void *>(event.c));
  }
  ASSERT_EQ(taken.size(), 3u);
  EXPECT_EQ(blockChain(inst->recordBlocks), taken);
}

TEST_F(Storage, SlotsFollowOneAnotherFromTheEighthByteOn) {
  MORVAInst *inst = create(Mode::fixed);
  for (uint64_t key = 0; key != 48; ++key) {
    ASSERT_EQ(add(inst, key), MORVA_OK);
    const uint64_t slot = key < 16 ? key : key - 16;
    RecordNode *node = slotOf(inst->recordBlocks, 80, slot);
    EXPECT_EQ(node->owner, inst);
    uint64_t stored;
    std::memcpy(&stored, static_cast<char *>(MORVARecordBase(node)) + 8, sizeof stored);
    EXPECT_EQ(stored, key);
  }
}

TEST_F(Storage, NoBlockIsTakenBeforeANodeIsNeeded) {
  host.forget();
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  uint64_t key = 1;
  char data[16] = {};
  alignas(8) char probe[64];
  void *found = nullptr;
  EXPECT_EQ(inst->Find2(inst, &key, 8, reinterpret_cast<RecordNode *>(probe), &found), MORVA_OK);
  EXPECT_EQ(inst->Add(inst, data, &key, -1), MORVA_INVALID);
  EXPECT_EQ(inst->Add(inst, data, nullptr, 8), MORVA_INVALID);
  EXPECT_EQ(inst->Add(inst, nullptr, &key, 8), MORVA_INVALID);
  EXPECT_THAT(sizesTaken("records"), ::testing::IsEmpty());
  EXPECT_THAT(sizesTaken("inodes"), ::testing::IsEmpty());
}

// ---- the bound of 512 MiB ---------------------------------------------------

TEST_F(Storage, ABlockBeyondTheBoundIsHalvedAndBlocksNeverGrowAgain) {
  MORVAInst *inst = withSlots(kMiB, kNoLimit);
  host.forget();
  loseSlots(inst, 16 + 32 + 64 + 128 + 256);
  EXPECT_EQ(inst->recordBlockMax, std::numeric_limits<int64_t>::max() / int64_t{kMiB});
  // 512 slots of 1 MiB and 16 bytes are too much.
  loseSlots(inst, 1);
  EXPECT_EQ(inst->recordBlockCapacity, 256);
  EXPECT_EQ(inst->recordBlockMax, 256);
  loseSlots(inst, 256);
  EXPECT_EQ(inst->recordBlockCapacity, 256);
  EXPECT_THAT(
      sizesTaken("records"),
      ::testing::ElementsAre(16 * kMiB + 16, 32 * kMiB + 16, 64 * kMiB + 16, 128 * kMiB + 16,
                             256 * kMiB + 16, 256 * kMiB + 16, 256 * kMiB + 16));
}

TEST_F(Storage, ABlockJustBelowTheBoundIsNotHalved) {
  MORVAInst *inst = withSlots(32 * kMiB - 16, kNoLimit);
  host.forget();
  loseSlots(inst, 1);
  EXPECT_THAT(sizesTaken("records"), ::testing::ElementsAre(512 * kMiB - 240));
  EXPECT_EQ(inst->recordBlockCapacity, 16);
}

TEST_F(Storage, ABlockSixteenBytesBeyondTheBoundIsHalved) {
  MORVAInst *inst = withSlots(32 * kMiB, kNoLimit);
  host.forget();
  loseSlots(inst, 9);
  EXPECT_THAT(sizesTaken("records"), ::testing::ElementsAre(256 * kMiB + 16, 256 * kMiB + 16));
  EXPECT_EQ(inst->recordBlockCapacity, 8);
  EXPECT_EQ(inst->recordBlockMax, 8);
}

TEST_F(Storage, ACapacityThatDidNotGrowIsHalvedToo) {
  MORVAInst *inst = withSlots(64 * kMiB, 0);
  ASSERT_EQ(inst->recordBlockMax, 0);
  host.forget();
  loseSlots(inst, 5);
  EXPECT_THAT(sizesTaken("records"), ::testing::ElementsAre(256 * kMiB + 16, 256 * kMiB + 16));
  EXPECT_EQ(inst->recordBlockCapacity, 4);
  EXPECT_EQ(inst->recordBlockMax, 4);
}

TEST_F(Storage, EachBlockIsHalvedOnceAndNoSlotAtAllIsNoMemory) {
  MORVAInst *inst = withSlots(512 * kMiB, 0);
  host.forget();
  loseSlots(inst, 4 + 2 + 1);
  EXPECT_THAT(sizesTaken("records"),
              ::testing::ElementsAre(2048 * kMiB + 16, 1024 * kMiB + 16, 512 * kMiB + 16));
  EXPECT_EQ(inst->recordBlockCapacity, 1);
  EXPECT_EQ(inst->recordBlockMax, 1);
  host.forget();
  EXPECT_EQ(inst->Find(inst, "k", 1, nullptr), MORVA_NO_MEMORY);
  EXPECT_EQ(host.story(), "acquire release");
  EXPECT_EQ(inst->recordBlockCapacity, 1);
  EXPECT_EQ(inst->recordBlockMax, 1);
  EXPECT_EQ(inst->recordBlockCount, 3u);
}

// ---- blocks that cannot be had ----------------------------------------------

TEST_F(Storage, ARefusedBlockChangesNoCounter) {
  for (const Mode mode : {Mode::fixed, Mode::defined}) {
    MORVAInst *inst = create(mode);
    const int64_t limit = inst->recordBlockMax;
    host.failCall(Call::allocate);
    EXPECT_EQ(add(inst, 1), MORVA_NO_MEMORY);
    EXPECT_EQ(inst->recordBlockCapacity, 8);
    EXPECT_EQ(inst->recordsUsed, 8);
    EXPECT_EQ(inst->recordBlockMax, limit);
    EXPECT_EQ(inst->recordBlockCount, 0u);
    EXPECT_EQ(inst->totalMem, 0u);
    EXPECT_EQ(inst->recordBlocks, nullptr);
    EXPECT_EQ(inst->NumElements(inst), 0u);
    EXPECT_EQ(inst->buckets->usedBuckets, 0u);
    // With memory again, the first block is what it would have been.
    EXPECT_EQ(add(inst, 1), MORVA_OK);
    EXPECT_EQ(inst->recordBlockCapacity, 16);
  }
}

TEST_F(Storage, ARefusedLaterBlockKeepsTheOldOneAtWork) {
  MORVAInst *inst = create(Mode::fixed);
  addAll(inst, 1, 16);
  host.failFromNth(1);
  for (int i = 0; i != 5; ++i) {
    EXPECT_EQ(add(inst, 17), MORVA_NO_MEMORY);
    uint64_t key = 1;
    EXPECT_EQ(inst->Find(inst, &key, 8, nullptr), MORVA_NO_MEMORY);
  }
  EXPECT_EQ(inst->recordBlockCapacity, 16);
  EXPECT_EQ(inst->recordsUsed, 16);
  EXPECT_EQ(inst->NumElements(inst), 16u);
  host.failNever();
  host.forget();
  EXPECT_EQ(add(inst, 17), MORVA_OK);
  EXPECT_THAT(sizesTaken("records"), ::testing::ElementsAre(32 * 80 + 16));
  for (uint64_t key = 1; key != 18; ++key) EXPECT_NE(find(inst, key), nullptr);
}

TEST_F(Storage, ARefusedHalvedBlockKeepsTheLimit) {
  MORVAInst *inst = withSlots(32 * kMiB, kNoLimit);
  const int64_t limit = inst->recordBlockMax;
  host.failCall(Call::allocate);
  EXPECT_EQ(inst->Find(inst, "k", 1, nullptr), MORVA_NO_MEMORY);
  EXPECT_EQ(inst->recordBlockCapacity, 8);
  EXPECT_EQ(inst->recordBlockMax, limit);
}

// ---- free records -----------------------------------------------------------

TEST_F(Storage, ALookupTakesTheHeadOfTheChainAndPutsItBack) {
  MORVAInst *inst = create(Mode::fixed);
  addAll(inst, 1, 3);
  EXPECT_EQ(inst->freeRecords, nullptr);
  find(inst, 1);
  RecordNode *scratch = slotOf(inst->recordBlocks, 80, 3);
  EXPECT_THAT(freeRecordsOf(inst), ::testing::ElementsAre(scratch));
  EXPECT_EQ(inst->recordsUsed, 4);
  for (uint64_t key = 0; key != 10; ++key) find(inst, key);
  EXPECT_THAT(freeRecordsOf(inst), ::testing::ElementsAre(scratch));
  EXPECT_EQ(inst->recordsUsed, 4);
}

TEST_F(Storage, TheLastReleasedNodeIsTheNextTaken) {
  MORVAInst *inst = create(Mode::fixed);
  addAll(inst, 1, 5);
  RecordNode *two = slotOf(inst->recordBlocks, 80, 1);
  RecordNode *four = slotOf(inst->recordBlocks, 80, 3);
  RecordNode *scratch = slotOf(inst->recordBlocks, 80, 5);
  // The scratch record goes back before the removed node.
  EXPECT_EQ(remove(inst, 2), MORVA_OK);
  EXPECT_THAT(freeRecordsOf(inst), ::testing::ElementsAre(two, scratch));
  // The removed node is the scratch of the next removal.
  EXPECT_EQ(remove(inst, 4), MORVA_OK);
  EXPECT_THAT(freeRecordsOf(inst), ::testing::ElementsAre(four, two, scratch));
  EXPECT_EQ(add(inst, 100), MORVA_OK);
  EXPECT_EQ(four->owner, inst);
  EXPECT_THAT(freeRecordsOf(inst), ::testing::ElementsAre(two, scratch));
  EXPECT_EQ(nodeOf(inst, 100), four);
}

TEST_F(Storage, ANodeThatWasNotNeededGoesBack) {
  MORVAInst *inst = create(Mode::fixed);
  EXPECT_EQ(add(inst, 1), MORVA_OK);
  EXPECT_EQ(add(inst, 1), MORVA_PRESENT);
  EXPECT_THAT(freeRecordsOf(inst), ::testing::ElementsAre(slotOf(inst->recordBlocks, 80, 1)));
}

TEST_F(Storage, ARemovalFollowedByAnInsertionTakesNoMemory) {
  for (const Mode mode : {Mode::fixed, Mode::defined}) {
    MORVAInst *inst = create(mode, flagOrdered);
    addAll(inst, 1, 100);
    find(inst, 1);
    host.forget();
    for (uint64_t key = 1; key != 101; ++key) {
      EXPECT_EQ(remove(inst, key), MORVA_OK);
      EXPECT_EQ(add(inst, key + 1000), MORVA_OK);
    }
    EXPECT_EQ(host.count(Call::allocate), 0u) << nameOf(mode);
  }
}

TEST_F(Storage, AKeyTooLongCostsOneSlotUntilTheInstanceIsCleared) {
  MORVAInst *inst = create(Mode::fixed);
  addAll(inst, 1, 2);
  find(inst, 1);
  ASSERT_EQ(freeRecordsOf(inst).size(), 1u);
  const char key[21] = {};
  char data[16] = {};
  EXPECT_EQ(inst->Add(inst, data, key, 21), MORVA_INVALID);
  EXPECT_THAT(freeRecordsOf(inst), ::testing::IsEmpty());
  EXPECT_EQ(inst->Find(inst, key, 21, nullptr), MORVA_INVALID);
  EXPECT_EQ(inst->recordsUsed, 4);
  EXPECT_THAT(freeRecordsOf(inst), ::testing::IsEmpty());
}

// ---- what the pools hand out need not be clean ------------------------------

class OtherGarbage : public Storage {
 protected:
  static RecordingHost::Options options() {
    RecordingHost::Options chosen;
    chosen.garbage = 0xFF;
    return chosen;
  }
  OtherGarbage() : Storage(options()) {}
};

TEST_F(OtherGarbage, RecordsComeBackAsTheyWereStored) {
  for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    const uint32_t more = mode == Mode::variable ? 0 : uint32_t{flagSum | flagMultiData};
    MORVAInst *inst = create(mode, flagOrdered | more);
    for (uint64_t key = 1; key != 200; ++key) {
      ASSERT_EQ(add(inst, key, static_cast<char>(key)), MORVA_OK);
    }
    for (uint64_t key = 1; key != 200; ++key) {
      const char *data = find(inst, key);
      ASSERT_NE(data, nullptr);
      EXPECT_EQ(std::string(data, 16), std::string(16, static_cast<char>(key)));
    }
    EXPECT_EQ(inst->NumElements(inst), 199u);
    EXPECT_EQ(host.order(inst).size(), 199u);
  }
}

}  // namespace
}  // namespace morva_test
