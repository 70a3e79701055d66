// What the suites on keys share: keys as strings, in any key mode.
#pragma once

#include <string>

#include "instance_test.h"

namespace keys_test {

class KeysTest : public morva_test::InstanceTest {
 protected:
  static constexpr uint32_t untouched = 0xDEADBEEF;

  // An instance with one field of `keyLength` bytes, or with raw keys.
  MORVAInst *createShape(const morva_test::Shape &shape) {
    MORVAInst *inst = create(shape);
    EXPECT_NE(inst, nullptr);
    if (inst != nullptr && (shape.flags & (flagFixedKey | flagVarKey)) == 0) {
      define(inst, {shape.keyLength}, shape.dataLength);
    }
    return inst;
  }

  static const void *bytesOf(const std::string &key) { return key.data(); }
  static int32_t lengthOf(const std::string &key) { return static_cast<int32_t>(key.size()); }

  MORVAStatus addKey(MORVAInst *inst, const std::string &key, const std::string &data = "") {
    std::string padded = data;
    padded.resize(inst->dataLength + size_t{1}, '.');
    return inst->Add(inst, padded.data(), bytesOf(key), lengthOf(key));
  }

  MORVAStatus removeKey(MORVAInst *inst, const std::string &key) {
    return inst->Remove(inst, bytesOf(key), lengthOf(key));
  }

  // The bucket that the instance names for a key.
  uint32_t bucketOf(MORVAInst *inst, const std::string &key) {
    uint32_t bucket = untouched;
    EXPECT_EQ(inst->HashVal(inst, bytesOf(key), lengthOf(key), &bucket), MORVA_OK);
    return bucket;
  }

  // The nodes of a bucket as the container walks them.
  static std::vector<RecordNode *> walk(const MORVAInst *inst, uint32_t bucket) {
    std::vector<RecordNode *> nodes;
    for (RecordNode *node = inst->tree->first(inst->tree, MORVABucketAt(inst->buckets, bucket));
         node != nullptr; node = inst->tree->next(node)) {
      nodes.push_back(node);
    }
    return nodes;
  }

  // The key bytes of a node with a prefixed key.
  static std::string prefixedKey(RecordNode *node) {
    const char *base = static_cast<const char *>(MORVARecordBase(node));
    return std::string(base + sizeof(KeyPrefix), morva_test::prefixOf(node).length);
  }
};

}  // namespace keys_test
