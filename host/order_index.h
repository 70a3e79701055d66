// Finds the order node of a record by the record's address.
//
// Address space is divided into granules no two record nodes share: the largest
// power of two not above the distance of two nodes. 64 neighbouring granules
// make a leaf of 64 pointers (512 bytes), found by the number of the stretch it
// covers through a hash table:
//
//   address   | stretch number        | 6 bits  | granule bits |
//                hash table -> leaf -> pointer
//
// Records are carved from blocks one after the other, so leaves are dense (with
// slots of 80 bytes and granules of 64, 51 of the 64 pointers are used: 10 bytes
// per record), a leaf entered once serves some fifty appends in a row, and the
// last one used is remembered.
//
// The table doubles at half full, a few entries at a time: each new leaf moves
// eight old places over, so that the old table is through long before the new
// one is half full itself, and no append pays for the size of the list. A new
// table of more than 256 KiB comes zeroed from the system, smaller ones take
// microseconds. Leaves are kept when their last pointer goes, since the records'
// memory is kept as well; reset() drops everything.
//
// Memory is taken from a pool of the index's own and so counts against the
// host's limit. It is not on the host's list of pools.
//
// Thread-safety: none; an order list is used under its instance's lock.
#pragma once

#include <cstdint>

#include "block_pool.h"
#include "morva/order_node.h"

namespace qzhost {

class OrderIndex {
 public:
  OrderIndex(MemoryAccount *account, IdleSegments *idle, bool hugePages, uint64_t secret)
      : memory_(account, idle, hugePages, secret) {}

  // For use while empty: no two record nodes are nearer than this many bytes.
  void setDistance(uint64_t bytes);

  // Enters a node under its record. False when there is no memory, or when the
  // granule of the record is taken: the node is then not in the index.
  bool insert(OrderNode *node);

  // Takes the node of `record` out and answers it, or null.
  OrderNode *remove(const void *record);

  // Nodes entered and not taken out.
  uint64_t count() const { return count_; }

  // Forgets all nodes without looking at them and gives the memory back.
  void reset();

 private:
  using Leaf = OrderNode *;  // the first of kLeafSlots

  struct Place {
    uint64_t stretch;
    Leaf *leaf;  // null: the place is empty
  };

  struct Table {
    Place *places = nullptr;
    uint32_t bits = 0;

    uint64_t size() const { return places != nullptr ? uint64_t{1} << bits : 0; }
    Place *find(uint64_t stretch) const;
  };

  static constexpr uint32_t kLeafBits = 6;
  static constexpr uint32_t kLeafSlots = 1 << kLeafBits;

  uint64_t stretchOf(const void *record) const {
    return reinterpret_cast<uintptr_t>(record) >> (granuleBits_ + kLeafBits);
  }
  uint32_t slotOf(const void *record) const {
    return (reinterpret_cast<uintptr_t>(record) >> granuleBits_) & (kLeafSlots - 1);
  }

  Leaf *leafOf(uint64_t stretch);
  Leaf *newLeaf(uint64_t stretch);
  bool makeRoom();
  void moveSome();

  uint32_t granuleBits_ = 5;
  uint64_t count_ = 0;
  // The leaf used last.
  uint64_t lastStretch_ = 0;
  Leaf *lastLeaf_ = nullptr;
  // `current_` receives new leaves. While `old_` is there, its places before
  // `moved_` are in `current_` too.
  Table current_;
  Table old_;
  uint64_t moved_ = 0;
  uint64_t leaves_ = 0;
  BlockPool memory_;
};

}  // namespace qzhost
