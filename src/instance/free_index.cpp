// The trees are priority search trees in their radix form (McCreight, 1985):
// heaps by age, the most recent node on top, whose branches are chosen by the
// bits of the capacity from the highest down. So none is more than 32 nodes
// high, and everything on the 1-side of a branch is larger than everything on
// its 0-side. A tree has one node of each capacity, the most recent; the older
// ones hang behind it in a list and rise one by one as it is taken.
//
// One tree would do. But capacities are small, and it would begin with as many
// branches as they have leading zeros, all going the same way.
//
// All of it lies in the free nodes themselves:
//
//     left, right   branches for a bit that is 0, and 1
//     owner         next node of the chain
//     length        stamp
//     key bytes     FreeLinks
#include "instance/free_index.h"

#include <bit>

#include "instance/record.h"

namespace morva::core {
namespace {

static_assert(sizeof(RecordNode) + sizeof(KeyPrefix) + sizeof(FreeLinks) <=
                  slotSize(static_cast<uint32_t>(varDataOffset(0))),
              "the smallest node has room for them");

FreeLinks *freeLinksOf(RecordNode *node) {
  return reinterpret_cast<FreeLinks *>(prefixOf(node) + 1);
}

RecordNode *nextFree(RecordNode *node) {
  return static_cast<RecordNode *>(node->owner);
}

uint32_t capacityOf(RecordNode *node) {
  return prefixOf(node)->capacity;
}

uint32_t &stampOf(RecordNode *node) {
  return prefixOf(node)->length;
}

RecordNode *nodeIn(uintptr_t word) {
  return reinterpret_cast<RecordNode *>(word);
}

// Where a subtree hangs, and the bit that divides it: 0 where no bit is left.
struct Place {
  uintptr_t *word;
  uint32_t bit;

