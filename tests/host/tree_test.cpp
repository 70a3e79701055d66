// The tree container, through its slots and through instances.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <random>

#include "companion_host.h"

namespace host_test {
namespace {

// A record of an 8-byte packed key; keys compare as the numbers do.
struct Record {
  Record(MORVAInst *owner, uint64_t number) : node{0, 0, owner} {
    for (int i = 7; i >= 0; --i, number >>= 8) key[i] = static_cast<unsigned char>(number);
  }
  RecordNode node;
  unsigned char key[8];
};

// A container on a host with plain or locked trees.
class Container : public testing::TestWithParam<bool> {
 protected:
  Container() : host(GetParam()) {
    owner.keyLength = 8;
    tree = make(&aa_tree);
  }
  ~Container() override { tree->destroy(tree); }

  TreeContainer *make(const TreeCallbacks *callbacks) {
    TreeOptions options = {};
    options.word1 = 1;
    options.callbacks = callbacks;
    return host.trees->makeTree(host.trees, &options, 0, 0);
  }

  RecordNode *insert(Bucket &bucket, Record &record) {
    return tree->insert(tree, &bucket, &record.node, nullptr);
  }
  RecordNode *find(Bucket &bucket, uint64_t key) {
    Record probe(&owner, key);
    return tree->find(tree, &bucket, &probe.node);
  }
  RecordNode *remove(Bucket &bucket, uint64_t key) {
    Record probe(&owner, key);
    return tree->remove(tree, &bucket, &probe.node);
  }
  std::vector<RecordNode *> walk(Bucket &bucket) {
    std::vector<RecordNode *> nodes;
    for (RecordNode *node = tree->first(tree, &bucket); node != nullptr; node = tree->next(node))
      nodes.push_back(node);
    return nodes;
  }

