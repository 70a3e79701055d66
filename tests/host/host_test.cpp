// The life of a host, its services, and what it tells about itself.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "loader_test.h"
#include "morva/order_list.h"
#include "morva/record_packer.h"
#include "morva/tree_container.h"

namespace host_test {
namespace {

void *companion(const HostPtr &host, const std::u32string &name) {
  HostServices *services = QZHostServices(host.get());
  return services->loadExtension(services, reinterpret_cast<const uint32_t *>(name.data()),
                                 name.size(), 0);
}

uint32_t destroy(HostPtr &host, QZHostStats *left = nullptr) {
  return QZHostDestroy(host.release(), left);
}

// For trees that stay empty: nothing of it is called.
TreeOptions treeOptions() {
  static const TreeCallbacks callbacks{};
  TreeOptions options{};
  options.callbacks = &callbacks;
  return options;
}

void expectNothing(const QZHostStats &stats) {
  EXPECT_EQ(stats.bytesLive, 0u);
  EXPECT_EQ(stats.bytesMapped, 0u);
  EXPECT_EQ(stats.extensions, 0u);
  EXPECT_EQ(stats.pools, 0u);
  EXPECT_EQ(stats.locks, 0u);
  EXPECT_EQ(stats.companions, 0u);
  EXPECT_EQ(stats.packers, 0u);
  EXPECT_EQ(stats.trees, 0u);
  EXPECT_EQ(stats.orderLists, 0u);
  EXPECT_EQ(stats.reserved, 0u);
}

TEST(Host, ANewOneHoldsNothing) {
  HostPtr host = makeHost();
  ASSERT_NE(host, nullptr);
  const QZHostStats stats = statsOf(host);
  expectNothing(stats);
  EXPECT_EQ(stats.bytesMappedPeak, 0u);
  EXPECT_EQ(stats.memoryLimit, 0u);
  EXPECT_EQ(stats.allocationsRefused, 0u);
  EXPECT_EQ(stats.unmatchedReleases, 0u);
  EXPECT_EQ(destroy(host), 0u);
}

TEST(Host, OptionsAreCopied) {
  QZHostOptions options{1 << 20, 0, 1};
  const HostPtr host = makeHost(options);
  options = {};
  EXPECT_EQ(statsOf(host).memoryLimit, 1u << 20);
  const TreeOptions treeOptions = host_test::treeOptions();
  auto *trees = static_cast<TreeExt *>(companion(host, U"qzeavl"));
  EXPECT_NE(trees->makeTree(trees, &treeOptions, 0, 0)->lock, nullptr);
}

TEST(Host, WithoutOptionsItHasNoLimitAndPlainTrees) {
  const HostPtr host = makeHost();
  EXPECT_EQ(statsOf(host).memoryLimit, 0u);
  const TreeOptions treeOptions = host_test::treeOptions();
  auto *trees = static_cast<TreeExt *>(companion(host, U"qzeavl"));
  EXPECT_EQ(trees->makeTree(trees, &treeOptions, 0, 0)->lock, nullptr);
}

TEST(Host, NullsAreAnsweredWithNothing) {
  QZHostStats stats{};
  stats.pools = 7;
  EXPECT_EQ(QZHostDestroy(nullptr, &stats), 0u);
  expectNothing(stats);
  EXPECT_EQ(QZHostDestroy(nullptr, nullptr), 0u);
  EXPECT_EQ(QZHostServices(nullptr), nullptr);
  stats.pools = 7;
  QZHostGetStats(nullptr, &stats);
  expectNothing(stats);
  QZHostGetStats(nullptr, nullptr);
  QZPoolStats pool{};
  EXPECT_EQ(QZHostGetPoolStats(nullptr, &pool, 1), 0u);
  const HostPtr host = makeHost();
  QZHostGetStats(host.get(), nullptr);
}

// ---- services --------------------------------------------------------------------

TEST(HostServices, AreTheSameForTheLifeOfTheHost) {
  const HostPtr host = makeHost(), other = makeHost();
  HostServices *services = QZHostServices(host.get());
  ASSERT_NE(services, nullptr);
  EXPECT_NE(services, QZHostServices(other.get()));
  makePool(host);
  EXPECT_EQ(QZHostServices(host.get()), services);
}

TEST(HostServices, RefuseANullTable) {
  const HostPtr host = makeHost();
  HostServices *services = QZHostServices(host.get());
  const PoolOptions poolOptions{};
  const LockOptions lockOptions{};
  const uint32_t name[] = {U'q', U'z', U'e', U'v', U'p'};
  EXPECT_EQ(services->createPool(nullptr, &poolOptions, nullptr, "pool"), nullptr);
  EXPECT_EQ(services->createLock(nullptr, &lockOptions, nullptr, "lock"), nullptr);
  EXPECT_EQ(services->loadExtension(nullptr, name, 5, 0), nullptr);
  EXPECT_EQ(services->loadExtension(services, nullptr, 5, 0), nullptr);
  EXPECT_EQ(services->loadExtension(services, nullptr, 0, 0), nullptr);
  expectNothing(statsOf(host));
}

TEST(HostServices, DestroyingNoPoolOrLockDoesNothing) {
  const HostPtr host = makeHost();
  makePool(host)->destroy(nullptr);
  makeLock(host)->destroy(nullptr);
  EXPECT_EQ(statsOf(host).pools, 1u);
  EXPECT_EQ(statsOf(host).locks, 1u);
}

// ---- companions --------------------------------------------------------------------

TEST(Companions, AreOnePerHostAndCountedByTheirLoads) {
  const HostPtr host = makeHost(), other = makeHost();
  for (const std::u32string name : {U"qzevp", U"qzeavl", U"qzeai"}) {
    const uint32_t before = statsOf(host).companions;
    void *first = companion(host, name);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(companion(host, name), first);
    EXPECT_EQ(statsOf(host).companions, before + 2);
    EXPECT_NE(companion(other, name), first);
  }
  EXPECT_EQ(statsOf(host).companions, 6u);
  EXPECT_EQ(statsOf(other).companions, 3u);
}

TEST(Companions, OfUnknownNamesAreNull) {
  const HostPtr host = makeHost();
  for (const std::u32string name :
       {U"", U"q", U"qzev", U"qzevpp", U"qzeav", U"qzeavll", U"qzea", U"qzeaii", U"QZEVP", U"qzeaI",
        U"qzexx", U"pvezq", U" qzevp", U"\U0001F600qzev", U"companion of a name of some length"}) {
    EXPECT_EQ(companion(host, name), nullptr);
  }
  // The length counts, not an end in the name.
  EXPECT_EQ(companion(host, std::u32string(U"qzevp\0", 6)), nullptr);
  EXPECT_EQ(companion(host, std::u32string(U"qzevp\0x", 7)), nullptr);
  EXPECT_EQ(statsOf(host).companions, 0u);
}

TEST(Companions, ReleasedMoreOftenThanLoadedStayAtZero) {
  const HostPtr host = makeHost();
  auto *packers = static_cast<RecordPackerExt *>(companion(host, U"qzevp"));
  auto *trees = static_cast<TreeExt *>(companion(host, U"qzeavl"));
  auto *orderLists = static_cast<OrderListExt *>(companion(host, U"qzeai"));
  for (uint32_t left : {2, 2, 2}) {
    packers->release(packers);
    EXPECT_EQ(statsOf(host).companions, left);
  }
  for (int i = 0; i < 3; ++i) {
    trees->release(trees);
    orderLists->release(orderLists);
  }
  EXPECT_EQ(statsOf(host).companions, 0u);
  EXPECT_EQ(companion(host, U"qzevp"), packers);
  EXPECT_EQ(statsOf(host).companions, 1u);
  packers->release(nullptr);
  trees->release(nullptr);
  orderLists->release(nullptr);
  EXPECT_EQ(statsOf(host).companions, 1u);
}

// ---- destroying ------------------------------------------------------------------

TEST(HostDestroy, CountsAndReportsEverythingThatWasAlive) {
  HostPtr host = makeHost();
  auto *packers = static_cast<RecordPackerExt *>(companion(host, U"qzevp"));
  auto *trees = static_cast<TreeExt *>(companion(host, U"qzeavl"));
  auto *orderLists = static_cast<OrderListExt *>(companion(host, U"qzeai"));
  companion(host, U"qzeai");
  const TreeOptions treeOptions = host_test::treeOptions();
  for (int i = 0; i < 2; ++i) makePool(host);
  for (int i = 0; i < 3; ++i) makeLock(host);
  for (int i = 0; i < 5; ++i) ASSERT_NE(packers->makePacker(packers, 0), nullptr);
  for (int i = 0; i < 6; ++i) ASSERT_NE(trees->makeTree(trees, &treeOptions, 0, 0), nullptr);
  for (int i = 0; i < 7; ++i) ASSERT_NE(orderLists->makeOrderList(orderLists, nullptr), nullptr);
  QZHostStats left{};
  EXPECT_EQ(destroy(host, &left), 2u + 3 + 4 + 5 + 6 + 7);
  EXPECT_EQ(left.extensions, 0u);
  EXPECT_EQ(left.pools, 2u);
  EXPECT_EQ(left.locks, 3u);
  EXPECT_EQ(left.companions, 4u);
  EXPECT_EQ(left.packers, 5u);
  EXPECT_EQ(left.trees, 6u);
  EXPECT_EQ(left.orderLists, 7u);
}

TEST(HostDestroy, CountsEachKindByItself) {
  const auto countWith = [](auto make) {
    HostPtr host = makeHost();
    make(host);
    return destroy(host);
  };
  EXPECT_EQ(countWith([](HostPtr &host) { makePool(host); }), 1u);
  EXPECT_EQ(countWith([](HostPtr &host) { makeLock(host); }), 1u);
  EXPECT_EQ(countWith([](HostPtr &host) { companion(host, U"qzevp"); }), 1u);
  EXPECT_EQ(countWith([](HostPtr &host) { load(host, kMorva); }), 0u);
  EXPECT_EQ(countWith([](HostPtr &host) {
              load(host, kMorva);
              makePool(host);
            }),
            1u);
  EXPECT_EQ(countWith([](HostPtr &host) {
              MORVAExt *ext = load(host, kMorva);
              ext->pool->allocate(ext->pool, 10, 0);
              ext->pool->allocate(ext->pool, 10, 0);
            }),
            2u);
}

TEST(HostDestroy, ReportsMemoryAndReleasesIt) {
  HostPtr host = makeHostWithLimit(64 << 20);
  HostPool *pool = makePool(host);
  for (int i = 0; i < 100; ++i) pool->allocate(pool, 10000, 0);
  pool->allocate(pool, 1 << 30, 0);
  HostLock *lock = makeLock(host);
  lock->release(lock);
  QZHostStats left{};
  destroy(host, &left);
  EXPECT_GE(left.bytesLive, 1000000u);
  EXPECT_GE(left.bytesMapped, left.bytesLive);
  EXPECT_EQ(left.memoryLimit, 64u << 20);
  EXPECT_EQ(left.allocationsRefused, 1u);
  EXPECT_EQ(left.unmatchedReleases, 1u);
}

TEST(HostDestroy, TakesInstancesWithThemThatAreStillAlive) {
  for (const uint32_t flags : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, uint32_t{0},
                               uint32_t{flagFixedKey | flagOrdered | flagMultiData}}) {
    for (const uint32_t lockedTrees : {0u, 1u}) {
      HostPtr host = makeHost({0, 1, lockedTrees});
      MORVAExt *ext = load(host, kMorva);
      MORVAParms parms{};
      parms.dataLength = 8;
      parms.keyLength = 8;
      parms.flags = flags;
      parms.hashExp = 2;
      MORVAInst *inst = ext->Create(ext, &parms, nullptr, "left behind");
      ASSERT_NE(inst, nullptr);
      if (flags != 0) {
        EXPECT_TRUE(works(inst, 0, 1000));
      }
      const QZHostStats before = statsOf(host);
      const uint64_t blocks = poolStatsOf(host).at(0).blocksLive;
      QZHostStats left{};
      const uint32_t count = destroy(host, &left);
      EXPECT_EQ(count, (before.pools - 1) + before.locks + before.companions + before.packers +
                           before.trees + before.orderLists + (blocks - 1));
      EXPECT_EQ(left.locks, 1u);
      EXPECT_EQ(left.trees, 1u);
      EXPECT_EQ(left.extensions, 1u);
      EXPECT_EQ(left.bytesLive, before.bytesLive);
    }
  }
}

TEST(HostDestroy, AnswersZeroWhenEveryInstanceWasDestroyed) {
  HostPtr host = makeHost();
  MORVAExt *first = load(host, kMorva), *second = load(host, kMorva);
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(works(first));
    EXPECT_TRUE(works(second));
  }
  QZHostStats left{};
  EXPECT_EQ(destroy(host, &left), 0u);
  EXPECT_EQ(left.extensions, 2u);
  EXPECT_EQ(left.pools, 2u);
}

