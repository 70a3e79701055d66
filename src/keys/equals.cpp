// Comparison of two whole instances.
#include <cstring>
#include <initializer_list>

#include "instance/record.h"
#include "morva/operations.h"

namespace morva::core {
namespace {

bool isComparable(const MORVAInst *inst) {
  return isDefined(inst) && !has(*inst, flagVarKey);
}

bool sameShape(const MORVAInst &a, const MORVAInst &b) {
  return a.keyLength == b.keyLength && a.dataOffset == b.dataOffset &&
         a.dataLength == b.dataLength && a.recordSize == b.recordSize &&
         a.buckets->elementCount == b.buckets->elementCount && a.buckets->mask == b.buckets->mask &&
         has(a, flagMultiData) == has(b, flagMultiData);
}

// Key areas are compared whole: with fixed keys the prefix, the key and the
// bytes behind it. Two instances of one shape have one layout.
bool sameRecord(const MORVAInst &shape, RecordNode *a, RecordNode *b) {
  return std::memcmp(baseOf(a), baseOf(b), shape.keyLength) == 0 &&
         std::memcmp(dataOf(shape, a, shape.dataOffset), dataOf(shape, b, shape.dataOffset),
                     shape.dataLength) == 0;
}

// All records of one key against all records of another, in chain order.
bool sameChain(const MORVAInst &shape, RecordNode *a, RecordNode *b) {
  if (!has(shape, flagMultiData)) return sameRecord(shape, a, b);
  for (;;) {
    if (!sameRecord(shape, a, b)) return false;
    DupLinks *nextA = linksOf(shape, a)->next;
    DupLinks *nextB = linksOf(shape, b)->next;
    if (nextA == nullptr || nextB == nullptr) return nextA == nextB;
    a = nodeOfLinks(shape, nextA);
    b = nodeOfLinks(shape, nextB);
  }
}

bool sameBucket(MORVAInst &a, MORVAInst &b, uint32_t index) {
  RecordNode *nodeA = a.tree->first(a.tree, MORVABucketAt(a.buckets, index));
  RecordNode *nodeB = b.tree->first(b.tree, MORVABucketAt(b.buckets, index));
  while (nodeA != nullptr && nodeB != nullptr) {
    if (!sameChain(a, nodeA, nodeB)) return false;
    nodeA = a.tree->next(nodeA);
    nodeB = b.tree->next(nodeB);
  }
  return nodeA == nodeB;  // both walks must end together
}

bool sameRecords(MORVAInst &a, MORVAInst &b) {
  if (!sameShape(a, b)) return false;
  for (uint64_t i = 0; i <= a.buckets->mask; ++i) {
    if (!sameBucket(a, b, static_cast<uint32_t>(i))) return false;
  }
  return true;
}

// Two locks, taken and released in the order of the arguments.
class BothLocks {
 public:
  BothLocks(const MORVAInst &a, const MORVAInst &b) : a_(lockOf(a)), b_(lockOf(b)) {
    for (HostLock *lock : {a_, b_}) {
      if (lock != nullptr) lock->acquire(lock, MORVA_LOCK_CHANGE, 1);
    }
  }
  ~BothLocks() {
    for (HostLock *lock : {a_, b_}) {
      if (lock != nullptr) lock->release(lock);
    }
  }
  BothLocks(const BothLocks &) = delete;
  BothLocks &operator=(const BothLocks &) = delete;

 private:
  HostLock *a_, *b_;
};

}  // namespace
}  // namespace morva::core

extern "C" MORVAStatus MORVAEquals(MORVAInst *instanceA, MORVAInst *instanceB, uint32_t *equalOut) {
  using namespace morva::core;
  if (!isComparable(instanceA) || !isComparable(instanceB)) return MORVA_INVALID;
  BothLocks locks(*instanceA, *instanceB);
  if (equalOut != nullptr) *equalOut = sameRecords(*instanceA, *instanceB) ? 1 : 0;
  return MORVA_OK;
}
