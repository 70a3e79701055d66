#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "table.h"

namespace morva_test {
namespace {

class Sums : public OpsTest {};
class SumsEveryShape : public OpsShapeTest {};
class SumsMulti : public OpsShapeTest {};
class SumsNone : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, SumsEveryShape, testing::ValuesIn(sampledShapes(flagSum)),
                         nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, SumsMulti,
                         testing::ValuesIn(sampledShapes(flagSum | flagMultiData)), nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, SumsNone, testing::ValuesIn(sampledShapes(0, flagSum)),
                         nameOfShape);

TEST_P(SumsEveryShape, AnAddAndThreeFindsMakeFour) {
  Table table(host, ext.get(), GetParam());
  table->SetSumInc(table.get(), 1.0);
  table.put("red", "1");
  for (int i = 0; i < 3; i++) ASSERT_EQ(table.find("red", nullptr), MORVA_OK);
  double sum = -1;
  EXPECT_EQ(table.sum("red", &sum), MORVA_OK);
  EXPECT_EQ(sum, 4.0);
}

TEST_P(SumsEveryShape, ReadingASumDoesNotChangeIt) {
  Table table(host, ext.get(), GetParam());
  RecordNode *node = table.put("red", "1");
  table.setSumOf(node, 6.25);
  table->SetSumInc(table.get(), 1.0);
  for (int i = 0; i < 3; i++) {
    double sum = -1;
    EXPECT_EQ(table.sum("red", &sum), MORVA_OK);
    EXPECT_EQ(sum, 6.25);
  }
  EXPECT_EQ(table.sumOf(node), 6.25);
}

TEST_P(SumsEveryShape, AnAbsentKeyStoresZero) {
  Table table(host, ext.get(), GetParam());
  table->SetSumInc(table.get(), 3.0);
  double sum = -1;
  EXPECT_EQ(table.sum("red", &sum), MORVA_OK);
  EXPECT_EQ(sum, 0.0);
  EXPECT_FALSE(std::signbit(sum));
  table.put("blu", "2");
  sum = -1;
  EXPECT_EQ(table.sum("red", &sum), MORVA_OK);
  EXPECT_EQ(sum, 0.0);
  EXPECT_EQ(table.sum("red", nullptr), MORVA_OK);
  EXPECT_EQ(table.sum("blu", nullptr), MORVA_OK);
}

TEST_P(SumsEveryShape, TheIncrementStartsAtZero) {
  Table table(host, ext.get(), GetParam());
  EXPECT_EQ(table->sumIncrement, 0.0);
  RecordNode *node = table.put("red", "1");
  EXPECT_EQ(table.sumOf(node), 0.0);
  EXPECT_EQ(table.find("red", nullptr), MORVA_OK);
  EXPECT_EQ(table.sumOf(node), 0.0);
}

TEST_P(SumsEveryShape, ANewRecordStartsAtTheIncrementInForce) {
  Table table(host, ext.get(), GetParam());
  table->SetSumInc(table.get(), 2.5);
  RecordNode *red = table.put("red", "1");
  table->SetSumInc(table.get(), -7.0);
  RecordNode *blue = table.put("blu", "2");
  EXPECT_EQ(table.replace("tan", "3"), MORVA_OK);
  EXPECT_EQ(table.sumOf(red), 2.5);
  EXPECT_EQ(table.sumOf(blue), -7.0);
  EXPECT_EQ(table.sumOf(table.nodeOf(table.at("tan"))), -7.0);
}

TEST_P(SumsEveryShape, AReplaceSetsTheSumBackToTheIncrement) {
  Table table(host, ext.get(), GetParam());
  RecordNode *red = table.put("red", "1");
  table.setSumOf(red, 100.0);
  table->SetSumInc(table.get(), 2.5);
  EXPECT_EQ(table.replace("red", "2"), MORVA_OK);
  EXPECT_EQ(table.sumOf(red), 2.5);
  EXPECT_EQ(table.all("red"), "2");
}

TEST_P(SumsEveryShape, AnAddThatStoresNothingMovesNoSum) {
  if (GetParam().has(flagMultiData)) {
    Table table(host, ext.get(), GetParam());
    RecordNode *first = table.put("red", "1");
    table.setSumOf(first, 100.0);
    table->SetSumInc(table.get(), 2.5);
    EXPECT_EQ(table.sumOf(table.put("red", "2")), 2.5);
    EXPECT_EQ(table.sumOf(first), 100.0);
    return;
  }
  Table table(host, ext.get(), GetParam());
  RecordNode *red = table.put("red", "1");
  table.setSumOf(red, 100.0);
  table->SetSumInc(table.get(), 2.5);
  EXPECT_EQ(table.add("red", "2"), MORVA_PRESENT);
  EXPECT_EQ(table.sumOf(red), 100.0);
}

TEST_P(SumsEveryShape, AnIncrementThatIsNotANumberIsRefused) {
  Table table(host, ext.get(), GetParam());
  table->SetSumInc(table.get(), 2.5);
  table->SetSumInc(table.get(), std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(table->sumIncrement, 2.5);
  table->SetSumInc(table.get(), -std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(table->sumIncrement, 2.5);
  table->SetSumInc(table.get(), std::numeric_limits<double>::infinity());
  EXPECT_EQ(table->sumIncrement, std::numeric_limits<double>::infinity());
  table->SetSumInc(table.get(), 0.0);
  EXPECT_EQ(table->sumIncrement, 0.0);
}

TEST_P(SumsEveryShape, SettingTheIncrementTakesNoLock) {
  Table table(host, ext.get(), GetParam());
  host.forget();
  table->SetSumInc(table.get(), 2.5);
  EXPECT_TRUE(host.events().empty());
}

TEST_P(SumsEveryShape, WithAnIncrementOfZeroLookupsStopChangingSums) {
  Table table(host, ext.get(), GetParam());
  table->SetSumInc(table.get(), 1.0);
  RecordNode *node = table.put("red", "1");
  ASSERT_EQ(table.find("red", nullptr), MORVA_OK);
  table->SetSumInc(table.get(), 0.0);
  ASSERT_EQ(table.find("red", nullptr), MORVA_OK);
  ASSERT_EQ(table.find2("red", nullptr), MORVA_OK);
  EXPECT_EQ(table.sumOf(node), 2.0);
}

TEST_P(SumsEveryShape, TheProbeOfASumGoesBackToTheHeadOfTheFreeChain) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  table.put("blu", "2");
  ASSERT_EQ(table.remove("blu"), MORVA_OK);
  const std::vector<RecordNode *> before = table.freeRecords();
  host.forget();
  EXPECT_EQ(table.sum("red", nullptr), MORVA_OK);
  EXPECT_EQ(host.eventsOf(Call::treeFind).back().a, reinterpret_cast<uint64_t>(before.front()));
  EXPECT_EQ(table.sum("tan", nullptr), MORVA_OK);
  EXPECT_EQ(table.freeRecords(), before);
  EXPECT_EQ(host.count(Call::allocate), 0u);
}

TEST_P(SumsEveryShape, WithoutAProbeThereIsNoMemory) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  table.fillRecordBlock();
  double sum = -1;
  host.failCall(Call::allocate);
  EXPECT_EQ(table.sum("red", &sum), MORVA_NO_MEMORY);
  host.failNever();
  EXPECT_EQ(sum, -1);
}

TEST_P(SumsEveryShape, SumKeyStoresTheSumOutsideAndInsideTheRecord) {
  Table table(host, ext.get(), GetParam());
  RecordNode *node = table.put("red", "text");
  table.setSumOf(node, 6.25);
  for (int32_t offset : {0, 8, 3}) {
    char *data = static_cast<char *>(table.dataOf(node));
    std::memset(data, '.', 16);
    double sum = -1, inside;
    EXPECT_EQ(table->SumKey(table.get(), data, &sum, offset), MORVA_OK);
    EXPECT_EQ(sum, 6.25);
    std::memcpy(&inside, data + offset, sizeof inside);
    EXPECT_EQ(inside, 6.25);
    for (int i = 0; i < 16; i++) {
      if (i >= offset && i < offset + 8) continue;
      EXPECT_EQ(data[i], '.') << i;
    }
  }
  EXPECT_EQ(table.sumOf(node), 6.25);
}

TEST_P(SumsEveryShape, SumKeyWithoutAPlaceTouchesNothing) {
  Table table(host, ext.get(), GetParam());
  RecordNode *node = table.put("red", "text");
  table.setSumOf(node, 6.25);
  EXPECT_EQ(table->SumKey(table.get(), table.dataOf(node), nullptr, 0), MORVA_OK);
  EXPECT_EQ(table.all("red"), "text");
  EXPECT_EQ(table->SumKey(table.get(), nullptr, nullptr, 0), MORVA_OK);
}

TEST_P(SumsEveryShape, SumKeyOfANullCursorStoresZero) {
  Table table(host, ext.get(), GetParam());
  double sum = -1;
  EXPECT_EQ(table->SumKey(table.get(), nullptr, &sum, 0), MORVA_OK);
  EXPECT_EQ(sum, 0.0);
}

TEST_P(SumsEveryShape, SumKeyOffsetsMayBeNegative) {
  Shape made = GetParam();
  made.keyLength = 40;  // leaves room between the key's few bytes and the sum
  Table table(host, ext.get(), made);
  RecordNode *node = table.put("red", "text");
  table.setSumOf(node, 6.25);
  const int32_t offset =
      -static_cast<int32_t>(table->dataOffset + (made.has(flagMultiData) ? 16 : 0) - 24);
  double sum = -1, inside;
  EXPECT_EQ(table->SumKey(table.get(), table.dataOf(node), &sum, offset), MORVA_OK);
  std::memcpy(&inside, table.base(node) + 24, sizeof inside);
  EXPECT_EQ(sum, 6.25);
  EXPECT_EQ(inside, 6.25);
  EXPECT_EQ(table.textAt(table.dataOf(node)), "text");
}

TEST_P(SumsMulti, ADuplicateStartsAtTheIncrementAndTheFirstKeepsItsSum) {
  Table table(host, ext.get(), GetParam());
  table->SetSumInc(table.get(), 1.0);
  RecordNode *first = table.put("red", "1");
  table->SetSumInc(table.get(), 2.0);
  RecordNode *second = table.put("red", "2");
  EXPECT_EQ(table.sumOf(first), 1.0);
  EXPECT_EQ(table.sumOf(second), 2.0);
}

TEST_P(SumsMulti, AReplaceResetsTheFirstRecordOfTheChainOnly) {
  Table table(host, ext.get(), GetParam());
  RecordNode *nodes[3];
  for (RecordNode *&node : nodes) node = table.put("red", "1");
  for (RecordNode *node : nodes) table.setSumOf(node, 100.0);
  table->SetSumInc(table.get(), 2.5);
  EXPECT_EQ(table.replace("red", "9"), MORVA_OK);
  EXPECT_EQ(table.all("red"), "9 9 9");
  EXPECT_EQ(table.sumOf(nodes[0]), 2.5);
  EXPECT_EQ(table.sumOf(nodes[1]), 100.0);
  EXPECT_EQ(table.sumOf(nodes[2]), 100.0);
}

TEST_P(SumsMulti, SumAnswersTheFirstRecordAndSumDupTheOneAtTheCursor) {
  Table table(host, ext.get(), GetParam());
  RecordNode *nodes[3];
  for (RecordNode *&node : nodes) node = table.put("red", "1");
  for (int i = 0; i < 3; i++) table.setSumOf(nodes[i], i + 1.5);
  table->SetSumInc(table.get(), 10.0);
  double sum = -1;
  EXPECT_EQ(table.sum("red", &sum), MORVA_OK);
  EXPECT_EQ(sum, 1.5);
  for (int i = 0; i < 3; i++) {
    EXPECT_EQ(table->SumDup(table.get(), table.dataOf(nodes[i]), &sum), MORVA_OK);
    EXPECT_EQ(sum, i + 1.5);
    EXPECT_EQ(table->SumDup(table.get(), table.dataOf(nodes[i]), nullptr), MORVA_OK);
    EXPECT_EQ(table.sumOf(nodes[i]), i + 1.5);
  }
}

TEST_P(SumsMulti, SumDupOfANullCursorStoresZero) {
  Table table(host, ext.get(), GetParam());
  double sum = -1;
  EXPECT_EQ(table->SumDup(table.get(), nullptr, &sum), MORVA_OK);
  EXPECT_EQ(sum, 0.0);
  EXPECT_EQ(table->SumDup(table.get(), nullptr, nullptr), MORVA_OK);
}

TEST_P(SumsNone, TheReadersAnswerFourWithoutTheLockAndStoreNothing) {
  Table table(host, ext.get(), GetParam());
  RecordNode *node = table.put("red", "text");
  void *data = table.dataOf(node);
  double sum = -1;
  EXPECT_EQ(lockUse(host,
                    [&] {
                      EXPECT_EQ(table.sum("red", &sum), MORVA_NO_SUM);
                      EXPECT_EQ(table.sum(std::string(60, 'k'), &sum), MORVA_NO_SUM);
                      EXPECT_EQ(table->SumKey(table.get(), data, &sum, 0), MORVA_NO_SUM);
                      EXPECT_EQ(table->SumDup(table.get(), data, &sum),
                                GetParam().has(flagMultiData) ? MORVA_NO_SUM : MORVA_INVALID);
                    }),
            LockUse::none);
  EXPECT_TRUE(host.events().empty());
  EXPECT_EQ(sum, -1);
  EXPECT_EQ(table.all("red"), "text");
}

TEST_P(SumsNone, AnIncrementIsNotTaken) {
  Table table(host, ext.get(), GetParam());
  table->SetSumInc(table.get(), 2.5);
  EXPECT_EQ(table->sumIncrement, 0.0);
}

TEST_F(Sums, SumDupIsRefusedWithoutSeveralRecordsPerKeyBeforeSumsAreLookedAt) {
  for (const Shape &one : shapes(0, flagMultiData)) {
    Table table(host, ext.get(), one);
    void *data = table.dataOf(table.put("red", "1"));
    double sum = -1;
    EXPECT_EQ(
        lockUse(host, [&] { EXPECT_EQ(table->SumDup(table.get(), data, &sum), MORVA_INVALID); }),
        LockUse::none)
        << describe(one);
    EXPECT_EQ(sum, -1);
  }
}

TEST_F(Sums, AnOverLongFixedKeyIsRefusedAndItsProbeStaysOutOfUse) {
  for (const Shape &one : shapes(flagFixedKey | flagSum)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    ASSERT_EQ(table.sum("red", nullptr), MORVA_OK);
    ASSERT_EQ(table.freeRecords().size(), 1u);
    double sum = -1;
    EXPECT_EQ(table.sum(std::string(20, 'k'), &sum), MORVA_OK);
    EXPECT_EQ(sum, 0.0);
    sum = -1;
    EXPECT_EQ(table.sum(std::string(21, 'k'), &sum), MORVA_INVALID);
    EXPECT_EQ(sum, -1);
    EXPECT_TRUE(table.freeRecords().empty());
    const int64_t used = table->recordsUsed;
    EXPECT_EQ(table.sum(std::string(21, 'k'), &sum), MORVA_INVALID);
    EXPECT_EQ(table->recordsUsed, used + 1);
  }
}

TEST_F(Sums, TheIncrementIsZeroAgainAfterEveryDefinition) {
  MORVAParms parms = {};
  parms.flags = flagSum;
  MORVAInst *inst = ext->Create(ext.get(), &parms, nullptr, "open");
  ASSERT_NE(inst, nullptr);
  inst->SetSumInc(inst, 2.5);
  EXPECT_EQ(inst->sumIncrement, 0.0) << "taken before the definition was done";
  EXPECT_EQ(inst->DefineDone(inst, 0, 16), MORVA_OK);
  EXPECT_EQ(inst->sumIncrement, 0.0);
  inst->SetSumInc(inst, 2.5);
  EXPECT_EQ(inst->sumIncrement, 2.5);
  inst->Destroy(inst);
}

TEST_F(Sums, SettingTheIncrementOfNoInstanceDoesNothing) {
  host.forget();
  MORVASetSumInc(nullptr, 2.5);
  EXPECT_TRUE(host.events().empty());
}

}  // namespace
}  // namespace morva_test
