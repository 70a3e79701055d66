#include "slot_model.h"

namespace morva_test {

SlotModel::SlotModel(const TableShape &shape) : shape_(shape) {
  if (shape_.keyMode == KeyMode::variable) return;
  recordSize_ = shape_.recordSize();
  const int64_t bytes = shape_.memHint < 1
                            ? 2013265
                            : static_cast<int64_t>(static_cast<double>(shape_.memHint) * 30.72);
  largest_ = bytes / shape_.slotSizeFor(0);
}

Slot *SlotModel::take(size_t keyLen) {
  if (shape_.keyMode != KeyMode::variable) {
    if (chain_.empty()) {
      carve();
      return &slots_.emplace_back();
    }
    Slot *slot = chain_.back();
    chain_.pop_back();
    return slot;
  }
  recordSize_ = shape_.recordSizeFor(keyLen);
  for (size_t i = chain_.size(); i-- > 0;) {
    Slot *slot = chain_[i];
    if (slot->capacity < keyLen) continue;
    chain_.erase(chain_.begin() + static_cast<std::ptrdiff_t>(i));
    return slot;
  }
  return &slots_.emplace_back(Slot{nullptr, static_cast<uint32_t>(keyLen)});
}

void SlotModel::carve() {
  if (used_ >= capacity_) {
    if (capacity_ < largest_) capacity_ *= 2;
    blocks_.push_back(capacity_);
    totalMem_ += static_cast<uint64_t>(capacity_) * shape_.slotSizeFor(0) + 16;
    used_ = 0;
  }
  ++used_;
}

void SlotModel::reset() {
  slots_.clear();
  chain_.clear();
  blocks_.clear();
  used_ = capacity_ = 8;
  totalMem_ = 0;
  lost_ = 0;
}

void OrderSlotModel::take() {
  if (free_ > 0) {
    --free_;
    return;
  }
  if (used_ >= capacity_) {
    if (capacity_ < 65535) capacity_ *= 2;
    ++blocks_;
    used_ = 0;
  }
  ++used_;
}

}  // namespace morva_test
