// Locked trees: lookups without the instance's lock beside a thread that adds
// and removes other keys.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>

#include "companion_host.h"

namespace host_test {
namespace {

constexpr int kReaders = 3;
constexpr uint64_t kKept = 100;

// Runs `change` in this thread and `read` in some others until it is through.
void beside(const std::function<void()> &change, const std::function<void(int thread)> &read) {
  std::atomic<bool> done{false};
  std::atomic<int> started{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < kReaders; ++i) {
    readers.emplace_back([&, i] {
      ++started;
      do {
        read(i);
      } while (!done);
    });
  }
  while (started != kReaders) std::this_thread::yield();
  change();
  done = true;
  for (std::thread &reader : readers) reader.join();
}

uint64_t numberAt(const void *data) {
  uint64_t number = 0;
  if (data != nullptr) std::memcpy(&number, data, sizeof number);
  return number;
}

void defineNumberKey(MORVAInst *inst) {
  const MORVAKeyDesc desc = {8, 3, 0, 0};
  ASSERT_EQ(inst->DefineKey(inst, &desc), MORVA_OK);
  ASSERT_EQ(inst->DefineDone(inst, 0, 8), MORVA_OK);
}

// Keys up to kKept stay, odd ones beyond come and go, even ones never are.
void lookUpBesideChanges(uint32_t flags, int32_t hashExp) {
  CompanionHost host(true);
  MORVAInst *inst = host.create(flags, 8, 8, hashExp);
  ASSERT_NE(inst, nullptr);
  if ((flags & (flagFixedKey | flagVarKey)) == 0) {
    ASSERT_NO_FATAL_FAILURE(defineNumberKey(inst));
  }
  for (uint64_t key = 0; key < kKept; ++key) {
    const uint64_t value = key * 3 + 1;
    ASSERT_EQ(inst->Add(inst, &value, &key, sizeof key), MORVA_OK);
  }
  std::atomic<uint64_t> wrong{0};
  std::atomic<uint64_t> lookups{0};
  const auto change = [&] {
    for (int round = 0; round < 30; ++round) {
      for (uint64_t key = kKept + 1; key < kKept + 200; key += 2)
        EXPECT_EQ(inst->Add(inst, &key, &key, sizeof key), MORVA_OK);
      for (uint64_t key = kKept + 1; key < kKept + 200; key += 2)
        EXPECT_EQ(inst->Remove(inst, &key, sizeof key), MORVA_OK);
    }
  };
  const auto read = [&](int thread) {
    uint64_t probe[16] = {};
    for (uint64_t i = 0; i < kKept; ++i) {
      const uint64_t present = (i * 7 + static_cast<uint64_t>(thread)) % kKept;
      const uint64_t absent = kKept + 2 * i;
      void *data = nullptr;
      auto *probeRecord = reinterpret_cast<RecordNode *>(probe);
      if (inst->Find2(inst, &present, sizeof present, probeRecord, &data) != MORVA_OK ||
          data == nullptr || numberAt(data) != present * 3 + 1)
        ++wrong;
      data = inst;
      if (inst->Find2(inst, &absent, sizeof absent, probeRecord, &data) != MORVA_OK ||
          data != nullptr)
        ++wrong;
      lookups += 2;
    }
  };
  beside(change, read);
  EXPECT_EQ(wrong, 0u);
  EXPECT_GE(lookups, 2 * kKept * kReaders);
  EXPECT_EQ(inst->NumElements(inst), kKept);
  EXPECT_EQ(host.stats().unmatchedReleases, 0u);
}

TEST(LockedTrees, LetFixedKeysBeFoundBesideChanges) {
  lookUpBesideChanges(flagFixedKey, 0);
  lookUpBesideChanges(flagFixedKey, 5);
}

TEST(LockedTrees, LetVariableKeysBeFoundBesideChanges) {
  lookUpBesideChanges(flagVarKey, 0);
  lookUpBesideChanges(flagVarKey | flagOrdered, 5);
}

TEST(LockedTrees, LetPackedKeysBeFoundBesideChanges) {
  lookUpBesideChanges(0, 0);
  lookUpBesideChanges(flagOrdered, 5);
}

TEST(LockedTrees, ShowAKeyThatComesAndGoesEitherWholeOrNotAtAll) {
  CompanionHost host(true);
  MORVAInst owner = {};
  owner.keyLength = 8;
  TreeOptions options = {};
  options.word1 = 1;
  options.callbacks = &aa_tree;
  TreeContainer *tree = host.trees->makeTree(host.trees, &options, 0, 0);
  ASSERT_NE(tree, nullptr);

  struct Record {
    RecordNode node;
    uint64_t key;
  };
  // Two buckets: a second writer works on the other one.
  constexpr uint64_t kRecords = 64;
  std::vector<Record> records(kRecords);
  Bucket buckets[2] = {};
  for (uint64_t i = 0; i < kRecords; ++i) records[i] = {{0, 0, &owner}, i};
  std::mutex instanceLock;
  const auto fillAndEmpty = [&](uint64_t parity) {
    for (int round = 0; round < 200; ++round) {
      for (uint64_t i = parity; i < kRecords; i += 2) {
        const std::lock_guard guard(instanceLock);
        EXPECT_EQ(tree->insert(tree, &buckets[parity], &records[i].node, nullptr),
                  &records[i].node);
      }
      for (uint64_t i = parity; i < kRecords; i += 2) {
        const std::lock_guard guard(instanceLock);
        Record probe{{0, 0, &owner}, i};
        EXPECT_EQ(tree->remove(tree, &buckets[parity], &probe.node), &records[i].node);
      }
    }
  };
  std::atomic<uint64_t> wrong{0};
  beside(
      [&] {
        std::thread other(fillAndEmpty, 1);
        fillAndEmpty(0);
        other.join();
      },
      [&](int) {
        for (uint64_t i = 0; i < kRecords; ++i) {
          Record probe{{0, 0, &owner}, i};
          RecordNode *found = tree->find(tree, &buckets[i % 2], &probe.node);
          if (found != nullptr && found != &records[i].node) ++wrong;
          if (tree->find(tree, &buckets[1 - i % 2], &probe.node) != nullptr) ++wrong;
        }
      });
  EXPECT_EQ(wrong, 0u);
  EXPECT_EQ(buckets[0].root, nullptr);
  EXPECT_EQ(buckets[1].root, nullptr);
  EXPECT_EQ(host.stats().unmatchedReleases, 0u);
  tree->destroy(tree);
}

TEST(LockedTrees, LetTheFirstNodeBeAskedForBesideChanges) {
  CompanionHost host(true);
  MORVAInst *inst = host.create(flagFixedKey, 8, 8, 0);
  ASSERT_NE(inst, nullptr);
  const uint64_t least = 0;
  ASSERT_EQ(inst->Add(inst, &least, &least, sizeof least), MORVA_OK);
  void *data = nullptr;
  ASSERT_EQ(inst->Find(inst, &least, sizeof least, &data), MORVA_OK);
  Bucket *bucket = MORVABucketAt(inst->buckets, 0);
  std::atomic<uint64_t> wrong{0};
  beside(
      [&] {
        for (uint64_t i = 0; i < 4000; ++i) {
          const uint64_t key = 1 + i % 40;
          if (inst->Remove(inst, &key, sizeof key) == MORVA_OK) continue;
          EXPECT_EQ(inst->Add(inst, &key, &key, sizeof key), MORVA_OK);
        }
      },
      [&](int) {
        RecordNode *first = inst->tree->first(inst->tree, bucket);
        if (first == nullptr || static_cast<char *>(MORVARecordBase(first)) + inst->dataOffset !=
                                    static_cast<char *>(data))
          ++wrong;
      });
  EXPECT_EQ(wrong, 0u);
}

}  // namespace
}  // namespace host_test
