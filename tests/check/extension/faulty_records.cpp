// Faults of operations on records: storing, finding, removing, duplicates.
#include "faulty_slots.h"

namespace {

void *g_callersData = nullptr;

MORVAStatus addSaysStored(MORVAInst *inst, const void *data, const void *key, int32_t length) {
  const MORVAStatus status = MORVAAdd(inst, data, key, length);
  return status == MORVA_PRESENT ? MORVA_OK : status;
}

MORVAStatus addOverwrites(MORVAInst *inst, const void *data, const void *key, int32_t length) {
  const MORVAStatus status = MORVAAdd(inst, data, key, length);
  if (status == MORVA_PRESENT) MORVAReplaceDup(inst, recordOf(inst, key, length), data);
  return status;
}

MORVAStatus addLosesOne(MORVAInst *inst, const void *data, const void *key, int32_t length) {
  if (inst != nullptr && MORVANumElements(inst) == 150) return MORVA_OK;
  return MORVAAdd(inst, data, key, length);
}

MORVAStatus addForgetsTheLastByte(MORVAInst *inst, const void *data, const void *key,
                                  int32_t length) {
  const MORVAStatus status = MORVAAdd(inst, data, key, length);
  if (status != MORVA_OK || inst->dataLength < 13 || (inst->flags & flagMultiData) != 0)
    return status;
  static_cast<char *>(recordOf(inst, key, length))[inst->dataLength - 1] = 0;
  return status;
}

MORVAStatus addWritesBeyondTheBlock(MORVAInst *inst, const void *data, const void *key,
                                    int32_t length) {
  const MORVAStatus status = MORVAAdd(inst, data, key, length);
  if (status != MORVA_OK || (inst->flags & flagVarKey) == 0) return status;
  char *record = static_cast<char *>(recordOf(inst, key, length));
  // The node before the record, and how large its block was made.
  const uint64_t offset =
      ((static_cast<uint64_t>(length) + 19) & ~uint64_t{7}) + sizeof(RecordNode);
  record[MORVARecSize(inst) - offset] = 1;
  return status;
}

MORVAStatus addTakesTheLockToRead(MORVAInst *inst, const void *data, const void *key,
                                  int32_t length) {
  if (!hasLock(inst)) return MORVAAdd(inst, data, key, length);
  inst->lock->acquire(inst->lock, MORVA_LOCK_READ, 1);
  const MORVAStatus status = withoutLock(inst, [&] { return MORVAAdd(inst, data, key, length); });
  inst->lock->release(inst->lock);
  return status;
}

MORVAStatus addCallsMemoryABadRequest(MORVAInst *inst, const void *data, const void *key,
                                      int32_t length) {
  const MORVAStatus status = MORVAAdd(inst, data, key, length);
  return status == MORVA_NO_MEMORY ? MORVA_INVALID : status;
}

MORVAStatus addPutsDuplicatesFirst(MORVAInst *inst, const void *data, const void *key,
                                   int32_t length) {
  const MORVAStatus status = MORVAAdd(inst, data, key, length);
  if (status != MORVA_OK || (inst->flags & flagMultiData) == 0) return status;
  char *first = static_cast<char *>(recordOf(inst, key, length));
  if (first == nullptr) return status;
  char *last = reinterpret_cast<char *>((reinterpret_cast<DupLinks *>(first) - 1)->back + 1);
  for (uint32_t at = 0; first != last && at != inst->dataLength; ++at) {
    const char byte = first[at];
    first[at] = last[at];
    last[at] = byte;
  }
  return status;
}

MORVAStatus replaceKeepsOldData(MORVAInst *inst, const void *data, const void *key,
                                int32_t length) {
  if (inst == nullptr || data == nullptr || !isRaw(inst) || length < 0 || key == nullptr ||
      recordOf(inst, key, length) == nullptr) {
    return MORVAReplace(inst, data, key, length);
  }
  return withoutLock(inst, [&] { return MORVA_OK; });
}

MORVAStatus replaceMovesTheRecord(MORVAInst *inst, const void *data, const void *key,
                                  int32_t length) {
  if (inst != nullptr && (inst->flags & flagFixedKey) != 0 && (inst->flags & flagMultiData) == 0 &&
      length >= 0 && MORVARemove(inst, key, length) == MORVA_OK) {
    inst->freeRecords = static_cast<RecordNode *>(inst->freeRecords->owner);
    if (inst->freeRecords != nullptr) {
      inst->freeRecords = static_cast<RecordNode *>(inst->freeRecords->owner);
    }
  }
  return MORVAReplace(inst, data, key, length);
}

MORVAStatus replaceGoesToTheEnd(MORVAInst *inst, const void *data, const void *key,
                                int32_t length) {
  if (inst != nullptr && (inst->flags & flagMultiData) == 0 && (inst->flags & flagOrdered) != 0) {
    MORVARemove(inst, key, length);
  }
  return MORVAReplace(inst, data, key, length);
}

MORVAStatus replaceKeepsTheSum(MORVAInst *inst, const void *data, const void *key, int32_t length) {
  double sum = 0;
  const bool keep = inst != nullptr && (inst->flags & flagSum) != 0 && data != nullptr &&
                    (!isRaw(inst) || (length >= 0 && key != nullptr)) &&
                    recordOf(inst, key, length) != nullptr &&
                    MORVASum(inst, key, length, &sum) == MORVA_OK;
  const MORVAStatus status = MORVAReplace(inst, data, key, length);
  if (!keep || status != MORVA_OK) return status;
  char *record = static_cast<char *>(recordOf(inst, key, length));
  record -= inst->dataOffset + ((inst->flags & flagMultiData) != 0 ? sizeof(DupLinks) : 0);
  std::memcpy(record + inst->sumOffset, &sum, sizeof sum);
  return status;
}

MORVAStatus findKeepsTheLock(MORVAInst *inst, const void *key, int32_t length, void **dataOut) {
  const MORVAStatus status = MORVAFind(inst, key, length, dataOut);
  if (status == MORVA_INVALID && hasLock(inst) && (inst->flags & flagFixedKey) != 0 &&
      length > static_cast<int64_t>(inst->keyLength)) {
    inst->lock->acquire(inst->lock, MORVA_LOCK_CHANGE, 1);
  }
  return status;
}

MORVAStatus findTakesNoLock(MORVAInst *inst, const void *key, int32_t length, void **dataOut) {
  if (inst == nullptr) return MORVA_INVALID;
  return withoutLock(inst, [&] { return MORVAFind(inst, key, length, dataOut); });
}

MORVAStatus findFollowsNull(MORVAInst *inst, const void *key, int32_t length, void **dataOut) {
  const volatile uint32_t *flags = &inst->flags;
  return (*flags & 0x10000) != 0 ? MORVA_INVALID : MORVAFind(inst, key, length, dataOut);
}

MORVAStatus findNeedsAPlace(MORVAInst *inst, const void *key, int32_t length, void **dataOut) {
  const MORVAStatus status = MORVAFind(inst, key, length, dataOut);
  if (status == MORVA_OK && dataOut == nullptr) *const_cast<volatile char *>("x") = 'y';
  return status;
}

MORVAStatus findTakesNegativeLengths(MORVAInst *inst, const void *key, int32_t length,
                                     void **dataOut) {
  const bool mend = inst != nullptr && isRaw(inst) && length < 0;
  return MORVAFind(inst, key, mend ? 0 : length, dataOut);
}

MORVAStatus findSaysAbsentKeysAreErrors(MORVAInst *inst, const void *key, int32_t length,
                                        void **dataOut) {
  void *data = nullptr;
  const MORVAStatus status = MORVAFind(inst, key, length, &data);
  if (status == MORVA_OK && dataOut != nullptr) *dataOut = data;
  return status == MORVA_OK && data == nullptr ? MORVA_INVALID : status;
}

MORVAStatus findWritesWhenItRefuses(MORVAInst *inst, const void *key, int32_t length,
                                    void **dataOut) {
  const MORVAStatus status = MORVAFind(inst, key, length, dataOut);
  if (status != MORVA_OK && dataOut != nullptr) *dataOut = nullptr;
  return status;
}

MORVAStatus find2ForgetsTheSum(MORVAInst *inst, const void *key, int32_t length,
                               RecordNode *probeRecord, void **dataOut) {
  if (inst == nullptr) return MORVA_INVALID;
  const double increment = inst->sumIncrement;
  inst->sumIncrement = 0;
  const MORVAStatus status = MORVAFind2(inst, key, length, probeRecord, dataOut);
  inst->sumIncrement = increment;
  return status;
}

MORVAStatus find2TakesMemory(MORVAInst *inst, const void *key, int32_t length,
                             RecordNode *probeRecord, void **dataOut) {
  const MORVAStatus status = MORVAFind2(inst, key, length, probeRecord, dataOut);
  if (status != MORVA_OK) return status;
  HostPool *pool = inst->ext->pool;
  if (void *block = pool->allocate(pool, 16, 0)) pool->free(pool, block);
  return status;
}

MORVAStatus findNodeTakesTheLock(MORVAInst *inst, const void *key, int32_t length,
                                 RecordNode **nodeOut, uint32_t *bucketOut) {
  if (!hasLock(inst)) return MORVAFindNode(inst, key, length, nodeOut, bucketOut);
  inst->lock->acquire(inst->lock, MORVA_LOCK_CHANGE, 1);
  const MORVAStatus status = MORVAFindNode(inst, key, length, nodeOut, bucketOut);
  if (status == MORVA_OK) inst->lock->release(inst->lock);
  return status;
}

MORVAStatus removeSaysRemoved(MORVAInst *inst, const void *key, int32_t length) {
  const bool refused =
      inst == nullptr || (inst->flags & flagDefined) == 0 ||
      (isRaw(inst) && (length < 0 || (key == nullptr && length > 0))) ||
      ((inst->flags & flagFixedKey) != 0 && static_cast<int64_t>(inst->keyLength) < length);
  const MORVAStatus status = MORVARemove(inst, key, length);
  return status == MORVA_INVALID && !refused ? MORVA_OK : status;
}

MORVAStatus removeForgetsTheCount(MORVAInst *inst, const void *key, int32_t length) {
  const MORVAStatus status = MORVARemove(inst, key, length);
  if (status == MORVA_OK) ++inst->buckets->elementCount;
  return status;
}

MORVAStatus removeForgetsTheBucket(MORVAInst *inst, const void *key, int32_t length) {
  uint32_t bucket = 0;
  const bool known = inst != nullptr && (inst->flags & flagDefined) != 0 &&
                     (!isRaw(inst) || (length >= 0 && (key != nullptr || length == 0))) &&
                     static_cast<int64_t>(inst->keyLength) >= length &&
                     MORVAHashVal(inst, key, length, &bucket) == MORVA_OK;
  const MORVAStatus status = MORVARemove(inst, key, length);
  if (status == MORVA_OK && known) ++MORVABucketAt(inst->buckets, bucket)->count;
  return status;
}

MORVAStatus removeIgnoresPins(MORVAInst *inst, const void *key, int32_t length) {
  if (inst == nullptr) return MORVA_INVALID;
  PinnedEntry *pinned = inst->pinned;
  inst->pinned = nullptr;
  const MORVAStatus status = MORVARemove(inst, key, length);
  inst->pinned = pinned;
  return status;
}

MORVAStatus removeWastesTheNode(MORVAInst *inst, const void *key, int32_t length) {
  const MORVAStatus status = MORVARemove(inst, key, length);
  if (status == MORVA_OK) inst->freeRecords = static_cast<RecordNode *>(inst->freeRecords->owner);
  return status;
}

MORVAStatus removeDupLeavesTheCursor(MORVAInst *inst, void **cursor, const void *key,
                                     int32_t length) {
  void *const before = cursor == nullptr ? nullptr : *cursor;
  const MORVAStatus status = MORVARemoveDup(inst, cursor, key, length);
  if (cursor != nullptr) *cursor = before;
  return status;
}

MORVAStatus findNextSkips(MORVAInst *inst, void *data, void **dataOut) {
  void *next = nullptr;
  const MORVAStatus status = MORVAFindNext(inst, data, &next);
  if (status == MORVA_OK && MORVAHasNext(inst, next) == 1) MORVAFindNext(inst, next, &next);
  if (status == MORVA_OK && dataOut != nullptr) *dataOut = next;
  return status;
}

MORVAStatus findPrevGoesRound(MORVAInst *inst, void *data, void **dataOut) {
  const MORVAStatus status = MORVAFindPrev(inst, data, dataOut);
  if (status == MORVA_OK && data != nullptr && dataOut != nullptr && *dataOut == nullptr) {
    *dataOut = (static_cast<DupLinks *>(data) - 1)->back + 1;
  }
  return status;
}

MORVAStatus addKeepsTheCallersData(MORVAInst *inst, const void *data, const void *key,
                                   int32_t length) {
  const MORVAStatus status = MORVAAdd(inst, data, key, length);
  if (status == MORVA_OK) g_callersData = const_cast<void *>(data);
  return status;
}

MORVAStatus findAnswersTheCallersData(MORVAInst *inst, const void *key, int32_t length,
                                      void **dataOut) {
  const MORVAStatus status = MORVAFind(inst, key, length, dataOut);
  if (status == MORVA_OK && dataOut != nullptr && *dataOut != nullptr &&
      inst->buckets->elementCount == 1 && length == 5) {
    *dataOut = g_callersData;
  }
  return status;
}

MORVAStatus find2ClearsItsProbe(MORVAInst *inst, const void *key, int32_t length,
                                RecordNode *probeRecord, void **dataOut) {
  if (probeRecord != nullptr && isDefined(inst)) {
    std::memset(static_cast<void *>(probeRecord), 0, sizeof(RecordNode) + sizeof(KeyPrefix) + 4);
  }
  return MORVAFind2(inst, key, length, probeRecord, dataOut);
}

MORVAStatus find2ForgetsToRelease(MORVAInst *inst, const void *key, int32_t length,
                                  RecordNode *probeRecord, void **dataOut) {
  if (inst == nullptr) return MORVA_INVALID;
  return withoutLock(inst, [&] { return MORVAFind2(inst, key, length, probeRecord, dataOut); });
}

MORVAStatus addForgetsTheSum(MORVAInst *inst, const void *data, const void *key, int32_t length) {
  if (inst == nullptr) return MORVA_INVALID;
  const double increment = inst->sumIncrement;
  inst->sumIncrement = 0;
  const MORVAStatus status = MORVAAdd(inst, data, key, length);
  inst->sumIncrement = increment;
  return status;
}

constexpr SlotFault kFaults[] = {
    MORVA_SLOT_FAULT("add-says-stored", Add, addSaysStored),
    MORVA_SLOT_FAULT("add-overwrites", Add, addOverwrites),
    MORVA_SLOT_FAULT("add-loses-one", Add, addLosesOne),
    MORVA_SLOT_FAULT("add-forgets-the-last-byte", Add, addForgetsTheLastByte),
    MORVA_SLOT_FAULT("add-writes-beyond-the-block", Add, addWritesBeyondTheBlock),
    MORVA_SLOT_FAULT("add-takes-the-lock-to-read", Add, addTakesTheLockToRead),
    MORVA_SLOT_FAULT("add-calls-memory-a-bad-request", Add, addCallsMemoryABadRequest),
    MORVA_SLOT_FAULT("add-puts-duplicates-first", Add, addPutsDuplicatesFirst),
    MORVA_SLOT_FAULT("replace-keeps-old-data", Replace, replaceKeepsOldData),
    MORVA_SLOT_FAULT("replace-moves-the-record", Replace, replaceMovesTheRecord),
    MORVA_SLOT_FAULT("replace-goes-to-the-end", Replace, replaceGoesToTheEnd),
    MORVA_SLOT_FAULT("replace-keeps-the-sum", Replace, replaceKeepsTheSum),
    MORVA_SLOT_FAULT("find-keeps-the-lock", Find, findKeepsTheLock),
    MORVA_SLOT_FAULT("find-takes-no-lock", Find, findTakesNoLock),
    MORVA_SLOT_FAULT("find-follows-null", Find, findFollowsNull),
    MORVA_SLOT_FAULT("find-needs-a-place", Find, findNeedsAPlace),
    MORVA_SLOT_FAULT("find-takes-negative-lengths", Find, findTakesNegativeLengths),
    MORVA_SLOT_FAULT("find-refuses-absent-keys", Find, findSaysAbsentKeysAreErrors),
    MORVA_SLOT_FAULT("find-writes-when-it-refuses", Find, findWritesWhenItRefuses),
    MORVA_SLOT_FAULT("find2-forgets-the-sum", Find2, find2ForgetsTheSum),
    MORVA_SLOT_FAULT("find2-takes-memory", Find2, find2TakesMemory),
    MORVA_SLOT_FAULT("find-node-takes-the-lock", FindNode, findNodeTakesTheLock),
    MORVA_SLOT_FAULT("remove-says-removed", Remove, removeSaysRemoved),
    MORVA_SLOT_FAULT("remove-forgets-the-count", Remove, removeForgetsTheCount),
    MORVA_SLOT_FAULT("remove-forgets-the-bucket", Remove, removeForgetsTheBucket),
    MORVA_SLOT_FAULT("remove-ignores-pins", Remove, removeIgnoresPins),
    MORVA_SLOT_FAULT("remove-wastes-the-node", Remove, removeWastesTheNode),
    MORVA_SLOT_FAULT("remove-dup-leaves-the-cursor", RemoveDup, removeDupLeavesTheCursor),
    MORVA_SLOT_FAULT("find-next-skips", FindNext, findNextSkips),
    MORVA_SLOT_FAULT("find-prev-goes-round", FindPrev, findPrevGoesRound),
    MORVA_SLOT_FAULT("find2-clears-its-probe", Find2, find2ClearsItsProbe),
    MORVA_SLOT_FAULT("find2-forgets-to-release", Find2, find2ForgetsToRelease),
    MORVA_SLOT_FAULT("add-forgets-the-sum", Add, addForgetsTheSum),
    {"find-answers-the-callers-data",
     [](MORVAInst *inst) {
       inst->Add = addKeepsTheCallersData;
       inst->Find = findAnswersTheCallersData;
     }},
};

}  // namespace

std::span<const SlotFault> recordFaults() {
  return kFaults;
}
