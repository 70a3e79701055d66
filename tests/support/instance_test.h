// What the suites on instances share: a recording host, an extension on it, and
// short ways to make instances of every key mode. At the end of a test every
// instance is destroyed, and the host must have nothing to complain about.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "recording_host.h"

namespace morva_test {

enum class Mode { fixed, variable, defined };

inline const char *nameOf(Mode mode) {
  switch (mode) {
    case Mode::fixed:
      return "Fixed";
    case Mode::variable:
      return "Variable";
    case Mode::defined:
      return "Defined";
  }
  return "?";
}

struct Shape {
  uint32_t flags = flagFixedKey;
  uint32_t keyLength = 8;
  uint32_t dataLength = 16;
  int32_t hashMethod = 2;
  int32_t hashExp = 4;
  int64_t memHint = 0;
};

inline MORVAParms parmsOf(const Shape &shape) {
  MORVAParms parms = {};
  // Nobody reads the first three words.
  for (uint32_t &word : parms.reserved) word = 0xA5A5A5A5;
  parms.dataLength = shape.dataLength;
  parms.keyLength = shape.keyLength;
  parms.flags = shape.flags;
  parms.hashMethod = shape.hashMethod;
  parms.hashExp = shape.hashExp;
  parms.memHint = shape.memHint;
  return parms;
}

// The bytes from a record block's first word on: previous block, then slots.
inline std::vector<void *> blockChain(void *newest) {
  std::vector<void *> blocks;
  for (void *block = newest; block != nullptr;) {
    blocks.push_back(block);
    std::memcpy(&block, block, sizeof block);
  }
  return blocks;
}

inline std::vector<RecordNode *> freeRecordsOf(const MORVAInst *inst) {
  std::vector<RecordNode *> nodes;
  for (RecordNode *node = inst->freeRecords; node != nullptr;
       node = static_cast<RecordNode *>(node->owner)) {
    nodes.push_back(node);
  }
  return nodes;
}

inline std::vector<OrderNode *> freeInodesOf(const MORVAInst *inst) {
  std::vector<OrderNode *> nodes;
  for (OrderNode *node = inst->freeInodes; node != nullptr;
       node = static_cast<OrderNode *>(node->record)) {
    nodes.push_back(node);
  }
  return nodes;
}

// The node that a block holds in slot `index`.
inline RecordNode *slotOf(void *block, uint64_t slotSize, uint64_t index) {
  return reinterpret_cast<RecordNode *>(static_cast<char *>(block) + 8 + index * slotSize);
}

inline KeyPrefix prefixOf(RecordNode *node) {
  KeyPrefix prefix;
  std::memcpy(&prefix, MORVARecordBase(node), sizeof prefix);
  return prefix;
}

class InstanceTest : public ::testing::Test {
 protected:
  explicit InstanceTest(const RecordingHost::Options &options = {}) : host(options), ext(host) {}

  void TearDown() override {
    host.failNever();
    host.onEvent = nullptr;
    while (!made_.empty()) destroy(made_.back());
    host.checkGuards();
    EXPECT_THAT(host.complaints(), ::testing::IsEmpty());
    EXPECT_EQ(host.locksHeld(), 0u);
    EXPECT_EQ(host.unmatchedReleases(), 0u);
  }

  // Null when creation fails; else destroyed with the test.
  MORVAInst *create(const Shape &shape, const char *name = nullptr) {
    MORVAParms parms = parmsOf(shape);
    return adopt(ext->Create(ext.get(), &parms, nullptr, name));
  }

  // An instance of 8-byte keys, defined and ready, in any key mode.
  MORVAInst *create(Mode mode, uint32_t flags = 0, uint32_t dataLength = 16, int32_t hashExp = 4) {
    Shape shape;
    shape.flags = flags;
    if (mode == Mode::fixed) shape.flags |= flagFixedKey;
    if (mode == Mode::variable) shape.flags |= flagVarKey;
    shape.dataLength = dataLength;
    shape.hashExp = hashExp;
    MORVAInst *inst = create(shape);
    EXPECT_NE(inst, nullptr);
    if (inst != nullptr && mode == Mode::defined) define(inst, {8}, dataLength);
    return inst;
  }

