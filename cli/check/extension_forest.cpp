#include "extension_forest.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace morva::cli::check {

namespace {

const RecordNode *address(uintptr_t link) {
  return reinterpret_cast<const RecordNode *>(link & ~uintptr_t{LINK_HEAVY | LINK_THREAD});
}

}  // namespace

// The height of the tree at `node`, whose neighbours in order are known.
int Forest::examine(const RecordNode *node, const RecordNode *before, const RecordNode *after,
                    std::vector<RecordNode *> &nodes, int depth) const {
  expect(depth < 64, "a tree is too high, or its links lead in a circle");
  int heights[2] = {0, 0};
  const uintptr_t links[2] = {node->left, node->right};
  const RecordNode *neighbours[2] = {before, after};
  for (const int side : {0, 1}) {
    if (side == 1) nodes.push_back(const_cast<RecordNode *>(node));
    if ((links[side] & LINK_THREAD) != 0) {
      expect(address(links[side]) == neighbours[side],
             "a thread does not lead to the neighbour in key order");
      heights[side] = 0;
    } else {
      expect(address(links[side]) != nullptr, "a link is neither a thread nor a child");
      heights[side] = examine(address(links[side]), side == 0 ? before : node,
                              side == 0 ? node : after, nodes, depth + 1);
    }
  }
  const int difference = heights[1] - heights[0];
  expect(std::abs(difference) <= 1, "the heights of a node's subtrees differ by more than one");
  expectEqual((links[0] & LINK_HEAVY) != 0, difference < 0, "the heavy bit of a left link");
  expectEqual((links[1] & LINK_HEAVY) != 0, difference > 0, "the heavy bit of a right link");
  return std::max(heights[0], heights[1]) + 1;
}

std::vector<RecordNode *> Forest::examined() const {
  std::vector<RecordNode *> nodes;
  height_ = holder.root == nullptr ? 0 : examine(holder.root, nullptr, nullptr, nodes, 0);
  const bool packed = table_.shape().packed();
  for (size_t at = 1; at < nodes.size(); ++at) {
    const std::string low = keyOf(nodes[at - 1]), high = keyOf(nodes[at]);
    const bool ascending =
        !packed && low.size() != high.size()
            ? low.size() < high.size()
            : std::memcmp(low.data(), high.data(), std::min(low.size(), high.size())) < 0;
    expect(ascending, "the nodes of a tree are not in key order");
  }
  return nodes;
}

std::string padded(uint64_t number) {
  std::string key(8, '\0');
  for (int at = 0; at != 8; ++at) key[7 - at] = static_cast<char>(number >> (8 * at));
  return key;
}

Table ownerOf(Lab &lab, uint32_t mode) {
  return Table(lab, {.flags = mode, .keyLength = 8});
}

}  // namespace morva::cli::check
