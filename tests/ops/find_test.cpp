#include <gmock/gmock.h>

#include <cmath>

#include "table.h"

namespace morva_test {
namespace {

class Find : public OpsTest {};
class FindEveryShape : public OpsShapeTest {};
class FindMulti : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, FindEveryShape, testing::ValuesIn(sampledShapes()), nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, FindMulti, testing::ValuesIn(sampledShapes(flagMultiData)),
                         nameOfShape);

TEST_P(FindEveryShape, APresentKeyYieldsTheAddressOfItsData) {
  Table table(host, ext.get(), GetParam());
  RecordNode *node = table.put("red", "1");
  table.put("blu", "2");
  void *data = nullptr;
  EXPECT_EQ(table.find("red", &data), MORVA_OK);
  EXPECT_EQ(data, table.dataOf(node));
  EXPECT_EQ(table.textAt(data), "1");
}

TEST_P(FindEveryShape, AnAbsentKeyYieldsZeroAndStoresNull) {
  Table table(host, ext.get(), GetParam());
  int mark = 0;
  void *data = &mark;
  EXPECT_EQ(table.find("red", &data), MORVA_OK);
  EXPECT_EQ(data, nullptr);
  table.put("blu", "2");
  data = &mark;
  EXPECT_EQ(table.find("red", &data), MORVA_OK);
  EXPECT_EQ(data, nullptr);
}

TEST_P(FindEveryShape, TheOutputPlaceMayBeNull) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  EXPECT_EQ(table.find("red", nullptr), MORVA_OK);
  EXPECT_EQ(table.find("blu", nullptr), MORVA_OK);
}

TEST_P(FindEveryShape, DataIsReadAndWrittenInPlace) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  void *data = nullptr;
  ASSERT_EQ(table.find("red", &data), MORVA_OK);
  static_cast<char *>(data)[0] = '7';
  void *again = nullptr;
  EXPECT_EQ(table.find("red", &again), MORVA_OK);
  EXPECT_EQ(again, data);
  EXPECT_EQ(table.textAt(again), "7");
}

TEST_P(FindEveryShape, ChangesNoCountAndNoTree) {
  Table table(host, ext.get(), GetParam());
  RecordNode *node = table.put("red", "1");
  void *data = nullptr;
  ASSERT_EQ(table.find("red", &data), MORVA_OK);
  ASSERT_EQ(table.find("blu", &data), MORVA_OK);
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.used(), 1u);
  EXPECT_EQ(table.bucket()->count, 1u);
  EXPECT_EQ(table.bucket()->root, node);
  EXPECT_EQ(host.count(Call::treeInsert), 1u);
  EXPECT_EQ(host.count(Call::treeRemove), 0u);
}

TEST_P(FindEveryShape, ALookupInAnEmptyTableDoesNotUseItsBucket) {
  Table table(host, ext.get(), GetParam());
  EXPECT_EQ(table.find("red", nullptr), MORVA_OK);
  EXPECT_EQ(table.used(), 0u);
  EXPECT_EQ(table.elements(), 0u);
}

TEST_P(FindEveryShape, TheScratchRecordIsTakenFromTheHeadOfTheFreeChainAndPutBackThere) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  table.put("blu", "2");
  ASSERT_EQ(table.remove("blu"), MORVA_OK);
  const std::vector<RecordNode *> before = table.freeRecords();
  host.forget();
  void *data = nullptr;
  EXPECT_EQ(table.find("red", &data), MORVA_OK);
  EXPECT_EQ(host.eventsOf(Call::treeFind).back().a, reinterpret_cast<uint64_t>(before.front()));
  EXPECT_EQ(table.find("tan", &data), MORVA_OK);
  EXPECT_EQ(table.freeRecords(), before);
  EXPECT_EQ(host.count(Call::allocate), 0u);
}

