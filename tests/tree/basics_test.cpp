// The smallest trees, word by word.
#include <gtest/gtest.h>

#include <cstring>

#include "bench.h"

using tree_test::Bench;
using tree_test::TreeModel;

namespace {

uintptr_t child(const RecordNode *node) {
  return reinterpret_cast<uintptr_t>(node);
}
uintptr_t heavyChild(const RecordNode *node) {
  return child(node) + 1;
}
uintptr_t thread(const RecordNode *node) {
  return child(node) + 2;
}
constexpr uintptr_t nullThread = 2;

class SmallTree : public testing::Test {
 protected:
  SmallTree() : bench(8, tree_test::plainSet()) {}

  void addAll(std::initializer_list<int> keys) {
    for (int key : keys) ASSERT_EQ(bench.add(key), bench.node(key));
  }
  void expectWords(int key, uintptr_t left, uintptr_t right) {
    EXPECT_EQ(bench.node(key)->left, left) << "left of " << key;
    EXPECT_EQ(bench.node(key)->right, right) << "right of " << key;
  }
  RecordNode *n(int key) { return bench.node(key); }

  Bench bench;
};

}  // namespace

TEST(TreeTable, HoldsEightDifferentCallbacks) {
  const void *slots[8];
  static_assert(sizeof aa_tree == sizeof slots);
  std::memcpy(slots, &aa_tree, sizeof slots);
  for (size_t i = 0; i < 8; i++) {
    EXPECT_NE(slots[i], nullptr) << i;
    for (size_t j = 0; j < i; j++) EXPECT_NE(slots[i], slots[j]) << i << " " << j;
  }
}

TEST_F(SmallTree, TheFirstNodeBecomesTheRootWithTwoNullThreads) {
  addAll({4});
  EXPECT_EQ(bench.holder.root, n(4));
  expectWords(4, nullThread, nullThread);
}

TEST_F(SmallTree, ASmallerSecondKeyHangsLeftAndMakesTheRootLeftHeavy) {
  addAll({4, 2});
  EXPECT_EQ(bench.holder.root, n(4));
  expectWords(4, heavyChild(n(2)), nullThread);
  expectWords(2, nullThread, thread(n(4)));
}

TEST_F(SmallTree, AGreaterSecondKeyHangsRightAndMakesTheRootRightHeavy) {
  addAll({4, 6});
  EXPECT_EQ(bench.holder.root, n(4));
  expectWords(4, nullThread, heavyChild(n(6)));
  expectWords(6, thread(n(4)), nullThread);
}

TEST_F(SmallTree, AThirdKeyOnTheOtherSideBalancesTheRoot) {
  addAll({4, 2, 6});
  expectWords(4, child(n(2)), child(n(6)));
  expectWords(2, nullThread, thread(n(4)));
  expectWords(6, thread(n(4)), nullThread);
}

TEST_F(SmallTree, RisingKeysRotateOnceAndLeaveTheMiddleOneAtTheRoot) {
  addAll({1, 2, 3});
  EXPECT_EQ(bench.holder.root, n(2));
  expectWords(2, child(n(1)), child(n(3)));
  expectWords(1, nullThread, thread(n(2)));
  expectWords(3, thread(n(2)), nullThread);
}

TEST_F(SmallTree, FallingKeysRotateOnceAndLeaveTheMiddleOneAtTheRoot) {
  addAll({3, 2, 1});
  EXPECT_EQ(bench.holder.root, n(2));
  expectWords(2, child(n(1)), child(n(3)));
  expectWords(1, nullThread, thread(n(2)));
  expectWords(3, thread(n(2)), nullThread);
}

TEST_F(SmallTree, AnInnerThirdKeyRotatesTwice) {
  addAll({3, 1, 2});
  EXPECT_EQ(bench.holder.root, n(2));
  expectWords(2, child(n(1)), child(n(3)));
  expectWords(1, nullThread, thread(n(2)));
  expectWords(3, thread(n(2)), nullThread);
}

TEST_F(SmallTree, AddingAKeyThatIsThereAnswersItsNodeAndTouchesNothing) {
  TreeModel model;
  for (int key : {4, 2, 6, 1, 3, 5, 7}) {
    model.add(key);
    addAll({key});
  }
  for (int key = 1; key <= 7; key++) {
    EXPECT_EQ(bench.addSpare(key), n(key));
    // Covers the tree and the links of the node that was refused.
    EXPECT_EQ(bench.difference(model), "") << key;
  }
}

TEST_F(SmallTree, KillingTheOnlyNodeEmptiesTheTree) {
  addAll({4});
  EXPECT_EQ(bench.kill(4), n(4));
  EXPECT_EQ(bench.holder.root, nullptr);
  expectWords(4, 0, 0);
}

TEST_F(SmallTree, KillingInAnEmptyTreeAnswersNull) {
  EXPECT_EQ(bench.kill(4), nullptr);
  EXPECT_EQ(bench.holder.root, nullptr);
}

TEST_F(SmallTree, KillingAnAbsentKeyLeavesTheTreeAsItWas) {
  TreeModel model;
  for (int key : {3, 1, 5}) {
    model.add(key);
    addAll({key});
  }
  for (int key : {0, 2, 4, 6}) {
    EXPECT_EQ(bench.kill(key), nullptr);
    EXPECT_EQ(bench.difference(model), "") << key;
  }
}

