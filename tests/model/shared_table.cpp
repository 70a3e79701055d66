#include "shared_table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "instance_checker.h"

namespace morva_test {

TableShape shapeOf(KeyMode mode, uint32_t flags) {
  TableShape shape;
  shape.keyMode = mode;
  shape.flags = flags;
  shape.hashExp = 2;
  return shape;
}

const std::vector<TableShape> &lockedShapes() {
  static const std::vector<TableShape> shapes = {
      shapeOf(KeyMode::fixed, 0),
      shapeOf(KeyMode::fixed, flagOrdered | flagSum | flagMultiData),
      shapeOf(KeyMode::variable, flagOrdered),
      shapeOf(KeyMode::defined, flagSum),
      shapeOf(KeyMode::defined, flagOrdered | flagMultiData | flagLockOpt),
  };
  return shapes;
}

int32_t lengthOf(const std::string &key) {
  return static_cast<int32_t>(key.size());
}

std::vector<std::string> someKeys(const TableShape &shape, size_t count, uint64_t seed) {
  std::mt19937_64 random(seed);
  return makeKeys(shape, count, random);
}

std::string dataFor(const TableShape &shape, uint64_t number) {
  std::string data(shape.dataLength, 'd');
  std::memcpy(data.data(), &number, sizeof number);
  return data;
}

uint64_t numberIn(const void *data) {
  uint64_t number;
  std::memcpy(&number, data, sizeof number);
  return number;
}

SharedTable::SharedTable(const TableShape &shape, HostKind kind)
    : shape_(shape), host_(makeHost(kind)), inst_(makeInstance(host_->ext(), shape)) {
  if (inst_ == nullptr) throw std::runtime_error("no instance of " + shape.text());
  if (shape.sums()) inst_->SetSumInc(inst_, 1.0);
}

SharedTable::~SharedTable() {
  EXPECT_EQ(inst_->Destroy(inst_), MORVA_OK);
  EXPECT_EQ(host_->close(), "");
}

std::string SharedTable::check(ThreadWork::Contents *contents) const {
  return checkInstanceAlone(inst_, shape_, host_->order(inst_), contents);
}

}  // namespace morva_test
