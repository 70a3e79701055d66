#include "keys/probe.h"

#include "keys/hash.h"
#include "keys/move_bytes.h"
#include "morva/search.hpp"

namespace morva::core {
namespace {

// Finds the bucket of a key image, and asks for its memory.
void chooseBucket(const MORVAInst &inst, const unsigned char *bytes, uint32_t length,
                  Probe &probe) {
  const uint32_t hash = hashKey(inst.hashMethod, bytes, length);
  probe.index = hash & inst.buckets->mask;
  probe.bucket = MORVABucketAt(inst.buckets, probe.index);
  __builtin_prefetch(probe.bucket);
}

// Writes a raw key into the key area of `node`.
void writeRawImage(const MORVAInst &inst, RecordNode *node, const void *key, uint32_t length) {
  KeyPrefix *prefix = prefixOf(node);
  // The word is compared with whole instances.
  if (has(inst, flagFixedKey)) prefix->capacity = 0;
  prefix->length = length;
  // A caller's key may lie in the caller's own probe.
  moveBytes(prefix + 1, key, length);
}

}  // namespace

MORVAStatus fillProbe(MORVAInst &inst, RecordNode *node, const void *key, int32_t keyLen,
                      Probe &probe) {
  probe.node = node;
  if (!hasRawKeys(inst)) {
    RecordPacker *packer = inst.recordPacker;
    packer->pack(packer, key, baseOf(node), 1);
    chooseBucket(inst, baseOf(node), inst.keyLength, probe);
    return MORVA_OK;
  }
  // Signed: a key area from 2 GiB on accepts no key.
  if (has(inst, flagFixedKey) && keyLen > static_cast<int32_t>(inst.keyLength)) {
    return MORVA_INVALID;
  }
  // The bucket's memory comes while the image is written.
  const auto length = static_cast<uint32_t>(keyLen);
  chooseBucket(inst, static_cast<const unsigned char *>(key), length, probe);
  writeRawImage(inst, node, key, length);
  return MORVA_OK;
}

Probe probeOf(const MORVAInst &inst, RecordNode *stored) {
  Probe probe;
  probe.node = stored;
  probe.dataOffset = inst.dataOffset;
  if (hasRawKeys(inst)) {
    const KeyPrefix *prefix = prefixOf(stored);
    chooseBucket(inst, detail::bytes_behind(prefix), prefix->length, probe);
  } else {
    chooseBucket(inst, baseOf(stored), inst.keyLength, probe);
  }
  return probe;
}

MORVAStatus takeProbe(MORVAInst &inst, const void *key, int32_t keyLen, Overlong overlong,
                      Probe &probe) {
  RecordNode *node = takeRecordNode(inst, keyLen, probe.dataOffset);
  if (node == nullptr) return MORVA_NO_MEMORY;
  const MORVAStatus status = fillProbe(inst, node, key, keyLen, probe);
  if (status != MORVA_OK && overlong == Overlong::returnsNode) releaseRecordNode(inst, node);
  return status;
}

}  // namespace morva::core