  bool isEmpty() const { return *word == 0; }
  RecordNode *node() const { return nodeIn(*word); }
  Place zeroSide() const { return {&node()->left, bit >> 1}; }
  Place oneSide() const { return {&node()->right, bit >> 1}; }
  Place towards(uint32_t capacity) const { return (capacity & bit) != 0 ? oneSide() : zeroSide(); }
  bool isYoungerThan(Place other) const { return stampOf(node()) > stampOf(other.node()); }
};

uint32_t bitsOf(uint32_t capacity) {
  return static_cast<uint32_t>(std::bit_width(capacity));
}

// The tree of the capacities with this many bits, the highest of which is 1.
Place treeOf(FreeIndex &index, uint32_t bits) {
  return {&index.roots[bits], static_cast<uint32_t>((uint64_t{1} << bits) >> 2)};
}

Place treeFor(FreeIndex &index, uint32_t capacity) {
  return treeOf(index, bitsOf(capacity));
}

// Puts a node into the subtree at `place`, which has none of its capacity: it
// takes the place of the first older one, which goes on downwards.
void insertAt(Place place, RecordNode *node) {
  while (!place.isEmpty()) {
    RecordNode *there = place.node();
    if (stampOf(there) < stampOf(node)) {
      node->left = there->left;
      node->right = there->right;
      *place.word = reinterpret_cast<uintptr_t>(node);
      node = there;
    }
    place = place.towards(capacityOf(node));
  }
  node->left = 0;
  node->right = 0;
  *place.word = reinterpret_cast<uintptr_t>(node);
}

// Takes the node at `place` out: the younger of its children rises into the
// place, one of that one's children into the place it left, and so on.
void removeAt(Place place) {
  RecordNode *gone = place.node();
  uintptr_t left = gone->left;
  uintptr_t right = gone->right;
  gone->left = 0;
  gone->right = 0;
  uintptr_t *hole = place.word;
  while ((left | right) != 0) {
    const bool fromRight =
        left == 0 || (right != 0 && stampOf(nodeIn(right)) > stampOf(nodeIn(left)));
    *hole = fromRight ? right : left;
    RecordNode *risen = nodeIn(*hole);
    hole = fromRight ? &risen->right : &risen->left;
    const uintptr_t below[] = {risen->left, risen->right};
    risen->left = left;
    risen->right = right;
    left = below[0];
    right = below[1];
  }
  *hole = 0;
}

// Remembers the place whose node is the most recent.
void prefer(Place &best, Place place) {
  if (place.isEmpty()) return;
  if (best.word == nullptr || place.isYoungerThan(best)) best = place;
}

// The place of the most recent node with capacity for `length`, or one without
// a word. Candidates are the tops of all trees of larger capacities and, in the
// tree of this one, the first node on the path of `length` that is large enough
// and the tops of the 1-sides that the path goes by.
Place findFit(FreeIndex &index, uint32_t length) {
  Place best{nullptr, 0};
  const uint32_t bits = bitsOf(length);
  for (uint32_t more = bits + 1; more < FreeIndex::kTrees; ++more)
    prefer(best, treeOf(index, more));
  for (Place place = treeOf(index, bits); !place.isEmpty(); place = place.towards(length)) {
    if (capacityOf(place.node()) >= length) {
      prefer(best, place);  // all below are older
      break;
    }
    if ((length & place.bit) == 0) prefer(best, place.oneSide());
  }
  return best;
}

// Puts in a node more recent than all that are there.
void insertYoungest(FreeIndex &index, RecordNode *node) {
  const uint32_t capacity = capacityOf(node);
  Place place = treeFor(index, capacity);
  while (!place.isEmpty() && capacityOf(place.node()) != capacity) place = place.towards(capacity);
  freeLinksOf(node)->older = place.node();
  if (!place.isEmpty()) removeAt(place);
  insertAt(treeFor(index, capacity), node);
}

// Gives the indexed nodes the lowest stamps that keep their order.
void renumber(FreeIndex &index) {
  uint32_t count = 0;
  for (RecordNode *node = index.first; node != nullptr; node = nextFree(node)) ++count;
  index.nextStamp = count;
  for (RecordNode *node = index.first; node != nullptr; node = nextFree(node)) {
    stampOf(node) = --count;
  }
}

// Has all front nodes join the index, the oldest first. False when there are
// not enough stamps.
bool indexFront(MORVAInst &inst, FreeIndex &index, uint32_t stampLimit) {
  uint64_t count = 0;
  RecordNode *last = nullptr;
  RecordNode *node = inst.freeRecords;
  for (; node != nullptr && node != index.first; node = nextFree(node)) {
    freeLinksOf(node)->before = last;
    last = node;
    ++count;
  }
  if (node == nullptr) index = {};
  if (index.nextStamp + count > stampLimit) renumber(index);
  if (index.nextStamp + count > stampLimit) return false;
  if (node != nullptr) freeLinksOf(node)->before = last;
  for (node = last; node != nullptr; node = freeLinksOf(node)->before) {
    stampOf(node) = index.nextStamp++;
    insertYoungest(index, node);
  }
  index.first = inst.freeRecords;
  return true;
}

void unlink(MORVAInst &inst, RecordNode *before, RecordNode *node) {
  if (before == nullptr) {
    inst.freeRecords = nextFree(node);
  } else {
    before->owner = node->owner;
  }
}

// `last` is the last front node, or null.
RecordNode *takeIndexed(MORVAInst &inst, FreeIndex &index, uint32_t length, RecordNode *last) {
  const Place place = findFit(index, length);
  if (place.word == nullptr) return nullptr;
  RecordNode *node = place.node();
  const FreeLinks links = *freeLinksOf(node);
  removeAt(place);
  if (links.older != nullptr) insertAt(place, links.older);
  RecordNode *next = nextFree(node);
  if (node == index.first) {
    unlink(inst, last, node);
    index.first = next;
  } else {
    unlink(inst, links.before, node);
    if (next != nullptr) freeLinksOf(next)->before = links.before;
  }
  return node;
}

}  // namespace

RecordNode *takeFirstFit(MORVAInst &inst, uint32_t length, uint32_t stampLimit) {
  FreeIndex &index = ownState(inst).freeIndex;
  RecordNode *before = nullptr;
  RecordNode *node = inst.freeRecords;
  for (uint32_t steps = 1; node != nullptr && node != index.first; ++steps) {
    if (capacityOf(node) >= length) {
      unlink(inst, before, node);
      return node;
    }
    before = node;
    node = nextFree(node);
    if (steps == kFrontSteps && node != index.first && indexFront(inst, index, stampLimit)) {
      return takeIndexed(inst, index, length, nullptr);
    }
  }
  // The end of the chain, not of its front: nothing is indexed, or the chain
  // that was has been cut off.
  if (node == nullptr && index.first != nullptr) index = {};
  return takeIndexed(inst, index, length, before);
}

}  // namespace morva::core
