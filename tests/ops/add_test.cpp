#include <gmock/gmock.h>

#include <cstring>

#include "table.h"

namespace morva_test {
namespace {

using testing::ElementsAre;

class Add : public OpsTest {};
class AddEveryShape : public OpsShapeTest {};
class AddSingle : public OpsShapeTest {};
class AddMulti : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, AddEveryShape, testing::ValuesIn(sampledShapes()), nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, AddSingle, testing::ValuesIn(sampledShapes(0, flagMultiData)),
                         nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, AddMulti, testing::ValuesIn(sampledShapes(flagMultiData)),
                         nameOfShape);

TEST_P(AddEveryShape, StoresTheDataUnderTheKeyAndCountsTheRecord) {
  Table table(host, ext.get(), GetParam());
  EXPECT_EQ(table.add("red", "1"), MORVA_OK);
  EXPECT_EQ(table.add("green", "2"), MORVA_OK);
  EXPECT_EQ(table.all("red"), "1");
  EXPECT_EQ(table.all("green"), "2");
  EXPECT_EQ(table.all("blue"), "-");
  EXPECT_EQ(table.elements(), 2u);
  EXPECT_EQ(table.bucket()->count, 2u);
  EXPECT_EQ(table.used(), 1u);
}

TEST_P(AddEveryShape, CopiesKeyAndDataSoThatTheCallersBuffersMayChange) {
  Table table(host, ext.get(), GetParam());
  std::string key = table.key("red");
  std::string data = table.bytes("1");
  ASSERT_EQ(table->Add(table.get(), data.data(), key.data(), 3), MORVA_OK);
  key.assign(key.size(), '#');
  data.assign(data.size(), '#');
  EXPECT_EQ(table.all("red"), "1");
}

TEST_P(AddEveryShape, SetsTheOwnerOfTheNodeToTheInstance) {
  Table table(host, ext.get(), GetParam());
  EXPECT_EQ(table.put("red", "1")->owner, table.get());
}

TEST_P(AddEveryShape, CountsTheBucketAsUsedBeforeTheInsertionAndTheRecordAfterIt) {
  Table table(host, ext.get(), GetParam());
  uint32_t used = 99, elements = 99, count = 99;
  host.onEvent = [&](const Event &event) {
    if (event.call != Call::treeInsert) return;
    used = table.used();
    elements = table.elements();
    count = table.bucket()->count;
  };
  EXPECT_EQ(table.add("red", "1"), MORVA_OK);
  host.onEvent = nullptr;
  EXPECT_EQ(used, 1u);
  EXPECT_EQ(elements, 0u);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.bucket()->count, 1u);
}

TEST_P(AddEveryShape, GivesTheTreeTheBucketTheFreshNodeAndTheBucketArray) {
  Shape shape = GetParam();
  shape.hashExp = 6;
  Table table(host, ext.get(), shape);
  uint32_t index = 0;
  ASSERT_EQ(table.hashVal("red", &index), MORVA_OK);
  ASSERT_EQ(table.add("red", "1"), MORVA_OK);
  const Event insert = host.eventsOf(Call::treeInsert).back();
  EXPECT_EQ(insert.c, reinterpret_cast<uint64_t>(table.bucket(index)));
  EXPECT_EQ(insert.d, reinterpret_cast<uint64_t>(table->buckets));
  EXPECT_EQ(insert.b, insert.a);
  EXPECT_EQ(table.bucket(index)->count, 1u);
}

TEST_P(AddEveryShape, CountsUsedBucketsOncePerBucket) {
  Shape shape = GetParam();
  shape.hashExp = 4;
  Table table(host, ext.get(), shape);
  std::vector<uint32_t> perBucket(16);
  for (int i = 0; i < 40; i++) {
    const std::string key = numbered("k", i);
    uint32_t index = 0;
    ASSERT_EQ(table.hashVal(key, &index), MORVA_OK);
    ASSERT_LT(index, 16u);
    perBucket[index]++;
    ASSERT_EQ(table.add(key, "x"), MORVA_OK);
  }
  uint32_t used = 0;
  for (uint32_t i = 0; i < 16; i++) {
    EXPECT_EQ(table.bucket(i)->count, perBucket[i]) << i;
    used += perBucket[i] != 0;
  }
  EXPECT_EQ(table.used(), used);
  EXPECT_EQ(table.elements(), 40u);
}

