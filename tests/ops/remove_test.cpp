#include <gmock/gmock.h>

#include "table.h"

namespace morva_test {
namespace {

using testing::ElementsAre;

class Remove : public OpsTest {};
class RemoveEveryShape : public OpsShapeTest {};
class RemoveMulti : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, RemoveEveryShape, testing::ValuesIn(sampledShapes()), nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, RemoveMulti, testing::ValuesIn(sampledShapes(flagMultiData)),
                         nameOfShape);

TEST_P(RemoveEveryShape, AnAbsentKeyIsRefusedAndNothingChanges) {
  Table table(host, ext.get(), GetParam());
  EXPECT_EQ(table.remove("red"), MORVA_INVALID);
  EXPECT_EQ(table.used(), 0u);
  table.put("blu", "1");
  EXPECT_EQ(table.remove("red"), MORVA_INVALID);
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.bucket()->count, 1u);
  EXPECT_EQ(table.used(), 1u);
  EXPECT_EQ(table.all("blu"), "1");
  EXPECT_EQ(host.count(Call::treeRemove), 0u);
  EXPECT_EQ(host.count(Call::unlink), 0u);
}

TEST_P(RemoveEveryShape, ARemovedKeyIsGoneAndTheOthersStay) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  table.put("blu", "2");
  EXPECT_EQ(table.remove("red"), MORVA_OK);
  EXPECT_EQ(table.all("red"), "-");
  EXPECT_EQ(table.all("blu"), "2");
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.bucket()->count, 1u);
  EXPECT_EQ(table.used(), 1u);
  EXPECT_EQ(table.remove("red"), MORVA_INVALID);
  EXPECT_EQ(table.elements(), 1u);
}

TEST_P(RemoveEveryShape, TheLastRecordOfABucketTakesTheBucketOutOfUse) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  ASSERT_EQ(table.used(), 1u);
  EXPECT_EQ(table.remove("red"), MORVA_OK);
  EXPECT_EQ(table.used(), 0u);
  EXPECT_EQ(table.elements(), 0u);
  EXPECT_EQ(table.bucket()->count, 0u);
  EXPECT_EQ(table.bucket()->root, nullptr);
}

TEST_P(RemoveEveryShape, BucketsGoOutOfUseEachForItself) {
  Shape made = GetParam();
  made.hashExp = 4;
  Table table(host, ext.get(), made);
  std::vector<uint32_t> perBucket(16);
  const auto key = [](int i) { return numbered("k", i); };
  const auto used = [&] {
    uint32_t count = 0;
    for (uint32_t one : perBucket) count += one != 0;
    return count;
  };
  for (int i = 0; i < 40; i++) {
    uint32_t index = 0;
    ASSERT_EQ(table.hashVal(key(i), &index), MORVA_OK);
    perBucket[index]++;
    table.put(key(i), "x");
  }
  for (int i = 0; i < 40; i++) {
    uint32_t index = 0;
    ASSERT_EQ(table.hashVal(key(i), &index), MORVA_OK);
    ASSERT_EQ(table.remove(key(i)), MORVA_OK);
    perBucket[index]--;
    EXPECT_EQ(table.bucket(index)->count, perBucket[index]);
    EXPECT_EQ(table.used(), used());
    EXPECT_EQ(table.elements(), 39u - i);
  }
  EXPECT_EQ(table.used(), 0u);
}

TEST_P(RemoveEveryShape, TheScratchRecordThenTheNodeArePushedOnTheFreeChain) {
  Table table(host, ext.get(), GetParam());
  RecordNode *red = table.put("red", "1");
  ASSERT_TRUE(table.freeRecords().empty());
  EXPECT_EQ(table.remove("red"), MORVA_OK);
  const auto *scratch = reinterpret_cast<RecordNode *>(host.eventsOf(Call::treeFind).back().a);
  EXPECT_THAT(table.freeRecords(), ElementsAre(red, scratch));
}

TEST_P(RemoveEveryShape, TheScratchRecordOfAnAbsentKeyIsGivenBack) {
  Table table(host, ext.get(), GetParam());
  EXPECT_EQ(table.remove("red"), MORVA_INVALID);
  ASSERT_EQ(table.freeRecords().size(), 1u);
  RecordNode *scratch = table.freeRecords()[0];
  EXPECT_EQ(table.remove("blu"), MORVA_INVALID);
  EXPECT_THAT(table.freeRecords(), ElementsAre(scratch));
}

TEST_P(RemoveEveryShape, TheNodesLinksAreZeroAfterwards) {
  Table table(host, ext.get(), GetParam());
  RecordNode *red = table.put("red", "1");
  table.put("blu", "2");
  EXPECT_EQ(table.remove("red"), MORVA_OK);
  EXPECT_EQ(red->left, 0u);
  EXPECT_EQ(red->right, 0u);
}

