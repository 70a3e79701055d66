// The insertion order.
#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

constexpr uint32_t kOrdered[] = {flagFixedKey | flagOrdered, flagVarKey | flagOrdered, flagOrdered,
                                 flagFixedKey | flagOrdered | flagMultiData | flagSum,
                                 flagOrdered | flagMultiData};

void expectOrder(const Lab &lab, const Table &table, const std::vector<std::string> &keys) {
  const std::vector<RecordNode *> records = lab.host.order(table.get());
  expectEqual(records.size(), keys.size(),
              "the number of records in the order, " + table.kind() + ',');
  for (size_t at = 0; at != keys.size(); ++at) {
    expect(table.keyOf(records[at]) == table.image(keys[at]),
           "record " + shown(at + 1) + " of the insertion order is another, " + table.kind());
    expect(records[at] == table.node(keys[at]),
           "the insertion order and the tree have different nodes for a key");
  }
}

void keepsTheOrder(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kOrdered) {
    const Table table(lab, {.flags = flags});
    std::vector<std::string> keys;
    for (uint64_t n = 0; n != 100; ++n) {
      keys.push_back(keyNumber(n * 37 % 100));
      table.mustAdd(keys.back(), n);
    }
    expectOrder(lab, table, keys);
    for (int n = 0; n != 30; ++n) {
      const size_t victim = static_cast<size_t>(n) * 2;
      table.mustRemove(keys[victim]);
      keys.erase(keys.begin() + static_cast<ptrdiff_t>(victim));
    }
    expectOrder(lab, table, keys);
    table.mustAdd("again", 1);
    keys.emplace_back("again");
    expectOrder(lab, table, keys);
  }
  lab.expectNoComplaints();
}

void replacingKeepsThePlace(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kOrdered) {
    const Table table(lab, {.flags = flags});
    for (const char *key : {"one", "two", "three"}) table.mustAdd(key, 1);
    expectStatus(table.replace("one", 2), MORVA_OK, "Replace");
    expectStatus(table.replace("four", 2), MORVA_OK, "Replace of a key that is not there");
    expectOrder(lab, table, {"one", "two", "three", "four"});
    if ((flags & flagMultiData) == 0) {
      expectStatus(table.add("two", 5), MORVA_PRESENT, "Add of a key that is there");
    }
    expectOrder(lab, table, {"one", "two", "three", "four"});
  }
}

void holdsFirstRecordsOnly(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : {uint32_t{flagFixedKey | flagOrdered | flagMultiData},
                               uint32_t{flagOrdered | flagMultiData | flagSum}}) {
    const Table table(lab, {.flags = flags});
    for (const char *key : {"one", "two", "one", "three", "two", "one"}) table.mustAdd(key, 1);
    expectOrder(lab, table, {"one", "two", "three"});
    const std::string bytes = table.image("one");
    for (int left = 2; left >= 0; --left) {
      void *cursor = table.found("one");
      expectStatus(
          table->RemoveDup(table.get(), &cursor, bytes.data(), static_cast<int32_t>(bytes.size())),
          MORVA_OK, "RemoveDup");
      expectOrder(lab, table,
                  left > 0 ? std::vector<std::string>{"one", "two", "three"}
                           : std::vector<std::string>{"two", "three"});
    }
  }
  lab.expectNoComplaints();
}

void reusesOrderNodes(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kOrdered) {
    const Table table(lab, {.flags = flags});
    for (uint64_t n = 0; n != 50; ++n) table.mustAdd(keyNumber(n), n);
    const uint64_t blocks = lab.host.blocksAlive("inodes");
    for (int round = 0; round != 5; ++round) {
      for (uint64_t n = 0; n != 50; ++n) table.mustRemove(keyNumber(n));
      for (uint64_t n = 0; n != 50; ++n) table.mustAdd(keyNumber(n), n);
    }
    expectEqual(lab.host.blocksAlive("inodes"), blocks,
                "the number of blocks of the pool \"inodes\" after removing and adding again");
    table->Destroy(table.get());
  }
}

void toleratesUnknownRecords(const Subject &subject) {
  Lab lab(subject);
  const Table table(lab, {.flags = flagFixedKey | flagOrdered});
  for (const char *key : {"one", "two"}) table.mustAdd(key, 1);
  const OrderNode image = {nullptr, nullptr, table.node("one")};
  table->aiExt->unlink(table->orderList, &image);
  expectStatus(table.remove("one"), MORVA_INVALID, "Remove of a record the order does not know");
  table.expectAbsent("one");
  table.expectCount(1);
  table.expectValue("two", 1);
}

constexpr Check kChecks[] = {
    {"order.first-come", "The order list holds the records as they came; removed ones leave it.",
     keepsTheOrder},
    {"order.replacing-keeps-the-place", "Replacing a record leaves it where it stands.",
     replacingKeepsThePlace},
    {"order.first-records-only",
     "Of several records of a key the first is in the order, and keeps the key's place.",
     holdsFirstRecordsOnly},
    {"order.reuses-nodes", "The nodes of removed records are used again.", reusesOrderNodes},
    {"order.tolerates-unknown-records",
     "A record that the order list does not know is removed, and the answer tells.",
     toleratesUnknownRecords},
};

}  // namespace

std::span<const Check> orderChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
