// Chains so long that nobody walks them from end to end.
#include <memory>

#include "table.h"

namespace morva_test {
namespace {

class LongChain : public OpsShapeTest {
 protected:
  void SetUp() override {
    Shape shape = GetParam();
    shape.hashExp = 6;  // the bucket matters too
    table = std::make_unique<Table>(host, ext.get(), shape);
    for (int i = 0; i < 300; i++) table->put("red", std::to_string(i));
    cursors = table->cursors("red");
    ASSERT_EQ(cursors.size(), 300u);
  }
  void TearDown() override {
    table.reset();
    OpsTest::TearDown();
  }
  static DupLinks *linksAt(void *data) { return static_cast<DupLinks *>(data) - 1; }

  std::unique_ptr<Table> table;
  std::vector<void *> cursors;
};

INSTANTIATE_TEST_SUITE_P(Shapes, LongChain, testing::ValuesIn(sampledShapes(flagMultiData)),
                         nameOfShape);

// The tree leads to the first record: what lies in the middle is not looked at.
TEST_P(LongChain, RemovingTheLastRecordDoesNotWalkBackToTheFirst) {
  DupLinks *middle = linksAt(cursors[150]);
  DupLinks *const before = middle->back;
  // Whoever comes by takes this for the first record.
  DupLinks trap{nullptr, nullptr};
  middle->back = &trap;
  void *cursor = cursors.back();
  ASSERT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(middle->back, &trap);
  middle->back = before;
  EXPECT_EQ(linksAt(cursors.front())->back, linksAt(cursors[298]));
  EXPECT_EQ(linksAt(cursors[298])->next, nullptr);
  cursors.pop_back();
  EXPECT_EQ(table->cursors("red"), cursors);
}

TEST_P(LongChain, RemovingARecordBeforeTheLastLooksAtItsNeighboursAlone) {
  DupLinks *middle = linksAt(cursors[150]);
  DupLinks *const before = middle->back;
  DupLinks trap{nullptr, nullptr};
  middle->back = &trap;
  void *cursor = cursors[298];
  ASSERT_EQ(table->removeDup(&cursor, "red"), MORVA_OK);
  EXPECT_EQ(middle->back, &trap);
  middle->back = before;
  cursors.erase(cursors.end() - 2);
  EXPECT_EQ(table->cursors("red"), cursors);
}

}  // namespace
}  // namespace morva_test
