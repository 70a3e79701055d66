// Clearing, destroying and pinned records.
#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

using ClearSlot = MORVAStatus (*MORVAInst::*)(MORVAInst *);
constexpr ClearSlot kClears[] = {&MORVAInst::Clear, &MORVAInst::Clear2};

void fill(const Table &table, uint64_t count = 60) {
  for (uint64_t n = 0; n != count; ++n) {
    table.mustAdd(keyNumber(n), n);
    if (table.shape().has(flagMultiData) && n % 4 == 0) table.mustAdd(keyNumber(n), n + 1000);
  }
}

void expectEmpty(const Lab &lab, const Table &table) {
  table.expectCount(0);
  expectEqual(table->buckets->usedBuckets, 0U, "the used buckets after a clear, " + table.kind());
  for (uint32_t index = 0; index <= table->buckets->mask; ++index) {
    const Bucket *bucket = MORVABucketAt(table->buckets, index);
    expect(bucket->root == nullptr && bucket->count == 0,
           "a bucket is not empty after a clear, " + table.kind());
  }
  for (uint64_t n = 0; n != 60; ++n) table.expectAbsent(keyNumber(n));
  if (table.shape().has(flagOrdered)) {
    expectEqual(lab.host.order(table.get()).size(), size_t{0},
                "the number of records in the order after a clear");
  }
}

void empties(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    for (const ClearSlot clear : kClears) {
      const Table table(lab, {.flags = flags});
      expectStatus((table.get()->*clear)(table.get()), MORVA_OK, "clearing an empty table");
      for (int round = 0; round != 2; ++round) {
        fill(table);
        expectStatus((table.get()->*clear)(table.get()), MORVA_OK, "clearing " + table.kind());
        expectEmpty(lab, table);
        expectStatus((table.get()->*clear)(table.get()), MORVA_OK, "clearing twice");
      }
      fill(table);
      for (uint64_t n = 0; n != 60; ++n) table.expectValue(keyNumber(n), n);
    }
  }
  lab.expectNoComplaints();
}

void givesMemoryBack(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    Table table(lab, {.flags = flags});
    fill(table);
    expectStatus(table->Clear(table.get()), MORVA_OK, "Clear");
    for (const char *pool : {"records", "varkeys", "inodes"}) {
      expectEqual(lab.host.blocksAlive(pool), uint64_t{0},
                  std::string("the number of blocks of the pool \"") + pool + "\" after Clear, " +
                      table.kind() + ',');
    }
    expectEqual(table->TotalMem(table.get()), uint64_t{0}, "TotalMem after Clear");
    table.destroy();
  }
  lab.expectNoComplaints();
}

void keepsMemory(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    const Table table(lab, {.flags = flags});
    fill(table);
    table.expectAbsent("absent");
    const uint64_t memory = table->TotalMem(table.get());
    lab.host.forget();
    expectStatus(table->Clear2(table.get()), MORVA_OK, "Clear2");
    expectEqual(lab.host.count(Call::freeBlock), uint64_t{0}, "the number of blocks Clear2 frees");
    expectEqual(table->TotalMem(table.get()), memory, "TotalMem after Clear2");
    if (!table.shape().has(flagVarKey)) {
      fill(table);
      expectEqual(lab.host.count(Call::allocate), uint64_t{0},
                  "the number of blocks taken to add as many records again, " + table.kind() + ',');
    }
  }
}

void keepsTheDefinition(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    for (const ClearSlot clear : kClears) {
      const Table table(lab, {.flags = flags});
      const uint32_t size = table->RecSize(table.get());
      const uint32_t bits = table->flags;
      (table.get()->*clear)(table.get());
      expectEqual(table->flags, bits, "the option bits after a clear");
      expectEqual(table->RecSize(table.get()), size, "RecSize after a clear");
      expectEqual(table->HashSize(table.get()), 16U, "HashSize after a clear");
      table.mustAdd("key", 1);
      table.expectValue("key", 1);
    }
  }
}

void tellsTheCompanions(const Subject &subject) {
  RecordingHost::Options options;
  options.treeLocks = options.orderListLock = true;
  Lab lab(subject, options);
  const Table table(lab, {.flags = flagFixedKey | flagOrdered});
  for (const bool keep : {false, true}) {
    fill(table);
    lab.host.forget();
    bool early = false, late = false;
    lab.host.onEvent = [&](const Event &event) {
      if (event.text != "order") return;
      // Clear2 has emptied the list before, a record at a time.
      if (event.call == Call::acquire) early = !keep && table->orderList->head == nullptr;
      if (event.call == Call::release) late = table->orderList->head != nullptr;
    };
    expectStatus(keep ? table->Clear2(table.get()) : table->Clear(table.get()), MORVA_OK,
                 "clearing");
    lab.host.onEvent = nullptr;
    expect(!early && !late, "the head of the order list is not set to 0 under its lock");
    expect(table->orderList->head == nullptr, "the head of the order list is not 0 after a clear");
    if (keep)
      expect(table->tree->head == nullptr, "the tree container's head is not 0 after Clear2");
    expectEqual(lab.host.locksHeld(), uint64_t{0}, "the number of locks held after a clear");
    uint64_t order = 0, tree = 0;
    for (const Event &event : lab.host.eventsOf(Call::acquire)) {
      order += event.text == "order" ? 1 : 0;
      tree += event.text == "tree" ? 1 : 0;
    }
    expectEqual(order, uint64_t{1}, "the number of times the order list's lock is taken");
    if (keep) expectEqual(tree, uint64_t{1}, "the number of times the container's lock is taken");
  }
  lab.expectNoComplaints();
}

