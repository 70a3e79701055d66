// The tree container of a host with locked trees.

#include <atomic>
#include <string>
#include <vector>

#include "host_checks.h"
#include "host_tree_bench.h"

namespace morva::cli::check {

namespace {

void lockedTreesCallTheSafeSet(const Subject &subject) {
  Host host(subject, kLockedTrees);
  const TreeBench bench(host);
  TreeBuckets buckets(100);
  TreeNodes nodes(300);
  for (size_t i = 0; i < 300; ++i) bench.insert(buckets, i % 100, nodes.at(i));
  for (uint64_t i = 0; i < 300; ++i) {
    bench.tree->find(bench.tree, buckets.at(i % 100), nodes.probe(i * 10));
    bench.tree->remove(bench.tree, buckets.at(i % 100), nodes.probe(i * 10));
  }
  for (const CallOfTree &call : callsOfTrees()) {
    expect(call.safe,
           std::string("a container with locked trees calls the plain ") + nameOf(call.called));
    expect(call.lock != nullptr, "a safe callback is given no lock");
    for (const unsigned slot : {3U, 4U}) expectSlot(call.lock, slot, "the lock of a tree");
  }
  bench.end();
}

void lockedTreesAreLetGo(const Subject &subject) {
  Host host(subject, kLockedTrees);
  const TreeBench bench(host);
  TreeBuckets buckets(1);
  TreeNodes nodes(3);
  for (size_t i = 0; i < 2; ++i) bench.insert(buckets, 0, nodes.at(i));
  bench.tree->find(bench.tree, buckets.at(0), nodes.probe(0));
  bench.tree->first(bench.tree, buckets.at(0));
  bench.tree->remove(bench.tree, buckets.at(0), nodes.probe(0));
  bench.tree->remove(bench.tree, buckets.at(0), nodes.probe(5));
  // Another thread gets in when no call is under way.
  Task([&] { bench.insert(buckets, 0, nodes.at(2)); }).wait();
  expect(bench.tree->find(bench.tree, buckets.at(0), nodes.probe(20)) == nodes.at(2),
         "find does not answer a node that another thread inserted");
  bench.end();
}

void lockedTreesAreSearchedBesideChanges(const Subject &subject) {
  Host host(subject, kLockedTrees);
  const TreeBench bench(host);
  TreeBuckets buckets(1);
  constexpr size_t kNodes = 24;
  TreeNodes nodes(kNodes);
  for (size_t i = 0; i < kNodes; ++i) bench.insert(buckets, 0, nodes.at(i));
  stopWritingCallsDown();
  watchBucket(buckets.at(0));
  std::atomic<uint64_t> missed{0};
  std::atomic<bool> changing{true};
  std::vector<bool> present(kNodes, true);
  inThreads(4, [&](unsigned thread) {
    Random numbers(thread);
    MORVAInst owner{};
    for (int i = 0; thread == 0 ? i < 2000 : changing.load(); ++i) {
      NumberedNode probe{{0, 0, &owner}, 0};
      if (thread != 0) {
        if (bench.tree->find(bench.tree, buckets.at(0), &probe.node) != nodes.at(0)) ++missed;
        continue;
      }
      // Under the lock of the instance, so one thread at a time. Node 0 stays.
      const size_t which = 1 + numbers.below(kNodes - 1);
      probe.key = which * 10;
      const RecordNode *answer = present[which]
                                     ? bench.tree->remove(bench.tree, buckets.at(0), &probe.node)
                                     : bench.insert(buckets, 0, nodes.at(which));
      if (answer != nodes.at(which)) ++missed;
      present[which] = !present[which];
    }
    if (thread == 0) changing = false;
  });
  expectEqual<uint64_t>(collisionsOfTrees(), 0,
                        "the number of callbacks that met a change of the same tree, or had an old "
                        "root");
  expectEqual<uint64_t>(missed.load(), 0, "the number of wrong answers beside changes");
  bench.end();
}

constexpr Check kChecks[] = {
    {"tree.locked-calls-the-safe-set",
     "With locked trees the safe callbacks are called, and are given a lock.",
     lockedTreesCallTheSafeSet},
    {"tree.locked-lets-go", "With locked trees no lock stays held after a call.",
     lockedTreesAreLetGo},
    {"tree.locked-searches-beside-changes",
     "With locked trees find runs beside insert and remove, on the root of the moment.",
     lockedTreesAreSearchedBesideChanges},
};

}  // namespace

std::span<const Check> hostLockedTreeChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
