// The companion "qzeavl": trees of buckets, driven through the library's
// callbacks.
//
// A container holds no trees itself: every call names a bucket, from which a
// TreeHolder is built on the stack; a root that the callback changed goes back
// into the bucket.
//
// With QZHostOptions.lockedTrees a container has 64 locks, and a bucket belongs
// to one of them by its address. Since the holder's root is copied from the
// bucket before the callback can take the lock, the container takes the same
// lock around all of it, in the callback's mode; the locks are re-entrant. Two
// buckets may share a lock; no call ever holds two of them.
//
// Thread-safety: as morva/tree_container.h says; with locked trees find may run
// beside insert and remove, on the same bucket too.
#pragma once

#include <cstdint>
#include <type_traits>

#include "intrusive_list.h"
#include "lock.h"
#include "morva/tree_container.h"

struct QZHost;

namespace qzhost {

// A lock in an array, which cannot tell its elements whose they are.
struct BucketLock : Lock {
  BucketLock() : Lock(nullptr) {}
};

struct TreeLocks {
  static constexpr int kBits = 6;
  explicit TreeLocks(QZHost *host);

  // What the table names as the container's own.
  Lock container;
  BucketLock ofBuckets[1 << kBits];
};

struct Tree {
  explicit Tree(QZHost *host, const TreeCallbacks *callbacks, TreeLocks *locks);

  TreeContainer table;
  // A copy: one step less for every operation.
  TreeCallbacks callbacks;
  TreeLocks *locks;
  QZHost *host;
  Link<Tree> link;
};
static_assert(std::is_standard_layout_v<Tree>, "a container is its table");

// Whether a container is one of these, without locks: then its trees may be
// walked as morva/search.hpp walks them.
bool isPlain(const TreeContainer *table);

// The slots of the companion.
void releaseTreeExt(TreeExt *companion);
TreeContainer *makeTree(TreeExt *companion, const TreeOptions *options, uint64_t, uint64_t);

}  // namespace qzhost
