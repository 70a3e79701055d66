// Which bucket a key goes to. The hash values themselves are the extension's own affair.
#include <cstring>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

constexpr int32_t kFirstMethod = 2, kLastMethod = 9;

uint32_t bucketOf(const Table &table, const void *key, size_t length) {
  uint32_t bucket = 0xFFFFFFFF;
  expectStatus(table->HashVal(table.get(), key, static_cast<int32_t>(length), &bucket), MORVA_OK,
               "HashVal by method " + shown(table.shape().hashMethod));
  return bucket;
}

uint32_t bucketOf(const Table &table, const std::string &key) {
  const std::string bytes = table.image(key);
  return bucketOf(table, bytes.data(), bytes.size());
}

// One check for each method: what it is about is in the name.
template <int32_t kMethod>
void oneMethod(const Subject &subject) {
  Lab lab(subject);
  lab.host.keepLog(false);
  Random random(kMethod);
  for (const uint32_t mode : kKeyModes) {
    const Shape shape{.flags = mode, .keyLength = 60, .hashMethod = kMethod, .hashExp = 10};
    const Table table(lab, shape), twin(lab, shape);
    for (size_t length = 0; length != 60; ++length) {
      std::string key(length, '\0');
      for (char &byte : key) byte = static_cast<char>(random.next());
      const uint32_t bucket = bucketOf(table, key);
      expect(bucket < 1024, "a bucket index is above the mask, " + table.kind());
      expectEqual(bucketOf(table, key), bucket, "the bucket of a key, asked for again,");
      expectEqual(bucketOf(twin, key), bucket,
                  "the bucket of a key in an instance of the same kind");
      const std::string bytes = table.image(key);
      // The key at every place of a word, with other bytes around it.
      for (size_t shift = 0; shift != 8; ++shift) {
        std::string around(bytes.size() + 16, static_cast<char>(random.next()));
        std::memcpy(around.data() + shift, bytes.data(), bytes.size());
        expectEqual(bucketOf(table, around.data() + shift, bytes.size()), bucket,
                    "the bucket of a key of " + shown(length) + " bytes at another place, " +
                        table.kind() + ',');
      }
    }
  }
}

void agreesWithTheTable(const Subject &subject) {
  Lab lab(subject);
  for (int32_t method = kFirstMethod; method <= kLastMethod; ++method) {
    for (const uint32_t mode : kKeyModes) {
      const Table table(lab, {.flags = mode, .hashMethod = method});
      for (uint64_t n = 0; n != 50; ++n) {
        const std::string key = keyNumber(n);
        const uint32_t bucket = bucketOf(table, key);
        const uint32_t before = table->BucketSize(table.get(), bucket);
        table.mustAdd(key, n);
        expectEqual(table->BucketSize(table.get(), bucket), before + 1,
                    "the count of the bucket that HashVal names for a key added, by method " +
                        shown(method) + ',');
        uint32_t other = 0xFFFFFFFF;
        expect(table.node(key, &other) != nullptr, "FindNode does not find a key");
        expectEqual(other, bucket, "the bucket that FindNode names");
      }
    }
  }
}

void masksOneHash(const Subject &subject) {
  Lab lab(subject);
  for (int32_t method = kFirstMethod; method <= kLastMethod; ++method) {
    const Table large(lab, {.hashMethod = method, .hashExp = 12});
    for (const int32_t exponent : {0, 1, 5, 11}) {
      const Table small(lab, {.hashMethod = method, .hashExp = exponent});
      for (uint64_t n = 0; n != 50; ++n) {
        expectEqual(bucketOf(small, keyNumber(n)),
                    bucketOf(large, keyNumber(n)) & ((1U << exponent) - 1),
                    "the bucket out of fewer, by method " + shown(method) + ',');
      }
    }
  }
}

void looksOnly(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t mode : kKeyModes) {
    const Table table(lab, {.flags = mode | flagOrdered});
    for (uint64_t n = 0; n != 10; ++n) table.mustAdd(keyNumber(n), n);
    bucketOf(table, keyNumber(999999));
    const std::string key = table.image("new");
    lab.host.forget();
    for (int n = 0; n != 30; ++n) {
      expectStatus(
          table->HashVal(table.get(), key.data(), static_cast<int32_t>(key.size()), nullptr),
          MORVA_OK, "HashVal without a place");
    }
    expectEqual(lab.host.count(Call::allocate), uint64_t{0}, "the number of blocks HashVal takes");
    expectEqual(lab.host.count(Call::treeFind) + lab.host.count(Call::treeInsert), uint64_t{0},
                "the number of searches by HashVal");
    table.expectCount(10);
    table.expectAbsent("new");
  }
}

constexpr const char *kMethodPromise =
    "A key's bucket is within the mask, the same for the same bytes wherever they lie.";

constexpr Check kChecks[] = {
    {"hash.method-2", kMethodPromise, oneMethod<2>},
    {"hash.method-3", kMethodPromise, oneMethod<3>},
    {"hash.method-4", kMethodPromise, oneMethod<4>},
    {"hash.method-5", kMethodPromise, oneMethod<5>},
    {"hash.method-6", kMethodPromise, oneMethod<6>},
    {"hash.method-7", kMethodPromise, oneMethod<7>},
    {"hash.method-8", kMethodPromise, oneMethod<8>},
    {"hash.method-9", kMethodPromise, oneMethod<9>},
    {"hash.agrees-with-the-table", "A key is stored in the bucket that HashVal and FindNode name.",
     agreesWithTheTable},
    {"hash.masks-one-hash", "Fewer buckets take fewer bits of the same hash.", masksOneHash},
    {"hash.looks-only", "HashVal searches nothing, stores nothing and takes no memory.", looksOnly},
};

}  // namespace

std::span<const Check> hashChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
