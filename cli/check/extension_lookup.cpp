// Finding: with the lock, without it, nodes.
#include <cstring>
#include <memory>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

// A probe for Find2, of exactly the size that is asked for, filled with noise.
class Probe {
 public:
  Probe(const Table &table, size_t keyLength, char noise = '\x77')
      : words_((sizeOf(table, keyLength) + 7) / 8) {
    std::memset(words_.data(), noise, words_.size() * 8);
  }
  RecordNode *get() { return reinterpret_cast<RecordNode *>(words_.data()); }

 private:
  static size_t sizeOf(const Table &table, size_t keyLength) {
    if (table.shape().has(flagVarKey)) return 32 + keyLength;
    return sizeof(RecordNode) + table->keyLength + 8;
  }
  std::vector<uint64_t> words_;
};

void findsOrNot(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    const Table table(lab, {.flags = flags});
    void *data = &lab;
    expectStatus(table.find("key", &data), MORVA_OK, "Find in an empty table " + table.kind());
    expect(data == nullptr, "Find did not answer null in an empty table, " + table.kind());
    table.mustAdd("key", 5);
    data = nullptr;
    expectStatus(table.find("key", &data), MORVA_OK, "Find " + table.kind());
    table.mustHold(data, 5, "a record that was found");
    data = &lab;
    expectStatus(table.find("kez", &data), MORVA_OK, "Find of an absent key " + table.kind());
    expect(data == nullptr, "Find did not answer null for an absent key, " + table.kind());
    expectStatus(table.find("key", nullptr), MORVA_OK, "Find without a place " + table.kind());
    table.expectCount(1);
  }
}

void findsInPlace(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, uint32_t{0},
                               uint32_t{flagSum | flagMultiData}}) {
    const Table table(lab, {.flags = flags, .dataLength = 24});
    table.mustAdd("one", 1);
    table.mustAdd("two", 2);
    void *data = table.found("one");
    table.payload(99).copy(static_cast<char *>(data), 24);
    table.expectValue("one", 99);
    table.expectValue("two", 2);
    expect(table.found("one") == data, "Find answers another address the second time");
  }
}

void changesNothing(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t mode : kKeyModes) {
    const Table table(lab, {.flags = mode | flagOrdered});
    for (uint64_t n = 0; n != 10; ++n) table.mustAdd(keyNumber(n), n);
    const std::vector<RecordNode *> order = lab.host.order(table.get());
    table.expectAbsent("abcdef");
    lab.host.forget();
    for (uint64_t n = 0; n != 20; ++n) table.found(keyNumber(n));
    expectEqual(lab.host.count(Call::allocate), uint64_t{0},
                "the number of blocks taken by lookups, " + table.kind() + ',');
    expectEqual(lab.host.count(Call::treeInsert) + lab.host.count(Call::treeRemove), uint64_t{0},
                "the number of changes of trees by lookups");
    expect(lab.host.order(table.get()) == order, "lookups changed the insertion order");
    table.expectCount(10);
  }
}

void findsWithAProbe(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    const Table table(lab, {.flags = flags});
    for (uint64_t n = 0; n != 40; ++n) table.mustAdd(keyNumber(n), n);
    lab.host.forget();
    for (uint64_t n = 0; n != 60; ++n) {
      const std::string key = table.image(keyNumber(n));
      Probe probe(table, key.size());
      void *data = &lab;
      expectStatus(table->Find2(table.get(), key.data(), static_cast<int32_t>(key.size()),
                                probe.get(), &data),
                   MORVA_OK, "Find2 " + table.kind());
      if (n < 40) {
        table.mustHold(data, n, "a record that Find2 found");
      } else {
        expect(data == nullptr, "Find2 did not answer null for an absent key, " + table.kind());
      }
    }
    expectEqual(lab.host.count(Call::allocate), uint64_t{0}, "the number of blocks Find2 takes");
  }
  lab.expectNoComplaints();
}

void findsTheKeyInItsProbe(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t mode : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}}) {
    const Table table(lab, {.flags = mode});
    table.mustAdd("inside", 3);
    Probe probe(table, 6);
    char *key = reinterpret_cast<char *>(probe.get()) + 32;
    std::string("inside").copy(key, 6);
    void *data = nullptr;
    expectStatus(table->Find2(table.get(), key, 6, probe.get(), &data), MORVA_OK,
                 "Find2 of a key that lies in the probe");
    table.mustHold(data, 3, "the record of a key that lay in the probe");
  }
}

void refusesProbes(const Subject &subject) {
  Lab lab(subject);
  const Table table(lab, {.keyLength = 8});
  table.mustAdd("key", 1);
  void *data = &lab;
  expectStatus(table->Find2(table.get(), "key", 3, nullptr, &data), MORVA_INVALID,
               "Find2 without a probe");
  Probe probe(table, 32);
  const std::string longer(21, 'x');
  lab.host.forget();
  expectStatus(table->Find2(table.get(), longer.data(), 21, probe.get(), &data), MORVA_INVALID,
               "Find2 of a longer key");
  expect(data == &lab, "Find2 wrote an answer although it refused");
  expectEqual(lab.host.story(), std::string("release!"),
              "what the host was asked for by Find2 of a longer key, which releases the lock,");
}

