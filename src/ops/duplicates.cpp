// Walking the records of one key, and changing one of them. The cursor is the
// caller's: the data pointer of a record.
#include <cstring>

#include "morva/operations.h"
#include "ops/visit.h"

namespace morva::core {
namespace {

bool hasChains(const MORVAInst *inst) {
  return isDefined(inst) && has(*inst, flagMultiData);
}

DupLinks *linksAfter(void *data) {
  return linksBefore(data)->next;
}

DupLinks *linksAhead(void *data) {
  DupLinks *links = linksBefore(data);
  return isFirstOfChain(links) ? nullptr : links->back;
}

// The record that `step` leads to from the cursor, as a data pointer.
template <class Step>
MORVAStatus move(MORVAInst *inst, void *data, void **dataOut, Step step) {
  if (!hasChains(inst)) return MORVA_INVALID;
  ScopeLock lock(lockOf(*inst));
  void *reached = nullptr;
  if (data != nullptr) {
    if (DupLinks *links = step(data)) {
      reached = dataBehind(links);
      countVisit(*inst, reached);
    }
  }
  if (dataOut != nullptr) *dataOut = reached;
  return MORVA_OK;
}

}  // namespace
}  // namespace morva::core

using namespace morva::core;

extern "C" {

uint32_t MORVAHasNext(MORVAInst *inst, const void *data) {
  if (!hasChains(inst) || data == nullptr) return 0;
  ScopeLock lock(lockOf(*inst));
  return linksBefore(data)->next != nullptr ? 1 : 0;
}

uint32_t MORVAHasPrev(MORVAInst *inst, const void *data) {
  if (!hasChains(inst) || data == nullptr) return 0;
  ScopeLock lock(lockOf(*inst));
  return isFirstOfChain(linksBefore(data)) ? 0 : 1;
}

MORVAStatus MORVAFindNext(MORVAInst *inst, void *data, void **dataOut) {
  return move(inst, data, dataOut, linksAfter);
}

MORVAStatus MORVAFindPrev(MORVAInst *inst, void *data, void **dataOut) {
  return move(inst, data, dataOut, linksAhead);
}

MORVAStatus MORVAReplaceDup(MORVAInst *inst, void *data, const void *newData) {
  // On any defined instance: a data pointer is enough, with or without chains.
  if (!isDefined(inst)) return MORVA_INVALID;
  if (data != nullptr && newData == nullptr && inst->dataLength != 0) return MORVA_INVALID;
  ScopeLock lock(lockOf(*inst));
  if (data == nullptr) return MORVA_NO_CURSOR;
  if (inst->dataLength != 0) std::memmove(data, newData, inst->dataLength);
  if (has(*inst, flagSum)) *sumAtData(*inst, data) = relaxedLoad(inst->sumIncrement);
  return MORVA_OK;
}

}  // extern "C"
