// Storing, replacing and removing.
#include <cstring>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

// Key modes, with and without what makes the general operations take the place of the fast ones.
constexpr uint32_t kPlainAndSums[] = {flagFixedKey, flagVarKey, 0, flagFixedKey | flagSum, flagSum};

void storesCopies(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kPlainAndSums) {
    const Table table(lab, {.flags = flags});
    std::string key = table.image("a key"), data = table.payload(7);
    const auto length = static_cast<int32_t>(key.size());
    expectStatus(table->Add(table.get(), data.data(), key.data(), length), MORVA_OK, "Add");
    key.assign(key.size(), '!');
    data.assign(data.size(), '!');
    table.expectValue("a key", 7);
    expect(table.found("a key") != data.data(), "the table keeps the caller's data and no copy");
  }
}

void refusesKeysPresent(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kPlainAndSums) {
    const Table table(lab, {.flags = flags});
    for (uint64_t n = 0; n != 50; ++n) table.mustAdd(keyNumber(n), n);
    for (uint64_t n = 0; n != 50; ++n) {
      expectStatus(table.add(keyNumber(n), n + 1000), MORVA_PRESENT,
                   "Add of a key that is there " + table.kind());
      table.expectValue(keyNumber(n), n);
    }
    table.expectCount(50);
  }
}

void replaces(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kPlainAndSums) {
    const Table table(lab, {.flags = flags});
    expectStatus(table.replace("key", 1), MORVA_OK, "Replace of a key that is not there");
    table.expectCount(1);
    table.expectValue("key", 1);
    const void *before = table.found("key");
    expectStatus(table.replace("key", 2), MORVA_OK, "Replace of a key that is there");
    table.expectCount(1);
    table.expectValue("key", 2);
    expect(table.found("key") == before, "Replace moved a record, " + table.kind());
  }
}

void refusesMissingData(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, uint32_t{0},
                               uint32_t{flagFixedKey | flagMultiData}}) {
    const Table table(lab, {.flags = flags});
    table.mustAdd("here", 1);
    const std::string key = table.image("key");
    const auto length = static_cast<int32_t>(key.size());
    expectStatus(table->Add(table.get(), nullptr, key.data(), length), MORVA_INVALID,
                 "Add without data " + table.kind());
    expectStatus(table->Replace(table.get(), nullptr, key.data(), length), MORVA_INVALID,
                 "Replace without data " + table.kind());
    expectStatus(table->ReplaceDup(table.get(), table.found("here"), nullptr), MORVA_INVALID,
                 "ReplaceDup without data " + table.kind());
    table.expectCount(1);
    table.expectAbsent("key");
    const Table bare(lab, {.flags = flags, .dataLength = 0});
    expectStatus(bare->Add(bare.get(), nullptr, key.data(), length), MORVA_OK,
                 "Add of null data where records have none, " + table.kind());
    expectStatus(bare->Replace(bare.get(), nullptr, key.data(), length), MORVA_OK,
                 "Replace by null data where records have none, " + table.kind());
    expect(bare.found("key") != nullptr, "a record without data is not found, " + table.kind());
  }
  lab.expectNoComplaints();
}

void storesAllDataLengths(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, uint32_t{0},
                               uint32_t{flagFixedKey | flagSum | flagMultiData}}) {
    for (const uint32_t length : {0U, 1U, 3U, 8U, 13U, 16U, 100U, 5000U}) {
      const Table table(lab, {.flags = flags, .dataLength = length});
      for (uint64_t n = 0; n != 40; ++n) table.mustAdd(keyNumber(n), n);
      for (uint64_t n = 0; n < 40; n += 2) {
        expectStatus(table.replace(keyNumber(n), n + 500), MORVA_OK, "Replace");
      }
      for (uint64_t n = 0; n != 40; ++n) {
        table.expectValue(keyNumber(n), n % 2 == 0 ? n + 500 : n);
      }
    }
  }
}

void staysWithinItsBlocks(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    for (const uint32_t length : {0U, 1U, 17U}) {
      // Sixteen records fill the first block to its end.
      const Table table(lab, {.flags = flags, .dataLength = length, .keyLength = 13});
      for (uint64_t n = 0; n != 16; ++n) table.mustAdd(keyNumber(n), n);
      for (uint64_t n = 0; n != 16; ++n) table.replace(keyNumber(n), ~n);
    }
  }
  lab.expectNoComplaints();
}

void removes(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kPlainAndSums) {
    const Table table(lab, {.flags = flags, .hashExp = 2});
    for (uint64_t n = 0; n != 200; ++n) table.mustAdd(keyNumber(n), n);
    for (uint64_t n = 0; n < 200; n += 2) {
      table.mustRemove(keyNumber(n));
      table.expectAbsent(keyNumber(n));
    }
    table.expectCount(100);
    for (uint64_t n = 1; n < 200; n += 2) table.expectValue(keyNumber(n), n);
    for (uint64_t n = 1; n < 200; n += 2) table.mustRemove(keyNumber(n));
    table.expectCount(0);
  }
}

void refusesToRemoveNothing(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kPlainAndSums) {
    const Table table(lab, {.flags = flags});
    expectStatus(table.remove("key"), MORVA_INVALID, "Remove from an empty table " + table.kind());
    table.mustAdd("other", 1);
    expectStatus(table.remove("key"), MORVA_INVALID,
                 "Remove of a key that is not there " + table.kind());
    table.mustAdd("key", 2);
    table.mustRemove("key");
    expectStatus(table.remove("key"), MORVA_INVALID, "Remove of a removed key " + table.kind());
    table.expectCount(1);
    table.expectValue("other", 1);
  }
}

