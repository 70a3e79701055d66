// Eight threads on one locked table, with every operation that a table has.
#include <gtest/gtest.h>

#include <atomic>

#include "held_work.h"

namespace morva_test {
namespace {

class AllOperations : public ::testing::TestWithParam<size_t> {
 protected:
  const TableShape &shape() const { return lockedShapes()[GetParam()]; }
};

INSTANTIATE_TEST_SUITE_P(EveryKeyMode, AllOperations,
                         ::testing::Range(size_t{0}, lockedShapes().size()),
                         [](const auto &info) { return shapeName(lockedShapes()[info.param]); });

// What stands still, or goes one way only, while a table is changed but never cleared.
void watch(MORVAInst *inst, const TableShape &shape, const std::atomic<size_t> &working) {
  const uint32_t slotSize = shape.keyMode == KeyMode::variable ? 0 : inst->RecSize(inst);
  uint64_t memory = 0;
  while (working != 0 && !testing::Test::HasFailure()) {
    EXPECT_EQ(inst->HashSize(inst), 4u);
    EXPECT_LT(inst->NumElements(inst), 1u << 20);
    EXPECT_LT(inst->BucketSize(inst, 3), 1u << 20);
    EXPECT_EQ(inst->BucketSize(inst, 4), 0u);
    const uint64_t taken = inst->TotalMem(inst);
    EXPECT_GE(taken, memory);
    memory = taken;
    if (slotSize != 0) {
      EXPECT_EQ(inst->RecSize(inst), slotSize);
    }
    inst->SetSumInc(inst, 1.0);
  }
}

// Comparing must not disturb either side, whatever it answers.
void compare(MORVAInst *one, MORVAInst *two, const TableShape &shape,
             const std::atomic<size_t> &working) {
  const MORVAStatus expected = shape.keyMode == KeyMode::variable ? MORVA_INVALID : MORVA_OK;
  while (working != 0 && !testing::Test::HasFailure()) {
    uint32_t equal = 0;
    EXPECT_EQ(one->Equals(one, two, &equal), expected);
    EXPECT_LE(equal, 1u);
    EXPECT_EQ(one->Equals(one, one, &equal), expected);
    EXPECT_EQ(equal, expected == MORVA_OK ? 1u : 0u);
  }
}

TEST_P(AllOperations, AnswerEachThreadAsIfItWereAlone) {
  TwoTables tables(shape());
  constexpr size_t kWorkers = kMany - 3;
  const std::vector<std::string> keys = someKeys(shape(), 30 * kWorkers);
  std::vector<ThreadWork> works;
  for (size_t i = 0; i < kWorkers; ++i) {
    works.emplace_back(tables.one(), shape(), shareOf(keys, i, kWorkers), 300 + i);
  }
  ThreadWork::Contents inTwo;
  std::atomic<size_t> working{kWorkers + 1};
  inParallel(kMany, [&](size_t thread) {
    if (thread < kWorkers) {
      works[thread].run(kLonger * 6000);
      --working;
    } else if (thread == kWorkers) {
      MORVAInst *two = tables.two();
      for (uint64_t round = 0; round < 6; ++round) {
        if (round != 0) {
          EXPECT_EQ(round % 2 == 0 ? two->Clear(two) : two->Clear2(two), MORVA_OK);
        }
        ThreadWork work(two, shape(), keys, round);
        work.run(kLonger * 900);
        inTwo = work.contents();
      }
      --working;
    } else if (thread == kWorkers + 1) {
      watch(tables.one(), shape(), working);
    } else {
      compare(tables.one(), tables.two(), shape(), working);
    }
  });
  ThreadWork::Contents inOne;
  for (const ThreadWork &work : works) inOne.merge(work.contents());
  EXPECT_EQ(tables.contentsOf(tables.one()), inOne);
  EXPECT_EQ(tables.contentsOf(tables.two()), inTwo);
}

TEST_P(AllOperations, AreExactWithinAHoldWhateverOthersDoToTheSameKeys) {
  TwoTables tables(shape());
  const std::vector<std::string> keys = someKeys(shape(), 24);
  inParallel(kMany, [&](size_t thread) {
    HeldWork(tables.one(), shape(), keys, 500 + thread).run(kLonger * 3000);
  });
  const ThreadWork::Contents contents = tables.contentsOf(tables.one());
  size_t records = 0;
  for (const auto &[key, data] : contents) records += data.size();
  EXPECT_EQ(tables.one()->NumElements(tables.one()), records);
}

}  // namespace
}  // namespace morva_test
