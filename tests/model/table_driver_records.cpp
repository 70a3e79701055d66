// The operations on a record that is in hand: duplicates, sums, data in place.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <limits>

#include "instance_checker.h"
#include "table_driver.h"

namespace morva_test {
namespace {

void *const kUntouched = reinterpret_cast<void *>(uintptr_t{0x5EED});

}  // namespace

// From the first record of a key to the last and back again.
void TableDriver::walk() {
  const std::string *key = presentKey();
  if (key == nullptr || !shape_.multi()) return;
  std::vector<Record> &chain = model_.find(*key)->chain;
  model_.probe(*key);
  model_.count(chain.front());
  void *cursor = kUntouched;
  EXPECT_EQ(inst_->Find(inst_, key->data(), lengthOf(*key), &cursor), MORVA_OK);
  ASSERT_EQ(cursor, dataAt(*key, 0));
  for (size_t i = 1; i <= chain.size(); ++i) {
    EXPECT_EQ(inst_->HasNext(inst_, cursor), i < chain.size() ? 1u : 0u);
    void *next = kUntouched;
    EXPECT_EQ(inst_->FindNext(inst_, cursor, &next), MORVA_OK);
    if (i == chain.size()) {
      EXPECT_EQ(next, nullptr);
      break;
    }
    ASSERT_EQ(next, dataAt(*key, i));
    model_.count(chain[i]);
    cursor = next;
  }
  for (size_t i = chain.size(); i-- > 0;) {
    EXPECT_EQ(inst_->HasPrev(inst_, cursor), i > 0 ? 1u : 0u);
    void *previous = kUntouched;
    EXPECT_EQ(inst_->FindPrev(inst_, cursor, &previous), MORVA_OK);
    if (i == 0) {
      EXPECT_EQ(previous, nullptr);
      break;
    }
    ASSERT_EQ(previous, dataAt(*key, i - 1));
    model_.count(chain[i - 1]);
    cursor = previous;
  }
}

void TableDriver::neighbours() {
  const std::string *key = presentKey();
  if (key == nullptr) return;
  const size_t index = below(model_.find(*key)->chain.size());
  neighbour(*key, index, oneIn(2));
}

void TableDriver::neighbour(const std::string &key, size_t index, bool forward) {
  std::vector<Record> &chain = model_.find(key)->chain;
  void *data = dataAt(key, index);
  auto has = forward ? inst_->HasNext : inst_->HasPrev;
  auto go = forward ? inst_->FindNext : inst_->FindPrev;
  void *place = kUntouched;
  if (!shape_.multi()) {
    EXPECT_EQ(has(inst_, data), 0u);
    EXPECT_EQ(go(inst_, data, &place), MORVA_INVALID);
    EXPECT_EQ(place, kUntouched);
    return;
  }
  const bool exists = forward ? index + 1 < chain.size() : index > 0;
  const size_t there = forward ? index + 1 : index - 1;
  EXPECT_EQ(has(inst_, data), exists ? 1u : 0u);
  EXPECT_EQ(has(inst_, nullptr), 0u);
  EXPECT_EQ(go(inst_, nullptr, &place), MORVA_OK);
  EXPECT_EQ(place, nullptr);
  if (exists) model_.count(chain[there]);
  if (oneIn(8)) {
    EXPECT_EQ(go(inst_, data, nullptr), MORVA_OK);
    return;
  }
  place = kUntouched;
  EXPECT_EQ(go(inst_, data, &place), MORVA_OK);
  EXPECT_EQ(place, exists ? dataAt(key, there) : nullptr);
}

void TableDriver::replaceDup() {
  const std::string *key = presentKey();
  const std::string data = anyData();
  if (key == nullptr || oneIn(10)) {
    EXPECT_EQ(inst_->ReplaceDup(inst_, nullptr, data.data()), MORVA_NO_CURSOR);
    return;
  }
  std::vector<Record> &chain = model_.find(*key)->chain;
  const size_t index = below(chain.size());
  if (shape_.dataLength > 0 && oneIn(10)) {
    EXPECT_EQ(inst_->ReplaceDup(inst_, dataAt(*key, index), nullptr), MORVA_INVALID);
    return;
  }
  model_.overwrite(chain[index], data);
  EXPECT_EQ(inst_->ReplaceDup(inst_, dataAt(*key, index), data.data()), MORVA_OK);
}

void TableDriver::removeDup() {
  const std::string *key = presentKey();
  if (key == nullptr) return;
  void *cursor = nullptr;
  if (shape_.multi() && oneIn(10)) {
    EXPECT_EQ(inst_->RemoveDup(inst_, &cursor, key->data(), lengthOf(*key)), MORVA_NO_CURSOR);
    return;
  }
  const size_t index = below(model_.find(*key)->chain.size());
  cursor = dataAt(*key, index);
  if (!shape_.multi()) {
    EXPECT_EQ(inst_->RemoveDup(inst_, &cursor, key->data(), lengthOf(*key)), MORVA_INVALID);
    EXPECT_EQ(cursor, dataAt(*key, index));
    return;
  }
  EXPECT_EQ(inst_->RemoveDup(inst_, &cursor, key->data(), lengthOf(*key)), MORVA_OK);
  EXPECT_EQ(cursor, nullptr);
  EXPECT_EQ(model_.removeAt(*key, index, false), MORVA_OK);
}

void TableDriver::sum() {
  const std::string &key = anyKey();
  double sum = -77.0;
  if (!shape_.sums()) {
    EXPECT_EQ(inst_->Sum(inst_, key.data(), lengthOf(key), &sum), MORVA_NO_SUM);
    EXPECT_EQ(sum, -77.0);
    return;
  }
  model_.probe(key);
  const KeyState *state = model_.find(key);
  if (oneIn(8)) {
    EXPECT_EQ(inst_->Sum(inst_, key.data(), lengthOf(key), nullptr), MORVA_OK);
    return;
  }
  EXPECT_EQ(inst_->Sum(inst_, key.data(), lengthOf(key), &sum), MORVA_OK);
  EXPECT_EQ(sum, state == nullptr ? 0.0 : state->chain.front().sum);
}

void TableDriver::sumDup() {
  const std::string *key = presentKey();
  if (key == nullptr) return;
  const std::vector<Record> &chain = model_.find(*key)->chain;
  const size_t index = below(chain.size());
  double sum = -77.0;
  const MORVAStatus status = inst_->SumDup(inst_, dataAt(*key, index), &sum);
  if (!shape_.multi() || !shape_.sums()) {
    EXPECT_EQ(status, shape_.multi() ? MORVA_NO_SUM : MORVA_INVALID);
    EXPECT_EQ(sum, -77.0);
    return;
  }
  EXPECT_EQ(status, MORVA_OK);
  EXPECT_EQ(sum, chain[index].sum);
  EXPECT_EQ(inst_->SumDup(inst_, nullptr, &sum), MORVA_OK);
  EXPECT_EQ(sum, 0.0);
  EXPECT_EQ(inst_->SumDup(inst_, dataAt(*key, index), nullptr), MORVA_OK);
}

void TableDriver::sumKey() {
  const std::string *key = presentKey();
  if (key == nullptr) return;
  std::vector<Record> &chain = model_.find(*key)->chain;
  const size_t index = below(chain.size());
  double sum = -77.0;
  if (!shape_.sums()) {
    EXPECT_EQ(inst_->SumKey(inst_, dataAt(*key, index), &sum, 0), MORVA_NO_SUM);
    EXPECT_EQ(sum, -77.0);
    return;
  }
  EXPECT_EQ(inst_->SumKey(inst_, dataAt(*key, index), nullptr, 0), MORVA_OK);
  EXPECT_EQ(inst_->SumKey(inst_, nullptr, &sum, 0), MORVA_OK);
  EXPECT_EQ(sum, 0.0);
  if (shape_.dataLength < sizeof sum) return;
  const uint64_t offset = below(shape_.dataLength - sizeof sum + 1);
  EXPECT_EQ(inst_->SumKey(inst_, dataAt(*key, index), &sum, static_cast<int32_t>(offset)),
            MORVA_OK);
  EXPECT_EQ(sum, chain[index].sum);
  std::memcpy(chain[index].data.data() + offset, &chain[index].sum, sizeof sum);
}

void TableDriver::setIncrement() {
  // All of them exact in binary, so that the order of additions does not matter.
  static constexpr double kIncrements[] = {0.0, 1.0, 2.5, -0.5, 1024.0};
  if (oneIn(6)) {
    inst_->SetSumInc(inst_, std::numeric_limits<double>::quiet_NaN());
    return;
  }
  const double increment = kIncrements[below(std::size(kIncrements))];
  inst_->SetSumInc(inst_, increment);
  if (shape_.sums()) model_.increment = increment;
}

// The host writes into the record through its data pointer.
void TableDriver::poke() {
  const std::string *key = presentKey();
  if (key == nullptr || shape_.dataLength == 0) return;
  std::vector<Record> &chain = model_.find(*key)->chain;
  const size_t index = below(chain.size());
  const size_t at = below(shape_.dataLength);
  const char value = static_cast<char>(below(256));
  dataAt(*key, index)[at] = value;
  chain[index].data[at] = value;
}

}  // namespace morva_test
