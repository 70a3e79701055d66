#pragma once

#include <uthash.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "bytes.h"

namespace bench {

// The key's bytes lie behind the record, which is a block of malloc's.
template <class Key>
class UthashMap {
 public:
  explicit UthashMap(size_t) {}
  ~UthashMap() {
    Record *record = nullptr;
    Record *next = nullptr;
    HASH_ITER(hh, all_, record, next) {
      HASH_DEL(all_, record);
      std::free(record);
    }
  }
  UthashMap(const UthashMap &) = delete;
  UthashMap &operator=(const UthashMap &) = delete;

  bool insert(Key key, uint64_t word) {
    if (find(key) != nullptr) return false;
    add(key, word);
    return true;
  }
  void replace(Key key, uint64_t word) {
    if (Record *record = find(key)) {
      record->word = word;
    } else {
      add(key, word);
    }
  }
  bool lookup(Key key, uint64_t &word) const {
    const Record *record = find(key);
    if (record != nullptr) word = record->word;
    return record != nullptr;
  }
  bool remove(Key key) {
    Record *record = find(key);
    if (record == nullptr) return false;
    HASH_DEL(all_, record);
    std::free(record);
    return true;
  }
  size_t size() const { return HASH_COUNT(all_); }

  void accumulate(Key key, uint64_t word) {
    if (Record *record = find(key)) {
      record->word += word;
    } else {
      add(key, word);
    }
  }

 private:
  struct Record {
    UT_hash_handle hh;
    uint64_t word;
  };

  Record *find(const Key &key) const {
    Record *record = nullptr;
    HASH_FIND(hh, all_, bytesOf(key), static_cast<unsigned>(lengthOf(key)), record);
    return record;
  }

  void add(const Key &key, uint64_t word) {
    const size_t length = lengthOf(key);
    auto *record = static_cast<Record *>(std::malloc(sizeof(Record) + length));
    if (record == nullptr) throw std::bad_alloc();
    void *bytes = record + 1;
    std::memcpy(bytes, bytesOf(key), length);
    record->word = word;
    HASH_ADD_KEYPTR(hh, all_, bytes, static_cast<unsigned>(length), record);
  }

  Record *all_ = nullptr;
};

// Its hash function is chosen for a whole program, so it is not among those with all keys
// in one bucket.
struct Uthash {
  static constexpr char name[] = "uthash";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kPoints | kGroups | kLatency;

  template <class Key>
  using Map = UthashMap<Key>;
};

using Contenders = ContenderList<Uthash>;

}  // namespace bench
