// Running sums.
#include <cmath>
#include <cstring>
#include <limits>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

constexpr uint32_t kWithSums[] = {flagFixedKey | flagSum, flagSum,
                                  flagFixedKey | flagSum | flagMultiData,
                                  flagSum | flagMultiData | flagOrdered};

void expectSum(const Table &table, const std::string &key, double sum, const std::string &after) {
  expectEqual(table.sum(key), sum, "the sum " + after + ", " + table.kind() + ',');
}

double sumAt(const Table &table, const void *data) {
  double sum = -1;
  expectStatus(table->SumDup(table.get(), data, &sum), MORVA_OK, "SumDup");
  return sum;
}

void startAtTheIncrement(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithSums) {
    const Table table(lab, {.flags = flags});
    table.mustAdd("early", 1);
    expectSum(table, "early", 0, "of a record added before an increment was set");
    table->SetSumInc(table.get(), 2.5);
    table.mustAdd("late", 1);
    expectSum(table, "late", 2.5, "of a new record");
    expectSum(table, "early", 0, "of a record nobody looked for since");
    expectStatus(table.replace("new", 1), MORVA_OK, "Replace");
    expectSum(table, "new", 2.5, "of a record that Replace stored");
  }
}

void countLookups(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithSums) {
    const Table table(lab, {.flags = flags});
    table.mustAdd("key", 1);
    table.mustAdd("other", 1);
    table->SetSumInc(table.get(), 2.5);
    for (int n = 0; n != 3; ++n) table.found("key");
    expectSum(table, "key", 7.5, "after three finds with an increment of 2.5");
    expectStatus(table.find("key", nullptr), MORVA_OK, "Find without a place");
    expectSum(table, "key", 10, "after a find without a place for its answer");
    const std::string key = table.image("key");
    alignas(8) char probe[128] = {};
    void *data = nullptr;
    expectStatus(table->Find2(table.get(), key.data(), static_cast<int32_t>(key.size()),
                              reinterpret_cast<RecordNode *>(probe), &data),
                 MORVA_OK, "Find2");
    expectSum(table, "key", 12.5, "after a Find2");
    table.node("key");
    expectSum(table, "key", 12.5, "after a FindNode, which does not count,");
    table->SetSumInc(table.get(), -0.5);
    table.found("key");
    expectSum(table, "key", 12, "after a find with an increment of -0.5");
    table->SetSumInc(table.get(), 0);
    table.found("key");
    expectSum(table, "key", 12, "after a find with an increment of 0");
    expectSum(table, "other", 0, "of another key");
  }
}

void readingChangesNothing(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithSums) {
    const Table table(lab, {.flags = flags});
    table->SetSumInc(table.get(), 3);
    table.mustAdd("key", 1);
    for (int n = 0; n != 5; ++n) expectSum(table, "key", 3, "read again and again");
    expectSum(table, "absent", 0, "of an absent key");
    const std::string key = table.image("key");
    expectStatus(table->Sum(table.get(), key.data(), static_cast<int32_t>(key.size()), nullptr),
                 MORVA_OK, "Sum without a place");
    table.expectCount(1);
  }
}

void incrementsAreNumbers(const Subject &subject) {
  Lab lab(subject);
  const Table table(lab, {.flags = flagFixedKey | flagSum});
  table->SetSumInc(table.get(), 4);
  table->SetSumInc(table.get(), std::numeric_limits<double>::quiet_NaN());
  table.mustAdd("key", 1);
  expectSum(table, "key", 4, "after a NaN was given as the increment");
  const Table without(lab, {});
  without->SetSumInc(without.get(), 4);
  without.mustAdd("key", 1);
  without.expectValue("key", 1);
}

void resetByReplacing(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithSums) {
    const Table table(lab, {.flags = flags});
    table->SetSumInc(table.get(), 1);
    table.mustAdd("key", 1);
    table.found("key");
    table->SetSumInc(table.get(), 0.25);
    expectStatus(table.replace("key", 2), MORVA_OK, "Replace");
    expectSum(table, "key", 0.25, "after Replace");
    void *record = table.found("key");
    expectSum(table, "key", 0.5, "after a find");
    expectStatus(table->ReplaceDup(table.get(), record, table.payload(3).data()), MORVA_OK,
                 "ReplaceDup");
    expectSum(table, "key", 0.25, "after ReplaceDup");
  }
}

void keptPerRecord(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags :
       {uint32_t{flagFixedKey | flagSum | flagMultiData}, uint32_t{flagSum | flagMultiData}}) {
    const Table table(lab, {.flags = flags});
    for (uint64_t n = 0; n != 3; ++n) {
      table->SetSumInc(table.get(), static_cast<double>(n + 1));
      table.mustAdd("key", n);
    }
    table->SetSumInc(table.get(), 0);
    const std::vector<void *> records = table.chain("key");
    expectEqual(records.size(), size_t{3}, "the number of records");
    for (size_t n = 0; n != 3; ++n) {
      expectEqual(sumAt(table, records[n]), static_cast<double>(n + 1), "the sum of a duplicate");
    }
    table->SetSumInc(table.get(), 10);
    void *data = nullptr;
    table->FindNext(table.get(), records[0], &data);
    expectEqual(sumAt(table, records[1]), 12.0, "the sum of the record FindNext reached");
    table->FindPrev(table.get(), records[1], &data);
    expectEqual(sumAt(table, records[0]), 11.0, "the sum of the record FindPrev reached");
    table->FindNext(table.get(), records[1], nullptr);
    expectEqual(sumAt(table, records[2]), 13.0, "the sum of the record FindNext reached");
    table->FindNext(table.get(), records[2], &data);
    expectEqual(sumAt(table, records[2]), 13.0, "the sum of the last record after FindNext");
    expectStatus(table.replace("key", 9), MORVA_OK, "Replace");
    expectEqual(sumAt(table, records[0]), 10.0, "the sum of the first record after Replace");
    expectEqual(sumAt(table, records[1]), 12.0, "the sum of a further record after Replace");
    double sum = -1;
    expectStatus(table->SumDup(table.get(), nullptr, &sum), MORVA_OK, "SumDup of null");
    expectEqual(sum, 0.0, "the sum at a null cursor");
    expectStatus(table->SumDup(table.get(), records[0], nullptr), MORVA_OK,
                 "SumDup without a place");
  }
}

