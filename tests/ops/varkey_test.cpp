// Variable keys: every record is a block of its own, sized for its key, and
// the free chain is searched for the first block that fits.
#include <gmock/gmock.h>

#include <cstring>

#include "table.h"

namespace morva_test {
namespace {

using testing::ElementsAre;

class VarKey : public OpsTest {
 protected:
  Table table{host, ext.get(), shape(Keys::var, flagNoLock)};

  void TearDown() override {
    table.destroy();
    OpsTest::TearDown();
  }
  // Puts nodes of these capacities on the free chain, the last one in front.
  std::vector<RecordNode *> freeNodes(const std::vector<size_t> &capacities) {
    std::vector<RecordNode *> nodes;
    for (size_t capacity : capacities) nodes.push_back(table.put(std::string(capacity, 'k'), "x"));
    // By hand: a removal would shuffle scratch records among them.
    table.bucket()->root = nullptr;
    for (RecordNode *node : nodes) {
      node->owner = table->freeRecords;
      table->freeRecords = node;
    }
    host.forget();
    return nodes;
  }
};

TEST_F(VarKey, ANewNodeIsOneBlockSizedForItsKey) {
  const struct {
    size_t keyLen;
    uint64_t block;
  } sizes[] = {{0, 64}, {1, 64}, {4, 64}, {5, 80}, {12, 80}, {13, 80}, {21, 96}, {100, 160}};
  for (const auto &size : sizes) {
    host.forget();
    RecordNode *node = table.put(std::string(size.keyLen, 'k'), "x");
    const std::vector<Event> taken = host.eventsOf(Call::allocate);
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].text, "varkeys");
    EXPECT_EQ(taken[0].a, size.block) << size.keyLen;
    EXPECT_EQ(taken[0].b, 0u);
    EXPECT_EQ(taken[0].c, reinterpret_cast<uint64_t>(node));
    EXPECT_EQ(table.prefix(node)->capacity, size.keyLen);
    EXPECT_EQ(table.prefix(node)->length, size.keyLen);
    EXPECT_EQ(node->owner, table.get());
  }
}

TEST_F(VarKey, TheRecordSizeFollowsTheKeyOfTheLatestNode) {
  table.put("12345", "x");
  EXPECT_EQ(table->recordSize, 24u + 16u);
  EXPECT_EQ(table->RecSize(table.get()), (24u + 16u + 47u) & ~15u);
  table.put("1", "x");
  EXPECT_EQ(table->recordSize, 16u + 16u);
  ASSERT_EQ(table.find(std::string(30, 'k'), nullptr), MORVA_OK);
  EXPECT_EQ(table->recordSize, 48u + 16u);
  ASSERT_EQ(table.hashVal("", nullptr), MORVA_OK);
  EXPECT_EQ(table->recordSize, 16u + 16u);
}

TEST_F(VarKey, TheDataLieBehindTheKeyRoundedUpToEight) {
  for (size_t length : {0, 1, 4, 5, 12, 13, 100}) {
    const std::string key(length, 'k');
    RecordNode *node = table.put(key, numbered("data of ", length));
    void *data = nullptr;
    EXPECT_EQ(table.find(key, &data), MORVA_OK);
    EXPECT_EQ(data, table.base(node) + ((length + 19) & ~size_t{7}));
    EXPECT_EQ(table.textAt(data), numbered("data of ", length));
  }
}

TEST_F(VarKey, TheFirstNodeThatFitsIsTakenNotTheBest) {
  const std::vector<RecordNode *> nodes = freeNodes({5, 50, 9});
  ASSERT_THAT(table.freeRecords(), ElementsAre(nodes[2], nodes[1], nodes[0]));
  EXPECT_EQ(table.put("12345", "x"), nodes[2]);
  EXPECT_THAT(table.freeRecords(), ElementsAre(nodes[1], nodes[0]));
  EXPECT_EQ(table.put("1234567890", "x"), nodes[1]);
  EXPECT_THAT(table.freeRecords(), ElementsAre(nodes[0]));
  EXPECT_EQ(host.count(Call::allocate), 0u);
}

TEST_F(VarKey, ANodeInTheMiddleOrAtTheEndOfTheChainIsUnlinked) {
  const std::vector<RecordNode *> nodes = freeNodes({30, 2, 20, 1});
  EXPECT_EQ(table.put(std::string(15, 'a'), "x"), nodes[2]);
  EXPECT_THAT(table.freeRecords(), ElementsAre(nodes[3], nodes[1], nodes[0]));
  EXPECT_EQ(table.put(std::string(15, 'b'), "x"), nodes[0]);
  EXPECT_THAT(table.freeRecords(), ElementsAre(nodes[3], nodes[1]));
}

TEST_F(VarKey, ACapacityEqualToTheLengthFits) {
  const std::vector<RecordNode *> nodes = freeNodes({7, 6});
  EXPECT_EQ(table.put("1234567", "x"), nodes[0]);
  EXPECT_EQ(table.put("123456", "x"), nodes[1]);
}

TEST_F(VarKey, WhereNoneFitsANewNodeIsMadeAndTheChainStays) {
  const std::vector<RecordNode *> nodes = freeNodes({3, 4});
  RecordNode *fresh = table.put("12345", "x");
  EXPECT_EQ(host.count(Call::allocate), 1u);
  EXPECT_THAT(table.freeRecords(), ElementsAre(nodes[1], nodes[0]));
  EXPECT_EQ(table.prefix(fresh)->capacity, 5u);
}

