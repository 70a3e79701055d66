// Several records per key.
#include <cstring>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

constexpr uint32_t kWithDuplicates[] = {flagFixedKey | flagMultiData, flagMultiData,
                                        flagFixedKey | flagMultiData | flagSum | flagOrdered};

const DupLinks *linksOf(const void *data) {
  return static_cast<const DupLinks *>(data) - 1;
}

MORVAStatus removeAt(const Table &table, void **cursor, const std::string &key) {
  const std::string bytes = table.image(key);
  return table->RemoveDup(table.get(), cursor, bytes.data(), static_cast<int32_t>(bytes.size()));
}

// The records of "key" hold these numbers, in this order, from both ends.
void expectChain(const Table &table, const std::vector<uint64_t> &values) {
  const std::vector<void *> records = table.chain("key");
  expectEqual(records.size(), values.size(),
              "the number of records of a key, " + table.kind() + ',');
  for (size_t at = 0; at != records.size(); ++at) {
    const std::string which = "record " + shown(at + 1) + " of " + shown(records.size());
    table.mustHold(records[at], values[at], which);
    const bool last = at + 1 == records.size();
    expectEqual(table->HasNext(table.get(), records[at]), last ? 0U : 1U, "HasNext of " + which);
    expectEqual(table->HasPrev(table.get(), records[at]), at == 0 ? 0U : 1U, "HasPrev of " + which);
    void *before = table.get();
    expectStatus(table->FindPrev(table.get(), records[at], &before), MORVA_OK, "FindPrev");
    expect(before == (at == 0 ? nullptr : records[at - 1]),
           "FindPrev does not lead back from " + which + ", " + table.kind());
  }
}

Table filled(Lab &lab, uint32_t flags, uint64_t count) {
  Table table(lab, {.flags = flags});
  table.mustAdd("other", 1000);
  for (uint64_t n = 0; n != count; ++n) table.mustAdd("key", n);
  return table;
}

void keepsTheOrder(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithDuplicates) {
    std::vector<uint64_t> values;
    const Table table(lab, {.flags = flags});
    for (uint64_t n = 0; n != 30; ++n) {
      table.mustAdd("key", n * 7);
      values.push_back(n * 7);
      expectChain(table, values);
    }
    table.expectCount(30);
  }
}

void keepsTheLinks(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithDuplicates) {
    for (uint64_t count = 1; count != 5; ++count) {
      const Table table = filled(lab, flags, count);
      const std::vector<void *> records = table.chain("key");
      for (size_t at = 0; at != records.size(); ++at) {
        const DupLinks *links = linksOf(records[at]);
        const DupLinks *next = at + 1 == records.size() ? nullptr : linksOf(records[at + 1]);
        const DupLinks *back = at == 0 ? linksOf(records.back()) : linksOf(records[at - 1]);
        expect(links->next == next, "a record's `next` is not the record after it");
        expect(links->back == back, "a record's `back` is not the one before it, or the last one");
      }
    }
  }
}

void endsQuietly(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithDuplicates) {
    const Table table = filled(lab, flags, 2);
    const std::vector<void *> records = table.chain("key");
    void *data = &lab;
    expectStatus(table->FindNext(table.get(), records[1], &data), MORVA_OK, "FindNext at the end");
    expect(data == nullptr, "FindNext at the end does not answer null");
    data = &lab;
    expectStatus(table->FindPrev(table.get(), records[0], &data), MORVA_OK,
                 "FindPrev at the beginning");
    expect(data == nullptr, "FindPrev at the beginning does not answer null");
    data = &lab;
    expectStatus(table->FindNext(table.get(), nullptr, &data), MORVA_OK, "FindNext of null");
    expect(data == nullptr, "FindNext of null does not answer null");
    data = &lab;
    expectStatus(table->FindPrev(table.get(), nullptr, &data), MORVA_OK, "FindPrev of null");
    expect(data == nullptr, "FindPrev of null does not answer null");
    expectStatus(table->FindNext(table.get(), records[0], nullptr), MORVA_OK,
                 "FindNext without a place");
    expectStatus(table->FindPrev(table.get(), records[1], nullptr), MORVA_OK,
                 "FindPrev without a place");
    expectEqual(table->HasNext(table.get(), nullptr), 0U, "HasNext of null");
    expectEqual(table->HasPrev(table.get(), nullptr), 0U, "HasPrev of null");
  }
}

void needsTheFlag(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, uint32_t{flagSum}}) {
    const Table table(lab, {.flags = flags});
    table.mustAdd("key", 1);
    void *const record = table.found("key");
    void *data = &lab;
    void *cursor = record;
    lab.host.forget();
    expectStatus(table->FindNext(table.get(), record, &data), MORVA_INVALID,
                 "FindNext " + table.kind());
    expectStatus(table->FindPrev(table.get(), record, &data), MORVA_INVALID,
                 "FindPrev " + table.kind());
    expectEqual(table->HasNext(table.get(), record), 0U, "HasNext " + table.kind());
    expectEqual(table->HasPrev(table.get(), record), 0U, "HasPrev " + table.kind());
    expectStatus(removeAt(table, &cursor, "key"), MORVA_INVALID, "RemoveDup " + table.kind());
    expectEqual(lab.host.story(), std::string(), "what the host was asked for by refusals");
    expect(data == &lab && cursor == record, "a refused operation wrote to a place");
    table.expectCount(1);
    expectStatus(table->ReplaceDup(table.get(), record, table.payload(2).data()), MORVA_OK,
                 "ReplaceDup " + table.kind());
    table.expectValue("key", 2);
  }
}

void replacesAll(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithDuplicates) {
    const Table table = filled(lab, flags, 4);
    expectStatus(table.replace("key", 77), MORVA_OK, "Replace");
    expectChain(table, {77, 77, 77, 77});
    table.expectValue("other", 1000);
    table.expectCount(5);
  }
}

