#include "ops/insert.h"

#include <cstring>

#include "keys/move_bytes.h"
#include "keys/probe.h"
#include "morva/operations.h"

namespace morva::core {
namespace {

// The general path looks at the instance for what its records carry; the fast
// path knows that they carry nothing.
struct General {
  static bool chains(const MORVAInst &inst) { return has(inst, flagMultiData); }
  static bool sums(const MORVAInst &inst) { return has(inst, flagSum); }
  static bool serves(const MORVAInst &) { return true; }
};

struct Fast {
  static constexpr bool chains(const MORVAInst &) { return false; }
  static constexpr bool sums(const MORVAInst &) { return false; }
  // On any other instance it would leave chains and sums unwritten.
  static bool serves(const MORVAInst &inst) { return !has(inst, flagSum | flagMultiData); }
};

// The host's data may overlap the record it is copied to. It may be null only
// where records have no data.
void copyData(const MORVAInst &inst, void *to, const void *from) {
  if (from != nullptr) moveBytes(to, from, inst.dataLength);
}

void countUp(MORVAInst &inst, Bucket &bucket) {
  relaxedAdd(inst.buckets->elementCount, 1u);
  relaxedAdd(bucket.count, 1u);
  // Clearing reads the count as signed: from here on it must not rely on it.
  if (inst.buckets->elementCount == 0x80000000) ownState(inst).countsDrifted = 1;
}

template <class Path>
void startSum(const MORVAInst &inst, RecordNode *node) {
  if (Path::sums(inst)) *sumOf(inst, node) = relaxedLoad(inst.sumIncrement);
}

// A record whose order node could not be had stays in its tree, uncounted. It
// gets an empty chain, no data and no sum, so that nothing later reads what
// was never written.
template <class Path>
void leaveUncounted(MORVAInst &inst, const Probe &fresh) {
  if (Path::chains(inst)) makeChainOfOne(linksOf(inst, fresh.node));
  if (Path::sums(inst)) *sumOf(inst, fresh.node) = 0.0;
  std::memset(dataOf(inst, fresh.node, fresh.dataOffset), 0, inst.dataLength);
  ownState(inst).countsDrifted = 1;
}

// Puts the first record of a key at the end of the insertion order.
bool appendToOrder(MORVAInst &inst, RecordNode *node) {
  OrderNode *place = takeOrderNode(inst);
  if (place == nullptr) return false;
  place->record = node;
  inst.aiExt->append(inst.orderList, place);
  return true;
}

// Completes a record that has just become the first of its key.
template <class Path>
MORVAStatus completeFirst(MORVAInst &inst, const Probe &fresh, const void *data) {
  if (has(inst, flagOrdered) && !appendToOrder(inst, fresh.node)) {
    leaveUncounted<Path>(inst, fresh);
    return MORVA_NO_MEMORY;
  }
  if (Path::chains(inst)) makeChainOfOne(linksOf(inst, fresh.node));
  copyData(inst, dataOf(inst, fresh.node, fresh.dataOffset), data);
  countUp(inst, *fresh.bucket);
  startSum<Path>(inst, fresh.node);
  return MORVA_OK;
}

// Completes a further record of the key whose first record is `first`. It is
// in the chain only: not in the tree, not in the insertion order.
void completeFurther(MORVAInst &inst, RecordNode *first, const Probe &fresh, const void *data) {
  DupLinks *head = linksOf(inst, first);
  DupLinks *links = linksOf(inst, fresh.node);
  links->next = nullptr;
  links->back = head->back;
  head->back->next = links;
  head->back = links;
  copyData(inst, dataBehind(links), data);
  countUp(inst, *fresh.bucket);
  startSum<General>(inst, fresh.node);
}

// Overwrites the data of all records of a key; the sum of the first starts
// anew, those of the others go on.
template <class Path>
void overwrite(MORVAInst &inst, RecordNode *first, uint32_t dataOffset, const void *data) {
  void *firstData = dataOf(inst, first, dataOffset);
  copyData(inst, firstData, data);
  if (Path::chains(inst)) {
    // From the first record, not from `data`, which may overlap it.
    for (DupLinks *links = linksOf(inst, first)->next; links != nullptr; links = links->next) {
      copyData(inst, dataBehind(links), firstData);
    }
  }
  startSum<Path>(inst, first);
}

template <class Path>
MORVAStatus insert(MORVAInst *inst, const void *data, const void *key, int32_t keyLen,
                   bool replace) {
  if (!isDefined(inst) || !Path::serves(*inst) || !acceptsKey(*inst, key, keyLen)) {
    return MORVA_INVALID;
  }
  if (data == nullptr && inst->dataLength != 0) return MORVA_INVALID;
  ScopeLock lock(lockOf(*inst));
  Probe fresh;
  const MORVAStatus status = takeProbe(*inst, key, keyLen, Overlong::losesNode, fresh);
  if (status != MORVA_OK) return status;

  BucketArray *buckets = inst->buckets;
  if (fresh.bucket->root == nullptr) buckets->usedBuckets += 1;
  RecordNode *stored = inst->tree->insert(inst->tree, fresh.bucket, fresh.node, buckets);
  if (stored == fresh.node) return completeFirst<Path>(*inst, fresh, data);
  if (Path::chains(*inst) && !replace) {
    completeFurther(*inst, stored, fresh, data);
    return MORVA_OK;
  }
  releaseRecordNode(*inst, fresh.node);
  if (!replace) return MORVA_PRESENT;
  overwrite<Path>(*inst, stored, fresh.dataOffset, data);
  return MORVA_OK;
}

}  // namespace

MORVAStatus InternalAdd(MORVAInst *inst, const void *data, const void *key, int32_t keyLen,
                        uint32_t replace) {
  return insert<General>(inst, data, key, keyLen, replace != 0);
}

MORVAStatus FastInternalAdd(MORVAInst *inst, const void *data, const void *key, int32_t keyLen,
                            uint32_t replace) {
  return insert<Fast>(inst, data, key, keyLen, replace != 0);
}

}  // namespace morva::core

using namespace morva::core;

extern "C" {

MORVAStatus MORVAAdd(MORVAInst *inst, const void *data, const void *key, int32_t keyLen) {
  return InternalAdd(inst, data, key, keyLen, 0);
}

MORVAStatus MORVAReplace(MORVAInst *inst, const void *data, const void *key, int32_t keyLen) {
  return InternalAdd(inst, data, key, keyLen, 1);
}

MORVAStatus MORVAFastAdd(MORVAInst *inst, const void *data, const void *key, int32_t keyLen) {
  return FastInternalAdd(inst, data, key, keyLen, 0);
}

MORVAStatus MORVAFastReplace(MORVAInst *inst, const void *data, const void *key, int32_t keyLen) {
  return FastInternalAdd(inst, data, key, keyLen, 1);
}

}  // extern "C"
