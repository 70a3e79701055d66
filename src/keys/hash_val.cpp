// The bucket of a key, without a look at the table.
#include "keys/probe.h"
#include "morva/operations.h"

using namespace morva::core;

extern "C" MORVAStatus MORVAHashVal(MORVAInst *inst, const void *key, int32_t length,
                                    uint32_t *bucketOut) {
  if (!isDefined(inst) || !acceptsKey(*inst, key, length)) return MORVA_INVALID;
  ScopeLock lock(lockOf(*inst));
  Probe probe;
  const MORVAStatus status = takeProbe(*inst, key, length, Overlong::losesNode, probe);
  if (status != MORVA_OK) return status;
  releaseRecordNode(*inst, probe.node);
  if (bucketOut != nullptr) *bucketOut = probe.index;
  return MORVA_OK;
}
