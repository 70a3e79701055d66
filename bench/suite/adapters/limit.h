// What no table can be faster than: an array whose place is known. One access
// for a record, or two of which the second waits for the first, as in a table
// of buckets that lead to records. 64 bytes a record, on huge pages.
#pragma once

#include <sys/mman.h>

#include <cstring>
#include <new>

#include "../contender.h"

namespace bench {

// Zeroed memory on huge pages; with `touched` they are all there from the beginning.
template <class Element>
class HugeArray {
 public:
  HugeArray(size_t count, bool touched) : bytes_(count * sizeof(Element)) {
    void *at = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (at == MAP_FAILED) throw std::bad_alloc();
    madvise(at, bytes_, MADV_HUGEPAGE);
    if (touched) std::memset(at, 0, bytes_);
    elements_ = static_cast<Element *>(at);
  }
  ~HugeArray() { munmap(elements_, bytes_); }
  HugeArray(const HugeArray &) = delete;
  HugeArray &operator=(const HugeArray &) = delete;

  Element &operator[](size_t place) { return elements_[place]; }
  const Element &operator[](size_t place) const { return elements_[place]; }

 private:
  size_t bytes_;
  Element *elements_ = nullptr;
};

struct alignas(64) Line {
  uint64_t word;
  bool used;
};

// A record's place is its index.
class Direct {
 public:
  Direct(size_t count, bool touched) : lines_(count, touched) {}
  Line &make(uint64_t index) { return lines_[index]; }
  const Line *find(uint64_t index) const { return &lines_[index]; }

 private:
  HugeArray<Line> lines_;
};

// The place named by the index names that of the record. Records lie in the order they came.
class Indirect {
 public:
  Indirect(size_t count, bool touched) : buckets_(count, touched), lines_(count, touched) {}

  Line &make(uint64_t index) {
    Bucket &bucket = buckets_[index];
    if (bucket.line == nullptr) bucket.line = &lines_[made_++];
    return *bucket.line;
  }
  const Line *find(uint64_t index) const { return buckets_[index].line; }

 private:
  struct alignas(16) Bucket {
    Line *line;
  };
  HugeArray<Bucket> buckets_;
  HugeArray<Line> lines_;
  size_t made_ = 0;
};

template <class Places>
class LimitMap {
 public:
  // The absent keys of the workloads are as many as the present ones.
  explicit LimitMap(size_t told) : places_(2 * (told != 0 ? told : kUntold), told != 0) {}

  bool insert(Index key, uint64_t word) {
    Line &line = places_.make(static_cast<uint64_t>(key));
    if (line.used) return false;
    line = {word, true};
    ++size_;
    return true;
  }
  void replace(Index key, uint64_t word) { places_.make(static_cast<uint64_t>(key)).word = word; }
  bool lookup(Index key, uint64_t &word) const {
    const Line *line = places_.find(static_cast<uint64_t>(key));
    if (line == nullptr || !line->used) return false;
    word = line->word;
    return true;
  }
  bool remove(Index key) {
    Line &line = places_.make(static_cast<uint64_t>(key));
    if (!line.used) return false;
    line.used = false;
    --size_;
    return true;
  }
  size_t size() const { return size_; }

  void accumulate(Index key, uint64_t word) {
    Line &line = places_.make(static_cast<uint64_t>(key));
    line.used = true;
    line.word += word;
  }

 private:
  static constexpr size_t kUntold = 10'000'000;

  Places places_;
  size_t size_ = 0;
};

template <class Places>
struct Limit {
  template <class Key>
  static constexpr bool takes = std::is_same_v<Key, Index>;
  static constexpr unsigned does = kPoints | kGroups | kLatency;

  template <class>
  using Map = LimitMap<Places>;
};

struct OneAccess : Limit<Direct> {
  static constexpr char name[] = "limit: one access";
};

struct TwoAccesses : Limit<Indirect> {
  static constexpr char name[] = "limit: two accesses";
};

using Contenders = ContenderList<OneAccess, TwoAccesses>;

}  // namespace bench
