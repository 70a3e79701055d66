// Operations on many keys at a time, on instances of any host.
#include "morva/many.h"

#include <atomic>
#include <optional>

#include "morva/hash_methods.hpp"
#include "morva/lookahead.hpp"
#include "tree.h"

namespace qzhost {
namespace {

using morva::detail::lookahead;
using morva::detail::packed_order;
using morva::detail::prefixed_order;

constexpr size_t kLanes = 128;
constexpr uint32_t kLargestPacked = 256;
constexpr size_t kPackedLanes = 32;
// The packer may write some bytes behind the key.
constexpr size_t kPackedRoom = kLargestPacked + 8;

bool has(const MORVAInst &inst, uint32_t flags) {
  return (inst.flags & flags) != 0;
}

// Holds the instance's lock, if it has one.
class Hold {
 public:
  explicit Hold(const MORVAInst &inst) : lock_(has(inst, flagNoLock) ? nullptr : inst.lock) {
    if (lock_ != nullptr) lock_->acquire(lock_, MORVA_LOCK_CHANGE, 1);
  }
  ~Hold() {
    if (lock_ != nullptr) lock_->release(lock_);
  }
  Hold(const Hold &) = delete;
  Hold &operator=(const Hold &) = delete;

 private:
  HostLock *lock_;
};

// What was found ahead of an operation: nothing is known where the key was not
// looked for.
using Ahead = std::optional<RecordNode *>;

size_t dataOffsetOf(const MORVAInst &inst, size_t keyLength) {
  const size_t links = has(inst, flagMultiData) ? sizeof(DupLinks) : 0;
  const size_t offset =
      has(inst, flagVarKey) ? morva::detail::var_data_offset(keyLength) : inst.dataOffset;
  return offset + links;
}

Bucket *bucketOf(const MORVAInst &inst, const void *bytes, uint32_t length) {
  const auto *first = static_cast<const unsigned char *>(bytes);
  return MORVABucketAt(inst.buckets,
                       morva::hash_key(inst.hashMethod, first, length) & inst.buckets->mask);
}

// Raw keys: the image is the key. Keys that an operation may refuse are left to it.
class RawKeys {
 public:
  using Order = prefixed_order;
  static constexpr size_t kMost = kLanes;

  explicit RawKeys(const MORVAInst &inst)
      : inst_(inst), longest_(has(inst, flagFixedKey) ? inst.keyLength : kLongest) {
    // Records so large are for the operations to judge.
    if (uint64_t{inst.keyLength} + inst.dataLength > kLargestRecord) isLeftOut_ = true;
  }

  bool begin(lookahead<Order, kMost> &ahead, const QZKey &key) {
    if (isLeftOut_ || key.length < 0 || static_cast<uint32_t>(key.length) > longest_) return false;
    if (key.bytes == nullptr && key.length > 0) return false;
    const auto length = static_cast<uint32_t>(key.length);
    ahead.begin(bucketOf(inst_, key.bytes, length),
                Order(static_cast<const unsigned char *>(key.bytes), length),
                sizeof(RecordNode) + dataOffsetOf(inst_, length));
    return true;
  }

 private:
  static constexpr uint32_t kLongest = 1 << 20;
  static constexpr uint64_t kLargestRecord = 1 << 30;

  const MORVAInst &inst_;
  uint32_t longest_;
  bool isLeftOut_ = false;
};

// Keys that the record packer writes.
class PackedKeys {
 public:
  using Order = packed_order;
  static constexpr size_t kMost = kPackedLanes;

  explicit PackedKeys(const MORVAInst &inst) : inst_(inst) {}

  bool begin(lookahead<Order, kMost> &ahead, const QZKey &key) {
    unsigned char *image = rooms_[ahead.size()];
    inst_.recordPacker->pack(inst_.recordPacker, key.bytes, image, 1);
    ahead.begin(bucketOf(inst_, image, inst_.keyLength), Order(image, inst_.keyLength),
                sizeof(RecordNode) + dataOffsetOf(inst_, 0));
    return true;
  }

