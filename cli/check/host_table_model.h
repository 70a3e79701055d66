// Whole tables on a host under check: the library is loaded, and what its
// instances answer is compared with what they should.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host_subject.h"
#include "host_typed_keys.h"

namespace morva::cli::check {

// The library on a host.
class Extension {
 public:
  // Null is an answer of the entry function where memory is limited.
  Extension(const DrivingLibrary &library, const Host &host);
  MORVAExt *get() const { return ext_; }
  // All instances are destroyed before.
  void destroy() const;

 private:
  MORVAExt *ext_;
};

// What keys an instance has, and with which options it is made.
struct TableShape {
  // Option bits; those that are neither flagFixedKey nor flagVarKey have typed keys.
  uint32_t flags = flagFixedKey;
  // Of those the kind.
  const MORVAHostKey *kind = nullptr;
  int32_t hashExp = 4;

  bool has(uint32_t flag) const { return (flags & flag) != 0; }
  std::string shown() const;
};

// Every combination of the options among `optional`, each together with `always`.
std::vector<TableShape> everyShape(uint32_t always, uint32_t optional,
                                   const MORVAHostKey *kind = nullptr);

// The key of a number, as an instance of that shape takes it.
class TableKey {
 public:
  explicit TableKey(const TableShape &shape);
  void set(uint64_t number);
  const void *data() const { return data_; }
  int32_t length() const { return length_; }

 private:
  const TableShape shape_;
  std::string text_;
  std::unique_ptr<KeyRoom> room_;
  const void *data_ = nullptr;
  int32_t length_ = 0;
};

// The data of a record.
struct TableData {
  uint64_t number;
  uint64_t version;
  uint64_t check;

  static TableData of(uint64_t number, uint64_t version) {
    return {number, version, number * 31 + version * 17 + 5};
  }
  bool operator==(const TableData &) const = default;
};

constexpr uint32_t kLongestFixedKey = 24;

// Makes an instance, defined and ready, or null where there is no memory.
MORVAInst *newInstance(const Extension &extension, const TableShape &shape,
                       void *context = nullptr);

// An instance beside a model of what it holds. Used by one thread at a time.
class ModelTable {
 public:
  // Throws Unmet when the instance cannot be made.
  ModelTable(const Host &host, const Extension &extension, const TableShape &shape);
  MORVAInst *instance() const { return inst_; }
  size_t keys() const { return order_.size(); }

  void add(uint64_t number);
  void replace(uint64_t number);
  void find(uint64_t number);
  void find2(uint64_t number);
  void remove(uint64_t number);
  void sum(uint64_t number);
  // With flagMultiData: the chain of a key, forth and back; one record of it replaced or removed.
  void walkRecords(uint64_t number);
  void replaceRecord(uint64_t number, uint64_t which);
  void removeRecord(uint64_t number, uint64_t which);
  void clear(bool keepMemory);
  // One of all that, on one of the keys 0 to `range` - 1.
  void doAnything(Random &numbers, uint64_t range);

  // Counts, every key, and the order where it can be walked.
  void verify();
  void destroy();

 private:
  struct Record {
    uint64_t version;
    double sum;
  };
  using Records = std::vector<Record>;

  void expectData(const void *data, uint64_t number, uint64_t version, const char *operation) const;
  Records *known(uint64_t number);
  void store(uint64_t number, uint64_t version);
  void forget(uint64_t number);
  // The data pointer of record `which` of a key that has it; finds count.
  void *reach(uint64_t number, size_t which);
  [[noreturn]] void fail(const std::string &text) const;
  void expectThat(bool condition, const std::string &text) const {
    if (!condition) fail(text);
  }

  const Host &host_;
  const TableShape shape_;
  MORVAInst *inst_;
  TableKey key_;
  std::vector<uint64_t> probe_;
  std::unordered_map<uint64_t, Records> records_;
  // The keys as they were first stored.
  std::vector<uint64_t> order_;
  uint64_t count_ = 0;
  uint64_t version_ = 0;
};

}  // namespace morva::cli::check