TEST_P(RemoveEveryShape, ARemovedNodeServesTheNextInsertion) {
  Table table(host, ext.get(), GetParam());
  RecordNode *red = table.put("red", "1");
  EXPECT_EQ(table.remove("red"), MORVA_OK);
  host.forget();
  EXPECT_EQ(table.put("blu", "2"), red);
  EXPECT_EQ(host.count(Call::allocate), 0u);
  EXPECT_EQ(table.all("blu"), "2");
}

TEST_P(RemoveEveryShape, GivesNoMemoryBackToTheHost) {
  Table table(host, ext.get(), GetParam());
  for (int i = 0; i < 40; i++) table.put(numbered("k", i), "x");
  const uint64_t memory = table->TotalMem(table.get());
  host.forget();
  for (int i = 0; i < 40; i++) EXPECT_EQ(table.remove(numbered("k", i)), MORVA_OK);
  EXPECT_EQ(host.count(Call::freeBlock), 0u);
  EXPECT_GE(table->TotalMem(table.get()), memory);
}

TEST_P(RemoveEveryShape, TheKeyIsSearchedThenRemovedWithTheScratchRecord) {
  Table table(host, ext.get(), GetParam());
  RecordNode *red = table.put("red", "1");
  host.forget();
  EXPECT_EQ(table.remove("red"), MORVA_OK);
  ASSERT_EQ(host.count(Call::treeFind), 1u);
  ASSERT_EQ(host.count(Call::treeRemove), 1u);
  const Event found = host.eventsOf(Call::treeFind)[0];
  const Event removed = host.eventsOf(Call::treeRemove)[0];
  EXPECT_EQ(found.b, reinterpret_cast<uint64_t>(red));
  EXPECT_EQ(removed.b, reinterpret_cast<uint64_t>(red));
  EXPECT_EQ(found.a, removed.a);
  EXPECT_EQ(found.c, reinterpret_cast<uint64_t>(table.bucket()));
  EXPECT_EQ(removed.c, reinterpret_cast<uint64_t>(table.bucket()));
}

TEST_P(RemoveEveryShape, WithoutAScratchRecordNothingIsRemoved) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  if (GetParam().keys != Keys::var) table.fillRecordBlock();
  const uint32_t elements = table.elements();
  host.failCall(Call::allocate);
  EXPECT_EQ(table.remove("red"), MORVA_NO_MEMORY);
  EXPECT_EQ(host.failuresDelivered(), 1u);
  host.failNever();
  EXPECT_EQ(table.elements(), elements);
  EXPECT_EQ(table.all("red"), "1");
}

TEST_P(RemoveEveryShape, FillingAndEmptyingInTurnTakesNoFurtherMemory) {
  Table table(host, ext.get(), GetParam());
  uint64_t allocations = 0;
  for (int round = 0; round < 5; round++) {
    for (int i = 10; i < 60; i++) table.put(numbered("k", i), "x");
    for (int i = 10; i < 60; i++) {
      EXPECT_EQ(table.remove(numbered("k", i)), MORVA_OK);
    }
    EXPECT_EQ(table.elements(), 0u);
    if (round == 0) allocations = host.count(Call::allocate);
    EXPECT_EQ(host.count(Call::allocate), allocations) << "round " << round;
  }
}

TEST_P(RemoveMulti, AKeyGoesWithAllItsRecords) {
  Table table(host, ext.get(), GetParam());
  for (const char *text : {"1", "2", "3"}) table.put("red", text);
  table.put("blu", "4");
  EXPECT_EQ(table.remove("red"), MORVA_OK);
  EXPECT_EQ(table.all("red"), "-");
  EXPECT_EQ(table.all("blu"), "4");
  EXPECT_EQ(table.elements(), 1u);
}

TEST_P(RemoveMulti, ThreeRecordsLowerTheElementsByThreeAndTheBucketByOne) {
  Table table(host, ext.get(), GetParam());
  for (const char *text : {"1", "2", "3"}) table.put("red", text);
  ASSERT_EQ(table.bucket()->count, 3u);
  EXPECT_EQ(table.remove("red"), MORVA_OK);
  EXPECT_EQ(table.elements(), 0u);
  EXPECT_EQ(table.bucket()->count, 2u);
  EXPECT_EQ(table.bucket()->root, nullptr);
  EXPECT_EQ(table.used(), 1u) << "the count did not reach 0";
}

