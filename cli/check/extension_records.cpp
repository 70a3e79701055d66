// Where records lie, and how their memory grows.
#include <cstring>
#include <map>
#include <set>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

void neverMove(const Subject &subject) {
  Lab lab(subject);
  lab.host.keepLog(false);
  for (const uint32_t flags : allFlags()) {
    if ((flags & flagNoLock) != 0) continue;
    const Table table(lab, {.flags = flags, .hashExp = 3});
    std::map<std::string, void *> places;
    Random random(flags);
    for (uint64_t n = 0; n != 1500; ++n) {
      const std::string key = keyNumber(random.below(600));
      if (places.contains(key)) {
        table.mustRemove(key);
        places.erase(key);
      } else {
        table.mustAdd(key, n);
        places[key] = table.found(key);
      }
    }
    for (const auto &[key, place] : places) {
      expect(table.found(key) == place, "a record has moved, " + table.kind());
    }
  }
}

void areAligned(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    for (const uint32_t length : {1U, 13U, 24U}) {
      const Table table(lab, {.flags = flags, .dataLength = length, .keyLength = 11});
      for (uint64_t n = 0; n != 40; ++n) {
        table.mustAdd(keyNumber(n), n);
        const auto place = reinterpret_cast<uintptr_t>(table.found(keyNumber(n)));
        expectEqual(place % 8, uintptr_t{0}, "the alignment of data to 8, " + table.kind() + ',');
      }
    }
  }
}

void doNotOverlap(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    const Table table(lab, {.flags = flags, .dataLength = 19, .keyLength = 12});
    std::map<uintptr_t, uintptr_t> ranges;
    for (uint64_t n = 0; n != 100; ++n) {
      table.mustAdd(keyNumber(n), n);
      RecordNode *node = table.node(keyNumber(n));
      const auto start = reinterpret_cast<uintptr_t>(node);
      ranges[start] = reinterpret_cast<uintptr_t>(table.dataOf(node)) + 19;
    }
    uintptr_t end = 0;
    for (const auto &[start, stop] : ranges) {
      expect(start >= end, "two records overlap, " + table.kind());
      end = stop;
    }
  }
}

void lieInBlocks(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags :
       {uint32_t{flagFixedKey}, uint32_t{flagSum | flagMultiData}, uint32_t{flagOrdered}}) {
    Table table(lab, {.flags = flags});
    for (uint64_t n = 0; n != 300; ++n) table.mustAdd(keyNumber(n), n);
    // The blocks as the instance chains them.
    std::map<uintptr_t, uint64_t> blocks;
    for (void *block = table->recordBlocks; block != nullptr;
         block = *static_cast<void **>(block)) {
      expect(lab.host.isBlock(block), "the chain of record blocks leads to what is no block");
      blocks[reinterpret_cast<uintptr_t>(block)] = lab.host.blockSize(block);
    }
    expectEqual(uint64_t{blocks.size()}, lab.host.blocksAlive("records"),
                "the number of record blocks that are chained");
    const uint32_t slot = table->RecSize(table.get());
    for (uint64_t n = 0; n != 300; ++n) {
      const auto node = reinterpret_cast<uintptr_t>(table.node(keyNumber(n)));
      auto block = blocks.upper_bound(node);
      expect(block != blocks.begin(), "a record lies in no block");
      --block;
      expect(node + slot <= block->first + block->second, "a record lies in no block");
      expectEqual((node - block->first - 8) % slot, uintptr_t{0},
                  "how far a record is from the start of a slot");
    }
    table.destroy();
  }
}

// From the last one taken on, as they are chained.
void expectEachLarger(const Lab &lab, void *newest, const std::string &pool) {
  uint64_t above = 0;
  for (void *block = newest; block != nullptr; block = *static_cast<void **>(block)) {
    expect(lab.host.isBlock(block), "the chain of blocks leads to what is no block");
    const uint64_t size = lab.host.blockSize(block);
    expect(above == 0 || size < above, "a block of the pool \"" + pool + "\" with " + shown(above) +
                                           " bytes came after one with " + shown(size));
    above = size;
  }
}

void growByDoubling(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : {uint32_t{flagFixedKey | flagOrdered}, uint32_t{flagOrdered}}) {
    Table table(lab, {.flags = flags});
    lab.host.forget();
    for (uint64_t n = 0; n != 4000; ++n) table.mustAdd(keyNumber(n), n);
    // 16, 32, 64, ... records: nine blocks of each kind hold 8176.
    for (const char *pool : {"records", "inodes"}) {
      expect(lab.host.blocksAlive(pool) <= 10,
             std::string("4000 records took more than ten blocks of the pool \"") + pool + '"');
    }
    expectEachLarger(lab, table->recordBlocks, "records");
    expectEachLarger(lab, table->inodeBlocks, "inodes");
    table.destroy();
  }
}

void heedTheHint(const Subject &subject) {
  Lab lab(subject);
  for (const int64_t hint : {1000, 100}) {
    const Table table(lab, {.memHint = hint});
    lab.host.forget();
    for (uint64_t n = 0; n != 3000; ++n) table.mustAdd(keyNumber(n), n);
    const double most = 30.72 * static_cast<double>(hint) * 2 + 16 * 80 + 64;
    uint64_t largest = 0;
    for (const Event &event : lab.host.eventsOf(Call::allocate))
      largest = std::max(largest, event.a);
    expect(static_cast<double>(largest) <= most,
           "a block has " + shown(largest) + " bytes with a memHint of " + shown(hint));
  }
}

void reuseFreedSlots(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags :
       {uint32_t{flagFixedKey}, uint32_t{0}, uint32_t{flagFixedKey | flagMultiData}}) {
    const Table table(lab, {.flags = flags});
    for (uint64_t n = 0; n != 100; ++n) table.mustAdd(keyNumber(n), n);
    table.expectAbsent("absent");
    const uint64_t memory = table->TotalMem(table.get());
    for (uint64_t round = 1; round != 20; ++round) {
      for (uint64_t n = 0; n != 100; ++n) table.mustRemove(keyNumber(round * 100 + n - 100));
      for (uint64_t n = 0; n != 100; ++n) table.mustAdd(keyNumber(round * 100 + n), n);
    }
    expectEqual(table->TotalMem(table.get()), memory,
                "TotalMem after removing and adding, " + table.kind() + ',');
  }
}

constexpr Check kChecks[] = {
    {"records.never-move", "A record keeps its address until it is removed.", neverMove},
    {"records.are-aligned", "Data is aligned to 8 bytes where the host's blocks are.", areAligned},
    {"records.do-not-overlap", "No record lies in another.", doNotOverlap},
    {"records.lie-in-blocks", "Records are slots of blocks that the instance has chained.",
     lieInBlocks},
    {"records.grow-by-doubling", "Memory is taken in few blocks, each larger than the last.",
     growByDoubling},
    {"records.heed-the-hint", "memHint bounds the size of blocks.", heedTheHint},
    {"records.reuse-slots", "What was removed makes room for what is added.", reuseFreedSlots},
};

}  // namespace

std::span<const Check> recordChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
