// Nodes of variable keys: each is a block of the pool "varkeys" with room for
// its own key.
#include <limits>
#include <random>

#include "instance_test.h"

namespace morva_test {
namespace {

class VarStorage : public InstanceTest {
 protected:
  MORVAInst *make(uint32_t dataLength = 16, uint32_t more = 0) {
    return create(Mode::variable, more, dataLength);
  }

  // A key of `length` bytes that starts with `first`.
  static std::string keyOf(uint32_t length, char first = 'k') {
    std::string key(length, '.');
    if (length != 0) key[0] = first;
    return key;
  }

  MORVAStatus addKey(MORVAInst *inst, const std::string &key) {
    const std::vector<char> data(inst->dataLength + size_t{1}, 'd');
    return inst->Add(inst, data.data(), key.data(), static_cast<int32_t>(key.size()));
  }

  MORVAStatus removeKey(MORVAInst *inst, const std::string &key) {
    return inst->Remove(inst, key.data(), static_cast<int32_t>(key.size()));
  }

  static std::vector<uint32_t> freeCapacities(const MORVAInst *inst) {
    std::vector<uint32_t> capacities;
    for (RecordNode *node : freeRecordsOf(inst)) capacities.push_back(prefixOf(node).capacity);
    return capacities;
  }
};

TEST_F(VarStorage, ANodeIsABlockOfItsOwn) {
  const struct {
    uint32_t keyLength, dataLength, dataOffset, slotSize;
  } cases[] = {{0, 0, 16, 48},  {1, 0, 16, 48},    {4, 0, 16, 48},  {5, 0, 24, 64},
               {12, 0, 24, 64}, {13, 0, 32, 64},   {8, 16, 24, 80}, {8, 17, 24, 80},
               {8, 25, 24, 96}, {100, 7, 112, 160}};
  for (const auto &c : cases) {
    MORVAInst *inst = make(c.dataLength);
    host.forget();
    ASSERT_EQ(addKey(inst, keyOf(c.keyLength)), MORVA_OK);
    const std::vector<Event> blocks = host.eventsOf(Call::allocate);
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_EQ(blocks[0].text, "varkeys");
    EXPECT_EQ(blocks[0].a, c.slotSize) << c.keyLength << " " << c.dataLength;
    EXPECT_EQ(blocks[0].b, 0u);
    EXPECT_EQ(inst->recordSize, c.dataOffset + c.dataLength);
    EXPECT_EQ(inst->RecSize(inst), c.slotSize);

    RecordNode *node = reinterpret_cast<RecordNode *>(blocks[0].c);
    EXPECT_EQ(node->owner, inst);
    EXPECT_EQ(prefixOf(node).length, c.keyLength);
    EXPECT_EQ(prefixOf(node).capacity, c.keyLength);
    char *base = static_cast<char *>(MORVARecordBase(node));
    EXPECT_EQ(std::string(base + 8, c.keyLength), keyOf(c.keyLength));
    void *data = nullptr;
    ASSERT_EQ(inst->Find(inst, keyOf(c.keyLength).data(), static_cast<int32_t>(c.keyLength), &data),
              MORVA_OK);
    EXPECT_EQ(data, base + c.dataOffset);
    EXPECT_EQ(std::string(static_cast<char *>(data), c.dataLength), std::string(c.dataLength, 'd'));
  }
}

TEST_F(VarStorage, AnEmptyKeyIsAKey) {
  MORVAInst *inst = make();
  EXPECT_EQ(addKey(inst, ""), MORVA_OK);
  EXPECT_EQ(addKey(inst, ""), MORVA_PRESENT);
  const char data[16] = {};
  EXPECT_EQ(inst->Add(inst, data, nullptr, 0), MORVA_PRESENT);
  EXPECT_EQ(inst->NumElements(inst), 1u);
}

TEST_F(VarStorage, RecordBlocksAreNeverTaken) {
  MORVAInst *inst = make();
  addAll(inst, 1, 50);
  EXPECT_EQ(inst->recordBlocks, nullptr);
  EXPECT_EQ(inst->recordBlockCount, 0u);
  EXPECT_EQ(inst->totalMem, 0u);
  EXPECT_EQ(host.blocksAlive("varkeys"), 50u);
}

// ---- reuse ------------------------------------------------------------------

TEST_F(VarStorage, TheFirstFreeNodeThatFitsIsTakenNotTheBest) {
  MORVAInst *inst = make();
  ASSERT_EQ(addKey(inst, keyOf(10)), MORVA_OK);
  ASSERT_EQ(addKey(inst, keyOf(30)), MORVA_OK);
  ASSERT_EQ(addKey(inst, keyOf(20)), MORVA_OK);
  // A second add of each finds it present; its node goes to the front.
  ASSERT_EQ(addKey(inst, keyOf(10)), MORVA_PRESENT);
  ASSERT_EQ(addKey(inst, keyOf(20)), MORVA_PRESENT);
  ASSERT_EQ(addKey(inst, keyOf(30)), MORVA_PRESENT);
  ASSERT_THAT(freeCapacities(inst), ::testing::ElementsAre(30, 20, 10));
  RecordNode *thirty = inst->freeRecords;
  host.forget();
  ASSERT_EQ(addKey(inst, keyOf(8, 'a')), MORVA_OK);
  EXPECT_EQ(host.count(Call::allocate), 0u);
  EXPECT_EQ(thirty->owner, inst);
  EXPECT_EQ(prefixOf(thirty).length, 8u);
  // Its capacity stays what it was made for.
  EXPECT_EQ(prefixOf(thirty).capacity, 30u);
  EXPECT_THAT(freeCapacities(inst), ::testing::ElementsAre(20, 10));
}

TEST_F(VarStorage, NodesTooSmallAreSteppedOverAndStay) {
  MORVAInst *inst = make();
  for (const uint32_t length : {10u, 20u, 30u}) ASSERT_EQ(addKey(inst, keyOf(length)), MORVA_OK);
  // Each removal puts its scratch node back, then the node it removed; the last
  // one finds a node of 30 for its scratch.
  for (const uint32_t length : {10u, 30u, 20u}) {
    ASSERT_EQ(removeKey(inst, keyOf(length)), MORVA_OK);
  }
  ASSERT_THAT(freeCapacities(inst), ::testing::ElementsAre(20, 30, 30, 10, 10));
  const std::vector<RecordNode *> before = freeRecordsOf(inst);
  host.forget();
  ASSERT_EQ(addKey(inst, keyOf(25)), MORVA_OK);
  EXPECT_EQ(host.count(Call::allocate), 0u);
  EXPECT_EQ(before[1]->owner, inst);
  EXPECT_THAT(freeRecordsOf(inst),
              ::testing::ElementsAre(before[0], before[2], before[3], before[4]));
}

TEST_F(VarStorage, AnExactFitIsAFit) {
  MORVAInst *inst = make();
  ASSERT_EQ(addKey(inst, keyOf(10)), MORVA_OK);
  ASSERT_EQ(removeKey(inst, keyOf(10)), MORVA_OK);
  const size_t before = freeRecordsOf(inst).size();
  host.forget();
  ASSERT_EQ(addKey(inst, keyOf(10, 'x')), MORVA_OK);
  EXPECT_EQ(host.count(Call::allocate), 0u);
  EXPECT_EQ(freeRecordsOf(inst).size(), before - 1);
  ASSERT_EQ(addKey(inst, keyOf(11, 'x')), MORVA_OK);
  EXPECT_EQ(host.count(Call::allocate), 1u);
}

TEST_F(VarStorage, FirstFitHoldsOverALongRandomRun) {
  MORVAInst *inst = make(4);
  std::mt19937 random(20240711);
  std::vector<uint32_t> lengths;
  for (int i = 0; i != 60; ++i) lengths.push_back(random() % 40);
  std::sort(lengths.begin(), lengths.end());
  lengths.erase(std::unique(lengths.begin(), lengths.end()), lengths.end());
  std::shuffle(lengths.begin(), lengths.end(), random);
  for (const uint32_t length : lengths) ASSERT_EQ(addKey(inst, keyOf(length)), MORVA_OK);
  ASSERT_EQ(inst->Clear2(inst), MORVA_OK);

  for (int step = 0; step != 2000; ++step) {
    const uint32_t length = random() % 45;
    std::vector<RecordNode *> expected = freeRecordsOf(inst);
    const auto fit = std::find_if(expected.begin(), expected.end(), [&](RecordNode *node) {
      return prefixOf(node).capacity >= length;
    });
    host.forget();
    if (fit == expected.end()) {
      ASSERT_EQ(inst->Find(inst, keyOf(length).data(), static_cast<int32_t>(length), nullptr),
                MORVA_OK);
      const std::vector<Event> taken = host.eventsOf(Call::allocate);
      ASSERT_EQ(taken.size(), 1u);
      expected.insert(expected.begin(), reinterpret_cast<RecordNode *>(taken[0].c));
    } else {
      ASSERT_EQ(inst->Find(inst, keyOf(length).data(), static_cast<int32_t>(length), nullptr),
                MORVA_OK);
      ASSERT_EQ(host.count(Call::allocate), 0u);
      // A lookup takes the node out of the chain and puts it back in front.
      std::rotate(expected.begin(), fit, fit + 1);
    }
    ASSERT_EQ(freeRecordsOf(inst), expected) << step;
  }
}

// ---- refusals ---------------------------------------------------------------

TEST_F(VarStorage, WithoutMemoryNothingIsCounted) {
  MORVAInst *inst = make();
  ASSERT_EQ(addKey(inst, keyOf(5)), MORVA_OK);
  host.failFromNth(1);
  host.forget();
  EXPECT_EQ(addKey(inst, keyOf(6)), MORVA_NO_MEMORY);
  EXPECT_EQ(host.story(), "acquire allocate(varkeys)! release");
  EXPECT_EQ(inst->NumElements(inst), 1u);
  EXPECT_EQ(inst->Find(inst, "k....", 5, nullptr), MORVA_NO_MEMORY);
  host.failNever();
  EXPECT_EQ(addKey(inst, keyOf(6)), MORVA_OK);
  EXPECT_EQ(inst->NumElements(inst), 2u);
}

TEST_F(VarStorage, KeysThatCannotBeKeysAreRefusedBeforeTheLock) {
  for (const Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = create(mode);
    const char data[16] = {};
    alignas(8) char probe[64] = {};
    RecordNode *probeNode = reinterpret_cast<RecordNode *>(probe);
    host.forget();
    const struct {
      const char *key;
      int32_t length;
    } refused[] = {{"key", -1}, {"key", std::numeric_limits<int32_t>::min()}, {nullptr, 1}};
    for (const auto &[key, length] : refused) {
      EXPECT_EQ(inst->Add(inst, data, key, length), MORVA_INVALID);
      EXPECT_EQ(MORVAAdd(inst, data, key, length), MORVA_INVALID);
      EXPECT_EQ(inst->Replace(inst, data, key, length), MORVA_INVALID);
      EXPECT_EQ(MORVAReplace(inst, data, key, length), MORVA_INVALID);
      EXPECT_EQ(inst->Find(inst, key, length, nullptr), MORVA_INVALID);
      EXPECT_EQ(MORVAFind(inst, key, length, nullptr), MORVA_INVALID);
      EXPECT_EQ(inst->Find2(inst, key, length, probeNode, nullptr), MORVA_INVALID);
      EXPECT_EQ(inst->FindNode(inst, key, length, nullptr, nullptr), MORVA_INVALID);
      EXPECT_EQ(inst->Remove(inst, key, length), MORVA_INVALID);
      EXPECT_EQ(inst->HashVal(inst, key, length, nullptr), MORVA_INVALID);
    }
    EXPECT_EQ(host.story(), "") << nameOf(mode);
    EXPECT_EQ(inst->freeRecords, nullptr);
  }
}

TEST_F(VarStorage, ASlotBeyondThirtyTwoBitsIsRefusedBeforeANodeIsTaken) {
  // 0xFFFFFF00 bytes of data leave 208 for what lies before them.
  MORVAInst *inst = make(0xFFFFFF00);
  const std::string key(1000, 'k');
  host.forget();
  const uint32_t recordSize = inst->recordSize;
  for (const int32_t length : {197, 198, 1000}) {
    EXPECT_EQ(inst->Add(inst, key.data(), key.data(), length), MORVA_INVALID);
    EXPECT_EQ(inst->Find(inst, key.data(), length, nullptr), MORVA_INVALID);
    EXPECT_EQ(inst->Remove(inst, key.data(), length), MORVA_INVALID);
    EXPECT_EQ(inst->FindNode(inst, key.data(), length, nullptr, nullptr), MORVA_INVALID);
    EXPECT_EQ(inst->HashVal(inst, key.data(), length, nullptr), MORVA_INVALID);
  }
  EXPECT_EQ(host.story(), "");
  EXPECT_EQ(inst->recordSize, recordSize);
  // One byte less fits: 196 + 12 is 208.
  EXPECT_EQ(inst->Find(inst, key.data(), 196, nullptr), MORVA_OK);
  EXPECT_EQ(inst->RecSize(inst), 0xFFFFFFF0u);
  EXPECT_EQ(host.eventsOf(Call::allocate).at(0).a, 0xFFFFFFF0u);
}

}  // namespace
}  // namespace morva_test
