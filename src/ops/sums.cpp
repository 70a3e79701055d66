// Reading running sums, and setting what lookups add to them.
#include <cstring>

#include "keys/probe.h"
#include "morva/operations.h"

using namespace morva::core;

extern "C" {

void MORVASetSumInc(MORVAInst *inst, double increment) {
  if (!isDefined(inst) || !has(*inst, flagSum)) return;
  if (increment != increment) return;  // a NaN would spoil every sum it reaches
  relaxedStore(inst->sumIncrement, increment);
}

MORVAStatus MORVASum(MORVAInst *inst, const void *key, int32_t keyLen, double *sumOut) {
  if (!isDefined(inst)) return MORVA_INVALID;
  if (!has(*inst, flagSum)) return MORVA_NO_SUM;
  if (!acceptsKey(*inst, key, keyLen)) return MORVA_INVALID;
  ScopeLock lock(lockOf(*inst));
  Probe probe;
  const MORVAStatus status = takeProbe(*inst, key, keyLen, Overlong::losesNode, probe);
  if (status != MORVA_OK) return status;
  RecordNode *found = findEqual(*inst, probe);
  releaseRecordNode(*inst, probe.node);
  if (sumOut != nullptr) *sumOut = found == nullptr ? 0.0 : *sumOf(*inst, found);
  return MORVA_OK;
}

MORVAStatus MORVASumDup(MORVAInst *inst, const void *data, double *sumOut) {
  if (!isDefined(inst) || !has(*inst, flagMultiData)) return MORVA_INVALID;
  if (!has(*inst, flagSum)) return MORVA_NO_SUM;
  ScopeLock lock(lockOf(*inst));
  if (sumOut != nullptr) *sumOut = data == nullptr ? 0.0 : *sumAtData(*inst, data);
  return MORVA_OK;
}

MORVAStatus MORVASumKey(MORVAInst *inst, void *data, double *sumOut, int32_t storeOffset) {
  if (!isDefined(inst)) return MORVA_INVALID;
  if (!has(*inst, flagSum)) return MORVA_NO_SUM;
  ScopeLock lock(lockOf(*inst));
  if (sumOut == nullptr) return MORVA_OK;
  if (data == nullptr) {
    *sumOut = 0.0;
    return MORVA_OK;
  }
  const double sum = *sumAtData(*inst, data);
  *sumOut = sum;
  // Also into the record, where the host's data has a place for it.
  std::memcpy(static_cast<unsigned char *>(data) + storeOffset, &sum, sizeof sum);
  return MORVA_OK;
}

}  // extern "C"
