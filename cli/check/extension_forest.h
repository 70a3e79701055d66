// A tree of aa_tree that no container keeps, and a look at all that must hold of it.
#pragma once

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "extension_lab.h"

namespace morva::cli::check {

// A node with room for a key of sixteen bytes behind a prefix, and something in front of it that an
// offset may reach.
struct Node {
  uint64_t space[5] = {};
  RecordNode node = {};
  char area[32] = {};
};

// One tree and its nodes, whose keys are those of an instance.
class Forest {
 public:
  Forest(const Lab &lab, const Table &table, HostLock *lock = nullptr)
      : table_(table), callbacks_(*lab.file.get<const TreeCallbacks *>("aa_tree")) {
    holder.lock = lock;
  }

  Node *make(const std::string &key) {
    nodes_.emplace_back();
    Node &made = nodes_.back();
    fill(made, key);
    return &made;
  }

  // `place` bytes behind the node lie its owner and key area.
  void fill(Node &made, const std::string &key, int32_t place = 0) const {
    char *base = reinterpret_cast<char *>(&made) + offsetof(Node, node) + place;
    void *owner = table_.get();
    std::memcpy(base + offsetof(RecordNode, owner), &owner, sizeof owner);
    base += sizeof(RecordNode);
    if (!table_.shape().packed()) {
      const KeyPrefix prefix = {static_cast<uint32_t>(key.size()), 16};
      std::memcpy(base, &prefix, sizeof prefix);
      base += sizeof prefix;
    }
    key.copy(base, key.size());
  }

  RecordNode *add(const std::string &key) { return callbacks_.adder(&holder, &make(key)->node); }
  RecordNode *find(const std::string &key) {
    Node probe = probeFor(key);
    return callbacks_.finder(&holder, &probe.node);
  }
  RecordNode *kill(const std::string &key) {
    Node probe = probeFor(key);
    return callbacks_.killer(&holder, &probe.node);
  }

  Node probeFor(const std::string &key) const {
    Node probe;
    // Its links are nobody's.
    probe.node.left = probe.node.right = 0x5151515151515151;
    fill(probe, key);
    return probe;
  }

  std::string keyOf(const RecordNode *node) const {
    return table_.keyOf(const_cast<RecordNode *>(node));
  }

  const TreeCallbacks &callbacks() const { return callbacks_; }
  // The tree's nodes in order, after a look at everything that must hold of them.
  std::vector<RecordNode *> examined() const;
  int height() const { return height_; }

  TreeHolder holder = {};

 private:
  int examine(const RecordNode *node, const RecordNode *before, const RecordNode *after,
              std::vector<RecordNode *> &nodes, int depth) const;

  const Table &table_;
  const TreeCallbacks &callbacks_;
  std::deque<Node> nodes_;
  mutable int height_ = 0;
};

// Keys of eight bytes, in the order of the numbers.
std::string padded(uint64_t number);

// A table of keys of eight bytes, for trees with such; its own trees stay empty.
Table ownerOf(Lab &lab, uint32_t mode = 0);

}  // namespace morva::cli::check
