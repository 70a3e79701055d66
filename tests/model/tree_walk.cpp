#include "tree_walk.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace morva_test {
namespace {

constexpr uintptr_t kTags = LINK_HEAVY | LINK_THREAD;
constexpr int kDeepest = 90;

RecordNode *address(uintptr_t link) {
  return reinterpret_cast<RecordNode *>(link & ~kTags);
}
bool isThread(uintptr_t link) {
  return (link & LINK_THREAD) != 0;
}
bool isHeavy(uintptr_t link) {
  return (link & LINK_HEAVY) != 0;
}

class Walk {
 public:
  explicit Walk(std::vector<RecordNode *> *nodes) : nodes_(nodes) {}

  // Height of the subtree of `node`, whose nodes lie between `low` and `high`.
  int visit(RecordNode *node, RecordNode *low, RecordNode *high, int depth) {
    if (depth > kDeepest) return fail(node, "the tree is deeper than any balanced tree");
    const int left = side(node, node->left, low,
                          [&](RecordNode *child) { return visit(child, low, node, depth + 1); });
    nodes_->push_back(node);
    const int right = side(node, node->right, high,
                           [&](RecordNode *child) { return visit(child, node, high, depth + 1); });
    if (std::abs(left - right) > 1) fail(node, "its subtrees differ by more than one level");
    if (isHeavy(node->left) != (left > right)) fail(node, "its left heavy bit is wrong");
    if (isHeavy(node->right) != (right > left)) fail(node, "its right heavy bit is wrong");
    return 1 + std::max(left, right);
  }

  std::string fault;

 private:
  template <class Descend>
  int side(RecordNode *node, uintptr_t link, RecordNode *neighbour, Descend descend) {
    if (isThread(link)) {
      if (address(link) != neighbour) fail(node, "a thread does not lead to the neighbour");
      return 0;
    }
    if (address(link) == nullptr) return fail(node, "a child link is null");
    if (!fault.empty()) return 0;
    return descend(address(link));
  }

  int fail(RecordNode *node, const char *what) {
    if (fault.empty()) {
      std::ostringstream text;
      text << "node " << node << " (left " << std::hex << node->left << ", right " << node->right
           << "): " << what;
      fault = text.str();
    }
    return 0;
  }

  std::vector<RecordNode *> *nodes_;
};

}  // namespace

std::string keyOf(RecordNode *node, const TableShape &shape) {
  const char *base = static_cast<const char *>(MORVARecordBase(node));
  if (shape.keyMode == KeyMode::defined) return std::string(base, shape.keyLength);
  KeyPrefix prefix;
  std::memcpy(&prefix, base, sizeof prefix);
  return std::string(base + sizeof prefix, prefix.length);
}

RecordNode *searchTree(RecordNode *root, const std::string &key, const TableShape &shape) {
  const KeyOrder before;
  RecordNode *node = root;
  for (int depth = 0; node != nullptr && depth < kDeepest; ++depth) {
    const std::string here = keyOf(node, shape);
    uintptr_t link;
    if (before(key, here)) {
      link = node->left;
    } else if (before(here, key)) {
      link = node->right;
    } else {
      return node;
    }
    node = isThread(link) ? nullptr : address(link);
  }
  return nullptr;
}

std::string walkTree(RecordNode *root, const MORVAInst *owner, const TableShape &shape,
                     std::vector<RecordNode *> *nodes) {
  if (root == nullptr) return "";
  if ((reinterpret_cast<uintptr_t>(root) & kTags) != 0) return "a root carries tags";
  const size_t start = nodes->size();
  Walk walk(nodes);
  walk.visit(root, nullptr, nullptr, 0);
  if (!walk.fault.empty()) return walk.fault;

  const KeyOrder before;
  std::string last;
  for (size_t i = start; i < nodes->size(); ++i) {
    if ((*nodes)[i]->owner != owner) return "a node in a tree does not name its instance";
    std::string key = keyOf((*nodes)[i], shape);
    if (i > start && !before(last, key)) return "the keys of a tree are not in order";
    last = std::move(key);
  }
  return "";
}

}  // namespace morva_test