TEST_P(AddEveryShape, UsesItsNodeUpAndLeavesNoneOnTheFreeChain) {
  Table table(host, ext.get(), GetParam());
  ASSERT_EQ(table.add("red", "1"), MORVA_OK);
  EXPECT_TRUE(table.freeRecords().empty());
}

TEST_P(AddEveryShape, TakesTheHeadOfTheFreeChainFirst) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  table.put("blu", "2");
  ASSERT_EQ(table.remove("red"), MORVA_OK);
  ASSERT_EQ(table.remove("blu"), MORVA_OK);
  const std::vector<RecordNode *> free = table.freeRecords();
  ASSERT_GE(free.size(), 2u);
  host.forget();
  EXPECT_EQ(table.put("pin", "3"), free[0]);
  EXPECT_EQ(table.put("tan", "4"), free[1]);
  EXPECT_EQ(host.count(Call::allocate), 0u);
}

TEST_P(AddSingle, AnEqualKeyIsAnsweredWithOneAndTheFirstDataStays) {
  Table table(host, ext.get(), GetParam());
  EXPECT_EQ(table.add("red", "1"), MORVA_OK);
  EXPECT_EQ(table.add("red", "2"), MORVA_PRESENT);
  EXPECT_EQ(table.all("red"), "1");
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.bucket()->count, 1u);
  EXPECT_EQ(table.used(), 1u);
}

TEST_P(AddSingle, TheNodeOfAnEqualKeyGoesToTheHeadOfTheFreeChain) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  table.put("blu", "2");
  ASSERT_EQ(table.remove("blu"), MORVA_OK);
  const std::vector<RecordNode *> before = table.freeRecords();
  EXPECT_EQ(table.add("red", "2"), MORVA_PRESENT);
  EXPECT_EQ(table.offered(), before.front());
  EXPECT_EQ(table.freeRecords(), before);
}

TEST_P(AddSingle, TheFreshNodeIsPushedOnAnEmptyFreeChainWhenTheKeyIsPresent) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  ASSERT_TRUE(table.freeRecords().empty());
  EXPECT_EQ(table.add("red", "2"), MORVA_PRESENT);
  EXPECT_THAT(table.freeRecords(), ElementsAre(table.offered()));
}

TEST_P(AddSingle, AnEqualKeyTakesNoOrderNode) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  const int64_t used = table->inodesUsed;
  EXPECT_EQ(table.add("red", "2"), MORVA_PRESENT);
  EXPECT_EQ(table->inodesUsed, used);
  EXPECT_EQ(host.count(Call::append), GetParam().has(flagOrdered) ? 1u : 0u);
}

TEST_P(AddMulti, AFirstRecordHasNoNextAndPointsBackToItsOwnPair) {
  Table table(host, ext.get(), GetParam());
  DupLinks *pair = table.links(table.put("red", "1"));
  EXPECT_EQ(pair->next, nullptr);
  EXPECT_EQ(pair->back, pair);
  EXPECT_EQ(table.textAt(pair + 1), "1");
}

TEST_P(AddMulti, FurtherRecordsAreChainedWordByWordInAddOrder) {
  Table table(host, ext.get(), GetParam());
  DupLinks *first = table.links(table.put("red", "1"));
  DupLinks *second = table.links(table.put("red", "2"));
  EXPECT_EQ(first->next, second);
  EXPECT_EQ(first->back, second);
  EXPECT_EQ(second->next, nullptr);
  EXPECT_EQ(second->back, first);

  DupLinks *third = table.links(table.put("red", "3"));
  EXPECT_EQ(first->next, second);
  EXPECT_EQ(first->back, third);
  EXPECT_EQ(second->next, third);
  EXPECT_EQ(second->back, first);
  EXPECT_EQ(third->next, nullptr);
  EXPECT_EQ(third->back, second);
  EXPECT_EQ(table.all("red"), "1 2 3");
}

