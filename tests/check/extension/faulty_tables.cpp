// Faults of operations on whole instances, of sums, hashes, definitions and accessors.
#include <unistd.h>

#include <cmath>

#include "faulty_slots.h"

namespace {

MORVAStatus sumAdds(MORVAInst *inst, const void *key, int32_t length, double *sumOut) {
  const MORVAStatus status = MORVASum(inst, key, length, sumOut);
  if (status == MORVA_OK) MORVAFind(inst, key, length, nullptr);
  return status;
}

MORVAStatus sumKeyForgetsTheRecord(MORVAInst *inst, void *data, double *sumOut, int32_t) {
  char aside[8];
  if (data == nullptr) return MORVASumKey(inst, data, sumOut, 0);
  std::memcpy(aside, data, sizeof aside);
  const MORVAStatus status = MORVASumKey(inst, data, sumOut, 0);
  std::memcpy(data, aside, sizeof aside);
  return status;
}

void setSumIncTakesNaN(MORVAInst *inst, double increment) {
  if (inst != nullptr && std::isnan(increment)) {
    inst->sumIncrement = increment;
  } else {
    MORVASetSumInc(inst, increment);
  }
}

MORVAStatus clearNeverEnds(MORVAInst *) {
  for (;;) pause();
}

MORVAStatus clearIsQuietAboutPins(MORVAInst *inst) {
  const MORVAStatus status = MORVAClear(inst);
  return status == MORVA_PINNED ? MORVA_OK : status;
}

MORVAStatus clearEmptiesTheOrderEarly(MORVAInst *inst) {
  if (isDefined(inst) && inst->orderList != nullptr) inst->orderList->head = nullptr;
  return MORVAClear(inst);
}

MORVAStatus clearForgetsTheOrder(MORVAInst *inst) {
  void *const head =
      inst == nullptr || inst->orderList == nullptr ? nullptr : inst->orderList->head;
  const MORVAStatus status = MORVAClear(inst);
  if (head != nullptr) inst->orderList->head = head;
  return status;
}

MORVAStatus equalsIgnoresData(MORVAInst *a, MORVAInst *b, uint32_t *equalOut) {
  const MORVAStatus status = MORVAEquals(a, b, equalOut);
  if (status == MORVA_OK && equalOut != nullptr &&
      a->buckets->elementCount == b->buckets->elementCount &&
      a->buckets->mask == b->buckets->mask && a->recordSize == b->recordSize &&
      a->keyLength == b->keyLength) {
    *equalOut = 1;
  }
  return status;
}

MORVAStatus equalsTakesOneLock(MORVAInst *a, MORVAInst *b, uint32_t *equalOut) {
  if (b == nullptr || a == b) return MORVAEquals(a, b, equalOut);
  return withoutLock(b, [&] { return MORVAEquals(a, b, equalOut); });
}

MORVAStatus hashValLeavesTheMask(MORVAInst *inst, const void *key, int32_t length,
                                 uint32_t *bucketOut) {
  const MORVAStatus status = MORVAHashVal(inst, key, length, bucketOut);
  if (status == MORVA_OK && bucketOut != nullptr) *bucketOut += inst->buckets->mask + 1;
  return status;
}

MORVAStatus hashValLooksAtAddresses(MORVAInst *inst, const void *key, int32_t length,
                                    uint32_t *bucketOut) {
  const MORVAStatus status = MORVAHashVal(inst, key, length, bucketOut);
  if (status == MORVA_OK && bucketOut != nullptr) {
    *bucketOut ^= static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key)) & inst->buckets->mask & 1;
  }
  return status;
}

MORVAStatus hashValNamesTheNext(MORVAInst *inst, const void *key, int32_t length,
                                uint32_t *bucketOut) {
  const MORVAStatus status = MORVAHashVal(inst, key, length, bucketOut);
  if (status == MORVA_OK && bucketOut != nullptr) {
    *bucketOut = (*bucketOut + 1) & inst->buckets->mask;
  }
  return status;
}

uint32_t numElementsTakesTheLock(const MORVAInst *inst) {
  if (!hasLock(inst)) return MORVANumElements(inst);
  inst->lock->acquire(inst->lock, MORVA_LOCK_CHANGE, 1);
  const uint32_t count = MORVANumElements(inst);
  inst->lock->release(inst->lock);
  return count;
}

