#include "keys/probe.h"

#include <cstring>

#include "keys/hash.h"

namespace morva::core {
namespace {

bool hasRawKeys(const MORVAInst &inst) {
  return has(inst, flagFixedKey | flagVarKey);
}

// The bytes of an image that are hashed: the key without its prefix.
struct KeyBytes {
  const unsigned char *bytes;
  uint32_t length;
};

KeyBytes hashedBytes(const MORVAInst &inst, RecordNode *node) {
  if (!hasRawKeys(inst)) return {baseOf(node), inst.keyLength};
  const KeyPrefix *prefix = prefixOf(node);
  return {reinterpret_cast<const unsigned char *>(prefix + 1), prefix->length};
}

// Writes the key image into the key area of `node`. False for a fixed key
// above keyLength: then nothing is written.
bool writeImage(const MORVAInst &inst, RecordNode *node, const void *key, int32_t keyLen) {
  if (!hasRawKeys(inst)) {
    RecordPacker *packer = inst.recordPacker;
    packer->pack(packer, key, baseOf(node), 1);
    return true;
  }
  KeyPrefix *prefix = prefixOf(node);
  if (has(inst, flagFixedKey)) {
    // Signed: a key area from 2 GiB on accepts no key.
    if (keyLen > static_cast<int32_t>(inst.keyLength)) return false;
    prefix->capacity = 0;  // the word is compared with whole instances
  }
  prefix->length = static_cast<uint32_t>(keyLen);
  // A caller's key may lie in the caller's own probe.
  if (keyLen != 0) std::memmove(prefix + 1, key, static_cast<uint32_t>(keyLen));
  return true;
}

}  // namespace

bool acceptsKey(const MORVAInst &inst, const void *key, int32_t keyLen) {
  if (!hasRawKeys(inst)) return true;
  if (keyLen < 0 || (key == nullptr && keyLen > 0)) return false;
  if (!has(inst, flagVarKey)) return true;
  return slotFits(varDataOffset(static_cast<uint32_t>(keyLen)) + inst.dataLength);
}

MORVAStatus fillProbe(MORVAInst &inst, RecordNode *node, const void *key, int32_t keyLen,
                      Probe &probe) {
  if (!writeImage(inst, node, key, keyLen)) return MORVA_INVALID;
  const KeyBytes image = hashedBytes(inst, node);
  const uint32_t hash = hashKey(inst.hashMethod, image.bytes, image.length);
  probe.node = node;
  probe.index = hash & inst.buckets->mask;
  probe.bucket = MORVABucketAt(inst.buckets, probe.index);
  return MORVA_OK;
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
