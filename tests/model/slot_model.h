// Which record slot a table takes next: the free chain and the blocks, followed
// step by step without looking at the library's.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "table_shape.h"

namespace morva_test {

// A record slot. Its address is learned when it is first seen and must never
// change afterwards.
struct Slot {
  RecordNode *node = nullptr;
  // With variable keys: the longest key it can take.
  uint32_t capacity = 0;
};

class SlotModel {
 public:
  explicit SlotModel(const TableShape &shape);

  // The slot the table must use for a key of `keyLen` bytes: the first fit of
  // the free chain, or a new one.
  Slot *take(size_t keyLen);
  void give(Slot *slot) { chain_.push_back(slot); }
  // A slot that stays out of use until the table is cleared.
  void lose() { ++lost_; }
  // All memory went back to the pools.
  void reset();

  // The free chain; its head is the last element.
  const std::vector<Slot *> &chain() const { return chain_; }
  // Slots made since the last reset: live, free and lost.
  uint64_t made() const { return slots_.size(); }
  uint64_t lost() const { return lost_; }

  // Record blocks, none with variable keys. Slots per block, oldest first.
  const std::vector<int64_t> &blocks() const { return blocks_; }
  int64_t usedOfNewest() const { return used_; }
  int64_t capacity() const { return capacity_; }
  uint64_t totalMem() const { return totalMem_; }
  // Bytes of the record last asked for.
  uint32_t recordSize() const { return recordSize_; }

 private:
  void carve();

  TableShape shape_;
  std::deque<Slot> slots_;
  std::vector<Slot *> chain_;
  std::vector<int64_t> blocks_;
  int64_t used_ = 8;
  int64_t capacity_ = 8;
  int64_t largest_ = 0;
  uint64_t totalMem_ = 0;
  uint64_t lost_ = 0;
  uint32_t recordSize_ = 0;
};

// The same for order nodes, which only need to be counted.
class OrderSlotModel {
 public:
  void take();
  void give() { ++free_; }
  void reset() { *this = OrderSlotModel(); }

  uint64_t free() const { return free_; }
  uint64_t blocks() const { return blocks_; }
  int64_t used() const { return used_; }
  int64_t capacity() const { return capacity_; }

 private:
  uint64_t free_ = 0;
  uint64_t blocks_ = 0;
  int64_t used_ = 8;
  int64_t capacity_ = 8;
};

}  // namespace morva_test