void needTheFlag(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, uint32_t{0},
                               uint32_t{flagFixedKey | flagMultiData}}) {
    const Table table(lab, {.flags = flags});
    table.mustAdd("key", 1);
    void *record = table.found("key");
    const std::string key = table.image("key");
    double sum = 17;
    lab.host.forget();
    expectStatus(table->Sum(table.get(), key.data(), static_cast<int32_t>(key.size()), &sum),
                 MORVA_NO_SUM, "Sum " + table.kind());
    expectStatus(table->SumKey(table.get(), record, &sum, 0), MORVA_NO_SUM,
                 "SumKey " + table.kind());
    expectStatus(table->SumDup(table.get(), record, &sum),
                 (flags & flagMultiData) != 0 ? MORVA_NO_SUM : MORVA_INVALID,
                 "SumDup " + table.kind());
    expectEqual(sum, 17.0, "the place for a sum that is not there");
    expectEqual(lab.host.story(), std::string(), "what the host was asked for by refusals");
    table.expectValue("key", 1);
  }
  const Table single(lab, {.flags = flagFixedKey | flagSum});
  double sum = 17;
  single.mustAdd("key", 1);
  expectStatus(single->SumDup(single.get(), single.found("key"), &sum), MORVA_INVALID,
               "SumDup without flagMultiData");
}

void writtenIntoTheRecord(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithSums) {
    const Table table(lab, {.flags = flags, .dataLength = 24});
    table->SetSumInc(table.get(), 6.5);
    table.mustAdd("key", 1);
    table->SetSumInc(table.get(), 0);
    char *record = static_cast<char *>(table.found("key"));
    double sum = -1, stored = -1;
    expectStatus(table->SumKey(table.get(), record, nullptr, 8), MORVA_OK,
                 "SumKey without a place");
    table.expectValue("key", 1);
    expectStatus(table->SumKey(table.get(), record, &sum, 8), MORVA_OK, "SumKey");
    std::memcpy(&stored, record + 8, sizeof stored);
    expectEqual(sum, 6.5, "the sum that SumKey answers, " + table.kind() + ',');
    expectEqual(stored, 6.5, "the sum that SumKey wrote into the record, " + table.kind() + ',');
    const std::string whole = table.payload(1);
    expect(std::memcmp(record, whole.data(), 8) == 0 &&
               std::memcmp(record + 16, whole.data() + 16, 8) == 0,
           "SumKey wrote more of the record than eight bytes");
    expectStatus(table->SumKey(table.get(), nullptr, &sum, 0), MORVA_OK, "SumKey of null");
    expectEqual(sum, 0.0, "the sum at a null cursor");
    expectSum(table, "key", 6.5, "after SumKey");
  }
}

void addUpGroups(const Subject &subject) {
  Lab lab(subject);
  lab.host.keepLog(false);
  const Table table(lab, {.flags = flagFixedKey | flagSum});
  std::vector<double> sums(50, 0);
  Random random(5);
  for (int n = 0; n != 5000; ++n) {
    const uint64_t group = random.below(sums.size());
    const double value = static_cast<double>(random.below(2000)) / 8 - 100;
    sums[group] += value;
    table->SetSumInc(table.get(), value);
    if (table.found(keyNumber(group)) == nullptr) table.mustAdd(keyNumber(group), group);
  }
  for (uint64_t group = 0; group != sums.size(); ++group) {
    expectSum(table, keyNumber(group), sums[group], "of a group");
  }
}

constexpr Check kChecks[] = {
    {"sums.start-at-the-increment", "A new record's sum is the increment, 0 until one is set.",
     startAtTheIncrement},
    {"sums.count-lookups", "Every find that reaches a record adds the increment to its sum.",
     countLookups},
    {"sums.reading-changes-nothing", "Reading a sum changes nothing, and it is 0 for absent keys.",
     readingChangesNothing},
    {"sums.increments-are-numbers", "A NaN is not taken as an increment.", incrementsAreNumbers},
    {"sums.reset-by-replacing", "Replacing sets a sum to the increment.", resetByReplacing},
    {"sums.kept-per-record",
     "Each of a key's records has its own sum, added to when it is reached.", keptPerRecord},
    {"sums.need-the-flag", "Without flagSum the operations of sums are refused.", needTheFlag},
    {"sums.written-into-the-record",
     "SumKey answers a sum and writes it at its place in the data, eight bytes and no more.",
     writtenIntoTheRecord},
    {"sums.add-up-groups", "Setting the increment, then finding or adding, adds up groups.",
     addUpGroups},
};

}  // namespace

std::span<const Check> sumChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
