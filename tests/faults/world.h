// One host, one extension and one small instance with known contents, made afresh for every
// failure that is tried, and everything that must hold of them at any time.
#pragma once

#include <cstring>
#include <optional>

#include "fault_host.h"
#include "keys.h"
#include "option_bits.h"

namespace fault_test {

// What an instance must hold.
struct Content {
  static constexpr int kMostRecords = 8;
  struct Record {
    uint64_t data;
    double sum;
  };
  struct Key {
    int count = 0;
    Record records[kMostRecords];
  };
  Key keys[kKeys];
  // The keys in the order in which they came.
  int order[kKeys];
  int keyCount = 0;
  uint32_t elements = 0;

  void add(int key, Record record);
  void remove(int key);
  void removeRecord(int key, int index);
  void clear();
};

// What an operation finds of memory it can use without asking the host.
enum class Stock {
  none,   // a new instance, empty: there is no block
  full,   // every block of records and of order nodes is in use
  spare,  // the same, but for one free record node
};
inline constexpr Stock kStocks[] = {Stock::none, Stock::full, Stock::spare};

const char *nameOf(Stock stock);

// Where an operation writes its answers. It must not when it fails.
struct Answers {
  void *data;
  RecordNode *node;
  uint32_t number;
  double sum;
  void *cursor, *cursorBefore;

  void reset();
  bool areUntouched() const;
};

class World {
 public:
  World(uint32_t flags, Stock stock, bool containerLocks);
  ~World();
  World(const World &) = delete;
  World &operator=(const World &) = delete;

  FaultHost host;
  MORVAExt *ext = nullptr;
  MORVAInst *inst = nullptr;
  MORVAInst *other = nullptr;  // made by makeOther
  Content content;
  Answers answers;

  // A key in the tree that is not counted, nor in the order: its order node could not be had.
  // Until it is stored to again it has neither data nor sum.
  std::optional<int> uncounted;
  bool uncountedIsBare = false;
  uint32_t lostNodes = 0;       // record nodes out of use until MORVAClear
  uint32_t lostOrderNodes = 0;  // order nodes the list has lost

  uint32_t flags() const { return flags_; }
  bool has(uint32_t bits) const { return (flags_ & bits) != 0; }
  bool raw() const { return isRaw(flags_); }
  const morva_test::TableShape &shape() const { return shape_; }
  const void *key(int i) const { return kAllKeys.bytes(raw(), i); }
  int32_t length(int i) const { return kAllKeys.length(i); }

  MORVAStatus add(int key, uint64_t data);
  // The data pointer of a key's record, in chain order from 0; null where there is none. Takes no
  // memory, no lock, and moves no sum.
  char *dataOf(int key, int index = 0);
  RecordNode *nodeOf(int key);
  void makeOther();
  PinnedEntry *pin(int key);
  void unpin();

  // What is wrong with instance and host; null when all is well. `unmatched` is how many releases
  // of locks nobody held there have been.
  const char *check(uint32_t unmatched);
  // Ends instances and extension; what is left behind, or null.
  const char *end();

 private:
  const char *checkTree();
  const char *checkOrder() const;
  const char *checkNodes();
  const char *checkFinds();

  uint32_t flags_;
  morva_test::TableShape shape_;
};

// What record blocks an instance must have taken.
struct RecordBlocks {
  uint64_t slots = 0;  // given out
  uint64_t bytes = 0;
  bool capacityIsRight = true;
};
RecordBlocks recordBlocksOf(const MORVAInst *inst);

// Makes an instance with `flags`; its key is defined where it is made of fields. Null when the
// library refuses.
MORVAInst *makeInstance(MORVAExt *ext, uint32_t flags, const char *name);
MORVAParms parmsOf(uint32_t flags);

}  // namespace fault_test