void addsAgain(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kPlainAndSums) {
    const Table table(lab, {.flags = flags});
    for (uint64_t n = 0; n != 60; ++n) {
      table.mustAdd("key", n);
      table.expectValue("key", n);
      table.mustRemove("key");
    }
    table.expectCount(0);
  }
}

void holdsManyRecords(const Subject &subject) {
  Lab lab(subject);
  lab.host.keepLog(false);
  constexpr uint64_t kCount = 20000;
  for (const uint32_t mode : kKeyModes) {
    const Table table(lab, {.flags = mode, .hashExp = 6});
    for (uint64_t n = 0; n != kCount; ++n) table.mustAdd(keyNumber(n), n);
    table.expectCount(kCount);
    for (uint64_t n = 0; n != kCount; ++n) table.expectValue(keyNumber(n), n);
    for (uint64_t n = kCount; n != kCount + 100; ++n) table.expectAbsent(keyNumber(n));
  }
}

void refusesNullInstances(const Subject &subject) {
  Lab lab(subject);
  const Table table(lab, {.flags = flagFixedKey | flagSum | flagMultiData});
  const Table plain(lab, {});
  table.mustAdd("key", 1);
  for (const MORVAInst *slots : {table.get(), plain.get()}) {
    alignas(8) char probe[128] = {};
    void *data = table.found("key");
    void *const before = data;
    void *cursor = data;
    uint32_t number = 17;
    double sum = 17;
    RecordNode *node = nullptr;
    expectStatus(slots->Add(nullptr, "12345678", "key", 3), MORVA_INVALID, "Add on null");
    expectStatus(slots->Replace(nullptr, "12345678", "key", 3), MORVA_INVALID, "Replace on null");
    expectStatus(slots->Find(nullptr, "key", 3, &data), MORVA_INVALID, "Find on null");
    expectStatus(slots->Find2(nullptr, "key", 3, reinterpret_cast<RecordNode *>(probe), &data),
                 MORVA_INVALID, "Find2 on null");
    expectStatus(slots->FindNode(nullptr, "key", 3, &node, &number), MORVA_INVALID,
                 "FindNode on null");
    expectStatus(slots->HashVal(nullptr, "key", 3, &number), MORVA_INVALID, "HashVal on null");
    expectStatus(slots->Remove(nullptr, "key", 3), MORVA_INVALID, "Remove on null");
    expectStatus(slots->RemoveDup(nullptr, &cursor, "key", 3), MORVA_INVALID, "RemoveDup on null");
    expectStatus(slots->FindNext(nullptr, data, &data), MORVA_INVALID, "FindNext on null");
    expectStatus(slots->FindPrev(nullptr, data, &data), MORVA_INVALID, "FindPrev on null");
    expectStatus(slots->ReplaceDup(nullptr, data, "12345678"), MORVA_INVALID, "ReplaceDup on null");
    expectStatus(slots->Sum(nullptr, "key", 3, &sum), MORVA_INVALID, "Sum on null");
    expectStatus(slots->SumDup(nullptr, data, &sum), MORVA_INVALID, "SumDup on null");
    expectStatus(slots->SumKey(nullptr, data, &sum, 0), MORVA_INVALID, "SumKey on null");
    expectStatus(slots->Clear(nullptr), MORVA_INVALID, "Clear on null");
    expectStatus(slots->Clear2(nullptr), MORVA_INVALID, "Clear2 on null");
    expectStatus(slots->Equals(nullptr, table.get(), &number), MORVA_INVALID, "Equals on null");
    expectStatus(slots->Equals(table.get(), nullptr, &number), MORVA_INVALID, "Equals with null");
    slots->SetSumInc(nullptr, 1);
    expectEqual(slots->HasNext(nullptr, data), 0U, "HasNext on null");
    expectEqual(slots->HasPrev(nullptr, data), 0U, "HasPrev on null");
    expectEqual(slots->NumElements(nullptr), 0U, "NumElements on null");
    expectEqual(slots->HashSize(nullptr), 0U, "HashSize on null");
    expectEqual(slots->BucketSize(nullptr, 0), 0U, "BucketSize on null");
    expectEqual(slots->RecSize(nullptr), 0U, "RecSize on null");
    expectEqual(slots->TotalMem(nullptr), uint64_t{0}, "TotalMem on null");
    expectEqual(slots->Recoff(nullptr, table.node("key")), uint64_t{0}, "Recoff on null");
    expect(data == before && cursor == before && number == 17 && sum == 17 && node == nullptr,
           "an operation on null wrote to a place for its answer");
  }
}

constexpr Check kChecks[] = {
    {"store.copies",
     "Keys and data are copied; what the caller does with its own later is no matter.",
     storesCopies},
    {"store.refuses-keys-present",
     "Adding a key that is there answers MORVA_PRESENT and changes nothing.", refusesKeysPresent},
    {"store.replaces", "Replacing stores a key or overwrites its data where it lies.", replaces},
    {"store.refuses-missing-data", "Null data is refused, but where records have none.",
     refusesMissingData},
    {"store.all-data-lengths", "Data of every length is stored whole and disturbs no other.",
     storesAllDataLengths},
    {"store.stays-within-its-blocks", "Nothing is written beyond a block of memory.",
     staysWithinItsBlocks},
    {"store.many-records", "Twenty thousand records are all there, with their data.",
     holdsManyRecords},
    {"remove.removes", "A removed key is gone, and no other.", removes},
    {"remove.refuses-absent-keys", "Removing a key that is not there is refused.",
     refusesToRemoveNothing},
    {"remove.lets-add-again", "A removed key can be added again, with other data.", addsAgain},
    {"operations.refuse-null", "Every operation refuses a null instance and writes nothing.",
     refusesNullInstances},
};

}  // namespace

std::span<const Check> storeChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
