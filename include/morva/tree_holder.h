/**
 * @file
 * The node discipline of one bucket's tree: a threaded, height-balanced binary
 * search tree, supplied by the library as a table of callbacks that the host's
 * tree container drives.
 *
 * Invariants between two callbacks on one tree:
 *  1. The heights of a node's two subtrees differ by at most one; the taller
 *     side's link carries LINK_HEAVY, and no node carries it on both links.
 *  2. A missing child is a thread (LINK_THREAD) to the neighbour in key order;
 *     the first node's `left` and the last node's `right` are null threads.
 *  3. Keys are distinct and in order: by length first, then by unsigned bytes,
 *     with flagFixedKey and flagVarKey; by the packed bytes otherwise.
 */
#ifndef MORVA_TREE_HOLDER_H
#define MORVA_TREE_HOLDER_H

#include "morva/base.h"
#include "morva/host_lock.h"
#include "morva/record_node.h"

/** The lock of a tree has the shape of every host lock. */
typedef HostLock TreeLock;

/** What the container hands each callback; built by the container, for the call or for good. */
typedef struct TreeHolder {
  /** Root node without tags, null when the tree is empty. Written when the root changes. */
  RecordNode *root;
  /**
   * Added to a tree node's address to reach its `owner` and key area (never
   * its links), a multiple of 8. The library's own trees have 0.
   */
  int32_t recordOffset;
  uint32_t reserved;
  /** Read by the safe callbacks only, which take it before they read anything else. */
  TreeLock *lock;
} TreeHolder;

MORVA_LAYOUT_FIELD(TreeHolder, root, 0);
MORVA_LAYOUT_FIELD(TreeHolder, recordOffset, 8);
MORVA_LAYOUT_FIELD(TreeHolder, reserved, 12);
MORVA_LAYOUT_FIELD(TreeHolder, lock, 16);
MORVA_LAYOUT_SIZE(TreeHolder, 24);

/**
 * The callbacks, in the order of the exported table. Arguments are trusted:
 * the holder, node and probe must not be null, and are aligned to 8. `probe` is a node-shaped
 * record whose `owner` names the instance and whose key area is filled; its links are neither read
 * nor written, and the record offset is not applied to it.
 *
 * The first four take no lock: the caller serialises changes to one tree. The
 * `safe` four do the same work between one acquire and one release of the
 * holder's lock, in change mode (adder, killer) or in read mode (finder,
 * fuzzier).
 *
 * Cost: at most 1.44 log2(n + 2) key comparisons; nothing is allocated.
 */
typedef struct TreeCallbacks {
  /** Links `node` in and answers it, or answers the node with an equal key and changes nothing. */
  RecordNode *(*adder)(TreeHolder *holder, RecordNode *node);
  /** Answers the node with the probe's key, or null. */
  RecordNode *(*finder)(TreeHolder *holder, RecordNode *probe);
  /**
   * As `finder`; besides, where `prev` and `next` are not null, stores the
   * neighbours of the probe's key in key order there, null where there is none.
   */
  RecordNode *(*fuzzier)(TreeHolder *holder, RecordNode *probe, RecordNode **prev,
                         RecordNode **next);
  /** Unlinks and answers the node with the probe's key, both links 0; null when there is none. */
  RecordNode *(*killer)(TreeHolder *holder, RecordNode *probe);
  /** As `adder`, under the lock. */
  RecordNode *(*safe_adder)(TreeHolder *holder, RecordNode *node);
  /** As `finder`, under the lock. */
  RecordNode *(*safe_finder)(TreeHolder *holder, RecordNode *probe);
  /** As `fuzzier`, under the lock. */
  RecordNode *(*safe_fuzzier)(TreeHolder *holder, RecordNode *probe, RecordNode **prev,
                              RecordNode **next);
  /** As `killer`, under the lock. */
  RecordNode *(*safe_killer)(TreeHolder *holder, RecordNode *probe);
} TreeCallbacks;

MORVA_LAYOUT_FIELD(TreeCallbacks, adder, 0);
MORVA_LAYOUT_FIELD(TreeCallbacks, finder, 8);
MORVA_LAYOUT_FIELD(TreeCallbacks, fuzzier, 16);
MORVA_LAYOUT_FIELD(TreeCallbacks, killer, 24);
MORVA_LAYOUT_FIELD(TreeCallbacks, safe_adder, 32);
MORVA_LAYOUT_FIELD(TreeCallbacks, safe_finder, 40);
MORVA_LAYOUT_FIELD(TreeCallbacks, safe_fuzzier, 48);
MORVA_LAYOUT_FIELD(TreeCallbacks, safe_killer, 56);
MORVA_LAYOUT_SIZE(TreeCallbacks, 64);

MORVA_BEGIN_C

/** aa_tree_adder, aa_tree_finder, aa_tree_fuzzier, aa_tree_killer and their safe twins. */
extern MORVA_API const TreeCallbacks aa_tree;

MORVA_END_C

#endif
