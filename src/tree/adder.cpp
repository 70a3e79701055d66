// Insertion into a threaded height-balanced tree.
#include "tree/callbacks.h"
#include "tree/rotate.h"
#include "tree/walk.h"

namespace morva::core {
namespace {

// Hangs `node` as a leaf on `side` of `parent`, where a thread was.
void attach(RecordNode *parent, Side side, RecordNode *node) {
  setLink(node, side, linkOf(parent, side).light());
  setLink(node, opposite(side), Link::thread(parent));
  redirect(parent, side, Link::child(node));
}

// The subtree below the end of `path` has grown by one level.
void growUpwards(TreeHolder &holder, Path &path) {
  while (!path.isEmpty()) {
    const Path::Step step = path.pop();
    if (isBalanced(step.node)) {
      makeHeavy(step.node, step.side);
      continue;
    }
    if (isHeavy(step.node, opposite(step.side))) {
      makeBalanced(step.node);
    } else {
      path.rehang(holder, path.depth(), rotate(step.node, step.side).top);
    }
    return;  // the subtree has its old height again
  }
}

}  // namespace

RecordNode *aa_tree_adder(TreeHolder *holder, RecordNode *node) {
  if (holder->root == nullptr) {
    setLink(node, Side::left, kNullThread);
    setLink(node, Side::right, kNullThread);
    holder->root = node;
    return node;
  }
  Path path;
  RecordNode *equal = withKeyOrder(
      recordOf(*holder, node), [&](const auto &order) { return descend(*holder, order, path); });
  if (equal != nullptr) return equal;
  const Path::Step end = path.top();
  attach(end.node, end.side, node);
  growUpwards(*holder, path);
  return node;
}

}  // namespace morva::core
