// What the trees must look like, worked out the slow and clear way: every node
// knows its height, nothing carries tags, and the tagged link words are derived
// from the finished shape. Keys are small numbers.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace tree_test {

class TreeModel {
 public:
  struct Node {
    int key;
    int height = 1;
    std::unique_ptr<Node> left, right;
  };
  using NodePtr = std::unique_ptr<Node>;

  // The two link words of a node.
  struct Words {
    uintptr_t left, right;
  };

  TreeModel() = default;
  explicit TreeModel(NodePtr root) : root_(std::move(root)) {}
  TreeModel(const TreeModel &other) : root_(clone(other.root_)) {}
  TreeModel(TreeModel &&) = default;
  TreeModel &operator=(TreeModel &&) = default;

  // True when the tree has changed.
  bool add(int key) { return add(root_, key); }
  bool kill(int key) { return kill(root_, key); }

  bool contains(int key) const;
  std::optional<int> rootKey() const;
  std::vector<int> keys() const;
  // The neighbours of a key that need not be there.
  std::optional<int> before(int key) const;
  std::optional<int> after(int key) const;
  int height() const { return heightOf(root_); }

  // Calls `visit` with every key and the words its node must have, given where
  // each key's node lies.
  void eachNode(const std::function<uintptr_t(int)> &addressOf,
                const std::function<void(int, Words)> &visit) const;

  // Every height-balanced shape of `count` nodes, keyed first, first + step, ...
  static std::vector<NodePtr> allShapes(int count, int first, int step);
  // The thinnest tree of that height, leaning left or right.
  static NodePtr thinnest(int height, bool leansRight, int &nextKey, int step);

  static NodePtr clone(const NodePtr &node);

 private:
  static int heightOf(const NodePtr &node) { return node ? node->height : 0; }
  static int balanceOf(const Node &node) { return heightOf(node.right) - heightOf(node.left); }
  static void measure(Node &node);
  static void raise(NodePtr &top, NodePtr Node::*side, NodePtr Node::*other);
  static void restore(NodePtr &top);
  static bool add(NodePtr &top, int key);
  static bool kill(NodePtr &top, int key);
  static NodePtr takeLast(NodePtr &top);
  static NodePtr takeFirst(NodePtr &top);

  NodePtr root_;
};

}  // namespace tree_test