TEST_P(AddMulti, ThreeAddsOfOneKeyMakeThreeElementsAndOneTreeNode) {
  Table table(host, ext.get(), GetParam());
  RecordNode *first = table.put("red", "1");
  RecordNode *second = table.put("red", "2");
  RecordNode *third = table.put("red", "3");
  EXPECT_EQ(table.elements(), 3u);
  EXPECT_EQ(table.bucket()->count, 3u);
  EXPECT_EQ(table.used(), 1u);
  EXPECT_EQ(table.bucket()->root, first);
  EXPECT_EQ(table->tree->first(table->tree, table.bucket()), first);
  EXPECT_EQ(table->tree->next(first), nullptr);
  for (const Event &insert : host.eventsOf(Call::treeInsert)) {
    EXPECT_EQ(insert.b, reinterpret_cast<uint64_t>(first));
  }
  EXPECT_EQ(second->owner, table.get());
  EXPECT_EQ(third->owner, table.get());
}

TEST_P(AddMulti, AFurtherRecordGetsNoOrderNode) {
  Table table(host, ext.get(), GetParam());
  RecordNode *first = table.put("red", "1");
  const int64_t used = table->inodesUsed;
  table.put("red", "2");
  EXPECT_EQ(table->inodesUsed, used);
  if (GetParam().has(flagOrdered)) {
    EXPECT_THAT(host.order(table.get()), ElementsAre(first));
  }
}

TEST_F(Add, AnOrderedAddCallsTheHostInItsOrder) {
  Shape made = shape(Keys::defined, flagOrdered);
  Table table(host, ext.get(), made);
  host.forget();
  ASSERT_EQ(table.add("red", "1"), MORVA_OK);
  std::vector<Call> calls;
  for (const Event &event : host.events()) calls.push_back(event.call);
  EXPECT_THAT(calls, ElementsAre(Call::acquire, Call::allocate, Call::pack, Call::treeInsert,
                                 Call::allocate, Call::append, Call::release));
  EXPECT_EQ(host.events()[1].text, "records");
  EXPECT_EQ(host.events()[4].text, "inodes");
}

TEST_F(Add, TheRecordIsCountedAfterItIsInTheOrder) {
  Table table(host, ext.get(), shape(Keys::fixed, flagOrdered));
  uint32_t elements = 99;
  host.onEvent = [&](const Event &event) {
    if (event.call == Call::append) elements = table.elements();
  };
  ASSERT_EQ(table.add("red", "1"), MORVA_OK);
  host.onEvent = nullptr;
  EXPECT_EQ(elements, 0u);
  EXPECT_EQ(table.elements(), 1u);
}

TEST_F(Add, DefinedKeysArePackedIntoTheRecordBaseWithOne) {
  Table table(host, ext.get(), shape(Keys::defined));
  const std::string key = table.key("red");
  ASSERT_EQ(table->Add(table.get(), table.bytes("1").data(), key.data(), 0), MORVA_OK);
  const Event pack = host.eventsOf(Call::pack).back();
  EXPECT_EQ(pack.a, reinterpret_cast<uint64_t>(key.data()));
  EXPECT_EQ(pack.b, reinterpret_cast<uint64_t>(table.base(table.offered())));
  EXPECT_EQ(pack.c, 1u);
}

TEST_F(Add, DefinedKeysIgnoreTheKeyLength) {
  Table table(host, ext.get(), shape(Keys::defined));
  const std::string key = table.key("red");
  const std::string data = table.bytes("1");
  EXPECT_EQ(table->Add(table.get(), data.data(), key.data(), -7), MORVA_OK);
  EXPECT_EQ(table->Add(table.get(), data.data(), key.data(), 1000), MORVA_PRESENT);
  EXPECT_EQ(table->Add(table.get(), data.data(), key.data(), 0), MORVA_PRESENT);
}

TEST_F(Add, RawKeysAreStoredWithTheirLengthInFront) {
  for (Keys keys : {Keys::fixed, Keys::var}) {
    Table table(host, ext.get(), shape(keys));
    RecordNode *node = table.put("red", "1");
    EXPECT_EQ(table.prefix(node)->length, 3u);
    EXPECT_EQ(table.prefix(node)->capacity, keys == Keys::var ? 3u : 0u);
    EXPECT_EQ(std::memcmp(table.base(node) + 8, "red", 3), 0);
  }
}

