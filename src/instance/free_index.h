// Finding the first free node with room for a variable key without walking
// past all that are too small.
//
// The chain freeRecords stays what it is; its older part, from `first` to the
// end, is also in an index. Releasing a node only pushes it, so the nodes in
// front of `first` are not indexed: they are walked, and join the index when a
// walk gets long.
//
// So a take costs as many steps as a capacity has bits, and a release, sooner or
// later, no more.
//
// Invariants:
//  1. A free node is in front of `first`, or it and all behind it are indexed.
//  2. The stamps of indexed nodes fall along the chain: it is their age.
//  3. All roots are 0 exactly when `first` is null.
#pragma once

#include "morva/inst.h"

namespace morva::core {

// All zero: nothing is indexed. Whoever drops the chain makes it so.
struct FreeIndex {
  static constexpr uint32_t kTrees = 33;

  RecordNode *first;
  uint32_t nextStamp;       // for the next node that joins
  uintptr_t roots[kTrees];  // addresses of nodes: the tops of the trees, by bits of capacity
};

// What an indexed node keeps where its key was. Its KeyPrefix.length is its
// stamp, its links are the branches of a tree.
struct FreeLinks {
  RecordNode *older;   // the next older node of the same capacity
  RecordNode *before;  // the node before it in the chain; not kept at `first`
};

// Front nodes a take may walk past before they join the index.
inline constexpr uint32_t kFrontSteps = 16;

// What stamps stay below. A chain with more nodes than stamps is right, and
// walked as far as it is not indexed.
inline constexpr uint32_t kStampLimit = UINT32_MAX;

// Takes the first node of freeRecords whose capacity is at least `length` off
// the chain, or answers null when there is none. Its owner is the caller's to
// set.
RecordNode *takeFirstFit(MORVAInst &inst, uint32_t length, uint32_t stampLimit = kStampLimit);

}  // namespace morva::core