  CompanionHost host;
  MORVAInst owner = {};
  TreeContainer *tree;
};

INSTANTIATE_TEST_SUITE_P(Trees, Container, testing::Bool(), [](const auto &info) {
  return info.param ? std::string("Locked") : std::string("Plain");
});

TEST_P(Container, IsNotMadeWithoutOptionsOrCallbacks) {
  EXPECT_EQ(host.trees->makeTree(host.trees, nullptr, 0, 0), nullptr);
  EXPECT_EQ(make(nullptr), nullptr);
  EXPECT_EQ(host.stats().trees, 1u);
}

TEST_P(Container, NamesItsOperationsAndLeavesTheOtherWordsNull) {
  EXPECT_NE(tree->destroy, nullptr);
  EXPECT_NE(tree->next, nullptr);
  EXPECT_NE(tree->insert, nullptr);
  EXPECT_NE(tree->find, nullptr);
  EXPECT_NE(tree->remove, nullptr);
  EXPECT_NE(tree->first, nullptr);
  EXPECT_EQ(tree->head, nullptr);
  EXPECT_THAT(tree->slot0, testing::Each(nullptr));
  EXPECT_THAT(tree->slot6, testing::Each(nullptr));
  EXPECT_EQ(tree->slot4, nullptr);
  EXPECT_EQ(tree->slot13, nullptr);
  EXPECT_EQ(tree->slot16, nullptr);
}

TEST_P(Container, HasALockOfItsOwnOnlyWhereTreesAreLocked) {
  ASSERT_EQ(tree->lock != nullptr, GetParam());
  if (tree->lock == nullptr) return;
  EXPECT_EQ(tree->lock->acquire(tree->lock, MORVA_LOCK_CHANGE, 1), 0u);
  tree->lock->release(tree->lock);
  EXPECT_EQ(host.stats().unmatchedReleases, 0u);
  // Part of the container: destroying it by itself does nothing.
  tree->lock->destroy(tree->lock);
  EXPECT_EQ(host.stats().locks, 0u);
  EXPECT_EQ(tree->lock->acquire(tree->lock, MORVA_LOCK_CHANGE, 1), 0u);
  tree->lock->release(tree->lock);
}

TEST_P(Container, FindsNothingInAnEmptyBucket) {
  Bucket bucket = {};
  EXPECT_EQ(find(bucket, 1), nullptr);
  EXPECT_EQ(remove(bucket, 1), nullptr);
  EXPECT_EQ(tree->first(tree, &bucket), nullptr);
  EXPECT_EQ(bucket.root, nullptr);
}

TEST_P(Container, WritesAChangedRootBackAndNothingElseOfTheBucket) {
  Bucket bucket = {nullptr, 77, 78};
  Record one(&owner, 1), two(&owner, 2), three(&owner, 3);
  EXPECT_EQ(insert(bucket, one), &one.node);
  EXPECT_EQ(bucket.root, &one.node);
  EXPECT_EQ(insert(bucket, two), &two.node);
  EXPECT_EQ(bucket.root, &one.node);
  EXPECT_EQ(insert(bucket, three), &three.node);
  EXPECT_EQ(bucket.root, &two.node);
  EXPECT_EQ(find(bucket, 3), &three.node);
  EXPECT_EQ(bucket.root, &two.node);
  EXPECT_EQ(remove(bucket, 2), &two.node);
  EXPECT_THAT(bucket.root, testing::AnyOf(&one.node, &three.node));
  EXPECT_EQ(remove(bucket, 1), &one.node);
  EXPECT_EQ(bucket.root, &three.node);
  EXPECT_EQ(remove(bucket, 3), &three.node);
  EXPECT_EQ(bucket.root, nullptr);
  EXPECT_EQ(bucket.count, 77u);
  EXPECT_EQ(bucket.reserved, 78u);
}

TEST_P(Container, AnswersTheNodeThatHasTheKeyAlready) {
  Bucket bucket = {};
  Record record(&owner, 5), same(&owner, 5);
  same.node.left = 11;
  same.node.right = 12;
  ASSERT_EQ(insert(bucket, record), &record.node);
  EXPECT_EQ(insert(bucket, same), &record.node);
  EXPECT_EQ(same.node.left, 11u);
  EXPECT_EQ(same.node.right, 12u);
  EXPECT_THAT(walk(bucket), testing::ElementsAre(&record.node));
}

TEST_P(Container, DetachesWhatItRemoves) {
  Bucket bucket = {};
  Record one(&owner, 1), two(&owner, 2), three(&owner, 3);
  for (Record *record : {&one, &two, &three}) ASSERT_EQ(insert(bucket, *record), &record->node);
  ASSERT_EQ(remove(bucket, 2), &two.node);
  EXPECT_EQ(two.node.left, 0u);
  EXPECT_EQ(two.node.right, 0u);
  EXPECT_EQ(remove(bucket, 2), nullptr);
  EXPECT_THAT(walk(bucket), testing::ElementsAre(&one.node, &three.node));
}

TEST_P(Container, KeepsTheTreesOfBucketsApart) {
  std::array<Bucket, 3> buckets = {};
  Record a(&owner, 1), b(&owner, 1), c(&owner, 2);
  ASSERT_EQ(insert(buckets[0], a), &a.node);
  ASSERT_EQ(insert(buckets[1], b), &b.node);
  ASSERT_EQ(insert(buckets[1], c), &c.node);
  EXPECT_EQ(find(buckets[0], 1), &a.node);
  EXPECT_EQ(find(buckets[1], 1), &b.node);
  EXPECT_EQ(find(buckets[2], 1), nullptr);
  EXPECT_EQ(find(buckets[0], 2), nullptr);
  EXPECT_EQ(remove(buckets[0], 2), nullptr);
  EXPECT_EQ(remove(buckets[0], 1), &a.node);
  EXPECT_THAT(walk(buckets[0]), testing::IsEmpty());
  EXPECT_THAT(walk(buckets[1]), testing::ElementsAre(&b.node, &c.node));
}

TEST_P(Container, AgreesWithAMapPerBucket) {
  constexpr size_t kBuckets = 40;
  constexpr uint64_t kKeys = 300;
  std::array<Bucket, kBuckets> buckets = {};
  std::array<std::map<uint64_t, std::unique_ptr<Record>>, kBuckets> model;
  std::mt19937 random(7);
  const auto check = [&](size_t at) {
    std::vector<RecordNode *> expected;
    for (const auto &[key, record] : model[at]) expected.push_back(&record->node);
    EXPECT_EQ(walk(buckets[at]), expected);
    EXPECT_EQ(buckets[at].root == nullptr, expected.empty());
  };
  // Rather growing in the first half, rather shrinking in the second.
  constexpr int kSteps = 40000;
  for (int step = 0; step < kSteps; ++step) {
    const size_t at = random() % kBuckets;
    const uint64_t key = random() % kKeys * UINT64_C(0x0101010101);
    auto &records = model[at];
    const auto known = records.find(key);
    RecordNode *there = known != records.end() ? &known->second->node : nullptr;
    const bool adds = random() % 10 < (step < kSteps / 2 ? 7u : 3u);
    if (step % 4 == 3) {
      ASSERT_EQ(find(buckets[at], key), there);
    } else if (adds) {
      auto record = std::make_unique<Record>(&owner, key);
      ASSERT_EQ(insert(buckets[at], *record), there != nullptr ? there : &record->node);
      if (there == nullptr) records[key] = std::move(record);
    } else {
      ASSERT_EQ(remove(buckets[at], key), there);
      records.erase(key);
    }
    if (step % 100 == 0) check(at);
  }
  for (size_t at = 0; at < kBuckets; ++at) check(at);
}

TEST_P(Container, LeavesNodesAloneWhenItIsDestroyed) {
  Bucket bucket = {};
  Record one(&owner, 1), two(&owner, 2);
  TreeContainer *other = make(&aa_tree);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(host.stats().trees, 2u);
  ASSERT_EQ(other->insert(other, &bucket, &one.node, nullptr), &one.node);
  ASSERT_EQ(other->insert(other, &bucket, &two.node, nullptr), &two.node);
  other->destroy(other);
  EXPECT_EQ(host.stats().trees, 1u);
  // A container holds nothing of a tree: another one goes on with it.
  EXPECT_THAT(walk(bucket), testing::ElementsAre(&one.node, &two.node));
  EXPECT_EQ(remove(bucket, 1), &one.node);
}

// ---- what the callbacks are handed -----------------------------------------

struct Call {
  const char *name;
  RecordNode *root;
  int32_t recordOffset;
  TreeLock *lock;
};
std::vector<Call> calls;
RecordNode *rootToLeave;
// Runs within a call, with the mode in which the tree should be held.
void (*duringCall)(TreeLock *lock, uint32_t mode);

RecordNode *note(const char *name, TreeHolder *holder, RecordNode *answer, uint32_t mode) {
  calls.push_back({name, holder->root, holder->recordOffset, holder->lock});
  if (duringCall != nullptr) duringCall(holder->lock, mode);
  if (mode == MORVA_LOCK_CHANGE) holder->root = rootToLeave;
  return answer;
}

constexpr TreeCallbacks kNoting = {
    [](TreeHolder *h, RecordNode *n) { return note("adder", h, n, MORVA_LOCK_CHANGE); },
    [](TreeHolder *h, RecordNode *n) { return note("finder", h, n, MORVA_LOCK_READ); },
    [](TreeHolder *h, RecordNode *n, RecordNode **, RecordNode **) {
      return note("fuzzier", h, n, MORVA_LOCK_READ);
    },
    [](TreeHolder *h, RecordNode *n) { return note("killer", h, n, MORVA_LOCK_CHANGE); },
    [](TreeHolder *h, RecordNode *n) { return note("safe_adder", h, n, MORVA_LOCK_CHANGE); },
    [](TreeHolder *h, RecordNode *n) { return note("safe_finder", h, n, MORVA_LOCK_READ); },
    [](TreeHolder *h, RecordNode *n, RecordNode **, RecordNode **) {
      return note("safe_fuzzier", h, n, MORVA_LOCK_READ);
    },
    [](TreeHolder *h, RecordNode *n) { return note("safe_killer", h, n, MORVA_LOCK_CHANGE); },
};

TEST_P(Container, CallsOneSetOfCallbacksWithAHolderBuiltFromTheBucket) {
  const bool locked = GetParam();
  TreeContainer *noting = make(&kNoting);
  ASSERT_NE(noting, nullptr);
  calls.clear();
  duringCall = nullptr;
  Record a(&owner, 1), b(&owner, 2), probe(&owner, 3);
  Bucket bucket = {&a.node, 0, 0};

  rootToLeave = &b.node;
  EXPECT_EQ(noting->insert(noting, &bucket, &probe.node, nullptr), &probe.node);
  EXPECT_EQ(bucket.root, &b.node);
  EXPECT_EQ(noting->find(noting, &bucket, &probe.node), &probe.node);
  EXPECT_EQ(bucket.root, &b.node);
  rootToLeave = nullptr;
  EXPECT_EQ(noting->remove(noting, &bucket, &probe.node), &probe.node);
  EXPECT_EQ(bucket.root, nullptr);

  ASSERT_EQ(calls.size(), 3u);
  EXPECT_STREQ(calls[0].name, locked ? "safe_adder" : "adder");
  EXPECT_STREQ(calls[1].name, locked ? "safe_finder" : "finder");
  EXPECT_STREQ(calls[2].name, locked ? "safe_killer" : "killer");
  EXPECT_EQ(calls[0].root, &a.node);
  EXPECT_EQ(calls[1].root, &b.node);
  EXPECT_EQ(calls[2].root, &b.node);
  for (const Call &call : calls) {
    EXPECT_EQ(call.recordOffset, 0);
    EXPECT_EQ(call.lock != nullptr, locked);
    // One bucket, one lock.
    EXPECT_EQ(call.lock, calls[0].lock);
  }
  noting->destroy(noting);
}

TEST_P(Container, HoldsTheLockOfTheBucketAroundACallAndNoLonger) {
  if (!GetParam()) {
    // Plain trees have nothing to hold.
    EXPECT_EQ(tree->lock, nullptr);
    return;
  }
  TreeContainer *noting = make(&kNoting);
  ASSERT_NE(noting, nullptr);
  calls.clear();
  rootToLeave = nullptr;
  // A release gives the container's hold back; a release without a hold would
  // be counted.
  duringCall = [](TreeLock *lock, uint32_t mode) {
    lock->release(lock);
    lock->acquire(lock, mode, 1);
  };
  Record record(&owner, 1);
  Bucket bucket = {};
  noting->insert(noting, &bucket, &record.node, nullptr);
  noting->find(noting, &bucket, &record.node);
  noting->remove(noting, &bucket, &record.node);
  duringCall = nullptr;
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(host.stats().unmatchedReleases, 0u);
  EXPECT_NE(calls[0].lock, noting->lock);
  calls[0].lock->release(calls[0].lock);
  EXPECT_EQ(host.stats().unmatchedReleases, 1u);
  noting->destroy(noting);
}

// ---- through instances -----------------------------------------------------

TEST_P(Container, ServesAnInstanceLikeAMap) {
  for (const uint32_t mode : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}}) {
    for (const int32_t hashExp : {0, 3}) {
      MORVAInst *inst = host.create(mode, 8, sizeof(uint64_t), hashExp);
      ASSERT_NE(inst, nullptr);
      std::map<uint64_t, uint64_t> model;
      std::mt19937 random(11);
      for (uint64_t step = 0; step < 20000; ++step) {
        const uint64_t key = random() % 500;
        const bool known = model.count(key) != 0;
        switch (random() % 3) {
          case 0:
            ASSERT_EQ(inst->Add(inst, &step, &key, sizeof key), known ? MORVA_PRESENT : MORVA_OK);
            model.emplace(key, step);
            break;
          case 1:
            ASSERT_EQ(inst->Remove(inst, &key, sizeof key), known ? MORVA_OK : MORVA_INVALID);
            model.erase(key);
            break;
          default: {
            void *data = nullptr;
            ASSERT_EQ(inst->Find(inst, &key, sizeof key, &data), MORVA_OK);
            ASSERT_EQ(data != nullptr, known);
            if (known) {
              uint64_t value;
              std::memcpy(&value, data, sizeof value);
              ASSERT_EQ(value, model[key]);
            }
          }
        }
        ASSERT_EQ(inst->NumElements(inst), model.size());
      }
      host.destroy(inst);
    }
  }
}

