// Instances for the tests of operations: made from a short description, used
// with readable keys and data, looked into word by word.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "morva/morva.h"
#include "support/recording_host.h"

namespace morva_test {

enum class Keys { fixed, var, defined };

// What an instance is made with. One bucket unless a test asks for more, so
// that every key meets every other.
struct Shape {
  Keys keys = Keys::fixed;
  uint32_t options = 0;  // option bits besides the key mode's
  uint32_t keyLength = 8;
  uint32_t dataLength = 16;
  int32_t hashMethod = 2;
  int32_t hashExp = 0;
  int64_t memHint = 0;

  uint32_t flags() const;
  bool has(uint32_t option) const { return (options & option) != 0; }
  bool raw() const { return keys != Keys::defined; }
  // Neither sums nor several records per key: the fast operations are installed.
  bool fast() const { return !has(flagSum | flagMultiData); }
};

Shape shape(Keys keys, uint32_t options = 0);
// "k" and 7 make "k7".
std::string numbered(std::string_view prefix, uint64_t number);
// Letters and digits only, so that it can name a test.
std::string describe(const Shape &shape);
void PrintTo(const Shape &shape, std::ostream *out);
std::string nameOfShape(const testing::TestParamInfo<Shape> &info);

// Every key mode with every combination of flagNoLock, flagOrdered, flagSum and
// flagMultiData that creation accepts, which has `all` and none of `none`.
std::vector<Shape> shapes(uint32_t all = 0, uint32_t none = 0);
// Of those, the ones with a lock, and without one only those with the most options of their key
// mode: enough where the lock is not the subject.
std::vector<Shape> sampledShapes(uint32_t all = 0, uint32_t none = 0);

class Table {
 public:
  Table(RecordingHost &host, MORVAExt *ext, const Shape &shape, const char *name = "table");
  ~Table();
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;

  MORVAInst *get() const { return inst_; }
  MORVAInst *operator->() const { return inst_; }
  const Shape &shape() const { return shape_; }
  MORVAStatus destroy();  // before its time

  // A key as the operations take it: defined keys are padded with zeros.
  std::string key(std::string_view text) const;
  // Data as the operations take it, padded with zeros to the data length.
  std::string bytes(std::string_view text) const;

  // The installed operations.
  MORVAStatus add(std::string_view key, std::string_view data);
  MORVAStatus replace(std::string_view key, std::string_view data);
  MORVAStatus find(std::string_view key, void **dataOut);
  MORVAStatus find2(std::string_view key, void **dataOut);
  MORVAStatus findNode(std::string_view key, RecordNode **nodeOut, uint32_t *bucketOut);
  MORVAStatus hashVal(std::string_view key, uint32_t *bucketOut);
  MORVAStatus sum(std::string_view key, double *sumOut);
  MORVAStatus remove(std::string_view key);
  MORVAStatus removeDup(void **cursor, std::string_view key);
  MORVAStatus replaceDup(void *data, std::string_view newData);

  // Adds and answers the node the record went to. The key need not be new.
  RecordNode *put(std::string_view key, std::string_view data);
  // The data pointer of a key's first record, or null; does not move sums.
  void *at(std::string_view key);
  // The text of all records of a key, first to last, separated by blanks; "-" for an absent key.
  std::string all(std::string_view key);
  // The data at a data pointer, trailing zeros left out.
  std::string textAt(const void *data) const;
  // The data pointers of a key's records, first to last.
  std::vector<void *> cursors(std::string_view key);

  // Where things are. With variable keys the node's own key length decides.
  char *base(RecordNode *node) const;
  void *dataOf(RecordNode *node) const;
  DupLinks *links(RecordNode *node) const;
  RecordNode *nodeOf(void *data) const;  // not for variable keys
  double sumOf(RecordNode *node) const;
  void setSumOf(RecordNode *node, double sum) const;
  KeyPrefix *prefix(RecordNode *node) const;

  // What is kept.
  uint32_t elements() const { return inst_->buckets->elementCount; }
  uint32_t used() const { return inst_->buckets->usedBuckets; }
  Bucket *bucket(uint32_t index = 0) const { return MORVABucketAt(inst_->buckets, index); }
  std::vector<RecordNode *> freeRecords() const;
  std::vector<OrderNode *> freeInodes() const;
  // Free slots of the newest record block.
  int64_t room() const { return inst_->recordBlockCapacity - inst_->recordsUsed; }
  // Adds records of keys of their own until neither the free chain nor the newest block has a
  // node left (fixed and defined keys only).
  void fillRecordBlock();
  // The node behind the latest insertion attempt.
  RecordNode *offered() const;

  // Pins a node as a host does; the entry goes with the instance.
  PinnedEntry *pin(RecordNode *node);

 private:
  RecordingHost &host_;
  Shape shape_;
  MORVAInst *inst_ = nullptr;
  uint32_t filler_ = 0;
};

// How one call used the lock.
enum class LockUse {
  none,         // neither acquired nor released
  whole,        // acquired with (1, 1) before anything else, released after everything else
  releaseOnly,  // released once, last, never acquired
  other
};
void PrintTo(LockUse use, std::ostream *out);
LockUse lockUse(RecordingHost &host, const std::function<void()> &call);

// A host and an extension; at the end nothing but the extension may be left,
// and the host must have seen no misuse.
class OpsTest : public testing::Test {
 protected:
  void TearDown() override;

  RecordingHost host;
  Extension ext{host};
  uint64_t unmatchedReleasesExpected = 0;
};

class OpsShapeTest : public OpsTest, public testing::WithParamInterface<Shape> {};

}  // namespace morva_test
