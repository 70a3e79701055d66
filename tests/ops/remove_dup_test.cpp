#include <gmock/gmock.h>

#include <memory>

#include "table.h"

namespace morva_test {
namespace {

using testing::ElementsAre;

class RemoveDup : public OpsTest {};
class RemoveDupEveryShape : public OpsShapeTest {
 protected:
  // Three records "1" "2" "3" of the key "red".
  void SetUp() override {
    table = std::make_unique<Table>(host, ext.get(), GetParam());
    for (int i = 0; i < 3; i++) {
      nodes[i] = table->put("red", std::to_string(i + 1));
      pairs[i] = table->links(nodes[i]);
      if (GetParam().has(flagSum)) table->setSumOf(nodes[i], i + 1.25);
    }
    host.forget();
  }
  void TearDown() override {
    table.reset();
    OpsTest::TearDown();
  }
  // The scratch record of the call just made: what it left behind the released node.
  RecordNode *scratch() { return table->freeRecords().at(1); }

  std::unique_ptr<Table> table;
  RecordNode *nodes[3];
  DupLinks *pairs[3];
};

INSTANTIATE_TEST_SUITE_P(Shapes, RemoveDupEveryShape,
                         testing::ValuesIn(sampledShapes(flagMultiData)), nameOfShape);

TEST_P(RemoveDupEveryShape, AMiddleRecordIsTakenOutOfTheChain) {
  void *cursor = table->dataOf(nodes[1]);
  EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(cursor, nullptr);
  EXPECT_EQ(pairs[0]->next, pairs[2]);
  EXPECT_EQ(pairs[0]->back, pairs[2]);
  EXPECT_EQ(pairs[2]->next, nullptr);
  EXPECT_EQ(pairs[2]->back, pairs[0]);
  EXPECT_EQ(table->freeRecords().front(), nodes[1]);
  EXPECT_EQ(table->all("red"), "1 3");
}

TEST_P(RemoveDupEveryShape, TheLastRecordHandsItsPlaceToTheOneBefore) {
  void *cursor = table->dataOf(nodes[2]);
  EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(cursor, nullptr);
  EXPECT_EQ(pairs[0]->next, pairs[1]);
  EXPECT_EQ(pairs[0]->back, pairs[1]);
  EXPECT_EQ(pairs[1]->next, nullptr);
  EXPECT_EQ(pairs[1]->back, pairs[0]);
  EXPECT_EQ(table->freeRecords().front(), nodes[2]);
  EXPECT_EQ(table->all("red"), "1 2");
}

TEST_P(RemoveDupEveryShape, TheFirstRecordTakesOverTheContentsOfTheSecond) {
  void *cursor = table->dataOf(nodes[0]);
  EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(cursor, nullptr);
  EXPECT_EQ(table->bucket()->root, nodes[0]) << "the first node stays in its tree";
  EXPECT_EQ(pairs[0]->next, pairs[2]);
  EXPECT_EQ(pairs[0]->back, pairs[2]);
  EXPECT_EQ(pairs[2]->next, nullptr);
  EXPECT_EQ(pairs[2]->back, pairs[0]);
  EXPECT_EQ(table->freeRecords().front(), nodes[1]);
  EXPECT_EQ(table->textAt(pairs[0] + 1), "2");
  EXPECT_EQ(table->all("red"), "2 3");
  if (GetParam().has(flagSum)) {
    EXPECT_EQ(table->sumOf(nodes[0]), 2.25);
    EXPECT_EQ(table->sumOf(nodes[2]), 3.25);
  }
}

TEST_P(RemoveDupEveryShape, TheFirstOfTwoRecordsEndsAsAnEmptyChain) {
  void *cursor = table->dataOf(nodes[2]);
  ASSERT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  cursor = table->dataOf(nodes[0]);
  EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(cursor, nullptr);
  EXPECT_EQ(pairs[0]->next, nullptr);
  EXPECT_EQ(pairs[0]->back, pairs[0]);
  EXPECT_EQ(table->freeRecords().front(), nodes[1]);
  EXPECT_EQ(table->all("red"), "2");
  EXPECT_EQ(table->elements(), 1u);
}

TEST_P(RemoveDupEveryShape, TheSecondOfTwoRecordsLeavesAnEmptyChain) {
  void *cursor = table->dataOf(nodes[2]);
  ASSERT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  cursor = table->dataOf(nodes[1]);
  EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(pairs[0]->next, nullptr);
  EXPECT_EQ(pairs[0]->back, pairs[0]);
  EXPECT_EQ(table->all("red"), "1");
}

TEST_P(RemoveDupEveryShape, TheOnlyRecordTakesItsKeyWithIt) {
  RecordNode *blue = table->put("blu", "4");
  void *cursor = table->dataOf(blue);
  EXPECT_EQ(table->removeDup(&cursor, "blu"), MORVA_OK);
  EXPECT_EQ(cursor, nullptr);
  EXPECT_EQ(table->all("blu"), "-");
  EXPECT_EQ(table->all("red"), "1 2 3");
  EXPECT_EQ(table->elements(), 3u);
  EXPECT_EQ(table->bucket()->count, 3u);
}

TEST_P(RemoveDupEveryShape, ElementsGoDownAndTheBucketKeepsItsCountWhileTheKeyStays) {
  for (int left : {2, 1}) {
    void *cursor = table->dataOf(nodes[left]);
    EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
    EXPECT_EQ(table->elements(), static_cast<uint32_t>(left));
    EXPECT_EQ(table->bucket()->count, 3u);
    EXPECT_EQ(table->used(), 1u);
  }
  void *cursor = table->dataOf(nodes[0]);
  EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(table->elements(), 0u);
  EXPECT_EQ(table->bucket()->count, 2u);
  EXPECT_EQ(table->used(), 1u) << "the count did not reach 0";
  EXPECT_EQ(table->bucket()->root, nullptr);
}

TEST_P(RemoveDupEveryShape, RemovingFromTheFrontEmptiesTheKeyRecordByRecord) {
  for (const char *left : {"2 3", "3", "-"}) {
    void *cursor = table->at("red");
    EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
    EXPECT_EQ(table->all("red"), left);
  }
}

TEST_P(RemoveDupEveryShape, TheChainCanGrowAgainAfterwards) {
  for (int i : {0, 2}) {
    void *cursor = table->dataOf(nodes[i]);
    ASSERT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  }
  ASSERT_EQ(table->all("red"), "2");
  DupLinks *fresh = table->links(table->put("red", "5"));
  EXPECT_EQ(pairs[0]->next, fresh);
  EXPECT_EQ(pairs[0]->back, fresh);
  EXPECT_EQ(fresh->back, pairs[0]);
  EXPECT_EQ(fresh->next, nullptr);
  EXPECT_EQ(table->all("red"), "2 5");
}

TEST_P(RemoveDupEveryShape, LongChainsKeepTheirOtherRecords) {
  for (int i = 4; i <= 7; i++) table->put("red", std::to_string(i));
  std::vector<void *> cursors = table->cursors("red");
  void *cursor = cursors[3];
  EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(table->all("red"), "1 2 3 5 6 7");
  cursor = cursors[0];
  EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(table->all("red"), "2 3 5 6 7");
  cursor = cursors[6];
  EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(table->all("red"), "2 3 5 6");
  EXPECT_EQ(pairs[0]->back + 1, cursors[5]);
  std::string backwards;
  for (void *at = cursors[5]; at != nullptr;) {
    backwards += table->textAt(at);
    ASSERT_EQ((*table)->FindPrev(table->get(), at, &at), MORVA_OK);
  }
  EXPECT_EQ(backwards, "6532");
}

TEST_P(RemoveDupEveryShape, TheEndOfALongChainLeadsToItsFirstRecordByTheTree) {
  table->put("blu", "b");
  for (int i = 4; i <= 150; i++) table->put("red", std::to_string(i));
  const std::vector<void *> cursors = table->cursors("red");
  std::string left = table->all("red");
  for (size_t i = cursors.size(); i-- > 1;) {
    host.forget();
    void *cursor = cursors[i];
    ASSERT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
    EXPECT_EQ(host.count(Call::treeFind), i <= 64 ? 0u : 1u) << i;
    EXPECT_EQ(host.count(Call::treeRemove), 0u);
    left.resize(left.rfind(' '));
    ASSERT_EQ(table->all("red"), left);
    ASSERT_EQ(pairs[0]->back + 1, cursors[i - 1]);
  }
  EXPECT_EQ(table->all("blu"), "b");
}

TEST_P(RemoveDupEveryShape, TheMiddleOfALongChainGoesWithoutALookAtItsFirstRecord) {
  for (int i = 4; i <= 150; i++) table->put("red", std::to_string(i));
  void *cursor = table->cursors("red")[100];
  host.forget();
  EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(host.count(Call::treeFind), 0u);
  EXPECT_EQ(table->cursors("red").size(), 149u);
  EXPECT_THAT(table->all("red"), testing::HasSubstr(" 100 102 "));
}

TEST_P(RemoveDupEveryShape, TheKeyIsPutIntoAScratchRecordThoughNoBucketIsSearched) {
  void *cursor = table->dataOf(nodes[1]);
  EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(host.count(Call::treeFind) + host.count(Call::treeRemove), 0u);
  EXPECT_EQ(host.count(Call::pack), GetParam().raw() ? 0u : 1u);
  ASSERT_EQ(table->freeRecords().size(), 2u);
  EXPECT_NE(scratch(), nodes[0]);
  EXPECT_NE(scratch(), nodes[2]);
  EXPECT_EQ((*table)->recordsUsed, 4);
}

TEST_P(RemoveDupEveryShape, TheOnlyRecordUsesOneScratchRecordTwice) {
  RecordNode *blue = table->put("blu", "4");
  void *cursor = table->dataOf(blue);
  EXPECT_EQ(table->removeDup(&cursor, "blu"), MORVA_OK);
  ASSERT_EQ(table->freeRecords().size(), 2u);
  EXPECT_EQ(table->freeRecords()[0], blue);
  EXPECT_EQ(host.eventsOf(Call::treeFind).back().a, reinterpret_cast<uint64_t>(scratch()));
  EXPECT_EQ(host.count(Call::treeRemove), 1u);
}

TEST_P(RemoveDupEveryShape, AnEmptyCursorWordIsAnsweredWithSixUnderTheLock) {
  void *cursor = nullptr;
  EXPECT_EQ(lockUse(host, [&] { EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_NO_CURSOR); }),
            GetParam().has(flagNoLock) ? LockUse::none : LockUse::whole);
  EXPECT_EQ(cursor, nullptr);
  EXPECT_TRUE(table->freeRecords().empty()) << "no scratch record was needed";
  EXPECT_EQ(table->all("red"), "1 2 3");
}

TEST_P(RemoveDupEveryShape, ANullCursorIsRefusedWithoutTheLock) {
  EXPECT_EQ(lockUse(host, [&] { EXPECT_EQ(table->removeDup(nullptr, "red"), MORVA_INVALID); }),
            LockUse::none);
  EXPECT_EQ(table->elements(), 3u);
}

TEST_P(RemoveDupEveryShape, TheNestedRemovalOfTheOnlyRecordIsBracketedOnce) {
  RecordNode *blue = table->put("blu", "4");
  void *cursor = table->dataOf(blue);
  EXPECT_EQ(lockUse(host, [&] { EXPECT_EQ(table->removeDup(&cursor, "blu"), MORVA_OK); }),
            GetParam().has(flagNoLock) ? LockUse::none : LockUse::whole);
}

TEST_P(RemoveDupEveryShape, WithoutAScratchRecordChainAndCursorStay) {
  table->fillRecordBlock();
  const uint32_t elements = table->elements();
  for (RecordNode *node : nodes) {
    void *const data = table->dataOf(node);
    void *cursor = data;
    host.failCall(Call::allocate);
    EXPECT_EQ(table->removeDup(&cursor, "red"), MORVA_NO_MEMORY);
    host.failNever();
    EXPECT_EQ(cursor, data);
    EXPECT_EQ(table->elements(), elements);
  }
  EXPECT_EQ(table->all("red"), "1 2 3");
}

TEST_P(RemoveDupEveryShape, AnotherKeyThanTheCursorsDoesNotRemoveTheOnlyRecord) {
  RecordNode *blue = table->put("blu", "4");
  void *cursor = table->dataOf(blue);
  EXPECT_EQ(table->removeDup(&cursor, "tan"), MORVA_INVALID);
  EXPECT_EQ(cursor, nullptr) << "the cursor word is emptied after the removal was tried";
  EXPECT_EQ(table->all("blu"), "4");
  EXPECT_EQ(table->elements(), 4u);
}

TEST_F(RemoveDup, IsRefusedWithoutSeveralRecordsPerKey) {
  for (const Shape &one : shapes(0, flagMultiData)) {
    Table table(host, ext.get(), one);
    void *const data = table.dataOf(table.put("red", "1"));
    void *cursor = data, *empty = nullptr;
    EXPECT_EQ(lockUse(host,
                      [&] {
                        EXPECT_EQ(table.removeDup(&cursor, "red"), MORVA_INVALID);
                        EXPECT_EQ(table.removeDup(&empty, "red"), MORVA_INVALID);
                      }),
              LockUse::none)
        << describe(one);
    EXPECT_EQ(cursor, data);
    EXPECT_EQ(table.all("red"), "1");
  }
}

TEST_F(RemoveDup, TheScratchRecordOfAnOverLongFixedKeyIsGivenBack) {
  for (const Shape &one : shapes(flagFixedKey | flagMultiData)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    void *const data = table.dataOf(table.put("red", "1"));
    table.put("red", "2");
    void *cursor = data;
    EXPECT_EQ(table.removeDup(&cursor, std::string(21, 'k')), MORVA_INVALID);
    EXPECT_EQ(cursor, data);
    EXPECT_EQ(table.freeRecords().size(), 1u);
    const int64_t used = table->recordsUsed;
    EXPECT_EQ(table.removeDup(&cursor, std::string(21, 'k')), MORVA_INVALID);
    EXPECT_EQ(table.freeRecords().size(), 1u);
    EXPECT_EQ(table->recordsUsed, used);
    EXPECT_EQ(table.all("red"), "1 2");
    EXPECT_EQ(table.elements(), 2u);
  }
}

TEST_F(RemoveDup, NoInstanceAndAnInstanceNotDefinedAreRefused) {
  MORVAParms parms = {};
  parms.flags = flagMultiData;
  MORVAInst *inst = ext->Create(ext.get(), &parms, nullptr, "open");
  ASSERT_NE(inst, nullptr);
  void *const mark = &parms;
  void *cursor = mark;
  host.forget();
  EXPECT_EQ(MORVARemoveDup(nullptr, &cursor, "red", 3), MORVA_INVALID);
  EXPECT_EQ(inst->RemoveDup(inst, &cursor, "red", 3), MORVA_INVALID);
  EXPECT_EQ(cursor, mark);
  EXPECT_TRUE(host.events().empty());
  inst->Destroy(inst);
}

}  // namespace
}  // namespace morva_test
