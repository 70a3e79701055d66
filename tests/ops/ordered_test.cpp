#include <gmock/gmock.h>

#include "table.h"

namespace morva_test {
namespace {

using testing::ElementsAre;

class Ordered : public OpsTest {};
class OrderedEveryShape : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, OrderedEveryShape, testing::ValuesIn(sampledShapes(flagOrdered)),
                         nameOfShape);

TEST_P(OrderedEveryShape, RecordsAreAppendedInTheOrderOfTheirInsertion) {
  Table table(host, ext.get(), GetParam());
  RecordNode *c = table.put("c", "1");
  RecordNode *a = table.put("a", "2");
  RecordNode *b = table.put("b", "3");
  EXPECT_THAT(host.order(table.get()), ElementsAre(c, a, b));
}

TEST_P(OrderedEveryShape, TheOrderNodeNamesItsRecordInItsThirdWord) {
  Table table(host, ext.get(), GetParam());
  RecordNode *node = table.put("red", "1");
  const Event append = host.eventsOf(Call::append).back();
  EXPECT_EQ(append.b, reinterpret_cast<uint64_t>(node));
  EXPECT_EQ(reinterpret_cast<OrderNode *>(append.a)->record, node);
}

TEST_P(OrderedEveryShape, TheFirstBlockOfOrderNodesHoldsSixteenAndTheNextTwiceAsMany) {
  Table table(host, ext.get(), GetParam());
  for (int i = 0; i < 17; i++) table.put(numbered("k", i), "x");
  std::vector<uint64_t> sizes;
  for (const Event &event : host.eventsOf(Call::allocate)) {
    if (event.text != "inodes") continue;
    sizes.push_back(event.a);
    EXPECT_EQ(event.b, 0u);
  }
  EXPECT_THAT(sizes, ElementsAre(16 * 24 + 16, 32 * 24 + 16));
  EXPECT_EQ(table->inodeBlockCapacity, 32);
  EXPECT_EQ(table->inodesUsed, 1);
}

TEST_P(OrderedEveryShape, RemovalUnlinksTheRecordAndKeepsTheOrderNodeForReuse) {
  Table table(host, ext.get(), GetParam());
  RecordNode *a = table.put("a", "1");
  RecordNode *b = table.put("b", "2");
  const auto *orderNodeOfA = reinterpret_cast<OrderNode *>(host.eventsOf(Call::append).front().a);
  EXPECT_EQ(table.remove("a"), MORVA_OK);
  const std::vector<Event> unlinked = host.eventsOf(Call::unlink);
  ASSERT_EQ(unlinked.size(), 1u);
  EXPECT_EQ(unlinked[0].a, reinterpret_cast<uint64_t>(a));
  EXPECT_EQ(unlinked[0].b, reinterpret_cast<uint64_t>(orderNodeOfA));
  EXPECT_THAT(host.order(table.get()), ElementsAre(b));
  EXPECT_THAT(table.freeInodes(), ElementsAre(orderNodeOfA));

  const int64_t used = table->inodesUsed;
  RecordNode *again = table.put("a", "3");
  EXPECT_EQ(host.eventsOf(Call::append).back().a, reinterpret_cast<uint64_t>(orderNodeOfA));
  EXPECT_TRUE(table.freeInodes().empty());
  EXPECT_EQ(table->inodesUsed, used);
  EXPECT_THAT(host.order(table.get()), ElementsAre(b, again));
}

TEST_P(OrderedEveryShape, FreedOrderNodesAreTakenLastInFirstOut) {
  Table table(host, ext.get(), GetParam());
  for (const char *key : {"a", "b", "c"}) table.put(key, "x");
  ASSERT_EQ(table.remove("a"), MORVA_OK);
  ASSERT_EQ(table.remove("c"), MORVA_OK);
  const std::vector<OrderNode *> free = table.freeInodes();
  ASSERT_EQ(free.size(), 2u);
  table.put("d", "x");
  EXPECT_EQ(host.eventsOf(Call::append).back().a, reinterpret_cast<uint64_t>(free[0]));
  table.put("e", "x");
  EXPECT_EQ(host.eventsOf(Call::append).back().a, reinterpret_cast<uint64_t>(free[1]));
}

TEST_P(OrderedEveryShape, LookupsDoNotTouchTheOrder) {
  Table table(host, ext.get(), GetParam());
  RecordNode *a = table.put("a", "1");
  RecordNode *b = table.put("b", "2");
  host.forget();
  void *data = nullptr;
  EXPECT_EQ(table.find("a", &data), MORVA_OK);
  EXPECT_EQ(table.find("z", &data), MORVA_OK);
  EXPECT_EQ(table.find2("a", &data), MORVA_OK);
  EXPECT_NE(table.at("a"), nullptr);
  EXPECT_EQ(host.count(Call::append) + host.count(Call::unlink), 0u);
  EXPECT_THAT(host.order(table.get()), ElementsAre(a, b));
}

TEST_P(OrderedEveryShape, ARecordUnknownToTheOrderIsRemovedAllTheSame) {
  Table table(host, ext.get(), GetParam());
  RecordNode *a = table.put("a", "1");
  table.put("b", "2");
  // The host takes the record off its list behind the library's back.
  OrderNode image = {nullptr, nullptr, a};
  ASSERT_NE(table->aiExt->unlink(table->orderList, &image), nullptr);
  EXPECT_EQ(table.remove("a"), MORVA_INVALID);
  EXPECT_EQ(table.all("a"), "-");
  EXPECT_EQ(table.all("b"), "2");
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.bucket()->count, 1u);
  EXPECT_TRUE(table.freeInodes().empty());
}

