#include "scenario_table.h"

#include <algorithm>
#include <cstring>

namespace fault_test {
namespace {

#pragma pack(push, 1)
struct Row {
  double amount;
  char text[6];
  int32_t number;
  char raw[3];
  char name[9];
  char letters[5];
};
#pragma pack(pop)

// More of them than the packer makes room for at first.
constexpr MORVAKeyDesc kFields[] = {
    {8, 1, offsetof(Row, amount), 0},      {6, 2, offsetof(Row, text), 1},
    {4, 3, offsetof(Row, number), 0},      {3, 4, offsetof(Row, raw), 0},
    {9, 5, offsetof(Row, name), 0},        {1, 2, offsetof(Row, letters), 0},
    {1, 5, offsetof(Row, letters) + 1, 0}, {1, 2, offsetof(Row, letters) + 2, 0},
    {1, 5, offsetof(Row, letters) + 3, 0}, {1, 2, offsetof(Row, letters) + 4, 0}};

constexpr int kMostKeys = 96;
constexpr size_t kLongestKey = 24;
// Long enough that records need more than one block soon.
constexpr uint32_t kDataLength = 200;

struct RawKey {
  char bytes[kLongestKey];
  int32_t length;
};

const RawKey &rawKey(int key) {
  static const auto kKeys = [] {
    std::array<RawKey, kMostKeys> made{};
    for (int i = 0; i < kMostKeys; ++i) {
      RawKey &raw = made[static_cast<size_t>(i)];
      raw.length = 4 + i % 20;
      std::memset(raw.bytes, 'x', sizeof raw.bytes);
      std::memcpy(raw.bytes, &i, sizeof i);
    }
    return made;
  }();
  return kKeys[static_cast<size_t>(key)];
}

const Row &rowOf(int key) {
  static const auto kRows = [] {
    std::array<Row, kMostKeys> made{};
    for (int i = 0; i < kMostKeys; ++i) {
      Row &row = made[static_cast<size_t>(i)];
      row.amount = i % 2 == 0 ? 0.0 : -0.0;
      std::memcpy(row.text, i % 3 == 0 ? "ab    " : "cd\0\0\0\0", sizeof row.text);
      row.number = i;
      std::memcpy(row.raw, &i, sizeof row.raw);
      std::memcpy(row.name, "name\0rest", sizeof row.name);
      std::memcpy(row.letters, "abcde", sizeof row.letters);
    }
    return made;
  }();
  return kRows[static_cast<size_t>(key)];
}

std::array<char, kDataLength> recordOf(uint64_t data) {
  std::array<char, kDataLength> record{};
  std::memcpy(record.data(), &data, sizeof data);
  return record;
}

}  // namespace

ScenarioTable::ScenarioTable(MORVAExt *ext, uint32_t flags) : flags_(flags) {
  static_assert(kKeys == kMostKeys);
  MORVAParms parms = {};
  parms.flags = flags;
  parms.keyLength = kLongestKey;
  parms.dataLength = kDataLength;
  parms.hashExp = 2;
  inst_ = ext->Create(ext, &parms, nullptr, "scenario");
  if (inst_ == nullptr || has(flagFixedKey | flagVarKey)) return;
  MORVAStatus status = MORVA_OK;
  for (const MORVAKeyDesc &field : kFields) {
    if (status == MORVA_OK) status = inst_->DefineKey(inst_, &field);
  }
  if (status == MORVA_OK) status = inst_->DefineDone(inst_, 0, kDataLength);
  if (status == MORVA_OK) return;
  inst_->Destroy(inst_);
  inst_ = nullptr;
}

QZKey ScenarioTable::keyOf(int key) const {
  if (has(flagFixedKey | flagVarKey)) return {rawKey(key).bytes, rawKey(key).length, 0};
  return {&rowOf(key), 0, 0};
}

void ScenarioTable::say(const char *what, int key) {
  if (!fault_.empty()) return;
  fault_ = std::string(what) + ": table with flags " + std::to_string(flags_) + ", key " +
           std::to_string(key);
}

// The library's own lookup with a probe of ours: it needs no memory, so it cannot fail.
void *ScenarioTable::find2(int key) {
  alignas(8) char room[sizeof(RecordNode) + 64];
  const QZKey bytes = keyOf(key);
  void *data = nullptr;
  if (inst_->Find2(inst_, bytes.bytes, bytes.length, reinterpret_cast<RecordNode *>(room), &data) !=
      MORVA_OK) {
    say("a lookup that needs no memory failed", key);
  }
  return data;
}

void ScenarioTable::added(int key, uint64_t data, MORVAStatus status) {
  Key &held = keys_[static_cast<size_t>(key)];
  const bool isThere = held.records != 0 || held.uncounted;
  if (status == MORVA_NO_MEMORY) {
    ranOut_ = true;
    if (!isThere && has(flagOrdered) && find2(key) != nullptr) held.uncounted = true;
    return;
  }
  if (status == MORVA_PRESENT && isThere && !has(flagMultiData)) return;
  if (status != MORVA_OK || (isThere && !has(flagMultiData))) return say("an add failed", key);
  if (!isThere) {
    held.data = data;
    held.sum = 0;
    order_.push_back(key);
  }
  ++held.records;
}

void ScenarioTable::addSome() {
  for (int key = 0; key < kKeys; key += 2) {
    const uint64_t data = ++clock_;
    const QZKey bytes = keyOf(key);
    added(key, data, inst_->Add(inst_, recordOf(data).data(), bytes.bytes, bytes.length));
  }
}

void ScenarioTable::addMany() {
  QZKey bytes[kKeys];
  MORVAStatus statuses[kKeys];
  std::vector<char> data;
  for (int key = 0; key < kKeys; ++key) {
    bytes[key] = keyOf(key);
    const auto record = recordOf(clock_ + static_cast<uint64_t>(key));
    data.insert(data.end(), record.begin(), record.end());
  }
  const size_t done = QZAddMany(inst_, bytes, kKeys, data.data(), kDataLength, statuses);
  if (done != static_cast<size_t>(std::count(statuses, statuses + kKeys, MORVA_OK))) {
    say("adds are counted wrongly", 0);
  }
  for (int key = 0; key < kKeys; ++key) {
    added(key, clock_ + static_cast<uint64_t>(key), statuses[key]);
  }
  clock_ += kKeys;
}

void ScenarioTable::findMany() {
  QZKey bytes[kKeys];
  MORVAStatus statuses[kKeys];
  void *found[kKeys];
  for (int key = 0; key < kKeys; ++key) bytes[key] = keyOf(key);
  QZFindMany(inst_, bytes, kKeys, found, statuses);
  for (int key = 0; key < kKeys; ++key) {
    if (statuses[key] == MORVA_NO_MEMORY) {
      ranOut_ = true;
    } else if (statuses[key] != MORVA_OK || found[key] != find2(key)) {
      say("a find of many keys failed", key);
    }
  }
}

void ScenarioTable::addToSums() {
  QZKey bytes[kKeys];
  double amounts[kKeys];
  MORVAStatus statuses[kKeys];
  for (int key = 0; key < kKeys; ++key) {
    bytes[key] = keyOf(key);
    amounts[key] = key;
  }
  QZAddToSumMany(inst_, bytes, kKeys, amounts, statuses);
  for (int key = 0; key < kKeys; ++key) {
    Key &held = keys_[static_cast<size_t>(key)];
    const bool isThere = held.records != 0 || held.uncounted;
    const MORVAStatus expected = !has(flagSum) ? MORVA_NO_SUM : isThere ? MORVA_OK : MORVA_INVALID;
    if (statuses[key] == MORVA_NO_MEMORY && has(flagSum)) {
      ranOut_ = true;
    } else if (statuses[key] != expected) {
      say("an addition to a sum failed", key);
    } else if (expected == MORVA_OK) {
      held.sum += key;
      double sum = -1;
      const MORVAStatus status = inst_->Sum(inst_, bytes[key].bytes, bytes[key].length, &sum);
      if (status == MORVA_NO_MEMORY) {
        ranOut_ = true;
      } else if (status != MORVA_OK || (!held.uncounted && sum != held.sum)) {
        say("a sum is wrong", key);
      }
    }
  }
}

void ScenarioTable::removeMany() {
  constexpr int kCount = kKeys / 3;
  QZKey bytes[kCount];
  MORVAStatus statuses[kCount];
  for (int i = 0; i < kCount; ++i) bytes[i] = keyOf(i * 3);
  QZRemoveMany(inst_, bytes, kCount, statuses);
  for (int i = 0; i < kCount; ++i) {
    const int key = i * 3;
    Key &held = keys_[static_cast<size_t>(key)];
    if (statuses[i] == MORVA_NO_MEMORY) {
      ranOut_ = true;
      continue;
    }
    // What is in no order cannot leave it.
    const bool isThere = held.records != 0 && !held.uncounted;
    if (statuses[i] != (isThere ? MORVA_OK : MORVA_INVALID)) say("a removal failed", key);
    // The count does not know what was never counted: from now on it is too low.
    if (held.uncounted) return empty();
    held = {};
    order_.erase(std::remove(order_.begin(), order_.end(), key), order_.end());
  }
}

// A table that has lost its counts is good again when it is cleared.
void ScenarioTable::empty() {
  clear();
}

void ScenarioTable::clear() {
  if (inst_->Clear(inst_) != MORVA_OK) say("a clear failed", 0);
  keys_ = {};
  order_.clear();
}

void ScenarioTable::clearKeeping() {
  if (inst_->Clear2(inst_) != MORVA_OK) say("a clear that keeps memory failed", 0);
  keys_ = {};
  order_.clear();
}

void ScenarioTable::check() {
  uint32_t records = 0;
  for (int key = 0; key < kKeys; ++key) {
    const Key &held = keys_[static_cast<size_t>(key)];
    records += static_cast<uint32_t>(held.records);
    const void *data = find2(key);
    if ((data != nullptr) != (held.records != 0 || held.uncounted)) {
      say(data != nullptr ? "a key is found that was not stored" : "a key is not found", key);
    } else if (data != nullptr && !held.uncounted && std::memcmp(data, &held.data, 8) != 0) {
      say("a key's record is another", key);
    }
  }
  if (inst_->NumElements(inst_) != records) say("the elements are counted wrongly", 0);
  const OrderNode *node = QZOrderFirst(inst_);
  const OrderNode *before = nullptr;
  for (const int key : has(flagOrdered) ? order_ : std::vector<int>()) {
    if (node == nullptr || QZOrderPrev(node) != before) return say("the order is broken", key);
    RecordNode *record = static_cast<RecordNode *>(node->record);
    const uint64_t links = has(flagMultiData) ? sizeof(DupLinks) : 0;
    const char *data =
        static_cast<char *>(MORVARecordBase(record)) + inst_->Recoff(inst_, record) + links;
    if (data != find2(key)) return say("the order is another", key);
    before = node;
    node = QZOrderNext(node);
  }
  if (node != nullptr || QZOrderLast(inst_) != before) say("the order ends elsewhere", 0);
}

void ScenarioTable::destroy() {
  check();
  if (inst_->Destroy(inst_) != MORVA_OK) say("destruction failed", 0);
  inst_ = nullptr;
}

}  // namespace fault_test
