// Every link word after every change, for all small trees and for long random
// lives, under the plain and the locked callbacks and with record offsets.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <ostream>
#include <random>

#include "bench.h"
#include "seed.h"

using tree_test::Bench;
using tree_test::CallbackSet;
using tree_test::TreeModel;

namespace {

struct Setting {
  const char *name;
  CallbackSet (*callbacks)();
  int32_t offset;
};

// Named in the list of tests.
void PrintTo(const Setting &setting, std::ostream *out) {
  *out << setting.name;
}

class TreeShapes : public testing::TestWithParam<Setting> {
 protected:
  CallbackSet callbacks() const { return GetParam().callbacks(); }
  int32_t offset() const { return GetParam().offset; }

  // Removes `key` from bench and model and expects the same.
  void killBoth(Bench &bench, TreeModel &model, int key) {
    const bool there = model.kill(key);
    RecordNode *killed = bench.kill(key);
    ASSERT_EQ(killed, there ? bench.node(key) : nullptr);
    if (there) bench.nowKilled(key);
  }

  void expectRandomLife(int keys, int steps, int stepsPerCheck);
};

INSTANTIATE_TEST_SUITE_P(
    Callbacks, TreeShapes,
    testing::Values(Setting{"Plain", tree_test::plainSet, 0},
                    Setting{"Locked", tree_test::lockedSet, 0},
                    Setting{"PlainWithOffset8", tree_test::plainSet, 8},
                    Setting{"PlainWithOffset64", tree_test::plainSet, 64},
                    Setting{"PlainWithOffsetMinus32", tree_test::plainSet, -32},
                    Setting{"PlainWithOffsetMinus512", tree_test::plainSet, -512},
                    Setting{"LockedWithOffset24", tree_test::lockedSet, 24},
                    Setting{"LockedWithOffsetMinus48", tree_test::lockedSet, -48}),
    [](const auto &info) { return std::string(info.param.name); });

}  // namespace

TEST_P(TreeShapes, EveryOrderOfAddingUpToSevenKeysGivesThePredictedWords) {
  for (int count = 1; count <= 7; count++) {
    std::vector<int> order(static_cast<size_t>(count));
    std::iota(order.begin(), order.end(), 0);
    Bench bench(count, callbacks(), offset());
    do {
      TreeModel model;
      bench.plant(model);
      for (int key : order) {
        model.add(key);
        ASSERT_EQ(bench.add(key), bench.node(key));
        ASSERT_EQ(bench.difference(model), "") << testing::PrintToString(order) << " at " << key;
      }
    } while (std::next_permutation(order.begin(), order.end()));
  }
}

TEST_P(TreeShapes, EveryOrderOfKillingFromEveryTreeOfUpToSevenKeysGivesThePredictedWords) {
  for (int count = 1; count <= 7; count++) {
    Bench bench(count, callbacks(), offset());
    for (const auto &shape : TreeModel::allShapes(count, 0, 1)) {
      std::vector<int> order(static_cast<size_t>(count));
      std::iota(order.begin(), order.end(), 0);
      do {
        TreeModel model(TreeModel::clone(shape));
        bench.plant(model);
        for (int key : order) {
          ASSERT_NO_FATAL_FAILURE(killBoth(bench, model, key));
          ASSERT_EQ(bench.difference(model), "") << testing::PrintToString(order) << " at " << key;
        }
      } while (std::next_permutation(order.begin(), order.end()));
    }
  }
}

TEST_P(TreeShapes, EveryChangeOfEveryTreeOfUpToThirteenKeysGivesThePredictedWords) {
  for (int count = 0; count <= 13; count++) {
    // Keys 1, 3, 5, ... are there, 0, 2, 4, ... are not.
    Bench bench(2 * count + 1, callbacks(), offset());
    for (const auto &shape : TreeModel::allShapes(count, 1, 2)) {
      for (int key = 0; key <= 2 * count; key++) {
        TreeModel model(TreeModel::clone(shape));
        bench.plant(model);
        if (key % 2 == 1) {
          ASSERT_NO_FATAL_FAILURE(killBoth(bench, model, key));
        } else {
          model.add(key);
          ASSERT_EQ(bench.add(key), bench.node(key));
        }
        ASSERT_EQ(bench.difference(model), "") << count << " keys, at " << key;
      }
    }
  }
}

