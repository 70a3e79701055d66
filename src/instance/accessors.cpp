// Sizes and counts. No lock: each value is one relaxed read.
#include "instance/instance.h"
#include "instance/layout.h"
#include "morva/operations.h"

using namespace morva::core;

extern "C" {

uint32_t MORVANumElements(const MORVAInst *inst) {
  return isDefined(inst) ? relaxedLoad(inst->buckets->elementCount) : 0;
}

uint32_t MORVAHashSize(const MORVAInst *inst) {
  return isDefined(inst) ? inst->buckets->mask + 1 : 0;
}

uint32_t MORVABucketSize(const MORVAInst *inst, uint32_t index) {
  if (!isDefined(inst) || index > inst->buckets->mask) return 0;
  return relaxedLoad(MORVABucketAt(inst->buckets, index)->count);
}

uint32_t MORVARecSize(const MORVAInst *inst) {
  return isDefined(inst) ? slotSize(relaxedLoad(inst->recordSize)) : 0;
}

uint64_t MORVATotalMem(const MORVAInst *inst) {
  return isDefined(inst) ? relaxedLoad(inst->totalMem) : 0;
}

}  // extern "C"
