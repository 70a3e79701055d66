// Objects that a host has no memory for, and calls without an object.
#include <gtest/gtest.h>

#include "host_state.h"
#include "qz_host.h"
#include "system.h"

namespace host_test {
namespace {

void *companionOf(const HostPtr &host, const char32_t *name, uint64_t length) {
  uint32_t characters[8];
  for (uint64_t i = 0; i < length; ++i) characters[i] = name[i];
  HostServices *services = QZHostServices(host.get());
  return services->loadExtension(services, characters, length, 0);
}

class Objects : public ::testing::TestWithParam<bool> {
 protected:
  Objects() {
    QZHostOptions options = QZ_HOST_OPTIONS_DEFAULT;
    options.lockedTrees = GetParam() ? 1 : 0;
    host = makeHost(options);
    trees = static_cast<TreeExt *>(companionOf(host, U"qzeavl", 6));
    packers = static_cast<RecordPackerExt *>(companionOf(host, U"qzevp", 5));
    lists = static_cast<OrderListExt *>(companionOf(host, U"qzeai", 5));
  }

  TreeContainer *makeTree() { return trees->makeTree(trees, &treeOptions, 0, 0); }

  void expectNothingMade() {
    const QZHostStats stats = statsOf(host);
    EXPECT_EQ(stats.pools + stats.locks + stats.trees + stats.packers + stats.orderLists, 0u);
  }

  HostPtr host;
  TreeExt *trees;
  RecordPackerExt *packers;
  OrderListExt *lists;
  TreeCallbacks callbacks{};
  TreeOptions treeOptions{
      .reserved0 = 0, .word0 = 0, .word1 = 1, .callbacks = &callbacks, .reserved24 = 0};
};

INSTANTIATE_TEST_SUITE_P(Hosts, Objects, ::testing::Bool(), [](const auto &info) {
  return std::string(info.param ? "LockedTrees" : "PlainTrees");
});

TEST_P(Objects, ThatThereIsNoMemoryForAreNull) {
  const Instead refused(theSystem.hasMemory, never);
  EXPECT_EQ(makePool(host), nullptr);
  EXPECT_EQ(makeLock(host), nullptr);
  EXPECT_EQ(makeTree(), nullptr);
  EXPECT_EQ(packers->makePacker(packers, 0), nullptr);
  EXPECT_EQ(lists->makeOrderList(lists, trees), nullptr);
  expectNothingMade();
}

TEST_P(Objects, ATreeWithoutMemoryForItselfLeavesNoLocksBehind) {
  const Instead refused(theSystem.hasMemory, allBut(GetParam() ? 2 : 1));
  EXPECT_EQ(makeTree(), nullptr);
  expectNothingMade();
}

TEST_P(Objects, OfACompanionOrATableThatIsNoneAreNull) {
  EXPECT_EQ(trees->makeTree(nullptr, &treeOptions, 0, 0), nullptr);
  EXPECT_EQ(trees->makeTree(trees, nullptr, 0, 0), nullptr);
  treeOptions.callbacks = nullptr;
  EXPECT_EQ(makeTree(), nullptr);
  EXPECT_EQ(packers->makePacker(nullptr, 0), nullptr);
  EXPECT_EQ(lists->makeOrderList(nullptr, trees), nullptr);
  expectNothingMade();
}

TEST_P(Objects, DestroyingNullChangesNothing) {
  HostPool *pool = makePool(host);
  HostLock *lock = makeLock(host);
  TreeContainer *tree = makeTree();
  RecordPacker *packer = packers->makePacker(packers, 0);
  OrderList *list = lists->makeOrderList(lists, trees);
  pool->destroy(nullptr);
  lock->destroy(nullptr);
  tree->destroy(nullptr);
  packer->destroy(nullptr);
  list->destroy(nullptr);
  const QZHostStats stats = statsOf(host);
  EXPECT_EQ(stats.pools + stats.locks + stats.trees + stats.packers + stats.orderLists, 5u);
}

TEST(Host, IsNullWhereThereIsNoMemoryForIt) {
  const Instead refused(theSystem.hasMemory, never);
  EXPECT_EQ(QZHostCreate(nullptr), nullptr);
}

TEST(Host, TellsTheLargestNumberOfThingsLeftWhereThereAreMore) {
  QZHost *host = QZHostCreate(nullptr);
  host->treeExt.loads = UINT32_MAX;
  const LockOptions options{0, 1, {}};
  ASSERT_NE(host->services.createLock(&host->services, &options, nullptr, "left"), nullptr);
  QZHostStats left{};
  EXPECT_EQ(QZHostDestroy(host, &left), UINT32_MAX);
  EXPECT_EQ(left.companions, UINT32_MAX);
  EXPECT_EQ(left.locks, 1u);
}

}  // namespace
}  // namespace host_test
