// The stored node of a key, and where a node's data begins.
#include "keys/probe.h"
#include "morva/operations.h"

using namespace morva::core;

extern "C" {

MORVAStatus MORVAFindNode(MORVAInst *inst, const void *key, int32_t keyLen, RecordNode **nodeOut,
                          uint32_t *bucketOut) {
  if (!isDefined(inst) || !acceptsKey(*inst, key, keyLen)) return MORVA_INVALID;
  Probe probe;
  const MORVAStatus status = takeProbe(*inst, key, keyLen, Overlong::returnsNode, probe);
  if (status != MORVA_OK) {
    releaseUnheld(*inst);
    return status;
  }
  RecordNode *found = findEqual(*inst, probe);
  releaseRecordNode(*inst, probe.node);
  if (nodeOut != nullptr) *nodeOut = found;
  if (bucketOut != nullptr) *bucketOut = probe.index;
  return MORVA_OK;
}

uint64_t MORVARecoff(const MORVAInst *inst, const RecordNode *node) {
  if (inst == nullptr) return 0;
  if (!has(*inst, flagVarKey)) return inst->dataOffset;
  if (node == nullptr) return 0;
  return varDataOffset(prefixOf(const_cast<RecordNode *>(node))->length);
}

}  // extern "C"
