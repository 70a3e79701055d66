#include "bench.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace tree_test {

namespace {

constexpr uint64_t garbage = UINT64_C(0xDDDDDDDDDDDDDDDD);
constexpr size_t recordBytes = 16;  // owner, key, four bytes that belong to nobody

std::string hex(uint64_t word) {
  std::ostringstream text;
  text << "0x" << std::hex << word;
  return text.str();
}

}  // namespace

CallbackSet plainSet() {
  return {aa_tree.adder, aa_tree.finder, aa_tree.fuzzier, aa_tree.killer};
}

CallbackSet lockedSet() {
  return {aa_tree.safe_adder, aa_tree.safe_finder, aa_tree.safe_fuzzier, aa_tree.safe_killer};
}

Bench::Bench(int keys, const CallbackSet &callbacks, int32_t offset)
    : callbacks_(callbacks), offset_(offset) {
  holder.recordOffset = offset;
  holder.lock = &lock;
  owner_.keyLength = 4;
  owner_.modeBits = 0;
  // A slot reaches from the lower to the upper end of links (16 bytes at the
  // node) and record (behind node + offset + 16).
  const long recordAt = 16 + static_cast<long>(offset);
  linksAt_ = recordAt < 0 ? static_cast<size_t>(-recordAt) : 0;
  const long end = std::max<long>(16, recordAt + static_cast<long>(recordBytes));
  slotBytes_ = (linksAt_ + static_cast<size_t>(end) + 8 + 15) / 16 * 16;
  memory_.assign(slotBytes_ / 8 * static_cast<size_t>(keys + 1), garbage);
  outside_.assign(static_cast<size_t>(keys + 1), garbage);
  for (int key = 0; key <= keys; key++) {
    fill(reinterpret_cast<uint8_t *>(node(key)) + recordAt, key);
  }
  untouched_ = memory_;
  std::memset(&probe_, 0xCC, sizeof probe_);
  probeUntouched_ = probe_;
}

// The owner word and the key behind it.
void Bench::fill(uint8_t *record, int key) const {
  const MORVAInst *owner = &owner_;
  std::memcpy(record, &owner, sizeof owner);
  for (int i = 0; i < 4; i++) record[8 + i] = static_cast<uint8_t>(key >> (24 - 8 * i));
}

RecordNode *Bench::node(int key) const {
  auto *bytes = reinterpret_cast<const uint8_t *>(memory_.data());
  return reinterpret_cast<RecordNode *>(
      const_cast<uint8_t *>(bytes + static_cast<size_t>(key) * slotBytes_ + linksAt_));
}

int Bench::keyOf(const RecordNode *node) const {
  if (node == nullptr) return -1;
  const auto at = reinterpret_cast<uintptr_t>(node);
  const auto first = reinterpret_cast<uintptr_t>(memory_.data()) + linksAt_;
  if (at < first || (at - first) % slotBytes_ != 0) return -2;
  const size_t key = (at - first) / slotBytes_;
  return key < outside_.size() ? static_cast<int>(key) : -2;
}

RecordNode *Bench::probe(int key) {
  fill(reinterpret_cast<uint8_t *>(&probe_) + 16, key);
  probeUntouched_ = probe_;
  return reinterpret_cast<RecordNode *>(&probe_);
}

RecordNode *Bench::addSpare(int key) {
  auto *record = reinterpret_cast<uint8_t *>(spare()) + 16 + offset_;
  fill(record, key);
  const auto at = static_cast<size_t>(record - reinterpret_cast<uint8_t *>(memory_.data())) / 8;
  untouched_[at] = memory_[at];
  untouched_[at + 1] = memory_[at + 1];
  return callbacks_.adder(&holder, spare());
}

void Bench::plant(const TreeModel &model) {
  for (size_t key = 0; key < outside_.size(); key++) {
    node(static_cast<int>(key))->left = garbage;
    node(static_cast<int>(key))->right = garbage;
    outside_[key] = garbage;
  }
  model.eachNode([this](int key) { return reinterpret_cast<uintptr_t>(node(key)); },
                 [this](int key, TreeModel::Words words) {
                   node(key)->left = words.left;
                   node(key)->right = words.right;
                 });
  holder.root = nodeOf(model.rootKey());
}

