#pragma once

#include <Judy.h>

#include <new>

#include "bytes.h"

namespace bench {

// JudyL for numbers, JudyHS for texts: arrays whose every key has a word.
template <class Key>
class JudyMap {
 public:
  explicit JudyMap(size_t) {}
  ~JudyMap() {
    if constexpr (isText<Key>) {
      JudyHSFreeArray(&array_, nullptr);
    } else {
      JudyLFreeArray(&array_, nullptr);
    }
  }
  JudyMap(const JudyMap &) = delete;
  JudyMap &operator=(const JudyMap &) = delete;

  // Would overwrite what is there; no workload inserts a key twice.
  bool insert(Key key, uint64_t word) {
    *slot(key) = word;
    ++size_;
    return true;
  }
  void replace(Key key, uint64_t word) { *slot(key) = word; }

  bool lookup(Key key, uint64_t &word) const {
    void *found = nullptr;
    if constexpr (isText<Key>) {
      found = JudyHSGet(array_, const_cast<char *>(key.data()), key.size());
    } else {
      found = JudyLGet(array_, key, nullptr);
    }
    if (found != nullptr) word = *static_cast<Word_t *>(found);
    return found != nullptr;
  }

  bool remove(Key key) {
    int removed = 0;
    if constexpr (isText<Key>) {
      removed = JudyHSDel(&array_, const_cast<char *>(key.data()), key.size(), nullptr);
    } else {
      removed = JudyLDel(&array_, key, nullptr);
    }
    if (removed != 0) --size_;
    return removed != 0;
  }
  // JudyHS does not count.
  size_t size() const { return size_; }

  void accumulate(Key key, uint64_t word) { *slot(key) += word; }

 private:
  // The word of the key, made 0 when there was none.
  Word_t *slot(Key key) {
    void *at = nullptr;
    if constexpr (isText<Key>) {
      at = JudyHSIns(&array_, const_cast<char *>(key.data()), key.size(), nullptr);
    } else {
      at = JudyLIns(&array_, key, nullptr);
    }
    if (at == nullptr || at == PJERR) throw std::bad_alloc();
    return static_cast<Word_t *>(at);
  }

  void *array_ = nullptr;
  size_t size_ = 0;
};

struct Judy {
  static constexpr char name[] = "Judy";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kPoints | kGroups | kLatency;

  template <class Key>
  using Map = JudyMap<Key>;
};

using Contenders = ContenderList<Judy>;

}  // namespace bench
