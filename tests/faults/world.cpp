#include "world.h"

#include <algorithm>
#include <vector>

#include "model/instance_checker.h"
#include "model/tree_walk.h"

namespace fault_test {
namespace {

// The keys that get further records with flagMultiData: key 0 four of them, keys 1 and 2 two each.
// With them the second block of records is full, too.
constexpr int kKeysOfFurther[] = {0, 1, 0, 2, 0, 1, 0, 2, 4, 5, 6, 7, 8, 9, 10, 11};
static_assert(std::size(kKeysOfFurther) == kMostStored);

// Reused by all worlds: they are made one after another.
std::vector<RecordNode *> firstNodes, chain, liveNodes;

RecordNode *firstOf(const MORVAInst *inst) {
  return inst->tree->first(inst->tree, MORVABucketAt(inst->buckets, 0));
}

// What is behind the last address that an operation may write to.
void *const kNothing = &firstNodes;

}  // namespace

// ---- contents ---------------------------------------------------------------

void Content::add(int key, Record record) {
  Key &place = keys[key];
  if (place.count == 0) order[keyCount++] = key;
  place.records[place.count++] = record;
  ++elements;
}

void Content::remove(int key) {
  Key &place = keys[key];
  if (place.count == 0) return;
  elements -= static_cast<uint32_t>(place.count);
  place.count = 0;
  std::remove(order, order + keyCount, key);
  --keyCount;
}

void Content::removeRecord(int key, int index) {
  Key &place = keys[key];
  if (place.count == 1) return remove(key);
  std::copy(place.records + index + 1, place.records + place.count, place.records + index);
  --place.count;
  --elements;
}

void Content::clear() {
  while (keyCount > 0) remove(order[keyCount - 1]);
}

const char *nameOf(Stock stock) {
  static constexpr const char *kNames[] = {"an empty instance", "full blocks", "a spare node"};
  return kNames[static_cast<size_t>(stock)];
}

void Answers::reset() {
  data = kNothing;
  node = static_cast<RecordNode *>(kNothing);
  number = 0xA5A5A5A5;
  sum = -77.0;
  cursor = cursorBefore = nullptr;
}

bool Answers::areUntouched() const {
  return data == kNothing && node == kNothing && number == 0xA5A5A5A5 && sum == -77.0 &&
         cursor == cursorBefore;
}

// ---- making -----------------------------------------------------------------

MORVAParms parmsOf(uint32_t flags) {
  const morva_test::TableShape shape = shapeOf(flags);
  MORVAParms parms = {};
  parms.dataLength = shape.dataLength;
  parms.keyLength = shape.keyLength;
  parms.flags = flags;
  parms.hashMethod = shape.hashMethod;
  parms.hashExp = shape.hashExp;
  parms.memHint = shape.memHint;
  return parms;
}

MORVAInst *makeInstance(MORVAExt *ext, uint32_t flags, const char *name) {
  MORVAParms parms = parmsOf(flags);
  MORVAInst *inst = ext->Create(ext, &parms, nullptr, name);
  if (inst == nullptr || isRaw(flags)) return inst;
  for (const MORVAKeyDesc &field : kRowFields) {
    if (inst->DefineKey(inst, &field) != MORVA_OK) return nullptr;
  }
  return inst->DefineDone(inst, 0, sizeof(uint64_t)) == MORVA_OK ? inst : nullptr;
}

World::World(uint32_t flags, Stock stock, bool containerLocks)
    : host(containerLocks), flags_(flags), shape_(shapeOf(flags)) {
  answers.reset();
  qzextent(host.services());
  ext = morva::morva(nullptr, nullptr);
  if (ext != nullptr) inst = makeInstance(ext, flags, "table");
  if (inst == nullptr) return;
  inst->SetSumInc(inst, 1.0);
  if (stock == Stock::none) return;
  for (int i = 0; i < kMostStored; ++i) {
    add(i, 100 + static_cast<uint64_t>(i));
    content.add(i, {100 + static_cast<uint64_t>(i), 1.0});
  }
  if (has(flagMultiData)) {
    uint64_t data = 200;
    for (const int key : kKeysOfFurther) {
      add(key, data);
      content.add(key, {data++, 1.0});
    }
  }
  if (stock == Stock::spare) {
    // The longest key there is, so that its node serves for any.
    static constexpr char kLongest[kOverlong] = {};
    if (raw()) {
      inst->HashVal(inst, kLongest, has(flagVarKey) ? kOverlong : 0, nullptr);
    } else {
      inst->HashVal(inst, key(kAbsent), 0, nullptr);
    }
  }
}

World::~World() {
  host.disarm();
  if (inst != nullptr) inst->Destroy(inst);
  if (other != nullptr) other->Destroy(other);
  if (ext != nullptr) ext->RealDestroy(ext);
}

RecordBlocks recordBlocksOf(const MORVAInst *inst) {
  RecordBlocks blocks;
  int64_t capacity = 8;
  for (uint32_t i = 0; i < inst->recordBlockCount; ++i) {
    if (capacity < inst->recordBlockMax) capacity *= 2;
    const bool isNewest = i + 1 == inst->recordBlockCount;
    blocks.slots += static_cast<uint64_t>(isNewest ? inst->recordsUsed : capacity);
    blocks.bytes += static_cast<uint64_t>(capacity) * inst->RecSize(inst) + 16;
  }
  blocks.capacityIsRight = capacity == inst->recordBlockCapacity;
  return blocks;
}

void World::makeOther() {
  other = makeInstance(ext, flags_, "other");
}

MORVAStatus World::add(int i, uint64_t data) {
  return inst->Add(inst, &data, key(i), length(i));
}

RecordNode *World::nodeOf(int i) {
  for (RecordNode *node = firstOf(inst); node != nullptr; node = inst->tree->next(node)) {
    const auto *base = static_cast<const char *>(MORVARecordBase(node));
    const size_t bytes = raw() ? static_cast<size_t>(length(i)) : sizeof(Row);
    if (raw() && static_cast<const KeyPrefix *>(MORVARecordBase(node))->length != bytes) continue;
    if (std::memcmp(base + (raw() ? sizeof(KeyPrefix) : 0), key(i), bytes) == 0) return node;
  }
  return nullptr;
}

char *World::dataOf(int i, int index) {
  RecordNode *node = nodeOf(i);
  if (node == nullptr) return nullptr;
  char *data = morva_test::dataOf(node, shape_, static_cast<size_t>(length(i)));
  for (; index > 0; --index) {
    data = reinterpret_cast<char *>(reinterpret_cast<DupLinks *>(data)[-1].next + 1);
  }
  return data;
}

PinnedEntry *World::pin(int i) {
  auto *entry = static_cast<PinnedEntry *>(ext->pool->allocate(ext->pool, sizeof(PinnedEntry), 0));
  *entry = {inst->pinned, nodeOf(i)};
  inst->pinned = entry;
  return entry;
}

void World::unpin() {
  while (PinnedEntry *entry = inst->pinned) {
    inst->pinned = entry->next;
    ext->pool->free(ext->pool, entry);
  }
}

// ---- what must hold ----------------------------------------------------------

const char *World::check(uint32_t unmatched) {
  if (inst == nullptr) return "there is no instance";
  if (host.held() != 0) return "a lock is still held";
  if (host.unmatchedReleases() != unmatched) return "locks were released another number of times";
  const char *fault = checkTree();
  if (fault == nullptr) fault = checkOrder();
  if (fault == nullptr) fault = checkNodes();
  if (fault == nullptr) fault = checkFinds();
  return fault != nullptr ? fault : host.complaint();
}

// The tree's invariants, the chains, and what the records hold.
const char *World::checkTree() {
  firstNodes.clear();
  liveNodes.clear();
  Bucket *bucket = MORVABucketAt(inst->buckets, 0);
  if (!morva_test::walkTree(bucket->root, inst, shape_, &firstNodes).empty()) {
    return "the tree is broken";
  }
  uint32_t records = 0;
  for (RecordNode *first : firstNodes) {
    const auto *base = static_cast<const char *>(MORVARecordBase(first));
    const uint32_t keyBytes =
        raw() ? static_cast<const KeyPrefix *>(MORVARecordBase(first))->length : sizeof(Row);
    const int number = kAllKeys.numberOf(raw(), base + (raw() ? sizeof(KeyPrefix) : 0), keyBytes);
    if (number < 0) return "the tree holds a key that nobody stored";
    chain.assign(1, first);
    if (has(flagMultiData)) {
      chain.clear();
      if (!morva_test::walkChain(first, shape_, Content::kMostRecords, &chain).empty()) {
        return "a chain is broken";
      }
    }
    liveNodes.insert(liveNodes.end(), chain.begin(), chain.end());
    static constexpr Content::Key kBare = {1, {{0, 0.0}}};
    const bool isBare = uncounted == number && uncountedIsBare;
    const Content::Key &expected = isBare ? kBare : content.keys[number];
    if (uncounted == number && !isBare) {
      // It is nobody's; a further record may have come to it.
      records += static_cast<uint32_t>(chain.size()) - 1;
      continue;
    }
    if (chain.size() != static_cast<size_t>(expected.count)) return "a key has other records";
    for (size_t i = 0; i < chain.size(); ++i) {
      uint64_t data;
      std::memcpy(&data, morva_test::dataOf(chain[i], shape_, keyBytes), sizeof data);
      if (data != expected.records[i].data) return "a record has other data";
      if (chain[i]->owner != inst) return "a record does not name its instance";
      if (!has(flagSum)) continue;
      double sum;
      std::memcpy(&sum, static_cast<char *>(MORVARecordBase(chain[i])) + inst->sumOffset,
                  sizeof sum);
      if (sum != expected.records[i].sum) return "a record has another sum";
    }
    if (!isBare) records += static_cast<uint32_t>(chain.size());
  }
  const size_t keys = static_cast<size_t>(content.keyCount) + (uncounted ? 1 : 0);
  if (firstNodes.size() != keys) return "a key is missing";
  if (inst->NumElements(inst) != records) return "the elements are counted wrongly";
  return nullptr;
}

const char *World::checkOrder() const {
  if (!has(flagOrdered)) return nullptr;
  const auto *node = static_cast<const OrderNode *>(inst->orderList->head);
  for (int i = 0; i < content.keyCount; ++i) {
    if (node == nullptr) return "the order lacks a key";
    const auto *base = reinterpret_cast<const char *>(static_cast<RecordNode *>(node->record) + 1);
    const uint32_t keyBytes =
        raw() ? reinterpret_cast<const KeyPrefix *>(base)->length : sizeof(Row);
    if (kAllKeys.numberOf(raw(), base + (raw() ? sizeof(KeyPrefix) : 0), keyBytes) !=
        content.order[i]) {
      return "the order is another";
    }
    if (std::find(firstNodes.begin(), firstNodes.end(), node->record) == firstNodes.end()) {
      return "the order names what is no first record";
    }
    node = static_cast<const OrderNode *>(node->link1);
  }
  return node == nullptr ? nullptr : "the order has too many nodes";
}

// Every node that was ever taken is in use, free, or lost for a reason known.
const char *World::checkNodes() {
  uint64_t free = 0;
  for (RecordNode *node = inst->freeRecords; node != nullptr;
       node = static_cast<RecordNode *>(node->owner)) {
    if (++free > 1000) return "the free chain has a cycle";
    if (std::find(liveNodes.begin(), liveNodes.end(), node) != liveNodes.end()) {
      return "a node is both free and in use";
    }
  }
  uint64_t taken = host.varkeyBlocks();
  if (!has(flagVarKey)) {
    const RecordBlocks blocks = recordBlocksOf(inst);
    if (!blocks.capacityIsRight) return "the capacity of record blocks is wrong";
    if (inst->TotalMem(inst) != blocks.bytes) return "the memory is counted wrongly";
    taken = blocks.slots;
  } else if (inst->TotalMem(inst) != 0) {
    return "the memory is counted wrongly";
  }
  if (taken != liveNodes.size() + free + lostNodes) return "a record node has leaked";
  if (!has(flagOrdered)) return nullptr;

  uint64_t freeInodes = 0;
  for (OrderNode *node = inst->freeInodes; node != nullptr;
       node = static_cast<OrderNode *>(node->record)) {
    if (++freeInodes > 1000) return "the free chain of order nodes has a cycle";
  }
  uint64_t takenInodes = 0;
  int64_t capacity = inst->inodeBlockCapacity;
  void *block = inst->inodeBlocks;
  for (int64_t used = inst->inodesUsed; block != nullptr; used = capacity /= 2) {
    takenInodes += static_cast<uint64_t>(used);
    std::memcpy(&block, block, sizeof block);
  }
  if (takenInodes != static_cast<uint64_t>(content.keyCount) + freeInodes + lostOrderNodes) {
    return "an order node has leaked";
  }
  return nullptr;
}

// By the library's own lookup, which asks the host for nothing.
const char *World::checkFinds() {
  alignas(8) char room[sizeof(RecordNode) + 64];
  auto *probe = reinterpret_cast<RecordNode *>(room);
  inst->SetSumInc(inst, 0.0);
  for (int i = 0; i < kKeys; ++i) {
    void *data = kNothing;
    if (inst->Find2(inst, key(i), length(i), probe, &data) != MORVA_OK) return "a find failed";
    if (uncounted == i) {
      if (data == nullptr) return "the uncounted key is not found";
      continue;
    }
    const Content::Key &expected = content.keys[i];
    if (data == kNothing || (data != nullptr) != (expected.count != 0)) return "a key is not found";
    if (data == nullptr) continue;
    uint64_t value;
    std::memcpy(&value, data, sizeof value);
    if (value != expected.records[0].data) return "another record is found";
  }
  inst->SetSumInc(inst, 1.0);
  return nullptr;
}

const char *World::end() {
  if (inst != nullptr && inst->Destroy(inst) != MORVA_OK) return "destruction failed";
  inst = nullptr;
  if (other != nullptr && other->Destroy(other) != MORVA_OK) return "destruction failed";
  other = nullptr;
  FaultHost::Alive extension;
  extension.pools = 1;
  extension.blocks = 1;
  if (host.alive() != extension) return "an instance left something behind";
  if (ext->RealDestroy(ext) != MORVA_OK) return "the end of the extension failed";
  ext = nullptr;
  if (host.alive() != FaultHost::Alive()) return "the extension left something behind";
  return host.complaint();
}

}  // namespace fault_test
