// Lookup: the data pointer of the record with a key.
#include "keys/probe.h"
#include "morva/operations.h"
#include "ops/visit.h"

namespace morva::core {
namespace {

// The data pointer of what a search found, or null; a found record is counted.
void *reach(const MORVAInst &inst, RecordNode *found, uint32_t dataOffset) {
  if (found == nullptr) return nullptr;
  void *data = dataOf(inst, found, dataOffset);
  countVisit(inst, data);
  return data;
}

void store(void **place, void *data) {
  if (place != nullptr) *place = data;
}

// Searches with a scratch record; `toData` turns what was found into a data
// pointer.
template <class ToData>
MORVAStatus find(MORVAInst &inst, const void *key, int32_t length, void **dataOut, ToData toData) {
  ScopeLock lock(lockOf(inst));
  Probe probe;
  const MORVAStatus status = takeProbe(inst, key, length, Overlong::losesNode, probe);
  if (status != MORVA_OK) return status;
  RecordNode *found = findEqual(inst, probe);
  releaseRecordNode(inst, probe.node);
  store(dataOut, toData(found, probe.dataOffset));
  return MORVA_OK;
}

}  // namespace
}  // namespace morva::core

using namespace morva::core;

extern "C" {

MORVAStatus MORVAFind(MORVAInst *inst, const void *key, int32_t length, void **dataOut) {
  if (!isDefined(inst) || !acceptsKey(*inst, key, length)) return MORVA_INVALID;
  return find(*inst, key, length, dataOut, [inst](RecordNode *found, uint32_t dataOffset) {
    return reach(*inst, found, dataOffset);
  });
}

MORVAStatus MORVAFastFind(MORVAInst *inst, const void *key, int32_t length, void **dataOut) {
  if (!isDefined(inst) || !acceptsKey(*inst, key, length)) return MORVA_INVALID;
  return find(*inst, key, length, dataOut, [](RecordNode *found, uint32_t dataOffset) -> void * {
    return found == nullptr ? nullptr : baseOf(found) + dataOffset;
  });
}

MORVAStatus MORVAFind2(MORVAInst *inst, const void *key, int32_t length, RecordNode *probeRecord,
                       void **dataOut) {
  if (!isDefined(inst) || probeRecord == nullptr || !acceptsKey(*inst, key, length)) {
    return MORVA_INVALID;
  }
  probeRecord->owner = inst;
  Probe probe;
  probe.dataOffset = dataOffsetFor(*inst, length);
  const MORVAStatus status = fillProbe(*inst, probeRecord, key, length, probe);
  if (status != MORVA_OK) {
    releaseUnheld(*inst);
    return status;
  }
  store(dataOut, reach(*inst, findEqual(*inst, probe), probe.dataOffset));
  return MORVA_OK;
}

}  // extern "C"
