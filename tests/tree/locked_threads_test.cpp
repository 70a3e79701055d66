// One tree, several threads, a lock that locks.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <random>
#include <set>
#include <shared_mutex>
#include <thread>

#include "bench.h"
#include "seed.h"

namespace {

struct RealLock : HostLock {
  RealLock() : HostLock{} {
    HostLock::acquire = [](HostLock *lock, uint32_t mode, uint32_t) -> uint32_t {
      auto *self = static_cast<RealLock *>(lock);
      if (mode == MORVA_LOCK_CHANGE) {
        self->mutex.lock();
        self->changing = true;
      } else {
        self->mutex.lock_shared();
      }
      return 0;
    };
    HostLock::release = [](HostLock *lock) {
      auto *self = static_cast<RealLock *>(lock);
      if (self->changing) {
        self->changing = false;
        self->mutex.unlock();
      } else {
        self->mutex.unlock_shared();
      }
    };
  }
  std::shared_mutex mutex;
  bool changing = false;  // written and read by whoever holds the lock
};

struct Slot {
  RecordNode links{};
  uint8_t key[8]{};
};

// The records of keys 0 .. n-1 in one tree.
class SharedTree : public testing::Test {
 protected:
  static constexpr int keys = 2000;

  SharedTree() : slots(keys) {
    owner.keyLength = 4;
    holder.lock = &lock;
    for (int key = 0; key < keys; key++) slots[static_cast<size_t>(key)] = slotOf(key);
  }

  Slot slotOf(int key) {
    Slot slot;
    slot.links.owner = &owner;
    for (int i = 0; i < 4; i++) slot.key[i] = static_cast<uint8_t>(key >> (24 - 8 * i));
    return slot;
  }
  RecordNode *node(int key) { return &slots[static_cast<size_t>(key)].links; }
  static int keyOf(const RecordNode *node) {
    const uint8_t *key = reinterpret_cast<const Slot *>(node)->key;
    return key[0] << 24 | key[1] << 16 | key[2] << 8 | key[3];
  }

  void expectSound(const std::set<int> &wanted) {
    const auto inspection = tree_test::inspect(holder.root, keyOf);
    EXPECT_EQ(inspection.complaint, "");
    EXPECT_EQ(inspection.keys, std::vector<int>(wanted.begin(), wanted.end()));
  }

  MORVAInst owner{};
  RealLock lock;
  TreeHolder holder{};
  std::vector<Slot> slots;
};

}  // namespace

TEST_F(SharedTree, TwoThreadsInsertingDifferentKeysLeaveASoundTree) {
  std::atomic<int> refused{0};
  const auto insert = [&](int first) {
    for (int key = first; key < keys; key += 2) {
      if (aa_tree.safe_adder(&holder, node(key)) != node(key)) refused++;
    }
  };
  std::thread even(insert, 0), odd(insert, 1);
  even.join();
  odd.join();
  EXPECT_EQ(refused, 0);
  std::set<int> all;
  for (int key = 0; key < keys; key++) all.insert(key);
  expectSound(all);
}

TEST_F(SharedTree, FourThreadsInsertingTheSameKeysAgreeOnOneNodeEach) {
  std::vector<std::vector<Slot>> own(4);
  for (auto &mine : own) {
    for (int key = 0; key < 500; key++) mine.push_back(slotOf(key));
  }
  std::atomic<int> inserted{0};
  std::vector<std::thread> threads;
  for (auto &mine : own) {
    threads.emplace_back([&] {
      for (Slot &slot : mine) {
        if (aa_tree.safe_adder(&holder, &slot.links) == &slot.links) inserted++;
      }
    });
  }
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(inserted, 500);
  std::set<int> all;
  for (int key = 0; key < 500; key++) all.insert(key);
  expectSound(all);
}

TEST_F(SharedTree, ReadersBesideChangesSeeASoundTree) {
  const uint64_t seed = tree_test::testSeed();
  RecordProperty("seed", std::to_string(seed));
  SCOPED_TRACE("MORVA_TEST_SEED=" + std::to_string(seed));
  // Every third key stays in the tree; two threads add and kill among the rest,
  // two look up.
  for (int key = 0; key < keys; key += 3) aa_tree.safe_adder(&holder, node(key));
  std::atomic<int> wrong{0};
  std::set<int> left[2];
  const auto change = [&](int which) {
    std::mt19937_64 random(seed + static_cast<uint64_t>(which));
    for (int step = 0; step < 8000; step++) {
      const int key = static_cast<int>(random() % (keys / 3)) * 3 + 1 + which;
      if (key >= keys) continue;
      if (left[which].insert(key).second) {
        if (aa_tree.safe_adder(&holder, node(key)) != node(key)) wrong++;
      } else {
        Slot probe = slotOf(key);
        if (aa_tree.safe_killer(&holder, &probe.links) != node(key)) wrong++;
        if (node(key)->left != 0 || node(key)->right != 0) wrong++;
        left[which].erase(key);
      }
    }
  };
  const auto look = [&](int which) {
    std::mt19937_64 random(seed + 100 + static_cast<uint64_t>(which));
    for (int step = 0; step < 8000; step++) {
      const int key = static_cast<int>(random() % (keys / 3)) * 3;
      Slot probe = slotOf(key);
      if (aa_tree.safe_finder(&holder, &probe.links) != node(key)) wrong++;
      RecordNode *prev = nullptr, *next = nullptr;
      if (aa_tree.safe_fuzzier(&holder, &probe.links, &prev, &next) != node(key)) wrong++;
      if (key > 0 && (keyOf(prev) < key - 3 || keyOf(prev) >= key)) wrong++;
      if (next != nullptr && (keyOf(next) <= key || keyOf(next) > key + 3)) wrong++;
    }
  };
  std::thread threads[] = {std::thread(change, 0), std::thread(change, 1), std::thread(look, 0),
                           std::thread(look, 1)};
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  std::set<int> all = left[0];
  all.insert(left[1].begin(), left[1].end());
  for (int key = 0; key < keys; key += 3) all.insert(key);
  expectSound(all);
}
