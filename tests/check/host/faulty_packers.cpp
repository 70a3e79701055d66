// Faults of record packers.

#include <sched.h>

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "faulty_host.h"

namespace faulty {

namespace {

struct PackerState {
  uint64_t length = 0;
  std::vector<const PackerField *> fields;
};

Known<PackerState> packers;
RecordPacker *lastMade = nullptr;

uint32_t pack(RecordPacker *packer, const void *key, void *destination, uint64_t one) {
  const uint64_t length = packers.of(packer).length;
  auto *image = static_cast<unsigned char *>(destination);
  if (faultIs("packs-in-one-place")) {
    static unsigned char place[4096];
    const uint32_t answer = originals.packer.pack(packer, key, place, one);
    static std::atomic<unsigned> calls{0};
    if (calls.fetch_add(1) % 64 == 0) sched_yield();
    std::memcpy(image, place, length);
    return answer;
  }
  if (faultIs("packs-with-the-last-packer")) packer = lastMade;
  const unsigned char last = image[length - 1];
  const uint32_t answer = originals.packer.pack(packer, key, destination, one);
  if (faultIs("packs-one-byte-too-many")) image[length] = 0;
  if (faultIs("packs-one-byte-too-few")) image[length - 1] = last;
  if (faultIs("packs-addresses")) {
    image[0] = static_cast<unsigned char>(reinterpret_cast<uintptr_t>(key) >> 4);
  }
  if (faultIs("packs-two-bytes-only")) std::memset(image + 2, 0, length - 2);
  if (faultIs("writes-to-keys")) {
    auto *bytes = static_cast<unsigned char *>(const_cast<void *>(key));
    bytes[0] = static_cast<unsigned char>(bytes[0] + 1);
  }
  return answer;
}

uint32_t defineField(RecordPacker *packer, const PackerField *field) {
  if (faultIs("keeps-fields-by-address")) {
    packers.of(packer).fields.push_back(field);
    return 0;
  }
  const uint32_t answer = originals.packer.defineField(packer, field);
  if (faultIs("refuses-silently")) return 0;
  if (faultIs("refuses-texts") && field->typeCode == 2) return 1;
  return answer;
}

uint32_t finish(RecordPacker *packer, const PackerClosing *closing) {
  PackerState &state = packers.of(packer);
  state.length = closing->keyLength;
  for (const PackerField *field : state.fields) originals.packer.defineField(packer, field);
  return originals.packer.finish(packer, closing);
}

}  // namespace

void spoilPackers(RecordPackerExt *companion) {
  companion->makePacker = [](RecordPackerExt *self, uint64_t zero) {
    RecordPacker *packer = originals.packers.makePacker(self, zero);
    packers.of(packer) = {};
    lastMade = packer;
    packer->pack = pack;
    packer->defineField = defineField;
    packer->finish = finish;
    if (faultIs("has-packers-without-pack")) packer->pack = nullptr;
    return packer;
  };
}

}  // namespace faulty
