// When the host has no memory, and what is done with what it gave.
#include <map>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

// Fills a table while now and then a call of the host fails, and compares it with what was stored.
void addsOrNothing(const Subject &subject) {
  for (const uint32_t flags : allFlags()) {
    if ((flags & flagOrdered) != 0) continue;
    Lab lab(subject);
    Table table(lab, {.flags = flags, .hashExp = 2});
    std::map<std::string, uint64_t> model;
    for (uint64_t n = 0; n != 120; ++n) {
      const std::string key = keyNumber(n);
      // Each growth fails once before it is let through.
      lab.host.failCall(Call::allocate);
      const MORVAStatus status = table.add(key, n);
      const bool failed = lab.host.failuresDelivered() != 0;
      lab.host.failNever();
      expectStatus(status, failed ? MORVA_NO_MEMORY : MORVA_OK, "Add " + table.kind());
      if (failed) {
        table.expectCount(static_cast<uint32_t>(model.size()));
        table.expectAbsent(key);
        table.mustAdd(key, n);
      }
      model[key] = n;
    }
    for (const auto &[key, value] : model) table.expectValue(key, value);
    table.destroy();
    expectEqual(lab.host.alive(), std::string("1 pools, 1 blocks"), "what is alive after Destroy");
    lab.expectNoComplaints();
  }
}

struct Attempt {
  const char *name;
  MORVAStatus (*call)(const Table &table, void **data);
};

constexpr Attempt kAttempts[] = {
    {"Add", [](const Table &t, void **) { return t.add("new", 1); }},
    {"Replace", [](const Table &t, void **) { return t.replace("new", 1); }},
    {"Find", [](const Table &t, void **data) { return t.find(keyNumber(1), data); }},
    {"Remove", [](const Table &t, void **) { return t.remove(keyNumber(1)); }},
    {"HashVal",
     [](const Table &t, void **) {
       const std::string key = t.image("new");
       uint32_t bucket = 0;
       return t->HashVal(t.get(), key.data(), static_cast<int32_t>(key.size()), &bucket);
     }},
};

// Sixteen records fill the first block, so that whatever needs a slot needs a block.
void everyOperationFailsCleanly(const Subject &subject) {
  for (const uint32_t flags : allFlags()) {
    for (const Attempt &attempt : kAttempts) {
      Lab lab(subject);
      Table table(lab, {.flags = flags & ~uint32_t{flagOrdered}});
      for (uint64_t n = 0; n != 16; ++n) table.mustAdd(keyNumber(n), n);
      // With variable keys free nodes stay of the probes, if any.
      for (uint64_t n = 16; table->freeRecords != nullptr && n != 64; ++n) {
        table.mustAdd(keyNumber(n), n);
      }
      const uint32_t count = table->NumElements(table.get());
      const uint64_t memory = table->TotalMem(table.get());
      lab.host.failFromNth(1);
      void *data = &lab;
      const MORVAStatus status = attempt.call(table, &data);
      const bool failed = lab.host.failuresDelivered() != 0;
      lab.host.failNever();
      const std::string what = std::string(attempt.name) + " without memory, " + table.kind();
      if (failed) {
        expectStatus(status, MORVA_NO_MEMORY, what);
        expect(data == &lab, what + " wrote to a place for its answer");
        expectEqual(table->TotalMem(table.get()), memory, "TotalMem after " + what);
        table.expectCount(count);
      }
      for (uint64_t n = 1; n != count; ++n) {
        if (failed || n != 1) table.expectValue(keyNumber(n), n);
      }
      table.mustAdd("later", 3);
      table.expectValue("later", 3);
      lab.expectNoComplaints();
    }
  }
}

