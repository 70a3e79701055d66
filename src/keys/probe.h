// A key as every keyed operation sees it: written into a node as a key image,
// hashed, and its bucket found.
#pragma once

#include "instance/storage.h"

namespace morva::core {

struct Probe {
  RecordNode *node;     // carries the image
  Bucket *bucket;       // where records with this key lie
  uint32_t index;       // of that bucket
  uint32_t dataOffset;  // from the record base of such a record
};

// What becomes of the node taken for a fixed key that turns out too long.
enum class Overlong {
  losesNode,  // it stays out of use until MORVAClear
  returnsNode,
};

inline bool hasRawKeys(const MORVAInst &inst) {
  return has(inst, flagFixedKey | flagVarKey);
}

// The refusals that come before the lock and before a node is taken.
inline bool acceptsKey(const MORVAInst &inst, const void *key, int32_t keyLen) {
  if (!hasRawKeys(inst)) return true;
  if (keyLen < 0 || (key == nullptr && keyLen > 0)) return false;
  if (!has(inst, flagVarKey)) return true;
  return slotFits(varDataOffset(static_cast<uint32_t>(keyLen)) + inst.dataLength);
}

// Takes a node and makes the probe of `key` in it. MORVA_NO_MEMORY when there
// is no node; MORVA_INVALID for a fixed key above keyLength.
MORVAStatus takeProbe(MORVAInst &inst, const void *key, int32_t keyLen, Overlong overlong,
                      Probe &probe);

// The same in a node of the caller's; its links are left alone, and
// `dataOffset` is the caller's to fill.
MORVAStatus fillProbe(MORVAInst &inst, RecordNode *node, const void *key, int32_t keyLen,
                      Probe &probe);

// The probe that a stored record of an instance without flagVarKey is itself.
Probe probeOf(const MORVAInst &inst, RecordNode *stored);

// The stored record with the probe's key, or null.
inline RecordNode *findEqual(MORVAInst &inst, const Probe &probe) {
  return inst.tree->find(inst.tree, probe.bucket, probe.node);
}

}  // namespace morva::core
