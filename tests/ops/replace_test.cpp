#include <gmock/gmock.h>

#include <cstring>

#include "table.h"

namespace morva_test {
namespace {

class Replace : public OpsTest {};
class ReplaceEveryShape : public OpsShapeTest {};
class ReplaceMulti : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, ReplaceEveryShape, testing::ValuesIn(sampledShapes()),
                         nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, ReplaceMulti, testing::ValuesIn(sampledShapes(flagMultiData)),
                         nameOfShape);

TEST_P(ReplaceEveryShape, AMissingKeyIsStoredAndCountedAsByAnAdd) {
  Table table(host, ext.get(), GetParam());
  EXPECT_EQ(table.replace("red", "1"), MORVA_OK);
  EXPECT_EQ(table.all("red"), "1");
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.bucket()->count, 1u);
  EXPECT_EQ(table.used(), 1u);
}

TEST_P(ReplaceEveryShape, APresentKeyGetsNewDataAndNothingIsCounted) {
  Table table(host, ext.get(), GetParam());
  RecordNode *node = table.put("red", "1");
  void *data = table.dataOf(node);
  EXPECT_EQ(table.replace("red", "2"), MORVA_OK);
  EXPECT_EQ(table.all("red"), "2");
  EXPECT_EQ(table.at("red"), data);
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.bucket()->count, 1u);
  EXPECT_EQ(table.used(), 1u);
}

TEST_P(ReplaceEveryShape, TheFreshNodeOfAPresentKeyGoesToTheHeadOfTheFreeChain) {
  Table table(host, ext.get(), GetParam());
  RecordNode *node = table.put("red", "1");
  EXPECT_EQ(table.replace("red", "2"), MORVA_OK);
  EXPECT_NE(table.offered(), node);
  ASSERT_EQ(table.freeRecords().size(), 1u);
  EXPECT_EQ(table.freeRecords()[0], table.offered());
  EXPECT_EQ(table.replace("red", "3"), MORVA_OK);
  EXPECT_EQ(table.freeRecords().size(), 1u);
}

TEST_P(ReplaceEveryShape, OtherKeysKeepTheirData) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  table.put("blu", "2");
  EXPECT_EQ(table.replace("red", "3"), MORVA_OK);
  EXPECT_EQ(table.all("blu"), "2");
}

TEST_P(ReplaceEveryShape, ThePlaceInTheInsertionOrderIsKept) {
  if (!GetParam().has(flagOrdered)) {
    Table table(host, ext.get(), GetParam());
    table.put("red", "1");
    EXPECT_EQ(table.replace("red", "2"), MORVA_OK);
    EXPECT_EQ(host.count(Call::append) + host.count(Call::unlink), 0u);
    return;
  }
  Table table(host, ext.get(), GetParam());
  RecordNode *red = table.put("red", "1");
  RecordNode *blue = table.put("blu", "2");
  EXPECT_EQ(table.replace("red", "3"), MORVA_OK);
  EXPECT_THAT(host.order(table.get()), testing::ElementsAre(red, blue));
}

TEST_P(ReplaceEveryShape, WithoutANodeThereIsNoMemoryAndTheDataStays) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  if (GetParam().keys != Keys::var) table.fillRecordBlock();
  const uint32_t elements = table.elements();
  host.failCall(Call::allocate);
  EXPECT_EQ(table.replace("red", "2"), MORVA_NO_MEMORY);
  EXPECT_EQ(host.failuresDelivered(), 1u);
  host.failNever();
  EXPECT_EQ(table.all("red"), "1");
  EXPECT_EQ(table.elements(), elements);
}

