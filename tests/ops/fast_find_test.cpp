#include "table.h"

namespace morva_test {
namespace {

class FastFind : public OpsTest {};
class FastFindEveryShape : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, FastFindEveryShape,
                         testing::ValuesIn(sampledShapes(0, flagSum | flagMultiData)), nameOfShape);

TEST_P(FastFindEveryShape, FindsWhatTheGeneralFindFinds) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  for (const char *text : {"red", "blu"}) {
    const std::string key = table.key(text);
    int mark = 0;
    void *fast = &mark, *general = &mark;
    EXPECT_EQ(MORVAFastFind(table.get(), key.data(), 3, &fast), MORVA_OK);
    EXPECT_EQ(MORVAFind(table.get(), key.data(), 3, &general), MORVA_OK);
    EXPECT_EQ(fast, general);
    EXPECT_EQ(fast, table.at(text));
    EXPECT_EQ(MORVAFastFind(table.get(), key.data(), 3, nullptr), MORVA_OK);
  }
}

TEST_P(FastFindEveryShape, WithoutAScratchRecordThereIsNoMemory) {
  Table table(host, ext.get(), GetParam());
  int mark = 0;
  void *data = &mark;
  host.failCall(Call::allocate);
  EXPECT_EQ(MORVAFastFind(table.get(), table.key("red").data(), 3, &data), MORVA_NO_MEMORY);
  host.failNever();
  EXPECT_EQ(data, &mark);
}

TEST_F(FastFind, AnOverLongFixedKeyLeavesOneRecordFewerOnTheFreeChain) {
  Table table(host, ext.get(), shape(Keys::fixed));
  const std::string key(21, 'k');
  int mark = 0;
  void *data = &mark;
  ASSERT_EQ(MORVAFastFind(table.get(), key.data(), 20, &data), MORVA_OK);
  EXPECT_EQ(data, nullptr);
  ASSERT_EQ(table.freeRecords().size(), 1u);
  data = &mark;
  EXPECT_EQ(MORVAFastFind(table.get(), key.data(), 21, &data), MORVA_INVALID);
  EXPECT_EQ(data, &mark);
  EXPECT_TRUE(table.freeRecords().empty());
}

TEST_F(FastFind, PointsToTheLinksWhereRecordsHaveThem) {
  for (const Shape &one : shapes(flagMultiData)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    void *behindLinks = nullptr, *data = nullptr;
    ASSERT_EQ(MORVAFind(table.get(), table.key("red").data(), 3, &behindLinks), MORVA_OK);
    ASSERT_EQ(MORVAFastFind(table.get(), table.key("red").data(), 3, &data), MORVA_OK);
    EXPECT_EQ(static_cast<char *>(data) + sizeof(DupLinks), behindLinks);
  }
}

TEST_F(FastFind, OnAnInstanceWithSumsFindsAndMovesNone) {
  for (const Shape &one : shapes(flagSum, flagMultiData)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    RecordNode *node = table.put("red", "1");
    table->SetSumInc(table.get(), 2.5);
    void *data = nullptr;
    EXPECT_EQ(MORVAFastFind(table.get(), table.key("red").data(), 3, &data), MORVA_OK);
    EXPECT_EQ(data, table.dataOf(node));
    EXPECT_EQ(table.sumOf(node), 0.0);
  }
}

}  // namespace
}  // namespace morva_test
