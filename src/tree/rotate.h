// Restoring balance where one side has become two levels taller
// (G. M. Adelson-Velsky, E. M. Landis, 1962), in a tree with threads.
#pragma once

#include "tree/link.h"

namespace morva::core {

struct Rotated {
  RecordNode *top;  // to be hung where `node` was
  bool lower;       // the subtree lost a level
};

// `node` is heavy on `side`, and its subtree there is one level too tall.
Rotated rotate(RecordNode *node, Side side);

}  // namespace morva::core
