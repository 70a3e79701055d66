#include "instance_checker.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <unordered_set>

#include "tree_walk.h"

namespace morva_test {
namespace {

template <class... Parts>
std::string say(const Parts &...parts) {
  std::ostringstream text;
  (text << ... << parts);
  return text.str();
}

template <class Expected, class Actual>
std::string expectSame(const char *what, const Expected &expected, const Actual &actual) {
  if (static_cast<uint64_t>(expected) == static_cast<uint64_t>(actual)) return "";
  return say(what, " is ", actual, " instead of ", expected);
}

std::string firstOf(std::initializer_list<std::string> faults) {
  for (const std::string &fault : faults) {
    if (!fault.empty()) return fault;
  }
  return "";
}

std::string printable(const std::string &key) {
  std::ostringstream text;
  text << "key of " << key.size() << " bytes" << std::hex;
  for (unsigned char c : key) text << ' ' << unsigned{c};
  return text.str();
}

DupLinks *linksOf(RecordNode *node, const TableShape &shape) {
  return reinterpret_cast<DupLinks *>(reinterpret_cast<char *>(node) + shape.linksInNode(0));
}

RecordNode *nodeOf(DupLinks *links, const TableShape &shape) {
  return reinterpret_cast<RecordNode *>(reinterpret_cast<char *>(links) - shape.linksInNode(0));
}

uint32_t capacityWord(RecordNode *node) {
  return static_cast<const KeyPrefix *>(MORVARecordBase(node))->capacity;
}

// The record blocks of an instance, to tell what is a slot of one.
class Blocks {
 public:
  std::string read(const MORVAInst *inst, const SlotModel &slots, uint32_t slotSize) {
    slotSize_ = slotSize;
    void *block = inst->recordBlocks;
    for (size_t i = slots.blocks().size(); i-- > 0;) {
      if (block == nullptr) return "the chain of record blocks is too short";
      const bool newest = i + 1 == slots.blocks().size();
      const int64_t used = newest ? slots.usedOfNewest() : slots.blocks()[i];
      spans_.push_back({static_cast<char *>(block) + 8, static_cast<uint64_t>(used)});
      std::memcpy(&block, block, sizeof block);
    }
    if (block != nullptr) return "the chain of record blocks is too long";
    std::sort(spans_.begin(), spans_.end());
    return "";
  }

  bool hasSlotAt(const RecordNode *node) const {
    const char *address = reinterpret_cast<const char *>(node);
    auto after = std::upper_bound(spans_.begin(), spans_.end(), Span{address, UINT64_MAX});
    if (after == spans_.begin()) return false;
    const Span &span = *--after;
    const uint64_t distance = static_cast<uint64_t>(address - span.first);
    return distance % slotSize_ == 0 && distance / slotSize_ < span.second;
  }

 private:
  using Span = std::pair<const char *, uint64_t>;
  std::vector<Span> spans_;
  uint64_t slotSize_ = 1;
};

// One look over one instance.
class Checker {
 public:
  Checker(MORVAInst *inst, const TableModel &model)
      : inst_(inst), model_(model), shape_(model.shape()) {}

  std::string run(const std::vector<RecordNode *> &order) {
    std::string fault = counters();
    if (fault.empty() && shape_.keyMode != KeyMode::variable) {
      fault = blocks_.read(inst_, model_.slots(), shape_.slotSizeFor(0));
    }
    if (fault.empty()) fault = buckets();
    if (fault.empty()) fault = freeChain();
    if (fault.empty()) fault = orderNodes(order);
    return fault;
  }

 private:
  std::string counters() const {
    const SlotModel &slots = model_.slots();
    const BucketArray *buckets = inst_->buckets;
    const uint32_t mask = (uint32_t{1} << shape_.hashExp) - 1;
    std::string fault = firstOf({
        expectSame("mask", mask, buckets->mask),
        expectSame("elementCount", model_.elementCount(), buckets->elementCount),
        expectSame("usedBuckets", model_.usedBuckets(), buckets->usedBuckets),
        expectSame("MORVANumElements", model_.elementCount(), inst_->NumElements(inst_)),
        expectSame("MORVAHashSize", mask + 1, inst_->HashSize(inst_)),
        expectSame("MORVABucketSize past the end", 0, inst_->BucketSize(inst_, mask + 1)),
        expectSame("MORVARecSize", (slots.recordSize() + 47) & ~uint32_t{15},
                   inst_->RecSize(inst_)),
        expectSame("MORVATotalMem", slots.totalMem(), inst_->TotalMem(inst_)),
        expectSame("recordBlockCount", slots.blocks().size(), inst_->recordBlockCount),
        inst_->sumIncrement == model_.increment ? "" : "sumIncrement is wrong",
    });
    if (!fault.empty() || shape_.keyMode == KeyMode::variable) return fault;
    return firstOf(
        {expectSame("keyLength", shape_.keyArea(), inst_->keyLength),
         expectSame("recordsUsed", slots.usedOfNewest(), inst_->recordsUsed),
         expectSame("recordBlockCapacity", slots.capacity(), inst_->recordBlockCapacity)});
  }

