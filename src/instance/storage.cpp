#include "instance/storage.h"

#include <cstring>

namespace morva::core {
namespace {

// A block is a link to the block taken before it, then the slots, then 8 spare
// bytes.
struct BlockHead {
  void *previous;
};

constexpr uint64_t kBlockExtra = 16;
static_assert(sizeof(BlockHead) == 8);

// Record blocks do not grow past this.
constexpr uint64_t kLargestRecordBlock = 0x20000000;

// Order-node blocks double while they have fewer slots than this.
constexpr int64_t kOrderNodeGrowth = 65535;

constexpr uint64_t blockSize(int64_t capacity, uint64_t slot) {
  return static_cast<uint64_t>(capacity) * slot + kBlockExtra;
}

template <class Node>
Node *slotOf(void *block, uint64_t slot, int64_t index) {
  auto *slots = static_cast<unsigned char *>(block) + sizeof(BlockHead);
  return reinterpret_cast<Node *>(slots + slot * static_cast<uint64_t>(index));
}

// Makes a block of `size` bytes the newest of the chain.
bool addBlock(HostPool *pool, uint64_t size, void *&newest) {
  void *block = pool->allocate(pool, size, 0);
  if (block == nullptr) return false;
  static_cast<BlockHead *>(block)->previous = newest;
  newest = block;
  return true;
}

bool addRecordBlock(MORVAInst &inst, uint64_t slot) {
  int64_t capacity = inst.recordBlockCapacity;
  int64_t max = inst.recordBlockMax;
  if (capacity < max) capacity *= 2;
  if (blockSize(capacity, slot) > kLargestRecordBlock) {
    capacity /= 2;
    max = capacity;  // blocks never grow again
  }
  const uint64_t size = blockSize(capacity, slot);
  if (capacity == 0 || !addBlock(inst.recordPool, size, inst.recordBlocks)) return false;
  inst.recordBlockCapacity = capacity;
  inst.recordBlockMax = max;
  inst.recordsUsed = 0;
  relaxedAdd(inst.totalMem, size);
  inst.recordBlockCount += 1;
  return true;
}

bool addOrderNodeBlock(MORVAInst &inst) {
  int64_t capacity = inst.inodeBlockCapacity;
  if (capacity < kOrderNodeGrowth) capacity *= 2;
  const uint64_t size = blockSize(capacity, sizeof(OrderNode));
  if (!addBlock(inst.inodePool, size, inst.inodeBlocks)) return false;
  inst.inodeBlockCapacity = capacity;
  inst.inodesUsed = 0;
  return true;
}

RecordNode *carveRecord(MORVAInst &inst) {
  const uint64_t slot = slotSize(inst.recordSize);
  if (inst.recordsUsed >= inst.recordBlockCapacity && !addRecordBlock(inst, slot)) return nullptr;
  auto *node = slotOf<RecordNode>(inst.recordBlocks, slot, inst.recordsUsed++);
  // Instances are compared over the whole key area: behind short keys it must
  // not depend on what the host left in the block.
  if (has(inst, flagFixedKey)) std::memset(baseOf(node), 0, inst.keyLength);
  return node;
}

}  // namespace

RecordNode *takeRecordNode(MORVAInst &inst, int32_t keyLen, uint32_t &dataOffset) {
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

RecordNode *GetVarNode(MORVAInst *inst, int32_t keyLen, uint32_t *dataOffsetOut) {
  const auto length = static_cast<uint32_t>(keyLen);
  const auto dataOffset = static_cast<uint32_t>(varDataOffset(length));
  const uint32_t recordSize = dataOffset + inst->dataLength;
  *dataOffsetOut = dataOffset;
  relaxedStore(inst->recordSize, recordSize);

  RecordNode *before = nullptr;
  RecordNode *node = inst->freeRecords;
  while (node != nullptr && prefixOf(node)->capacity < length) {
    before = node;
    node = static_cast<RecordNode *>(node->owner);
  }
  if (node == nullptr) {
    HostPool *pool = inst->varkeyPool;
    node = static_cast<RecordNode *>(pool->allocate(pool, slotSize(recordSize), 0));
    if (node == nullptr) return nullptr;
    prefixOf(node)->capacity = length;
  } else if (before == nullptr) {
    inst->freeRecords = static_cast<RecordNode *>(node->owner);
  } else {
    before->owner = node->owner;
  }
  node->owner = inst;
  return node;
}

OrderNode *takeOrderNode(MORVAInst &inst) {
  if (OrderNode *node = inst.freeInodes) {
    inst.freeInodes = static_cast<OrderNode *>(node->record);
    return node;
  }
  if (inst.inodesUsed >= inst.inodeBlockCapacity && !addOrderNodeBlock(inst)) return nullptr;
  return slotOf<OrderNode>(inst.inodeBlocks, sizeof(OrderNode), inst.inodesUsed++);
}

}  // namespace morva::core
