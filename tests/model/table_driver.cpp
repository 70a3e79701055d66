#include "table_driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "instance_checker.h"
#include "tree_walk.h"

namespace morva_test {
namespace {

constexpr size_t kHistory = 12;

}  // namespace

const TableDriver::Operation TableDriver::kOperations[] = {
    {260, "add", &TableDriver::add},
    {70, "replace", &TableDriver::replace},
    {90, "find", &TableDriver::find},
    {40, "find2", &TableDriver::find2},
    {40, "findNode", &TableDriver::findNode},
    {25, "hashVal", &TableDriver::hashVal},
    {150, "remove", &TableDriver::remove},
    {30, "walk", &TableDriver::walk},
    {50, "neighbours", &TableDriver::neighbours},
    {40, "replaceDup", &TableDriver::replaceDup},
    {80, "removeDup", &TableDriver::removeDup},
    {25, "sum", &TableDriver::sum},
    {25, "sumDup", &TableDriver::sumDup},
    {20, "sumKey", &TableDriver::sumKey},
    {20, "setIncrement", &TableDriver::setIncrement},
    {20, "poke", &TableDriver::poke},
    {15, "refusals", &TableDriver::refusals},
    {8, "tooLong", &TableDriver::tooLong},
    {10, "pin", &TableDriver::pin},
    {5, "clear", &TableDriver::clear},
};

TableDriver::TableDriver(HostUnderTest &host, const TableShape &shape, uint64_t seed,
                         size_t keyCount)
    : TableDriver(host, shape, std::make_shared<std::mt19937_64>(seed), keyCount) {}

TableDriver::TableDriver(HostUnderTest &host, const TableShape &shape,
                         const std::shared_ptr<std::mt19937_64> &random, size_t keyCount)
    : TableDriver(host, shape, makeKeys(shape, keyCount, *random),
                  [random](uint64_t n) { return (*random)() % n; }) {}

TableDriver::TableDriver(HostUnderTest &host, const TableShape &shape,
                         std::vector<std::string> keys, Choices choices)
    : host_(host),
      shape_(shape),
      choices_(std::move(choices)),
      model_(shape),
      keys_(std::move(keys)),
      inst_(makeInstance(host.ext(), shape)) {
  if (inst_ == nullptr) return;
  for (const std::string &key : keys_) {
    uint32_t bucket = UINT32_MAX;
    EXPECT_EQ(MORVAHashVal(inst_, key.data(), lengthOf(key), &bucket), MORVA_OK);
    EXPECT_LT(bucket, uint32_t{1} << shape_.hashExp);
    bucketOf_[key] = bucket;
    model_.probe(key);
  }
}

TableDriver::~TableDriver() {
  if (inst_ == nullptr) return;
  EXPECT_EQ(inst_->Destroy(inst_), MORVA_OK);
}

void TableDriver::step() {
  // The table fills for a while, then empties for a while.
  const uint64_t phase = std::max<uint64_t>(500, 5 * keys_.size());
  const bool filling = steps_ / phase % 2 == 0;
  static const uint64_t total = [] {
    uint64_t sum = 0;
    for (const Operation &operation : kOperations) sum += static_cast<uint64_t>(operation.weight);
    return sum;
  }();
  const Operation *operation = nullptr;
  do {
    uint64_t at = below(total);
    operation = kOperations;
    while (at >= static_cast<uint64_t>(operation->weight)) {
      at -= static_cast<uint64_t>(operation->weight);
      ++operation;
    }
  } while (
      (filling ? operation->run == &TableDriver::remove || operation->run == &TableDriver::removeDup
               : operation->run == &TableDriver::add) &&
      !oneIn(4));
  make(static_cast<size_t>(operation - kOperations));
}

size_t TableDriver::operationCount() {
  return std::size(kOperations);
}

void TableDriver::make(size_t number) {
  const Operation *operation = &kOperations[number];
  ++steps_;
  if (history_.size() == kHistory) history_.erase(history_.begin());
  history_.push_back(operation->name);
  (this->*operation->run)();
}

std::string TableDriver::check() {
  if (inst_ == nullptr) return "there is no instance";
  return checkInstance(inst_, model_, host_.order(inst_));
}

std::string TableDriver::history() const {
  std::string text = "step " + std::to_string(steps_) + ", last operations:";
  for (const char *name : history_) text += std::string(" ") + name;
  return text;
}

bool TableDriver::flipOneByte() {
  if (model_.keys().empty() || shape_.dataLength == 0) return false;
  char *data = dataAt(model_.keys().begin()->first, 0);
  data[shape_.dataLength - 1] = static_cast<char>(~data[shape_.dataLength - 1]);
  return true;
}

bool TableDriver::lengthenChain(bool ofFirstKey) {
  if (!shape_.multi() || model_.keys().size() < 2) return false;
  const auto &keys = model_.keys();
  const std::string &key = ofFirstKey ? keys.begin()->first : keys.rbegin()->first;
  const std::string data(shape_.dataLength, 'x');
  EXPECT_EQ(inst_->Add(inst_, data.data(), key.data(), lengthOf(key)), MORVA_OK);
  return true;
}

const std::string &TableDriver::anyKey() {
  const std::string &key = keys_[below(keys_.size())];
  if (oneIn(2)) return key;
  const std::string *present = presentKey();
  return present == nullptr ? key : *present;
}

const std::string *TableDriver::presentKey() {
  if (model_.keys().empty()) return nullptr;
  auto found = model_.keys().lower_bound(keys_[below(keys_.size())]);
  if (found == model_.keys().end()) found = model_.keys().begin();
  // The driver's own copy: the model's goes with its key.
  return &bucketOf_.find(found->first)->first;
}

std::string TableDriver::anyData() {
  std::string data(shape_.dataLength, '\0');
  for (char &c : data) c = static_cast<char>(below(256));
  return data;
}

int32_t TableDriver::lengthOf(const std::string &key) {
  // Defined keys have no length to tell; whatever is said must not matter.
  return shape_.rawKeys() ? static_cast<int32_t>(key.size())
                          : static_cast<int32_t>(below(UINT64_C(1) << 32));
}

char *TableDriver::dataAt(const std::string &key, size_t index) {
  return dataOf(model_.keys().at(key).chain[index].slot->node, shape_, key.size());
}

void TableDriver::learnNewRecord(const std::string &key) {
  const KeyState &state = model_.keys().at(key);
  RecordNode *node = searchTree(MORVABucketAt(inst_->buckets, state.bucket)->root, key, shape_);
  ASSERT_NE(node, nullptr) << "the key is not in its bucket";
  if (state.chain.size() > 1) node = lastOfChain(node, shape_);
  ASSERT_TRUE(seenAt(state.chain.back().slot, node))
      << "the record is at " << node << " instead of " << state.chain.back().slot->node;
}

}  // namespace morva_test
