#include "thread_work.h"

#include <gtest/gtest.h>

#include <cstring>
#include <latch>
#include <thread>

namespace morva_test {
namespace {

int32_t lengthOf(const std::string &key) {
  return static_cast<int32_t>(key.size());
}

}  // namespace

void inParallel(size_t count, const std::function<void(size_t)> &work) {
  std::latch start(static_cast<std::ptrdiff_t>(count));
  std::vector<std::thread> threads;
  for (size_t i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      work(i);
    });
  }
  for (std::thread &thread : threads) thread.join();
}

ThreadWork::ThreadWork(MORVAInst *inst, const TableShape &shape, std::vector<std::string> keys,
                       uint64_t seed)
    : inst_(inst), shape_(shape), keys_(std::move(keys)), random_(seed) {
  for (const std::string &key : keys_) {
    EXPECT_EQ(inst->HashVal(inst, key.data(), lengthOf(key), &bucketOf_[key]), MORVA_OK);
  }
}

void ThreadWork::run(size_t steps) {
  for (size_t i = 0; i < steps && !::testing::Test::HasFailure(); ++i) step();
}

ThreadWork::Contents ThreadWork::contents() const {
  Contents contents;
  for (const auto &[key, records] : held_) {
    for (const Held &record : records) contents[key].push_back(record.data);
  }
  return contents;
}

void ThreadWork::step() {
  const std::string &key = keys_[below(keys_.size())];
  switch (below(10)) {
    case 0:
    case 1:
    case 2:
      return add(key);
    case 3:
      return replace(key);
    case 4:
      return remove(key);
    case 5:
      return changeOne(key);
    case 6:
      return removeOne(key);
    case 7:
      return readSums(key);
    default:
      return walk(key);
  }
}

void ThreadWork::add(const std::string &key) {
  std::vector<Held> &records = held_[key];
  const std::string data = anyData();
  const bool stored = records.empty() || shape_.multi();
  EXPECT_EQ(inst_->Add(inst_, data.data(), key.data(), lengthOf(key)),
            stored ? MORVA_OK : MORVA_PRESENT);
  if (stored) records.push_back({data, 1.0});
}

void ThreadWork::replace(const std::string &key) {
  std::vector<Held> &records = held_[key];
  const std::string data = anyData();
  EXPECT_EQ(inst_->Replace(inst_, data.data(), key.data(), lengthOf(key)), MORVA_OK);
  if (records.empty()) records.push_back({data, 1.0});
  for (Held &record : records) record.data = data;
  records.front().sum = 1.0;
}

void ThreadWork::remove(const std::string &key) {
  EXPECT_EQ(inst_->Remove(inst_, key.data(), lengthOf(key)),
            held_[key].empty() ? MORVA_INVALID : MORVA_OK);
  held_[key].clear();
}

bool ThreadWork::findAll(const std::string &key, std::vector<void *> *cursors) {
  std::vector<Held> &records = held_[key];
  void *data = inst_;
  EXPECT_EQ(inst_->Find(inst_, key.data(), lengthOf(key), &data), MORVA_OK);
  for (size_t i = 0; data != nullptr; ++i) {
    if (i >= records.size()) {
      ADD_FAILURE() << "more records than were added";
      return false;
    }
    records[i].sum += 1.0;
    cursors->push_back(data);
    if (!shape_.multi()) break;
    EXPECT_EQ(inst_->HasNext(inst_, data), i + 1 < records.size() ? 1u : 0u);
    EXPECT_EQ(inst_->HasPrev(inst_, data), i > 0 ? 1u : 0u);
    EXPECT_EQ(inst_->FindNext(inst_, data, &data), MORVA_OK);
  }
  EXPECT_EQ(cursors->size(), records.size());
  return cursors->size() == records.size();
}

void ThreadWork::walk(const std::string &key) {
  std::vector<void *> cursors;
  if (!findAll(key, &cursors)) return;
  std::vector<Held> &records = held_[key];
  for (size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(std::string(static_cast<char *>(cursors[i]), shape_.dataLength), records[i].data);
  }
  for (size_t i = records.size(); shape_.multi() && i-- > 1;) {
    void *data = nullptr;
    EXPECT_EQ(inst_->FindPrev(inst_, cursors[i], &data), MORVA_OK);
    EXPECT_EQ(data, cursors[i - 1]);
    records[i - 1].sum += 1.0;
  }
  uint32_t bucket = UINT32_MAX;
  EXPECT_EQ(inst_->HashVal(inst_, key.data(), lengthOf(key), &bucket), MORVA_OK);
  EXPECT_EQ(bucket, bucketOf_[key]);
}

void ThreadWork::changeOne(const std::string &key) {
  std::vector<void *> cursors;
  if (!findAll(key, &cursors) || cursors.empty()) return;
  const size_t index = below(cursors.size());
  const std::string data = anyData();
  EXPECT_EQ(inst_->ReplaceDup(inst_, cursors[index], data.data()), MORVA_OK);
  held_[key][index] = {data, 1.0};
}

void ThreadWork::removeOne(const std::string &key) {
  std::vector<void *> cursors;
  if (!shape_.multi() || !findAll(key, &cursors) || cursors.empty()) return;
  const size_t index = below(cursors.size());
  EXPECT_EQ(inst_->RemoveDup(inst_, &cursors[index], key.data(), lengthOf(key)), MORVA_OK);
  EXPECT_EQ(cursors[index], nullptr);
  std::vector<Held> &records = held_[key];
  records.erase(records.begin() + static_cast<std::ptrdiff_t>(index));
}

void ThreadWork::readSums(const std::string &key) {
  double sum = -1.0;
  if (!shape_.sums()) {
    EXPECT_EQ(inst_->Sum(inst_, key.data(), lengthOf(key), &sum), MORVA_NO_SUM);
    return;
  }
  std::vector<void *> cursors;
  if (!findAll(key, &cursors)) return;
  std::vector<Held> &records = held_[key];
  EXPECT_EQ(inst_->Sum(inst_, key.data(), lengthOf(key), &sum), MORVA_OK);
  EXPECT_EQ(sum, records.empty() ? 0.0 : records.front().sum);
  for (size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(inst_->SumKey(inst_, cursors[i], &sum, 0), MORVA_OK);
    EXPECT_EQ(sum, records[i].sum);
    std::memcpy(records[i].data.data(), &sum, sizeof sum);
    if (!shape_.multi()) continue;
    EXPECT_EQ(inst_->SumDup(inst_, cursors[i], &sum), MORVA_OK);
    EXPECT_EQ(sum, records[i].sum);
  }
}

std::string ThreadWork::anyData() {
  std::string data(shape_.dataLength, '\0');
  for (char &c : data) c = static_cast<char>(random_());
  return data;
}

}  // namespace morva_test