TEST_F(Add, TheEmptyKeyIsAKeyLikeAnyOther) {
  for (Keys keys : {Keys::fixed, Keys::var}) {
    Table table(host, ext.get(), shape(keys));
    const std::string data = table.bytes("1");
    EXPECT_EQ(table->Add(table.get(), data.data(), nullptr, 0), MORVA_OK);
    EXPECT_EQ(table->Add(table.get(), data.data(), "x", 0), MORVA_PRESENT);
    EXPECT_EQ(table.all(""), "1");
    EXPECT_EQ(table.elements(), 1u);
  }
}

TEST_F(Add, KeysMayHoldZeroBytesAndDifferOnlyInTheirLength) {
  for (Keys keys : {Keys::fixed, Keys::var}) {
    Table table(host, ext.get(), shape(keys));
    EXPECT_EQ(table.add(std::string_view("a\0", 2), "1"), MORVA_OK);
    EXPECT_EQ(table.add(std::string_view("a\0\0", 3), "2"), MORVA_OK);
    EXPECT_EQ(table.add("a", "3"), MORVA_OK);
    EXPECT_EQ(table.all("a"), "3");
    EXPECT_EQ(table.all(std::string_view("a\0", 2)), "1");
    EXPECT_EQ(table.all(std::string_view("a\0\0", 3)), "2");
  }
}

TEST_F(Add, WithoutDataBytesTheDataPointerMayBeNull) {
  for (const Shape &one : shapes()) {
    Shape made = one;
    made.dataLength = 0;
    Table table(host, ext.get(), made);
    EXPECT_EQ(table->Add(table.get(), nullptr, table.key("red").data(), 3), MORVA_OK);
    EXPECT_EQ(table.elements(), 1u);
    EXPECT_NE(table.at("red"), nullptr);
  }
}

TEST_F(Add, AFixedKeyAsLongAsTheKeyAreaIsAcceptedAndOneByteMoreIsRefused) {
  Table table(host, ext.get(), shape(Keys::fixed, flagSum));
  ASSERT_EQ(table->keyLength, 20u);
  EXPECT_EQ(table.add(std::string(20, 'k'), "1"), MORVA_OK);
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.add(std::string(21, 'k'), "1"), MORVA_INVALID);
  EXPECT_EQ(table.elements(), 1u);
}

TEST_F(Add, AFixedKeyWithinTheKeyAreaIsFoundAgain) {
  Table table(host, ext.get(), shape(Keys::fixed, flagSum));
  EXPECT_EQ(table.add(std::string(12, 'k'), "1"), MORVA_OK);
  EXPECT_EQ(table.all(std::string(12, 'k')), "1");
}

TEST_F(Add, ANodeIsLeftOutOfUseByAnOverLongFixedKey) {
  Table table(host, ext.get(), shape(Keys::fixed, flagSum | flagMultiData));
  table.put("red", "1");
  table.put("blu", "2");
  ASSERT_EQ(table.remove("red"), MORVA_OK);
  const std::vector<RecordNode *> before = table.freeRecords();
  ASSERT_GE(before.size(), 2u);
  const int64_t used = table->recordsUsed;
  EXPECT_EQ(table.add(std::string(21, 'k'), "3"), MORVA_INVALID);
  EXPECT_EQ(table.freeRecords(), std::vector<RecordNode *>(before.begin() + 1, before.end()));
  EXPECT_EQ(table->recordsUsed, used);
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.used(), 1u);
}

TEST_F(Add, ASlotIsLeftOutOfUseByAnOverLongFixedKeyOnAnEmptyFreeChain) {
  Table table(host, ext.get(), shape(Keys::fixed, flagSum));
  table.put("red", "1");
  ASSERT_EQ(table->recordsUsed, 1);
  EXPECT_EQ(table.add(std::string(21, 'k'), "3"), MORVA_INVALID);
  EXPECT_EQ(table->recordsUsed, 2);
  EXPECT_TRUE(table.freeRecords().empty());
}

TEST_F(Add, AnOverLongKeyLeavesAnUnusedBucketUnused) {
  Table table(host, ext.get(), shape(Keys::fixed, flagMultiData));
  EXPECT_EQ(table.add(std::string(21, 'k'), "3"), MORVA_INVALID);
  EXPECT_EQ(table.used(), 0u);
  EXPECT_EQ(host.count(Call::treeInsert), 0u);
}