TEST_F(SmallTree, EveryKilledNodeHasZeroLinks) {
  addAll({4, 2, 6, 1, 3, 5, 7});
  for (int key : {4, 1, 7, 2, 6, 3, 5}) {
    EXPECT_EQ(bench.kill(key), n(key));
    expectWords(key, 0, 0);
  }
  EXPECT_EQ(bench.holder.root, nullptr);
}

TEST_F(SmallTree, ABalancedNodeWithTwoChildrenIsReplacedByItsPredecessor) {
  addAll({4, 2, 6});
  EXPECT_EQ(bench.kill(4), n(4));
  EXPECT_EQ(bench.holder.root, n(2));
  expectWords(2, nullThread, heavyChild(n(6)));
  expectWords(6, thread(n(2)), nullThread);
}

TEST_F(SmallTree, ALeftHeavyNodeWithTwoChildrenIsReplacedByItsPredecessor) {
  addAll({4, 2, 6, 1});
  EXPECT_EQ(bench.kill(4), n(4));
  EXPECT_EQ(bench.holder.root, n(2));
  expectWords(2, child(n(1)), child(n(6)));
  expectWords(1, nullThread, thread(n(2)));
  expectWords(6, thread(n(2)), nullThread);
}

TEST_F(SmallTree, ARightHeavyNodeWithTwoChildrenIsReplacedByItsSuccessor) {
  addAll({4, 2, 6, 7});
  EXPECT_EQ(bench.kill(4), n(4));
  EXPECT_EQ(bench.holder.root, n(6));
  expectWords(6, child(n(2)), child(n(7)));
  expectWords(2, nullThread, thread(n(6)));
  expectWords(7, thread(n(6)), nullThread);
}

TEST_F(SmallTree, APredecessorDeepDownTakesThePlaceAndGivesItsLeftSubtreeToItsParent) {
  // 5 over 2 (over 1 and 3 (over -, 4)) and 6 (over -, 7): left-heavy at the top.
  addAll({5, 2, 6, 1, 3, 7, 4});
  EXPECT_EQ(bench.kill(5), n(5));
  EXPECT_EQ(bench.holder.root, n(4));
  expectWords(4, child(n(2)), child(n(6)));
  expectWords(2, child(n(1)), child(n(3)));
  expectWords(3, thread(n(2)), thread(n(4)));
  expectWords(6, thread(n(4)), heavyChild(n(7)));
}

TEST_F(SmallTree, ANodeWithOnlyALeftChildIsReplacedByIt) {
  addAll({4, 2, 6, 1});
  EXPECT_EQ(bench.kill(2), n(2));
  expectWords(4, child(n(1)), child(n(6)));
  expectWords(1, nullThread, thread(n(4)));
}

TEST_F(SmallTree, ANodeWithOnlyARightChildIsReplacedByIt) {
  addAll({4, 2, 6, 3});
  EXPECT_EQ(bench.kill(2), n(2));
  expectWords(4, child(n(3)), child(n(6)));
  expectWords(3, nullThread, thread(n(4)));
}

TEST_F(SmallTree, TheRootWithOneChildHandsTheTreeToIt) {
  addAll({4, 2});
  EXPECT_EQ(bench.kill(4), n(4));
  EXPECT_EQ(bench.holder.root, n(2));
  expectWords(2, nullThread, nullThread);
}

TEST_F(SmallTree, AKillBelowABalancedSiblingRotatesOnceAndStaysHigh) {
  // Right of the root stands a balanced node with two children.
  addAll({2, 1, 4, 3, 5});
  EXPECT_EQ(bench.kill(1), n(1));
  EXPECT_EQ(bench.holder.root, n(4));
  expectWords(4, heavyChild(n(2)), child(n(5)));
  expectWords(2, nullThread, heavyChild(n(3)));
  expectWords(3, thread(n(2)), thread(n(4)));
}

TEST_F(SmallTree, AKillBelowAnOuterHeavySiblingRotatesOnce) {
  addAll({2, 1, 4, 5});
  EXPECT_EQ(bench.kill(1), n(1));
  EXPECT_EQ(bench.holder.root, n(4));
  expectWords(4, child(n(2)), child(n(5)));
  expectWords(2, nullThread, thread(n(4)));
}

TEST_F(SmallTree, AKillBelowAnInnerHeavySiblingRotatesTwice) {
  addAll({2, 1, 4, 3});
  EXPECT_EQ(bench.kill(1), n(1));
  EXPECT_EQ(bench.holder.root, n(3));
  expectWords(3, child(n(2)), child(n(4)));
  expectWords(2, nullThread, thread(n(3)));
  expectWords(4, thread(n(3)), nullThread);
}

TEST_F(SmallTree, LookingUpAnswersTheNodeOrNull) {
  EXPECT_EQ(bench.find(4), nullptr);
  addAll({4, 2, 6});
  for (int key = 0; key < 8; key++) {
    EXPECT_EQ(bench.find(key), key == 2 || key == 4 || key == 6 ? n(key) : nullptr) << key;
  }
}

TEST_F(SmallTree, AKilledNodeCanBeAddedAgain) {
  addAll({4, 2, 6});
  EXPECT_EQ(bench.kill(2), n(2));
  EXPECT_EQ(bench.add(2), n(2));
  EXPECT_EQ(bench.find(2), n(2));
  expectWords(2, nullThread, thread(n(4)));
}
