// What the tests with several threads share: tables on the embedded host, keys
// and numbered data.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "table_shape.h"
#include "test_hosts.h"
#include "thread_work.h"

namespace morva_test {

constexpr size_t kThreads = 4;

TableShape shapeOf(KeyMode mode, uint32_t flags);

// Shapes with a lock, one or two of every key mode.
const std::vector<TableShape> &lockedShapes();

int32_t lengthOf(const std::string &key);

std::vector<std::string> someKeys(const TableShape &shape, size_t count, uint64_t seed = 1);

// Data of the shape that starts with a number, and that number back.
std::string dataFor(const TableShape &shape, uint64_t number);
uint64_t numberIn(const void *data);

// A table on a host of its own, released and checked for leftovers at the end.
class SharedTable {
 public:
  explicit SharedTable(const TableShape &shape, HostKind kind = HostKind::embedded);
  ~SharedTable();
  SharedTable(const SharedTable &) = delete;
  SharedTable &operator=(const SharedTable &) = delete;

  MORVAInst *inst() const { return inst_; }
  MORVAExt *ext() const { return host_->ext(); }

  // What is wrong with the table, nobody changing it; and what it holds.
  std::string check(ThreadWork::Contents *contents) const;

 private:
  TableShape shape_;
  std::unique_ptr<HostUnderTest> host_;
  MORVAInst *inst_;
};

}  // namespace morva_test