TEST_P(Container, IsGoodForUseAfterItsHeadWordWasCleared) {
  MORVAInst *inst = host.create(flagFixedKey);
  ASSERT_NE(inst, nullptr);
  for (int round = 0; round < 3; ++round) {
    for (uint64_t key = 0; key < 200; ++key)
      ASSERT_EQ(inst->Add(inst, &key, &key, sizeof key), MORVA_OK);
    EXPECT_EQ(inst->NumElements(inst), 200u);
    ASSERT_EQ(round % 2 == 0 ? inst->Clear2(inst) : inst->Clear(inst), MORVA_OK);
    EXPECT_EQ(inst->tree->head, nullptr);
    for (uint64_t key = 0; key < 200; ++key) {
      void *data = inst;
      ASSERT_EQ(inst->Find(inst, &key, sizeof key, &data), MORVA_OK);
      ASSERT_EQ(data, nullptr);
    }
  }
  EXPECT_EQ(host.stats().unmatchedReleases, 0u);
}

TEST(TreeCompanion, CountsItsTrees) {
  CompanionHost host;
  EXPECT_EQ(host.stats().trees, 0u);
  MORVAInst *first = host.create(flagFixedKey);
  host.create(flagVarKey);
  EXPECT_EQ(host.stats().trees, 2u);
  host.destroy(first);
  EXPECT_EQ(host.stats().trees, 1u);
}

}  // namespace
}  // namespace host_test