  std::string buckets() {
    std::vector<std::vector<const TableModel::Keys::value_type *>> expected(size_t{1}
                                                                            << shape_.hashExp);
    for (const auto &entry : model_.keys()) expected[entry.second.bucket].push_back(&entry);

    std::vector<RecordNode *> nodes;
    for (uint32_t i = 0; i < expected.size(); ++i) {
      Bucket *bucket = MORVABucketAt(inst_->buckets, i);
      std::string fault = expectSame("the count of a bucket", model_.bucketCount(i), bucket->count);
      if (fault.empty()) {
        fault = expectSame("MORVABucketSize", model_.bucketCount(i), inst_->BucketSize(inst_, i));
      }
      nodes.clear();
      if (fault.empty()) fault = walkTree(bucket->root, inst_, shape_, &nodes);
      if (fault.empty()) fault = expectSame("the size of a tree", expected[i].size(), nodes.size());
      for (size_t n = 0; fault.empty() && n < nodes.size(); ++n) {
        fault = keyAt(expected[i][n]->first, expected[i][n]->second, nodes[n]);
      }
      if (!fault.empty()) return say("bucket ", i, ": ", fault);
    }
    return "";
  }

  std::string keyAt(const std::string &key, const KeyState &state, RecordNode *first) {
    std::vector<RecordNode *> nodes{first};
    if (shape_.multi()) {
      nodes.clear();
      std::string fault = walkChain(first, shape_, state.chain.size(), &nodes);
      if (!fault.empty()) return printable(key) + ": " + fault;
    }
    if (nodes.size() != state.chain.size()) {
      return say(printable(key), ": ", nodes.size(), " records instead of ", state.chain.size());
    }
    for (size_t i = 0; i < nodes.size(); ++i) {
      const std::string fault = recordAt(key, state.chain[i], nodes[i]);
      if (!fault.empty()) return say(printable(key), ", record ", i, ": ", fault);
    }
    return "";
  }

  std::string recordAt(const std::string &key, const Record &record, RecordNode *node) {
    std::string fault = slotAt(record.slot, node);
    if (!fault.empty()) return fault;
    if (node->owner != inst_) return "it does not name its instance";
    if (keyOf(node, shape_) != key)
      return "it holds another key: " + printable(keyOf(node, shape_));
    if (std::memcmp(dataOf(node, shape_, key.size()), record.data.data(), record.data.size()) !=
        0) {
      return "its data is wrong";
    }
    if (shape_.sums()) {
      double sum;
      std::memcpy(&sum, static_cast<char *>(MORVARecordBase(node)) + shape_.sumOffset(),
                  sizeof sum);
      if (sum != record.sum) return say("its sum is ", sum, " instead of ", record.sum);
    }
    return "";
  }

  // A slot that is in use or on the free chain.
  std::string slotAt(Slot *slot, RecordNode *node) {
    if (!seenAt(slot, node)) return say("it is at ", node, " instead of ", slot->node);
    if (!met_.insert(node).second) return say("node ", node, " is met twice");
    if (shape_.keyMode != KeyMode::variable && !blocks_.hasSlotAt(node)) {
      return say("node ", node, " is no slot of a record block");
    }
    if (shape_.keyMode == KeyMode::variable) {
      return expectSame("the key capacity of a node", slot->capacity, capacityWord(node));
    }
    if (shape_.keyMode == KeyMode::fixed && capacityWord(node) != 0) {
      return "the word behind the key length is not 0";
    }
    return "";
  }

  std::string freeChain() {
    const std::vector<Slot *> &expected = model_.slots().chain();
    RecordNode *node = inst_->freeRecords;
    for (size_t i = expected.size(); i-- > 0;) {
      if (node == nullptr) {
        return say("the free chain lacks ", i + 1, " of its ", expected.size(), " nodes");
      }
      const std::string fault = slotAt(expected[i], node);
      if (!fault.empty()) return say("free chain, place ", expected.size() - 1 - i, ": ", fault);
      node = static_cast<RecordNode *>(node->owner);
    }
    if (node != nullptr) return say("the free chain has more than ", expected.size(), " nodes");
    return expectSame("live, free and lost nodes together", model_.slots().made(),
                      met_.size() + model_.slots().lost());
  }