void destroysEverything(const Subject &subject) {
  for (const uint32_t flags : allFlags()) {
    Lab lab(subject);
    Table table(lab, {.flags = flags});
    fill(table);
    table.mustRemove(keyNumber(7));
    table.destroy();
    expectEqual(lab.host.alive(), std::string("1 pools, 1 blocks"),
                "what is alive after Destroy, " + described({.flags = flags}) + ',');
    lab.end();
    lab.expectNothingLeft();
    lab.expectNoComplaints();
  }
}

void destroysInOrder(const Subject &subject) {
  Lab lab(subject);
  MORVAInst *undefined = createInstance(lab.ext, {.flags = 0});
  expect(undefined != nullptr, "Create answered null");
  expectStatus(undefined->Destroy(undefined), MORVA_OK, "Destroy of an instance not defined");
  Table table(lab, {.flags = flagOrdered | flagMultiData});
  fill(table);
  lab.host.forget();
  table.destroy();
  expectEqual(lab.host.count(Call::acquire) + lab.host.count(Call::release), uint64_t{0},
              "the number of times Destroy uses a lock");
  expectEqual(lab.host.count(Call::treeFirst) + lab.host.count(Call::treeNext), uint64_t{0},
              "the number of steps Destroy walks through the records");
  lab.end();
  lab.expectNothingLeft();
  lab.expectNoComplaints();
}

PinnedEntry *pin(const Lab &lab, MORVAInst *inst, RecordNode *node) {
  auto *entry =
      static_cast<PinnedEntry *>(lab.ext->pool->allocate(lab.ext->pool, sizeof(PinnedEntry), 0));
  expect(entry != nullptr, "there is no memory for a pinned entry");
  *entry = {inst->pinned, node};
  inst->pinned = entry;
  return entry;
}

void pinsKeepRecords(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    const Table table(lab, {.flags = flags});
    fill(table);
    pin(lab, table.get(), table.node(keyNumber(3)));
    pin(lab, table.get(), table.node(keyNumber(8)));
    expectStatus(table.remove(keyNumber(3)), MORVA_PINNED, "Remove of a pinned record");
    expectStatus(table.remove(keyNumber(8)), MORVA_PINNED, "Remove of a pinned record");
    table.expectValue(keyNumber(3), 3);
    table.expectValue(keyNumber(8), 8);
    if ((flags & flagMultiData) != 0) {
      const std::string key = table.image(keyNumber(8));
      for (void *const record : table.chain(keyNumber(8))) {
        void *cursor = record;
        expectStatus(
            table->RemoveDup(table.get(), &cursor, key.data(), static_cast<int32_t>(key.size())),
            MORVA_PINNED, "RemoveDup of a pinned key's record");
        expect(cursor == record, "RemoveDup emptied the cursor of a pinned record");
      }
    }
    table.mustRemove(keyNumber(4));
    table->pinned = nullptr;
    table.mustRemove(keyNumber(3));
    table.mustRemove(keyNumber(8));
  }
}

void clearsReportPins(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    for (const ClearSlot clear : kClears) {
      const Table table(lab, {.flags = flags});
      fill(table);
      RecordNode *node = table.node(keyNumber(5));
      pin(lab, table.get(), node);
      expectStatus((table.get()->*clear)(table.get()), MORVA_PINNED, "clearing a pinned record");
      table->pinned = nullptr;
      expectEmpty(lab, table);
      if (clear == &MORVAInst::Clear2 && (flags & flagVarKey) == 0) {
        for (uint64_t n = 0; n != 200; ++n) {
          table.mustAdd(keyNumber(n), n);
          expect(table.node(keyNumber(n)) != node, "Clear2 let a pinned node be used again");
        }
      }
    }
  }
  lab.expectNoComplaints();
}

void destroyFreesPins(const Subject &subject) {
  Lab lab(subject);
  Table table(lab, {});
  fill(table);
  pin(lab, table.get(), table.node(keyNumber(5)));
  pin(lab, table.get(), nullptr);
  for (int n = 0; n != 3; ++n) {
    auto *block = static_cast<void **>(lab.ext->pool->allocate(lab.ext->pool, 40, 0));
    expect(block != nullptr, "there is no memory for a block");
    *block = table->extraBlocksB;
    table->extraBlocksB = block;
  }
  table.destroy();
  expectEqual(
      lab.host.alive(), std::string("1 pools, 1 blocks"),
      "what is alive after an instance with pinned entries and extra blocks was destroyed,");
  lab.expectNoComplaints();
}

constexpr Check kChecks[] = {
    {"clear.empties", "Both clears empty every bucket, the counts and the order.", empties},
    {"clear.gives-memory-back", "Clear gives all record memory back to the pools.",
     givesMemoryBack},
    {"clear.keeps-memory", "Clear2 keeps the memory, and as many records again take none.",
     keepsMemory},
    {"clear.keeps-the-definition", "A cleared instance is defined as before and can be used.",
     keepsTheDefinition},
    {"clear.tells-the-companions",
     "Clears set the heads of the container and the order list to 0, under their locks.",
     tellsTheCompanions},
    {"destroy.leaves-nothing",
     "After Destroy and RealDestroy no pool, block, lock or companion is alive.",
     destroysEverything},
    {"destroy.walks-nothing",
     "Destroy takes no lock, walks no records, and also ends what is not defined yet.",
     destroysInOrder},
    {"pins.keep-records", "A pinned record is not removed.", pinsKeepRecords},
    {"pins.are-reported-by-clears",
     "Clears empty pinned buckets too and tell; Clear2 leaves pinned nodes out of use.",
     clearsReportPins},
    {"pins.end-with-the-instance", "Destroy frees the pinned entries and the extra blocks.",
     destroyFreesPins},
};

}  // namespace

std::span<const Check> clearChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
