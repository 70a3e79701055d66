// Tree callbacks that tell how they were called: with them a tree container is
// tried without the library. They keep the tree that morva/tree_holder.h
// describes, in the plainest way.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "morva/tree_container.h"

namespace morva::cli::check {

// A record under the checker's callbacks; its key is a number.
struct NumberedNode {
  RecordNode node;
  uint64_t key;
};

enum class Called { kAdder, kFinder, kKiller };

struct CallOfTree {
  Called called;
  bool safe;
  // As it was when the callback had the lock, if it is a safe one.
  RecordNode *root;
  int32_t recordOffset;
  TreeLock *lock;
  RecordNode *node;
  RecordNode *answer;
  // The root that the callback left.
  RecordNode *newRoot;
};

// The table for TreeOptions.callbacks. There are two, which do the same and
// write their calls down apart.
const TreeCallbacks *numberedCallbacks(int which = 0);

// What was called since this was last asked; from any thread.
std::vector<CallOfTree> callsOfTrees(int which = 0);

// Writes nothing down from now on: for many calls in several threads.
void stopWritingCallsDown();

// For that: how often a safe callback found another one at work under its lock
// that excludes it, or a root that is not the one of the bucket any more.
uint64_t collisionsOfTrees();
// The bucket that collisions are looked for in.
void watchBucket(const Bucket *bucket);

}  // namespace morva::cli::check
