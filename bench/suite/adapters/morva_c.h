// Morva through its C interface: the operations of an instance.
#pragma once

#include "morva_instance.h"

namespace bench {

template <class Key, uint32_t Flags>
class MorvaMap {
 public:
  explicit MorvaMap(size_t told) : inst_(makeInstance<Key>(Flags, told)) {}

  bool insert(Key key, uint64_t word) { return add(key, word) == MORVA_OK; }
  void replace(Key key, uint64_t word) {
    expectDone(inst_->Replace(inst_.get(), &word, bytesOf(key), keyLength(key)));
  }
  bool lookup(Key key, uint64_t &word) const {
    const uint64_t *found = find(key);
    if (found != nullptr) word = *found;
    return found != nullptr;
  }
  bool remove(Key key) {
    return inst_->Remove(inst_.get(), bytesOf(key), keyLength(key)) == MORVA_OK;
  }
  size_t size() const { return inst_->NumElements(inst_.get()); }

  void accumulate(Key key, uint64_t word) {
    if (uint64_t *found = find(key)) {
      *found += word;
    } else {
      expectDone(add(key, word));
    }
  }

 private:
  MORVAStatus add(const Key &key, uint64_t word) {
    return inst_->Add(inst_.get(), &word, bytesOf(key), keyLength(key));
  }
  uint64_t *find(const Key &key) const {
    void *data = nullptr;
    inst_->Find(inst_.get(), bytesOf(key), keyLength(key), &data);
    return static_cast<uint64_t *>(data);
  }

  Instance inst_;
};

// One bucket.
template <class Key, uint32_t Flags>
class MorvaOneBucket : public MorvaMap<Key, Flags> {
 public:
  explicit MorvaOneBucket(size_t) : MorvaMap<Key, Flags>(1) {}
};

// Groups by the running sum of each record: the increment is the row's amount.
template <class Key>
class MorvaSums {
 public:
  explicit MorvaSums(size_t told)
      : inst_(makeInstance<Key>(flagFixedKey | flagSum | flagNoLock, told)) {}

  void accumulate(Key key, uint64_t amount) {
    inst_->SetSumInc(inst_.get(), static_cast<double>(amount));
    void *data = nullptr;
    expectDone(inst_->Find(inst_.get(), bytesOf(key), keyLength(key), &data));
    if (data != nullptr) return;
    const uint64_t word = 0;
    expectDone(inst_->Add(inst_.get(), &word, bytesOf(key), keyLength(key)));
  }
  bool lookup(Key key, uint64_t &amount) const {
    double sum = 0;
    expectDone(inst_->Sum(inst_.get(), bytesOf(key), keyLength(key), &sum));
    amount = static_cast<uint64_t>(sum);
    return true;
  }

 private:
  Instance inst_;
};

// Several records per key, in order, the amount being the record's sum.
template <class Key>
class MorvaRecords {
 public:
  static constexpr bool keepsOrder = true;

  explicit MorvaRecords(size_t told)
      : inst_(makeInstance<Key>(flagFixedKey | flagMultiData | flagOrdered | flagSum | flagNoLock,
                                told)) {}

  void add(Key key, uint64_t word, double amount) {
    inst_->SetSumInc(inst_.get(), amount);
    expectDone(inst_->Add(inst_.get(), &word, bytesOf(key), keyLength(key)));
    inst_->SetSumInc(inst_.get(), 0);
  }

  template <class Use>
  void forEach(Key key, Use use) {
    for (void *at = find(key); at != nullptr; at = next(at)) use(*static_cast<uint64_t *>(at));
  }

  double sum(Key key) {
    double total = 0;
    for (void *at = find(key); at != nullptr; at = next(at)) {
      double sum = 0;
      inst_->SumDup(inst_.get(), at, &sum);
      total += sum;
    }
    return total;
  }

  void removeFirst(Key key) {
    void *at = find(key);
    if (at == nullptr) return;
    expectDone(inst_->RemoveDup(inst_.get(), &at, bytesOf(key), keyLength(key)));
  }

  size_t removeAll(Key key) {
    const size_t before = inst_->NumElements(inst_.get());
    inst_->Remove(inst_.get(), bytesOf(key), keyLength(key));
    return before - inst_->NumElements(inst_.get());
  }

  template <class Use>
  void forAll(Use use) {
    for (OrderNode *at = QZOrderFirst(inst_.get()); at != nullptr; at = QZOrderNext(at)) {
      auto *node = static_cast<RecordNode *>(at->record);
      auto *base = static_cast<char *>(MORVARecordBase(node));
      void *links = base + inst_->Recoff(inst_.get(), node);
      for (auto *link = static_cast<DupLinks *>(links); link != nullptr; link = link->next)
        use(*reinterpret_cast<uint64_t *>(link + 1));
    }
  }

 private:
  void *find(const Key &key) {
    void *data = nullptr;
    inst_->Find(inst_.get(), bytesOf(key), keyLength(key), &data);
    return data;
  }
  void *next(void *at) {
    void *data = nullptr;
    inst_->FindNext(inst_.get(), at, &data);
    return data;
  }

  Instance inst_;
};

// ---- the contenders -------------------------------------------------------------

template <uint32_t Flags>
struct MorvaC {
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kMapFamilies;

  template <class Key>
  using Map = MorvaMap<Key, Flags>;
  template <class Key>
  using Colliding = MorvaOneBucket<Key, Flags>;
};

struct MorvaCFixed : MorvaC<flagFixedKey | flagNoLock> {
  static constexpr char name[] = "morva C fixed";
  static constexpr unsigned does = kMapFamilies | kRecords;

  template <class Key>
  using Records = MorvaRecords<Key>;
};

struct MorvaCLocked : MorvaC<flagFixedKey> {
  static constexpr char name[] = "morva C fixed, locked";
  static constexpr unsigned does = kMapFamilies | kThreads;

  template <class Key>
  using Shared = Map<Key>;
};

struct MorvaCOrdered : MorvaC<flagFixedKey | flagOrdered | flagNoLock> {
  static constexpr char name[] = "morva C fixed, ordered";
};

struct MorvaCVariable : MorvaC<flagVarKey | flagNoLock> {
  static constexpr char name[] = "morva C variable";
};

struct MorvaCTyped : MorvaC<flagNoLock> {
  static constexpr char name[] = "morva C typed";
};

struct MorvaCSums {
  static constexpr char name[] = "morva C sums";
  template <class Key>
  static constexpr bool takes = isNumberOrText<Key>;
  static constexpr unsigned does = kGroups;

  template <class Key>
  using Map = MorvaSums<Key>;
};

using Contenders = ContenderList<MorvaCFixed, MorvaCLocked, MorvaCOrdered, MorvaCVariable,
                                 MorvaCTyped, MorvaCSums>;

}  // namespace bench
