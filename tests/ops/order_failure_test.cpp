// The order node of a new record cannot be had: the record is in its bucket's
// tree, but it is neither counted nor in the order, and has no data.
#include <gmock/gmock.h>

#include "table.h"

namespace morva_test {
namespace {

using testing::ElementsAre;

class OrderFailure : public OpsShapeTest {
 protected:
  // Adds `key` while no block of order nodes can be had. Call it when the newest block is full.
  void addWithoutOrderNode(Table &table, const char *key) {
    bool refused = false;
    for (uint64_t n = 1; !refused; n++) {
      ASSERT_LT(n, 4u);
      host.failCall(Call::allocate, n);
      const MORVAStatus status = table.add(key, "lost");
      ASSERT_EQ(host.failuresDelivered(), 1u);
      host.failNever();
      ASSERT_EQ(status, MORVA_NO_MEMORY);
      refused = host.eventsOf(Call::allocate).back().text == "inodes";
    }
  }
};

class OrderFailureSingle : public OrderFailure {};
class OrderFailureMulti : public OrderFailure {};
class OrderFailureComparable : public OrderFailure {};

INSTANTIATE_TEST_SUITE_P(Shapes, OrderFailure, testing::ValuesIn(sampledShapes(flagOrdered)),
                         nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, OrderFailureSingle,
                         testing::ValuesIn(sampledShapes(flagOrdered, flagMultiData)), nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, OrderFailureMulti,
                         testing::ValuesIn(sampledShapes(flagOrdered | flagMultiData)),
                         nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, OrderFailureComparable,
                         testing::ValuesIn(sampledShapes(flagOrdered, flagVarKey)), nameOfShape);

TEST_P(OrderFailure, LeavesTheRecordInItsTreeFindableAndUncounted) {
  Table table(host, ext.get(), GetParam());
  addWithoutOrderNode(table, "red");
  RecordNode *fresh = table.offered();
  EXPECT_EQ(table.elements(), 0u);
  EXPECT_EQ(table.bucket()->count, 0u);
  EXPECT_EQ(table.used(), 1u);
  EXPECT_EQ(table.bucket()->root, fresh);
  EXPECT_TRUE(table.freeRecords().empty());
  EXPECT_TRUE(host.order(table.get()).empty());
  EXPECT_EQ(host.count(Call::append), 0u);
  EXPECT_EQ(table->inodeBlockCapacity, 8);
  EXPECT_EQ(table->inodesUsed, 8);
  void *data = nullptr;
  EXPECT_EQ(table.find("red", &data), MORVA_OK);
  EXPECT_EQ(data, table.dataOf(fresh));
}

TEST_P(OrderFailure, ReleasesTheLock) {
  Table table(host, ext.get(), GetParam());
  table.put("blu", "1");
  while (table->inodesUsed < table->inodeBlockCapacity) {
    table.put(numbered("f", table->inodesUsed), "x");
  }
  if (GetParam().keys == Keys::fixed || GetParam().keys == Keys::defined) {
    ASSERT_EQ(table.room(), 0);
  }
  host.failCall(Call::allocate, 2);
  EXPECT_EQ(lockUse(host, [&] { EXPECT_EQ(table.add("red", "2"), MORVA_NO_MEMORY); }),
            GetParam().has(flagNoLock) ? LockUse::none : LockUse::whole);
  host.failNever();
}

TEST_P(OrderFailure, RecordsStoredBeforeKeepTheirDataAndTheirOrder) {
  Table table(host, ext.get(), GetParam());
  std::vector<RecordNode *> nodes;
  for (int i = 0; i < 16; i++) {
    nodes.push_back(table.put(numbered("k", i), std::to_string(i)));
  }
  addWithoutOrderNode(table, "red");
  EXPECT_EQ(table.elements(), 16u);
  EXPECT_EQ(table.bucket()->count, 16u);
  EXPECT_EQ(host.order(table.get()), nodes);
  for (int i = 0; i < 16; i++) EXPECT_EQ(table.all(numbered("k", i)), std::to_string(i));
}

TEST_P(OrderFailure, ClearEmptiesTheTableEvenThoughNothingWasCounted) {
  Table table(host, ext.get(), GetParam());
  addWithoutOrderNode(table, "red");
  EXPECT_EQ(table->Clear(table.get()), MORVA_OK);
  EXPECT_EQ(table.all("red"), "-");
  EXPECT_EQ(table.add("blu", "1"), MORVA_OK);
  EXPECT_EQ(table.add("red", "2"), MORVA_OK);
  EXPECT_EQ(table.all("blu"), "1");
  EXPECT_EQ(table.all("red"), "2");
  EXPECT_EQ(table.elements(), 2u);
}

TEST_P(OrderFailure, Clear2EmptiesTheTableEvenThoughNothingWasCounted) {
  Table table(host, ext.get(), GetParam());
  addWithoutOrderNode(table, "red");
  EXPECT_EQ(table->Clear2(table.get()), MORVA_OK);
  EXPECT_EQ(table.all("red"), "-");
  EXPECT_EQ(table.add("blu", "1"), MORVA_OK);
  EXPECT_EQ(table.add("red", "2"), MORVA_OK);
  EXPECT_EQ(table.all("blu"), "1");
  EXPECT_EQ(table.all("red"), "2");
  EXPECT_EQ(table.elements(), 2u);
}

TEST_P(OrderFailure, BothClearsEmptyATableThatHoldsCountedRecordsToo) {
  for (bool second : {false, true}) {
    Table table(host, ext.get(), GetParam());
    for (int i = 0; i < 16; i++) table.put(numbered("k", i), "x");
    addWithoutOrderNode(table, "red");
    EXPECT_EQ(second ? table->Clear2(table.get()) : table->Clear(table.get()), MORVA_OK);
    EXPECT_EQ(table.all("red"), "-");
    EXPECT_EQ(table.all("k3"), "-");
    EXPECT_EQ(table.elements(), 0u);
    EXPECT_EQ(table.used(), 0u);
    EXPECT_EQ(table.bucket()->root, nullptr);
    for (int i = 0; i < 40; i++) table.put(numbered("n", i), std::to_string(i));
    for (int i = 0; i < 40; i++) EXPECT_EQ(table.all(numbered("n", i)), std::to_string(i));
  }
}

TEST_P(OrderFailure, RemovalTakesTheRecordOutCountsItDownAndReportsTheOrder) {
  Table table(host, ext.get(), GetParam());
  for (int i = 0; i < 16; i++) table.put(numbered("k", i), "x");
  addWithoutOrderNode(table, "red");
  RecordNode *fresh = table.offered();
  EXPECT_EQ(table.remove("red"), MORVA_INVALID);
  EXPECT_EQ(table.freeRecords().front(), fresh);
  EXPECT_EQ(table.all("red"), "-");
  EXPECT_EQ(table.elements(), 15u);
  EXPECT_EQ(table.bucket()->count, 15u);
  EXPECT_TRUE(table.freeInodes().empty());
  for (int i = 0; i < 16; i++) EXPECT_EQ(table.all(numbered("k", i)), "x");
}

TEST_P(OrderFailure, RemovalOfTheOnlyRecordLeavesATableThatCanBeUsedAndCleared) {
  for (bool second : {false, true}) {
    Table table(host, ext.get(), GetParam());
    addWithoutOrderNode(table, "red");
    EXPECT_EQ(table.remove("red"), MORVA_INVALID);
    EXPECT_EQ(table.bucket()->root, nullptr);
    EXPECT_EQ(table.add("red", "1"), MORVA_OK);
    EXPECT_EQ(table.all("red"), "1");
    EXPECT_EQ(second ? table->Clear2(table.get()) : table->Clear(table.get()), MORVA_OK);
    EXPECT_EQ(table.elements(), 0u);
    EXPECT_EQ(table.all("red"), "-");
    EXPECT_EQ(table.add("red", "2"), MORVA_OK);
    EXPECT_EQ(table.all("red"), "2");
    EXPECT_EQ(table.elements(), 1u);
  }
}

TEST_P(OrderFailure, ReplaceGivesTheRecordDataWithoutCountingIt) {
  Table table(host, ext.get(), GetParam());
  addWithoutOrderNode(table, "red");
  EXPECT_EQ(table.replace("red", "1"), MORVA_OK);
  EXPECT_EQ(table.all("red"), "1");
  EXPECT_EQ(table.elements(), 0u);
  EXPECT_TRUE(host.order(table.get()).empty());
}

TEST_P(OrderFailure, TheInstanceCanBeDestroyedAtOnce) {
  Table table(host, ext.get(), GetParam());
  addWithoutOrderNode(table, "red");
  EXPECT_EQ(table.destroy(), MORVA_OK);
}

TEST_P(OrderFailure, TheNextKeyGetsItsOrderNode) {
  Table table(host, ext.get(), GetParam());
  addWithoutOrderNode(table, "red");
  RecordNode *blue = table.put("blu", "1");
  EXPECT_THAT(host.order(table.get()), ElementsAre(blue));
  EXPECT_EQ(table->inodeBlockCapacity, 16);
  EXPECT_EQ(table.elements(), 1u);
}

TEST_P(OrderFailureSingle, AnAddOfTheSameKeyIsAnsweredWithOne) {
  Table table(host, ext.get(), GetParam());
  addWithoutOrderNode(table, "red");
  EXPECT_EQ(table.add("red", "1"), MORVA_PRESENT);
  EXPECT_EQ(table.elements(), 0u);
}

TEST_P(OrderFailureMulti, TheLinkPairOfTheRecordIsAnEmptyChain) {
  Table table(host, ext.get(), GetParam());
  addWithoutOrderNode(table, "red");
  DupLinks *pair = table.links(table.offered());
  EXPECT_EQ(pair->next, nullptr);
  EXPECT_EQ(pair->back, pair);
  EXPECT_EQ(table->HasNext(table.get(), pair + 1), 0u);
  EXPECT_EQ(table->HasPrev(table.get(), pair + 1), 0u);
  void *data = pair;
  EXPECT_EQ(table->FindNext(table.get(), pair + 1, &data), MORVA_OK);
  EXPECT_EQ(data, nullptr);
}

TEST_P(OrderFailureMulti, AnAddOfTheSameKeyChainsAFurtherRecordAndCountsThatOne) {
  Table table(host, ext.get(), GetParam());
  addWithoutOrderNode(table, "red");
  DupLinks *first = table.links(table.offered());
  DupLinks *second = table.links(table.put("red", "2"));
  EXPECT_EQ(first->next, second);
  EXPECT_EQ(first->back, second);
  EXPECT_EQ(second->next, nullptr);
  EXPECT_EQ(second->back, first);
  EXPECT_EQ(table.textAt(second + 1), "2");
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.bucket()->count, 1u);
  EXPECT_TRUE(host.order(table.get()).empty());
}

TEST_P(OrderFailureMulti, TheKeyWithAFurtherRecordCanBeReplacedRemovedAndCleared) {
  for (int ending = 0; ending < 3; ending++) {
    Table table(host, ext.get(), GetParam());
    for (int i = 0; i < 16; i++) table.put(numbered("k", i), "x");
    addWithoutOrderNode(table, "red");
    table.put("red", "2");
    EXPECT_EQ(table.replace("red", "3"), MORVA_OK);
    EXPECT_EQ(table.all("red"), "3 3");
    if (ending == 0) {
      EXPECT_EQ(table.remove("red"), MORVA_INVALID);
      EXPECT_EQ(table.elements(), 15u);
    } else {
      EXPECT_EQ(ending == 1 ? table->Clear(table.get()) : table->Clear2(table.get()), MORVA_OK);
      EXPECT_EQ(table.elements(), 0u);
    }
    EXPECT_EQ(table.all("red"), "-");
    table.put("red", "4");
    EXPECT_EQ(table.all("red"), "4");
  }
}

TEST_P(OrderFailureMulti, TheRecordsCanBeRemovedOneByOne) {
  Table table(host, ext.get(), GetParam());
  for (int i = 0; i < 16; i++) table.put(numbered("k", i), "x");
  addWithoutOrderNode(table, "red");
  RecordNode *first = table.offered();
  table.put("red", "2");
  void *cursor = table.dataOf(first);
  EXPECT_EQ(table.removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(cursor, nullptr);
  EXPECT_EQ(table.all("red"), "2");
  EXPECT_EQ(table.elements(), 16u);
  cursor = table.dataOf(first);
  EXPECT_EQ(table.removeDup(&cursor, "red"), MORVA_INVALID);
  EXPECT_EQ(cursor, nullptr);
  EXPECT_EQ(table.all("red"), "-");
  EXPECT_EQ(table.elements(), 15u);
}

TEST_P(OrderFailureComparable, TheTableCanBeCompared) {
  Table table(host, ext.get(), GetParam());
  Table other(host, ext.get(), GetParam(), "other");
  addWithoutOrderNode(table, "red");
  uint32_t equal = 9;
  EXPECT_EQ(table->Equals(table.get(), other.get(), &equal), MORVA_OK);
  EXPECT_EQ(equal, 0u);
  equal = 9;
  EXPECT_EQ(table->Equals(table.get(), table.get(), &equal), MORVA_OK);
  EXPECT_EQ(equal, 1u);
}

}  // namespace
}  // namespace morva_test