uint32_t bucketSizeReadsBeyond(const MORVAInst *inst, uint32_t index) {
  const uint32_t count = MORVABucketSize(inst, index);
  return inst != nullptr && (inst->flags & flagDefined) != 0 && index == inst->buckets->mask + 1
             ? 1
             : count;
}

uint64_t totalMemForgetsHeaders(const MORVAInst *inst) {
  const uint64_t bytes = MORVATotalMem(inst);
  return bytes == 0 ? 0 : bytes - 16 * uint64_t{inst->recordBlockCount};
}

uint64_t recoffForgetsVariableKeys(const MORVAInst *inst, const RecordNode *node) {
  if (inst == nullptr) return 0;
  return (inst->flags & flagVarKey) != 0 && node != nullptr ? 16 : MORVARecoff(inst, node);
}

MORVAStatus destroyForgetsTheLock(MORVAInst *inst) {
  inst->flags |= flagNoLock;
  return MORVADestroy(inst);
}

MORVAStatus destroyForgetsPins(MORVAInst *inst) {
  inst->pinned = nullptr;
  return MORVADestroy(inst);
}

MORVAStatus destroyEndsTheProcess(MORVAInst *) {
  _exit(0);
}

MORVAStatus defineKeyForgetsSubTypes(MORVAInst *inst, const MORVAKeyDesc *desc) {
  if (desc == nullptr || desc->fieldType != 5) return MORVADefineKey(inst, desc);
  MORVAKeyDesc plain = *desc;
  plain.fieldType = 2;
  return MORVADefineKey(inst, &plain);
}

MORVAStatus defineDoneAnswersTwice(MORVAInst *inst, int32_t packerArg, uint32_t dataLength) {
  if (inst != nullptr && (inst->flags & flagDefined) != 0) return MORVA_OK;
  return MORVADefineDone(inst, packerArg, dataLength);
}

MORVAStatus defineKeyForgetsTheClass(MORVAInst *inst, const MORVAKeyDesc *desc) {
  if (inst == nullptr) return MORVA_INVALID;
  const uint32_t flags = inst->flags;
  inst->flags &= ~uint32_t{flagPackOpt};
  const MORVAStatus status = MORVADefineKey(inst, desc);
  inst->flags = flags;
  return status;
}

MORVAStatus defineDoneDropsTheSign(MORVAInst *inst, int32_t packerArg, uint32_t dataLength) {
  return MORVADefineDone(inst, packerArg & 0x7FFFFFFF, dataLength);
}

MORVAStatus defineDoneGivesUp(MORVAInst *inst, int32_t packerArg, uint32_t dataLength) {
  if (inst != nullptr && inst->recordPool != nullptr) return MORVA_INVALID;
  return MORVADefineDone(inst, packerArg, dataLength);
}

MORVAStatus sumAnswersWithoutSums(MORVAInst *inst, const void *key, int32_t length,
                                  double *sumOut) {
  const MORVAStatus status = MORVASum(inst, key, length, sumOut);
  return status == MORVA_NO_SUM ? MORVA_OK : status;
}

uint32_t recSizeForgetsTheHeader(const MORVAInst *inst) {
  const uint32_t size = MORVARecSize(inst);
  return size == 0 ? 0 : size - 32;
}

MORVAStatus equalsIgnoresShapes(MORVAInst *a, MORVAInst *b, uint32_t *equalOut) {
  const MORVAStatus status = MORVAEquals(a, b, equalOut);
  if (status == MORVA_OK && equalOut != nullptr &&
      a->buckets->elementCount + b->buckets->elementCount == 0) {
    *equalOut = 1;
  }
  return status;
}

MORVAStatus equalsComparesFlags(MORVAInst *a, MORVAInst *b, uint32_t *equalOut) {
  const MORVAStatus status = MORVAEquals(a, b, equalOut);
  if (status == MORVA_OK && equalOut != nullptr && a->flags != b->flags) *equalOut = 0;
  return status;
}

MORVAStatus equalsTakesVariableKeys(MORVAInst *a, MORVAInst *b, uint32_t *equalOut) {
  const MORVAStatus status = MORVAEquals(a, b, equalOut);
  if (status != MORVA_INVALID || !isDefined(a) || !isDefined(b)) return status;
  if (equalOut != nullptr) *equalOut = 0;
  return MORVA_OK;
}

