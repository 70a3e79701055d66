#include <gmock/gmock.h>

#include <cmath>

#include "table.h"

namespace morva_test {
namespace {

using testing::ElementsAre;

class Navigation : public OpsTest {};
class NavigationEveryShape : public OpsShapeTest {};
class NavigationRefused : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, NavigationEveryShape,
                         testing::ValuesIn(sampledShapes(flagMultiData)), nameOfShape);
INSTANTIATE_TEST_SUITE_P(Shapes, NavigationRefused,
                         testing::ValuesIn(sampledShapes(0, flagMultiData)), nameOfShape);

TEST_P(NavigationEveryShape, AChainOfOneRecordHasNoNeighbours) {
  Table table(host, ext.get(), GetParam());
  void *one = table.dataOf(table.put("red", "1"));
  EXPECT_EQ(table->HasNext(table.get(), one), 0u);
  EXPECT_EQ(table->HasPrev(table.get(), one), 0u);
  void *data = one;
  EXPECT_EQ(table->FindNext(table.get(), one, &data), MORVA_OK);
  EXPECT_EQ(data, nullptr);
  data = one;
  EXPECT_EQ(table->FindPrev(table.get(), one, &data), MORVA_OK);
  EXPECT_EQ(data, nullptr);
}

TEST_P(NavigationEveryShape, WalkingForwardVisitsTheRecordsInAddOrder) {
  Table table(host, ext.get(), GetParam());
  std::vector<void *> added;
  for (const char *text : {"1", "2", "3"}) added.push_back(table.dataOf(table.put("red", text)));
  table.put("blu", "4");
  void *cursor = table.at("red");
  std::vector<void *> visited;
  while (cursor != nullptr) {
    visited.push_back(cursor);
    EXPECT_EQ(table->HasNext(table.get(), cursor), visited.size() < 3 ? 1u : 0u);
    ASSERT_EQ(table->FindNext(table.get(), cursor, &cursor), MORVA_OK);
  }
  EXPECT_EQ(visited, added);
}

TEST_P(NavigationEveryShape, WalkingBackVisitsTheRecordsInReverse) {
  Table table(host, ext.get(), GetParam());
  std::vector<void *> added;
  for (const char *text : {"1", "2", "3"}) added.push_back(table.dataOf(table.put("red", text)));
  void *cursor = added.back();
  std::vector<void *> visited;
  while (cursor != nullptr) {
    visited.insert(visited.begin(), cursor);
    EXPECT_EQ(table->HasPrev(table.get(), cursor), visited.size() < 3 ? 1u : 0u);
    ASSERT_EQ(table->FindPrev(table.get(), cursor, &cursor), MORVA_OK);
  }
  EXPECT_EQ(visited, added);
}

TEST_P(NavigationEveryShape, FromTheFirstRecordThereIsNoWayBackAlthoughItsLinkIsNotNull) {
  Table table(host, ext.get(), GetParam());
  RecordNode *first = table.put("red", "1");
  table.put("red", "2");
  ASSERT_NE(table.links(first)->back, nullptr);
  void *data = first;
  EXPECT_EQ(table->FindPrev(table.get(), table.dataOf(first), &data), MORVA_OK);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(table->HasPrev(table.get(), table.dataOf(first)), 0u);
}

TEST_P(NavigationEveryShape, TheOutputPlaceMayBeNull) {
  Table table(host, ext.get(), GetParam());
  RecordNode *first = table.put("red", "1");
  RecordNode *second = table.put("red", "2");
  EXPECT_EQ(table->FindNext(table.get(), table.dataOf(first), nullptr), MORVA_OK);
  EXPECT_EQ(table->FindNext(table.get(), table.dataOf(second), nullptr), MORVA_OK);
  EXPECT_EQ(table->FindPrev(table.get(), table.dataOf(second), nullptr), MORVA_OK);
  EXPECT_EQ(table->FindPrev(table.get(), table.dataOf(first), nullptr), MORVA_OK);
}

TEST_P(NavigationEveryShape, ANullCursorAnswersNull) {
  Table table(host, ext.get(), GetParam());
  int mark = 0;
  void *data = &mark;
  EXPECT_EQ(table->FindNext(table.get(), nullptr, &data), MORVA_OK);
  EXPECT_EQ(data, nullptr);
  data = &mark;
  EXPECT_EQ(table->FindPrev(table.get(), nullptr, &data), MORVA_OK);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(table->FindNext(table.get(), nullptr, nullptr), MORVA_OK);
  EXPECT_EQ(table->FindPrev(table.get(), nullptr, nullptr), MORVA_OK);
  EXPECT_EQ(table->HasNext(table.get(), nullptr), 0u);
  EXPECT_EQ(table->HasPrev(table.get(), nullptr), 0u);
}

TEST_P(NavigationEveryShape, TheFindsTakeTheLockForANullCursorTooTheTestsDoNot) {
  Table table(host, ext.get(), GetParam());
  const LockUse held = GetParam().has(flagNoLock) ? LockUse::none : LockUse::whole;
  EXPECT_EQ(lockUse(host, [&] { table->FindNext(table.get(), nullptr, nullptr); }), held);
  EXPECT_EQ(lockUse(host, [&] { table->FindPrev(table.get(), nullptr, nullptr); }), held);
  EXPECT_EQ(lockUse(host, [&] { table->HasNext(table.get(), nullptr); }), LockUse::none);
  EXPECT_EQ(lockUse(host, [&] { table->HasPrev(table.get(), nullptr); }), LockUse::none);
}

TEST_P(NavigationEveryShape, EveryCallHoldsTheLockAndNeedsNothingElseOfTheHost) {
  Table table(host, ext.get(), GetParam());
  void *first = table.dataOf(table.put("red", "1"));
  void *second = table.dataOf(table.put("red", "2"));
  const bool none = GetParam().has(flagNoLock);
  const LockUse held = none ? LockUse::none : LockUse::whole;
  const size_t events = none ? 0 : 2;
  void *data = nullptr;
  EXPECT_EQ(lockUse(host, [&] { table->FindNext(table.get(), first, &data); }), held);
  EXPECT_EQ(host.events().size(), events);
  EXPECT_EQ(lockUse(host, [&] { table->FindPrev(table.get(), second, &data); }), held);
  EXPECT_EQ(host.events().size(), events);
  EXPECT_EQ(lockUse(host, [&] { table->HasNext(table.get(), first); }), held);
  EXPECT_EQ(host.events().size(), events);
  EXPECT_EQ(lockUse(host, [&] { table->HasPrev(table.get(), second); }), held);
  EXPECT_EQ(host.events().size(), events);
}

TEST_P(NavigationEveryShape, ChainsOfTwoKeysDoNotMix) {
  Table table(host, ext.get(), GetParam());
  for (const char *text : {"1", "2", "3"}) {
    table.put("red", std::string("r") + text);
    table.put("blu", std::string("b") + text);
  }
  EXPECT_EQ(table.all("red"), "r1 r2 r3");
  EXPECT_EQ(table.all("blu"), "b1 b2 b3");
}

TEST_P(NavigationRefused, WithoutSeveralRecordsPerKeyTheTestsAnswerZeroAndTheFindsAreRefused) {
  Table table(host, ext.get(), GetParam());
  void *data = table.dataOf(table.put("red", "1"));
  int mark = 0;
  void *out = &mark;
  EXPECT_EQ(lockUse(host,
                    [&] {
                      EXPECT_EQ(table->HasNext(table.get(), data), 0u);
                      EXPECT_EQ(table->HasPrev(table.get(), data), 0u);
                      EXPECT_EQ(table->FindNext(table.get(), data, &out), MORVA_INVALID);
                      EXPECT_EQ(table->FindPrev(table.get(), data, &out), MORVA_INVALID);
                      EXPECT_EQ(table->FindNext(table.get(), nullptr, &out), MORVA_INVALID);
                      EXPECT_EQ(table->FindPrev(table.get(), nullptr, &out), MORVA_INVALID);
                    }),
            LockUse::none);
  EXPECT_EQ(out, &mark);
}

TEST_F(Navigation, EachRecordReachedGetsTheIncrement) {
  for (const Shape &one : shapes(flagSum | flagMultiData)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    RecordNode *nodes[3];
    for (RecordNode *&node : nodes) node = table.put("red", "x");
    const auto sums = [&] {
      return std::vector<double>{table.sumOf(nodes[0]), table.sumOf(nodes[1]),
                                 table.sumOf(nodes[2])};
    };
    table->SetSumInc(table.get(), 2.5);
    void *cursor = table.dataOf(nodes[0]);
    EXPECT_EQ(table->FindNext(table.get(), cursor, &cursor), MORVA_OK);
    EXPECT_THAT(sums(), ElementsAre(0.0, 2.5, 0.0));
    EXPECT_EQ(table->FindNext(table.get(), cursor, &cursor), MORVA_OK);
    EXPECT_THAT(sums(), ElementsAre(0.0, 2.5, 2.5));
    void *end = nullptr;
    EXPECT_EQ(table->FindNext(table.get(), cursor, &end), MORVA_OK);
    EXPECT_THAT(sums(), ElementsAre(0.0, 2.5, 2.5));
    EXPECT_EQ(table->FindPrev(table.get(), cursor, nullptr), MORVA_OK);
    EXPECT_THAT(sums(), ElementsAre(0.0, 5.0, 2.5));
    EXPECT_EQ(table->FindPrev(table.get(), table.dataOf(nodes[1]), &cursor), MORVA_OK);
    EXPECT_THAT(sums(), ElementsAre(2.5, 5.0, 2.5));
    EXPECT_EQ(table->FindPrev(table.get(), cursor, nullptr), MORVA_OK);
    EXPECT_THAT(sums(), ElementsAre(2.5, 5.0, 2.5));
    EXPECT_EQ(table->HasNext(table.get(), cursor), 1u);
    EXPECT_EQ(table->HasPrev(table.get(), table.dataOf(nodes[1])), 1u);
    EXPECT_THAT(sums(), ElementsAre(2.5, 5.0, 2.5));
  }
}

TEST_F(Navigation, AnIncrementOfZeroMovesNoSumAndOneThatIsNotANumberDoes) {
  Table table(host, ext.get(), shape(Keys::fixed, flagSum | flagMultiData));
  RecordNode *first = table.put("red", "1");
  RecordNode *second = table.put("red", "2");
  table.setSumOf(first, -0.0);
  table.setSumOf(second, -0.0);
  table->FindNext(table.get(), table.dataOf(first), nullptr);
  table->FindPrev(table.get(), table.dataOf(second), nullptr);
  EXPECT_TRUE(std::signbit(table.sumOf(first)));
  EXPECT_TRUE(std::signbit(table.sumOf(second)));
  table->sumIncrement = std::nan("");
  table->FindNext(table.get(), table.dataOf(first), nullptr);
  EXPECT_TRUE(std::isnan(table.sumOf(second)));
  table->FindPrev(table.get(), table.dataOf(second), nullptr);
  EXPECT_TRUE(std::isnan(table.sumOf(first)));
}

}  // namespace
}  // namespace morva_test
