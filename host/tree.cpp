#include "tree.h"

#include <new>

#include "host_state.h"

namespace qzhost {

namespace {

Tree *treeOf(TreeContainer *table) {
  return reinterpret_cast<Tree *>(table);
}

// ---- without locks -------------------------------------------------------

RecordNode *insertNode(TreeContainer *table, Bucket *bucket, RecordNode *node, BucketArray *) {
  TreeHolder holder{bucket->root, 0, 0, nullptr};
  RecordNode *answer = treeOf(table)->callbacks.adder(&holder, node);
  if (holder.root != bucket->root) bucket->root = holder.root;
  return answer;
}

RecordNode *findNode(TreeContainer *table, Bucket *bucket, RecordNode *probe) {
  TreeHolder holder{bucket->root, 0, 0, nullptr};
  return treeOf(table)->callbacks.finder(&holder, probe);
}

RecordNode *removeNode(TreeContainer *table, Bucket *bucket, RecordNode *probe) {
  TreeHolder holder{bucket->root, 0, 0, nullptr};
  RecordNode *answer = treeOf(table)->callbacks.killer(&holder, probe);
  if (holder.root != bucket->root) bucket->root = holder.root;
  return answer;
}

// ---- walking -------------------------------------------------------------

RecordNode *addressOf(uintptr_t link) {
  return reinterpret_cast<RecordNode *>(link & ~uintptr_t{LINK_HEAVY | LINK_THREAD});
}

RecordNode *leftmost(RecordNode *node) {
  while ((node->left & LINK_THREAD) == 0) node = addressOf(node->left);
  return node;
}

RecordNode *firstNode(TreeContainer *, Bucket *bucket) {
  return bucket->root != nullptr ? leftmost(bucket->root) : nullptr;
}

RecordNode *nextNode(RecordNode *node) {
  RecordNode *right = addressOf(node->right);
  return (node->right & LINK_THREAD) != 0 ? right : leftmost(right);
}

// ---- with a lock per bucket ----------------------------------------------

Lock *lockOfBucket(TreeContainer *table, const Bucket *bucket) {
  const uint64_t mixed =
      (reinterpret_cast<uintptr_t>(bucket) / sizeof(Bucket)) * UINT64_C(0x9E3779B97F4A7C15);
  return &treeOf(table)->locks->ofBuckets[mixed >> (64 - TreeLocks::kBits)];
}

RecordNode *insertLocked(TreeContainer *table, Bucket *bucket, RecordNode *node, BucketArray *) {
  Lock *lock = lockOfBucket(table, bucket);
  const Holding holding(lock, MORVA_LOCK_CHANGE);
  TreeHolder holder{bucket->root, 0, 0, &lock->table};
  RecordNode *answer = treeOf(table)->callbacks.safe_adder(&holder, node);
  if (holder.root != bucket->root) bucket->root = holder.root;
  return answer;
}

RecordNode *findLocked(TreeContainer *table, Bucket *bucket, RecordNode *probe) {
  Lock *lock = lockOfBucket(table, bucket);
  const Holding holding(lock, MORVA_LOCK_READ);
  TreeHolder holder{bucket->root, 0, 0, &lock->table};
  return treeOf(table)->callbacks.safe_finder(&holder, probe);
}

RecordNode *removeLocked(TreeContainer *table, Bucket *bucket, RecordNode *probe) {
  Lock *lock = lockOfBucket(table, bucket);
  const Holding holding(lock, MORVA_LOCK_CHANGE);
  TreeHolder holder{bucket->root, 0, 0, &lock->table};
  RecordNode *answer = treeOf(table)->callbacks.safe_killer(&holder, probe);
  if (holder.root != bucket->root) bucket->root = holder.root;
  return answer;
}

RecordNode *firstLocked(TreeContainer *table, Bucket *bucket) {
  const Holding holding(lockOfBucket(table, bucket), MORVA_LOCK_READ);
  return firstNode(table, bucket);
}

// ---- making and destroying -----------------------------------------------

void destroyTree(TreeContainer *table) {
  if (table == nullptr) return;
  Tree *tree = treeOf(table);
  delist(tree->host, tree->host->trees, tree);
  delete tree->locks;
  delete tree;
}

}  // namespace

TreeLocks::TreeLocks(QZHost *host) : container(host) {
  for (BucketLock &lock : ofBuckets) lock.host = host;
}

Tree::Tree(QZHost *owningHost, const TreeCallbacks *treeCallbacks, TreeLocks *treeLocks)
    : table{}, callbacks(*treeCallbacks), locks(treeLocks), host(owningHost) {
  table.destroy = destroyTree;
  table.next = nextNode;
  if (locks == nullptr) {
    table.insert = insertNode;
    table.find = findNode;
    table.remove = removeNode;
    table.first = firstNode;
  } else {
    table.lock = &locks->container.table;
    table.insert = insertLocked;
    table.find = findLocked;
    table.remove = removeLocked;
    table.first = firstLocked;
  }
}

bool isPlain(const TreeContainer *table) {
  return table->find == findNode;
}

void releaseTreeExt(TreeExt *companion) {
  if (companion != nullptr) Companion<TreeExt>::of(companion)->release();
}

TreeContainer *makeTree(TreeExt *companion, const TreeOptions *options, uint64_t, uint64_t) {
  if (companion == nullptr || options == nullptr || options->callbacks == nullptr) return nullptr;
  QZHost *host = Companion<TreeExt>::of(companion)->host;
  TreeLocks *locks = nullptr;
  if (host->options.lockedTrees != 0) {
    locks = new (std::nothrow) TreeLocks(host);
    if (locks == nullptr) return nullptr;
  }
  auto *tree = new (std::nothrow) Tree(host, options->callbacks, locks);
  if (tree == nullptr) {
    delete locks;
    return nullptr;
  }
  enlist(host, host->trees, tree);
  return &tree->table;
}

}  // namespace qzhost
