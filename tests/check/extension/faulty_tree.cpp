// Extensions with a fault in a tree callback.
#include <dlfcn.h>

#include <atomic>

#include "faults.h"
#include "morva/morva.h"

namespace {

const TreeCallbacks &real() {
  static const auto *table = static_cast<const TreeCallbacks *>(dlsym(RTLD_NEXT, "aa_tree"));
  return *table;
}

RecordNode *addressOf(uintptr_t link) {
  return reinterpret_cast<RecordNode *>(link & ~uintptr_t{LINK_HEAVY | LINK_THREAD});
}

RecordNode *adder(TreeHolder *holder, RecordNode *node) {
  auto *inst = static_cast<MORVAInst *>(node->owner);
  const bool half =
      faultIs("tree-adder-compares-half-a-key") && holder->recordOffset == 0 && inst->modeBits == 0;
  if (half) inst->keyLength /= 2;
  RecordNode *answer = real().adder(holder, node);
  if (half) inst->keyLength *= 2;
  if (faultIs("tree-adder-forgets-a-tag") && answer == node && holder->root != node) {
    holder->root->right &= ~uintptr_t{LINK_HEAVY};
  }
  if (faultIs("tree-adder-forgets-a-thread") && holder->root == node) node->right = 0;
  if (faultIs("tree-adder-writes-to-twins") && answer != node) node->left = LINK_THREAD;
  return answer;
}

RecordNode *finder(TreeHolder *holder, RecordNode *probe) {
  if (faultIs("tree-finder-writes-to-probes")) probe->left = 0;
  RecordNode *answer = real().finder(holder, probe);
  const bool missed = faultIs("tree-finder-misses-the-root") && answer != nullptr &&
                      answer == holder->root && ((answer->left | answer->right) & LINK_THREAD) == 0;
  return missed ? nullptr : answer;
}

RecordNode *fuzzier(TreeHolder *holder, RecordNode *probe, RecordNode **prev, RecordNode **next) {
  return faultIs("tree-fuzzier-swaps-neighbours") ? real().fuzzier(holder, probe, next, prev)
                                                  : real().fuzzier(holder, probe, prev, next);
}

RecordNode *killer(TreeHolder *holder, RecordNode *probe) {
  RecordNode *answer = real().killer(holder, probe);
  if (answer == nullptr) return answer;
  if (faultIs("tree-killer-keeps-links")) answer->left = LINK_THREAD;
  if (faultIs("tree-killer-breaks-a-thread") && holder->root != nullptr) {
    RecordNode *first = holder->root;
    while ((first->left & LINK_THREAD) == 0) first = addressOf(first->left);
    first->left |= reinterpret_cast<uintptr_t>(holder->root);
  }
  return answer;
}

RecordNode *safeAdder(TreeHolder *holder, RecordNode *node) {
  static std::atomic<int> added = 0;
  if (faultIs("tree-safe-adder-drops-nodes") && ++added % 500 == 0) return node;
  if (!faultIs("tree-safe-adder-keeps-the-lock")) return real().safe_adder(holder, node);
  RecordNode *answer = real().safe_adder(holder, node);
  if (answer != node) holder->lock->acquire(holder->lock, MORVA_LOCK_CHANGE, 1);
  return answer;
}

RecordNode *safeFinder(TreeHolder *holder, RecordNode *probe) {
  if (faultIs("tree-safe-finder-takes-no-lock")) return real().finder(holder, probe);
  return real().safe_finder(holder, probe);
}

RecordNode *safeFuzzier(TreeHolder *holder, RecordNode *probe, RecordNode **prev,
                        RecordNode **next) {
  return real().safe_fuzzier(holder, probe, prev, next);
}

RecordNode *safeKiller(TreeHolder *holder, RecordNode *probe) {
  if (!faultIs("tree-safe-killer-takes-the-lock-to-read")) return real().safe_killer(holder, probe);
  holder->lock->acquire(holder->lock, MORVA_LOCK_READ, 1);
  RecordNode *answer = real().killer(holder, probe);
  holder->lock->release(holder->lock);
  return answer;
}

}  // namespace

extern "C" MORVA_API const TreeCallbacks aa_tree = {adder,     finder,     fuzzier,     killer,
                                                    safeAdder, safeFinder, safeFuzzier, safeKiller};
