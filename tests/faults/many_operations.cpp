#include "many_operations.h"

#include <ostream>

namespace fault_test {
namespace {

struct Keys {
  explicit Keys(World &w) {
    for (size_t i = 0; i < kManyCount; ++i) {
      keys[i] = {w.key(kManyKeys[i]), w.length(kManyKeys[i]), 0};
    }
  }
  QZKey keys[kManyCount];
};

constexpr uint64_t kData[kManyCount] = {1, 2, 3, 4, 5, 6, 7, 8};
constexpr double kAmounts[kManyCount] = {1, 2, 4, 8, 16, 32, 64, 128};

template <class Operate>
void forEach(World &w, ManyAnswers &answers, Operate operate) {
  const Keys keys(w);
  for (size_t i = 0; i < kManyCount; ++i) {
    answers.statuses[i] = operate(i, keys.keys[i]);
    answers.done += answers.statuses[i] == MORVA_OK;
  }
}

uint64_t wordAt(const void *data) {
  uint64_t word = 0;
  if (data != nullptr) std::memcpy(&word, data, sizeof word);
  return word;
}

void findTogether(World &w, ManyAnswers &answers) {
  const Keys keys(w);
  void *data[kManyCount];
  answers.done = QZFindMany(w.inst, keys.keys, kManyCount, data, answers.statuses);
  for (size_t i = 0; i < kManyCount; ++i) answers.data[i] = wordAt(data[i]);
}
void findOneByOne(World &w, ManyAnswers &answers) {
  forEach(w, answers, [&](size_t i, const QZKey &key) {
    void *data = nullptr;
    const MORVAStatus status = w.inst->Find(w.inst, key.bytes, key.length, &data);
    answers.data[i] = wordAt(data);
    return status;
  });
}

void addTogether(World &w, ManyAnswers &answers) {
  const Keys keys(w);
  answers.done = QZAddMany(w.inst, keys.keys, kManyCount, kData, sizeof *kData, answers.statuses);
}
void addOneByOne(World &w, ManyAnswers &answers) {
  forEach(w, answers, [&](size_t i, const QZKey &key) {
    return w.inst->Add(w.inst, &kData[i], key.bytes, key.length);
  });
}

void removeTogether(World &w, ManyAnswers &answers) {
  const Keys keys(w);
  answers.done = QZRemoveMany(w.inst, keys.keys, kManyCount, answers.statuses);
}
void removeOneByOne(World &w, ManyAnswers &answers) {
  forEach(w, answers,
          [&](size_t, const QZKey &key) { return w.inst->Remove(w.inst, key.bytes, key.length); });
}

void addToSumTogether(World &w, ManyAnswers &answers) {
  const Keys keys(w);
  answers.done = QZAddToSumMany(w.inst, keys.keys, kManyCount, kAmounts, answers.statuses);
}
void addToSumOneByOne(World &w, ManyAnswers &answers) {
  forEach(w, answers, [&](size_t i, const QZKey &key) {
    if (!w.has(flagSum)) return MORVA_NO_SUM;
    void *data = nullptr;
    const MORVAStatus status = w.inst->Find(w.inst, key.bytes, key.length, &data);
    if (status != MORVA_OK) return status;
    if (data == nullptr) return MORVA_INVALID;
    const size_t toBase = w.shape().dataInNode(0) - sizeof(RecordNode);
    *reinterpret_cast<double *>(static_cast<char *>(data) - toBase + w.inst->sumOffset) +=
        kAmounts[i];
    return MORVA_OK;
  });
}

}  // namespace

void PrintTo(const ManyOperation &operation, std::ostream *out) {
  *out << operation.name;
}

const std::vector<ManyOperation> &manyOperations() {
  static const std::vector<ManyOperation> kOperations = {
      {"QZFindMany", findTogether, findOneByOne},
      {"QZAddMany", addTogether, addOneByOne},
      {"QZRemoveMany", removeTogether, removeOneByOne},
      {"QZAddToSumMany", addToSumTogether, addToSumOneByOne}};
  return kOperations;
}

}  // namespace fault_test
