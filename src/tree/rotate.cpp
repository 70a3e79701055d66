#include "tree/rotate.h"

namespace morva::core {
namespace {

// A subtree of `from` that changes its parent; where there is none, the place
// becomes a thread to `from`, its neighbour.
Link handedOver(RecordNode *from, Side side) {
  const Link link = linkOf(from, side);
  return link.isThread() ? Link::thread(from) : link.light();
}

// The child on `side` rises above the node.
Rotated rotateOnce(RecordNode *node, RecordNode *child, Side side) {
  const Side inner = opposite(side);
  const bool childEven = !isHeavy(child, side);
  makeBalanced(child);
  setLink(node, side, handedOver(child, inner));
  setLink(child, inner, Link::child(node));
  if (childEven) {  // in removals only: both stay uneven, the height stays
    makeHeavy(node, side);
    makeHeavy(child, inner);
  }
  return {child, !childEven};
}

// The child's inner child rises above both.
Rotated rotateTwice(RecordNode *node, RecordNode *child, Side side) {
  const Side inner = opposite(side);
  RecordNode *grandchild = linkOf(child, inner).node();
  const bool heavyOutside = isHeavy(grandchild, side);
  const bool heavyInside = isHeavy(grandchild, inner);
  makeBalanced(child);
  makeBalanced(grandchild);
  setLink(child, inner, handedOver(grandchild, side));
  setLink(node, side, handedOver(grandchild, inner));
  setLink(grandchild, side, Link::child(child));
  setLink(grandchild, inner, Link::child(node));
  if (heavyOutside) makeHeavy(node, inner);
  if (heavyInside) makeHeavy(child, side);
  return {grandchild, true};
}

}  // namespace

Rotated rotate(RecordNode *node, Side side) {
  RecordNode *child = linkOf(node, side).node();
  makeBalanced(node);
  return isHeavy(child, opposite(side)) ? rotateTwice(node, child, side)
                                        : rotateOnce(node, child, side);
}

}  // namespace morva::core