 private:
  const MORVAInst &inst_;
  alignas(8) unsigned char rooms_[kMost][kPackedRoom];
};

// Calls use(i, ahead) for all keys in turn.
template <class Keys, class Use>
void sideBySide(Keys keys, const QZKey *first, size_t count, Use use) {
  lookahead<typename Keys::Order, Keys::kMost> ahead;
  for (size_t done = 0; done < count;) {
    bool lookedFor[Keys::kMost] = {};
    while (!ahead.is_full() && done + ahead.size() < count) {
      const size_t lane = ahead.size();
      lookedFor[lane] = keys.begin(ahead, first[done + lane]);
      if (!lookedFor[lane]) ahead.begin_nothing();
    }
    ahead.finish();
    for (size_t lane = 0; lane < ahead.size(); ++lane) {
      use(done + lane, lookedFor[lane] ? Ahead(ahead.found(lane)) : std::nullopt);
    }
    done += ahead.size();
    ahead.clear();
  }
}

template <class Use>
void withLookahead(const MORVAInst &inst, const QZKey *keys, size_t count, Use use) {
  const bool walks = has(inst, flagDefined) && isPlain(inst.tree);
  if (walks && has(inst, flagFixedKey | flagVarKey)) {
    sideBySide(RawKeys(inst), keys, count, use);
  } else if (walks && inst.keyLength <= kLargestPacked) {
    sideBySide(PackedKeys(inst), keys, count, use);
  } else {
    for (size_t i = 0; i < count; ++i) use(i, std::nullopt);
  }
}

// Runs operate(i, ahead) for all keys under the lock; it answers a status.
template <class Operate>
size_t forEach(MORVAInst *inst, const QZKey *keys, size_t count, MORVAStatus *statuses,
               Operate operate) {
  size_t done = 0;
  const auto tell = [&](size_t i, MORVAStatus status) {
    if (statuses != nullptr) statuses[i] = status;
    done += status == MORVA_OK;
  };
  if (inst == nullptr || keys == nullptr) {
    for (size_t i = 0; i < count; ++i) tell(i, MORVA_INVALID);
    return 0;
  }
  const Hold hold(*inst);
  withLookahead(*inst, keys, count, [&](size_t i, Ahead ahead) { tell(i, operate(i, ahead)); });
  return done;
}

double *sumAt(const MORVAInst &inst, void *data) {
  return reinterpret_cast<double *>(static_cast<char *>(data) - dataOffsetOf(inst, 0) +
                                    inst.sumOffset);
}

// The data of a record that a lookup has reached, which counts.
void *reach(MORVAInst &inst, RecordNode *node, int32_t keyLength) {
  if (node == nullptr) return nullptr;
  void *data = static_cast<char *>(MORVARecordBase(node)) +
               dataOffsetOf(inst, static_cast<size_t>(keyLength));
  if (has(inst, flagSum)) {
    const double increment = std::atomic_ref(inst.sumIncrement).load(std::memory_order_relaxed);
    if (increment != 0.0) *sumAt(inst, data) += increment;
  }
  return data;
}

MORVAStatus find(MORVAInst &inst, const QZKey &key, Ahead ahead, void *&data) {
  data = nullptr;
  if (!ahead) return inst.Find(&inst, key.bytes, key.length, &data);
  data = reach(inst, *ahead, key.length);
  if (has(inst, flagVarKey)) {  // what a node taken for this key would have set
    const size_t size = dataOffsetOf(inst, static_cast<size_t>(key.length)) + inst.dataLength;
    std::atomic_ref(inst.recordSize).store(static_cast<uint32_t>(size), std::memory_order_relaxed);
  }
  return MORVA_OK;
}

MORVAStatus addToSum(MORVAInst &inst, const QZKey &key, Ahead ahead, double amount) {
  if (!has(inst, flagSum)) return MORVA_NO_SUM;
  void *data = nullptr;
  const MORVAStatus status = find(inst, key, ahead, data);
  if (status != MORVA_OK) return status;
  if (data == nullptr) return MORVA_INVALID;
  double *sum = sumAt(inst, data);
  const double total = *sum + amount;
  if (total != total) return MORVA_INVALID;
  *sum = total;
  return MORVA_OK;
}

}  // namespace
}  // namespace qzhost

using namespace qzhost;

extern "C" {

size_t QZFindMany(MORVAInst *inst, const QZKey *keys, size_t count, void **dataOut,
                  MORVAStatus *statuses) {
  return forEach(inst, dataOut == nullptr ? nullptr : keys, count, statuses,
                 [=](size_t i, Ahead ahead) { return find(*inst, keys[i], ahead, dataOut[i]); });
}

size_t QZAddMany(MORVAInst *inst, const QZKey *keys, size_t count, const void *data, size_t stride,
                 MORVAStatus *statuses) {
  return forEach(inst, keys, count, statuses, [=](size_t i, Ahead) {
    const void *own = data == nullptr ? nullptr : static_cast<const char *>(data) + i * stride;
    return inst->Add(inst, own, keys[i].bytes, keys[i].length);
  });
}

size_t QZRemoveMany(MORVAInst *inst, const QZKey *keys, size_t count, MORVAStatus *statuses) {
  return forEach(inst, keys, count, statuses, [=](size_t i, Ahead) {
    return inst->Remove(inst, keys[i].bytes, keys[i].length);
  });
}

size_t QZAddToSumMany(MORVAInst *inst, const QZKey *keys, size_t count, const double *amounts,
                      MORVAStatus *statuses) {
  return forEach(
      inst, amounts == nullptr ? nullptr : keys, count, statuses,
      [=](size_t i, Ahead ahead) { return addToSum(*inst, keys[i], ahead, amounts[i]); });
}

}  // extern "C"
