// What the checks of tree containers work with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host_callbacks.h"
#include "host_subject.h"

namespace morva::cli::check {

// A bucket array as instances have one: its header, then the buckets.
struct TreeBuckets {
  explicit TreeBuckets(uint32_t count) : words(2 * count + 4) { array()->mask = count - 1; }
  BucketArray *array() { return reinterpret_cast<BucketArray *>(words.data()); }
  Bucket *at(uint32_t index) { return MORVABucketAt(array(), index); }

  std::vector<uint64_t> words;
};

// Nodes with the keys 0, 10, 20 and so on, of an instance that says nothing.
class TreeNodes {
 public:
  explicit TreeNodes(size_t count) : nodes_(count) {
    for (size_t i = 0; i < count; ++i) nodes_[i] = {{0, 0, &owner_}, i * 10};
  }
  RecordNode *at(size_t i) { return &nodes_[i].node; }
  // A probe for any key; good until the next one is asked for.
  RecordNode *probe(uint64_t key) {
    probe_ = {{0, 0, &owner_}, key};
    return &probe_.node;
  }

 private:
  std::vector<NumberedNode> nodes_;
  NumberedNode probe_{};
  MORVAInst owner_{};
};

inline TreeContainer *newTree(TreeExt *companion, int which = 0) {
  const TreeOptions options{0, 0, 1, numberedCallbacks(which), 0};
  TreeContainer *tree = companion->makeTree(companion, &options, 0, 0);
  expect(tree != nullptr, "makeTree answers null");
  return tree;
}

// A host, its companion and a container.
struct TreeBench {
  explicit TreeBench(Host &theHost)
      : host(theHost), companion(host.trees()), tree(newTree(companion)) {
    callsOfTrees();
  }
  void end() const {
    tree->destroy(tree);
    companion->release(companion);
    host.endWithNothingLeft();
  }
  RecordNode *insert(TreeBuckets &buckets, uint32_t index, RecordNode *node) const {
    return tree->insert(tree, buckets.at(index), node, buckets.array());
  }

  Host &host;
  TreeExt *companion;
  TreeContainer *tree;
};

inline const char *nameOf(Called called) {
  switch (called) {
    case Called::kAdder:
      return "adder";
    case Called::kFinder:
      return "finder";
    case Called::kKiller:
      break;
  }
  return "killer";
}

}  // namespace morva::cli::check
