// The hash methods, and the buckets that the library and the C++ interface put keys
// in, against the methods taken byte by byte.
#include <algorithm>
#include <memory>
#include <string>

#include "check.h"
#include "input.h"
#include "morva/hash_methods.hpp"
#include "morva/host.h"
#include "morva/morva.h"
#include "morva/search.hpp"
#include "reference_hash.h"

using keys_test::referenceHash;
using morva_fuzz::Input;

namespace {

// Bytes that end where their memory ends.
class Bytes {
 public:
  Bytes(const std::string &text, size_t offset)
      : size_(text.size()), block_(new unsigned char[size_ + offset + 1]) {
    // The byte in front gives even an empty key an address.
    start_ = block_.get() + offset + 1;
    std::copy(text.begin(), text.end(), start_);
  }
  const unsigned char *get() const { return start_; }
  uint32_t size() const { return static_cast<uint32_t>(size_); }

 private:
  size_t size_;
  std::unique_ptr<unsigned char[]> block_;
  unsigned char *start_;
};

std::string takeText(Input &input) {
  std::string text = input.bytes(input.below(200));
  // Many of one kind, to carry over where sums overflow.
  if (input.bit()) text.append(input.below(300), static_cast<char>(input.byte()));
  return text;
}

void methods(Input &input) {
  const std::string text = takeText(input);
  const Bytes bytes(text, input.below(8));
  for (uint32_t method = 2; method <= 9; ++method) {
    const uint32_t expected = referenceHash(static_cast<int>(method), text);
    FUZZ_CHECK(morva::hash_key(method, bytes.get(), bytes.size()) == expected);
  }
}

// Instances on a host, one for each way to hand over keys, with 2^20 buckets.
class Instances {
 public:
  Instances() {
    const QZEntryPoints entry{"morva", qzextver, morva::morva};
    char error[256] = "";
    ext_ = QZHostAttach(host_, &entry, error, sizeof error);
    if (ext_ == nullptr) morva_fuzz::finding(__FILE__, __LINE__, error);
  }
  ~Instances() { FUZZ_CHECK(QZHostDestroy(host_, nullptr) == 0); }

  MORVAInst *make(uint32_t flags, int32_t method, uint32_t keyLength) {
    MORVAParms parms{};
    parms.flags = flags;
    parms.hashMethod = method;
    parms.hashExp = 8;
    parms.keyLength = keyLength;
    MORVAInst *inst = ext_->Create(ext_, &parms, nullptr, "hash");
    FUZZ_CHECK(inst != nullptr);
    return inst;
  }

 private:
  QZHost *host_ = QZHostCreate(nullptr);
  MORVAExt *ext_ = nullptr;
};

// A method that is none of the eight stands for the first.
int effective(int32_t method) {
  return method >= 2 && method <= 9 ? method : 2;
}

void buckets(Input &input) {
  const auto method = static_cast<int32_t>(input.below(16)) - 2;
  const uint8_t mode = input.byte() % 3;
  const std::string text = takeText(input);
  const Bytes key(text, input.below(8));
  Instances instances;
  MORVAInst *inst = nullptr;
  if (mode < 2) {
    inst = instances.make(mode == 0 ? flagVarKey : flagFixedKey, method, key.size());
  } else {
    // Raw bytes in two fields: the image is the row.
    inst = instances.make(0, method, 0);
    uint32_t at = 0;
    const uint32_t cut = static_cast<uint32_t>(input.below(key.size() + 1));
    for (const uint32_t length : {cut, key.size() - cut}) {
      if (length == 0) continue;
      const MORVAKeyDesc field{length, 4, at, 0};
      FUZZ_CHECK(inst->DefineKey(inst, &field) == MORVA_OK);
      at += length;
    }
    FUZZ_CHECK(inst->DefineDone(inst, 0, 0) == MORVA_OK);
  }
  uint32_t bucket = UINT32_MAX;
  FUZZ_CHECK(inst->HashVal(inst, key.get(), static_cast<int32_t>(key.size()), &bucket) == MORVA_OK);
  FUZZ_CHECK(bucket == (referenceHash(effective(method), text) & 0xFF));
  // The record of the key is in that bucket.
  FUZZ_CHECK(inst->Add(inst, nullptr, key.get(), static_cast<int32_t>(key.size())) == MORVA_OK);
  FUZZ_CHECK(inst->BucketSize(inst, bucket) == 1 && inst->NumElements(inst) == 1);
  FUZZ_CHECK(inst->Destroy(inst) == MORVA_OK);
}

// The comparison of keys against one of single bytes.
void order(Input &input) {
  const std::string a = input.filled(input.below(input.bit() ? 40 : 200));
  std::string b = a;
  for (uint64_t changes = input.below(3); changes > 0 && !b.empty(); --changes) {
    // Mostly among the last ones.
    const size_t place = input.below(input.bit() ? b.size() : std::min<size_t>(b.size(), 9));
    b[b.size() - 1 - place] = static_cast<char>(input.byte());
  }
  const Bytes first(a, input.below(8)), second(b, input.below(8));
  int expected = 0;
  for (size_t i = 0; i < a.size() && expected == 0; ++i) {
    const auto x = static_cast<uint8_t>(a[i]), y = static_cast<uint8_t>(b[i]);
    if (x != y) expected = x < y ? -1 : 1;
  }
  const int found = morva::detail::compare_bytes(first.get(), second.get(), first.size());
  FUZZ_CHECK((found < 0) == (expected < 0) && (found > 0) == (expected > 0));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input input(data, size);
  switch (input.below(4)) {
    case 0:
      buckets(input);
      break;
    case 1:
      order(input);
      break;
    default:
      methods(input);
      break;
  }
  return 0;
}
