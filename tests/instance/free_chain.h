// The chain of free nodes beside a plain list of it, for tests of the node that
// a variable key gets: what a walk would find, and all that the index promises.
#pragma once

#include "instance/free_index.h"

#include <limits>
#include <random>
#include <unordered_set>

#include "instance/storage.h"
#include "instance_test.h"

namespace morva_test {

using morva::core::FreeIndex;
using morva::core::FreeLinks;
using morva::core::GetVarNode;
using morva::core::kFrontSteps;
using morva::core::kStampLimit;
using morva::core::ownState;
using morva::core::releaseRecordNode;
using morva::core::takeFirstFit;

inline FreeIndex &indexOf(MORVAInst *inst) {
  return ownState(*inst).freeIndex;
}

inline uint32_t capacityOf(RecordNode *node) {
  return prefixOf(node).capacity;
}

inline uint32_t stampOf(RecordNode *node) {
  return prefixOf(node).length;
}

inline FreeLinks linksOf(RecordNode *node) {
  FreeLinks links;
  std::memcpy(&links, static_cast<char *>(MORVARecordBase(node)) + sizeof(KeyPrefix), sizeof links);
  return links;
}

// Looks at everything the index promises.
class IndexCheck {
 public:
  explicit IndexCheck(MORVAInst *inst) : index_(indexOf(inst)) {
    RecordNode *before = nullptr;
    for (RecordNode *node = index_.first; node != nullptr;
         node = static_cast<RecordNode *>(node->owner)) {
      indexed_.insert(node);
      if (before != nullptr) {
        EXPECT_EQ(linksOf(node).before, before);
        EXPECT_LT(stampOf(node), stampOf(before));
      }
      before = node;
    }
    EXPECT_TRUE(index_.first == nullptr || stampOf(index_.first) < index_.nextStamp);
    for (uint32_t bits = 0; bits != FreeIndex::kTrees; ++bits) {
      const uint64_t low = bits == 0 ? 0 : uint64_t{1} << (bits - 1);
      visit(index_.roots[bits], low, bits == 0 ? 1 : 2 * low, nullptr);
    }
    EXPECT_EQ(met_, indexed_);
  }

 private:
  // A subtree has the capacities from `low` up to `end`; each level halves them.
  void visit(uintptr_t word, uint64_t low, uint64_t end, RecordNode *above) {
    if (word == 0) return;
    ASSERT_LT(low, end) << "a branch too deep";
    RecordNode *node = reinterpret_cast<RecordNode *>(word);
    ASSERT_TRUE(meet(node));
    EXPECT_GE(capacityOf(node), low);
    EXPECT_LT(capacityOf(node), end);
    EXPECT_TRUE(above == nullptr || stampOf(node) < stampOf(above));
    RecordNode *younger = node;
    for (RecordNode *older = linksOf(node).older; older != nullptr; older = linksOf(older).older) {
      ASSERT_TRUE(meet(older));
      EXPECT_EQ(capacityOf(older), capacityOf(node));
      EXPECT_LT(stampOf(older), stampOf(younger));
      younger = older;
    }
    const uint64_t middle = low + (end - low) / 2;
    const bool divides = end - low > 1;
    visit(node->left, low, divides ? middle : low, node);
    visit(node->right, middle, divides ? end : middle, node);
  }

  bool meet(RecordNode *node) {
    if (indexed_.count(node) == 0) return false;
    return met_.insert(node).second;
  }

  FreeIndex &index_;
  std::unordered_set<RecordNode *> indexed_, met_;
};

// An instance beside the chain as a plain list, the head first.
class Walked {
 public:
  explicit Walked(MORVAInst *inst) : inst_(inst) {}

  RecordNode *firstFit(uint32_t length) const {
    const auto fit = std::find_if(chain_.begin(), chain_.end(),
                                  [&](RecordNode *node) { return capacityOf(node) >= length; });
    return fit == chain_.end() ? nullptr : *fit;
  }

  // The caller has the node taken, or null where none fits.
  RecordNode *take(uint32_t length, uint32_t stampLimit = kStampLimit) {
    RecordNode *expected = firstFit(length);
    RecordNode *head = inst_->freeRecords;
    RecordNode *taken = nullptr;
    if (expected != nullptr && length <= uint32_t{std::numeric_limits<int32_t>::max()} &&
        stampLimit == kStampLimit) {
      uint32_t dataOffset = 0;
      taken = GetVarNode(inst_, static_cast<int32_t>(length), &dataOffset);
    } else {
      taken = takeFirstFit(*inst_, length, stampLimit);
    }
    EXPECT_EQ(taken, expected) << length << " at head " << head;
    if (taken != nullptr) forget(taken);
    return taken;
  }

  void release(RecordNode *node) {
    releaseRecordNode(*inst_, node);
    put(node);
  }

  void put(RecordNode *node) { chain_.insert(chain_.begin(), node); }
  void forget(RecordNode *node) { chain_.erase(std::find(chain_.begin(), chain_.end(), node)); }
  void forgetAll() { chain_.clear(); }

  void check() const {
    ASSERT_EQ(freeRecordsOf(inst_), chain_);
    IndexCheck{inst_};
  }

  const std::vector<RecordNode *> &chain() const { return chain_; }

 private:
  MORVAInst *inst_;
  std::vector<RecordNode *> chain_;
};

class FreeIndexTest : public InstanceTest {
 protected:
  MORVAInst *make(int32_t hashExp = 4) {
    MORVAInst *inst = create(Mode::variable, flagNoLock, 0, hashExp);
    host.keepLog(false);
    return inst;
  }

  // A node of its own. Its room for a key is what it says, not what it has: no
  // key is written here.
  static RecordNode *newNode(MORVAInst *inst, uint32_t capacity) {
    HostPool *pool = inst->varkeyPool;
    auto *node = static_cast<RecordNode *>(pool->allocate(pool, 48, 0));
    const KeyPrefix prefix{0xA5A5A5A5, capacity};
    std::memcpy(MORVARecordBase(node), &prefix, sizeof prefix);
    return node;
  }

  static size_t frontLength(MORVAInst *inst) {
    size_t length = 0;
    for (RecordNode *node = inst->freeRecords; node != indexOf(inst).first;
         node = static_cast<RecordNode *>(node->owner)) {
      ++length;
    }
    return length;
  }
};

using Random = std::mt19937;

}  // namespace morva_test
