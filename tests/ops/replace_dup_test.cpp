#include "table.h"

namespace morva_test {
namespace {

class ReplaceDup : public OpsTest {};
class ReplaceDupEveryShape : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, ReplaceDupEveryShape, testing::ValuesIn(sampledShapes()),
                         nameOfShape);

TEST_P(ReplaceDupEveryShape, OverwritesTheDataAtTheCursorInEveryMode) {
  Table table(host, ext.get(), GetParam());
  void *data = table.dataOf(table.put("red", "1"));
  table.put("blu", "2");
  EXPECT_EQ(table.replaceDup(data, "9"), MORVA_OK);
  EXPECT_EQ(table.all("red"), "9");
  EXPECT_EQ(table.all("blu"), "2");
  EXPECT_EQ(table.elements(), 2u);
}

TEST_P(ReplaceDupEveryShape, ANullCursorIsAnsweredWithSixUnderTheLock) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  const std::string data = table.bytes("9");
  const LockUse held = GetParam().has(flagNoLock) ? LockUse::none : LockUse::whole;
  EXPECT_EQ(lockUse(host,
                    [&] {
                      EXPECT_EQ(table->ReplaceDup(table.get(), nullptr, data.data()),
                                MORVA_NO_CURSOR);
                    }),
            held);
  EXPECT_EQ(table.all("red"), "1");
}

TEST_P(ReplaceDupEveryShape, ANullCursorComesBeforeNullData) {
  Table table(host, ext.get(), GetParam());
  EXPECT_EQ(table->ReplaceDup(table.get(), nullptr, nullptr), MORVA_NO_CURSOR);
}

TEST_P(ReplaceDupEveryShape, HoldsTheLockThroughout) {
  Table table(host, ext.get(), GetParam());
  void *data = table.dataOf(table.put("red", "1"));
  EXPECT_EQ(lockUse(host, [&] { table.replaceDup(data, "2"); }),
            GetParam().has(flagNoLock) ? LockUse::none : LockUse::whole);
}

TEST_P(ReplaceDupEveryShape, NullDataIsRefusedBeforeTheLock) {
  Table table(host, ext.get(), GetParam());
  void *data = table.dataOf(table.put("red", "1"));
  EXPECT_EQ(
      lockUse(host,
              [&] { EXPECT_EQ(table->ReplaceDup(table.get(), data, nullptr), MORVA_INVALID); }),
      LockUse::none);
  EXPECT_EQ(table.all("red"), "1");
}

TEST_F(ReplaceDup, ChangesOneRecordOfAChainAndNoOther) {
  for (const Shape &one : shapes(flagMultiData)) {
    Table table(host, ext.get(), one);
    for (const char *text : {"1", "2", "3"}) table.put("red", text);
    const std::vector<void *> cursors = table.cursors("red");
    ASSERT_EQ(cursors.size(), 3u);
    EXPECT_EQ(table.replaceDup(cursors[1], "9"), MORVA_OK);
    EXPECT_EQ(table.all("red"), "1 9 3") << describe(one);
    EXPECT_EQ(table.replaceDup(cursors[0], "8"), MORVA_OK);
    EXPECT_EQ(table.replaceDup(cursors[2], "7"), MORVA_OK);
    EXPECT_EQ(table.all("red"), "8 9 7");
    EXPECT_EQ(table.elements(), 3u);
  }
}

TEST_F(ReplaceDup, SetsTheSumOfTheRecordToTheIncrement) {
  for (const Shape &one : shapes(flagSum)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    RecordNode *red = table.put("red", "1");
    RecordNode *blue = table.put("blu", "2");
    table.setSumOf(red, 100.0);
    table.setSumOf(blue, 200.0);
    table->SetSumInc(table.get(), 2.5);
    EXPECT_EQ(table.replaceDup(table.dataOf(red), "3"), MORVA_OK);
    EXPECT_EQ(table.sumOf(red), 2.5);
    EXPECT_EQ(table.sumOf(blue), 200.0);
    table->SetSumInc(table.get(), 0.0);
    EXPECT_EQ(table.replaceDup(table.dataOf(red), "3"), MORVA_OK);
    EXPECT_EQ(table.sumOf(red), 0.0);
  }
}

TEST_F(ReplaceDup, SetsTheSumOfAFurtherRecordOfTheChainOnly) {
  Table table(host, ext.get(), shape(Keys::defined, flagSum | flagMultiData));
  RecordNode *first = table.put("red", "1");
  RecordNode *second = table.put("red", "2");
  table.setSumOf(first, 100.0);
  table.setSumOf(second, 200.0);
  table->SetSumInc(table.get(), 1.5);
  EXPECT_EQ(table.replaceDup(table.dataOf(second), "3"), MORVA_OK);
  EXPECT_EQ(table.sumOf(first), 100.0);
  EXPECT_EQ(table.sumOf(second), 1.5);
}

TEST_F(ReplaceDup, DataThatOverlapsTheRecordIsMoved) {
  for (const Shape &one : shapes(0, flagNoLock)) {
    SCOPED_TRACE(describe(one));
    Shape made = one;
    made.dataLength = 256;
    Table table(host, ext.get(), made);
    std::string text;
    for (int i = 0; i < 256; i++) text += static_cast<char>(i * 5 + 3);
    char *data = static_cast<char *>(table.dataOf(table.put("red", text)));
    std::string expected(data + 4, 252);
    ASSERT_EQ(table->ReplaceDup(table.get(), data, data + 4), MORVA_OK);
    EXPECT_EQ(std::string(data, 252), expected);
    expected.assign(data, 253);
    ASSERT_EQ(table->ReplaceDup(table.get(), data, data - 3), MORVA_OK);
    EXPECT_EQ(std::string(data + 3, 253), expected);
    expected.assign(data, 256);
    ASSERT_EQ(table->ReplaceDup(table.get(), data, data), MORVA_OK);
    EXPECT_EQ(std::string(data, 256), expected);
  }
}

TEST_F(ReplaceDup, WithoutDataBytesTheDataPointerMayBeNull) {
  Shape made = shape(Keys::fixed, flagMultiData);
  made.dataLength = 0;
  Table table(host, ext.get(), made);
  void *data = table.dataOf(table.put("red", ""));
  EXPECT_EQ(table->ReplaceDup(table.get(), data, nullptr), MORVA_OK);
}

TEST_F(ReplaceDup, NoInstanceAndAnInstanceNotDefinedAreRefused) {
  MORVAParms parms = {};
  MORVAInst *inst = ext->Create(ext.get(), &parms, nullptr, "open");
  ASSERT_NE(inst, nullptr);
  char bytes[32] = {};
  host.forget();
  EXPECT_EQ(MORVAReplaceDup(nullptr, bytes, bytes), MORVA_INVALID);
  EXPECT_EQ(MORVAReplaceDup(nullptr, nullptr, bytes), MORVA_INVALID);
  EXPECT_EQ(inst->ReplaceDup(inst, bytes, bytes), MORVA_INVALID);
  EXPECT_EQ(inst->ReplaceDup(inst, nullptr, bytes), MORVA_INVALID);
  EXPECT_TRUE(host.events().empty());
  inst->Destroy(inst);
}

}  // namespace
}  // namespace morva_test
