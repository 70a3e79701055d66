// The locked callbacks: one acquisition before the first read, one release
// behind the last write, on every way out.
#include <gtest/gtest.h>

#include "bench.h"

using tree_test::Bench;
using tree_test::TreeModel;

namespace {

constexpr const char *change = "acquire(1,1) release ";
constexpr const char *reading = "acquire(0,1) release ";

RecordNode *nowhere() {
  return reinterpret_cast<RecordNode *>(uintptr_t{0x5A5A5A5A5A58});
}

// A tree that exists only while its lock is held: before the acquisition and
// after the release the holder names a root that cannot be followed and a wrong
// record offset, and the links are not those of the tree.
class LockedTree : public testing::Test {
 protected:
  LockedTree() : bench_(16, tree_test::lockedSet()) {}

  void SetUp() override { hide(); }

  void grow(std::initializer_list<int> keys) {
    for (int key : keys) model_.add(key);
  }

  RecordNode *n(int key) { return bench_.node(key); }

  // Runs `call`, after which the tree must be as `after` says.
  RecordNode *expectBracketed(const char *story, const std::function<RecordNode *()> &call,
                              const TreeModel &after, int killed = -1) {
    bench_.lock.story.clear();
    bench_.lock.onAcquire = [this] {
      bench_.holder.recordOffset = 0;
      bench_.plant(model_);
    };
    bench_.lock.onRelease = [&] {
      if (killed >= 0) bench_.nowKilled(killed);
      EXPECT_EQ(bench_.difference(after), "") << "when the lock was released";
      prevAtRelease_ = prev;
      nextAtRelease_ = next;
      hide();
    };
    RecordNode *const answer = call();
    EXPECT_EQ(bench_.lock.story, story);
    EXPECT_EQ(bench_.holder.root, hiddenRoot_) << "written after the release";
    EXPECT_EQ(bench_.holder.recordOffset, -8888) << "written after the release";
    for (int key = 0; key <= 16; key++) {
      EXPECT_EQ(n(key)->left, 0x1111u) << "written after the release: " << key;
      EXPECT_EQ(n(key)->right, 0x2222u) << "written after the release: " << key;
    }
    EXPECT_EQ(prev, prevAtRelease_) << "written after the release";
    EXPECT_EQ(next, nextAtRelease_) << "written after the release";
    return answer;
  }

  void expectAdd(int key) {
    TreeModel after = model_;
    const bool added = after.add(key);
    ASSERT_TRUE(added);
    EXPECT_EQ(expectBracketed(
                  change, [&] { return bench_.add(key); }, after),
              n(key));
  }
  void expectKill(int key) {
    TreeModel after = model_;
    const bool there = after.kill(key);
    EXPECT_EQ(expectBracketed(
                  change, [&] { return bench_.kill(key); }, after, there ? key : -1),
              there ? n(key) : nullptr);
  }
  void expectFind(int key) {
    EXPECT_EQ(expectBracketed(
                  reading, [&] { return bench_.find(key); }, model_),
              model_.contains(key) ? n(key) : nullptr);
  }
  void expectFuzz(int key) {
    prev = next = nowhere();
    EXPECT_EQ(expectBracketed(
                  reading, [&] { return bench_.fuzz(key, &prev, &next); }, model_),
              model_.contains(key) ? n(key) : nullptr);
    EXPECT_EQ(prev, bench_.nodeOf(model_.before(key)));
    EXPECT_EQ(next, bench_.nodeOf(model_.after(key)));
  }

  void hide() {
    bench_.holder.root = hiddenRoot_;
    bench_.holder.recordOffset = -8888;
    for (int key = 0; key <= 16; key++) {
      n(key)->left = 0x1111;
      n(key)->right = 0x2222;
    }
  }

  Bench bench_;
  TreeModel model_;
  RecordNode *hiddenRoot_ = nowhere();
  RecordNode *prev = nullptr, *next = nullptr;
  RecordNode *prevAtRelease_ = nullptr, *nextAtRelease_ = nullptr;
};

}  // namespace

TEST_F(LockedTree, LookupInAnEmptyTree) {
  expectFind(3);
}

TEST_F(LockedTree, LookupOfAKeyThatIsThere) {
  grow({4, 2, 6});
  for (int key : {2, 4, 6}) expectFind(key);
}

TEST_F(LockedTree, LookupOfAnAbsentKey) {
  grow({4, 2, 6});
  for (int key : {1, 3, 5, 7}) expectFind(key);
}

TEST_F(LockedTree, NeighboursInAnEmptyTree) {
  expectFuzz(3);
}

TEST_F(LockedTree, NeighboursOfAKeyThatIsThereInSubtrees) {
  grow({8, 4, 12, 2, 6, 10, 14});
  for (int key : {4, 8, 12}) expectFuzz(key);
}