void replacesOne(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithDuplicates) {
    const Table table = filled(lab, flags, 3);
    const std::vector<void *> records = table.chain("key");
    expectStatus(table->ReplaceDup(table.get(), records[1], table.payload(88).data()), MORVA_OK,
                 "ReplaceDup");
    expectChain(table, {0, 88, 2});
    expectStatus(table->ReplaceDup(table.get(), nullptr, table.payload(1).data()), MORVA_NO_CURSOR,
                 "ReplaceDup of null");
    expectChain(table, {0, 88, 2});
  }
}

void removesOne(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithDuplicates) {
    for (size_t count = 2; count != 5; ++count) {
      for (size_t victim = 0; victim != count; ++victim) {
        const Table table = filled(lab, flags, count);
        const std::vector<void *> records = table.chain("key");
        void *cursor = records[victim];
        expectStatus(removeAt(table, &cursor, "key"), MORVA_OK, "RemoveDup");
        expect(cursor == nullptr, "RemoveDup did not empty the cursor, " + table.kind());
        std::vector<uint64_t> left;
        for (size_t n = 0; n != count; ++n) {
          if (n != victim) left.push_back(n);
        }
        expectChain(table, left);
        table.expectCount(static_cast<uint32_t>(count));
        table.expectValue("other", 1000);
        expect(table.found("key") == records[0],
               "the first record of a key is at another address, " + table.kind());
        // What was freed is used again, and the chain goes on.
        table.mustAdd("key", 55);
        left.push_back(55);
        expectChain(table, left);
      }
    }
  }
  lab.expectNoComplaints();
}

void removesTheLastOne(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithDuplicates) {
    const Table table = filled(lab, flags, 1);
    void *cursor = table.found("key");
    expectStatus(removeAt(table, &cursor, "key"), MORVA_OK, "RemoveDup of the only record");
    expect(cursor == nullptr, "RemoveDup of the only record did not empty the cursor");
    table.expectAbsent("key");
    table.expectCount(1);
    table.mustAdd("key", 9);
    expectChain(table, {9});
  }
}

void refusesToRemove(const Subject &subject) {
  Lab lab(subject);
  const Table table = filled(lab, flagFixedKey | flagMultiData, 2);
  void *none = nullptr;
  expectStatus(removeAt(table, nullptr, "key"), MORVA_INVALID, "RemoveDup without a cursor");
  expectStatus(removeAt(table, &none, "key"), MORVA_NO_CURSOR, "RemoveDup of an empty cursor");
  void *const record = table.found("key");
  void *cursor = record;
  const std::string longer(100, 'x');
  expectStatus(table->RemoveDup(table.get(), &cursor, longer.data(), 100), MORVA_INVALID,
               "RemoveDup of a longer key");
  expect(cursor == record, "a refused RemoveDup emptied the cursor");
  expectChain(table, {0, 1});
}

void removesTheKey(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kWithDuplicates) {
    const Table table = filled(lab, flags, 5);
    table.mustRemove("key");
    table.expectAbsent("key");
    table.expectCount(1);
    table.expectValue("other", 1000);
    const uint64_t blocks = lab.host.count(Call::allocate);
    for (uint64_t n = 0; n != 5; ++n) table.mustAdd("key", n);
    expectChain(table, {0, 1, 2, 3, 4});
    expectEqual(lab.host.count(Call::allocate), blocks,
                "the number of blocks taken after records for removed ones were added");
  }
}

void survivesChains(const Subject &subject) {
  Lab lab(subject);
  lab.host.keepLog(false);
  for (const uint32_t flags : kWithDuplicates) {
    const Table table(lab, {.flags = flags});
    std::vector<uint64_t> values;
    Random random(flags);
    for (uint64_t n = 0; n != 400; ++n) {
      if (values.empty() || random.below(5) < 3) {
        table.mustAdd("key", n);
        values.push_back(n);
      } else {
        const size_t victim = random.below(values.size());
        void *cursor = table.chain("key")[victim];
        expectStatus(removeAt(table, &cursor, "key"), MORVA_OK, "RemoveDup");
        values.erase(values.begin() + static_cast<ptrdiff_t>(victim));
      }
      if (n % 20 == 0) expectChain(table, values);
    }
    expectChain(table, values);
  }
}

constexpr Check kChecks[] = {
    {"duplicates.keep-their-order",
     "The records of a key are walked in the order they were added, and back.", keepsTheOrder},
    {"duplicates.keep-their-links", "The links in front of the data are as the header shows them.",
     keepsTheLinks},
    {"duplicates.end-quietly", "Beyond the ends, and for null, the answer is null and no error.",
     endsQuietly},
    {"duplicates.need-the-flag",
     "Without flagMultiData their operations are refused, but ReplaceDup.", needsTheFlag},
    {"duplicates.replace-all", "Replace writes the data of every record of the key.", replacesAll},
    {"duplicates.replace-one", "ReplaceDup writes the data of the one record at the cursor.",
     replacesOne},
    {"duplicates.remove-one",
     "RemoveDup removes the record at the cursor, empties that, and the first stays in its place.",
     removesOne},
    {"duplicates.remove-the-last", "RemoveDup of a key's only record removes the key.",
     removesTheLastOne},
    {"duplicates.refuse-to-remove", "RemoveDup refuses missing cursors and longer keys.",
     refusesToRemove},
    {"duplicates.remove-the-key", "Remove removes all records of a key, to be used again.",
     removesTheKey},
    {"duplicates.survive-changes", "A chain stays right while records come and go anywhere in it.",
     survivesChains},
};

}  // namespace

std::span<const Check> duplicateChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
