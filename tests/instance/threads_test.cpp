// Instances made, used and ended in several threads at once.
#include <atomic>
#include <thread>

#include "instance_test.h"

namespace morva_test {
namespace {

using Threads = InstanceTest;

TEST_F(Threads, InstancesAreMadeAndEndedInParallel) {
  std::atomic<int> failures{0};
  const auto work = [&](uint32_t seed) {
    for (int round = 0; round != 30; ++round) {
      Shape shape;
      const uint32_t modes[] = {flagFixedKey, flagVarKey, 0};
      const uint32_t mode = modes[(seed + static_cast<uint32_t>(round)) % 3];
      shape.flags = mode | flagOrdered;
      MORVAParms parms = parmsOf(shape);
      MORVAInst *inst = ext->Create(ext.get(), &parms, nullptr, "parallel");
      if (inst == nullptr) {
        ++failures;
        continue;
      }
      if (mode == 0) {
        const MORVAKeyDesc desc = {8, 1, 0, 0};
        if (inst->DefineKey(inst, &desc) != MORVA_OK) ++failures;
        if (inst->DefineDone(inst, 0, 16) != MORVA_OK) ++failures;
      }
      const char data[16] = {};
      for (uint64_t key = 0; key != 40; ++key) {
        if (inst->Add(inst, data, &key, 8) != MORVA_OK) ++failures;
      }
      if (inst->NumElements(inst) != 40) ++failures;
      if (inst->Clear(inst) != MORVA_OK) ++failures;
      if (inst->Destroy(inst) != MORVA_OK) ++failures;
    }
  };
  std::vector<std::thread> threads;
  for (uint32_t seed = 0; seed != 4; ++seed) threads.emplace_back(work, seed);
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(host.blocksAlive(), 1u);
  EXPECT_EQ(host.poolsAlive(), 1u);
}

TEST_F(Threads, AccessorsRunBesideChanges) {
  MORVAInst *inst = create(Mode::fixed);
  host.keepLog(false);
  std::atomic<bool> stop{false};
  std::thread reader([&] {
    while (!stop) {
      EXPECT_LE(inst->NumElements(inst), 200u);
      EXPECT_LE(inst->BucketSize(inst, 3), 200u);
      EXPECT_EQ(inst->HashSize(inst), 16u);
      EXPECT_EQ(inst->RecSize(inst), 80u);
      EXPECT_LE(inst->TotalMem(inst), uint64_t{1} << 20);
    }
  });
  for (int round = 0; round != 300; ++round) {
    addAll(inst, 1, 200);
    for (uint64_t key = 1; key != 101; ++key) EXPECT_EQ(remove(inst, key), MORVA_OK);
    EXPECT_EQ(round % 2 == 0 ? inst->Clear(inst) : inst->Clear2(inst), MORVA_OK);
  }
  stop = true;
  reader.join();
}

TEST_F(Threads, ClearingExcludesEveryOtherOperation) {
  MORVAInst *inst = create(Mode::fixed, flagOrdered);
  host.keepLog(false);
  std::vector<std::thread> threads;
  for (uint64_t seed = 1; seed != 4; ++seed) {
    threads.emplace_back([&, seed] {
      const char data[16] = {};
      for (uint64_t i = 0; i != 5000; ++i) {
        const uint64_t key = i % 50 * seed;
        const MORVAStatus added = inst->Add(inst, data, &key, 8);
        EXPECT_TRUE(added == MORVA_OK || added == MORVA_PRESENT);
        EXPECT_EQ(inst->Find(inst, &key, 8, nullptr), MORVA_OK);
        if (i % 7 == 0) inst->Remove(inst, &key, 8);
      }
    });
  }
  for (int round = 0; round != 500; ++round) {
    EXPECT_EQ(round % 2 == 0 ? inst->Clear(inst) : inst->Clear2(inst), MORVA_OK);
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(inst->NumElements(inst), host.order(inst).size());
}

}  // namespace
}  // namespace morva_test
