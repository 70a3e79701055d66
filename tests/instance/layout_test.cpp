// The layout of records: the numbers an instance works out, and where the
// bytes of a stored record are found.
#include "instance_test.h"

namespace morva_test {
namespace {

class Layout : public InstanceTest {
 protected:
  MORVAInst *fixed(uint32_t more, uint32_t keyLength, uint32_t dataLength) {
    Shape shape;
    shape.flags = flagFixedKey | more;
    shape.keyLength = keyLength;
    shape.dataLength = dataLength;
    return create(shape);
  }

  MORVAInst *defined(uint32_t more, const std::vector<uint32_t> &lengths, uint32_t dataLength) {
    Shape shape;
    shape.flags = more;
    MORVAInst *inst = create(shape);
    if (inst != nullptr) define(inst, lengths, dataLength);
    return inst;
  }
};

TEST_F(Layout, FixedKeyOfEightWithSixteenBytesOfData) {
  const MORVAInst *inst = fixed(0, 8, 16);
  EXPECT_EQ(inst->keyLength, 20u);
  EXPECT_EQ(inst->dataOffset, 24u);
  EXPECT_EQ(inst->recordSize, 40u);
  EXPECT_EQ(inst->sumOffset, 0u);
  EXPECT_EQ(inst->RecSize(inst), 80u);
}

TEST_F(Layout, SumsGoBetweenKeyAndData) {
  const MORVAInst *inst = fixed(flagSum, 8, 16);
  EXPECT_EQ(inst->keyLength, 20u);
  EXPECT_EQ(inst->sumOffset, 24u);
  EXPECT_EQ(inst->dataOffset, 32u);
  EXPECT_EQ(inst->recordSize, 48u);
}

TEST_F(Layout, DuplicatesTakeTwentyFourBytesMore) {
  const MORVAInst *both = fixed(flagSum | flagMultiData, 8, 16);
  EXPECT_EQ(both->sumOffset, 24u);
  EXPECT_EQ(both->dataOffset, 32u);
  EXPECT_EQ(both->recordSize, 72u);
  const MORVAInst *alone = fixed(flagMultiData, 8, 16);
  EXPECT_EQ(alone->dataOffset, 24u);
  EXPECT_EQ(alone->recordSize, 64u);
}

// Multiples are found by counting up, so that no mask can be wrong the same way twice.
uint64_t nextMultiple(uint64_t from, uint64_t of) {
  while (from % of != 0) ++from;
  return from;
}

uint64_t lastMultiple(uint64_t from, uint64_t of) {
  while (from % of != 0) --from;
  return from;
}

void expectLayout(const MORVAInst *inst, uint64_t keyArea, uint64_t dataLength) {
  const bool sums = (inst->flags & flagSum) != 0;
  const bool duplicates = (inst->flags & flagMultiData) != 0;
  const uint64_t sumOffset = sums ? nextMultiple(keyArea, 8) : 0;
  const uint64_t dataOffset = nextMultiple(sums ? sumOffset + 8 : keyArea, 8);
  const uint64_t recordSize = dataOffset + dataLength + (duplicates ? 24 : 0);
  EXPECT_EQ(inst->keyLength, keyArea);
  EXPECT_EQ(inst->sumOffset, sumOffset);
  EXPECT_EQ(inst->dataOffset, dataOffset);
  EXPECT_EQ(inst->dataLength, dataLength);
  EXPECT_EQ(inst->recordSize, recordSize);
  EXPECT_EQ(inst->RecSize(inst), lastMultiple(recordSize + 47, 16));
  EXPECT_EQ(inst->recordBlockMax,
            static_cast<int64_t>(2013265 / lastMultiple(recordSize + 47, 16)));
}

TEST_F(Layout, EveryKeyAndDataLengthFollowsTheRule) {
  for (const uint32_t more : {uint32_t{0}, uint32_t{flagSum}, uint32_t{flagMultiData},
                              uint32_t{flagSum | flagMultiData}}) {
    for (uint32_t keyLength = 0; keyLength != 34; ++keyLength) {
      for (const uint32_t dataLength : {0u, 1u, 7u, 8u, 9u, 15u, 16u, 17u, 100u}) {
        SCOPED_TRACE(::testing::Message() << more << " " << keyLength << " " << dataLength);
        MORVAInst *raw = fixed(more, keyLength, dataLength);
        ASSERT_NE(raw, nullptr);
        expectLayout(raw, uint64_t{keyLength} + 12, dataLength);
        destroy(raw);
        MORVAInst *packed = defined(more, {keyLength}, dataLength);
        ASSERT_NE(packed, nullptr);
        expectLayout(packed, keyLength, dataLength);
        destroy(packed);
      }
    }
  }
}

TEST_F(Layout, SlotSizesRoundUpWithSlack) {
  // No key at all leaves the record to the data.
  const MORVAInst *one = defined(0, {}, 1);
  EXPECT_EQ(one->recordSize, 1u);
  EXPECT_EQ(one->RecSize(one), 48u);
  const MORVAInst *seventeen = defined(0, {}, 17);
  EXPECT_EQ(seventeen->recordSize, 17u);
  EXPECT_EQ(seventeen->RecSize(seventeen), 64u);
  const MORVAInst *none = defined(0, {}, 0);
  EXPECT_EQ(none->RecSize(none), 32u);
}

// ---- records that do not fit in 32 bits -------------------------------------

TEST_F(Layout, RecordsBeyondThirtyTwoBitsAreRefused) {
  struct Case {
    uint32_t flags, keyLength, dataLength;
  };
  // A slot is the record rounded up by at most 47 bytes and must stay below 2^32.
  const Case refused[] = {
      {0x4, 0xFFFFFFFF, 0},   {0x4, 0xFFFFFFF4, 0},           {0x4, 0xFFFFFFF3, 16},
      {0x4, 0, 0xFFFFFFFF},   {0x4, 8, 0xFFFFFFB9},           {0x104, 8, 0xFFFFFFB1},
      {0x204, 8, 0xFFFFFFA1}, {0x304, 8, 0xFFFFFF99},         {0x4, 0x80000000, 0x80000000},
      {0x104, 0xFFFFFFC1, 0}, {0x304, 0xFFFFFFFF, 0xFFFFFFFF}};
  for (const Case &c : refused) {
    Shape shape;
    shape.flags = c.flags;
    shape.keyLength = c.keyLength;
    shape.dataLength = c.dataLength;
    EXPECT_EQ(create(shape, "ab"), nullptr);
    EXPECT_EQ(host.poolsAlive(), 1u);
    EXPECT_EQ(host.blocksAlive(), 1u);
    EXPECT_EQ(host.companionsAlive(), 0u);
  }
}

TEST_F(Layout, TheLargestRecordsThatFitAreAccepted) {
  struct Case {
    uint32_t flags, keyLength, dataLength;
  };
  const Case accepted[] = {{0x4, 8, 0xFFFFFFB8},
                           {0x104, 8, 0xFFFFFFB0},
                           {0x204, 8, 0xFFFFFFA0},
                           {0x304, 8, 0xFFFFFF98},
                           {0x4, 0xFFFFFFC4, 0}};
  for (const Case &c : accepted) {
    Shape shape;
    shape.flags = c.flags;
    shape.keyLength = c.keyLength;
    shape.dataLength = c.dataLength;
    MORVAInst *inst = create(shape);
    ASSERT_NE(inst, nullptr) << c.flags;
    EXPECT_EQ(inst->recordSize, 0xFFFFFFD0u) << c.flags;
    EXPECT_EQ(inst->RecSize(inst), 0xFFFFFFF0u) << c.flags;
  }
}

// ---- stored bytes -----------------------------------------------------------

TEST_F(Layout, AFixedKeyRecordHoldsPrefixKeySumLinksAndData) {
  MORVAInst *inst = fixed(flagSum | flagMultiData, 8, 5);
  inst->SetSumInc(inst, 2.5);
  ASSERT_EQ(inst->Add(inst, "hello", "key", 3), MORVA_OK);
  RecordNode *node = slotOf(inst->recordBlocks, 80, 0);
  EXPECT_EQ(node->owner, inst);
  char *base = static_cast<char *>(MORVARecordBase(node));
  EXPECT_EQ(prefixOf(node).length, 3u);
  EXPECT_EQ(prefixOf(node).capacity, 0u);
  EXPECT_EQ(std::string(base + 8, 3), "key");
  double sum;
  std::memcpy(&sum, base + 24, sizeof sum);
  EXPECT_EQ(sum, 2.5);
  DupLinks links;
  std::memcpy(&links, base + 32, sizeof links);
  EXPECT_EQ(links.next, nullptr);
  EXPECT_EQ(links.back, reinterpret_cast<DupLinks *>(base + 32));
  EXPECT_EQ(std::string(base + 48, 5), "hello");
  void *data = nullptr;
  EXPECT_EQ(inst->Find(inst, "key", 3, &data), MORVA_OK);
  EXPECT_EQ(data, base + 48);
}

TEST_F(Layout, AFreshFixedKeyAreaIsZeroBehindTheKey) {
  MORVAInst *inst = fixed(0, 8, 5);
  ASSERT_EQ(inst->Add(inst, "hello", "key", 3), MORVA_OK);
  const char *base = static_cast<char *>(MORVARecordBase(slotOf(inst->recordBlocks, 64, 0)));
  EXPECT_EQ(std::string(base + 11, inst->keyLength - 11), std::string(inst->keyLength - 11, '\0'));
}

TEST_F(Layout, AReusedFixedKeyAreaKeepsItsStaleBytes) {
  MORVAInst *inst = fixed(0, 8, 5);
  ASSERT_EQ(inst->Add(inst, "hello", "longkey", 7), MORVA_OK);
  ASSERT_EQ(inst->Remove(inst, "longkey", 7), MORVA_OK);
  ASSERT_EQ(inst->Add(inst, "hello", "k", 1), MORVA_OK);
  const char *base = static_cast<char *>(MORVARecordBase(slotOf(inst->recordBlocks, 64, 0)));
  EXPECT_EQ(std::string(base + 8, 7), "kongkey");
}

TEST_F(Layout, APackedKeyStartsAtTheRecordBase) {
  MORVAInst *inst = defined(flagSum, {3, 10}, 5);
  EXPECT_EQ(inst->sumOffset, 16u);
  EXPECT_EQ(inst->dataOffset, 24u);
  inst->SetSumInc(inst, -1.0);
  ASSERT_EQ(inst->Add(inst, "hello", "abcdefghijklm", -1), MORVA_OK);
  RecordNode *node = slotOf(inst->recordBlocks, 64, 0);
  const char *base = static_cast<char *>(MORVARecordBase(node));
  EXPECT_EQ(std::string(base, 13), "abcdefghijklm");
  double sum;
  std::memcpy(&sum, base + 16, sizeof sum);
  EXPECT_EQ(sum, -1.0);
  EXPECT_EQ(std::string(base + 24, 5), "hello");
}

TEST_F(Layout, ThePackerIsGivenTheHostsKeyTheRecordBaseAndOne) {
  MORVAInst *inst = defined(0, {8}, 4);
  const char key[] = "host key";
  host.forget();
  ASSERT_EQ(inst->Add(inst, "data", key, 0), MORVA_OK);
  ASSERT_EQ(host.count(Call::pack), 1u);
  const Event pack = host.eventsOf(Call::pack)[0];
  EXPECT_EQ(pack.a, reinterpret_cast<uintptr_t>(key));
  EXPECT_EQ(pack.b, reinterpret_cast<uintptr_t>(
                        MORVARecordBase(slotOf(inst->recordBlocks, inst->RecSize(inst), 0))));
  EXPECT_EQ(pack.c, 1u);
}

}  // namespace
}  // namespace morva_test
