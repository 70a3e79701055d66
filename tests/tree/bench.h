// A holder, an owner and one node for every key 0 .. n-1, to drive the tree
// callbacks with. Keys are stored packed: four bytes, highest first.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fake_lock.h"
#include "morva/inst.h"
#include "morva/tree_holder.h"
#include "tree_model.h"

namespace tree_test {

// The four callbacks a container would call.
struct CallbackSet {
  RecordNode *(*adder)(TreeHolder *, RecordNode *);
  RecordNode *(*finder)(TreeHolder *, RecordNode *);
  RecordNode *(*fuzzier)(TreeHolder *, RecordNode *, RecordNode **, RecordNode **);
  RecordNode *(*killer)(TreeHolder *, RecordNode *);
};

CallbackSet plainSet();
CallbackSet lockedSet();

class Bench {
 public:
  // `offset` becomes the holder's record offset; the nodes are laid out for it.
  Bench(int keys, const CallbackSet &callbacks, int32_t offset = 0);

  TreeHolder holder{};
  FakeLock lock;

  RecordNode *node(int key) const;
  RecordNode *nodeOf(std::optional<int> key) const { return key ? node(*key) : nullptr; }
  // The key of a node, -1 for null, -2 for an address that is no node.
  int keyOf(const RecordNode *node) const;

  RecordNode *add(int key) { return callbacks_.adder(&holder, node(key)); }
  // Adds the spare node under a key; it has to be one that is in the tree.
  RecordNode *addSpare(int key);
  RecordNode *spare() const { return node(static_cast<int>(outside_.size()) - 1); }
  RecordNode *find(int key) { return callbacks_.finder(&holder, probe(key)); }
  RecordNode *fuzz(int key, RecordNode **prev, RecordNode **next) {
    return callbacks_.fuzzier(&holder, probe(key), prev, next);
  }
  RecordNode *kill(int key) { return callbacks_.killer(&holder, probe(key)); }

  // Gives the nodes the words that the model's shape asks for.
  void plant(const TreeModel &model);
  // The first word of memory that is not as the model says, in words; empty
  // when all is well. Nodes outside the tree must have kept the words that they
  // had before their addition, or be zero after their removal.
  std::string difference(const TreeModel &model);
  // Tells the bench what was done, for `difference`.
  void nowKilled(int key) { outside_[static_cast<size_t>(key)] = 0; }

  MORVAInst *owner() { return &owner_; }

 private:
  struct alignas(16) Area {
    uint64_t words[8];
  };
  RecordNode *probe(int key);
  void fill(uint8_t *record, int key) const;

  CallbackSet callbacks_;
  int32_t offset_;
  size_t slotBytes_, linksAt_;
  std::vector<uint64_t> memory_, untouched_, wanted_;
  std::vector<uintptr_t> outside_;
  MORVAInst owner_{};
  Area probe_{}, probeUntouched_{};
};

// Checks a tree by itself, without a model: heights, heavy bits, threads both
// ways, key order by `keyOf`. Answers the keys in order, or a complaint.
struct Inspection {
  std::string complaint;
  std::vector<int> keys;
};
Inspection inspect(const RecordNode *root, const std::function<int(const RecordNode *)> &keyOf);

}  // namespace tree_test
