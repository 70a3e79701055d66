#include "ops/remove.h"

#include <cstring>

#include "instance/release.h"
#include "keys/probe.h"
#include "morva/operations.h"

namespace morva::core {
namespace {

void countDown(uint32_t &count) {
  relaxedAdd(count, ~uint32_t{0});
}

// Counts a removed first record down. The bucket counts further records when
// they come but not when they go.
void countDown(MORVAInst &inst, Bucket &bucket) {
  countDown(inst.buckets->elementCount);
  countDown(bucket.count);
  if (bucket.count == 0) inst.buckets->usedBuckets -= 1;
}

// The chain's first record, from any of them. Few steps lead back to it in most
// chains. In a long one it is found from the last record as its key is, unless
// the key's record is another by now: a clear does not wait for cursors.
DupLinks *firstOfChain(MORVAInst &inst, DupLinks *links) {
  constexpr int kFewSteps = 64;
  DupLinks *at = links;
  for (int steps = 0; !isFirstOfChain(at); at = at->back, ++steps) {
    if (steps != kFewSteps || links->next != nullptr) continue;
    RecordNode *stored = findEqual(inst, probeOf(inst, nodeOfLinks(inst, links)));
    if (stored != nullptr && linksOf(inst, stored)->back == links) return linksOf(inst, stored);
  }
  return at;
}

void releaseFurther(MORVAInst &inst, DupLinks *links) {
  releaseRecordNode(inst, nodeOfLinks(inst, links));
  countDown(inst.buckets->elementCount);
}

// `first` is where the last record of a chain is remembered.
void unlinkFurther(MORVAInst &inst, DupLinks *first, DupLinks *links) {
  DupLinks *next = links->next;
  (next == nullptr ? first : next)->back = links->back;
  links->back->next = next;
  releaseFurther(inst, links);
}

// The first record takes over the contents of the second, whose node goes: the
// tree and the insertion order know the first one's node.
void replaceFirstBySecond(MORVAInst &inst, DupLinks *first) {
  DupLinks *second = first->next;
  DupLinks *third = second->next;
  DupLinks *last = third == nullptr ? first : first->back;
  std::memcpy(baseOf(nodeOfLinks(inst, first)), baseOf(nodeOfLinks(inst, second)), inst.recordSize);
  first->back = last;
  if (third != nullptr) third->back = first;
  releaseFurther(inst, second);
}

}  // namespace

MORVAStatus internalRemove(MORVAInst *inst, const void *key, int32_t keyLen, uint32_t takeLock) {
  if (!isDefined(inst) || !acceptsKey(*inst, key, keyLen)) return MORVA_INVALID;
  ScopeLock lock(takeLock != 0 ? lockOf(*inst) : nullptr);
  Probe probe;
  MORVAStatus status = takeProbe(*inst, key, keyLen, Overlong::returnsNode, probe);
  if (status != MORVA_OK) {
    if (takeLock == 0) releaseUnheld(*inst);
    return status;
  }
  TreeContainer *tree = inst->tree;
  RecordNode *removed = nullptr;
  status = MORVA_INVALID;  // what an absent key answers
  if (RecordNode *found = findEqual(*inst, probe)) {
    if (Locked(inst, found) != 0) {
      status = MORVA_PINNED;
    } else {
      if (has(*inst, flagMultiData)) RemoveDups(inst, found, inst->dataOffset);
      removed = tree->remove(tree, probe.bucket, probe.node);
    }
  }
  releaseRecordNode(*inst, probe.node);
  if (removed != nullptr) {
    status = RemoveOrderNode(inst, removed);
    releaseRecordNode(*inst, removed);
    countDown(*inst, *probe.bucket);
  }
  return status;
}

namespace {

// Takes one record out; its key's first node is not pinned. That is `first`, or
// null where it is not asked for.
MORVAStatus removeOne(MORVAInst &inst, DupLinks *first, DupLinks *links, const void *key,
                      int32_t keyLen) {
  if (!isFirstOfChain(links)) {
    unlinkFurther(inst, first, links);
  } else if (links->next != nullptr) {
    replaceFirstBySecond(inst, links);
  } else {
    return internalRemove(&inst, key, keyLen, 0);
  }
  return MORVA_OK;
}

}  // namespace
}  // namespace morva::core

using namespace morva::core;

extern "C" {

MORVAStatus MORVARemove(MORVAInst *inst, const void *key, int32_t keyLen) {
  return internalRemove(inst, key, keyLen, 1);
}

MORVAStatus MORVARemoveDup(MORVAInst *inst, void **cursor, const void *key, int32_t keyLen) {
  if (cursor == nullptr || !isDefined(inst) || !has(*inst, flagMultiData)) return MORVA_INVALID;
  if (!acceptsKey(*inst, key, keyLen)) return MORVA_INVALID;
  ScopeLock lock(lockOf(*inst));
  if (*cursor == nullptr) return MORVA_NO_CURSOR;
  DupLinks *links = linksBefore(*cursor);
  // The first record is needed for what it says of the last one, and of pins.
  DupLinks *first = nullptr;
  if (links->next == nullptr || inst->pinned != nullptr) {
    first = firstOfChain(*inst, links);
    if (Locked(inst, nodeOfLinks(*inst, first)) != 0) return MORVA_PINNED;
  }
  // Only the key is checked here; the node goes back at once.
  Probe probe;
  MORVAStatus status = takeProbe(*inst, key, keyLen, Overlong::returnsNode, probe);
  if (status != MORVA_OK) return status;
  releaseRecordNode(*inst, probe.node);
  status = removeOne(*inst, first, links, key, keyLen);
  *cursor = nullptr;
  return status;
}

}  // extern "C"
