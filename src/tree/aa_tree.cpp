// The exported table of tree callbacks, and the locked twins: the same work
// between one acquisition and one release of the tree's own lock.
#include "ext/scope_lock.h"
#include "tree/callbacks.h"

namespace morva::core {
namespace {

// The lock is held before the callback reads anything of the holder, its root
// included, and until its last write is done.

RecordNode *aa_tree_safe_adder(TreeHolder *holder, RecordNode *node) {
  ScopeLock lock(holder->lock, MORVA_LOCK_CHANGE);
  return aa_tree_adder(holder, node);
}

RecordNode *aa_tree_safe_finder(TreeHolder *holder, RecordNode *probe) {
  ScopeLock lock(holder->lock, MORVA_LOCK_READ);
  return aa_tree_finder(holder, probe);
}

RecordNode *aa_tree_safe_fuzzier(TreeHolder *holder, RecordNode *probe, RecordNode **prev,
                                 RecordNode **next) {
  ScopeLock lock(holder->lock, MORVA_LOCK_READ);
  return aa_tree_fuzzier(holder, probe, prev, next);
}

RecordNode *aa_tree_safe_killer(TreeHolder *holder, RecordNode *probe) {
  ScopeLock lock(holder->lock, MORVA_LOCK_CHANGE);
  return aa_tree_killer(holder, probe);
}

}  // namespace
}  // namespace morva::core

extern "C" const TreeCallbacks aa_tree = {
    .adder = morva::core::aa_tree_adder,
    .finder = morva::core::aa_tree_finder,
    .fuzzier = morva::core::aa_tree_fuzzier,
    .killer = morva::core::aa_tree_killer,
    .safe_adder = morva::core::aa_tree_safe_adder,
    .safe_finder = morva::core::aa_tree_safe_finder,
    .safe_fuzzier = morva::core::aa_tree_safe_fuzzier,
    .safe_killer = morva::core::aa_tree_safe_killer,
};
