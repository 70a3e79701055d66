// Whole tables, one thread at a time.

#include <memory>
#include <string>
#include <vector>

#include "host_checks.h"
#include "host_table_model.h"

namespace morva::cli::check {

namespace {

constexpr uint32_t kAnyKey = flagNoLock | flagLockOpt | flagOrdered;
constexpr uint32_t kBoundedKey = kAnyKey | flagSum | flagMultiData;

void onTables(const Subject &subject, void (*check)(Host &host, const Extension &extension)) {
  onHostsOfBothKinds(subject, [&](Host &host) {
    const DrivingLibrary library(subject);
    const Extension extension(library, host);
    expect(extension.get() != nullptr, "the library's entry function answers null");
    check(host, extension);
    extension.destroy();
    host.endWithNothingLeft();
  });
}

void work(Host &host, const Extension &extension, const std::vector<TableShape> &shapes) {
  Random numbers(1);
  for (const TableShape &shape : shapes) {
    ModelTable table(host, extension, shape);
    for (int step = 0; step < 700; ++step) table.doAnything(numbers, 60);
    table.verify();
    table.destroy();
  }
}

void beginAndEnd(Host &, const Extension &extension) {
  int64_t numbers[3] = {};
  expectStatus(
      extension.get()->GetReqVersion(extension.get(), &numbers[0], &numbers[1], &numbers[2]),
      MORVA_OK, "GetReqVersion");
  expect(extension.get()->pool != nullptr, "the extension has no pool");
}

void workWithFixedKeys(Host &host, const Extension &extension) {
  work(host, extension, everyShape(flagFixedKey, kBoundedKey));
}

void workWithVariableKeys(Host &host, const Extension &extension) {
  work(host, extension, everyShape(flagVarKey, kAnyKey));
}

void workWithTypedKeys(Host &host, const Extension &extension) {
  for (const MORVAHostKey *kind : keyKinds(host)) {
    work(host, extension, everyShape(0, kBoundedKey, kind));
  }
}

void keepTheOrder(Host &host, const Extension &extension) {
  if (host.table().orderFirst == nullptr) {
    throw NotApplicable("the host has no walk of its order lists");
  }
  for (const uint32_t mode : {flagFixedKey, flagVarKey}) {
    ModelTable table(host, extension, {static_cast<uint32_t>(mode | flagOrdered)});
    for (uint64_t i = 0; i < 600; ++i) table.add(i * 7 % 600);
    table.verify();
    for (uint64_t i = 0; i < 600; i += 3) table.remove(i);
    table.verify();
    for (uint64_t i = 0; i < 600; i += 2) table.replace(i);
    table.verify();
    table.destroy();
  }
}

void areClearedAndFilledAgain(Host &host, const Extension &extension) {
  for (const uint32_t flags : {flagFixedKey | flagOrdered, flagVarKey | flagOrdered,
                               flagFixedKey | flagOrdered | flagMultiData | flagNoLock}) {
    ModelTable table(host, extension, {flags});
    for (int round = 0; round < 12; ++round) {
      for (uint64_t i = 0; i < 150; ++i) table.add(i * (round % 2 == 0 ? 1 : 7) % 150);
      for (uint64_t i = 0; i < 150; i += 4) table.remove(i);
      table.verify();
      table.clear(round % 3 == 0);
      if (round % 4 == 0) table.remove(1);
      table.verify();
    }
    table.destroy();
  }
}

void growLarge(Host &, const Extension &extension) {
  for (const uint32_t flags : {flagFixedKey, flagVarKey}) {
    TableShape shape{flags};
    shape.hashExp = 12;
    MORVAInst *inst = newInstance(extension, shape);
    expect(inst != nullptr, "an instance cannot be made");
    TableKey key(shape);
    constexpr uint64_t kRecords = 30000;
    for (uint64_t number = 0; number < kRecords; ++number) {
      key.set(number);
      const TableData data = TableData::of(number, 1);
      expectStatus(inst->Add(inst, &data, key.data(), key.length()), MORVA_OK, "Add");
    }
    expectEqual<uint64_t>(inst->NumElements(inst), kRecords, "NumElements");
    for (uint64_t number = 0; number < kRecords; ++number) {
      key.set(number);
      void *found = nullptr;
      expectStatus(inst->Find(inst, key.data(), key.length(), &found), MORVA_OK, "Find");
      expect(found != nullptr, "Find does not find a key of a large table");
      expect(*static_cast<TableData *>(found) == TableData::of(number, 1),
             "a record of a large table has changed");
    }
    expectStatus(inst->Clear(inst), MORVA_OK, "Clear");
    inst->Destroy(inst);
  }
}

void areCompared(Host &host, const Extension &extension) {
  std::vector<TableShape> shapes = everyShape(flagFixedKey, flagOrdered | flagMultiData);
  for (uint64_t i = 0; i < host.table().keyCount; ++i) {
    shapes.push_back({0, &host.table().keys[i]});
  }
  for (const TableShape &shape : shapes) {
    ModelTable one(host, extension, shape);
    ModelTable two(host, extension, shape);
    for (uint64_t i = 0; i < 100; ++i) {
      one.add(i);
      two.add(i);
    }
    const auto areEqual = [](MORVAInst *a, MORVAInst *b) {
      uint32_t equal = 2;
      expectStatus(a->Equals(a, b, &equal), MORVA_OK, "Equals");
      return equal == 1;
    };
    // Its lock is acquired twice.
    expect(areEqual(one.instance(), one.instance()), "a table is not equal to itself");
    expect(areEqual(one.instance(), two.instance()), "two tables of the same records are unequal");
    expect(areEqual(two.instance(), one.instance()), "two tables of the same records are unequal");
    two.replace(50);
    expect(!areEqual(one.instance(), two.instance()), "two tables of unequal records are equal");
    one.remove(50);
    expect(!areEqual(one.instance(), two.instance()), "two tables of unequal counts are equal");
    one.destroy();
    two.destroy();
  }
}

void liveSideBySide(Host &host, const Extension &extension) {
  std::vector<TableShape> shapes = everyShape(flagFixedKey, flagOrdered | flagSum);
  for (const TableShape &shape : everyShape(flagVarKey, kAnyKey)) shapes.push_back(shape);
  for (uint64_t i = 0; i < host.table().keyCount; ++i) {
    shapes.push_back({flagOrdered, &host.table().keys[i]});
  }
  std::vector<std::unique_ptr<ModelTable>> tables;
  for (const TableShape &shape : shapes) {
    tables.push_back(std::make_unique<ModelTable>(host, extension, shape));
  }
  Random numbers(3);
  for (int step = 0; step < 6000; ++step) {
    tables[numbers.below(tables.size())]->doAnything(numbers, 40);
  }
  while (!tables.empty()) {
    for (const auto &table : tables) table->verify();
    const size_t which = numbers.below(tables.size());
    tables[which]->destroy();
    tables.erase(tables.begin() + static_cast<std::ptrdiff_t>(which));
  }
}

void comeAndGo(Host &host, const Extension &extension) {
  uint64_t before = 0;
  for (int round = 0; round < 1000; ++round) {
    if (round == 100) before = residentBytes();
    const uint32_t mode = round % 2 == 0 ? flagFixedKey : flagVarKey;
    ModelTable table(host, extension, {mode | flagOrdered});
    for (uint64_t i = 0; i < 30; ++i) table.add(i);
    table.destroy();
  }
  // 64 KiB for each of them would show; what an allocator holds back does not.
  expect(residentBytes() < before + (UINT64_C(48) << 20),
         "memory in use has grown by " + shown((residentBytes() - before) >> 20) +
             " MiB although every instance was destroyed");
}

template <void (*check)(Host &, const Extension &)>
void run(const Subject &subject) {
  onTables(subject, check);
}

constexpr Check kChecks[] = {
    {"tables.begin-and-end", "The library can be given the host, and be released.",
     run<beginAndEnd>},
    {"tables.work-with-fixed-keys",
     "Tables with fixed keys answer as they should, with every combination of options.",
     run<workWithFixedKeys>},
    {"tables.work-with-variable-keys",
     "Tables with variable keys answer as they should, with every combination of options.",
     run<workWithVariableKeys>},
    {"tables.work-with-typed-keys",
     "Tables with typed keys answer as they should, with every combination of options.",
     run<workWithTypedKeys>},
    {"tables.keep-the-order", "Ordered tables can be walked in the order of insertion.",
     run<keepTheOrder>},
    {"tables.are-cleared-and-filled-again",
     "Tables are empty after both clears, and good for other records.",
     run<areClearedAndFilledAgain>},
    {"tables.grow-large", "A table can have many thousands of records.", run<growLarge>},
    {"tables.are-compared", "Tables can be compared, with themselves too.", run<areCompared>},
    {"tables.live-side-by-side", "Tables of all kinds live side by side on one host.",
     run<liveSideBySide>},
    {"tables.come-and-go", "Tables can be made and destroyed without end.", run<comeAndGo>},
};

}  // namespace

std::span<const Check> hostTableChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
