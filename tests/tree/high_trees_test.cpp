// Trees as high as a million records and more make them: a path through one is
// longer than any that the shapes of few nodes have.
#include <gtest/gtest.h>

#include "bench.h"

using tree_test::Bench;
using tree_test::TreeModel;

namespace {

// Kills a key of the thinnest tree of this height, and adds it again.
void expectLifeIn(int height, bool leansRight, double where) {
  int count = 0;
  const auto shape = TreeModel::thinnest(height, leansRight, count, 1);
  TreeModel model(TreeModel::clone(shape));
  ASSERT_EQ(model.height(), height);
  Bench bench(count, tree_test::plainSet());
  bench.plant(model);
  const int key = static_cast<int>(where * (count - 1));
  ASSERT_EQ(bench.find(key), bench.node(key));
  ASSERT_TRUE(model.kill(key));
  ASSERT_EQ(bench.kill(key), bench.node(key));
  bench.nowKilled(key);
  ASSERT_EQ(bench.difference(model), "");
  ASSERT_TRUE(model.add(key));
  ASSERT_EQ(bench.add(key), bench.node(key));
  ASSERT_EQ(bench.difference(model), "");
}

}  // namespace

// The thinnest tree of 24 levels has 121,392 nodes; the fullest one 16 millions.
TEST(HighTree, GivesThePredictedWordsWhereverANodeGoesAndComesBack) {
  for (const bool leansRight : {false, true}) {
    for (const double where : {0.0, 0.38, 0.62, 1.0}) {
      ASSERT_NO_FATAL_FAILURE(expectLifeIn(24, leansRight, where)) << leansRight << ' ' << where;
    }
  }
}
