#include "table_model.h"

namespace morva_test {

TableModel::TableModel(const TableShape &shape)
    : shape_(shape),
      slots_(shape),
      bucketCounts_(size_t{1} << shape.hashExp),
      treeSizes_(size_t{1} << shape.hashExp) {}

KeyState *TableModel::find(const std::string &key) {
  auto found = keys_.find(key);
  return found == keys_.end() ? nullptr : &found->second;
}

MORVAStatus TableModel::store(const std::string &key, uint32_t bucket, const std::string &data,
                              bool replace) {
  Slot *fresh = slots_.take(key.size());
  // An empty tree counts its bucket as used once more, whatever the counts say.
  if (treeSizes_[bucket] == 0) ++usedBuckets_;

  auto [entry, isNew] = keys_.try_emplace(key);
  KeyState &state = entry->second;
  if (isNew) {
    state.bucket = bucket;
    ++treeSizes_[bucket];
    if (shape_.ordered()) {
      orderSlots_.take();
      state.place = order_.insert(order_.end(), key);
    }
  } else if (replace) {
    slots_.give(fresh);
    for (Record &record : state.chain) record.data = data;
    state.chain.front().sum = increment;
    return MORVA_OK;
  } else if (!shape_.multi()) {
    slots_.give(fresh);
    return MORVA_PRESENT;
  }
  state.chain.push_back({fresh, data, increment});
  ++elementCount_;
  ++bucketCounts_[bucket];
  return MORVA_OK;
}

void TableModel::probe(const std::string &key) {
  slots_.give(slots_.take(key.size()));
}

void TableModel::probeTooLong(bool givenBack) {
  Slot *slot = slots_.take(0);
  if (givenBack) {
    slots_.give(slot);
  } else {
    slots_.lose();
  }
}

void TableModel::count(Record &record) {
  if (shape_.sums()) record.sum += increment;
}

void TableModel::overwrite(Record &record, const std::string &data) {
  record.data = data;
  record.sum = increment;
}

void TableModel::forgetKey(Keys::iterator key) {
  if (shape_.ordered()) {
    order_.erase(key->second.place);
    orderSlots_.give();
  }
  --treeSizes_[key->second.bucket];
  keys_.erase(key);
}

MORVAStatus TableModel::remove(const std::string &key, bool pinned) {
  Slot *scratch = slots_.take(key.size());
  auto found = keys_.find(key);
  if (found == keys_.end() || pinned) {
    slots_.give(scratch);
    return found == keys_.end() ? MORVA_INVALID : MORVA_PINNED;
  }
  const KeyState &state = found->second;
  const uint32_t bucket = state.bucket;
  for (size_t i = 1; i < state.chain.size(); ++i) slots_.give(state.chain[i].slot);
  slots_.give(scratch);
  slots_.give(state.chain.front().slot);
  elementCount_ -= static_cast<uint32_t>(state.chain.size());
  // However many records went, the bucket counts one less.
  if (--bucketCounts_[bucket] == 0) --usedBuckets_;
  forgetKey(found);
  return MORVA_OK;
}

MORVAStatus TableModel::removeAt(const std::string &key, size_t index, bool pinned) {
  if (pinned) return MORVA_PINNED;
  probe(key);
  std::vector<Record> &chain = keys_.at(key).chain;
  if (chain.size() == 1) return remove(key, false);
  if (index == 0) {
    // The second record moves into the first one's slot.
    slots_.give(chain[1].slot);
    chain[0].data = chain[1].data;
    chain[0].sum = chain[1].sum;
    index = 1;
  } else {
    slots_.give(chain[index].slot);
  }
  chain.erase(chain.begin() + static_cast<std::ptrdiff_t>(index));
  --elementCount_;
  return MORVA_OK;
}

MORVAStatus TableModel::clear(bool keepMemory, const std::string *pinned) {
  // The buckets are walked, and their counts reset, only when there is something in them.
  if (elementCount_ > 0) {
    for (uint32_t bucket = 0; keepMemory && bucket < bucketCounts_.size(); ++bucket) {
      if (treeSizes_[bucket] == 0) continue;
      for (auto &[key, state] : keys_) {
        if (state.bucket != bucket) continue;
        if (pinned != nullptr && *pinned == key) {
          for (size_t i = 0; i < state.chain.size(); ++i) slots_.lose();
          continue;
        }
        for (size_t i = 1; i < state.chain.size(); ++i) slots_.give(state.chain[i].slot);
        if (shape_.ordered()) orderSlots_.give();
        slots_.give(state.chain.front().slot);
      }
    }
    bucketCounts_.assign(bucketCounts_.size(), 0);
    treeSizes_.assign(treeSizes_.size(), 0);
  }
  keys_.clear();
  order_.clear();
  elementCount_ = usedBuckets_ = 0;
  if (!keepMemory) {
    slots_.reset();
    orderSlots_.reset();
  }
  return pinned != nullptr ? MORVA_PINNED : MORVA_OK;
}

}  // namespace morva_test
