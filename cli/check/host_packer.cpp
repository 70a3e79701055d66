// The record packer. What the types of fields mean is the host's own business:
// demanded is what the library and its users rely on.

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host_checks.h"
#include "host_typed_keys.h"

namespace morva::cli::check {

namespace {

using Image = std::string;

RecordPacker *newPacker(RecordPackerExt *companion) {
  RecordPacker *packer = companion->makePacker(companion, 0);
  expect(packer != nullptr, "makePacker answers null");
  return packer;
}

void define(RecordPacker *packer, const MORVAHostKey &kind, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    const PackerField field = packerField(kind.fields[i], lengthOf(kind, i));
    expectEqual(packer->defineField(packer, &field), 0U,
                "what defineField answers for field " + shown(i) + " of a key of the host's");
  }
  const PackerClosing closing = packerClosing(lengthOf(kind, count));
  expectEqual(packer->finish(packer, &closing), 0U, "what finish answers");
}

RecordPacker *packerOf(RecordPackerExt *companion, const MORVAHostKey &kind) {
  RecordPacker *packer = newPacker(companion);
  define(packer, kind, kind.fieldCount);
  return packer;
}

constexpr size_t kAround = 64;

// The image of a key, and that nothing around it is written. It lies as a
// record's base does: aligned to 8.
Image imageOf(RecordPacker *packer, const void *key, uint64_t length, unsigned char before) {
  std::vector<uint64_t> words((length + 7) / 8 + 2 * kAround / 8);
  auto *bytes = reinterpret_cast<unsigned char *>(words.data());
  const size_t all = words.size() * 8;
  std::memset(bytes, before, all);
  packer->pack(packer, key, bytes + kAround, 1);
  for (size_t i = 0; i < kAround; ++i) {
    if (bytes[i] != before) throw Unmet("pack writes before the image of a key");
  }
  for (size_t i = kAround + length; i < all; ++i) {
    if (bytes[i] == before) continue;
    throw Unmet("pack writes beyond the " + shown(length) + " bytes of the image of a key");
  }
  return {reinterpret_cast<char *>(bytes) + kAround, length};
}

void forEveryKind(const Subject &subject,
                  void (*check)(RecordPackerExt *companion, const MORVAHostKey &kind)) {
  Host host(subject);
  const std::vector<const MORVAHostKey *> kinds = keyKinds(host);
  RecordPackerExt *companion = host.packers();
  for (const MORVAHostKey *kind : kinds) check(companion, *kind);
  companion->release(companion);
  host.endWithNothingLeft();
}

void hasItsSlots(const Subject &subject) {
  Host host(subject);
  RecordPackerExt *companion = host.packers();
  RecordPacker *packer = newPacker(companion);
  for (const unsigned slot : {2U, 4U, 6U, 7U}) expectSlot(packer, slot, "a record packer");
  packer->destroy(packer);
  companion->release(companion);
  host.endWithNothingLeft();
}

void takesItsFields(RecordPackerExt *companion, const MORVAHostKey &kind) {
  RecordPacker *packer = packerOf(companion, kind);
  packer->destroy(packer);
}

void copiesDescriptions(RecordPackerExt *companion, const MORVAHostKey &kind) {
  RecordPacker *expected = packerOf(companion, kind);
  RecordPacker *packer = newPacker(companion);
  for (uint32_t i = 0; i < kind.fieldCount; ++i) {
    const PackerField field = packerField(kind.fields[i], lengthOf(kind, i));
    const LentBytes lent(&field, sizeof field);
    expectEqual(packer->defineField(packer, lent.as<PackerField>()), 0U, "defineField's answer");
    lent.takeBack();
  }
  PackerClosing closing = packerClosing(lengthOf(kind));
  const LentBytes name(closing.name, std::strlen(closing.name) + 1);
  closing.name = name.as<char>();
  const LentBytes lent(&closing, sizeof closing);
  expectEqual(packer->finish(packer, lent.as<PackerClosing>()), 0U, "finish's answer");
  lent.takeBack();
  name.takeBack();

  KeyRoom room(kind, 1);
  for (uint64_t number = 0; number < 50; ++number) {
    const void *key = room.make(number);
    expect(imageOf(packer, key, lengthOf(kind), 0) == imageOf(expected, key, lengthOf(kind), 0),
           "keys are packed otherwise when the descriptions of the fields are gone");
  }
  packer->destroy(packer);
  expected->destroy(expected);
}

void writesEveryByte(RecordPackerExt *companion, const MORVAHostKey &kind) {
  RecordPacker *packer = packerOf(companion, kind);
  KeyRoom room(kind, 1);
  for (uint64_t number = 0; number < 200; ++number) {
    const void *key = room.make(number * 37);
    expect(imageOf(packer, key, lengthOf(kind), 0) == imageOf(packer, key, lengthOf(kind), 0xFF),
           "pack leaves bytes of the image as they were");
  }
  packer->destroy(packer);
}

void writesNothingElse(RecordPackerExt *companion, const MORVAHostKey &kind) {
  for (uint32_t count = 1; count <= kind.fieldCount; ++count) {
    RecordPacker *packer = newPacker(companion);
    define(packer, kind, count);
    KeyRoom room(kind, 1);
    for (uint64_t number = 0; number < 60; ++number) {
      const void *key = room.make(number * 41);
      imageOf(packer, key, lengthOf(kind, count), 0);
      imageOf(packer, key, lengthOf(kind, count), 0xFF);
    }
    packer->destroy(packer);
  }
}

void packsEqualKeysEqually(RecordPackerExt *companion, const MORVAHostKey &kind) {
  RecordPacker *packer = packerOf(companion, kind);
  RecordPacker *another = packerOf(companion, kind);
  for (uint64_t number = 0; number < 200; ++number) {
    KeyRoom one(kind, number);
    KeyRoom two(kind, number + 1000);
    const Image image = imageOf(packer, one.make(number * 13), lengthOf(kind), 0);
    expect(imageOf(packer, two.make(number * 13), lengthOf(kind), 0) == image,
           "equal keys in two places are packed differently");
    expect(imageOf(another, one.make(number * 13), lengthOf(kind), 0) == image,
           "two packers of the same fields pack a key differently");
  }
  packer->destroy(packer);
  another->destroy(another);
}

void packsDifferentKeysDifferently(RecordPackerExt *companion, const MORVAHostKey &kind) {
  RecordPacker *packer = packerOf(companion, kind);
  KeyRoom room(kind, 1);
  std::set<Image> images;
  uint64_t count = 0;
  for (uint64_t number = 0; number < (1 << 20); number += number < 1000 ? 1 : 997) {
    images.insert(imageOf(packer, room.make(number), lengthOf(kind), 0));
    expectEqual<uint64_t>(images.size(), ++count, "the number of images of different keys");
  }
  packer->destroy(packer);
}

void leavesTheKeyAlone(RecordPackerExt *companion, const MORVAHostKey &kind) {
  RecordPacker *packer = packerOf(companion, kind);
  KeyRoom room(kind, 3);
  for (uint64_t number = 0; number < 50; ++number) {
    const void *key = room.make(number * 17);
    const Image before = room.contents();
    imageOf(packer, key, lengthOf(kind), 0);
    expect(room.contents() == before, "pack changes the key");
  }
  packer->destroy(packer);
}

void servesSeveralThreads(RecordPackerExt *companion, const MORVAHostKey &kind) {
  RecordPacker *packer = packerOf(companion, kind);
  std::vector<Image> images;
  KeyRoom room(kind, 1);
  for (uint64_t number = 0; number < 500; ++number) {
    images.push_back(imageOf(packer, room.make(number), lengthOf(kind), 0));
  }
  inThreads(4, [&](unsigned thread) {
    KeyRoom own(kind, thread);
    Random numbers(thread);
    for (int i = 0; i < 6000; ++i) {
      const uint64_t number = numbers.below(images.size());
      expect(imageOf(packer, own.make(number), lengthOf(kind), 0) == images[number],
             "a key is packed otherwise while other threads pack");
    }
  });
  packer->destroy(packer);
}

void areIndependent(const Subject &subject) {
  Host host(subject);
  RecordPackerExt *companion = host.packers();
  // Of every kind one, and of every kind one with its first field only.
  struct Made {
    const MORVAHostKey *kind;
    uint32_t count;
    std::unique_ptr<KeyRoom> room;
    const void *key;
    Image image;
    RecordPacker *packer;
  };
  std::vector<Made> made;
  uint32_t most = 0;
  for (const MORVAHostKey *kind : keyKinds(host)) {
    for (const uint32_t count : {kind->fieldCount, 1U}) {
      auto room = std::make_unique<KeyRoom>(*kind, 1);
      const void *key = room->make(4711);
      RecordPacker *alone = newPacker(companion);
      define(alone, *kind, count);
      made.push_back({kind, count, std::move(room), key,
                      imageOf(alone, key, lengthOf(*kind, count), 0), nullptr});
      alone->destroy(alone);
      most = std::max(most, count);
    }
  }
  // Their definitions go on side by side.
  for (Made &one : made) one.packer = newPacker(companion);
  for (uint32_t i = 0; i < most; ++i) {
    for (const Made &one : made) {
      if (i >= one.count) continue;
      const PackerField field = packerField(one.kind->fields[i], lengthOf(*one.kind, i));
      expectEqual(one.packer->defineField(one.packer, &field), 0U, "defineField's answer");
    }
  }
  for (const Made &one : made) {
    const PackerClosing closing = packerClosing(lengthOf(*one.kind, one.count));
    expectEqual(one.packer->finish(one.packer, &closing), 0U, "finish's answer");
  }
  while (!made.empty()) {
    for (const Made &one : made) {
      expect(imageOf(one.packer, one.key, lengthOf(*one.kind, one.count), 0) == one.image,
             "a packer packs otherwise when there are others");
    }
    made.back().packer->destroy(made.back().packer);
    made.pop_back();
  }
  companion->release(companion);
  host.endWithNothingLeft();
}

void survivesARefusal(const Subject &subject) {
  Host host(subject);
  RecordPackerExt *companion = host.packers();
  bool refused = false;
  for (const MORVAHostKey *kind : keyKinds(host)) {
    if (kind->refused == nullptr) continue;
    refused = true;
    RecordPacker *other = packerOf(companion, *kind);
    RecordPacker *packer = newPacker(companion);
    const PackerField field = packerField(*kind->refused, 0);
    expect(packer->defineField(packer, &field) != 0,
           "defineField answers 0 for a field that is to be refused");
    packer->destroy(packer);
    KeyRoom room(*kind, 1);
    imageOf(other, room.make(1), lengthOf(*kind), 0);
    other->destroy(other);
  }
  companion->release(companion);
  if (!refused) throw NotApplicable("the host names no field that its packer refuses");
  host.endWithNothingLeft();
}

constexpr Check kChecks[] = {
    {"packer.has-its-slots", "A record packer has the four slots that are called.", hasItsSlots},
    {"packer.takes-its-fields",
     "The packer takes the fields of the host's own keys, and the end of their definition.",
     [](const Subject &subject) { forEveryKind(subject, takesItsFields); }},
    {"packer.copies-descriptions",
     "Descriptions of fields, and of the end of a definition, may go away after the call.",
     [](const Subject &subject) { forEveryKind(subject, copiesDescriptions); }},
    {"packer.writes-every-byte", "pack writes every byte of the image, whatever it was before.",
     [](const Subject &subject) { forEveryKind(subject, writesEveryByte); }},
    {"packer.writes-nothing-else",
     "pack writes the image, as long as the fields together, and nothing before or behind it.",
     [](const Subject &subject) { forEveryKind(subject, writesNothingElse); }},
    {"packer.packs-equal-keys-equally", "Equal keys have the same image, wherever they lie.",
     [](const Subject &subject) { forEveryKind(subject, packsEqualKeysEqually); }},
    {"packer.packs-different-keys-differently", "Different keys have different images.",
     [](const Subject &subject) { forEveryKind(subject, packsDifferentKeysDifferently); }},
    {"packer.leaves-the-key-alone", "pack changes nothing in the key.",
     [](const Subject &subject) { forEveryKind(subject, leavesTheKeyAlone); }},
    {"packer.serves-several-threads", "One packer packs keys in several threads at once.",
     [](const Subject &subject) { forEveryKind(subject, servesSeveralThreads); }},
    {"packer.packers-are-independent", "Each packer has its own fields, whatever others have.",
     areIndependent},
    {"packer.survives-a-refusal",
     "A field that the packer does not take is refused with an answer other than 0; that packer "
     "can "
     "be destroyed, and others go on.",
     survivesARefusal},
};

}  // namespace

std::span<const Check> hostPackerChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
