#include "tree_model.h"

#include <algorithm>

#include "morva/record_node.h"

namespace tree_test {

void TreeModel::measure(Node &node) {
  node.height = 1 + std::max(heightOf(node.left), heightOf(node.right));
}

// The child on `side` becomes the top; the old top becomes its child on the
// other side.
void TreeModel::raise(NodePtr &top, NodePtr Node::*side, NodePtr Node::*other) {
  NodePtr risen = std::move((*top).*side);
  (*top).*side = std::move((*risen).*other);
  measure(*top);
  (*risen).*other = std::move(top);
  measure(*risen);
  top = std::move(risen);
}

// Height-balances a top whose two sides differ by two at most. An inner
// grandchild that is the taller one rises twice; else the child rises once.
void TreeModel::restore(NodePtr &top) {
  measure(*top);
  const int balance = balanceOf(*top);
  if (balance < -1) {
    if (balanceOf(*top->left) > 0) raise(top->left, &Node::right, &Node::left);
    raise(top, &Node::left, &Node::right);
  } else if (balance > 1) {
    if (balanceOf(*top->right) < 0) raise(top->right, &Node::left, &Node::right);
    raise(top, &Node::right, &Node::left);
  }
}

bool TreeModel::add(NodePtr &top, int key) {
  if (!top) {
    top = std::make_unique<Node>();
    top->key = key;
    return true;
  }
  if (key == top->key) return false;
  if (!add(key < top->key ? top->left : top->right, key)) return false;
  restore(top);
  return true;
}

TreeModel::NodePtr TreeModel::takeLast(NodePtr &top) {
  if (top->right) {
    NodePtr last = takeLast(top->right);
    restore(top);
    return last;
  }
  NodePtr last = std::move(top);
  top = std::move(last->left);
  return last;
}

TreeModel::NodePtr TreeModel::takeFirst(NodePtr &top) {
  if (top->left) {
    NodePtr first = takeFirst(top->left);
    restore(top);
    return first;
  }
  NodePtr first = std::move(top);
  top = std::move(first->right);
  return first;
}

bool TreeModel::kill(NodePtr &top, int key) {
  if (!top) return false;
  if (key != top->key) {
    if (!kill(key < top->key ? top->left : top->right, key)) return false;
    restore(top);
    return true;
  }
  if (!top->left || !top->right) {
    NodePtr rest = std::move(top->left ? top->left : top->right);
    top = std::move(rest);
    return true;
  }
  // The tie goes to the predecessor.
  NodePtr heir = balanceOf(*top) > 0 ? takeFirst(top->right) : takeLast(top->left);
  heir->left = std::move(top->left);
  heir->right = std::move(top->right);
  top = std::move(heir);
  restore(top);
  return true;
}

bool TreeModel::contains(int key) const {
  const Node *node = root_.get();
  while (node && node->key != key) node = (key < node->key ? node->left : node->right).get();
  return node != nullptr;
}

std::optional<int> TreeModel::rootKey() const {
  if (!root_) return std::nullopt;
  return root_->key;
}

std::optional<int> TreeModel::before(int key) const {
  std::optional<int> found;
  for (const Node *node = root_.get(); node;) {
    if (node->key < key) found = node->key;
    node = (node->key < key ? node->right : node->left).get();
  }
  return found;
}

std::optional<int> TreeModel::after(int key) const {
  std::optional<int> found;
  for (const Node *node = root_.get(); node;) {
    if (node->key > key) found = node->key;
    node = (node->key > key ? node->left : node->right).get();
  }
  return found;
}

namespace {

void inOrder(const TreeModel::Node *node, std::vector<const TreeModel::Node *> &list) {
  if (!node) return;
  inOrder(node->left.get(), list);
  list.push_back(node);
  inOrder(node->right.get(), list);
}

}  // namespace

std::vector<int> TreeModel::keys() const {
  std::vector<const Node *> list;
  inOrder(root_.get(), list);
  std::vector<int> keys;
  for (const Node *node : list) keys.push_back(node->key);
  return keys;
}

void TreeModel::eachNode(const std::function<uintptr_t(int)> &addressOf,
                         const std::function<void(int, Words)> &visit) const {
  std::vector<const Node *> list;
  inOrder(root_.get(), list);
  for (size_t i = 0; i < list.size(); i++) {
    const Node &node = *list[i];
    const uintptr_t previous = i > 0 ? addressOf(list[i - 1]->key) : 0;
    const uintptr_t next = i + 1 < list.size() ? addressOf(list[i + 1]->key) : 0;
    Words words;
    words.left = node.left ? addressOf(node.left->key) : previous + LINK_THREAD;
    words.right = node.right ? addressOf(node.right->key) : next + LINK_THREAD;
    if (balanceOf(node) < 0) words.left += LINK_HEAVY;
    if (balanceOf(node) > 0) words.right += LINK_HEAVY;
    visit(node.key, words);
  }
}

std::vector<TreeModel::NodePtr> TreeModel::allShapes(int count, int first, int step) {
  std::vector<NodePtr> shapes;
  if (count == 0) {
    shapes.push_back(nullptr);
    return shapes;
  }
  for (int below = 0; below < count; below++) {
    const auto lefts = allShapes(below, first, step);
    const auto rights = allShapes(count - 1 - below, first + (below + 1) * step, step);
    for (const NodePtr &left : lefts) {
      for (const NodePtr &right : rights) {
        if (std::abs(heightOf(left) - heightOf(right)) > 1) continue;
        auto top = std::make_unique<Node>();
        top->key = first + below * step;
        top->left = clone(left);
        top->right = clone(right);
        measure(*top);
        shapes.push_back(std::move(top));
      }
    }
  }
  return shapes;
}

TreeModel::NodePtr TreeModel::thinnest(int height, bool leansRight, int &nextKey, int step) {
  if (height <= 0) return nullptr;
  auto top = std::make_unique<Node>();
  top->left = thinnest(leansRight ? height - 2 : height - 1, leansRight, nextKey, step);
  top->key = nextKey;
  nextKey += step;
  top->right = thinnest(leansRight ? height - 1 : height - 2, leansRight, nextKey, step);
  measure(*top);
  return top;
}

TreeModel::NodePtr TreeModel::clone(const NodePtr &node) {
  if (!node) return nullptr;
  auto copy = std::make_unique<Node>();
  copy->key = node->key;
  copy->height = node->height;
  copy->left = clone(node->left);
  copy->right = clone(node->right);
  return copy;
}

}  // namespace tree_test
