// Removal from a threaded height-balanced tree.
#include "tree/callbacks.h"
#include "tree/rotate.h"
#include "tree/walk.h"

namespace morva::core {
namespace {

// The last node of the subtree `top` towards `side`; pushes those passed.
RecordNode *lastTowards(RecordNode *top, Side side, Path *path) {
  for (Link link = linkOf(top, side); !link.isThread(); link = linkOf(top, side)) {
    if (path != nullptr) path->push(top, side);
    top = link.node();
  }
  return top;
}

// A node with two children gives its place to its neighbour from the taller
// side, from the left where both are even. Leaves the path at the node that
// lost a level.
void replaceByNeighbour(TreeHolder &holder, Path &path, RecordNode *gone) {
  const Side side = isHeavy(gone, Side::right) ? Side::right : Side::left;
  const Side other = opposite(side);
  const size_t level = path.depth();
  path.push(gone, side);
  RecordNode *child = linkOf(gone, side).node();
  RecordNode *heir = lastTowards(child, other, &path);

  // What hung below the heir takes the heir's place.
  const Link below = linkOf(heir, side);
  if (heir == child) {
    redirect(gone, side, below);
  } else {
    redirect(path.top().node, other, below.isThread() ? Link::thread(heir) : below);
  }
  // The neighbour on the other side was threaded to the node that goes.
  redirect(lastTowards(linkOf(gone, other).node(), side, nullptr), side, Link::thread(heir));

  setLink(heir, Side::left, linkOf(gone, Side::left));
  setLink(heir, Side::right, linkOf(gone, Side::right));
  path.replace(level, heir);
  path.rehang(holder, level, heir);
}

// A node with one child, on `side`: a leaf, since the other side is empty.
void replaceByChild(TreeHolder &holder, Path &path, RecordNode *gone, Side side) {
  RecordNode *child = linkOf(gone, side).node();
  redirect(child, opposite(side), linkOf(gone, opposite(side)));
  path.rehang(holder, path.depth(), child);
}

void dropLeaf(TreeHolder &holder, Path &path, RecordNode *gone) {
  if (path.isEmpty()) {
    holder.root = nullptr;
  } else {
    const Path::Step parent = path.top();
    redirect(parent.node, parent.side, linkOf(gone, parent.side));
  }
}

void unlink(TreeHolder &holder, Path &path, RecordNode *gone) {
  const bool left = !linkOf(gone, Side::left).isThread();
  const bool right = !linkOf(gone, Side::right).isThread();
  if (left && right) {
    replaceByNeighbour(holder, path, gone);
  } else if (left || right) {
    replaceByChild(holder, path, gone, left ? Side::left : Side::right);
  } else {
    dropLeaf(holder, path, gone);
  }
}

// The subtree below the end of `path` has lost a level.
void shrinkUpwards(TreeHolder &holder, Path &path) {
  while (!path.isEmpty()) {
    const Path::Step step = path.pop();
    const Side taller = opposite(step.side);
    if (isBalanced(step.node)) {
      makeHeavy(step.node, taller);
      return;
    }
    if (isHeavy(step.node, step.side)) {
      makeBalanced(step.node);
      continue;
    }
    const Rotated rotated = rotate(step.node, taller);
    path.rehang(holder, path.depth(), rotated.top);
    if (!rotated.lower) return;
  }
}

}  // namespace

RecordNode *aa_tree_killer(TreeHolder *holder, RecordNode *probe) {
  if (holder->root == nullptr) return nullptr;
  Path path;
  RecordNode *gone =
      withKeyOrder(probe, [&](const auto &order) { return descend(*holder, order, path); });
  if (gone == nullptr) return nullptr;
  unlink(*holder, path, gone);
  shrinkUpwards(*holder, path);
  gone->left = 0;
  gone->right = 0;
  return gone;
}

}  // namespace morva::core