TEST_F(LockedTree, NeighboursOfAKeyThatIsThereByThreads) {
  grow({8, 4, 12, 2, 6, 10, 14});
  for (int key : {2, 6, 10, 14}) expectFuzz(key);
}

TEST_F(LockedTree, NeighboursOfAnAbsentKey) {
  grow({8, 4, 12, 2, 6, 10, 14});
  for (int key : {1, 3, 5, 7, 9, 11, 13, 15}) expectFuzz(key);
}

TEST_F(LockedTree, NeighboursThatNobodyWants) {
  const auto wantNothing = [this](int key) {
    return expectBracketed(
        reading, [&] { return bench_.fuzz(key, nullptr, nullptr); }, model_);
  };
  EXPECT_EQ(wantNothing(3), nullptr);
  grow({4, 2, 6});
  EXPECT_EQ(wantNothing(4), n(4));
  EXPECT_EQ(wantNothing(3), nullptr);
}

TEST_F(LockedTree, AddingToAnEmptyTree) {
  expectAdd(3);
}

TEST_F(LockedTree, AddingWithoutARotation) {
  grow({4, 2});
  expectAdd(6);
}

TEST_F(LockedTree, AddingUpToTheRoot) {
  grow({4, 2, 6});
  for (int key : {1, 3, 5, 7}) expectAdd(key);
}

TEST_F(LockedTree, AddingWithASingleRotation) {
  grow({4, 2});
  expectAdd(1);
}

TEST_F(LockedTree, AddingWithADoubleRotation) {
  grow({4, 2});
  expectAdd(3);
}

TEST_F(LockedTree, AddingWithARotationBelowTheRoot) {
  grow({4, 2, 8, 12});
  expectAdd(14);
  expectAdd(10);
}

TEST_F(LockedTree, AddingAKeyThatIsThere) {
  grow({4, 2, 6});
  // The spare node is given its key under the lock, where the tree is planted.
  for (int key : {2, 4, 6}) {
    EXPECT_EQ(expectBracketed(
                  change, [&] { return bench_.addSpare(key); }, model_),
              n(key));
  }
}

TEST_F(LockedTree, KillingInAnEmptyTree) {
  expectKill(3);
}

TEST_F(LockedTree, KillingAnAbsentKey) {
  grow({4, 2, 6});
  for (int key : {1, 3, 5, 7}) expectKill(key);
}

TEST_F(LockedTree, KillingTheOnlyNode) {
  grow({4});
  expectKill(4);
}

TEST_F(LockedTree, KillingALeaf) {
  grow({4, 2, 6});
  expectKill(2);
  expectKill(6);
}

TEST_F(LockedTree, KillingANodeWithOneChild) {
  grow({4, 2, 8, 1, 10});
  expectKill(2);
  expectKill(8);
}

TEST_F(LockedTree, KillingANodeWithTwoChildren) {
  grow({8, 4, 12, 2, 6, 10, 14, 1});
  for (int key : {8, 4, 12}) expectKill(key);
}

TEST_F(LockedTree, KillingWithRotations) {
  grow({8, 4, 12, 2, 10, 14, 9});
  for (int key : {2, 4, 8}) expectKill(key);
}

TEST_F(LockedTree, EveryChangeAndLookupOfEveryTreeOfUpToSevenKeys) {
  for (int count = 0; count <= 7; count++) {
    for (const auto &shape : TreeModel::allShapes(count, 1, 2)) {
      model_ = TreeModel(TreeModel::clone(shape));
      for (int key = 0; key <= 2 * count; key++) {
        if (!model_.contains(key)) expectAdd(key);
        expectKill(key);
        expectFind(key);
        expectFuzz(key);
        ASSERT_FALSE(HasFailure()) << count << " keys, at " << key;
      }
    }
  }
}

TEST_F(LockedTree, IsFoundEmptyOrNotOnlyUnderTheLock) {
  // The root is null until the lock is held.
  hiddenRoot_ = nullptr;
  hide();
  expectAdd(4);
  grow({4, 2, 6});
  for (int key = 1; key <= 7; key++) {
    expectFind(key);
    expectFuzz(key);
    expectKill(key);
    if (!model_.contains(key)) expectAdd(key);
  }
}

TEST(UnlockedTree, TouchesNoLock) {
  Bench bench(4, tree_test::plainSet());
  bench.holder.lock = nullptr;
  EXPECT_EQ(bench.add(2), bench.node(2));
  EXPECT_EQ(bench.add(1), bench.node(1));
  EXPECT_EQ(bench.find(1), bench.node(1));
  EXPECT_EQ(bench.fuzz(3, nullptr, nullptr), nullptr);
  EXPECT_EQ(bench.kill(2), bench.node(2));
}
