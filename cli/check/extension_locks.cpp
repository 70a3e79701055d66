// When locks are taken, how, and that they are given back.
#include <functional>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

// One call of an operation on a filled table.
struct Operation {
  const char *name;
  MORVAStatus (*call)(const Table &table);
};

struct Bytes {
  explicit Bytes(const Table &table, const std::string &key) : bytes(table.image(key)) {}
  const void *data() const { return bytes.data(); }
  int32_t size() const { return static_cast<int32_t>(bytes.size()); }
  std::string bytes;
};

// A record of "key" that was found before the log was emptied.
void *g_record = nullptr;
void *g_last = nullptr;

constexpr Operation kLocked[] = {
    {"Add", [](const Table &t) { return t.add("new", 1); }},
    {"Add of a key that is there", [](const Table &t) { return t.add("key", 1); }},
    {"Replace", [](const Table &t) { return t.replace("key", 1); }},
    {"Replace of a new key", [](const Table &t) { return t.replace("new", 1); }},
    {"Find",
     [](const Table &t) {
       void *data = nullptr;
       return t.find("key", &data);
     }},
    {"Find of an absent key",
     [](const Table &t) {
       void *data = nullptr;
       return t.find("absent", &data);
     }},
    {"HashVal",
     [](const Table &t) {
       const Bytes key(t, "key");
       uint32_t bucket = 0;
       return t->HashVal(t.get(), key.data(), key.size(), &bucket);
     }},
    {"Remove", [](const Table &t) { return t.remove("key"); }},
    {"Remove of an absent key", [](const Table &t) { return t.remove("absent"); }},
    {"ReplaceDup",
     [](const Table &t) { return t->ReplaceDup(t.get(), g_record, t.payload(2).data()); }},
    {"ReplaceDup of null",
     [](const Table &t) { return t->ReplaceDup(t.get(), nullptr, t.payload(2).data()); }},
    {"Clear", [](const Table &t) { return t->Clear(t.get()); }},
    {"Clear2", [](const Table &t) { return t->Clear2(t.get()); }},
};

constexpr Operation kLockedWithSums[] = {
    {"Sum",
     [](const Table &t) {
       const Bytes key(t, "key");
       double sum = 0;
       return t->Sum(t.get(), key.data(), key.size(), &sum);
     }},
    {"Sum of an absent key",
     [](const Table &t) {
       const Bytes key(t, "absent");
       double sum = 0;
       return t->Sum(t.get(), key.data(), key.size(), &sum);
     }},
    {"SumKey",
     [](const Table &t) {
       double sum = 0;
       return t->SumKey(t.get(), g_record, &sum, 0);
     }},
};

constexpr Operation kLockedWithDuplicates[] = {
    {"FindNext",
     [](const Table &t) {
       void *data = nullptr;
       return t->FindNext(t.get(), g_record, &data);
     }},
    {"FindNext at the end",
     [](const Table &t) {
       void *data = nullptr;
       return t->FindNext(t.get(), g_last, &data);
     }},
    {"FindPrev",
     [](const Table &t) {
       void *data = nullptr;
       return t->FindPrev(t.get(), g_last, &data);
     }},
    {"HasNext", [](const Table &t) { return t->HasNext(t.get(), g_record); }},
    {"HasPrev", [](const Table &t) { return t->HasPrev(t.get(), g_record); }},
    {"RemoveDup of the first record",
     [](const Table &t) {
       const Bytes key(t, "key");
       void *cursor = g_record;
       return t->RemoveDup(t.get(), &cursor, key.data(), key.size());
     }},
    {"RemoveDup of the last record",
     [](const Table &t) {
       const Bytes key(t, "key");
       void *cursor = g_last;
       return t->RemoveDup(t.get(), &cursor, key.data(), key.size());
     }},
    {"RemoveDup of an only record",
     [](const Table &t) {
       const Bytes key(t, "other");
       void *cursor = t.found("other");
       return t->RemoveDup(t.get(), &cursor, key.data(), key.size());
     }},
    {"RemoveDup of an empty cursor",
     [](const Table &t) {
       const Bytes key(t, "key");
       void *cursor = nullptr;
       return t->RemoveDup(t.get(), &cursor, key.data(), key.size());
     }},
};

constexpr Operation kLockedWithBoth[] = {
    {"SumDup",
     [](const Table &t) {
       double sum = 0;
       return t->SumDup(t.get(), g_record, &sum);
     }},
};

constexpr Operation kUnlocked[] = {
    {"Find2",
     [](const Table &t) {
       const Bytes key(t, "key");
       alignas(8) char probe[128] = {};
       void *data = nullptr;
       return t->Find2(t.get(), key.data(), key.size(), reinterpret_cast<RecordNode *>(probe),
                       &data);
     }},
    {"FindNode",
     [](const Table &t) {
       t.node("key");
       return MORVA_OK;
     }},
};