void survivesOrderNodes(const Subject &subject) {
  for (const uint32_t flags : allFlags()) {
    if ((flags & flagOrdered) == 0) continue;
    Lab lab(subject);
    Table table(lab, {.flags = flags});
    for (uint64_t n = 0; n != 16; ++n) table.mustAdd(keyNumber(n), n);
    // Of the calls that fail, one is the block of order nodes.
    bool orderNodeFailed = false;
    for (uint64_t n = 16; n != 80; ++n) {
      lab.host.failCall(Call::allocate);
      const uint32_t count = table->NumElements(table.get());
      const MORVAStatus status = table.add(keyNumber(n), n);
      const bool failed = lab.host.failuresDelivered() != 0;
      lab.host.failNever();
      expectStatus(status, failed ? MORVA_NO_MEMORY : MORVA_OK, "Add " + table.kind());
      if (!failed) continue;
      table.expectCount(count);
      if (table.found(keyNumber(n)) != nullptr) orderNodeFailed = true;
    }
    expect(orderNodeFailed, "a record whose order node could not be had is not findable");
    for (uint64_t n = 0; n != 16; ++n) table.expectValue(keyNumber(n), n);
    expectStatus(table->Clear(table.get()), MORVA_OK, "Clear after order nodes could not be had");
    table.expectCount(0);
    for (uint64_t n = 0; n != 80; ++n) table.expectAbsent(keyNumber(n));
    table.mustAdd("key", 1);
    table.expectValue("key", 1);
    table.destroy();
    lab.expectNoComplaints();
  }
}

void doesNotCareForGarbage(const Subject &subject) {
  for (const uint32_t flags : allFlags()) {
    for (const uint8_t garbage : {0x00, 0xFF, 0x01, 0x7E}) {
      RecordingHost::Options options;
      options.garbage = garbage;
      Lab lab(subject, options);
      const Table table(lab, {.flags = flags, .dataLength = 9});
      for (uint64_t n = 0; n != 70; ++n) table.mustAdd(keyNumber(n), n);
      for (uint64_t n = 0; n < 70; n += 3) table.mustRemove(keyNumber(n));
      for (uint64_t n = 0; n != 70; ++n) {
        if (n % 3 == 0) {
          table.expectAbsent(keyNumber(n));
        } else {
          table.expectValue(keyNumber(n), n);
        }
      }
      if ((flags & flagSum) != 0)
        expectEqual(table.sum(keyNumber(1)), 0.0, "the sum of a new record");
    }
  }
}

void takesAnyAddresses(const Subject &subject) {
  RecordingHost::Options options;
  options.poolAddressesAscend = true;
  Lab lab(subject, options);
  for (const uint32_t flags : allFlags()) {
    Table table(lab, {.flags = flags});
    for (uint64_t n = 0; n != 200; ++n) table.mustAdd(keyNumber(n), n);
    for (uint64_t n = 0; n != 200; ++n) table.expectValue(keyNumber(n), n);
    table.destroy();
  }
  lab.expectNoComplaints();
}

void asksForZeros(const Subject &subject) {
  Lab lab(subject);
  lab.host.forget();
  const Table table(lab, {});
  for (const Event &event : lab.host.eventsOf(Call::allocate)) {
    const bool zero = event.b == MORVA_ZERO_FILL;
    if (event.c == reinterpret_cast<uintptr_t>(table.get())) {
      expect(zero, "the memory of an instance is not asked for as zeros");
    } else if (event.c == reinterpret_cast<uintptr_t>(table->buckets)) {
      expect(zero, "the memory of the buckets is not asked for as zeros");
    }
  }
  lab.host.forget();
  table.mustAdd("key", 1);
  for (const Event &event : lab.host.eventsOf(Call::allocate)) {
    expectEqual(event.b, uint64_t{0}, "the option word of a block of records");
  }
}

constexpr Check kChecks[] = {
    {"memory.adds-or-nothing",
     "An addition without memory changes nothing, and works once there is.", addsOrNothing},
    {"memory.operations-fail-cleanly",
     "Every operation that needs memory answers MORVA_NO_MEMORY without it and changes nothing.",
     everyOperationFailsCleanly},
    {"memory.survives-order-nodes",
     "A record without its order node is findable and uncounted, and a clear ends it.",
     survivesOrderNodes},
    {"memory.does-not-care-for-garbage", "What was in memory before makes no difference.",
     doesNotCareForGarbage},
    {"memory.takes-any-addresses", "Blocks may lie anywhere and never come back.",
     takesAnyAddresses},
    {"memory.asks-for-zeros", "Instances and buckets are taken as zeros, records as they are.",
     asksForZeros},
};

}  // namespace

std::span<const Check> memoryChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
