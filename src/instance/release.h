// What removal and clearing share: the pinned test, leaving the insertion
// order, and letting go of a key's further records.
#pragma once

#include "instance/storage.h"

namespace morva::core {

// 1 when `node` is on the host's list of pinned nodes; 0 also for a null node.
uint32_t Locked(const MORVAInst *inst, const RecordNode *node);

// Takes the record out of the insertion order and releases its order node.
// MORVA_INVALID when the order list does not know it; MORVA_OK without flagOrdered.
MORVAStatus RemoveOrderNode(MORVAInst *inst, RecordNode *node);

// Releases every chained duplicate of the first record `node` and counts them
// down. The bucket's count is left alone, and the insertion order knows nothing
// of them.
void RemoveDups(MORVAInst *inst, RecordNode *node, uint32_t dataOffset);

}  // namespace morva::core