void findsNodes(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    const Table table(lab, {.flags = flags});
    for (uint64_t n = 0; n != 40; ++n) table.mustAdd(keyNumber(n), n);
    for (uint64_t n = 0; n != 40; ++n) {
      const std::string key = keyNumber(n);
      RecordNode *node = table.node(key);
      expect(node != nullptr, "FindNode does not find a key that is there, " + table.kind());
      expect(node->owner == table.get(), "a node's owner is not its instance, " + table.kind());
      expect(table.keyOf(node) == table.image(key), "a node has another key, " + table.kind());
      expect(table.dataOf(node) == table.found(key),
             "Recoff does not lead to the data that Find answers, " + table.kind());
    }
    auto *node = reinterpret_cast<RecordNode *>(&lab);
    const std::string absent = table.image("absent");
    expectStatus(table->FindNode(table.get(), absent.data(), static_cast<int32_t>(absent.size()),
                                 &node, nullptr),
                 MORVA_OK, "FindNode of an absent key " + table.kind());
    expect(node == nullptr, "FindNode did not answer null for an absent key, " + table.kind());
    expectStatus(table->FindNode(table.get(), absent.data(), static_cast<int32_t>(absent.size()),
                                 nullptr, nullptr),
                 MORVA_OK, "FindNode without places " + table.kind());
  }
}

void findNodeReleases(const Subject &subject) {
  Lab lab(subject);
  const Table table(lab, {.keyLength = 8});
  const std::string longer(21, 'x');
  RecordNode *node = nullptr;
  lab.host.forget();
  expectStatus(table->FindNode(table.get(), longer.data(), 21, &node, nullptr), MORVA_INVALID,
               "FindNode of a longer key");
  expectEqual(lab.host.count(Call::release), uint64_t{1},
              "the number of releases by FindNode of a longer key");
  expectEqual(lab.host.count(Call::acquire), uint64_t{0}, "the number of acquisitions by FindNode");
}

void answersRecoff(const Subject &subject) {
  Lab lab(subject);
  const Table variable(lab, {.flags = flagVarKey});
  const size_t wanted[][2] = {{0, 16}, {1, 16}, {4, 16}, {5, 24}, {12, 24}, {13, 32}};
  for (const auto &[length, offset] : wanted) {
    const std::string key(length, 'r');
    variable.mustAdd(key, 1);
    expectEqual(variable->Recoff(variable.get(), variable.node(key)), uint64_t{offset},
                "Recoff of a variable key of " + shown(length) + " bytes");
  }
  expectEqual(variable->Recoff(variable.get(), nullptr), uint64_t{0},
              "Recoff of null with variable keys");
  for (const uint32_t flags : {uint32_t{flagFixedKey}, uint32_t{flagSum}}) {
    const Table table(lab, {.flags = flags});
    table.mustAdd("key", 1);
    expectEqual(table->Recoff(table.get(), table.node("key")), uint64_t{table->dataOffset},
                "Recoff " + table.kind());
  }
}

void fastOperationsByName(const Subject &subject) {
  Lab lab(subject);
  const auto add = lab.file.get<decltype(&MORVAFastAdd)>("MORVAFastAdd");
  const auto replace = lab.file.get<decltype(&MORVAFastReplace)>("MORVAFastReplace");
  const auto find = lab.file.get<decltype(&MORVAFastFind)>("MORVAFastFind");
  const Table plain(lab, {});
  expectStatus(add(plain.get(), plain.payload(1).data(), "key", 3), MORVA_OK, "MORVAFastAdd");
  expectStatus(add(plain.get(), plain.payload(2).data(), "key", 3), MORVA_PRESENT,
               "MORVAFastAdd of a key that is there");
  expectStatus(replace(plain.get(), plain.payload(3).data(), "key", 3), MORVA_OK,
               "MORVAFastReplace");
  void *data = nullptr;
  expectStatus(find(plain.get(), "key", 3, &data), MORVA_OK, "MORVAFastFind");
  plain.mustHold(data, 3, "the record that MORVAFastFind found");
  for (const uint32_t bit : {uint32_t{flagSum}, uint32_t{flagMultiData}}) {
    const Table table(lab, {.flags = flagFixedKey | bit});
    table.mustAdd("key", 4);
    expectStatus(add(table.get(), table.payload(1).data(), "new", 3), MORVA_INVALID,
                 "MORVAFastAdd " + table.kind());
    expectStatus(replace(table.get(), table.payload(1).data(), "key", 3), MORVA_INVALID,
                 "MORVAFastReplace " + table.kind());
    table.expectCount(1);
    table.expectValue("key", 4);
    expectStatus(find(table.get(), "key", 3, &data), MORVA_OK, "MORVAFastFind " + table.kind());
    const ptrdiff_t links = bit == flagMultiData ? sizeof(DupLinks) : 0;
    expect(static_cast<char *>(data) + links == table.found("key"),
           "MORVAFastFind does not answer the place at `dataOffset`, " + table.kind());
  }
}

constexpr Check kChecks[] = {
    {"find.finds-or-not", "Find answers a record's data, or null for a key that is absent.",
     findsOrNot},
    {"find.in-place", "What Find answers is the record itself, to be written to.", findsInPlace},
    {"find.changes-nothing", "Lookups take no memory and change neither trees nor order.",
     changesNothing},
    {"find2.finds", "Find2 finds what Find finds, with the caller's probe and no memory.",
     findsWithAProbe},
    {"find2.takes-keys-in-the-probe", "The key of Find2 may lie in the probe, behind 32 bytes.",
     findsTheKeyInItsProbe},
    {"find2.refuses",
     "Find2 refuses a null probe, and a longer key with a release of the lock not taken.",
     refusesProbes},
    {"find-node.finds", "FindNode answers the node of a key, or null for a key that is absent.",
     findsNodes},
    {"find-node.releases", "FindNode of a longer key releases the lock that it has not taken.",
     findNodeReleases},
    {"recoff.leads-to-the-data", "Recoff answers where a record's data part starts.",
     answersRecoff},
    {"fast.only-where-they-belong",
     "The fast operations refuse to store where sums or duplicates are kept.",
     fastOperationsByName},
};

}  // namespace

std::span<const Check> lookupChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