TEST_P(FindEveryShape, TheTreeIsAskedInTheBucketOfTheKey) {
  Shape made = GetParam();
  made.hashExp = 5;
  Table table(host, ext.get(), made);
  for (const char *key : {"red", "green", "blue", "pink"}) {
    uint32_t index = 0;
    ASSERT_EQ(table.hashVal(key, &index), MORVA_OK);
    ASSERT_EQ(table.find(key, nullptr), MORVA_OK);
    EXPECT_EQ(host.eventsOf(Call::treeFind).back().c,
              reinterpret_cast<uint64_t>(table.bucket(index)));
  }
}

TEST_P(FindEveryShape, WithoutAScratchRecordEvenAPresentKeyIsNotLookedUp) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  if (GetParam().keys != Keys::var) table.fillRecordBlock();
  int mark = 0;
  void *data = &mark;
  host.failCall(Call::allocate);
  EXPECT_EQ(table.find("red", &data), MORVA_NO_MEMORY);
  host.failNever();
  EXPECT_EQ(data, &mark);
  EXPECT_EQ(table.all("red"), "1");
}

TEST_P(FindEveryShape, ALookupInAFullBlockAddsABlockAndThenFinds) {
  const Shape made = GetParam();
  Table table(host, ext.get(), made);
  RecordNode *node = table.put("red", "1");
  if (made.keys != Keys::var) table.fillRecordBlock();
  const uint64_t memory = table->TotalMem(table.get());
  const uint64_t slot = table->RecSize(table.get());
  host.forget();
  void *data = nullptr;
  EXPECT_EQ(table.find("red", &data), MORVA_OK);
  EXPECT_EQ(data, table.dataOf(node));
  EXPECT_EQ(host.count(Call::allocate), 1u);
  EXPECT_EQ(table->TotalMem(table.get()), made.keys == Keys::var ? 0 : memory + 32 * slot + 16);
  EXPECT_EQ(table.find("red", &data), MORVA_OK);
  EXPECT_EQ(host.count(Call::allocate), 1u);
}

TEST_P(FindEveryShape, EveryOneOfManyKeysIsFoundAndNoOther) {
  Shape made = GetParam();
  made.hashExp = 3;
  Table table(host, ext.get(), made);
  for (int i = 0; i < 300; i++) {
    ASSERT_EQ(table.add(numbered("k", i), std::to_string(i)), MORVA_OK);
  }
  for (int i = 0; i < 300; i++) {
    void *data = nullptr;
    ASSERT_EQ(table.find(numbered("k", i), &data), MORVA_OK);
    EXPECT_EQ(table.textAt(data), std::to_string(i));
    ASSERT_EQ(table.find(numbered("n", i), &data), MORVA_OK);
    EXPECT_EQ(data, nullptr);
  }
}

TEST_P(FindMulti, TheHeadOfTheChainIsFoundSixteenBytesPastItsLinks) {
  Table table(host, ext.get(), GetParam());
  RecordNode *first = table.put("red", "1");
  RecordNode *second = table.put("red", "2");
  table.put("red", "3");
  void *data = nullptr;
  EXPECT_EQ(table.find("red", &data), MORVA_OK);
  EXPECT_EQ(data, table.links(first) + 1);
  EXPECT_EQ(static_cast<char *>(data), table.base(first) + table->dataOffset + 16);
  void *next = nullptr;
  EXPECT_EQ(table->FindNext(table.get(), data, &next), MORVA_OK);
  EXPECT_EQ(next, table.dataOf(second));
}

TEST_F(Find, WithSumsEverySuccessfulFindAddsTheIncrement) {
  for (const Shape &one : shapes(flagSum)) {
    Table table(host, ext.get(), one);
    RecordNode *red = table.put("red", "1");
    RecordNode *blue = table.put("blu", "2");
    table->SetSumInc(table.get(), 2.5);
    for (int i = 0; i < 3; i++) EXPECT_EQ(table.find("red", nullptr), MORVA_OK);
    EXPECT_EQ(table.sumOf(red), 7.5) << describe(one);
    EXPECT_EQ(table.sumOf(blue), 0.0);
    EXPECT_EQ(table.find("tan", nullptr), MORVA_OK);
    EXPECT_EQ(table.sumOf(red), 7.5);
    EXPECT_EQ(table.sumOf(blue), 0.0);
  }
}

