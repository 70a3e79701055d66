// Faults of tree containers.

#include "faulty_host.h"

namespace faulty {

namespace {

struct TreeState {
  TreeContainer original{};
  const TreeCallbacks *callbacks = nullptr;
  const TreeOptions *options = nullptr;
};

Known<TreeState> trees;
Known<RecordNode *> roots;
const TreeCallbacks *lastCallbacks = nullptr;

const TreeCallbacks *callbacksOf(TreeContainer *tree) {
  return faultIs("has-one-set-of-callbacks") ? lastCallbacks : trees.of(tree).callbacks;
}

// ---- Containers that look at their buckets in another way --------------------------

bool servesItself() {
  return faultIs("remembers-roots") || faultIs("has-one-set-of-callbacks") ||
         faultIs("gives-a-record-offset") || faultIs("reads-the-root-too-early");
}

struct Visit {
  Visit(TreeContainer *tree, Bucket *bucket) : tree_(tree), bucket_(bucket) {
    RecordNode *root = bucket->root;
    if (faultIs("remembers-roots") && roots.of(bucket) != nullptr) root = roots.of(bucket);
    holder = {root, faultIs("gives-a-record-offset") ? 8 : 0, 0, tree->lock};
  }
  void writeBack() {
    bucket_->root = holder.root;
    roots.of(bucket_) = holder.root;
  }
  const TreeCallbacks &callbacks() const { return *callbacksOf(tree_); }
  bool locked() const { return holder.lock != nullptr; }

  TreeHolder holder{};

 private:
  TreeContainer *tree_;
  Bucket *bucket_;
};

RecordNode *insertItself(TreeContainer *tree, Bucket *bucket, RecordNode *node, BucketArray *) {
  Visit visit(tree, bucket);
  RecordNode *answer = (visit.locked() ? visit.callbacks().safe_adder : visit.callbacks().adder)(
      &visit.holder, node);
  visit.writeBack();
  return answer;
}

RecordNode *findItself(TreeContainer *tree, Bucket *bucket, RecordNode *probe) {
  Visit visit(tree, bucket);
  return (visit.locked() ? visit.callbacks().safe_finder : visit.callbacks().finder)(&visit.holder,
                                                                                     probe);
}

RecordNode *removeItself(TreeContainer *tree, Bucket *bucket, RecordNode *probe) {
  Visit visit(tree, bucket);
  RecordNode *answer = (visit.locked() ? visit.callbacks().safe_killer : visit.callbacks().killer)(
      &visit.holder, probe);
  visit.writeBack();
  return answer;
}

// ---- The embedded host's containers, with something changed ---------------------------

RecordNode *insertNode(TreeContainer *tree, Bucket *bucket, RecordNode *node,
                       BucketArray *buckets) {
  RecordNode *root = bucket->root;
  if (faultIs("keeps-options-of-trees") && trees.of(tree).options->word1 != 1) return nullptr;
  if (faultIs("uses-one-bucket")) bucket = MORVABucketAt(buckets, 0);
  RecordNode *answer = trees.of(tree).original.insert(tree, bucket, node, buckets);
  if (faultIs("keeps-the-first-root") && root != nullptr) bucket->root = root;
  if (faultIs("answers-the-given-node")) return node;
  return answer;
}

RecordNode *findNode(TreeContainer *tree, Bucket *bucket, RecordNode *probe) {
  if (faultIs("counts-searches-in-buckets")) bucket->reserved += 1;
  if (faultIs("finds-nothing-in-full-trees") && bucket->root != nullptr &&
      (bucket->root->left & LINK_THREAD) == 0) {
    return nullptr;
  }
  return trees.of(tree).original.find(tree, bucket, probe);
}

RecordNode *removeNode(TreeContainer *tree, Bucket *bucket, RecordNode *probe) {
  const TreeState &state = trees.of(tree);
  if (faultIs("removes-by-finding")) return state.original.find(tree, bucket, probe);
  RecordNode *answer = state.original.remove(tree, bucket, probe);
  // A lock too many, where there is one.
  if (faultIs("keeps-a-lock") && answer == nullptr && tree->lock != nullptr) {
    tree->lock->acquire(tree->lock, MORVA_LOCK_CHANGE, 1);
  }
  if (faultIs("answers-the-probe") && answer == nullptr) return probe;
  return answer;
}

RecordNode *firstNode(TreeContainer *tree, Bucket *bucket) {
  if (faultIs("begins-at-the-root")) return bucket->root;
  return trees.of(tree).original.first(tree, bucket);
}

RecordNode *nextNode(RecordNode *node) {
  if (faultIs("takes-children-for-neighbours")) {
    return reinterpret_cast<RecordNode *>(node->right & ~uintptr_t{LINK_HEAVY | LINK_THREAD});
  }
  return originals.tree.next(node);
}

// With its lock taken around every call, so that a lock too many is felt.
template <auto function, class... Rest>
auto underTheLock(TreeContainer *tree, Rest... rest) {
  if (tree->lock == nullptr) return function(tree, rest...);
  tree->lock->acquire(tree->lock, MORVA_LOCK_CHANGE, 1);
  auto *answer = function(tree, rest...);
  tree->lock->release(tree->lock);
  return answer;
}

// Safe callbacks that are the plain ones.
const TreeCallbacks *unsafe(const TreeCallbacks *callbacks) {
  static TreeCallbacks table;
  table = *callbacks;
  table.safe_adder = table.adder;
  table.safe_finder = table.finder;
  table.safe_killer = table.killer;
  return &table;
}

// Of a plain set one safe callback.
const TreeCallbacks *mixed(const TreeCallbacks *callbacks) {
  static TreeCallbacks table;
  table = *callbacks;
  table.finder = table.safe_finder;
  return &table;
}

TreeContainer *makeTree(TreeExt *companion, const TreeOptions *options, uint64_t zero1,
                        uint64_t zero2) {
  TreeOptions wanted = *options;
  if (faultIs("locks-no-trees")) wanted.callbacks = unsafe(options->callbacks);
  if (faultIs("mixes-the-callbacks")) wanted.callbacks = mixed(options->callbacks);
  TreeContainer *tree = originals.trees.makeTree(companion, &wanted, zero1, zero2);
  TreeState &state = trees.of(tree);
  state = {*tree, options->callbacks, options};
  lastCallbacks = options->callbacks;
  tree->next = nextNode;
  tree->first = firstNode;
  tree->insert = insertNode;
  tree->find = findNode;
  tree->remove = removeNode;
  if (faultIs("keeps-a-lock")) {
    tree->insert = underTheLock<insertNode, Bucket *, RecordNode *, BucketArray *>;
  }
  if (faultIs("has-trees-without-first")) tree->first = nullptr;
  if (servesItself()) {
    tree->insert = insertItself;
    tree->find = findItself;
    tree->remove = removeItself;
  }
  return tree;
}

}  // namespace

void spoilTrees(TreeExt *companion) {
  companion->makeTree = makeTree;
}

}  // namespace faulty