  std::string orderNodes(const std::vector<RecordNode *> &order) const {
    const OrderSlotModel &slots = model_.orderSlots();
    std::vector<RecordNode *> expected;
    for (const std::string &key : model_.order()) {
      expected.push_back(model_.keys().at(key).chain.front().slot->node);
    }
    if (order != expected) return "the insertion order is wrong";

    std::unordered_set<const OrderNode *> met;
    for (OrderNode *node = inst_->freeInodes; node != nullptr;
         node = static_cast<OrderNode *>(node->record)) {
      if (!met.insert(node).second) return "the free chain of order nodes has a cycle";
    }
    uint64_t blocks = 0;
    for (void *block = inst_->inodeBlocks; block != nullptr && blocks <= slots.blocks(); ++blocks) {
      std::memcpy(&block, block, sizeof block);
    }
    return firstOf({expectSame("the number of free order nodes", slots.free(), met.size()),
                    expectSame("the number of order node blocks", slots.blocks(), blocks),
                    expectSame("inodesUsed", slots.used(), inst_->inodesUsed),
                    expectSame("inodeBlockCapacity", slots.capacity(), inst_->inodeBlockCapacity)});
  }

  MORVAInst *inst_;
  const TableModel &model_;
  const TableShape &shape_;
  Blocks blocks_;
  std::unordered_set<const RecordNode *> met_;
};

}  // namespace

bool seenAt(Slot *slot, RecordNode *node) {
  if (slot->node == nullptr) slot->node = node;
  return slot->node == node;
}

RecordNode *lastOfChain(RecordNode *first, const TableShape &shape) {
  return nodeOf(linksOf(first, shape)->back, shape);
}

std::string walkChain(RecordNode *first, const TableShape &shape, size_t atMost,
                      std::vector<RecordNode *> *nodes) {
  DupLinks *before = nullptr;
  for (DupLinks *links = linksOf(first, shape); links != nullptr; links = links->next) {
    if (nodes->size() > atMost) return "its chain is too long";
    if (before != nullptr && links->back != before) return "a link back is wrong";
    nodes->push_back(nodeOf(links, shape));
    before = links;
  }
  return linksOf(first, shape)->back == before ? "" : "the first record does not name the last";
}

std::string checkInstance(MORVAInst *inst, const TableModel &model,
                          const std::vector<RecordNode *> &order) {
  return Checker(inst, model).run(order);
}

std::string checkInstanceAlone(
    MORVAInst *inst, const TableShape &shape, const std::vector<RecordNode *> &order,
    std::map<std::string, std::vector<std::string>, KeyOrder> *contents) {
  contents->clear();
  std::unordered_set<const RecordNode *> firsts, met;
  std::vector<RecordNode *> nodes, chain;
  for (uint32_t i = 0; i <= inst->buckets->mask; ++i) {
    nodes.clear();
    std::string fault = walkTree(MORVABucketAt(inst->buckets, i)->root, inst, shape, &nodes);
    if (!fault.empty()) return say("bucket ", i, ": ", fault);
    for (RecordNode *first : nodes) {
      const std::string key = keyOf(first, shape);
      uint32_t bucket = 0;
      if (inst->HashVal(inst, key.data(), static_cast<int32_t>(key.size()), &bucket) != MORVA_OK ||
          bucket != i) {
        return say("bucket ", i, " holds a key of bucket ", bucket);
      }
      chain.assign(1, first);
      if (shape.multi()) {
        chain.clear();
        fault = walkChain(first, shape, inst->buckets->elementCount, &chain);
        if (!fault.empty()) return say("bucket ", i, ": ", fault);
      }
      std::vector<std::string> &data = (*contents)[key];
      if (!data.empty()) return printable(key) + " is in the table twice";
      for (RecordNode *node : chain) {
        if (!met.insert(node).second) return "a record is in the table twice";
        data.emplace_back(dataOf(node, shape, key.size()), shape.dataLength);
      }
      firsts.insert(first);
    }
  }
  for (RecordNode *node = inst->freeRecords; node != nullptr;
       node = static_cast<RecordNode *>(node->owner)) {
    if (!met.insert(node).second) return "a free node is in use, or the free chain has a cycle";
  }
  if (shape.ordered()) {
    if (order.size() != firsts.size())
      return "the insertion order has another length than the table";
    for (RecordNode *node : order) {
      if (firsts.erase(node) == 0) return "the insertion order names a wrong or a repeated record";
    }
  }
  uint64_t records = 0;
  for (const auto &[key, data] : *contents) records += data.size();
  return expectSame("elementCount", records, inst->buckets->elementCount);
}

}  // namespace morva_test