TEST_F(Add, TheFirstBlockHoldsSixteenRecordsAndIsCountedInTheMemory) {
  Table table(host, ext.get(), shape(Keys::fixed, flagSum));
  ASSERT_EQ(table->RecSize(table.get()), 80u);
  host.forget();
  table.put("red", "1");
  const std::vector<Event> taken = host.eventsOf(Call::allocate);
  ASSERT_EQ(taken.size(), 1u);
  EXPECT_EQ(taken[0].text, "records");
  EXPECT_EQ(taken[0].a, 1296u);
  EXPECT_EQ(taken[0].b, 0u);
  EXPECT_EQ(table->TotalMem(table.get()), 1296u);
  for (int i = 1; i < 16; i++) table.put(numbered("k", i), "x");
  EXPECT_EQ(table->TotalMem(table.get()), 1296u);
  table.put("one more", "x");
  EXPECT_EQ(table->TotalMem(table.get()), 1296u + 32 * 80 + 16);
}

TEST_F(Add, RecordsLieInTheSlotsOfTheBlockInTheOrderTheyAreTaken) {
  Table table(host, ext.get(), shape(Keys::fixed));
  char *first = reinterpret_cast<char *>(table.put("a", "x"));
  EXPECT_EQ(first, static_cast<char *>(table->recordBlocks) + 8);
  EXPECT_EQ(reinterpret_cast<char *>(table.put("b", "x")), first + 80);
  EXPECT_EQ(reinterpret_cast<char *>(table.put("c", "x")), first + 160);
}

TEST_F(Add, WithoutMemoryNothingIsCounted) {
  for (const Shape &one : shapes()) {
    Table table(host, ext.get(), one);
    host.failCall(Call::allocate);
    EXPECT_EQ(table.add("red", "1"), MORVA_NO_MEMORY) << describe(one);
    EXPECT_EQ(host.failuresDelivered(), 1u);
    host.failNever();
    EXPECT_EQ(table.elements(), 0u);
    EXPECT_EQ(table.used(), 0u);
    EXPECT_EQ(table.bucket()->root, nullptr);
    EXPECT_EQ(table.add("red", "1"), MORVA_OK) << describe(one);
    EXPECT_EQ(table.all("red"), "1");
  }
}

TEST_F(Add, ARefusedBlockLeavesTheCapacityAsItWas) {
  Table table(host, ext.get(), shape(Keys::fixed));
  table.put("blu", "1");
  table.fillRecordBlock();
  ASSERT_EQ(table->recordBlockCapacity, 16);
  for (int i = 0; i < 3; i++) {
    host.failCall(Call::allocate);
    EXPECT_EQ(table.add("red", "1"), MORVA_NO_MEMORY);
    host.failNever();
    EXPECT_EQ(table->recordBlockCapacity, 16);
    EXPECT_EQ(table->recordsUsed, 16);
  }
  EXPECT_EQ(table.add("red", "1"), MORVA_OK);
  EXPECT_EQ(table->recordBlockCapacity, 32);
  EXPECT_EQ(table->recordBlockCount, 2u);
}

TEST_F(Add, GeneralAndFastRoutineStoreAlikeWhereBothMayBeUsed) {
  for (const Shape &one : shapes(0, flagSum | flagMultiData)) {
    Table table(host, ext.get(), one);
    const std::string data = table.bytes("1"), more = table.bytes("2");
    const std::string key = table.key("red");
    EXPECT_EQ(MORVAAdd(table.get(), data.data(), key.data(), 3), MORVA_OK);
    EXPECT_EQ(MORVAAdd(table.get(), more.data(), key.data(), 3), MORVA_PRESENT);
    EXPECT_EQ(MORVAFastAdd(table.get(), more.data(), key.data(), 3), MORVA_PRESENT);
    EXPECT_EQ(table.all("red"), "1");
    EXPECT_EQ(MORVAReplace(table.get(), more.data(), key.data(), 3), MORVA_OK);
    EXPECT_EQ(table.all("red"), "2");
    EXPECT_EQ(table.elements(), 1u);
  }
}

}  // namespace
}  // namespace morva_test
