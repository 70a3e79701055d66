// What the contenders of Morva's C interface share: the extension, and making
// an instance.
#pragma once

#include <bit>
#include <memory>
#include <stdexcept>

#include "bytes.h"
#include "morva/host.h"
#include "morva/morva.h"

namespace bench {

// One for the process, on an embedded host with the defaults.
inline MORVAExt *extension() {
  static MORVAExt *const loaded = [] {
    char error[256] = "no memory for a host";
    const QZEntryPoints entry = {"morva", qzextver, morva::morva};
    QZHost *host = QZHostCreate(nullptr);
    MORVAExt *ext = host == nullptr ? nullptr : QZHostAttach(host, &entry, error, sizeof error);
    if (ext == nullptr) throw std::runtime_error(error);
    return ext;
  }();
  return loaded;
}

struct InstanceDestroyer {
  void operator()(MORVAInst *inst) const { inst->Destroy(inst); }
};
using Instance = std::unique_ptr<MORVAInst, InstanceDestroyer>;

// How many keys a table is made for when nobody knows: what morva::table takes.
inline constexpr size_t kUntoldKeys = 4096;

// What docs/hash-methods.md advises: times 37 for text, FNV for numbers.
template <class Key>
inline constexpr int32_t kHashMethod = isText<Key> ? 7 : 9;

// About as many buckets as keys, at most 2^20.
inline int32_t bucketExponent(size_t keys) {
  if (keys == 0) keys = kUntoldKeys;
  return keys == 1 ? 0 : std::min<int32_t>(20, std::bit_width(keys - 1));
}

template <class Key>
MORVAKeyDesc fieldFor() {
  // A signed integer, or text that ends with a NUL. Both lie at the beginning of the row.
  return isText<Key> ? MORVAKeyDesc{kLongestText, 5, 0, 0} : MORVAKeyDesc{sizeof(Key), 3, 0, 0};
}

template <class Key>
Instance makeInstance(uint32_t flags, size_t keys) {
  MORVAParms parms{};
  parms.dataLength = sizeof(uint64_t);
  parms.keyLength = isText<Key> ? kLongestText : sizeof(Key);
  parms.flags = flags;
  parms.hashMethod = kHashMethod<Key>;
  parms.hashExp = bucketExponent(keys);
  Instance inst(extension()->Create(extension(), &parms, nullptr, "bench"));
  if (!inst) throw std::runtime_error("no memory for an instance");
  if ((flags & (flagFixedKey | flagVarKey)) == 0) {
    const MORVAKeyDesc field = fieldFor<Key>();
    if (inst->DefineKey(inst.get(), &field) != MORVA_OK ||
        inst->DefineDone(inst.get(), 0, sizeof(uint64_t)) != MORVA_OK)
      throw std::runtime_error("a key field was refused");
  }
  return inst;
}

// Throws unless an operation was done.
inline void expectDone(MORVAStatus status) {
  if (status != MORVA_OK) throw std::runtime_error("an operation of Morva failed");
}

template <class Key>
int32_t keyLength(const Key &key) {
  return static_cast<int32_t>(lengthOf(key));
}

}  // namespace bench
