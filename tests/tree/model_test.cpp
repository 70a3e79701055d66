// The model and the inspector, which the other tests rely on, put to the test.
#include <gtest/gtest.h>

#include "bench.h"

using tree_test::Bench;
using tree_test::TreeModel;

TEST(TreeModel, KnowsAllBalancedShapes) {
  const size_t wanted[] = {1, 1, 2, 1, 4, 6, 4, 17, 32, 44, 60, 70, 184};
  for (int count = 0; count <= 12; count++) {
    EXPECT_EQ(TreeModel::allShapes(count, 0, 1).size(), wanted[count]) << count;
  }
}

TEST(TreeModel, ThinnestTreesGrowLikeTheFibonacciNumbers) {
  const int wanted[] = {0, 1, 2, 4, 7, 12, 20, 33};
  for (int height = 0; height <= 7; height++) {
    int count = 0;
    EXPECT_EQ(TreeModel(TreeModel::thinnest(height, true, count, 1)).height(), height);
    EXPECT_EQ(count, wanted[height]);
  }
}

namespace {

class TreeInspector : public testing::Test {
 protected:
  TreeInspector() : bench(7, tree_test::plainSet()) {
    for (int key : {3, 1, 5, 0, 2, 4}) model.add(key);
    bench.plant(model);
  }
  std::string complaint() {
    return tree_test::inspect(bench.holder.root, [this](auto *node) { return bench.keyOf(node); })
        .complaint;
  }
  Bench bench;
  TreeModel model;
};

}  // namespace

TEST_F(TreeInspector, FindsNothingInASoundTree) {
  EXPECT_EQ(complaint(), "");
  EXPECT_EQ(bench.difference(model), "");
}

TEST_F(TreeInspector, FindsAWrongHeavyBit) {
  bench.node(3)->left |= LINK_HEAVY;
  EXPECT_NE(complaint(), "");
  EXPECT_NE(bench.difference(model), "");
}

TEST_F(TreeInspector, FindsAWrongThread) {
  bench.node(2)->right = reinterpret_cast<uintptr_t>(bench.node(4)) | LINK_THREAD;
  EXPECT_NE(complaint(), "");
  EXPECT_NE(bench.difference(model), "");
}

TEST_F(TreeInspector, FindsAnEndWithoutANullThread) {
  bench.node(0)->left = reinterpret_cast<uintptr_t>(bench.node(6)) | LINK_THREAD;
  EXPECT_NE(complaint(), "");
}

TEST_F(TreeInspector, FindsALostSubtree) {
  bench.node(3)->left = reinterpret_cast<uintptr_t>(bench.node(0));
  EXPECT_NE(complaint(), "");
}

TEST_F(TreeInspector, FindsKeysOutOfOrder) {
  std::swap(bench.node(1)->left, bench.node(1)->right);
  EXPECT_NE(complaint(), "");
}