TEST_F(VarKey, AReusedNodeKeepsItsCapacityAndTakesTheLengthOfItsKey) {
  const std::vector<RecordNode *> nodes = freeNodes({40});
  ASSERT_EQ(table.put("123", "x"), nodes[0]);
  EXPECT_EQ(table.prefix(nodes[0])->capacity, 40u);
  EXPECT_EQ(table.prefix(nodes[0])->length, 3u);
  EXPECT_EQ(table->Recoff(table.get(), nodes[0]), 16u) << "the data follow the short key";
  EXPECT_EQ(table.all("123"), "x");
  ASSERT_EQ(table.remove("123"), MORVA_OK);
  EXPECT_EQ(table.put(std::string(40, 'k'), "y"), nodes[0]);
  EXPECT_EQ(table.all(std::string(40, 'k')), "y");
}

TEST_F(VarKey, AScratchRecordFromTheMiddleOfTheChainIsPutInFront) {
  const std::vector<RecordNode *> nodes = freeNodes({9, 2});
  EXPECT_EQ(table.find("12345", nullptr), MORVA_OK);
  EXPECT_THAT(table.freeRecords(), ElementsAre(nodes[0], nodes[1]));
  EXPECT_EQ(table.find("1", nullptr), MORVA_OK);
  EXPECT_THAT(table.freeRecords(), ElementsAre(nodes[0], nodes[1]));
}

TEST_F(VarKey, TheNodeOfAKeyAlreadyPresentStaysOnTheFreeChain) {
  table.put("12345", "x");
  EXPECT_EQ(table.add("12345", "y"), MORVA_PRESENT);
  ASSERT_EQ(table.freeRecords().size(), 1u);
  EXPECT_EQ(table.prefix(table.freeRecords()[0])->capacity, 5u);
  host.forget();
  EXPECT_EQ(table.add("12345", "y"), MORVA_PRESENT);
  EXPECT_EQ(host.count(Call::allocate), 0u);
}

TEST_F(VarKey, ReplaceWritesWhereTheStoredKeyHasItsData) {
  for (size_t length : {0, 3, 5, 11, 64}) {
    const std::string key(length, 'k');
    RecordNode *node = table.put(key, "before");
    EXPECT_EQ(table.replace(key, "after"), MORVA_OK);
    EXPECT_EQ(table.textAt(table.dataOf(node)), "after");
    EXPECT_EQ(table.all(key), "after");
  }
}

TEST_F(VarKey, LongKeysAreKeysLikeAnyOther) {
  std::string key(100000, 'k');
  table.put(key, "1");
  key.back() = 'j';
  EXPECT_EQ(table.all(key), "-");
  table.put(key, "2");
  EXPECT_EQ(table.all(key), "2");
  EXPECT_EQ(table.all(std::string(100000, 'k')), "1");
}

TEST_F(VarKey, RecordBlocksAreNotUsed) {
  for (int i = 0; i < 50; i++) table.put(numbered("k", i), "x");
  EXPECT_EQ(table->recordBlocks, nullptr);
  EXPECT_EQ(table->TotalMem(table.get()), 0u);
  EXPECT_EQ(host.blocksAlive("varkeys"), 50u);
}

TEST_F(VarKey, ClearingGivesEveryNodeBackSoThatFillingAndClearingDoesNotGrow) {
  for (int round = 0; round < 3; round++) {
    for (int i = 0; i < 20; i++) table.put(numbered("k", i), "x");
    ASSERT_EQ(table.remove("k7"), MORVA_OK);  // leaves nodes on the free chain
    EXPECT_EQ(host.blocksAlive("varkeys"), 21u);
    EXPECT_EQ(table->Clear(table.get()), MORVA_OK);
    EXPECT_EQ(host.blocksAlive("varkeys"), 0u);
    EXPECT_TRUE(table.freeRecords().empty());
  }
}

TEST_F(VarKey, AKeyWhoseRecordDoesNotFitIn32BitsIsRefusedBeforeTheLock) {
  for (uint32_t options : {0u, uint32_t{flagOrdered}}) {
    Shape made = shape(Keys::var, options);
    // Header and rounding included, a key of up to 4 bytes fits and a longer one does not.
    made.dataLength = UINT32_MAX - 47 - 16;
    Table huge(host, ext.get(), made);
    char data[1] = {};
    std::vector<uint64_t> probe(32);
    auto *record = reinterpret_cast<RecordNode *>(probe.data());
    EXPECT_EQ(lockUse(host,
                      [&] {
                        MORVAInst *inst = huge.get();
                        EXPECT_EQ(inst->Add(inst, data, "12345", 5), MORVA_INVALID);
                        EXPECT_EQ(inst->Replace(inst, data, "12345", 5), MORVA_INVALID);
                        EXPECT_EQ(inst->Find(inst, "12345", 5, nullptr), MORVA_INVALID);
                        EXPECT_EQ(inst->HashVal(inst, "12345", 5, nullptr), MORVA_INVALID);
                        EXPECT_EQ(inst->Remove(inst, "12345", 5), MORVA_INVALID);
                        EXPECT_EQ(inst->FindNode(inst, "12345", 5, nullptr, nullptr),
                                  MORVA_INVALID);
                        EXPECT_EQ(MORVAAdd(inst, data, "12345", 5), MORVA_INVALID);
                        EXPECT_EQ(MORVAFind(inst, "12345", 5, nullptr), MORVA_INVALID);
                        EXPECT_EQ(inst->Find2(inst, "12345", 5, record, nullptr), MORVA_INVALID);
                      }),
              LockUse::none);
    EXPECT_TRUE(host.events().empty()) << host.story();
    host.failCall(Call::allocate);
    EXPECT_EQ(huge->Add(huge.get(), data, "1234", 4), MORVA_NO_MEMORY) << "it was asked for";
    host.failNever();
    EXPECT_EQ(host.eventsOf(Call::allocate).back().a, UINT32_MAX - 15u);
  }
}

}  // namespace
}  // namespace morva_test