  // Fields of type 1 end to end, as the key of one host structure.
  void define(MORVAInst *inst, const std::vector<uint32_t> &lengths, uint32_t dataLength) {
    uint32_t offset = 0;
    for (const uint32_t length : lengths) {
      const MORVAKeyDesc desc = {length, 1, offset, 0};
      ASSERT_EQ(inst->DefineKey(inst, &desc), MORVA_OK);
      offset += length;
    }
    ASSERT_EQ(inst->DefineDone(inst, 0, dataLength), MORVA_OK);
  }

  // A host whose trees and order lists carry locks of their own.
  static RecordingHost::Options withContainerLocks() {
    RecordingHost::Options chosen;
    chosen.treeLocks = true;
    chosen.orderListLock = true;
    return chosen;
  }

  MORVAInst *adopt(MORVAInst *inst) {
    if (inst != nullptr) made_.push_back(inst);
    return inst;
  }

  void destroy(MORVAInst *inst) {
    made_.erase(std::find(made_.begin(), made_.end(), inst));
    EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
  }

  // Stores a record of bytes `fill` under the 8-byte key of number `key`.
  MORVAStatus add(MORVAInst *inst, uint64_t key, char fill = 'x') {
    const std::vector<char> data(inst->dataLength + size_t{1}, fill);
    return inst->Add(inst, data.data(), &key, sizeof key);
  }

  void addAll(MORVAInst *inst, uint64_t first, uint64_t count) {
    for (uint64_t key = first; key != first + count; ++key) ASSERT_EQ(add(inst, key), MORVA_OK);
  }

  MORVAStatus remove(MORVAInst *inst, uint64_t key) { return inst->Remove(inst, &key, sizeof key); }

  // The data pointer of a key, null when it is absent.
  char *find(MORVAInst *inst, uint64_t key) {
    void *data = &key;
    EXPECT_EQ(inst->Find(inst, &key, sizeof key, &data), MORVA_OK);
    return static_cast<char *>(data);
  }

  // The node of an 8-byte key's record, from its data pointer; null when absent.
  RecordNode *nodeOf(MORVAInst *inst, uint64_t key) {
    char *data = find(inst, key);
    return data == nullptr ? nullptr : nodeOfData(inst, data);
  }

  static RecordNode *nodeOfData(const MORVAInst *inst, char *data) {
    // 8 bytes of key behind 8 of prefix, and 4 more: 20, so the data lies at 24.
    const uint64_t offset = (inst->flags & flagVarKey) != 0 ? 24 : inst->dataOffset;
    const uint64_t links = (inst->flags & flagMultiData) != 0 ? 16 : 0;
    return reinterpret_cast<RecordNode *>(data - links - offset - sizeof(RecordNode));
  }

  // The sizes of the blocks taken from a pool since the log was emptied.
  std::vector<uint64_t> sizesTaken(const std::string &pool) {
    std::vector<uint64_t> sizes;
    for (const Event &event : host.eventsOf(Call::allocate)) {
      if (event.text == pool && event.c != 0) sizes.push_back(event.a);
    }
    return sizes;
  }

  static bool everyBucketEmpty(const MORVAInst *inst) {
    for (uint32_t index = 0; index <= inst->buckets->mask; ++index) {
      const Bucket *bucket = MORVABucketAt(inst->buckets, index);
      if (bucket->root != nullptr || bucket->count != 0) return false;
    }
    return true;
  }

  void expectEmpty(MORVAInst *inst) {
    EXPECT_EQ(inst->NumElements(inst), 0u);
    EXPECT_EQ(inst->buckets->usedBuckets, 0u);
    EXPECT_TRUE(everyBucketEmpty(inst));
    EXPECT_THAT(host.order(inst), ::testing::IsEmpty());
  }

  // Pins a node as a host does, with an entry of the extension's pool.
  PinnedEntry *pin(MORVAInst *inst, RecordNode *node) {
    void *memory = ext->pool->allocate(ext->pool, sizeof(PinnedEntry), 0);
    PinnedEntry *entry = static_cast<PinnedEntry *>(memory);
    entry->next = inst->pinned;
    entry->node = node;
    inst->pinned = entry;
    return entry;
  }

  RecordingHost host;
  Extension ext;

 private:
  std::vector<MORVAInst *> made_;
};

}  // namespace morva_test
