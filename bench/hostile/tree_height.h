// The height of a bucket's tree, read from its link words.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

#include "morva/search.hpp"

namespace bench::hostile {

struct TreeSize {
  size_t nodes = 0;
  size_t height = 0;  // levels: 0 of an empty tree, 1 of a root alone
};

inline TreeSize sizeOf(RecordNode *root) {
  TreeSize size;
  std::vector<std::pair<RecordNode *, size_t>> open;
  if (root != nullptr) open.emplace_back(root, 1);
  while (!open.empty()) {
    const auto [node, level] = open.back();
    open.pop_back();
    ++size.nodes;
    size.height = std::max(size.height, level);
    for (const std::uintptr_t link : {node->left, node->right}) {
      if (!morva::detail::is_thread(link)) {
        open.emplace_back(morva::detail::node_of(link), level + 1);
      }
    }
  }
  return size;
}

// What a height-balanced tree of `nodes` nodes never exceeds.
inline double heightBound(size_t nodes) {
  return 1.44 * std::log2(static_cast<double>(nodes) + 2);
}

}  // namespace bench::hostile