TEST_P(RemoveMulti, TheCountsDriftStepByStep) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  table.put("red", "2");
  EXPECT_EQ(table.remove("red"), MORVA_OK);  // 2 counted, 1 taken off
  EXPECT_EQ(table.bucket()->count, 1u);
  EXPECT_EQ(table.used(), 1u);
  table.put("red", "3");  // the empty root counts the bucket again
  EXPECT_EQ(table.used(), 2u);
  EXPECT_EQ(table.bucket()->count, 2u);
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.remove("red"), MORVA_OK);
  EXPECT_EQ(table.bucket()->count, 1u);
  EXPECT_EQ(table.used(), 2u);
  EXPECT_EQ(table.elements(), 0u);
  EXPECT_EQ(table->Clear2(table.get()), MORVA_OK);
  EXPECT_EQ(table.used(), 0u);
}

TEST_P(RemoveMulti, TheNodesArePushedInTheOrderOfTheSteps) {
  Table table(host, ext.get(), GetParam());
  RecordNode *first = table.put("red", "1");
  RecordNode *second = table.put("red", "2");
  RecordNode *third = table.put("red", "3");
  EXPECT_EQ(table.remove("red"), MORVA_OK);
  const auto *scratch = reinterpret_cast<RecordNode *>(host.eventsOf(Call::treeFind).back().a);
  EXPECT_THAT(table.freeRecords(), ElementsAre(first, scratch, third, second));
}

TEST_F(Remove, TheScratchRecordOfAnOverLongFixedKeyIsGivenBack) {
  for (const Shape &one : shapes(flagFixedKey)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    host.forget();
    EXPECT_EQ(table.remove(std::string(21, 'k')), MORVA_INVALID);
    ASSERT_EQ(table.freeRecords().size(), 1u);
    const int64_t used = table->recordsUsed;
    EXPECT_EQ(table.remove(std::string(21, 'k')), MORVA_INVALID);
    EXPECT_EQ(table.freeRecords().size(), 1u);
    EXPECT_EQ(table->recordsUsed, used);
    EXPECT_EQ(table.remove(std::string(20, 'k')), MORVA_INVALID);
    EXPECT_EQ(host.count(Call::treeFind), 1u) << "only the key that fits was searched";
    EXPECT_EQ(table.elements(), 1u);
  }
}

TEST_F(Remove, TheKeyMayLieInTheRecordBeingRemoved) {
  for (Keys keys : {Keys::fixed, Keys::var}) {
    Table table(host, ext.get(), shape(keys));
    RecordNode *node = table.put("red", "1");
    EXPECT_EQ(table->Remove(table.get(), table.base(node) + 8, 3), MORVA_OK);
    EXPECT_EQ(table.all("red"), "-");
  }
}

TEST_F(Remove, AnOrderedRemovalCallsTheHostInItsOrder) {
  Table table(host, ext.get(), shape(Keys::defined, flagOrdered));
  table.put("red", "1");
  ASSERT_EQ(table.find("blu", nullptr), MORVA_OK);
  host.forget();
  EXPECT_EQ(table.remove("red"), MORVA_OK);
  std::vector<Call> calls;
  for (const Event &event : host.events()) calls.push_back(event.call);
  EXPECT_THAT(calls, ElementsAre(Call::acquire, Call::pack, Call::treeFind, Call::treeRemove,
                                 Call::unlink, Call::release));
}

TEST_F(Remove, KeysAddedAndRemovedAtRandomLeaveWhatAMapWouldHold) {
  for (const Shape &one : shapes(0, flagNoLock)) {
    SCOPED_TRACE(describe(one));
    Shape made = one;
    made.hashExp = 2;
    Table table(host, ext.get(), made);
    std::vector<std::string> expected(60, "-");
    uint32_t random = 12345, elements = 0;
    for (int step = 0; step < 1500; step++) {
      random = random * 1664525 + 1013904223;
      const size_t i = (random >> 16) % expected.size();
      const std::string key = numbered("k", i), text = std::to_string(step);
      std::string &held = expected[i];
      if ((random >> 8) % 3 != 0) {
        const bool further = held != "-" && one.has(flagMultiData);
        const MORVAStatus status = table.add(key, text);
        ASSERT_EQ(status, held == "-" || further ? MORVA_OK : MORVA_PRESENT);
        if (status != MORVA_OK) continue;
        held = further ? held + " " + text : text;
        elements++;
      } else {
        ASSERT_EQ(table.remove(key), held == "-" ? MORVA_INVALID : MORVA_OK);
        for (char c : held) elements -= c == ' ';
        if (held != "-") elements--;
        held = "-";
      }
    }
    EXPECT_EQ(table.elements(), elements);
    for (size_t i = 0; i < expected.size(); i++) {
      EXPECT_EQ(table.all(numbered("k", i)), expected[i]) << i;
    }
  }
}

}  // namespace
}  // namespace morva_test