TEST_P(ReplaceMulti, EveryRecordOfTheChainGetsTheNewData) {
  Table table(host, ext.get(), GetParam());
  DupLinks *first = table.links(table.put("red", "1"));
  DupLinks *second = table.links(table.put("red", "2"));
  DupLinks *third = table.links(table.put("red", "3"));
  table.put("blu", "4");
  EXPECT_EQ(table.replace("red", "9"), MORVA_OK);
  EXPECT_EQ(table.all("red"), "9 9 9");
  EXPECT_EQ(table.all("blu"), "4");
  EXPECT_EQ(table.elements(), 4u);
  EXPECT_EQ(first->next, second);
  EXPECT_EQ(first->back, third);
  EXPECT_EQ(second->next, third);
  EXPECT_EQ(second->back, first);
  EXPECT_EQ(third->next, nullptr);
  EXPECT_EQ(third->back, second);
}

TEST_P(ReplaceMulti, OfOneRecordLeavesItsEmptyChain) {
  Table table(host, ext.get(), GetParam());
  DupLinks *pair = table.links(table.put("red", "1"));
  EXPECT_EQ(table.replace("red", "2"), MORVA_OK);
  EXPECT_EQ(pair->next, nullptr);
  EXPECT_EQ(pair->back, pair);
  EXPECT_EQ(table.all("red"), "2");
}

TEST_P(ReplaceMulti, AMissingKeyStartsAChainThatAddExtends) {
  Table table(host, ext.get(), GetParam());
  EXPECT_EQ(table.replace("red", "1"), MORVA_OK);
  EXPECT_EQ(table.add("red", "2"), MORVA_OK);
  EXPECT_EQ(table.all("red"), "1 2");
}

TEST_P(ReplaceMulti, TheNewDataMayBeTheDataOfARecordOfTheChain) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  RecordNode *second = table.put("red", "2");
  table.put("red", "3");
  EXPECT_EQ(table->Replace(table.get(), table.dataOf(second), table.key("red").data(), 3),
            MORVA_OK);
  EXPECT_EQ(table.all("red"), "2 2 2");
}

TEST_F(Replace, DataThatOverlapsTheRecordIsMoved) {
  for (const Shape &one : shapes()) {
    SCOPED_TRACE(describe(one));
    Shape made = one;
    made.dataLength = 256;
    Table table(host, ext.get(), made);
    std::string text;
    for (int i = 0; i < 256; i++) text += static_cast<char>(i * 7 + 1);
    char *data = static_cast<char *>(table.dataOf(table.put("red", text)));

    // The source starts 5 bytes into the data and ends in the slack of the slot.
    std::string expected(data + 5, 251);
    ASSERT_EQ(table->Replace(table.get(), data + 5, table.key("red").data(), 3), MORVA_OK);
    EXPECT_EQ(std::string(data, 251), expected);

    // The source starts 3 bytes in front of the data.
    expected.assign(data - 3, 256);
    ASSERT_EQ(table->Replace(table.get(), data - 3, table.key("red").data(), 3), MORVA_OK);
    EXPECT_EQ(std::string(data + 3, 253), expected.substr(3));
  }
}

TEST_F(Replace, ANodeIsLeftOutOfUseByAnOverLongFixedKey) {
  for (const Shape &one : shapes(flagFixedKey)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    ASSERT_EQ(table.replace("red", "2"), MORVA_OK);
    ASSERT_EQ(table.freeRecords().size(), 1u);
    EXPECT_EQ(table.replace(std::string(21, 'k'), "3"), MORVA_INVALID);
    EXPECT_TRUE(table.freeRecords().empty());
    const int64_t used = table->recordsUsed;
    EXPECT_EQ(table.replace(std::string(21, 'k'), "3"), MORVA_INVALID);
    EXPECT_EQ(table->recordsUsed, used + 1);
    EXPECT_EQ(table.elements(), 1u);
  }
}

TEST_F(Replace, AFixedKeyAsLongAsTheKeyAreaIsAccepted) {
  for (const Shape &one : shapes(flagFixedKey)) {
    Table table(host, ext.get(), one);
    EXPECT_EQ(table.replace(std::string(20, 'k'), "1"), MORVA_OK) << describe(one);
    EXPECT_EQ(table.elements(), 1u);
  }
}

}  // namespace
}  // namespace morva_test
