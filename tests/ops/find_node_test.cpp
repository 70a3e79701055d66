#include <gmock/gmock.h>

#include "table.h"

namespace morva_test {
namespace {

using testing::ElementsAre;

class FindNode : public OpsTest {};
class FindNodeEveryShape : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, FindNodeEveryShape, testing::ValuesIn(sampledShapes()),
                         nameOfShape);

TEST_P(FindNodeEveryShape, YieldsTheTreeNodeAndTheBucketOfAKey) {
  Shape made = GetParam();
  made.hashExp = 6;
  Table table(host, ext.get(), made);
  for (const char *key : {"red", "green", "blue"}) {
    RecordNode *node = table.put(key, "1"), *found = nullptr;
    uint32_t index = 77, expected = 78;
    EXPECT_EQ(table.findNode(key, &found, &index), MORVA_OK);
    EXPECT_EQ(table.hashVal(key, &expected), MORVA_OK);
    EXPECT_EQ(found, node);
    EXPECT_EQ(index, expected);
    EXPECT_EQ(host.eventsOf(Call::treeFind).back().c,
              reinterpret_cast<uint64_t>(table.bucket(index)));
  }
}

TEST_P(FindNodeEveryShape, AnAbsentKeyYieldsNullAndItsBucketAllTheSame) {
  Shape made = GetParam();
  made.hashExp = 6;
  Table table(host, ext.get(), made);
  RecordNode *found = table.put("red", "1");
  uint32_t index = 77, expected = 78;
  EXPECT_EQ(table.findNode("green", &found, &index), MORVA_OK);
  EXPECT_EQ(table.hashVal("green", &expected), MORVA_OK);
  EXPECT_EQ(found, nullptr);
  EXPECT_EQ(index, expected);
}

TEST_P(FindNodeEveryShape, EitherPlaceMayBeNull) {
  Table table(host, ext.get(), GetParam());
  RecordNode *node = table.put("red", "1"), *found = nullptr;
  uint32_t index = 77;
  EXPECT_EQ(table.findNode("red", nullptr, nullptr), MORVA_OK);
  EXPECT_EQ(table.findNode("tan", nullptr, nullptr), MORVA_OK);
  EXPECT_EQ(host.count(Call::treeFind), 2u);
  EXPECT_EQ(table.findNode("red", &found, nullptr), MORVA_OK);
  EXPECT_EQ(found, node);
  EXPECT_EQ(table.findNode("red", nullptr, &index), MORVA_OK);
  EXPECT_EQ(index, 0u);
}

TEST_P(FindNodeEveryShape, TakesNoLock) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  EXPECT_EQ(lockUse(host,
                    [&] {
                      EXPECT_EQ(table.findNode("red", nullptr, nullptr), MORVA_OK);
                      EXPECT_EQ(table.findNode("tan", nullptr, nullptr), MORVA_OK);
                    }),
            LockUse::none);
}

TEST_P(FindNodeEveryShape, CyclesAScratchRecordThroughTheFreeChain) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  ASSERT_TRUE(table.freeRecords().empty());
  EXPECT_EQ(table.findNode("red", nullptr, nullptr), MORVA_OK);
  ASSERT_EQ(table.freeRecords().size(), 1u);
  RecordNode *scratch = table.freeRecords()[0];
  EXPECT_EQ(host.eventsOf(Call::treeFind).back().a, reinterpret_cast<uint64_t>(scratch));
  EXPECT_EQ(table.findNode("tan", nullptr, nullptr), MORVA_OK);
  EXPECT_THAT(table.freeRecords(), ElementsAre(scratch));
}

TEST_P(FindNodeEveryShape, TheDataOfTheNodeLiesWhereRecoffTells) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  RecordNode *node = nullptr;
  void *data = nullptr;
  ASSERT_EQ(table.findNode("red", &node, nullptr), MORVA_OK);
  ASSERT_EQ(table.find("red", &data), MORVA_OK);
  const uint64_t links = GetParam().has(flagMultiData) ? 16 : 0;
  EXPECT_EQ(table.base(node) + table->Recoff(table.get(), node) + links, static_cast<char *>(data));
}

TEST_F(FindNode, MovesNoSum) {
  Table table(host, ext.get(), shape(Keys::fixed, flagSum));
  RecordNode *node = table.put("red", "1");
  table->SetSumInc(table.get(), 1.0);
  EXPECT_EQ(table.findNode("red", nullptr, nullptr), MORVA_OK);
  EXPECT_EQ(table.sumOf(node), 0.0);
}

TEST_F(FindNode, GivesTheScratchRecordOfAnOverLongFixedKeyBack) {
  for (const Shape &one : shapes(flagFixedKey | flagNoLock)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    RecordNode *found = table.put("red", "1");
    RecordNode *const mark = found;
    uint32_t index = 77;
    EXPECT_EQ(table.findNode(std::string(21, 'k'), &found, &index), MORVA_INVALID);
    EXPECT_EQ(found, mark);
    EXPECT_EQ(index, 77u);
    const int64_t used = table->recordsUsed;
    EXPECT_EQ(used, 2);
    ASSERT_EQ(table.freeRecords().size(), 1u);
    EXPECT_EQ(table.findNode(std::string(21, 'k'), &found, &index), MORVA_INVALID);
    EXPECT_EQ(table.freeRecords().size(), 1u);
    EXPECT_EQ(table->recordsUsed, used);
    EXPECT_EQ(table.findNode(std::string(20, 'k'), &found, &index), MORVA_OK);
    EXPECT_EQ(found, nullptr);
  }
}

TEST_F(FindNode, RecoffRoundsTheKeyLengthOfAVariableKey) {
  Table table(host, ext.get(), shape(Keys::var));
  const std::pair<size_t, uint64_t> offsets[] = {{0, 16}, {1, 16},  {4, 16},
                                                 {5, 24}, {12, 24}, {13, 32}};
  for (const auto &[length, offset] : offsets) {
    RecordNode *node = table.put(std::string(length, 'k'), "1");
    EXPECT_EQ(table->Recoff(table.get(), node), offset) << length;
  }
}

TEST_F(FindNode, RecoffIsTheDataOffsetWhateverTheNodeOtherwise) {
  for (const Shape &one : shapes(0, flagVarKey)) {
    Table table(host, ext.get(), one);
    EXPECT_EQ(table->Recoff(table.get(), table.put("red", "1")), table->dataOffset);
    EXPECT_EQ(table->Recoff(table.get(), table.put("a longer", "1")), table->dataOffset);
    EXPECT_EQ(table->Recoff(table.get(), nullptr), table->dataOffset);
  }
}

TEST_F(FindNode, RecoffOfNoInstanceIsZero) {
  Table table(host, ext.get(), shape(Keys::var));
  RecordNode *node = table.put("red", "1");
  EXPECT_EQ(MORVARecoff(nullptr, node), 0u);
  EXPECT_EQ(MORVARecoff(nullptr, nullptr), 0u);
  EXPECT_EQ(MORVARecoff(table.get(), nullptr), 0u);
}

}  // namespace
}  // namespace morva_test