Table filled(Lab &lab, uint32_t flags) {
  Table table(lab, {.flags = flags});
  for (uint64_t n = 0; n != 20; ++n) table.mustAdd(keyNumber(n), n);
  table.mustAdd("other", 1);
  table.mustAdd("key", 1);
  if ((flags & flagMultiData) != 0) {
    table.mustAdd("key", 2);
    table.mustAdd("key", 3);
    g_last = table.chain("key").back();
  }
  g_record = table.found("key");
  return table;
}

void forEachOperation(uint32_t flags, const std::function<void(const Operation &)> &visit) {
  for (const Operation &operation : kLocked) visit(operation);
  if ((flags & flagSum) != 0) {
    for (const Operation &operation : kLockedWithSums) visit(operation);
  }
  if ((flags & flagMultiData) != 0) {
    for (const Operation &operation : kLockedWithDuplicates) visit(operation);
  }
  if ((flags & flagSum) != 0 && (flags & flagMultiData) != 0) {
    for (const Operation &operation : kLockedWithBoth) visit(operation);
  }
}

void givenBackAlways(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    if ((flags & flagNoLock) != 0) continue;
    forEachOperation(flags, [&](const Operation &operation) {
      const Table table = filled(lab, flags);
      lab.host.forget();
      operation.call(table);
      const uint64_t taken = lab.host.count(Call::acquire), given = lab.host.count(Call::release);
      const std::string what = std::string(" by ") + operation.name + ' ' + table.kind() + ',';
      expect(taken != 0, "no lock was taken" + what);
      expectEqual(given, taken, "the number of releases" + what);
      expectEqual(lab.host.locksHeld(), uint64_t{0}, "the number of locks still held" + what);
    });
  }
}

void givenBackOnRefusals(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags :
       {uint32_t{flagFixedKey}, uint32_t{flagFixedKey | flagSum | flagMultiData}}) {
    const Table table = filled(lab, flags);
    const std::string longer(table->keyLength + 1, 'x');
    void *data = nullptr, *cursor = g_record;
    uint32_t bucket = 0;
    double sum = 0;
    lab.host.forget();
    table.add(longer, 1);
    table.replace(longer, 1);
    table.find(longer, &data);
    table.remove(longer);
    const auto length = static_cast<int32_t>(longer.size());
    table->HashVal(table.get(), longer.data(), length, &bucket);
    if ((flags & flagSum) != 0) {
      table->Sum(table.get(), longer.data(), length, &sum);
      table->RemoveDup(table.get(), &cursor, longer.data(), length);
    }
    expectEqual(lab.host.count(Call::release), lab.host.count(Call::acquire),
                "the number of releases by operations that refused a longer key,");
    expectEqual(lab.host.locksHeld(), uint64_t{0}, "the number of locks held after refusals");
  }
}

void givenBackWithoutMemory(const Subject &subject) {
  for (const uint32_t flags : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, uint32_t{0},
                               uint32_t{flagFixedKey | flagSum | flagMultiData}}) {
    Lab lab(subject);
    const Table table(lab, {.flags = flags});
    const Bytes key(table, "key");
    void *data = nullptr;
    uint32_t bucket = 0;
    double sum = 0;
    lab.host.failFromNth(1);
    lab.host.forget();
    expectStatus(table.add("key", 1), MORVA_NO_MEMORY, "Add without memory");
    expectStatus(table.replace("key", 1), MORVA_NO_MEMORY, "Replace without memory");
    expectStatus(table.find("key", &data), MORVA_NO_MEMORY, "Find without memory");
    expectStatus(table.remove("key"), MORVA_NO_MEMORY, "Remove without memory");
    expectStatus(table->HashVal(table.get(), key.data(), key.size(), &bucket), MORVA_NO_MEMORY,
                 "HashVal without memory");
    if ((flags & flagSum) != 0) {
      expectStatus(table->Sum(table.get(), key.data(), key.size(), &sum), MORVA_NO_MEMORY,
                   "Sum without memory");
    }
    expectEqual(lab.host.count(Call::release), lab.host.count(Call::acquire),
                "the number of releases by operations without memory, " + table.kind() + ',');
    expectEqual(lab.host.locksHeld(), uint64_t{0}, "the number of locks held without memory");
    lab.host.forget();
    RecordNode *node = nullptr;
    expectStatus(table->FindNode(table.get(), key.data(), key.size(), &node, &bucket),
                 MORVA_NO_MEMORY, "FindNode without memory");
    expectEqual(lab.host.count(Call::release), uint64_t{1},
                "the number of releases by FindNode without memory, which takes none,");
    expectEqual(lab.host.count(Call::acquire), uint64_t{0},
                "the number of acquisitions by FindNode");
    lab.host.failNever();
    table.mustAdd("key", 1);
  }
}

