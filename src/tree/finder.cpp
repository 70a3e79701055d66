// Lookup, and lookup with the neighbours in key order. The probe is a record
// of its own: the holder's record offset is for tree nodes.
#include "tree/callbacks.h"
#include "tree/walk.h"

namespace morva::core {
namespace {

// Where a walk ended: at the equal node, or at the node on whose `side` the
// key would hang.
struct End {
  RecordNode *node;
  Side side;
  bool equal;
};

// The tree must not be empty.
template <class Order>
End walkTo(const TreeHolder &holder, const Order &order) {
  for (RecordNode *at = holder.root;;) {
    const int comparison = order(recordOf(holder, at));
    const Side side = sideOf(comparison);
    if (comparison == 0) return {at, side, true};
    const Link link = linkOf(at, side);
    if (link.isThread()) return {at, side, false};
    at = link.node();
  }
}

End walkTo(const TreeHolder &holder, RecordNode *probe) {
  return withKeyOrder(probe, [&](const auto &order) { return walkTo(holder, order); });
}

// The neighbour of a node of the tree on one side in key order.
RecordNode *neighbour(RecordNode *node, Side side) {
  Link link = linkOf(node, side);
  RecordNode *at = link.node();
  if (link.isThread()) return at;
  while (!(link = linkOf(at, opposite(side))).isThread()) at = link.node();
  return at;
}

void store(RecordNode **place, RecordNode *node) {
  if (place != nullptr) *place = node;
}

}  // namespace

RecordNode *aa_tree_finder(TreeHolder *holder, RecordNode *probe) {
  if (holder->root == nullptr) return nullptr;
  return withKeyOrder(probe, [&](const auto &order) {
    return detail::search(holder->root, order, holder->recordOffset);
  });
}

RecordNode *aa_tree_fuzzier(TreeHolder *holder, RecordNode *probe, RecordNode **prev,
                            RecordNode **next) {
  if (holder->root == nullptr) {
    store(prev, nullptr);
    store(next, nullptr);
    return nullptr;
  }
  const End end = walkTo(*holder, probe);
  if (end.equal) {
    if (prev != nullptr) *prev = neighbour(end.node, Side::left);
    if (next != nullptr) *next = neighbour(end.node, Side::right);
    return end.node;
  }
  // The key would hang on a thread: its neighbours are the two ends of it.
  RecordNode *beyond = linkOf(end.node, end.side).node();
  store(prev, end.side == Side::right ? end.node : beyond);
  store(next, end.side == Side::right ? beyond : end.node);
  return nullptr;
}

}  // namespace morva::core
