// The service table: what holds for every service, whatever it makes.

#include <string>
#include <vector>

#include "host_checks.h"
#include "host_subject.h"

namespace morva::cli::check {

namespace {

void useAndDestroy(HostPool *pool) {
  for (const uint64_t size : {24, 400, 70000}) {
    unsigned char *block = taken(pool, size);
    fillWith(block, size, size);
    expect(isFilledWith(block, size, size), "a block does not hold what was written to it");
    pool->free(pool, block);
  }
  pool->destroy(pool);
}

void useAndDestroy(HostLock *lock) {
  lock->acquire(lock, MORVA_LOCK_CHANGE, 1);
  lock->release(lock);
  lock->destroy(lock);
}

// The library reads no other slot than the named ones, so a host may leave
// anything there; the arguments it gives are on its stack.
void argumentsAreBorrowed(const Subject &subject) {
  Host host(subject);
  HostServices *services = host.services();
  const std::string name = "a name that is gone";
  const LentBytes lentName(name.c_str(), name.size() + 1);
  const PoolOptions poolOptions{0, {}};
  const LentBytes lentPool(&poolOptions, sizeof poolOptions);
  const LockOptions lockOptions{0, 1, {}};
  const LentBytes lentLock(&lockOptions, sizeof lockOptions);

  HostPool *pool =
      services->createPool(services, lentPool.as<PoolOptions>(), nullptr, lentName.as<char>());
  expect(pool != nullptr, "createPool answers null");
  HostLock *lock =
      services->createLock(services, lentLock.as<LockOptions>(), nullptr, lentName.as<char>());
  expect(lock != nullptr, "createLock answers null");
  lentName.takeBack();
  lentPool.takeBack();
  lentLock.takeBack();
  useAndDestroy(pool);
  useAndDestroy(lock);
  host.endWithNothingLeft();
}

void locksMayHaveNoName(const Subject &subject) {
  Host host(subject);
  useAndDestroy(host.lock(1, nullptr));
  useAndDestroy(host.lock(0, nullptr));
  host.endWithNothingLeft();
}

void namesMayBeLong(const Subject &subject) {
  Host host(subject);
  for (const size_t length : {0, 1, 31, 32, 64, 255, 256, 5000}) {
    const std::string name(length, 'n');
    const LentBytes lent(name.c_str(), name.size() + 1);
    useAndDestroy(host.pool(0, lent.as<char>()));
    useAndDestroy(host.lock(1, lent.as<char>()));
  }
  host.endWithNothingLeft();
}

void serveSeveralThreads(const Subject &subject) {
  Host host(subject);
  inThreads(4, [&](unsigned number) {
    for (int round = 0; round < 150; ++round) {
      HostPool *pool = host.pool(number % 2 == 0 ? 0 : MORVA_POOL_RECORDS);
      HostLock *lock = host.lock();
      TreeExt *trees = host.trees();
      OrderListExt *lists = host.lists();
      OrderList *list = lists->makeOrderList(lists, trees);
      expect(list != nullptr, "makeOrderList answers null");
      RecordPackerExt *packers = host.packers();
      RecordPacker *packer = packers->makePacker(packers, 0);
      expect(packer != nullptr, "makePacker answers null");
      packer->destroy(packer);
      packers->release(packers);
      useAndDestroy(lock);
      list->destroy(list);
      trees->release(trees);
      lists->release(lists);
      useAndDestroy(pool);
    }
  });
  host.endWithNothingLeft();
}

void makeManyObjects(const Subject &subject) {
  Host host(subject);
  std::vector<HostPool *> pools;
  std::vector<HostLock *> locks;
  for (int i = 0; i < 1000; ++i) {
    pools.push_back(host.pool(i % 2 == 0 ? 0 : MORVA_POOL_VARKEYS));
    locks.push_back(host.lock());
    fillWith(taken(pools.back(), 100), 100, 1);
  }
  // One at a time: the library never holds more than a few.
  for (HostLock *lock : locks) useAndDestroy(lock);
  for (HostPool *pool : pools) pool->destroy(pool);
  host.endWithNothingLeft();
}

constexpr Check kChecks[] = {
    {"services.arguments-are-borrowed",
     "Options and names may go away when createPool and createLock have come back.",
     argumentsAreBorrowed},
    {"services.locks-may-have-no-name", "createLock takes a null name.", locksMayHaveNoName},
    {"services.names-may-have-any-length", "Names of pools and locks may have any length.",
     namesMayBeLong},
    {"services.serve-several-threads",
     "All services may be called from several threads at once, as when two make instances.",
     serveSeveralThreads},
    {"services.make-many-objects", "A thousand pools and locks may be alive at once.",
     makeManyObjects},
};

}  // namespace

std::span<const Check> hostServiceChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
