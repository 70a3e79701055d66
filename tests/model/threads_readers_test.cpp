// What may be called without the instance's lock, beside other threads.
#include <gtest/gtest.h>

#include <atomic>
#include <set>

#include "shared_table.h"

namespace morva_test {
namespace {

TEST(PrivateProbes, FindInATableThatNobodyChanges) {
  for (const TableShape &shape : lockedShapes()) {
    SCOPED_TRACE(shape.text());
    SharedTable table(shape);
    MORVAInst *inst = table.inst();
    if (shape.sums()) inst->SetSumInc(inst, 0.0);
    const std::vector<std::string> keys = someKeys(shape, 400);
    std::vector<void *> places(keys.size());
    for (size_t i = 0; i < keys.size(); i += 2) {
      const std::string data = dataFor(shape, i);
      ASSERT_EQ(inst->Add(inst, data.data(), keys[i].data(), lengthOf(keys[i])), MORVA_OK);
      ASSERT_EQ(inst->Find(inst, keys[i].data(), lengthOf(keys[i]), &places[i]), MORVA_OK);
    }
    inParallel(kThreads, [&](size_t thread) {
      std::vector<uint64_t> probe(shape.probeSize(shape.longestKey()) / 8);
      for (size_t i = 0; i < 20 * keys.size(); ++i) {
        const size_t at = (i + 31 * thread) % keys.size();
        void *data = inst;
        EXPECT_EQ(MORVAFind2(inst, keys[at].data(), lengthOf(keys[at]),
                             reinterpret_cast<RecordNode *>(probe.data()), &data),
                  MORVA_OK);
        EXPECT_EQ(data, places[at]);
        if (data != nullptr) {
          EXPECT_EQ(numberIn(data), at);
        }
      }
    });
  }
}

TEST(PrivateProbes, FindBesideChangesWhenTheTreesAreLocked) {
  for (const TableShape &shape : lockedShapes()) {
    SCOPED_TRACE(shape.text());
    SharedTable table(shape, HostKind::embeddedWithTreeLocks);
    MORVAInst *inst = table.inst();
    if (shape.sums()) inst->SetSumInc(inst, 0.0);
    const std::vector<std::string> keys = someKeys(shape, 120);
    const size_t kept = keys.size() / 2;
    std::vector<void *> places(kept);
    for (size_t i = 0; i < kept; ++i) {
      const std::string data = dataFor(shape, i);
      ASSERT_EQ(inst->Add(inst, data.data(), keys[i].data(), lengthOf(keys[i])), MORVA_OK);
      ASSERT_EQ(inst->Find(inst, keys[i].data(), lengthOf(keys[i]), &places[i]), MORVA_OK);
    }
    inParallel(3, [&](size_t thread) {
      const std::string data = dataFor(shape, thread);
      std::vector<uint64_t> probe(shape.probeSize(shape.longestKey()) / 8);
      for (size_t step = 0; step < 20000; ++step) {
        if (thread == 0) {
          const std::string &key = keys[kept + step * 7 % kept];
          if (inst->Remove(inst, key.data(), lengthOf(key)) == MORVA_OK) continue;
          EXPECT_EQ(inst->Add(inst, data.data(), key.data(), lengthOf(key)), MORVA_OK);
          continue;
        }
        const size_t at = (step + 17 * thread) % kept;
        void *place = nullptr;
        EXPECT_EQ(MORVAFind2(inst, keys[at].data(), lengthOf(keys[at]),
                             reinterpret_cast<RecordNode *>(probe.data()), &place),
                  MORVA_OK);
        EXPECT_EQ(place, places[at]);
        if (place != nullptr) {
          EXPECT_EQ(numberIn(place), at);
        }
      }
    });
  }
}

TEST(Accessors, AnswerValuesOfBeforeOrAfterWhileTheTableGrows) {
  const TableShape shape = shapeOf(KeyMode::fixed, flagSum | flagOrdered);
  SharedTable table(shape);
  MORVAInst *inst = table.inst();
  const std::vector<std::string> keys = someKeys(shape, 10000);
  const uint32_t slotSize = inst->RecSize(inst);
  EXPECT_EQ(slotSize, shape.slotSizeFor(0));
  constexpr int kFinds = 3;
  std::atomic<bool> done{false};
  inParallel(kThreads, [&](size_t thread) {
    if (thread == 0) {
      for (size_t i = 0; i < keys.size(); ++i) {
        const std::string data = dataFor(shape, i);
        EXPECT_EQ(inst->Add(inst, data.data(), keys[i].data(), lengthOf(keys[i])), MORVA_OK);
        for (int n = 0; n < kFinds; ++n) {
          EXPECT_EQ(inst->Find(inst, keys[i].data(), lengthOf(keys[i]), nullptr), MORVA_OK);
        }
      }
      done = true;
    } else if (thread == 1) {
      for (size_t i = 0; !done; ++i) inst->SetSumInc(inst, i % 2 == 0 ? 2.0 : 1.0);
    } else {
      uint32_t elements = 0, inBucket = 0;
      uint64_t memory = 0;
      while (!done) {
        const uint32_t newElements = inst->NumElements(inst);
        EXPECT_GE(newElements, elements);
        EXPECT_LE(newElements, keys.size());
        elements = newElements;
        const uint32_t newInBucket = inst->BucketSize(inst, 1);
        EXPECT_GE(newInBucket, inBucket);
        inBucket = newInBucket;
        const uint64_t newMemory = inst->TotalMem(inst);
        EXPECT_GE(newMemory, memory);
        memory = newMemory;
        EXPECT_EQ(inst->HashSize(inst), 4u);
        EXPECT_EQ(inst->RecSize(inst), slotSize);
      }
    }
  });
  EXPECT_EQ(inst->NumElements(inst), keys.size());
  uint32_t inBuckets = 0;
  for (uint32_t i = 0; i < 4; ++i) inBuckets += inst->BucketSize(inst, i);
  EXPECT_EQ(inBuckets, keys.size());
  for (const std::string &key : keys) {
    double sum = 0.0;
    EXPECT_EQ(inst->Sum(inst, key.data(), lengthOf(key), &sum), MORVA_OK);
    EXPECT_GE(sum, 1.0 + kFinds);
    EXPECT_LE(sum, 2.0 * (1.0 + kFinds));
    EXPECT_EQ(sum, static_cast<double>(static_cast<int>(sum)));
  }
}

TEST(Accessors, AnswerTheSlotSizeOfSomeVariableKeyWhileOthersAreAdded) {
  const TableShape shape = shapeOf(KeyMode::variable, 0);
  SharedTable table(shape);
  MORVAInst *inst = table.inst();
  const std::vector<std::string> keys = someKeys(shape, 6000);
  std::set<uint32_t> possible{inst->RecSize(inst)};
  for (const std::string &key : keys) possible.insert(shape.slotSizeFor(key.size()));
  std::atomic<bool> done{false};
  inParallel(2, [&](size_t thread) {
    if (thread == 0) {
      const std::string data = dataFor(shape, 1);
      for (const std::string &key : keys) {
        EXPECT_EQ(inst->Add(inst, data.data(), key.data(), lengthOf(key)), MORVA_OK);
      }
      done = true;
      return;
    }
    while (!done) {
      EXPECT_EQ(possible.count(inst->RecSize(inst)), 1u);
      EXPECT_EQ(inst->TotalMem(inst), 0u);
    }
  });
}

}  // namespace
}  // namespace morva_test
