// Link words of tree nodes, and left and right as one code with a side index.
#pragma once

#include <cstdint>

#include "morva/record_node.h"

namespace morva::core {

enum class Side : uint32_t { left = 0, right = 1 };

constexpr Side opposite(Side side) {
  return side == Side::left ? Side::right : Side::left;
}

// A link word: a child, or a thread to the neighbour in key order; and whether
// the subtree on this side is the taller one.
class Link {
 public:
  constexpr explicit Link(uintptr_t word) : word_(word) {}
  static Link child(RecordNode *node) { return Link(reinterpret_cast<uintptr_t>(node)); }
  static Link thread(RecordNode *node) {
    return Link(reinterpret_cast<uintptr_t>(node) | LINK_THREAD);
  }

  constexpr uintptr_t word() const { return word_; }
  constexpr bool isThread() const { return (word_ & LINK_THREAD) != 0; }
  constexpr bool isHeavy() const { return (word_ & LINK_HEAVY) != 0; }
  constexpr Link light() const { return Link(word_ & ~uintptr_t{LINK_HEAVY}); }
  constexpr Link heavy() const { return Link(word_ | LINK_HEAVY); }

  // The node it leads to, child or neighbour; null for the threads at the ends.
  RecordNode *node() const {
    return reinterpret_cast<RecordNode *>(word_ & ~uintptr_t{LINK_HEAVY | LINK_THREAD});
  }

 private:
  uintptr_t word_;
};

inline constexpr Link kNullThread{LINK_THREAD};

// The two words are neighbours: the side is an index.
static_assert(offsetof(RecordNode, right) == offsetof(RecordNode, left) + sizeof(uintptr_t));

inline uintptr_t &linkWord(RecordNode *node, Side side) {
  auto *words = reinterpret_cast<unsigned char *>(node) + offsetof(RecordNode, left);
  return *reinterpret_cast<uintptr_t *>(words + sizeof(uintptr_t) * static_cast<uint32_t>(side));
}

inline Link linkOf(RecordNode *node, Side side) {
  return Link(linkWord(node, side));
}

inline void setLink(RecordNode *node, Side side, Link link) {
  linkWord(node, side) = link.word();
}

// Points the link elsewhere; whether this side is the taller one is the node's
// own matter and stays.
inline void redirect(RecordNode *node, Side side, Link link) {
  const bool heavy = linkOf(node, side).isHeavy();
  setLink(node, side, heavy ? link.heavy() : link.light());
}

// ---- Balance: at most one side is heavy -------------------------------------

inline bool isHeavy(RecordNode *node, Side side) {
  return linkOf(node, side).isHeavy();
}

inline bool isBalanced(RecordNode *node) {
  return !isHeavy(node, Side::left) && !isHeavy(node, Side::right);
}

inline void makeHeavy(RecordNode *node, Side side) {
  setLink(node, side, linkOf(node, side).heavy());
}

inline void makeBalanced(RecordNode *node) {
  setLink(node, Side::left, linkOf(node, Side::left).light());
  setLink(node, Side::right, linkOf(node, Side::right).light());
}

}  // namespace morva::core
