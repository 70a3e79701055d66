// What a host says was left on it.

#include <string>

#include "host_callbacks.h"
#include "host_checks.h"
#include "host_subject.h"

namespace morva::cli::check {

namespace {

Host endable(const Subject &subject) {
  Host host(subject);
  if (!host.canBeEnded()) throw NotApplicable("the host cannot be ended");
  return host;
}

void expectLeft(Host host, uint32_t count, const char *what) {
  expectEqual(host.end(), count, std::string("the number of objects left with ") + what);
}

void nothingIsLeft(const Subject &subject) {
  expectLeft(endable(subject), 0, "nothing made");
  Host host = endable(subject);
  HostPool *pool = host.pool();
  taken(pool, 100);
  HostLock *lock = host.lock();
  pool->destroy(pool);
  lock->destroy(lock);
  expectLeft(host, 0, "a pool and a lock destroyed");
}

void poolsAreCounted(const Subject &subject) {
  for (const uint32_t count : {1U, 3U}) {
    Host host = endable(subject);
    for (uint32_t i = 0; i < count; ++i) host.pool(i % 2 == 0 ? 0 : MORVA_POOL_RECORDS);
    HostPool *gone = host.pool();
    gone->destroy(gone);
    expectLeft(host, count, "as many pools alive");
  }
}

void locksAreCounted(const Subject &subject) {
  for (const uint32_t count : {1U, 4U}) {
    Host host = endable(subject);
    for (uint32_t i = 0; i < count; ++i) host.lock();
    HostLock *gone = host.lock();
    gone->destroy(gone);
    expectLeft(host, count, "as many locks alive");
  }
}

void companionsAreCounted(const Subject &subject) {
  Host host = endable(subject);
  for (int i = 0; i < 3; ++i) {
    RecordPackerExt *packers = host.packers();
    packers->release(packers);
    TreeExt *trees = host.trees();
    if (i > 0) trees->release(trees);
    OrderListExt *lists = host.lists();
    if (i > 1) lists->release(lists);
  }
  expectLeft(host, 3, "three companions loaded and not released");
}

void objectsAreCounted(const Subject &subject) {
  const TreeOptions options{0, 0, 1, numberedCallbacks(), 0};
  for (int kind = 0; kind < 3; ++kind) {
    Host host = endable(subject);
    RecordPackerExt *packers = host.packers();
    TreeExt *trees = host.trees();
    OrderListExt *lists = host.lists();
    RecordPacker *packer = packers->makePacker(packers, 0);
    TreeContainer *tree = trees->makeTree(trees, &options, 0, 0);
    OrderList *list = lists->makeOrderList(lists, trees);
    expect(packer != nullptr && tree != nullptr && list != nullptr,
           "an object of a companion cannot be made");
    if (kind != 0) packer->destroy(packer);
    if (kind != 1) tree->destroy(tree);
    if (kind != 2) list->destroy(list);
    // Companions are not released before their objects have ended: they are left, too.
    static constexpr const char *kLeft[] = {"three companions and one packer alive",
                                            "three companions and one tree container alive",
                                            "three companions and one order list alive"};
    expectLeft(host, 4, kLeft[kind]);
  }
}

constexpr Check kChecks[] = {
    {"leaks.nothing-is-left", "A host says that nothing is left when all was given back.",
     nothingIsLeft},
    {"leaks.pools-are-counted", "A host counts the pools that are left.", poolsAreCounted},
    {"leaks.locks-are-counted", "A host counts the locks that are left.", locksAreCounted},
    {"leaks.companions-are-counted", "A host counts the companions that are left.",
     companionsAreCounted},
    {"leaks.objects-are-counted", "A host counts the objects of companions that are left.",
     objectsAreCounted},
};

}  // namespace

std::span<const Check> hostLeakChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
