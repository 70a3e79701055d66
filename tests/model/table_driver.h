// Drives one table through random or chosen operations, each of them made on the
// model too, and compares every answer. Failures are reported through GoogleTest.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "table_model.h"
#include "test_hosts.h"

namespace morva_test {

class TableDriver {
 public:
  // Answers a number below `n`.
  using Choices = std::function<uint64_t(uint64_t n)>;

  // Two drivers with one seed on one shape make the same operations.
  TableDriver(HostUnderTest &host, const TableShape &shape, uint64_t seed, size_t keyCount);
  // On these keys, all different; `choices` says what the operations are made with.
  TableDriver(HostUnderTest &host, const TableShape &shape, std::vector<std::string> keys,
              Choices choices);
  ~TableDriver();
  TableDriver(const TableDriver &) = delete;
  TableDriver &operator=(const TableDriver &) = delete;

  // False when the instance could not be made.
  bool ready() const { return inst_ != nullptr; }

  // One random operation.
  void step();
  // The operation of that number.
  void make(size_t operation);
  static size_t operationCount();

  // Holds the whole instance against the model; empty when all is well.
  std::string check();

  // What was done last, most recent last, for messages.
  std::string history() const;

  // Overwrites the last byte of the first record's data, behind the library's
  // back, with its complement. False when there is none.
  bool flipOneByte();

  // Adds a record to the chain of the first or of the last key, unknown to the
  // model. False when there are not two keys, or no chains.
  bool lengthenChain(bool ofFirstKey);

  MORVAInst *inst() const { return inst_; }
  const TableModel &model() const { return model_; }
  // How often the library has released a lock that it had not acquired.
  uint64_t expectedUnmatchedReleases() const { return unmatchedReleases_; }

 private:
  struct Operation {
    int weight;
    const char *name;
    void (TableDriver::*run)();
  };
  static const Operation kOperations[];

  // table_driver.cpp
  TableDriver(HostUnderTest &host, const TableShape &shape,
              const std::shared_ptr<std::mt19937_64> &random, size_t keyCount);
  uint64_t below(uint64_t n) { return choices_(n); }
  bool oneIn(uint64_t n) { return below(n) == 0; }
  const std::string &anyKey();
  const std::string *presentKey();
  std::string anyData();
  int32_t lengthOf(const std::string &key);
  char *dataAt(const std::string &key, size_t index);
  void learnNewRecord(const std::string &key);

  // table_driver_keyed.cpp
  void add();
  void replace();
  void store(bool replace);
  void find();
  void find2();
  void findNode();
  void hashVal();
  void remove();
  void clear();
  void pin();
  void refusals();
  void tooLong();

  // table_driver_records.cpp
  void walk();
  void neighbours();
  void neighbour(const std::string &key, size_t index, bool forward);
  void replaceDup();
  void removeDup();
  void sum();
  void sumDup();
  void sumKey();
  void setIncrement();
  void poke();

  HostUnderTest &host_;
  TableShape shape_;
  Choices choices_;
  TableModel model_;
  std::vector<std::string> keys_;
  std::map<std::string, uint32_t> bucketOf_;
  MORVAInst *inst_ = nullptr;
  uint64_t unmatchedReleases_ = 0;
  uint64_t steps_ = 0;
  std::vector<const char *> history_;
};

}  // namespace morva_test
