#include <gmock/gmock.h>

#include "table.h"

namespace morva_test {
namespace {

class Pinned : public OpsTest {};
class PinnedEveryShape : public OpsShapeTest {};
class PinnedMulti : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, PinnedEveryShape, testing::ValuesIn(sampledShapes()), nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, PinnedMulti, testing::ValuesIn(sampledShapes(flagMultiData)),
                         nameOfShape);

TEST_P(PinnedEveryShape, APinnedKeyIsNotRemovedAndStaysFindable) {
  Table table(host, ext.get(), GetParam());
  RecordNode *red = table.put("red", "1");
  table.put("blu", "2");
  table.pin(red);
  EXPECT_EQ(table.remove("red"), MORVA_PINNED);
  EXPECT_EQ(table.all("red"), "1");
  EXPECT_EQ(table.elements(), 2u);
  EXPECT_EQ(table.bucket()->count, 2u);
  EXPECT_EQ(table.used(), 1u);
  EXPECT_EQ(host.count(Call::treeRemove) + host.count(Call::unlink), 0u);
}

TEST_P(PinnedEveryShape, TheScratchRecordGoesBackAllTheSame) {
  Table table(host, ext.get(), GetParam());
  table.pin(table.put("red", "1"));
  EXPECT_EQ(table.remove("red"), MORVA_PINNED);
  EXPECT_EQ(table.freeRecords().size(), 1u);
  EXPECT_EQ(table.remove("red"), MORVA_PINNED);
  EXPECT_EQ(table.freeRecords().size(), 1u);
}

TEST_P(PinnedEveryShape, OtherKeysAreRemoved) {
  Table table(host, ext.get(), GetParam());
  table.pin(table.put("red", "1"));
  table.put("blu", "2");
  EXPECT_EQ(table.remove("blu"), MORVA_OK);
  EXPECT_EQ(table.remove("tan"), MORVA_INVALID);
  EXPECT_EQ(table.elements(), 1u);
}

TEST_P(PinnedEveryShape, EveryEntryOfTheListCounts) {
  Table table(host, ext.get(), GetParam());
  std::vector<std::string> keys = {"a", "b", "c"};
  for (const std::string &key : keys) table.pin(table.put(key, "x"));
  for (const std::string &key : keys) EXPECT_EQ(table.remove(key), MORVA_PINNED);
  EXPECT_EQ(table.elements(), 3u);
}

TEST_P(PinnedEveryShape, AnUnpinnedKeyCanBeRemoved) {
  Table table(host, ext.get(), GetParam());
  PinnedEntry *entry = table.pin(table.put("red", "1"));
  ASSERT_EQ(table.remove("red"), MORVA_PINNED);
  table->pinned = entry->next;
  ext->pool->free(ext->pool, entry);
  EXPECT_EQ(table.remove("red"), MORVA_OK);
  EXPECT_EQ(table.all("red"), "-");
}

TEST_P(PinnedEveryShape, AddReplaceAndFindDoNotCareForPins) {
  Table table(host, ext.get(), GetParam());
  table.pin(table.put("red", "1"));
  EXPECT_EQ(table.replace("red", "2"), MORVA_OK);
  EXPECT_EQ(table.all("red"), "2");
  EXPECT_EQ(table.add("red", "3"), GetParam().has(flagMultiData) ? MORVA_OK : MORVA_PRESENT);
  EXPECT_EQ(table.find("red", nullptr), MORVA_OK);
}

TEST_P(PinnedMulti, NoRecordOfAPinnedKeyIsRemoved) {
  Table table(host, ext.get(), GetParam());
  RecordNode *first = table.put("red", "1");
  table.put("red", "2");
  table.put("red", "3");
  table.pin(first);
  EXPECT_EQ(table.remove("red"), MORVA_PINNED);
  for (void *const data : table.cursors("red")) {
    void *cursor = data;
    EXPECT_EQ(table.removeDup(&cursor, "red"), MORVA_PINNED);
    EXPECT_EQ(cursor, data);
  }
  EXPECT_EQ(table.all("red"), "1 2 3");
  EXPECT_EQ(table.elements(), 3u);
}

TEST_P(PinnedMulti, NoRecordOfALongPinnedChainIsRemoved) {
  Table table(host, ext.get(), GetParam());
  RecordNode *first = table.put("red", "1");
  for (int i = 2; i <= 150; i++) table.put("red", std::to_string(i));
  table.pin(first);
  for (void *const data : table.cursors("red")) {
    void *cursor = data;
    ASSERT_EQ(table.removeDup(&cursor, "red"), MORVA_PINNED);
  }
  EXPECT_EQ(table.elements(), 150u);
}

// A clear does not wait for pins: then the tree no longer leads to the chain.
TEST_P(PinnedMulti, ALongChainThatWasClearedIsFoundPinnedAllTheSame) {
  Table table(host, ext.get(), GetParam());
  RecordNode *first = table.put("red", "1");
  for (int i = 2; i <= 150; i++) table.put("red", std::to_string(i));
  void *const last = table.cursors("red").back();
  table.pin(first);
  EXPECT_EQ(table->Clear2(table.get()), MORVA_PINNED);
  for (const bool again : {false, true}) {
    if (again) table.put("red", "new");
    void *cursor = last;
    EXPECT_EQ(table.removeDup(&cursor, "red"), MORVA_PINNED);
    EXPECT_EQ(cursor, last);
  }
  EXPECT_EQ(table.all("red"), "new");
}

TEST_P(PinnedMulti, ThePinIsSeenBeforeAScratchRecordIsTaken) {
  Table table(host, ext.get(), GetParam());
  RecordNode *first = table.put("red", "1");
  RecordNode *second = table.put("red", "2");
  table.pin(first);
  const int64_t used = table->recordsUsed;
  void *cursor = table.dataOf(second);
  EXPECT_EQ(table.removeDup(&cursor, "red"), MORVA_PINNED);
  EXPECT_EQ(table->recordsUsed, used);
  EXPECT_TRUE(table.freeRecords().empty());
}

TEST_P(PinnedMulti, TheOnlyRecordOfAPinnedKeyStays) {
  Table table(host, ext.get(), GetParam());
  RecordNode *only = table.put("red", "1");
  table.pin(only);
  void *const data = table.dataOf(only);
  void *cursor = data;
  EXPECT_EQ(table.removeDup(&cursor, "red"), MORVA_PINNED);
  EXPECT_EQ(cursor, data);
  EXPECT_EQ(table.all("red"), "1");
}

TEST_P(PinnedMulti, APinnedFurtherRecordDoesNotHoldItsKey) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  table.pin(table.put("red", "2"));
  EXPECT_EQ(table.remove("red"), MORVA_OK) << "only the node in the tree is looked up";
  EXPECT_EQ(table.elements(), 0u);
}

}  // namespace
}  // namespace morva_test