void heldWhileWorking(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    if ((flags & flagNoLock) != 0) continue;
    forEachOperation(flags, [&](const Operation &operation) {
      const Table table = filled(lab, flags);
      uint64_t outside = 0;
      lab.host.onEvent = [&](const Event &event) {
        switch (event.call) {
          case Call::allocate:
          case Call::freeBlock:
          case Call::pack:
          case Call::treeInsert:
          case Call::treeFind:
          case Call::treeRemove:
          case Call::treeFirst:
          case Call::append:
          case Call::unlink:
            if (lab.host.locksHeld() == 0) ++outside;
            break;
          default:
            break;
        }
      };
      operation.call(table);
      lab.host.onEvent = nullptr;
      expectEqual(outside, uint64_t{0},
                  std::string("the number of host calls made without the lock by ") +
                      operation.name + ' ' + table.kind() + ',');
    });
  }
}

void takenToChange(const Subject &subject) {
  RecordingHost::Options options;
  options.treeLocks = options.orderListLock = true;
  Lab lab(subject, options);
  for (const uint32_t flags : allFlags()) {
    if ((flags & flagNoLock) != 0) continue;
    forEachOperation(flags, [&](const Operation &operation) {
      const Table table = filled(lab, flags);
      lab.host.forget();
      operation.call(table);
      for (const Event &event : lab.host.eventsOf(Call::acquire)) {
        const std::string what = std::string(" by ") + operation.name + " is taken";
        expectEqual(event.b, uint64_t{1}, "the waiting with which a lock" + what);
        if (event.text != "table") continue;
        expectEqual(event.a, uint64_t{MORVA_LOCK_CHANGE},
                    "the mode in which an instance's lock" + what);
      }
    });
  }
  lab.expectNoComplaints();
}

void takenInOrder(const Subject &subject) {
  RecordingHost::Options options;
  options.treeLocks = options.orderListLock = true;
  Lab lab(subject, options);
  for (const uint32_t flags : allFlags()) {
    if ((flags & flagNoLock) != 0) continue;
    forEachOperation(flags, [&](const Operation &operation) {
      const Table table = filled(lab, flags);
      lab.host.forget();
      operation.call(table);
      bool instance = false, inner = false;
      for (const Event &event : lab.host.events()) {
        if (event.call != Call::acquire && event.call != Call::release) continue;
        const bool take = event.call == Call::acquire;
        const std::string what = std::string(operation.name) + ' ' + table.kind();
        if (event.text == "table") {
          expect(!inner, what + " uses the instance's lock inside a tree's or a list's");
          instance = take;
        } else {
          expect(instance, what + " takes a tree's or a list's lock outside the instance's");
          expect(inner != take, what + " takes two locks inside the instance's");
          inner = take;
        }
      }
    });
  }
}

void notWhereNoneIsSaid(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    const Table table = filled(lab, flags);
    for (const Operation &operation : kUnlocked) {
      lab.host.forget();
      expectStatus(operation.call(table), MORVA_OK, operation.name);
      expectEqual(lab.host.count(Call::acquire) + lab.host.count(Call::release), uint64_t{0},
                  std::string("the number of uses of locks by ") + operation.name + ' ' +
                      table.kind() + ',');
    }
  }
  lab.host.forget();
  const Table defined(lab, {.flags = 0});
  expectEqual(lab.host.count(Call::acquire), uint64_t{0},
              "the number of locks taken by definitions");
}

void notWithoutALock(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    if ((flags & flagNoLock) == 0) continue;
    forEachOperation(flags, [&](const Operation &operation) {
      const Table table = filled(lab, flags);
      operation.call(table);
    });
    const Table table = filled(lab, flags);
    const std::string longer(table->keyLength + 1, 'x');
    alignas(8) char probe[256] = {};
    if ((flags & flagFixedKey) != 0) {
      table->Find2(table.get(), longer.data(), static_cast<int32_t>(longer.size()),
                   reinterpret_cast<RecordNode *>(probe), nullptr);
    }
  }
  expectEqual(lab.host.count(Call::createLock) + lab.host.count(Call::acquire) +
                  lab.host.count(Call::release),
              uint64_t{0}, "the number of uses of locks with flagNoLock");
}

constexpr Check kChecks[] = {
    {"locks.given-back",
     "Every operation releases its lock on the ways that succeed or find nothing.",
     givenBackAlways},
    {"locks.given-back-on-refusals", "Operations that refuse a longer key release their lock.",
     givenBackOnRefusals},
    {"locks.given-back-without-memory",
     "Operations without memory say so and release their lock; FindNode releases one not taken.",
     givenBackWithoutMemory},
    {"locks.held-while-working", "The instance's lock is held whenever its tables are worked on.",
     heldWhileWorking},
    {"locks.taken-to-change", "The instance's lock is taken in change mode, waiting.",
     takenToChange},
    {"locks.taken-in-order",
     "The locks of trees and order lists are taken inside the instance's, one at a time.",
     takenInOrder},
    {"locks.not-where-none-is-said", "Find2, FindNode and definitions take no lock.",
     notWhereNoneIsSaid},
    {"locks.none-with-flag-no-lock", "With flagNoLock no lock is made or used, refusals included.",
     notWithoutALock},
};

}  // namespace

std::span<const Check> lockChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
