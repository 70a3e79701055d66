#include "host_callbacks.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <utility>

#include "host_subject.h"

namespace morva::cli::check {

namespace {

std::mutex mutex;
std::vector<CallOfTree> calls[2];
std::atomic<bool> writing{true};
std::atomic<const Bucket *> watched{nullptr};
std::atomic<int> writers{0};
std::atomic<int> readers{0};
std::atomic<uint64_t> collisions{0};

uint64_t keyOf(RecordNode *node) {
  return reinterpret_cast<NumberedNode *>(node)->key;
}

RecordNode *nodeAt(uintptr_t link) {
  return reinterpret_cast<RecordNode *>(link & ~uintptr_t{LINK_HEAVY | LINK_THREAD});
}

RecordNode *search(RecordNode *root, uint64_t key) {
  RecordNode *node = root;
  while (node != nullptr && keyOf(node) != key) {
    const uintptr_t link = key < keyOf(node) ? node->left : node->right;
    node = (link & LINK_THREAD) != 0 ? nullptr : nodeAt(link);
  }
  return node;
}

void collect(RecordNode *node, std::vector<RecordNode *> &list) {
  if ((node->left & LINK_THREAD) == 0) collect(nodeAt(node->left), list);
  list.push_back(node);
  if ((node->right & LINK_THREAD) == 0) collect(nodeAt(node->right), list);
}

// The nodes of a tree in key order.
std::vector<RecordNode *> nodesOf(RecordNode *root) {
  std::vector<RecordNode *> list;
  if (root != nullptr) collect(root, list);
  return list;
}

int heightOf(size_t nodes) {
  return static_cast<int>(std::bit_width(nodes));
}

// Links the nodes from `first` to before `end`, one at least, as a tree; answers its root.
RecordNode *link(const std::vector<RecordNode *> &list, size_t first, size_t end) {
  const size_t middle = first + (end - first) / 2;
  RecordNode *root = list[middle];
  const auto address = [&](size_t i) { return reinterpret_cast<uintptr_t>(list[i]); };
  const int left = heightOf(middle - first);
  const int right = heightOf(end - middle - 1);
  if (left == 0) {
    root->left = (middle == 0 ? 0 : address(middle - 1)) | LINK_THREAD;
  } else {
    root->left = reinterpret_cast<uintptr_t>(link(list, first, middle));
    if (left > right) root->left |= LINK_HEAVY;
  }
  if (right == 0) {
    root->right = (middle + 1 == list.size() ? 0 : address(middle + 1)) | LINK_THREAD;
  } else {
    root->right = reinterpret_cast<uintptr_t>(link(list, middle + 1, end));
    if (right > left) root->right |= LINK_HEAVY;
  }
  return root;
}

void linkAll(TreeHolder *holder, const std::vector<RecordNode *> &list) {
  holder->root = list.empty() ? nullptr : link(list, 0, list.size());
}

RecordNode *add(TreeHolder *holder, RecordNode *node) {
  if (RecordNode *present = search(holder->root, keyOf(node))) return present;
  std::vector<RecordNode *> list = nodesOf(holder->root);
  list.insert(std::ranges::upper_bound(list, keyOf(node), {}, keyOf), node);
  linkAll(holder, list);
  return node;
}

RecordNode *find(TreeHolder *holder, RecordNode *probe) {
  return search(holder->root, keyOf(probe));
}

RecordNode *kill(TreeHolder *holder, RecordNode *probe) {
  RecordNode *node = search(holder->root, keyOf(probe));
  if (node == nullptr) return nullptr;
  std::vector<RecordNode *> list = nodesOf(holder->root);
  std::erase(list, node);
  linkAll(holder, list);
  node->left = node->right = 0;
  return node;
}

// Counts who is at work under the lock that the container gave.
class Watch {
 public:
  Watch(const TreeHolder *holder, bool change) : mine_(change ? writers : readers) {
    mine_.fetch_add(1);
    const Bucket *bucket = watched.load();
    const bool alone = change ? writers.load() == 1 && readers.load() == 0 : writers.load() == 0;
    if (bucket == nullptr) return;
    if (!alone || holder->root != bucket->root) collisions.fetch_add(1);
    // Whoever does not wait for this change gets going now.
    static std::atomic<unsigned> changes{0};
    if (change) linger(changes.fetch_add(1));
  }
  ~Watch() { mine_.fetch_sub(1); }

 private:
  std::atomic<int> &mine_;
};

template <int which, Called called, bool safe>
RecordNode *callback(TreeHolder *holder, RecordNode *node) {
  constexpr bool kChange = called != Called::kFinder;
  TreeLock *lock = holder->lock;
  const bool locked = safe && lock != nullptr;
  if (locked) lock->acquire(lock, kChange ? MORVA_LOCK_CHANGE : MORVA_LOCK_READ, 1);
  CallOfTree call{called, safe, holder->root, holder->recordOffset, lock, node, nullptr, nullptr};
  {
    const Watch watch(holder, kChange);
    call.answer = called == Called::kAdder    ? add(holder, node)
                  : called == Called::kFinder ? find(holder, node)
                                              : kill(holder, node);
  }
  call.newRoot = holder->root;
  if (locked) lock->release(lock);
  if (writing) {
    const std::lock_guard guard(mutex);
    calls[which].push_back(call);
  }
  return call.answer;
}

// A container may ask for the neighbours, too; no check needs to know.
RecordNode *fuzzier(TreeHolder *holder, RecordNode *probe, RecordNode **prev, RecordNode **next) {
  const std::vector<RecordNode *> list = nodesOf(holder->root);
  const auto from = std::ranges::lower_bound(list, keyOf(probe), {}, keyOf);
  const auto to = std::ranges::upper_bound(list, keyOf(probe), {}, keyOf);
  if (prev != nullptr) *prev = from == list.begin() ? nullptr : *(from - 1);
  if (next != nullptr) *next = to == list.end() ? nullptr : *to;
  return from == to ? nullptr : *from;
}

template <int which>
constexpr TreeCallbacks kTable = {callback<which, Called::kAdder, false>,
                                  callback<which, Called::kFinder, false>,
                                  fuzzier,
                                  callback<which, Called::kKiller, false>,
                                  callback<which, Called::kAdder, true>,
                                  callback<which, Called::kFinder, true>,
                                  fuzzier,
                                  callback<which, Called::kKiller, true>};

}  // namespace

const TreeCallbacks *numberedCallbacks(int which) {
  return which == 0 ? &kTable<0> : &kTable<1>;
}

std::vector<CallOfTree> callsOfTrees(int which) {
  const std::lock_guard guard(mutex);
  return std::exchange(calls[which], {});
}

void stopWritingCallsDown() {
  writing = false;
}

uint64_t collisionsOfTrees() {
  return collisions.load();
}

void watchBucket(const Bucket *bucket) {
  watched = bucket;
}

}  // namespace morva::cli::check
