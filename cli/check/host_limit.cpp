// Hosts with a memory limit.

#include <numeric>
#include <string>
#include <vector>

#include "host_checks.h"
#include "host_table_model.h"

namespace morva::cli::check {

namespace {

constexpr uint64_t kLimit = UINT64_C(24) << 20;

// Takes blocks until the pool answers null, or has given more than it may. What
// was taken is counted.
uint64_t takeAll(HostPool *pool, uint64_t size, std::vector<void *> *blocks = nullptr) {
  uint64_t all = 0;
  while (all <= kLimit) {
    void *block = pool->allocate(pool, size, 0);
    if (block == nullptr) break;
    all += size;
    static_cast<unsigned char *>(block)[0] = 1;
    if (blocks != nullptr) blocks->push_back(block);
  }
  return all;
}

void expectWithinLimit(uint64_t taken) {
  expect(taken <= kLimit,
         "blocks of " + shown(taken) + " bytes can be had with a limit of " + shown(kLimit));
}

void refuseBeyondTheLimit(const Subject &subject) {
  for (const uint64_t size : {48, 4096, 65536, 300000, 3000000}) {
    Host host(subject, limitedTo(kLimit));
    HostPool *pool = host.pool(MORVA_POOL_RECORDS);
    expectWithinLimit(takeAll(pool, size));
    pool->destroy(pool);
    host.endWithNothingLeft();
  }
}

void grantWhatIsBelowIt(const Subject &subject) {
  for (const uint64_t size : {48, 4096, 65536, 300000, 3000000}) {
    Host host(subject, limitedTo(kLimit));
    HostPool *pool = host.pool(MORVA_POOL_RECORDS);
    const uint64_t taken = takeAll(pool, size);
    expect(taken >= kLimit / 2, "of a limit of " + shown(kLimit) + " bytes only " + shown(taken) +
                                    " can be had in blocks of " + shown(size));
    pool->destroy(pool);
    host.endWithNothingLeft();
  }
}

void countAllPools(const Subject &subject) {
  Host host(subject, limitedTo(kLimit));
  std::vector<HostPool *> pools;
  uint64_t all = 0;
  for (const uint32_t options : {UINT32_C(0), MORVA_POOL_RECORDS, MORVA_POOL_VARKEYS}) {
    pools.push_back(host.pool(options));
    for (int i = 0; i < 100; ++i) {
      if (pools.back()->allocate(pools.back(), 65536, 0) != nullptr) all += 65536;
    }
  }
  for (HostPool *pool : pools) all += takeAll(pool, 65536);
  expectWithinLimit(all);
  for (HostPool *pool : pools) pool->destroy(pool);
  host.endWithNothingLeft();
}

void refuseABlockThatIsTooLarge(const Subject &subject) {
  Host host(subject, limitedTo(kLimit));
  HostPool *pool = host.pool();
  unsigned char *block = taken(pool, 1000);
  fillWith(block, 1000, 1);
  for (const uint64_t size : {kLimit + 1, 4 * kLimit, UINT64_C(1) << 40, UINT64_C(1) << 62,
                              UINT64_MAX - 4096, UINT64_MAX}) {
    for (const uint32_t options : {UINT32_C(0), MORVA_ZERO_FILL}) {
      expect(pool->allocate(pool, size, options) == nullptr,
             "a block of " + shown(size) + " bytes can be had with a limit of " + shown(kLimit));
    }
  }
  expect(isFilledWith(block, 1000, 1), "a refusal changes a block that is in use");
  fillWith(taken(pool, 1000), 1000, 2);
  pool->destroy(pool);
  host.endWithNothingLeft();
}

void isGivenBackByFree(const Subject &subject) {
  Host host(subject, limitedTo(kLimit));
  HostPool *pool = host.pool();
  uint64_t first = 0;
  for (int round = 0; round < 8; ++round) {
    std::vector<void *> blocks;
    const uint64_t all = takeAll(pool, 30000, &blocks);
    if (round == 0) first = all;
    expect(all >= first / 2, "after all blocks were freed only " + shown(all) + " bytes of " +
                                 shown(first) + " can be had again");
    for (void *block : blocks) pool->free(pool, block);
  }
  pool->destroy(pool);
  host.endWithNothingLeft();
}

void isGivenBackByDestroy(const Subject &subject) {
  Host host(subject, limitedTo(kLimit));
  HostPool *other = host.pool();
  taken(other, 100);
  uint64_t first = 0;
  for (int round = 0; round < 12; ++round) {
    HostPool *pool = host.pool(round % 2 == 0 ? 0 : MORVA_POOL_RECORDS);
    const uint64_t all = takeAll(pool, 30000);
    if (round == 0) first = all;
    expect(all >= first / 2, "after a pool was destroyed only " + shown(all) + " bytes of " +
                                 shown(first) + " can be had again");
    pool->destroy(pool);
  }
  other->destroy(other);
  host.endWithNothingLeft();
}

void leavesTheHostUsable(const Subject &subject) {
  Host host(subject, limitedTo(kLimit));
  HostPool *pool = host.pool();
  std::vector<void *> blocks;
  takeAll(pool, 65536, &blocks);
  takeAll(pool, 40);
  expect(!blocks.empty(), "no block can be had");
  for (size_t i = 0; i < 20 && i < blocks.size(); ++i) {
    fillWith(static_cast<unsigned char *>(blocks[i]), 65536, i);
  }
  // Refused again and again, and in other pools too.
  HostPool *other = host.pool(MORVA_POOL_RECORDS);
  for (int i = 0; i < 1000; ++i) {
    other->allocate(other, 2000000, 0);
    pool->allocate(pool, 2000000, MORVA_ZERO_FILL);
  }
  other->destroy(other);
  HostLock *lock = host.lock();
  lock->acquire(lock, MORVA_LOCK_CHANGE, 1);
  lock->release(lock);
  lock->destroy(lock);
  for (size_t i = 0; i < 20 && i < blocks.size(); ++i) {
    expect(isFilledWith(static_cast<unsigned char *>(blocks[i]), 65536, i),
           "a refusal changes a block that is in use");
  }
  pool->free(pool, blocks.back());
  fillWith(taken(pool, 65536), 65536, 9);
  pool->destroy(pool);
  host.endWithNothingLeft();
}

void holdsInThreads(const Subject &subject) {
  Host host(subject, limitedTo(kLimit));
  HostPool *shared = host.pool();
  std::vector<uint64_t> all(4);
  std::vector<HostPool *> pools(4);
  for (HostPool *&pool : pools) pool = host.pool(MORVA_POOL_RECORDS);
  inThreads(4, [&](unsigned thread) {
    HostPool *pool = thread % 2 == 0 ? shared : pools[thread];
    all[thread] = takeAll(pool, 20000);
  });
  expectWithinLimit(std::accumulate(all.begin(), all.end(), uint64_t{0}));
  for (HostPool *pool : pools) pool->destroy(pool);
  shared->destroy(shared);
  host.endWithNothingLeft();
}

// ---- Tables at the limit --------------------------------------------------------------

void letsTablesFailWhole(const Subject &subject) {
  for (const uint32_t flags :
       {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, uint32_t{flagFixedKey | flagNoLock}}) {
    Host host(subject, limitedTo(UINT64_C(3) << 20));
    const DrivingLibrary library(subject);
    const Extension extension(library, host);
    expect(extension.get() != nullptr, "the library's entry function answers null");
    TableShape shape{flags};
    shape.hashExp = 8;
    MORVAInst *inst = newInstance(extension, shape);
    expect(inst != nullptr, "an instance cannot be made within 3 MiB");
    TableKey key(shape);
    std::vector<uint64_t> probe(80);
    for (int round = 0; round < 2; ++round) {
      uint64_t stored = 0;
      for (;;) {
        key.set(stored);
        const TableData data = TableData::of(stored, 1);
        const MORVAStatus status = inst->Add(inst, &data, key.data(), key.length());
        if (status == MORVA_NO_MEMORY) break;
        expectStatus(status, MORVA_OK, "Add near the limit");
        expect(++stored < 150000, "a limit of 3 MiB does not stop a table");
      }
      expect(stored >= 1000, "a table gets only " + shown(stored) + " records into 3 MiB");
      expectEqual<uint64_t>(inst->NumElements(inst), stored, "NumElements after the refusal");
      // With a probe of its own a lookup needs no memory.
      for (uint64_t number = 0; number < stored; number += 7) {
        key.set(number);
        void *data = nullptr;
        expectStatus(inst->Find2(inst, key.data(), key.length(),
                                 reinterpret_cast<RecordNode *>(probe.data()), &data),
                     MORVA_OK, "Find2 after the refusal");
        expect(data != nullptr && *static_cast<TableData *>(data) == TableData::of(number, 1),
               "a record is lost or changed after the refusal");
      }
      expectStatus(inst->Clear(inst), MORVA_OK, "Clear after the refusal");
      expectEqual(inst->NumElements(inst), 0U, "NumElements after Clear");
    }
    inst->Destroy(inst);
    extension.destroy();
    host.endWithNothingLeft();
  }
}

// Where a step of a creation is refused, the steps before it are taken back.
void letsCreationsFailWhole(const Subject &subject) {
  if (checkTable(subject).destroy == nullptr) throw NotApplicable("the host cannot be ended");
  const DrivingLibrary library(subject);
  std::vector<TableShape> shapes = {
      {flagFixedKey | flagOrdered | flagNoLock}, {flagVarKey | flagOrdered}, {flagFixedKey}};
  for (const TableShape &shape : shapes) {
    bool made = false;
    uint64_t refused = 0;
    for (uint64_t limit = 64; !made; limit += limit < 4096 ? 448 : 4096) {
      expect(limit < UINT64_C(8) << 20, "an instance cannot be made within 8 MiB");
      Host host(subject, limitedTo(limit));
      const Extension extension(library, host);
      // The lock of an ordered one is left to the host.
      uint32_t mayBeLeft = 0;
      if (extension.get() != nullptr) {
        MORVAInst *inst = newInstance(extension, shape);
        made = inst != nullptr;
        if (inst != nullptr) {
          inst->Destroy(inst);
        } else if (shape.has(flagOrdered) && !shape.has(flagNoLock)) {
          mayBeLeft = 1;
        }
        extension.destroy();
      }
      if (!made) ++refused;
      const uint32_t left = host.end();
      expect(left <= mayBeLeft, "a creation that was refused with a limit of " + shown(limit) +
                                    " bytes leaves " + shown(left) + " objects");
    }
    expect(refused > 0, "an instance can be made with a limit of 64 bytes");
  }
}

constexpr Check kChecks[] = {
    {"limit.refuses-what-is-beyond",
     "allocate answers null for what would go beyond the memory limit.", refuseBeyondTheLimit},
    {"limit.grants-what-is-below", "Half of the memory limit at least can be had, in any blocks.",
     grantWhatIsBelowIt},
    {"limit.counts-all-pools", "The memory limit is for all pools together.", countAllPools},
    {"limit.refuses-blocks-that-are-too-large",
     "A block that is larger than the limit, or than all memory, is answered with null.",
     refuseABlockThatIsTooLarge},
    {"limit.is-given-back-by-free", "What was freed can be had again.", isGivenBackByFree},
    {"limit.is-given-back-by-destroy", "What a destroyed pool had can be had again.",
     isGivenBackByDestroy},
    {"limit.leaves-the-host-usable", "After a refusal everything else goes on.",
     leavesTheHostUsable},
    {"limit.holds-in-threads", "Several threads together do not get beyond the limit.",
     holdsInThreads},
    {"limit.lets-tables-fail-whole",
     "A table that meets the limit keeps its records, and can be cleared and filled again.",
     letsTablesFailWhole},
    {"limit.lets-creations-fail-whole", "A creation that meets the limit leaves nothing behind.",
     letsCreationsFailWhole},
};

}  // namespace

std::span<const Check> hostLimitChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
