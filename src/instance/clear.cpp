// Emptying an instance: giving its record memory back, or keeping every node.
#include "instance/release.h"
#include "morva/operations.h"

namespace morva::core {
namespace {

enum class Nodes {
  go,    // their memory goes back to the pools afterwards
  stay,  // they go on the free chains
};

// Handles one first record of a bucket being emptied; MORVA_PINNED when it is
// pinned.
MORVAStatus letGo(MORVAInst &inst, RecordNode *node, Nodes nodes) {
  const bool ownBlock = has(inst, flagVarKey);
  const bool pinned = Locked(&inst, node) != 0;
  if (!pinned) {
    if (has(inst, flagMultiData)) RemoveDups(&inst, node, inst.dataOffset);
    if (nodes == Nodes::stay) RemoveOrderNode(&inst, node);
  }
  // Slots go with their blocks, but a variable-key node is a block of its own:
  // it is collected on the free chain, which is then given back. Pinned or
  // not, memory that goes goes whole.
  if (nodes == Nodes::stay ? !pinned : ownBlock) releaseRecordNode(inst, node);
  return pinned ? MORVA_PINNED : MORVA_OK;
}

MORVAStatus emptyBucket(MORVAInst &inst, Bucket &bucket, Nodes nodes) {
  MORVAStatus status = MORVA_OK;
  for (RecordNode *node = inst.tree->first(inst.tree, &bucket); node != nullptr;) {
    RecordNode *next = inst.tree->next(node);
    if (letGo(inst, node, nodes) != MORVA_OK) status = MORVA_PINNED;
    node = next;
  }
  relaxedStore(bucket.count, uint32_t{0});
  bucket.root = nullptr;
  return status;
}

MORVAStatus emptyBuckets(MORVAInst &inst, Nodes nodes) {
  BucketArray &buckets = *inst.buckets;
  Instance &own = ownState(inst);
  MORVAStatus status = MORVA_OK;
  const auto elements = static_cast<int32_t>(relaxedLoad(buckets.elementCount));
  if (elements > 0 || own.countsDrifted != 0) {
    for (uint64_t i = 0; i <= buckets.mask; ++i) {
      Bucket &bucket = *MORVABucketAt(&buckets, static_cast<uint32_t>(i));
      if (emptyBucket(inst, bucket, nodes) != MORVA_OK) status = MORVA_PINNED;
    }
  }
  own.countsDrifted = 0;
  buckets.usedBuckets = 0;
  relaxedStore(buckets.elementCount, uint32_t{0});
  return status;
}

// A container or order list forgets its nodes when its head word is 0.
template <class Object>
void resetHead(Object &object) {
  ScopeLock scope(object.lock);
  object.head = nullptr;
}

void freeVarNodes(MORVAInst &inst) {
  for (RecordNode *node = inst.freeRecords; node != nullptr;) {
    auto *next = static_cast<RecordNode *>(node->owner);
    inst.varkeyPool->free(inst.varkeyPool, node);
    node = next;
  }
}

void freeRecordMemory(MORVAInst &inst) {
  if (has(inst, flagVarKey)) freeVarNodes(inst);
  freeChain(inst.recordPool, inst.recordBlocks);
  inst.recordBlocks = nullptr;
  inst.freeRecords = nullptr;
  ownState(inst).freeIndex = {};
  inst.recordBlockCapacity = kFirstCapacity;
  inst.recordsUsed = kFirstCapacity;
  relaxedStore(inst.totalMem, uint64_t{0});
}

void freeOrderMemory(MORVAInst &inst) {
  freeChain(inst.inodePool, inst.inodeBlocks);
  inst.inodeBlocks = nullptr;
  inst.freeInodes = nullptr;
  inst.inodeBlockCapacity = kFirstCapacity;
  inst.inodesUsed = kFirstCapacity;
}

}  // namespace
}  // namespace morva::core

using namespace morva::core;

extern "C" {

MORVAStatus MORVAClear(MORVAInst *inst) {
  if (!isDefined(inst)) return MORVA_INVALID;
  ScopeLock lock(lockOf(*inst));
  const MORVAStatus status = emptyBuckets(*inst, Nodes::go);
  if (has(*inst, flagOrdered)) resetHead(*inst->orderList);
  freeRecordMemory(*inst);
  freeOrderMemory(*inst);
  inst->recordBlockCount = 0;
  return status;
}

MORVAStatus MORVAClear2(MORVAInst *inst) {
  if (!isDefined(inst)) return MORVA_INVALID;
  ScopeLock lock(lockOf(*inst));
  const MORVAStatus status = emptyBuckets(*inst, Nodes::stay);
  resetHead(*inst->tree);
  if (has(*inst, flagOrdered)) resetHead(*inst->orderList);
  return status;
}

}  // extern "C"
