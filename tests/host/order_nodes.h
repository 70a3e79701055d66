// Records and order nodes for the suites on the order list, and a list that is
// driven through its companion's slots, with a model beside it.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <list>
#include <unordered_map>
#include <vector>

#include "companion_host.h"

namespace host_test {

// Record nodes that lie `slot` bytes apart, in blocks of `perBlock`, as those
// of an instance do; they name an instance as their owner.
class Records {
 public:
  Records(size_t count, uint32_t slot, size_t perBlock, bool variableKeys = false)
      : slot_(slot), perBlock_(perBlock) {
    std::memcpy(owner_.eyeCatcher, "nevo", sizeof owner_.eyeCatcher);
    owner_.flags = flagOrdered | (variableKeys ? flagVarKey : flagFixedKey);
    owner_.recordSize = slot - 32;
    for (size_t made = 0; made < count; made += perBlock)
      blocks_.emplace_back((8 + perBlock * slot) / 8);
    for (size_t i = 0; i < count; ++i) at(i)->owner = &owner_;
  }

  RecordNode *at(size_t index) {
    char *block = reinterpret_cast<char *>(blocks_[index / perBlock_].data());
    return reinterpret_cast<RecordNode *>(block + 8 + index % perBlock_ * slot_);
  }

 private:
  uint32_t slot_;
  size_t perBlock_;
  MORVAInst owner_ = {};
  std::deque<std::vector<uint64_t>> blocks_;
};

class DrivenList {
 public:
  explicit DrivenList(CompanionHost &host)
      : companion_(host.orderLists), list_(companion_->makeOrderList(companion_, host.trees)) {
    if (list_ == nullptr) std::abort();
  }
  ~DrivenList() { list_->destroy(list_); }
  DrivenList(const DrivenList &) = delete;
  DrivenList &operator=(const DrivenList &) = delete;

  OrderList *operator->() const { return list_; }
  OrderList *get() const { return list_; }

  OrderNode *append(RecordNode *record) {
    OrderNode *node = take();
    node->record = record;
    companion_->append(list_, node);
    places_[record] = model_.insert(model_.end(), node);
    return node;
  }

  bool holds(RecordNode *record) const { return places_.count(record) != 0; }
  size_t size() const { return model_.size(); }

  // Unlinks, with the model; true when the list answered what the model holds.
  // The node is spoiled, as the next use of its memory would.
  bool unlink(RecordNode *record) {
    const auto place = places_.find(record);
    OrderNode *expected = place != places_.end() ? *place->second : nullptr;
    const OrderNode image = {companion_, companion_, record};
    if (companion_->unlink(list_, &image) != expected) return false;
    if (expected == nullptr) return true;
    model_.erase(place->second);
    places_.erase(place);
    giveBack(expected);
    return true;
  }

  // What the clear operations do: the nodes go, then the head word is cleared.
  void clear() {
    for (OrderNode *node : model_) giveBack(node);
    model_.clear();
    places_.clear();
    list_->head = nullptr;
  }

  // The list from the first node to the last and back is the model.
  bool agrees() const {
    const OrderNode *before = nullptr;
    const OrderNode *node = static_cast<OrderNode *>(list_->head);
    for (const OrderNode *expected : model_) {
      if (node != expected || QZOrderPrev(node) != before) return false;
      before = node;
      node = QZOrderNext(node);
    }
    return node == nullptr;
  }

 private:
  OrderNode *take() {
    if (free_.empty()) {
      nodes_.emplace_back();
      free_.push_back(&nodes_.back());
    }
    OrderNode *node = free_.back();
    free_.pop_back();
    return node;
  }
  void giveBack(OrderNode *node) {
    std::memset(node, 0xA5, sizeof *node);
    free_.push_back(node);
  }

  OrderListExt *companion_;
  OrderList *list_;
  std::deque<OrderNode> nodes_;
  std::vector<OrderNode *> free_;
  std::list<OrderNode *> model_;
  std::unordered_map<RecordNode *, std::list<OrderNode *>::iterator> places_;
};

}  // namespace host_test
