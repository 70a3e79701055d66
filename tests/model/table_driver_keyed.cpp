// The operations that take a key, and those on the whole table.
#include <gtest/gtest.h>

#include <cstring>

#include "instance_checker.h"
#include "table_driver.h"

namespace morva_test {
namespace {

// What an output place holds before a call, to see whether it was written.
void *const kUntouched = reinterpret_cast<void *>(uintptr_t{0x5EED});
constexpr uint32_t kUntouchedWord = 0x5EED;

bool isPlain(const TableShape &shape) {
  return !shape.sums() && !shape.multi();
}

}  // namespace

void TableDriver::add() {
  store(false);
}

void TableDriver::replace() {
  store(true);
}

void TableDriver::store(bool replace) {
  const std::string &key = anyKey();
  const std::string data = anyData();
  auto operation = replace ? inst_->Replace : inst_->Add;
  switch (below(3)) {
    case 0:
      operation = replace ? MORVAReplace : MORVAAdd;
      break;
    case 1:
      if (isPlain(shape_)) operation = replace ? MORVAFastReplace : MORVAFastAdd;
      break;
    default:
      break;
  }
  const uint32_t before = model_.elementCount();
  const MORVAStatus expected = model_.store(key, bucketOf_.at(key), data, replace);
  const MORVAStatus status = operation(inst_, data.data(), key.data(), lengthOf(key));
  ASSERT_EQ(status, expected);
  if (model_.elementCount() > before) learnNewRecord(key);
}

void TableDriver::find() {
  const std::string &key = anyKey();
  auto operation = inst_->Find;
  bool counts = true;
  switch (below(3)) {
    case 0:
      operation = MORVAFind;
      break;
    case 1:
      if (shape_.multi()) break;
      operation = MORVAFastFind;
      counts = false;
      break;
    default:
      break;
  }
  model_.probe(key);
  KeyState *state = model_.find(key);
  if (state != nullptr && counts) model_.count(state->chain.front());
  if (oneIn(8)) {
    EXPECT_EQ(operation(inst_, key.data(), lengthOf(key), nullptr), MORVA_OK);
    return;
  }
  void *data = kUntouched;
  EXPECT_EQ(operation(inst_, key.data(), lengthOf(key), &data), MORVA_OK);
  EXPECT_EQ(data, state == nullptr ? nullptr : dataAt(key, 0));
}

void TableDriver::find2() {
  const std::string &key = anyKey();
  std::vector<uint64_t> buffer(shape_.probeSize(key.size()) / 8, 0xDBDBDBDBDBDBDBDB);
  auto *probe = reinterpret_cast<RecordNode *>(buffer.data());
  KeyState *state = model_.find(key);
  if (state != nullptr) model_.count(state->chain.front());
  auto operation = oneIn(2) ? inst_->Find2 : MORVAFind2;
  void *data = kUntouched;
  const bool withPlace = !oneIn(8);
  EXPECT_EQ(operation(inst_, key.data(), lengthOf(key), probe, withPlace ? &data : nullptr),
            MORVA_OK);
  EXPECT_EQ(probe->owner, inst_);
  EXPECT_EQ(buffer[0], 0xDBDBDBDBDBDBDBDB) << "the probe's left link was written";
  EXPECT_EQ(buffer[1], 0xDBDBDBDBDBDBDBDB) << "the probe's right link was written";
  void *const expected = state == nullptr ? nullptr : dataAt(key, 0);
  EXPECT_EQ(data, withPlace ? expected : kUntouched);
}

void TableDriver::findNode() {
  const std::string &key = anyKey();
  model_.probe(key);
  KeyState *state = model_.find(key);
  RecordNode *expected = state == nullptr ? nullptr : state->chain.front().slot->node;
  auto *node = static_cast<RecordNode *>(kUntouched);
  uint32_t bucket = kUntouchedWord;
  const bool withNode = !oneIn(4), withBucket = !oneIn(4);
  EXPECT_EQ(inst_->FindNode(inst_, key.data(), lengthOf(key), withNode ? &node : nullptr,
                            withBucket ? &bucket : nullptr),
            MORVA_OK);
  EXPECT_EQ(node, withNode ? expected : kUntouched);
  EXPECT_EQ(bucket, withBucket ? bucketOf_.at(key) : kUntouchedWord);
  if (expected != nullptr) {
    EXPECT_EQ(inst_->Recoff(inst_, expected), shape_.dataOffsetFor(key.size()));
  }
}

void TableDriver::hashVal() {
  const std::string &key = anyKey();
  model_.probe(key);
  if (oneIn(8)) {
    EXPECT_EQ(inst_->HashVal(inst_, key.data(), lengthOf(key), nullptr), MORVA_OK);
    return;
  }
  uint32_t bucket = kUntouchedWord;
  EXPECT_EQ(inst_->HashVal(inst_, key.data(), lengthOf(key), &bucket), MORVA_OK);
  EXPECT_EQ(bucket, bucketOf_.at(key));
}

void TableDriver::remove() {
  const std::string &key = anyKey();
  const MORVAStatus expected = model_.remove(key, false);
  EXPECT_EQ(inst_->Remove(inst_, key.data(), lengthOf(key)), expected);
}

void TableDriver::clear() {
  // Large tables need time to grow.
  if (!oneIn(1 + keys_.size() / 8)) return;
  const bool keepMemory = oneIn(2);
  // A node that stays pinned while its memory stays too is out of use for good;
  // with variable keys nothing would tell when its block goes.
  const bool mayPin = !keepMemory || shape_.keyMode != KeyMode::variable;
  const std::string *pinned = mayPin && oneIn(4) ? presentKey() : nullptr;
  PinnedEntry entry{nullptr, nullptr};
  if (pinned != nullptr) {
    entry.node = model_.keys().at(*pinned).chain.front().slot->node;
    inst_->pinned = &entry;
  }
  const MORVAStatus expected = model_.clear(keepMemory, pinned);
  EXPECT_EQ(keepMemory ? inst_->Clear2(inst_) : inst_->Clear(inst_), expected);
  inst_->pinned = nullptr;
}

void TableDriver::pin() {
  const std::string *key = presentKey();
  if (key == nullptr) return;
  // The entry that counts stands in front of another one, or behind it.
  RecordNode *node = model_.keys().at(*key).chain.front().slot->node;
  const bool inFront = oneIn(2);
  PinnedEntry last{nullptr, inFront ? nullptr : node};
  PinnedEntry entry{&last, inFront ? node : nullptr};
  inst_->pinned = &entry;
  EXPECT_EQ(inst_->Remove(inst_, key->data(), lengthOf(*key)), model_.remove(*key, true));
  if (shape_.multi()) {
    const size_t index = below(model_.keys().at(*key).chain.size());
    void *cursor = dataAt(*key, index);
    EXPECT_EQ(inst_->RemoveDup(inst_, &cursor, key->data(), lengthOf(*key)),
              model_.removeAt(*key, index, true));
    EXPECT_EQ(cursor, dataAt(*key, index));
  }
  inst_->pinned = nullptr;
}

void TableDriver::refusals() {
  const std::string data(shape_.dataLength, 'x');
  const std::string key(shape_.longestKey(), 'k');
  const int32_t length = static_cast<int32_t>(key.size());
  void *place = kUntouched;
  uint32_t word = kUntouchedWord;
  double sum = 0.25;
  EXPECT_EQ(inst_->Add(nullptr, data.data(), key.data(), length), MORVA_INVALID);
  EXPECT_EQ(inst_->Replace(nullptr, data.data(), key.data(), length), MORVA_INVALID);
  EXPECT_EQ(inst_->Find(nullptr, key.data(), length, &place), MORVA_INVALID);
  EXPECT_EQ(inst_->Remove(nullptr, key.data(), length), MORVA_INVALID);
  EXPECT_EQ(inst_->HashVal(nullptr, key.data(), length, &word), MORVA_INVALID);
  EXPECT_EQ(inst_->FindNode(nullptr, key.data(), length, nullptr, &word), MORVA_INVALID);
  EXPECT_EQ(inst_->Sum(nullptr, key.data(), length, &sum), MORVA_INVALID);
  EXPECT_EQ(inst_->RemoveDup(inst_, nullptr, key.data(), length), MORVA_INVALID);
  EXPECT_EQ(inst_->DefineDone(inst_, 0, 8), MORVA_INVALID);
  const MORVAKeyDesc field{4, 4, 0, 0};
  EXPECT_EQ(inst_->DefineKey(inst_, &field), MORVA_INVALID);
  if (shape_.dataLength > 0) {
    EXPECT_EQ(inst_->Add(inst_, nullptr, key.data(), length), MORVA_INVALID);
    EXPECT_EQ(inst_->Replace(inst_, nullptr, key.data(), length), MORVA_INVALID);
  }
  if (!shape_.rawKeys()) return;
  std::vector<uint64_t> probe(shape_.probeSize(key.size()) / 8);
  const struct {
    const char *key;
    int32_t length;
  } bad[] = {{key.data(), -1}, {key.data(), INT32_MIN}, {nullptr, 1}};
  for (const auto &[badKey, badLength] : bad) {
    EXPECT_EQ(inst_->Add(inst_, data.data(), badKey, badLength), MORVA_INVALID);
    EXPECT_EQ(inst_->Replace(inst_, data.data(), badKey, badLength), MORVA_INVALID);
    EXPECT_EQ(inst_->Find(inst_, badKey, badLength, &place), MORVA_INVALID);
    EXPECT_EQ(inst_->Find2(inst_, badKey, badLength, reinterpret_cast<RecordNode *>(probe.data()),
                           &place),
              MORVA_INVALID);
    EXPECT_EQ(inst_->FindNode(inst_, badKey, badLength, nullptr, &word), MORVA_INVALID);
    EXPECT_EQ(inst_->HashVal(inst_, badKey, badLength, &word), MORVA_INVALID);
    EXPECT_EQ(inst_->Remove(inst_, badKey, badLength), MORVA_INVALID);
    EXPECT_EQ(inst_->Sum(inst_, badKey, badLength, &sum),
              shape_.sums() ? MORVA_INVALID : MORVA_NO_SUM);
  }
  EXPECT_EQ(place, kUntouched);
  EXPECT_EQ(word, kUntouchedWord);
  EXPECT_EQ(sum, 0.25);
}

void TableDriver::tooLong() {
  if (shape_.keyMode != KeyMode::fixed) return;
  const std::string key(shape_.keyArea() + 1 + below(5), 'k');
  const std::string data(shape_.dataLength, 'x');
  const int32_t length = static_cast<int32_t>(key.size());
  void *place = kUntouched;
  uint32_t word = kUntouchedWord;
  double sum = 0.25;
  switch (below(9)) {
    case 0:
      EXPECT_EQ(inst_->Add(inst_, data.data(), key.data(), length), MORVA_INVALID);
      model_.probeTooLong(false);
      break;
    case 1:
      EXPECT_EQ(inst_->Replace(inst_, data.data(), key.data(), length), MORVA_INVALID);
      model_.probeTooLong(false);
      break;
    case 2:
      EXPECT_EQ(inst_->Find(inst_, key.data(), length, &place), MORVA_INVALID);
      model_.probeTooLong(false);
      break;
    case 3:
      EXPECT_EQ(inst_->HashVal(inst_, key.data(), length, &word), MORVA_INVALID);
      model_.probeTooLong(false);
      break;
    case 4:
      EXPECT_EQ(inst_->Sum(inst_, key.data(), length, &sum),
                shape_.sums() ? MORVA_INVALID : MORVA_NO_SUM);
      if (shape_.sums()) model_.probeTooLong(false);
      break;
    case 5:
      EXPECT_EQ(inst_->Remove(inst_, key.data(), length), MORVA_INVALID);
      model_.probeTooLong(true);
      break;
    case 6:
      EXPECT_EQ(inst_->FindNode(inst_, key.data(), length, nullptr, &word), MORVA_INVALID);
      model_.probeTooLong(true);
      if (shape_.locked()) ++unmatchedReleases_;
      break;
    case 7: {
      std::vector<uint64_t> probe(shape_.probeSize(0) / 8);
      EXPECT_EQ(inst_->Find2(inst_, key.data(), length,
                             reinterpret_cast<RecordNode *>(probe.data()), &place),
                MORVA_INVALID);
      if (shape_.locked()) ++unmatchedReleases_;
      break;
    }
    default: {
      const std::string *present = presentKey();
      if (!shape_.multi() || present == nullptr) break;
      void *cursor = dataAt(*present, 0);
      EXPECT_EQ(inst_->RemoveDup(inst_, &cursor, key.data(), length), MORVA_INVALID);
      EXPECT_EQ(cursor, dataAt(*present, 0));
      model_.probeTooLong(true);
      break;
    }
  }
  EXPECT_EQ(place, kUntouched);
  EXPECT_EQ(word, kUntouchedWord);
  EXPECT_EQ(sum, 0.25);
}

}  // namespace morva_test
