// From a node to the parts of its record and back.
#pragma once

#include "instance/instance.h"
#include "instance/layout.h"

namespace morva::core {

inline unsigned char *baseOf(RecordNode *node) {
  return static_cast<unsigned char *>(MORVARecordBase(node));
}

inline RecordNode *nodeAtBase(void *base) {
  return static_cast<RecordNode *>(base) - 1;
}

inline KeyPrefix *prefixOf(RecordNode *node) {
  return static_cast<KeyPrefix *>(MORVARecordBase(node));
}

// From the record base of any record with a key of keyLen bytes to its data
// part; keyLen counts with flagVarKey only.
inline uint32_t dataOffsetFor(const MORVAInst &inst, int32_t keyLen) {
  return has(inst, flagVarKey) ? static_cast<uint32_t>(varDataOffset(static_cast<uint32_t>(keyLen)))
                               : inst.dataOffset;
}

// ---- Instances with flagMultiData: the links, and the data behind them ----

inline DupLinks *linksOf(const MORVAInst &inst, RecordNode *node) {
  return reinterpret_cast<DupLinks *>(baseOf(node) + inst.dataOffset);
}

inline RecordNode *nodeOfLinks(const MORVAInst &inst, DupLinks *links) {
  return nodeAtBase(reinterpret_cast<unsigned char *>(links) - inst.dataOffset);
}

inline void *dataBehind(DupLinks *links) {
  return links + 1;
}

inline DupLinks *linksBefore(void *data) {
  return static_cast<DupLinks *>(data) - 1;
}
inline const DupLinks *linksBefore(const void *data) {
  return static_cast<const DupLinks *>(data) - 1;
}

inline bool isFirstOfChain(const DupLinks *links) {
  return links->back->next == nullptr;
}

inline void makeChainOfOne(DupLinks *links) {
  links->next = nullptr;
  links->back = links;
}

// ---- Data and sum ----------------------------------------------------------

// Bytes between dataOffset and the data itself.
inline uint32_t linksLength(const MORVAInst &inst) {
  return has(inst, flagMultiData) ? sizeof(DupLinks) : 0;
}

inline void *dataOf(const MORVAInst &inst, RecordNode *node, uint32_t dataOffset) {
  return baseOf(node) + dataOffset + linksLength(inst);
}

// Instances with flagSum.
inline double *sumOf(const MORVAInst &inst, RecordNode *node) {
  return reinterpret_cast<double *>(baseOf(node) + inst.sumOffset);
}

// The sum of the record whose data pointer is `data`.
inline double *sumAtData(const MORVAInst &inst, const void *data) {
  auto *bytes = const_cast<unsigned char *>(static_cast<const unsigned char *>(data));
  return reinterpret_cast<double *>(bytes - linksLength(inst) - inst.dataOffset + inst.sumOffset);
}

}  // namespace morva::core