TEST_P(TreeShapes, EveryKillFromTheThinnestTreesGivesThePredictedWords) {
  for (int height = 1; height <= 10; height++) {
    for (bool leansRight : {false, true}) {
      int count = 0;
      const auto shape = TreeModel::thinnest(height, leansRight, count, 1);
      Bench bench(count, callbacks(), offset());
      for (int key = 0; key < count; key++) {
        TreeModel model(TreeModel::clone(shape));
        bench.plant(model);
        ASSERT_NO_FATAL_FAILURE(killBoth(bench, model, key));
        ASSERT_EQ(bench.difference(model), "") << "height " << height << ", at " << key;
      }
    }
  }
}

void TreeShapes::expectRandomLife(int keys, int steps, int stepsPerCheck) {
  const uint64_t seed = tree_test::testSeed();
  RecordProperty("seed", std::to_string(seed));
  SCOPED_TRACE("MORVA_TEST_SEED=" + std::to_string(seed));
  std::mt19937_64 random(seed);
  Bench bench(keys, callbacks(), offset());
  TreeModel model;
  // The tree swells and shrinks: in turn more adding and more killing.
  for (int step = 0; step < steps; step++) {
    const int key = static_cast<int>(random() % static_cast<uint64_t>(keys));
    const bool swelling = step / (keys * 2) % 2 == 0;
    const uint64_t dice = random() % 8;
    if (dice < (swelling ? 5u : 2u)) {
      if (model.add(key)) {
        ASSERT_EQ(bench.add(key), bench.node(key)) << "step " << step;
      } else {
        ASSERT_EQ(bench.addSpare(key), bench.node(key)) << "step " << step;
      }
    } else if (dice < 7) {
      ASSERT_NO_FATAL_FAILURE(killBoth(bench, model, key)) << "step " << step;
    } else {
      RecordNode *const wanted = model.contains(key) ? bench.node(key) : nullptr;
      RecordNode *prev = bench.spare(), *next = bench.spare();
      ASSERT_EQ(bench.find(key), wanted) << "step " << step;
      ASSERT_EQ(bench.fuzz(key, &prev, &next), wanted) << "step " << step;
      ASSERT_EQ(prev, bench.nodeOf(model.before(key))) << "step " << step;
      ASSERT_EQ(next, bench.nodeOf(model.after(key))) << "step " << step;
    }
    if (step % stepsPerCheck == 0 || step + 1 == steps) {
      ASSERT_EQ(bench.difference(model), "") << "step " << step << ", key " << key;
      const auto inspection =
          tree_test::inspect(bench.holder.root, [&](auto *node) { return bench.keyOf(node); });
      ASSERT_EQ(inspection.complaint, "") << "step " << step << ", key " << key;
      ASSERT_EQ(inspection.keys, model.keys());
    }
  }
}

TEST_P(TreeShapes, ARandomLifeOfFewKeysGivesThePredictedWordsAfterEveryStep) {
  expectRandomLife(24, 20000, 1);
}

TEST_P(TreeShapes, ARandomLifeOfManyKeysGivesThePredictedWords) {
  expectRandomLife(3000, 60000, 500);
}

TEST_P(TreeShapes, RisingAndFallingKeysGiveThePredictedWords) {
  constexpr int count = 600;
  Bench bench(count, callbacks(), offset());
  for (bool rising : {true, false}) {
    TreeModel model;
    bench.plant(model);
    for (int i = 0; i < count; i++) {
      const int key = rising ? i : count - 1 - i;
      model.add(key);
      ASSERT_EQ(bench.add(key), bench.node(key));
    }
    ASSERT_EQ(bench.difference(model), "");
    for (int i = 0; i < count; i++) {
      ASSERT_NO_FATAL_FAILURE(killBoth(bench, model, i));
      if (i % 50 == 0) {
        ASSERT_EQ(bench.difference(model), "") << i;
      }
    }
    ASSERT_EQ(bench.difference(model), "");
    ASSERT_EQ(bench.holder.root, nullptr);
  }
}
