/**
 * @file
 * The companion extension "qzeavl" and the object it makes: the tree
 * container, which keeps the trees of all buckets of one instance by driving
 * the library's tree callbacks.
 *
 *   TreeExt slot         2        9
 *                        release  makeTree
 *
 *   TreeContainer word   2        3     5     12    14      15    17      18
 *                        destroy  head  lock  next  insert  find  remove  first
 */
#ifndef MORVA_TREE_CONTAINER_H
#define MORVA_TREE_CONTAINER_H

#include "morva/base.h"
#include "morva/bucket_array.h"
#include "morva/tree_holder.h"

/** What TreeExt.makeTree is told. */
typedef struct TreeOptions {
  uint64_t reserved0;
  /** 0. */
  uint32_t word0;
  /** 1. */
  uint32_t word1;
  /** The library's `aa_tree`; the container calls one set of four, plain or safe. */
  const TreeCallbacks *callbacks;
  uint64_t reserved24;
} TreeOptions;

MORVA_LAYOUT_FIELD(TreeOptions, reserved0, 0);
MORVA_LAYOUT_FIELD(TreeOptions, word0, 8);
MORVA_LAYOUT_FIELD(TreeOptions, word1, 12);
MORVA_LAYOUT_FIELD(TreeOptions, callbacks, 16);
MORVA_LAYOUT_FIELD(TreeOptions, reserved24, 24);
MORVA_LAYOUT_SIZE(TreeOptions, 32);

typedef struct TreeContainer TreeContainer;

/**
 * A bucket is not a TreeHolder: the container builds the holder (root from the
 * bucket, record offset 0, a lock where it calls the safe callbacks) and
 * writes a changed root back. It must not remember roots: the clear operations
 * empty buckets themselves. All are called under the instance's lock, find also
 * without it by MORVAFind2 and MORVAFindNode.
 */
struct TreeContainer {
  void *slot0[2];
  /** Destroys the container; nodes still in trees are the instance's, not its. */
  void (*destroy)(TreeContainer *tree);
  /** The container's; MORVAClear2 sets it to 0, under `lock` if there is one. */
  void *head;
  void *slot4;
  /** The container's lock, or null. Read by MORVAClear2 only. */
  HostLock *lock;
  void *slot6[6];
  /** The node after `node` in key order, or null. Called with the node alone. */
  RecordNode *(*next)(RecordNode *node);
  void *slot13;
  /** Inserts `node` into the tree of `bucket`; answers it, or the node with an equal key. */
  RecordNode *(*insert)(TreeContainer *tree, Bucket *bucket, RecordNode *node,
                        BucketArray *buckets);
  /** Answers the node of `bucket` whose key equals the probe's, or null. */
  RecordNode *(*find)(TreeContainer *tree, Bucket *bucket, RecordNode *probe);
  void *slot16;
  /** Unlinks and answers the node of `bucket` whose key equals the probe's, or null. */
  RecordNode *(*remove)(TreeContainer *tree, Bucket *bucket, RecordNode *probe);
  /** The first node of `bucket` in key order, or null. */
  RecordNode *(*first)(TreeContainer *tree, Bucket *bucket);
};

MORVA_LAYOUT_FIELD(TreeContainer, slot0, 0);
MORVA_LAYOUT_FIELD(TreeContainer, destroy, 16);
MORVA_LAYOUT_FIELD(TreeContainer, head, 24);
MORVA_LAYOUT_FIELD(TreeContainer, slot4, 32);
MORVA_LAYOUT_FIELD(TreeContainer, lock, 40);
MORVA_LAYOUT_FIELD(TreeContainer, slot6, 48);
MORVA_LAYOUT_FIELD(TreeContainer, next, 96);
MORVA_LAYOUT_FIELD(TreeContainer, slot13, 104);
MORVA_LAYOUT_FIELD(TreeContainer, insert, 112);
MORVA_LAYOUT_FIELD(TreeContainer, find, 120);
MORVA_LAYOUT_FIELD(TreeContainer, slot16, 128);
MORVA_LAYOUT_FIELD(TreeContainer, remove, 136);
MORVA_LAYOUT_FIELD(TreeContainer, first, 144);
MORVA_LAYOUT_SIZE(TreeContainer, 152);

typedef struct TreeExt TreeExt;

/** What HostServices.loadExtension answers for U"qzeavl". */
struct TreeExt {
  void *slot0[2];
  /** Releases the companion; objects it made are destroyed before. */
  void (*release)(TreeExt *companion);
  void *slot3[6];
  /** Makes a container. `options` is valid during the call. Null fails the creation. */
  TreeContainer *(*makeTree)(TreeExt *companion, const TreeOptions *options, uint64_t zero1,
                             uint64_t zero2);
};

MORVA_LAYOUT_FIELD(TreeExt, slot0, 0);
MORVA_LAYOUT_FIELD(TreeExt, release, 16);
MORVA_LAYOUT_FIELD(TreeExt, slot3, 24);
MORVA_LAYOUT_FIELD(TreeExt, makeTree, 72);
MORVA_LAYOUT_SIZE(TreeExt, 80);

#endif