constexpr SlotFault kFaults[] = {
    MORVA_SLOT_FAULT("sum-adds", Sum, sumAdds),
    MORVA_SLOT_FAULT("sum-key-forgets-the-record", SumKey, sumKeyForgetsTheRecord),
    MORVA_SLOT_FAULT("set-sum-inc-takes-nan", SetSumInc, setSumIncTakesNaN),
    MORVA_SLOT_FAULT("clear-never-ends", Clear, clearNeverEnds),
    MORVA_SLOT_FAULT("clear-is-quiet-about-pins", Clear, clearIsQuietAboutPins),
    MORVA_SLOT_FAULT("clear-empties-the-order-early", Clear, clearEmptiesTheOrderEarly),
    MORVA_SLOT_FAULT("clear-forgets-the-order", Clear, clearForgetsTheOrder),
    MORVA_SLOT_FAULT("clear2-gives-memory-back", Clear2, MORVAClear),
    MORVA_SLOT_FAULT("equals-ignores-data", Equals, equalsIgnoresData),
    MORVA_SLOT_FAULT("equals-takes-one-lock", Equals, equalsTakesOneLock),
    MORVA_SLOT_FAULT("hash-val-leaves-the-mask", HashVal, hashValLeavesTheMask),
    MORVA_SLOT_FAULT("hash-val-looks-at-addresses", HashVal, hashValLooksAtAddresses),
    MORVA_SLOT_FAULT("hash-val-names-the-next", HashVal, hashValNamesTheNext),
    MORVA_SLOT_FAULT("num-elements-takes-the-lock", NumElements, numElementsTakesTheLock),
    MORVA_SLOT_FAULT("bucket-size-reads-beyond", BucketSize, bucketSizeReadsBeyond),
    MORVA_SLOT_FAULT("total-mem-forgets-headers", TotalMem, totalMemForgetsHeaders),
    MORVA_SLOT_FAULT("recoff-forgets-variable-keys", Recoff, recoffForgetsVariableKeys),
    MORVA_SLOT_FAULT("destroy-forgets-the-lock", Destroy, destroyForgetsTheLock),
    MORVA_SLOT_FAULT("destroy-forgets-pins", Destroy, destroyForgetsPins),
    MORVA_SLOT_FAULT("destroy-ends-the-process", Destroy, destroyEndsTheProcess),
    MORVA_SLOT_FAULT("define-key-forgets-sub-types", DefineKey, defineKeyForgetsSubTypes),
    MORVA_SLOT_FAULT("define-done-answers-twice", DefineDone, defineDoneAnswersTwice),
    MORVA_SLOT_FAULT("create-leaves-a-slot-empty", HasPrev, nullptr),
    MORVA_SLOT_FAULT("define-key-forgets-the-class", DefineKey, defineKeyForgetsTheClass),
    MORVA_SLOT_FAULT("define-done-drops-the-sign", DefineDone, defineDoneDropsTheSign),
    MORVA_SLOT_FAULT("define-done-gives-up", DefineDone, defineDoneGivesUp),
    MORVA_SLOT_FAULT("sum-answers-without-sums", Sum, sumAnswersWithoutSums),
    MORVA_SLOT_FAULT("rec-size-forgets-the-header", RecSize, recSizeForgetsTheHeader),
    MORVA_SLOT_FAULT("equals-ignores-shapes", Equals, equalsIgnoresShapes),
    MORVA_SLOT_FAULT("equals-compares-flags", Equals, equalsComparesFlags),
    MORVA_SLOT_FAULT("equals-takes-variable-keys", Equals, equalsTakesVariableKeys),
    {"create-counts-a-bucket", [](MORVAInst *inst) { inst->buckets->usedBuckets = 1; }},
    {"create-wastes-a-word",
     [](MORVAInst *inst) {
       inst->dataOffset += (inst->flags & flagFixedKey) != 0 ? 8 : 0;
       inst->recordSize += (inst->flags & flagFixedKey) != 0 ? 8 : 0;
     }},
    {"create-misaligns-data",
     [](MORVAInst *inst) {
       if ((inst->flags & (flagFixedKey | flagSum | flagMultiData)) != flagFixedKey) return;
       inst->dataOffset += 4;
       inst->recordSize += 4;
     }},
    {"create-makes-slots-too-small",
     [](MORVAInst *inst) {
       if ((inst->flags & flagFixedKey) != 0) inst->recordSize -= 16;
     }},
};

}  // namespace

std::span<const SlotFault> tableFaults() {
  return kFaults;
}
