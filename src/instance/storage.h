// Taking nodes and putting them back.
//
// Invariants:
//  1. recordsUsed <= recordBlockCapacity, the slots of the newest block; the
//     same of order nodes. Capacities change only with a block in hand.
//  2. A node is in a tree, in a duplicate chain, on freeRecords, lent to the
//     running operation, or lost to an over-long fixed key until MORVAClear.
//  3. With flagVarKey every node is a pool block of its own whose KeyPrefix
//     says the longest key it can take; otherwise nodes are slots of blocks.
#pragma once

#include "instance/record.h"

namespace morva::core {

// What both capacities and both fill counts start at, so that the first node
// taken makes the first block.
inline constexpr int64_t kFirstCapacity = 8;

// The flagVarKey half of takeRecordNode: the first free node that fits, or a
// new one. Sets recordSize for this key and tells where its data starts. A key
// whose slot does not fit in 32 bits must have been refused before.
RecordNode *GetVarNode(MORVAInst *inst, int32_t keyLen, uint32_t *dataOffsetOut);

// The other half, where no node is free: the next slot of the newest record
// block, or the first of a new one. Null when the pool has no memory.
RecordNode *carveRecord(MORVAInst &inst);

// Takes a node for a key of keyLen bytes (read with flagVarKey only), makes the
// instance its owner and tells where its data starts. Null when the pool has no
// memory.
inline RecordNode *takeRecordNode(MORVAInst &inst, int32_t keyLen, uint32_t &dataOffset) {
  if (has(inst, flagVarKey)) return GetVarNode(&inst, keyLen, &dataOffset);
  dataOffset = inst.dataOffset;
  RecordNode *node = inst.freeRecords;
  if (node != nullptr) {
    inst.freeRecords = static_cast<RecordNode *>(node->owner);
  } else {
    node = carveRecord(inst);
    if (node == nullptr) return nullptr;
  }
  node->owner = &inst;
  return node;
}

// Takes an order node, or null.
OrderNode *takeOrderNode(MORVAInst &inst);

// Frees a chain of blocks, each linked through its first word.
inline void freeChain(HostPool *pool, void *block) {
  while (block != nullptr) {
    void *next = *static_cast<void **>(block);
    pool->free(pool, block);
    block = next;
  }
}

inline void releaseRecordNode(MORVAInst &inst, RecordNode *node) {
  node->owner = inst.freeRecords;
  inst.freeRecords = node;
}

inline void releaseOrderNode(MORVAInst &inst, OrderNode *node) {
  node->record = inst.freeInodes;
  inst.freeInodes = node;
}

}  // namespace morva::core
