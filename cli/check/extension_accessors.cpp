// What an instance answers about itself.
#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

void countRecords(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    const Table table(lab, {.flags = flags});
    table.expectCount(0);
    for (uint64_t n = 0; n != 30; ++n) {
      table.mustAdd(keyNumber(n), n);
      table.expectCount(static_cast<uint32_t>(n + 1));
    }
    table.replace(keyNumber(3), 1);
    table.expectCount(30);
    for (uint64_t n = 0; n != 30; ++n) {
      table.mustRemove(keyNumber(n));
      table.expectCount(static_cast<uint32_t>(29 - n));
    }
  }
}

void countBuckets(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t mode : kKeyModes) {
    const Table table(lab, {.flags = mode});
    std::vector<uint32_t> counts(16, 0);
    const auto expectCounts = [&] {
      uint32_t used = 0;
      for (uint32_t index = 0; index != 16; ++index) {
        expectEqual(table->BucketSize(table.get(), index), counts[index],
                    "BucketSize of bucket " + shown(index) + ", " + table.kind() + ',');
        used += counts[index] != 0 ? 1 : 0;
      }
      expectEqual(table->buckets->usedBuckets, used, "the used buckets, " + table.kind() + ',');
    };
    for (uint64_t n = 0; n != 60; ++n) {
      uint32_t bucket = 99;
      table.node(keyNumber(n), &bucket);
      expect(bucket < 16, "FindNode answers a bucket that is not there");
      table.mustAdd(keyNumber(n), n);
      ++counts[bucket];
      if (n % 10 == 0) expectCounts();
    }
    for (uint64_t n = 0; n != 60; ++n) {
      uint32_t bucket = 99;
      table.node(keyNumber(n), &bucket);
      table.mustRemove(keyNumber(n));
      --counts[bucket];
      if (n % 10 == 0) expectCounts();
    }
    expectCounts();
    for (const uint32_t beyond : {16U, 17U, 0xFFFFFFFFU}) {
      expectEqual(table->BucketSize(table.get(), beyond), 0U, "BucketSize beyond the last bucket");
    }
  }
}

void answerTheMemory(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : {uint32_t{flagFixedKey}, uint32_t{0},
                               uint32_t{flagFixedKey | flagOrdered | flagMultiData}}) {
    Table table(lab, {.flags = flags});
    expectEqual(table->TotalMem(table.get()), uint64_t{0}, "TotalMem of a new instance");
    for (uint64_t n = 0; n != 500; ++n) {
      table.mustAdd(keyNumber(n), n);
      expectEqual(table->TotalMem(table.get()), lab.host.bytesAlive("records"),
                  "TotalMem, which the host counts too, " + table.kind() + ',');
    }
    expectEqual(uint64_t{table->recordBlockCount}, lab.host.blocksAlive("records"),
                "`recordBlockCount`");
    const uint64_t memory = table->TotalMem(table.get());
    for (uint64_t n = 0; n != 500; ++n) table.mustRemove(keyNumber(n));
    expectEqual(table->TotalMem(table.get()), memory, "TotalMem after records were removed");
    table.destroy();
  }
}

void answerTheSlot(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    if ((flags & flagVarKey) != 0) continue;
    const Table table(lab, {.flags = flags, .dataLength = 21});
    const uint32_t slot = table->RecSize(table.get());
    expectEqual(slot % 16, 0U, "RecSize modulo 16");
    expect(slot >= sizeof(RecordNode) + table->recordSize, "RecSize is less than a record takes");
    expect(slot < sizeof(RecordNode) + table->recordSize + 32, "RecSize is more than a slot takes");
  }
  const Table variable(lab, {.flags = flagVarKey, .dataLength = 8});
  variable.mustAdd(std::string(20, 'x'), 1);
  expectEqual(variable->RecSize(variable.get()), 80U,
              "RecSize after a variable key of 20 bytes with data of 8");
}

void takeNoLock(const Subject &subject) {
  Lab lab(subject);
  const Table table(lab, {.flags = flagFixedKey | flagSum});
  table.mustAdd("key", 1);
  RecordNode *node = table.node("key");
  lab.host.forget();
  const MORVAInst *inst = table.get();
  inst->NumElements(inst);
  inst->HashSize(inst);
  inst->BucketSize(inst, 3);
  inst->RecSize(inst);
  inst->TotalMem(inst);
  inst->Recoff(inst, node);
  inst->SetSumInc(table.get(), 3);
  expectEqual(lab.host.story(), std::string(), "what the host was asked for by accessors");
}

constexpr Check kChecks[] = {
    {"accessors.count-records", "NumElements is the number of records stored.", countRecords},
    {"accessors.count-buckets",
     "BucketSize counts a bucket's records, usedBuckets those that have any; 0 beyond the last.",
     countBuckets},
    {"accessors.answer-the-memory", "TotalMem is what was taken from the pool \"records\".",
     answerTheMemory},
    {"accessors.answer-the-slot", "RecSize is what a record takes, rounded up to 16.",
     answerTheSlot},
    {"accessors.call-nothing", "The accessors and SetSumInc take no lock and call nothing.",
     takeNoLock},
};

}  // namespace

std::span<const Check> accessorChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