TEST_F(Find, AnIncrementOfZeroChangesNoSum) {
  for (double zero : {0.0, -0.0}) {
    Table table(host, ext.get(), shape(Keys::fixed, flagSum));
    RecordNode *red = table.put("red", "1");
    table.setSumOf(red, -0.0);
    table->SetSumInc(table.get(), zero);
    EXPECT_EQ(table.find("red", nullptr), MORVA_OK);
    EXPECT_TRUE(std::signbit(table.sumOf(red))) << "the slot was written";
  }
}

TEST_F(Find, AnIncrementThatIsNotANumberIsAdded) {
  Table table(host, ext.get(), shape(Keys::fixed, flagSum));
  RecordNode *red = table.put("red", "1");
  table->sumIncrement = std::nan("");  // SetSumInc would refuse it
  EXPECT_EQ(table.find("red", nullptr), MORVA_OK);
  EXPECT_TRUE(std::isnan(table.sumOf(red)));
}

TEST_F(Find, WithSumsAndChainsOnlyTheHeadIsCounted) {
  Table table(host, ext.get(), shape(Keys::defined, flagSum | flagMultiData));
  RecordNode *first = table.put("red", "1");
  RecordNode *second = table.put("red", "2");
  table->SetSumInc(table.get(), 1.0);
  EXPECT_EQ(table.find("red", nullptr), MORVA_OK);
  EXPECT_EQ(table.sumOf(first), 1.0);
  EXPECT_EQ(table.sumOf(second), 0.0);
}

TEST_F(Find, AFailedFindMovesNoSum) {
  Table table(host, ext.get(), shape(Keys::fixed, flagSum));
  RecordNode *red = table.put("red", "1");
  table.fillRecordBlock();
  table->SetSumInc(table.get(), 1.0);
  host.failCall(Call::allocate);
  EXPECT_EQ(table.find("red", nullptr), MORVA_NO_MEMORY);
  host.failNever();
  EXPECT_EQ(table.sumOf(red), 0.0);
}

TEST_F(Find, AnOverLongFixedKeyIsRefusedAndItsScratchRecordStaysOutOfUse) {
  for (const Shape &one : shapes(flagFixedKey)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    host.forget();
    ASSERT_EQ(table.find("red", nullptr), MORVA_OK);
    ASSERT_EQ(table.freeRecords().size(), 1u);
    int mark = 0;
    void *data = &mark;
    EXPECT_EQ(table.find(std::string(21, 'k'), &data), MORVA_INVALID);
    EXPECT_EQ(data, &mark);
    EXPECT_TRUE(table.freeRecords().empty());
    const int64_t used = table->recordsUsed;
    EXPECT_EQ(table.find(std::string(21, 'k'), &data), MORVA_INVALID);
    EXPECT_EQ(table->recordsUsed, used + 1);
    EXPECT_EQ(host.count(Call::treeFind), 1u) << "only the key that fits was searched";
    EXPECT_EQ(table.find(std::string(20, 'k'), &data), MORVA_OK);
    EXPECT_EQ(data, nullptr);
  }
}

TEST_F(Find, HashValLeavesTheScratchRecordOfAnOverLongFixedKeyOutOfUse) {
  for (const Shape &one : shapes(flagFixedKey)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    uint32_t index = 77;
    ASSERT_EQ(table.hashVal("red", nullptr), MORVA_OK);
    ASSERT_EQ(table.freeRecords().size(), 1u);
    EXPECT_EQ(table.hashVal(std::string(20, 'k'), &index), MORVA_OK);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(table.freeRecords().size(), 1u);
    index = 77;
    EXPECT_EQ(table.hashVal(std::string(21, 'k'), &index), MORVA_INVALID);
    EXPECT_EQ(index, 77u);
    EXPECT_TRUE(table.freeRecords().empty());
  }
}

}  // namespace
}  // namespace morva_test