std::string Bench::difference(const TreeModel &model) {
  if (holder.root != nodeOf(model.rootKey())) {
    return "the root is key " + std::to_string(keyOf(holder.root));
  }
  if (holder.recordOffset != offset_ || holder.lock != &lock || holder.reserved != 0) {
    return "the holder has changed";
  }
  if (std::memcmp(&probe_, &probeUntouched_, sizeof probe_) != 0) {
    return "the probe has changed";
  }
  // All memory as it was, but for the links.
  wanted_ = untouched_;
  auto words = [&](int key) {
    const size_t at = (static_cast<size_t>(key) * slotBytes_ + linksAt_) / 8;
    return wanted_.data() + at;
  };
  for (size_t key = 0; key < outside_.size(); key++) {
    words(static_cast<int>(key))[0] = outside_[key];
    words(static_cast<int>(key))[1] = outside_[key];
  }
  model.eachNode([this](int key) { return reinterpret_cast<uintptr_t>(node(key)); },
                 [&](int key, TreeModel::Words links) {
                   words(key)[0] = links.left;
                   words(key)[1] = links.right;
                 });
  if (memory_ == wanted_) return "";
  for (size_t i = 0; i < memory_.size(); i++) {
    if (memory_[i] == wanted_[i]) continue;
    return "key " + std::to_string(i * 8 / slotBytes_) + ", byte " +
           std::to_string(static_cast<long>(i * 8 % slotBytes_) - static_cast<long>(linksAt_)) +
           " from the node: " + hex(memory_[i]) + " instead of " + hex(wanted_[i]);
  }
  return "";
}

namespace {

const RecordNode *target(uintptr_t word) {
  return reinterpret_cast<const RecordNode *>(word & ~uintptr_t{LINK_HEAVY | LINK_THREAD});
}

class Inspector {
 public:
  explicit Inspector(const std::function<int(const RecordNode *)> &keyOf) : keyOf_(keyOf) {}

  Inspection run(const RecordNode *root) {
    if (root != nullptr) {
      height(root, 0);
      if (result_.complaint.empty()) threads();
    }
    return std::move(result_);
  }

 private:
  void complain(const RecordNode *node, const std::string &what) {
    if (result_.complaint.empty()) {
      result_.complaint = "key " + std::to_string(keyOf_(node)) + ": " + what;
    }
  }

  int height(const RecordNode *node, int depth) {
    if (depth > 90) {
      complain(node, "the tree is deeper than any balanced tree");
      return 0;
    }
    const int left = (node->left & LINK_THREAD) ? 0 : height(target(node->left), depth + 1);
    if (!result_.complaint.empty()) return 0;
    nodes_.push_back(node);
    result_.keys.push_back(keyOf_(node));
    const int right = (node->right & LINK_THREAD) ? 0 : height(target(node->right), depth + 1);
    if (!result_.complaint.empty()) return 0;
    if (std::abs(left - right) > 1) complain(node, "out of balance");
    if (((node->left & LINK_HEAVY) != 0) != (left > right)) complain(node, "left heavy bit wrong");
    if (((node->right & LINK_HEAVY) != 0) != (right > left))
      complain(node, "right heavy bit wrong");
    return 1 + std::max(left, right);
  }

  void threads() {
    for (size_t i = 0; i < nodes_.size(); i++) {
      const RecordNode *node = nodes_[i];
      const RecordNode *before = i > 0 ? nodes_[i - 1] : nullptr;
      const RecordNode *after = i + 1 < nodes_.size() ? nodes_[i + 1] : nullptr;
      if ((node->left & LINK_THREAD) && target(node->left) != before) {
        complain(node, "left thread wrong");
      }
      if ((node->right & LINK_THREAD) && target(node->right) != after) {
        complain(node, "right thread wrong");
      }
      if (before && keyOf_(before) >= keyOf_(node)) complain(node, "out of order");
    }
  }

  const std::function<int(const RecordNode *)> &keyOf_;
  std::vector<const RecordNode *> nodes_;
  Inspection result_;
};

}  // namespace

Inspection inspect(const RecordNode *root, const std::function<int(const RecordNode *)> &keyOf) {
  return Inspector(keyOf).run(root);
}

}  // namespace tree_test
