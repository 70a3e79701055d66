// An extension under check on the recording host, and tables made with it. It is reached by what
// its file exports and by the slots of its objects alone.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "check.h"
#include "random.h"
#include "recording_host.h"
#include "shared_file.h"

namespace morva::cli::check {

using recording::Call;
using recording::Event;
using recording::RecordingHost;

using EntryFunction = MORVAExt *(void *unused, void *context);
using TableFunction = MORVAStatus(HostServices *table);

// The file, loaded, and an extension object made by it.
class Lab {
 public:
  explicit Lab(const Subject &subject, const RecordingHost::Options &options = {});
  // Without the extension object: `ext` stays null.
  Lab(const Subject &subject, const RecordingHost::Options &options, bool makeExtension);

  // A further extension object.
  MORVAExt *enter(void *context = nullptr) const;
  // Ends `ext`, and says what is left after it. Instances have ended before.
  void end();

  // Complaints of the host, damaged guards included.
  void expectNoComplaints();
  void expectNothingLeft();

  RecordingHost host;
  SharedFile file;
  MORVAExt *ext = nullptr;
};

// What kind of table.
struct Shape {
  uint32_t flags = flagFixedKey;
  uint32_t dataLength = 8;
  uint32_t keyLength = 16;  // of fixed keys the longest, of packed keys the whole
  int32_t hashMethod = 2;
  int32_t hashExp = 4;
  int64_t memHint = 0;

  bool packed() const { return (flags & (flagFixedKey | flagVarKey)) == 0; }
  bool has(uint32_t flag) const { return (flags & flag) != 0; }
  MORVAParms parms() const;
};

// "fixed keys, sums, in order".
std::string described(const Shape &shape);

// The three key modes.
constexpr uint32_t kKeyModes[] = {flagFixedKey, flagVarKey, 0};
// Every combination of key mode, sums, duplicates, order and no lock that is allowed.
std::vector<uint32_t> allFlags();

class Table {
 public:
  // Makes the instance, and with packed keys defines it: two fields, the first half and the rest.
  Table(Lab &lab, const Shape &shape, const char *name = "table");
  Table(Lab &lab, MORVAExt *ext, const Shape &shape, const char *name = "table");

  MORVAInst *get() const { return inst_; }
  MORVAInst *operator->() const { return inst_; }
  const Shape &shape() const { return shape_; }
  // "with fixed keys, sums", for complaints.
  const std::string &kind() const { return kind_; }

  // Keys are texts; packed ones are filled up with zeros. Data is made of a number.
  MORVAStatus add(const std::string &key, uint64_t value) const;
  MORVAStatus replace(const std::string &key, uint64_t value) const;
  MORVAStatus find(const std::string &key, void **dataOut) const;
  MORVAStatus remove(const std::string &key) const;
  // The same, to be answered with MORVA_OK.
  void mustAdd(const std::string &key, uint64_t value) const;
  void mustRemove(const std::string &key) const;
  // The data of the key's first record, null when there is none.
  void *found(const std::string &key) const;
  // The data of the key's records, first to last.
  std::vector<void *> chain(const std::string &key) const;
  RecordNode *node(const std::string &key, uint32_t *bucket = nullptr) const;
  double sum(const std::string &key) const;

  void expectValue(const std::string &key, uint64_t value) const;
  void expectAbsent(const std::string &key) const;
  void expectCount(uint32_t count) const;

  // The data that stands for a number, and whether a record's is that.
  std::string payload(uint64_t value) const;
  bool holds(const void *data, uint64_t value) const;
  void mustHold(const void *data, uint64_t value, const std::string &what) const;
  // The key as operations are given it.
  std::string image(const std::string &key) const;
  // The key of a record.
  std::string keyOf(RecordNode *node) const;
  // The data of a record that was found as a node.
  void *dataOf(RecordNode *node) const;

  void destroy();

 private:
  MORVAInst *inst_ = nullptr;
  Shape shape_;
  std::string kind_;
};

// Makes the instance and nothing else; null where creation is refused.
MORVAInst *createInstance(MORVAExt *ext, const Shape &shape, const char *name = "table",
                          void *context = nullptr);
// Defines one field of packed keys, `length` bytes at `argument` of the row.
MORVAStatus defineField(MORVAInst *inst, uint32_t length, uint32_t argument, uint32_t type = 1);

// "key 17", short enough for every mode, each of another length now and then.
std::string keyNumber(uint64_t number);

}  // namespace morva::cli::check
