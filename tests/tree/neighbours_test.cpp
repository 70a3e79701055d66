#include <gtest/gtest.h>

#include <ostream>

#include "bench.h"

using tree_test::Bench;
using tree_test::TreeModel;

namespace {

struct Setting {
  const char *name;
  tree_test::CallbackSet (*callbacks)();
};

// Named in the list of tests.
void PrintTo(const Setting &setting, std::ostream *out) {
  *out << setting.name;
}

class Neighbours : public testing::TestWithParam<Setting> {};

INSTANTIATE_TEST_SUITE_P(Callbacks, Neighbours,
                         testing::Values(Setting{"Plain", tree_test::plainSet},
                                         Setting{"Locked", tree_test::lockedSet}),
                         [](const auto &info) { return std::string(info.param.name); });

}  // namespace

TEST_P(Neighbours, InAnEmptyTreeThereAreNone) {
  Bench bench(2, GetParam().callbacks());
  RecordNode *prev = bench.spare(), *next = bench.spare();
  EXPECT_EQ(bench.fuzz(1, &prev, &next), nullptr);
  EXPECT_EQ(prev, nullptr);
  EXPECT_EQ(next, nullptr);
}

TEST_P(Neighbours, BelowEveryKeyOnlyTheSmallestFollows) {
  Bench bench(9, GetParam().callbacks());
  for (int key : {3, 5, 7}) bench.add(key);
  RecordNode *prev = bench.spare(), *next = bench.spare();
  EXPECT_EQ(bench.fuzz(1, &prev, &next), nullptr);
  EXPECT_EQ(prev, nullptr);
  EXPECT_EQ(next, bench.node(3));
}

TEST_P(Neighbours, AboveEveryKeyOnlyTheGreatestPrecedes) {
  Bench bench(9, GetParam().callbacks());
  for (int key : {3, 5, 7}) bench.add(key);
  RecordNode *prev = bench.spare(), *next = bench.spare();
  EXPECT_EQ(bench.fuzz(8, &prev, &next), nullptr);
  EXPECT_EQ(prev, bench.node(7));
  EXPECT_EQ(next, nullptr);
}

TEST_P(Neighbours, OfEveryKeyPresentOrAbsentInEveryTreeOfUpToTwelveKeysAreRight) {
  for (int count = 0; count <= 12; count++) {
    Bench bench(2 * count + 1, GetParam().callbacks());
    for (const auto &shape : TreeModel::allShapes(count, 1, 2)) {
      const TreeModel model(TreeModel::clone(shape));
      bench.plant(model);
      for (int key = 0; key <= 2 * count; key++) {
        RecordNode *prev = bench.spare(), *next = bench.spare();
        ASSERT_EQ(bench.fuzz(key, &prev, &next), key % 2 == 1 ? bench.node(key) : nullptr);
        ASSERT_EQ(prev, bench.nodeOf(model.before(key))) << count << " keys, at " << key;
        ASSERT_EQ(next, bench.nodeOf(model.after(key))) << count << " keys, at " << key;
      }
      ASSERT_EQ(bench.difference(model), "");
    }
  }
}

TEST_P(Neighbours, EachPlaceMayBeLeftOut) {
  Bench bench(9, GetParam().callbacks());
  for (int round = 0; round < 2; round++) {
    const bool empty = round == 0;
    for (int key = 0; key < 9; key++) {
      RecordNode *const wanted = !empty && key % 2 == 1 ? bench.node(key) : nullptr;
      const auto node = [&](int k) { return empty || k < 1 || k > 7 ? nullptr : bench.node(k); };
      RecordNode *const before = node(key % 2 == 1 ? key - 2 : key - 1);
      RecordNode *const after = node(key % 2 == 1 ? key + 2 : key + 1);
      RecordNode *prev = bench.spare(), *next = bench.spare();
      ASSERT_EQ(bench.fuzz(key, &prev, nullptr), wanted);
      ASSERT_EQ(prev, before) << key;
      ASSERT_EQ(bench.fuzz(key, nullptr, &next), wanted);
      ASSERT_EQ(next, after) << key;
      ASSERT_EQ(bench.fuzz(key, nullptr, nullptr), wanted);
    }
    for (int key : {3, 1, 5, 7}) bench.add(key);
  }
}
