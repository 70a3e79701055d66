#include "held_work.h"

#include <thread>

#include "morva/guard.hpp"

namespace morva_test {

void HeldWork::run(size_t steps) {
  for (size_t i = 0; i < steps && !::testing::Test::HasFailure(); ++i) step();
}

void HeldWork::step() {
  const std::string &key = keys_[below(keys_.size())];
  const size_t choice = below(40);
  if (choice >= 30) return unheld(key);
  // Held twice, for an operation takes the lock that its thread holds already.
  const morva::guard hold(inst_->lock);
  if (choice == 0) return clear();
  if (choice == 1) std::this_thread::yield();  // others come and find the lock held
  switch (choice % 8) {
    case 0:
    case 1:
      return add(key);
    case 2:
      return replace(key);
    case 3:
      return remove(key);
    case 4:
      walk(key);
      return sums(key);
    case 5:
      return changeOne(key);
    case 6:
      return removeOne(key);
    default:
      return findNode(key);
  }
}

void HeldWork::expectRecords(size_t records) {
  EXPECT_EQ(inst_->NumElements(inst_), records);
}

std::vector<void *> HeldWork::recordsOf(const std::string &key) {
  std::vector<void *> records;
  void *data = inst_;
  EXPECT_EQ(inst_->Find(inst_, key.data(), lengthOf(key), &data), MORVA_OK);
  while (data != nullptr) {
    records.push_back(data);
    if (!shape_.multi()) break;
    EXPECT_EQ(inst_->FindNext(inst_, data, &data), MORVA_OK);
  }
  return records;
}

void HeldWork::add(const std::string &key) {
  const size_t before = inst_->NumElements(inst_);
  const bool stored = recordsOf(key).empty() || shape_.multi();
  EXPECT_EQ(addTo(inst_, key, anyData()), stored ? MORVA_OK : MORVA_PRESENT);
  expectRecords(before + (stored ? 1 : 0));
}

void HeldWork::replace(const std::string &key) {
  const size_t before = inst_->NumElements(inst_);
  const std::vector<void *> records = recordsOf(key);
  const std::string data = anyData();
  EXPECT_EQ(replaceIn(inst_, key, data), MORVA_OK);
  expectRecords(before + (records.empty() ? 1 : 0));
  for (const void *record : records) EXPECT_EQ(numberIn(record), numberIn(data.data()));
}

void HeldWork::remove(const std::string &key) {
  const size_t before = inst_->NumElements(inst_);
  const size_t records = recordsOf(key).size();
  EXPECT_EQ(removeFrom(inst_, key), records == 0 ? MORVA_INVALID : MORVA_OK);
  expectRecords(before - records);
  EXPECT_TRUE(recordsOf(key).empty());
}

void HeldWork::walk(const std::string &key) {
  const std::vector<void *> records = recordsOf(key);
  if (!shape_.multi()) return;
  for (size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(inst_->HasNext(inst_, records[i]), i + 1 < records.size() ? 1u : 0u);
    EXPECT_EQ(inst_->HasPrev(inst_, records[i]), i > 0 ? 1u : 0u);
    if (i == 0) continue;
    void *back = nullptr;
    EXPECT_EQ(inst_->FindPrev(inst_, records[i], &back), MORVA_OK);
    EXPECT_EQ(back, records[i - 1]);
  }
}

void HeldWork::sums(const std::string &key) {
  double sum = -1.0;
  if (!shape_.sums()) {
    EXPECT_EQ(inst_->Sum(inst_, key.data(), lengthOf(key), &sum), MORVA_NO_SUM);
    return;
  }
  const std::vector<void *> records = recordsOf(key);
  EXPECT_EQ(inst_->Sum(inst_, key.data(), lengthOf(key), &sum), MORVA_OK);
  for (void *record : records) {
    double own = -1.0;
    EXPECT_EQ(inst_->SumKey(inst_, record, &own, 0), MORVA_OK);
    EXPECT_GE(own, 2.0) << "one for its coming, one for being found";
    if (record == records.front()) {
      EXPECT_EQ(own, sum);
    }
    if (!shape_.multi()) continue;
    double again = -1.0;
    EXPECT_EQ(inst_->SumDup(inst_, record, &again), MORVA_OK);
    EXPECT_EQ(again, own);
  }
}

void HeldWork::changeOne(const std::string &key) {
  const std::vector<void *> records = recordsOf(key);
  if (records.empty()) return;
  void *record = records[below(records.size())];
  const std::string data = anyData();
  EXPECT_EQ(inst_->ReplaceDup(inst_, record, data.data()), MORVA_OK);
  EXPECT_EQ(numberIn(record), numberIn(data.data()));
}

void HeldWork::removeOne(const std::string &key) {
  const size_t before = inst_->NumElements(inst_);
  const std::vector<void *> records = recordsOf(key);
  if (!shape_.multi() || records.empty()) return;
  void *cursor = records[below(records.size())];
  EXPECT_EQ(inst_->RemoveDup(inst_, &cursor, key.data(), lengthOf(key)), MORVA_OK);
  EXPECT_EQ(cursor, nullptr);
  expectRecords(before - 1);
  EXPECT_EQ(recordsOf(key).size(), records.size() - 1);
}

// Takes no lock by itself: it is for those who hold it.
void HeldWork::findNode(const std::string &key) {
  const std::vector<void *> records = recordsOf(key);
  RecordNode *node = nullptr;
  uint32_t bucket = UINT32_MAX;
  EXPECT_EQ(inst_->FindNode(inst_, key.data(), lengthOf(key), &node, &bucket), MORVA_OK);
  EXPECT_LT(bucket, inst_->HashSize(inst_));
  EXPECT_EQ(node != nullptr, !records.empty());
  if (node == nullptr || records.empty()) return;
  const auto *base = static_cast<const char *>(MORVARecordBase(node));
  const size_t links = shape_.multi() ? sizeof(DupLinks) : 0;
  EXPECT_EQ(base + inst_->Recoff(inst_, node) + links, records.front());
}

void HeldWork::clear() {
  EXPECT_EQ(below(2) == 0 ? inst_->Clear(inst_) : inst_->Clear2(inst_), MORVA_OK);
  expectRecords(0);
}

void HeldWork::unheld(const std::string &key) {
  MORVAStatus status = MORVA_OK;
  switch (below(6)) {
    case 0:
      status = addTo(inst_, key, anyData());
      EXPECT_TRUE(status == MORVA_OK || (status == MORVA_PRESENT && !shape_.multi())) << status;
      break;
    case 1:
      EXPECT_EQ(replaceIn(inst_, key, anyData()), MORVA_OK);
      break;
    case 2:
      status = removeFrom(inst_, key);
      EXPECT_TRUE(status == MORVA_OK || status == MORVA_INVALID) << status;
      break;
    case 3:
      EXPECT_EQ(inst_->Find(inst_, key.data(), lengthOf(key), nullptr), MORVA_OK);
      break;
    case 4:
      EXPECT_EQ(inst_->HashVal(inst_, key.data(), lengthOf(key), nullptr), MORVA_OK);
      break;
    default:
      if (!shape_.sums()) break;
      inst_->SetSumInc(inst_, 1.0);
      EXPECT_EQ(inst_->Sum(inst_, key.data(), lengthOf(key), nullptr), MORVA_OK);
      break;
  }
}

}  // namespace morva_test
