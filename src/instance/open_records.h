// Fixing a layout in an instance and opening the storage for it: shared by
// creation (fixed keys) and the end of a definition (defined fields).
#pragma once

#include "ext/services.h"
#include "instance/layout.h"
#include "instance/storage.h"

namespace morva::core {

inline void applyLayout(MORVAInst &inst, const Layout &layout) {
  inst.keyLength = layout.keyLength;
  if (has(inst, flagSum)) {
    inst.sumOffset = layout.sumOffset;
    relaxedStore(inst.sumIncrement, 0.0);
  }
  inst.dataOffset = layout.dataOffset;
  relaxedStore(inst.recordSize, layout.recordSize);
}

// Makes the pool "records" and turns recordBlockMax, until now a number of
// bytes, into a number of slots. False when the pool cannot be made.
inline bool openRecordPool(MORVAInst &inst) {
  inst.recordPool = createPool(MORVA_POOL_RECORDS, nullptr, "records");
  inst.recordsUsed = kFirstCapacity;
  inst.recordBlockCapacity = kFirstCapacity;
  inst.recordBlocks = nullptr;
  if (inst.recordPool == nullptr) return false;
  const auto bytes = static_cast<uint64_t>(inst.recordBlockMax);
  inst.recordBlockMax = static_cast<int64_t>(bytes / slotSize(inst.recordSize));
  return true;
}

}  // namespace morva::core
