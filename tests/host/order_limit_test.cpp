// The order list where there is no memory for its index: appending cannot fail,
// and every record is still found.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <set>

#include "order_nodes.h"

namespace host_test {
namespace {

// Takes 512 bytes after 512 until the host refuses.
void takeAll(HostPool *pool) {
  while (pool->allocate(pool, 512, 0) != nullptr) {
  }
}

HostPool *makePool(const CompanionHost &host) {
  const PoolOptions options = {};
  return host.services()->createPool(host.services(), &options, nullptr, "hungry");
}

// Appends, unlinks in random order, clears, and does it all again, while the
// index gets no more than `limit` bytes.
void workUnder(uint64_t limit, bool lockedTrees) {
  SCOPED_TRACE(limit);
  CompanionHost host(lockedTrees, limit);
  constexpr size_t kRecords = 2000;
  Records all(kRecords, 64, 100);
  DrivenList list(host);
  std::mt19937 random(3);
  for (int round = 0; round < 3; ++round) {
    for (size_t i = 0; i < kRecords; ++i) list.append(all.at(i));
    ASSERT_TRUE(list.agrees());
    EXPECT_GT(host.stats().allocationsRefused, 0u);
    EXPECT_LE(host.stats().bytesMappedPeak, limit);
    for (int step = 0; step < 6000; ++step) {
      RecordNode *record = all.at(random() % kRecords);
      if (random() % 2 == 0) {
        ASSERT_TRUE(list.unlink(record));
      } else if (!list.holds(record)) {
        list.append(record);
      }
    }
    ASSERT_TRUE(list.agrees());
    if (round == 0) {
      list.clear();
      ASSERT_TRUE(list.unlink(all.at(0)));
    } else {
      for (size_t i = 0; i < kRecords; ++i) ASSERT_TRUE(list.unlink(all.at(i)));
      ASSERT_EQ(list->head, nullptr);
    }
  }
}

TEST(OrderUnderALimit, WorksWithoutAnyIndex) {
  workUnder(1, false);
  workUnder(4096, true);
}

TEST(OrderUnderALimit, WorksWithAnIndexOfAPartOfTheRecords) {
  for (const uint64_t limit : {8192u, 12288u, 16384u, 20480u}) workUnder(limit, false);
}

TEST(OrderUnderALimit, IndexesAgainOnceThereIsMemory) {
  constexpr uint64_t kLimit = 1 << 20;
  CompanionHost host(false, kLimit);
  // More without memory than the index may have set aside for itself before.
  constexpr size_t kBefore = 1000, kWithout = 10000, kRecords = kBefore + kWithout + 1000;
  Records all(kRecords, 64, 64);
  DrivenList list(host);
  HostPool *pool = makePool(host);
  for (size_t i = 0; i < kBefore; ++i) list.append(all.at(i));
  const uint64_t refusedBefore = host.stats().allocationsRefused;
  EXPECT_EQ(refusedBefore, 0u);
  takeAll(pool);
  for (size_t i = kBefore; i < kBefore + kWithout; ++i) list.append(all.at(i));
  EXPECT_GT(host.stats().allocationsRefused, refusedBefore + 1);
  pool->destroy(pool);
  // Records of all three kinds, some of the same stretches of memory.
  for (size_t i = kBefore + kWithout; i < kRecords; ++i) list.append(all.at(i));
  const uint64_t refused = host.stats().allocationsRefused;
  std::vector<size_t> order(kRecords);
  for (size_t i = 0; i < kRecords; ++i) order[i] = i;
  std::shuffle(order.begin(), order.end(), std::mt19937(4));
  for (const size_t i : order) {
    ASSERT_TRUE(list.unlink(all.at(i)));
    if (i % 3 == 0) list.append(all.at(i));
  }
  ASSERT_TRUE(list.agrees());
  EXPECT_EQ(list.size(), kRecords / 3);
  EXPECT_EQ(host.stats().allocationsRefused, refused);
  for (const size_t i : order) ASSERT_TRUE(list.unlink(all.at(i)));
}

TEST(OrderUnderALimit, FillsTheTableOfTheIndexNearlyUpWhenThereIsNoMemoryForALargerOne) {
  constexpr uint64_t kLimit = 2 << 20;
  CompanionHost host(false, kLimit);
  // So far apart that each record takes a stretch of its own.
  constexpr size_t kFirst = 500, kAtATime = 16, kSteps = 40;
  Records all(kFirst + kSteps * kAtATime, 2064, 1, true);
  DrivenList list(host);
  size_t next = 0;
  while (next < kFirst) list.append(all.at(next++));
  // Memory comes back in bites that are large enough for some more stretches.
  std::vector<HostPool *> bites;
  for (size_t i = 0; i < kSteps; ++i) {
    bites.push_back(makePool(host));
    ASSERT_NE(bites.back()->allocate(bites.back(), 512, 0), nullptr);
  }
  HostPool *rest = makePool(host);
  takeAll(rest);
  for (HostPool *bite : bites) {
    bite->destroy(bite);
    for (size_t i = 0; i < kAtATime; ++i) list.append(all.at(next++));
  }
  EXPECT_LE(host.stats().bytesMappedPeak, kLimit);
  ASSERT_TRUE(list.agrees());
  for (size_t i = 0; i < next; ++i) ASSERT_TRUE(list.unlink(all.at((i * 7) % next)));
  EXPECT_EQ(list->head, nullptr);
  rest->destroy(rest);
}

TEST(OrderUnderALimit, LooksAlongTheListOnlyWhileItHoldsRecordsOutsideOfTheIndex) {
  constexpr uint64_t kLimit = 1 << 20;
  const auto area = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t perArea = area / sizeof(OrderNode);
  for (const bool cleared : {false, true}) {
    CompanionHost host(false, kLimit);
    OrderList *list = host.orderLists->makeOrderList(host.orderLists, host.trees);
    ASSERT_NE(list, nullptr);
    const auto unlink = [&](RecordNode *record) {
      const OrderNode image = {nullptr, nullptr, record};
      return host.orderLists->unlink(list, &image);
    };
    Records all(perArea + 1, 64, perArea + 1);
    OrderNode stays = {nullptr, nullptr, all.at(0)};
    host.orderLists->append(list, &stays);
    HostPool *pool = makePool(host);
    takeAll(pool);
    // Until the index has used up what it has.
    Records apart(200, 4112, 1);
    std::vector<OrderNode> outside(200);
    const uint64_t refused = host.stats().allocationsRefused;
    size_t count = 0;
    while (count < outside.size() && host.stats().allocationsRefused < refused + 3) {
      outside[count].record = apart.at(count);
      host.orderLists->append(list, &outside[count++]);
    }
    ASSERT_GE(host.stats().allocationsRefused, refused + 3);
    pool->destroy(pool);
    if (cleared) {
      list->head = nullptr;
    } else {
      for (size_t i = 0; i < count; ++i) ASSERT_EQ(unlink(apart.at(i)), &outside[i]);
    }
    void *memory = mmap(nullptr, area, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto *nodes = static_cast<OrderNode *>(memory);
    for (size_t i = 1; i < perArea; ++i) {
      nodes[i].record = all.at(i);
      host.orderLists->append(list, &nodes[i]);
    }
    ASSERT_EQ(mprotect(memory, area, PROT_NONE), 0);
    EXPECT_EQ(unlink(all.at(perArea)), nullptr);
    EXPECT_EQ(unlink(apart.at(0)), nullptr);
    list->destroy(list);
    munmap(memory, area);
  }
}

// ---- through an instance ---------------------------------------------------

std::vector<uint64_t> keysInOrder(const MORVAInst *inst) {
  std::vector<uint64_t> keys;
  for (const OrderNode *node = QZOrderFirst(inst); node != nullptr; node = QZOrderNext(node)) {
    auto *record = static_cast<RecordNode *>(node->record);
    uint64_t key;
    std::memcpy(&key, static_cast<char *>(MORVARecordBase(record)) + sizeof(KeyPrefix), sizeof key);
    keys.push_back(key);
  }
  return keys;
}

TEST(OrderUnderALimit, GivesWayBeforeAnInstanceLosesARecord) {
  // Whatever allocation is the first to be refused, what the operations
  // accepted is in order, and can be removed.
  // Fewer than one stretch of records, so that a slot is left to remove with.
  constexpr size_t kUnindexed = 40;
  bool removedUnindexed = false;
  for (uint64_t limit = 150'000; limit < 320'000; limit += 4096) {
    SCOPED_TRACE(limit);
    CompanionHost host(false, limit);
    MORVAInst *inst = host.create(flagFixedKey | flagOrdered, 8, 8, 4);
    ASSERT_NE(inst, nullptr);
    std::vector<uint64_t> accepted;
    size_t unindexed = 0;
    MORVAStatus status = MORVA_OK;
    for (uint64_t key = 0; status == MORVA_OK && unindexed < kUnindexed; ++key) {
      status = inst->Add(inst, &key, &key, sizeof key);
      if (status != MORVA_OK) break;
      accepted.push_back(key);
      // A refusal that the operation did not pass on was the index's.
      if (host.stats().allocationsRefused > 0) ++unindexed;
    }
    EXPECT_TRUE(status == MORVA_NO_MEMORY || unindexed == kUnindexed) << status;
    EXPECT_LE(host.stats().bytesMappedPeak, limit);
    EXPECT_EQ(keysInOrder(inst), accepted);
    EXPECT_EQ(inst->NumElements(inst), accepted.size());
    std::shuffle(accepted.begin(), accepted.end(), std::mt19937(9));
    std::set<uint64_t> left(accepted.begin(), accepted.end());
    // A removal needs a record slot for its probe.
    if (inst->freeRecords != nullptr || inst->recordsUsed < inst->recordBlockCapacity) {
      removedUnindexed = removedUnindexed || unindexed == kUnindexed;
      for (size_t i = 0; i < accepted.size(); i += 2) {
        ASSERT_EQ(inst->Remove(inst, &accepted[i], sizeof accepted[i]), MORVA_OK);
        left.erase(accepted[i]);
      }
      EXPECT_EQ(keysInOrder(inst), std::vector<uint64_t>(left.begin(), left.end()));
    }
    ASSERT_EQ(inst->Clear(inst), MORVA_OK);
    EXPECT_EQ(QZOrderFirst(inst), nullptr);
    EXPECT_EQ(QZOrderLast(inst), nullptr);
    for (uint64_t key = 0; key < 100; ++key)
      ASSERT_EQ(inst->Add(inst, &key, &key, sizeof key), MORVA_OK);
    EXPECT_EQ(keysInOrder(inst).size(), 100u);
  }
  EXPECT_TRUE(removedUnindexed);
}

}  // namespace
}  // namespace host_test
