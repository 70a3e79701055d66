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

// Instances are compared over the whole key area: behind short keys it must not
// depend on what the host left in the block. What follows the area is a
// multiple of 8 from the base on.
void wipeKeyArea(const MORVAInst &inst, RecordNode *node) {
  constexpr uint32_t kShort = 64;
  if (inst.keyLength > kShort) {
    std::memset(baseOf(node), 0, inst.keyLength);
    return;
  }
  // One instruction each, where any length would be a call.
  constexpr uint32_t kWord = 8;
  for (uint32_t i = 0; i < inst.keyLength; i += kWord) std::memset(baseOf(node) + i, 0, kWord);
}

// The first free node with room for a variable key, mostly the head.
RecordNode *takeFree(MORVAInst &inst, uint32_t length) {
  RecordNode *head = inst.freeRecords;
  if (head == nullptr) return nullptr;
  const bool indexed = head == ownState(inst).freeIndex.first;
  if (indexed || prefixOf(head)->capacity < length) return takeFirstFit(inst, length);
  inst.freeRecords = static_cast<RecordNode *>(head->owner);
  return head;
}

}  // namespace

RecordNode *carveRecord(MORVAInst &inst) {
  const uint64_t slot = slotSize(inst.recordSize);
  if (inst.recordsUsed >= inst.recordBlockCapacity && !addRecordBlock(inst, slot)) return nullptr;
  auto *node = slotOf<RecordNode>(inst.recordBlocks, slot, inst.recordsUsed++);
  if (has(inst, flagFixedKey)) wipeKeyArea(inst, node);
  return node;
}

RecordNode *GetVarNode(MORVAInst *inst, int32_t keyLen, uint32_t *dataOffsetOut) {
  const auto length = static_cast<uint32_t>(keyLen);
  const auto dataOffset = static_cast<uint32_t>(varDataOffset(length));
  const uint32_t recordSize = dataOffset + inst->dataLength;
  *dataOffsetOut = dataOffset;
  relaxedStore(inst->recordSize, recordSize);

  RecordNode *node = takeFree(*inst, length);
  if (node == nullptr) {
    HostPool *pool = inst->varkeyPool;
    node = static_cast<RecordNode *>(pool->allocate(pool, slotSize(recordSize), 0));
    if (node == nullptr) return nullptr;
    prefixOf(node)->capacity = length;
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