// ---- limits, as a table sees them ------------------------------------------------

TEST(Host, ATableMeetsTheLimitAndRecovers) {
  const HostPtr host = makeHostWithLimit(4 << 20);
  MORVAExt *ext = load(host, kMorva);
  uint32_t first = 0;
  for (int round = 0; round < 3; ++round) {
    MORVAInst *inst = makeInstance(ext);
    ASSERT_NE(inst, nullptr);
    MORVAStatus status = MORVA_OK;
    uint64_t key = 0;
    for (; status == MORVA_OK && key < 10000000; ++key) status = inst->Add(inst, &key, &key, 8);
    EXPECT_EQ(status, MORVA_NO_MEMORY);
    const uint32_t count = inst->NumElements(inst);
    EXPECT_GT(count, 1000u);
    if (round == 0) first = count;
    EXPECT_EQ(count, first);
    EXPECT_LE(statsOf(host).bytesMappedPeak, 4u << 20);
    EXPECT_GE(statsOf(host).allocationsRefused, 1u);
    inst->Destroy(inst);
  }
  unload(host, ext);
}

// ---- several hosts -----------------------------------------------------------------

TEST(Host, AnyNumberLiveAtOnceInAnyThread) {
  std::vector<std::thread> threads;
  std::atomic<int> failed{0};
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 20; ++round) {
        HostPtr hosts[5];
        for (HostPtr &host : hosts) {
          host = makeHost();
          HostPool *pool = makePool(host);
          pool->allocate(pool, 100000, MORVA_ZERO_FILL);
          makeLock(host);
          companion(host, U"qzeavl");
        }
        for (HostPtr &host : hosts)
          if (destroy(host) != 3) ++failed;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(failed, 0);
}

}  // namespace
}  // namespace host_test
