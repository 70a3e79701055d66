// One locked instance in several threads.
#include <gtest/gtest.h>

#include <atomic>

#include "shared_table.h"

namespace morva_test {
namespace {

// `part` of kThreads parts of the keys.
std::vector<std::string> share(const std::vector<std::string> &keys, size_t part) {
  std::vector<std::string> mine;
  for (size_t i = part; i < keys.size(); i += kThreads) mine.push_back(keys[i]);
  return mine;
}

class LockedInstance : public ::testing::TestWithParam<size_t> {
 protected:
  const TableShape &shape() const { return lockedShapes()[GetParam()]; }
};

INSTANTIATE_TEST_SUITE_P(EveryKeyMode, LockedInstance,
                         ::testing::Range(size_t{0}, lockedShapes().size()),
                         [](const auto &info) { return shapeName(lockedShapes()[info.param]); });

TEST_P(LockedInstance, KeepsTheKeysOfEveryThreadAsThatThreadLeftThem) {
  SharedTable table(shape());
  const std::vector<std::string> keys = someKeys(shape(), 40 * kThreads);
  std::vector<ThreadWork> works;
  for (size_t i = 0; i < kThreads; ++i) {
    works.emplace_back(table.inst(), shape(), share(keys, i), 100 + i);
  }
  inParallel(kThreads, [&](size_t i) { works[i].run(25000); });

  ThreadWork::Contents expected, contents;
  for (const ThreadWork &work : works) {
    for (const auto &[key, data] : work.contents()) expected[key] = data;
  }
  EXPECT_EQ(table.check(&contents), "");
  EXPECT_EQ(contents, expected);
}

TEST_P(LockedInstance, StaysWholeWhileOneThreadClearsIt) {
  SharedTable table(shape());
  MORVAInst *inst = table.inst();
  const std::vector<std::string> keys = someKeys(shape(), 60);
  inParallel(kThreads, [&](size_t i) {
    if (i == 0) {
      for (int round = 0; round < 1000; ++round) {
        EXPECT_EQ(round % 2 == 0 ? inst->Clear(inst) : inst->Clear2(inst), MORVA_OK);
      }
      return;
    }
    const std::string data = dataFor(shape(), i);
    for (size_t step = 0; step < 20000; ++step) {
      const std::string &key = keys[(step * 7 + i * 13) % keys.size()];
      const MORVAStatus added = inst->Add(inst, data.data(), key.data(), lengthOf(key));
      EXPECT_TRUE(added == MORVA_OK || (added == MORVA_PRESENT && !shape().multi())) << added;
      EXPECT_EQ(inst->Find(inst, key.data(), lengthOf(key), nullptr), MORVA_OK);
      if (step % 3 != 0) continue;
      const MORVAStatus removed = inst->Remove(inst, key.data(), lengthOf(key));
      EXPECT_TRUE(removed == MORVA_OK || removed == MORVA_INVALID) << removed;
    }
  });
  ThreadWork::Contents contents;
  EXPECT_EQ(table.check(&contents), "");
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(table.check(&contents), "");
  EXPECT_TRUE(contents.empty());
  EXPECT_EQ(inst->TotalMem(inst), 0u);
}

TEST_P(LockedInstance, EqualsItselfWhileOthersChangeIt) {
  if (shape().keyMode == KeyMode::variable) {
    // Variable keys cannot be compared; the refusal takes no lock.
    SharedTable table(shape());
    inParallel(kThreads, [&](size_t) {
      uint32_t equal = 7;
      EXPECT_EQ(MORVAEquals(table.inst(), table.inst(), &equal), MORVA_INVALID);
      EXPECT_EQ(equal, 7u);
    });
    return;
  }
  SharedTable table(shape());
  const std::vector<std::string> keys = someKeys(shape(), 40 * kThreads);
  std::vector<ThreadWork> works;
  for (size_t i = 0; i < kThreads; ++i) {
    works.emplace_back(table.inst(), shape(), share(keys, i), 200 + i);
  }
  inParallel(kThreads, [&](size_t i) {
    if (i < 2) return works[i].run(15000);
    for (int round = 0; round < 3000; ++round) {
      uint32_t equal = 7;
      EXPECT_EQ(MORVAEquals(table.inst(), table.inst(), &equal), MORVA_OK);
      EXPECT_EQ(equal, 1u);
    }
  });
}

TEST(LockedInstanceUnderContention, LetsOneOfManyAddsOfAKeyWinAndOneOfManyRemovals) {
  const TableShape shape = shapeOf(KeyMode::fixed, flagOrdered);
  SharedTable table(shape);
  MORVAInst *inst = table.inst();
  const std::vector<std::string> keys = someKeys(shape, 3000);
  std::vector<std::atomic<uint32_t>> winner(keys.size()), wins(keys.size()), removals(keys.size());

  inParallel(kThreads, [&](size_t thread) {
    const std::string data = dataFor(shape, thread + 1);
    for (size_t i = 0; i < keys.size(); ++i) {
      const MORVAStatus status = inst->Add(inst, data.data(), keys[i].data(), lengthOf(keys[i]));
      if (status == MORVA_OK) {
        ++wins[i];
        winner[i] = static_cast<uint32_t>(thread + 1);
      } else {
        EXPECT_EQ(status, MORVA_PRESENT);
      }
    }
  });
  EXPECT_EQ(inst->NumElements(inst), keys.size());
  ThreadWork::Contents contents;
  EXPECT_EQ(table.check(&contents), "");
  for (size_t i = 0; i < keys.size(); ++i) {
    EXPECT_EQ(wins[i], 1u);
    EXPECT_EQ(contents[keys[i]], std::vector<std::string>{dataFor(shape, winner[i])});
  }

  inParallel(kThreads, [&](size_t) {
    for (size_t i = 0; i < keys.size(); ++i) {
      if (inst->Remove(inst, keys[i].data(), lengthOf(keys[i])) == MORVA_OK) ++removals[i];
    }
  });
  for (size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(removals[i], 1u);
  EXPECT_EQ(inst->NumElements(inst), 0u);
  EXPECT_EQ(table.check(&contents), "");
}

TEST(LockedInstanceUnderContention, KeepsTheDuplicatesOfEveryThreadInThatThreadsOrder) {
  const TableShape shape = shapeOf(KeyMode::fixed, flagMultiData | flagOrdered);
  SharedTable table(shape);
  MORVAInst *inst = table.inst();
  const std::string key = "shared";
  constexpr uint64_t kEach = 4000;
  inParallel(kThreads, [&](size_t thread) {
    for (uint64_t i = 0; i < kEach; ++i) {
      const std::string data = dataFor(shape, thread << 32 | i);
      EXPECT_EQ(inst->Add(inst, data.data(), key.data(), lengthOf(key)), MORVA_OK);
    }
  });
  EXPECT_EQ(inst->NumElements(inst), kThreads * kEach);
  std::vector<uint64_t> next(kThreads);
  void *data = nullptr;
  EXPECT_EQ(inst->Find(inst, key.data(), lengthOf(key), &data), MORVA_OK);
  while (data != nullptr) {
    const uint64_t number = numberIn(data);
    ASSERT_LT(number >> 32, kThreads);
    EXPECT_EQ(number & UINT32_MAX, next[number >> 32]++);
    EXPECT_EQ(inst->FindNext(inst, data, &data), MORVA_OK);
  }
  EXPECT_EQ(next, std::vector<uint64_t>(kThreads, kEach));
}

TEST(LockedInstanceUnderContention, CountsEveryFind) {
  const TableShape shape = shapeOf(KeyMode::defined, flagSum);
  SharedTable table(shape);
  MORVAInst *inst = table.inst();
  const std::vector<std::string> keys = someKeys(shape, 10);
  for (const std::string &key : keys) {
    const std::string data = dataFor(shape, 0);
    ASSERT_EQ(inst->Add(inst, data.data(), key.data(), 0), MORVA_OK);
  }
  constexpr size_t kFinds = 20000;
  inParallel(kThreads, [&](size_t) {
    for (size_t i = 0; i < kFinds; ++i) {
      EXPECT_EQ(inst->Find(inst, keys[i % keys.size()].data(), 0, nullptr), MORVA_OK);
    }
  });
  for (const std::string &key : keys) {
    double sum = 0.0;
    EXPECT_EQ(inst->Sum(inst, key.data(), 0, &sum), MORVA_OK);
    EXPECT_EQ(sum, 1.0 + static_cast<double>(kThreads * kFinds / keys.size()));
  }
}

}  // namespace
}  // namespace morva_test
