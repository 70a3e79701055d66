// Walking a bucket's tree: the holder's records, and the path taken.
#pragma once

#include <cstddef>

#include "keys/compare.h"
#include "morva/tree_holder.h"
#include "tree/link.h"

namespace morva::core {

// The record of a tree node: where its owner and key area are read. Its links
// are always the node's own.
inline RecordNode *recordOf(const TreeHolder &holder, RecordNode *node) {
  return detail::record_of(node, holder.recordOffset);
}

// Of a comparison that is not 0; without a branch, for half of them go either
// way.
inline Side sideOf(int comparison) {
  return static_cast<Side>(comparison > 0);
}

// The nodes walked through and the side taken at each, instead of parent
// pointers. 90 levels are more than a height-balanced tree of any memory has,
// so the bound is not checked.
class Path {
 public:
  struct Step {
    RecordNode *node;
    Side side;
  };

  bool isEmpty() const { return depth_ == 0; }
  size_t depth() const { return depth_; }

  void push(RecordNode *node, Side side) { entries_[depth_++] = entry(node, side); }
  Step pop() { return step(entries_[--depth_]); }
  Step top() const { return step(entries_[depth_ - 1]); }

  // The node at `level` was replaced by another; the side taken there stays.
  void replace(size_t level, RecordNode *node) {
    entries_[level] = entry(node, step(entries_[level]).side);
  }

  // Points the link that led to `level` at `node`: the root, or the link taken
  // at the level before.
  void rehang(TreeHolder &holder, size_t level, RecordNode *node) const {
    if (level == 0) {
      holder.root = node;
    } else {
      const Step parent = step(entries_[level - 1]);
      redirect(parent.node, parent.side, Link::child(node));
    }
  }

 private:
  static constexpr size_t kDepth = 90;
  static constexpr uintptr_t kWentRight = 2;

  static uintptr_t entry(RecordNode *node, Side side) {
    return reinterpret_cast<uintptr_t>(node) | (side == Side::right ? kWentRight : 0);
  }
  static Step step(uintptr_t entry) {
    return {reinterpret_cast<RecordNode *>(entry & ~kWentRight),
            (entry & kWentRight) != 0 ? Side::right : Side::left};
  }

  size_t depth_ = 0;
  uintptr_t entries_[kDepth];
};

// Walks towards a key in a tree that is not empty and pushes every node passed.
// Answers the equal node; or null, the path then ending at the node, and on the
// side of it, where the key would hang.
template <class Order>
RecordNode *descend(const TreeHolder &holder, const Order &order, Path &path) {
  for (RecordNode *at = holder.root;;) {
    const int comparison = order(recordOf(holder, at));
    if (comparison == 0) return at;
    const Side side = sideOf(comparison);
    path.push(at, side);
    const Link link = linkOf(at, side);
    if (link.isThread()) return nullptr;
    at = link.node();
  }
}

}  // namespace morva::core
