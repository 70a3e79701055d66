// The table as plain data: what every operation must answer and leave behind.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "slot_model.h"
#include "table_shape.h"

namespace morva_test {

struct Record {
  Slot *slot = nullptr;
  std::string data;
  double sum = 0.0;
};

struct KeyState {
  uint32_t bucket = 0;
  // First record first; the only one without several records per key.
  std::vector<Record> chain;
  // The key's place in the insertion order.
  std::list<std::string>::iterator place;
};

class TableModel {
 public:
  using Keys = std::map<std::string, KeyState, KeyOrder>;

  explicit TableModel(const TableShape &shape);

  // ---- operations; each follows the free chain too -------------------------
  MORVAStatus store(const std::string &key, uint32_t bucket, const std::string &data, bool replace);
  // Any operation that builds its key in a scratch record and gives it back.
  void probe(const std::string &key);
  // A fixed key that is too long: the scratch record comes back, or is lost.
  void probeTooLong(bool givenBack);
  // A record that a lookup has reached.
  void count(Record &record);
  // A record overwritten at a cursor.
  void overwrite(Record &record, const std::string &data);
  MORVAStatus remove(const std::string &key, bool pinned);
  MORVAStatus removeAt(const std::string &key, size_t index, bool pinned);
  // `pinned` names the key whose node is pinned, or is null.
  MORVAStatus clear(bool keepMemory, const std::string *pinned);

  // ---- contents ------------------------------------------------------------
  Keys &keys() { return keys_; }
  const Keys &keys() const { return keys_; }
  KeyState *find(const std::string &key);
  // The first records' keys in insertion order; empty without an order.
  const std::list<std::string> &order() const { return order_; }
  const SlotModel &slots() const { return slots_; }
  const OrderSlotModel &orderSlots() const { return orderSlots_; }
  uint32_t elementCount() const { return elementCount_; }
  uint32_t usedBuckets() const { return usedBuckets_; }
  uint32_t bucketCount(uint32_t bucket) const { return bucketCounts_[bucket]; }
  const TableShape &shape() const { return shape_; }

  double increment = 0.0;

 private:
  void forgetKey(Keys::iterator key);

  TableShape shape_;
  Keys keys_;
  std::list<std::string> order_;
  SlotModel slots_;
  OrderSlotModel orderSlots_;
  uint32_t elementCount_ = 0;
  uint32_t usedBuckets_ = 0;
  std::vector<uint32_t> bucketCounts_;
  std::vector<uint32_t> treeSizes_;
};

}  // namespace morva_test