TEST_F(Ordered, WithoutTheOptionNothingIsAppendedOrUnlinked) {
  for (const Shape &one : shapes(0, flagOrdered)) {
    Table table(host, ext.get(), one);
    table.put("a", "1");
    EXPECT_EQ(table.remove("a"), MORVA_OK);
    EXPECT_EQ(host.count(Call::append) + host.count(Call::unlink), 0u) << describe(one);
    EXPECT_EQ(table->inodesUsed, 8);
  }
}

TEST_F(Ordered, OnlyTheFirstRecordOfAKeyIsUnlinkedWithTheKey) {
  for (const Shape &one : shapes(flagOrdered | flagMultiData)) {
    Table table(host, ext.get(), one);
    RecordNode *first = table.put("a", "1");
    table.put("a", "2");
    table.put("a", "3");
    host.forget();
    EXPECT_EQ(table.remove("a"), MORVA_OK);
    const std::vector<Event> unlinked = host.eventsOf(Call::unlink);
    ASSERT_EQ(unlinked.size(), 1u) << describe(one);
    EXPECT_EQ(unlinked[0].a, reinterpret_cast<uint64_t>(first));
    EXPECT_TRUE(host.order(table.get()).empty());
  }
}

TEST_F(Ordered, RemovingOneOfSeveralRecordsKeepsTheKeyInItsPlace) {
  for (const Shape &one : shapes(flagOrdered | flagMultiData)) {
    Table table(host, ext.get(), one);
    RecordNode *a = table.put("a", "1");
    RecordNode *b = table.put("b", "2");
    table.put("a", "3");
    void *cursor = table.dataOf(a);
    EXPECT_EQ(table.removeDup(&cursor, "a"), MORVA_OK);
    EXPECT_EQ(host.count(Call::unlink), 0u) << describe(one);
    EXPECT_THAT(host.order(table.get()), ElementsAre(a, b));
    cursor = table.dataOf(a);
    EXPECT_EQ(table.removeDup(&cursor, "a"), MORVA_OK);
    EXPECT_THAT(host.order(table.get()), ElementsAre(b));
    EXPECT_EQ(table.freeInodes().size(), 1u);
    host.forget();
  }
}

}  // namespace
}  // namespace morva_test
