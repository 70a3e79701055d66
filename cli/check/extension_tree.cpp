// The tree callbacks, aa_tree, driven without a container.
#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <deque>
#include <map>
#include <thread>

#include "extension_forest.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

void linksFirstNodes(const Subject &subject) {
  Lab lab(subject);
  const Table owner = ownerOf(lab);
  Forest forest(lab, owner);
  RecordNode *two = forest.add(padded(2));
  expect(forest.holder.root == two, "the first node did not become the root");
  expectEqual(two->left, uintptr_t{LINK_THREAD}, "the left link of an only node");
  expectEqual(two->right, uintptr_t{LINK_THREAD}, "the right link of an only node");
  RecordNode *one = forest.add(padded(1));
  expectEqual(two->left, reinterpret_cast<uintptr_t>(one) | LINK_HEAVY,
              "the root's link to a smaller node");
  expectEqual(one->left, uintptr_t{LINK_THREAD}, "the left link of the smallest node");
  expectEqual(one->right, reinterpret_cast<uintptr_t>(two) | LINK_THREAD,
              "the right link of the smallest node");
  expectEqual(forest.examined().size(), size_t{2}, "the number of nodes");
}

void answersEqualNodes(const Subject &subject) {
  Lab lab(subject);
  const Table owner = ownerOf(lab);
  Forest forest(lab, owner);
  std::vector<RecordNode *> nodes;
  for (uint64_t n = 0; n != 20; ++n) nodes.push_back(forest.add(padded(n)));
  for (uint64_t n = 0; n != 20; ++n) {
    Node *twin = forest.make(padded(n));
    twin->node.left = twin->node.right = 0x1234;
    expect(forest.callbacks().adder(&forest.holder, &twin->node) == nodes[n],
           "the adder did not answer the node that has the key");
    expect(twin->node.left == 0x1234 && twin->node.right == 0x1234,
           "the adder wrote to a node that it did not add");
  }
  expectEqual(forest.examined().size(), size_t{20}, "the number of nodes");
}

void findsNodes(const Subject &subject) {
  Lab lab(subject);
  const Table owner = ownerOf(lab);
  Forest forest(lab, owner);
  expect(forest.find(padded(1)) == nullptr, "the finder found something in an empty tree");
  for (uint64_t n = 0; n != 100; ++n) forest.add(padded(n * 2));
  for (uint64_t n = 0; n != 200; ++n) {
    const RecordNode *found = forest.find(padded(n));
    expectEqual(found != nullptr, n % 2 == 0, "finding a key that is there half the time");
    if (found != nullptr) expect(forest.keyOf(found) == padded(n), "the finder found another key");
  }
}

void keepsBalance(const Subject &subject) {
  Lab lab(subject);
  const Table owner = ownerOf(lab);
  constexpr uint64_t kCount = 200;
  const auto ascending = [](uint64_t n) { return n; };
  const auto descending = [](uint64_t n) { return kCount - n; };
  const auto inward = [](uint64_t n) { return n % 2 == 0 ? n : 1000 - n; };
  const auto mixed = [](uint64_t n) { return n * 7919 % 10007; };
  uint64_t (*const orders[])(uint64_t) = {ascending, descending, inward, mixed};
  for (const auto order : orders) {
    Forest forest(lab, owner);
    for (uint64_t n = 0; n != kCount; ++n) {
      forest.add(padded(order(n)));
      expectEqual(forest.examined().size(), size_t{n + 1}, "the number of nodes while adding");
    }
    for (uint64_t n = 0; n != kCount; ++n) {
      expect(forest.kill(padded(order(n))) != nullptr, "the killer did not find a node");
      expectEqual(forest.examined().size(), size_t{kCount - n - 1},
                  "the number of nodes while removing");
    }
    expect(forest.holder.root == nullptr, "the root is not null after the last node was removed");
  }
}

void keepsBalanceAtRandom(const Subject &subject) {
  Lab lab(subject);
  const Table owner = ownerOf(lab);
  for (uint64_t seed = 0; seed != 4; ++seed) {
    Forest forest(lab, owner);
    std::map<std::string, RecordNode *> model;
    Random random(seed);
    for (int n = 0; n != 3000; ++n) {
      const std::string key = padded(random.below(64 + seed * 100));
      const auto known = model.find(key);
      if (known == model.end()) {
        expect(forest.kill(key) == nullptr, "the killer removed a key that is not there");
        model[key] = forest.add(key);
      } else {
        expect(forest.kill(key) == known->second, "the killer removed another node");
        model.erase(known);
      }
      if (n % 8 != 0) continue;
      const std::vector<RecordNode *> nodes = forest.examined();
      expectEqual(nodes.size(), model.size(), "the number of nodes");
      size_t at = 0;
      for (const auto &[unused, node] : model) {
        expect(nodes[at++] == node, "a node is not where its key belongs");
      }
    }
  }
}

void staysLow(const Subject &subject) {
  Lab lab(subject);
  const Table owner = ownerOf(lab);
  Forest forest(lab, owner);
  for (uint64_t n = 0; n != 20000; ++n) forest.add(padded(n));
  expectEqual(forest.examined().size(), size_t{20000}, "the number of nodes");
  expect(forest.height() <= 1.44 * std::log2(20002.0),
         "a tree of 20000 nodes has a height of " + shown(forest.height()));
  for (uint64_t n = 0; n < 20000; n += 2) forest.kill(padded(n));
  expectEqual(forest.examined().size(), size_t{10000}, "the number of nodes");
  expect(forest.height() <= 1.44 * std::log2(10002.0),
         "a tree of 10000 nodes has a height of " + shown(forest.height()));
}

void ordersKeys(const Subject &subject) {
  Lab lab(subject);
  const std::vector<std::string> lengths{"",
                                         std::string(1, '\x80'),
                                         "\xFF\xFF",
                                         std::string(3, '\0'),
                                         std::string("\0\x7F\0", 3),
                                         std::string("\0\x80\0", 3),
                                         "abcdefgg",
                                         "abcdefgh"};
  for (const uint32_t mode : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}}) {
    const Table owner = ownerOf(lab, mode);
    Forest forest(lab, owner);
    for (size_t n = 0; n != lengths.size(); ++n) forest.add(lengths[n * 3 % lengths.size()]);
    const std::vector<RecordNode *> nodes = forest.examined();
    expectEqual(nodes.size(), lengths.size(), "the number of nodes");
    for (size_t n = 0; n != nodes.size(); ++n) {
      expect(forest.keyOf(nodes[n]) == lengths[n], "keys are not ordered by length, then by bytes");
    }
  }
  const Table owner = ownerOf(lab);
  Forest forest(lab, owner);
  for (const uint64_t key :
       {0xFFFFFFFFFFFFFFFF, uint64_t{0}, uint64_t{0x80} << 56, uint64_t{0x7F}}) {
    forest.add(padded(key));
  }
  const std::vector<RecordNode *> nodes = forest.examined();
  expectEqual(nodes.size(), size_t{4}, "the number of nodes");
  expect(forest.keyOf(nodes[0]) == padded(0) && forest.keyOf(nodes[3]) == padded(~uint64_t{0}),
         "packed keys are not ordered by unsigned bytes");
}

void findsNeighbours(const Subject &subject) {
  Lab lab(subject);
  const Table owner = ownerOf(lab);
  Forest forest(lab, owner);
  const auto expectNeighbours = [&](uint64_t key, const RecordNode *before, const RecordNode *at,
                                    const RecordNode *after) {
    Node probe = forest.probeFor(padded(key));
    auto *const noise = reinterpret_cast<RecordNode *>(&lab);
    RecordNode *prev = noise, *next = noise;
    expect(forest.callbacks().fuzzier(&forest.holder, &probe.node, &prev, &next) == at,
           "the fuzzier answers another node");
    expect(prev == before, "the fuzzier answers another node before the key");
    expect(next == after, "the fuzzier answers another node after the key");
    expect(forest.callbacks().fuzzier(&forest.holder, &probe.node, nullptr, nullptr) == at,
           "the fuzzier answers another node without places for the neighbours");
  };
  expectNeighbours(5, nullptr, nullptr, nullptr);
  std::vector<RecordNode *> nodes;
  for (uint64_t n = 0; n != 60; ++n) nodes.push_back(forest.add(padded(n * 2 + 1)));
  const auto nodeAt = [&](uint64_t at) { return at < nodes.size() ? nodes[at] : nullptr; };
  for (uint64_t n = 0; n != 60; ++n) {
    expectNeighbours(n * 2 + 1, nodeAt(n - 1), nodes[n], nodeAt(n + 1));
    expectNeighbours(n * 2, nodeAt(n - 1), nullptr, nodes[n]);
  }
  expectNeighbours(1000, nodes.back(), nullptr, nullptr);
}

void unlinksNodes(const Subject &subject) {
  Lab lab(subject);
  const Table owner = ownerOf(lab);
  Forest forest(lab, owner);
  expect(forest.kill(padded(1)) == nullptr, "the killer removed something from an empty tree");
  std::vector<RecordNode *> nodes;
  for (uint64_t n = 0; n != 50; ++n) nodes.push_back(forest.add(padded(n)));
  expect(forest.kill(padded(77)) == nullptr, "the killer removed a key that is not there");
  expectEqual(forest.examined().size(), size_t{50}, "the number of nodes");
  for (uint64_t n = 0; n != 50; ++n) {
    RecordNode *node = forest.kill(padded(n * 11 % 50));
    expect(node == nodes[n * 11 % 50], "the killer answers another node");
    expect(node->left == 0 && node->right == 0, "the links of a removed node are not 0");
    expect(forest.find(padded(n * 11 % 50)) == nullptr, "a removed node is found");
  }
}

void leavesProbesAlone(const Subject &subject) {
  Lab lab(subject);
  const Table owner = ownerOf(lab);
  Forest forest(lab, owner);
  for (uint64_t n = 0; n != 30; ++n) forest.add(padded(n));
  for (uint64_t n = 0; n != 40; ++n) {
    Node probe = forest.probeFor(padded(n));
    const Node before = probe;
    RecordNode *prev = nullptr, *next = nullptr;
    forest.callbacks().finder(&forest.holder, &probe.node);
    forest.callbacks().fuzzier(&forest.holder, &probe.node, &prev, &next);
    forest.callbacks().killer(&forest.holder, &probe.node);
    expect(std::memcmp(&probe, &before, sizeof probe) == 0, "a probe was written to");
  }
}

void takesARecordOffset(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t mode : {uint32_t{0}, uint32_t{flagFixedKey}}) {
    const Table owner = ownerOf(lab, mode);
    // The key area lies before the node in memory for one, behind it for the other.
    for (const int32_t offset : {-40, 8}) {
      Forest forest(lab, owner);
      forest.holder.recordOffset = offset;
      std::deque<std::array<uint64_t, 24>> memory;
      std::vector<RecordNode *> nodes;
      for (uint64_t n = 0; n != 40; ++n) {
        memory.emplace_back();
        auto *made = reinterpret_cast<Node *>(memory.back().data() + 4);
        forest.fill(*made, padded(n * 7 % 40), offset);
        expect(forest.callbacks().adder(&forest.holder, &made->node) == &made->node,
               "the adder took a node for another with a record offset");
        nodes.push_back(&made->node);
      }
      for (uint64_t n = 0; n != 40; ++n) {
        expect(forest.find(padded(n * 7 % 40)) == nodes[n], "a node with an offset is not found");
      }
      for (uint64_t n = 0; n != 40; ++n) {
        expect(forest.kill(padded(n * 7 % 40)) == nodes[n], "a node with an offset is not removed");
      }
      expect(forest.holder.root == nullptr, "the root is not null after the last node was removed");
    }
  }
}

// A lock that says what is done with it, and changes the tree when it is taken: who looked before
// that sees it.
struct SpyLock : HostLock {
  std::string story;
  TreeHolder *holder = nullptr;
  RecordNode *root = nullptr;
};

void spyAcquire(SpyLock *lock, uint32_t mode, uint32_t wait) {
  lock->story += '+' + std::to_string(mode) + std::to_string(wait);
  lock->holder->root = lock->root;
}

void locksSafely(const Subject &subject) {
  Lab lab(subject);
  const Table owner = ownerOf(lab);
  SpyLock lock;
  std::memset(static_cast<HostLock *>(&lock), 0, sizeof(HostLock));
  lock.acquire = [](HostLock *self, uint32_t mode, uint32_t wait) -> uint32_t {
    spyAcquire(static_cast<SpyLock *>(self), mode, wait);
    return 0xDEAD;
  };
  lock.release = [](HostLock *self) {
    auto *spy = static_cast<SpyLock *>(self);
    spy->story += '-';
    spy->root = spy->holder->root;
  };
  Forest forest(lab, owner, &lock);
  lock.holder = &forest.holder;
  const TreeCallbacks &tree = forest.callbacks();
  // The root is hidden until the lock is held.
  const auto run = [&](const char *what, const char *mode, auto call) {
    lock.story.clear();
    lock.root = forest.holder.root;
    forest.holder.root = nullptr;
    RecordNode *answer = call();
    forest.holder.root = lock.root;
    expectEqual(lock.story, std::string("+") + mode + "1-",
                std::string("how the safe ") + what + " uses the lock");
    return answer;
  };
  std::vector<RecordNode *> nodes;
  for (uint64_t n = 0; n != 30; ++n) {
    Node *node = forest.make(padded(n));
    expect(run("adder", "1", [&] { return tree.safe_adder(&forest.holder, &node->node); }) ==
               &node->node,
           "the safe adder does not add");
    nodes.push_back(&node->node);
  }
  Node *twin = forest.make(padded(5));
  expect(
      run("adder", "1", [&] { return tree.safe_adder(&forest.holder, &twin->node); }) == nodes[5],
      "the safe adder does not answer the node that has the key");
  for (uint64_t n = 0; n != 40; ++n) {
    Node probe = forest.probeFor(padded(n));
    RecordNode *const wanted = n < 30 ? nodes[n] : nullptr;
    expect(
        run("finder", "0", [&] { return tree.safe_finder(&forest.holder, &probe.node); }) == wanted,
        "the safe finder answers another node than the finder");
    RecordNode *prev = nullptr, *next = nullptr;
    expect(
        run("fuzzier", "0",
            [&] { return tree.safe_fuzzier(&forest.holder, &probe.node, &prev, &next); }) == wanted,
        "the safe fuzzier answers another node than the fuzzier");
    expect(prev == (n == 0 ? nullptr : nodes[std::min<uint64_t>(n - 1, 29)]),
           "the safe fuzzier answers another neighbour");
  }
  forest.examined();
  for (uint64_t n = 0; n != 31; ++n) {
    Node probe = forest.probeFor(padded(n));
    expect(run("killer", "1", [&] { return tree.safe_killer(&forest.holder, &probe.node); }) ==
               (n < 30 ? nodes[n] : nullptr),
           "the safe killer answers another node than the killer");
  }
  Node probe = forest.probeFor(padded(1));
  expect(
      run("finder", "0", [&] { return tree.safe_finder(&forest.holder, &probe.node); }) == nullptr,
      "the safe finder found something in an empty tree");
}

void servesThreads(const Subject &subject) {
  Lab lab(subject);
  lab.host.keepLog(false);
  const Table owner = ownerOf(lab);
  const LockOptions options = {};
  HostLock *lock = lab.host.services()->createLock(lab.host.services(), &options, nullptr, "tree");
  Forest forest(lab, owner, lock);
  constexpr uint64_t kThreads = 4, kEach = 300;
  std::vector<Node *> nodes;
  for (uint64_t n = 0; n != kThreads * kEach; ++n)
    nodes.push_back(forest.make(padded(n * 7919 % 9973)));
  std::vector<std::thread> threads;
  std::atomic<int> wrong = 0;
  for (uint64_t part = 0; part != kThreads; ++part) {
    threads.emplace_back([&, part] {
      for (uint64_t n = part; n < nodes.size(); n += kThreads) {
        RecordNode *node = &nodes[n]->node;
        const TreeCallbacks &tree = forest.callbacks();
        if (tree.safe_adder(&forest.holder, node) != node) ++wrong;
        Node probe = forest.probeFor(padded(n * 7919 % 9973));
        if (tree.safe_finder(&forest.holder, &probe.node) != node) ++wrong;
        if (n % 3 == 0 && tree.safe_killer(&forest.holder, &probe.node) != node) ++wrong;
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  expectEqual(wrong.load(), 0, "the number of wrong answers that threads got from one tree");
  expectEqual(forest.examined().size(), size_t{800}, "the number of nodes that threads left");
}

constexpr Check kChecks[] = {
    {"tree.links-first-nodes", "The first nodes have the links and tags that are written down.",
     linksFirstNodes},
    {"tree.answers-equal-nodes",
     "Adding a key that is there answers its node, and writes to neither.", answersEqualNodes},
    {"tree.finds", "The finder answers the node of a key, or null.", findsNodes},
    {"tree.keeps-balance",
     "After each change heights, tags, threads and order are right, for keys that come sorted.",
     keepsBalance},
    {"tree.keeps-balance-at-random", "The same for keys that come and go at random.",
     keepsBalanceAtRandom},
    {"tree.stays-low", "A tree of n nodes is at most 1.44 log2(n + 2) high.", staysLow},
    {"tree.orders-keys",
     "Keys are ordered by length, then by unsigned bytes; packed ones by bytes alone.", ordersKeys},
    {"tree.finds-neighbours", "The fuzzier answers the neighbours of a key, there or not.",
     findsNeighbours},
    {"tree.unlinks", "The killer answers the node it removed, its links 0, or null.", unlinksNodes},
    {"tree.leaves-probes-alone", "Nothing is written to a probe.", leavesProbesAlone},
    {"tree.takes-a-record-offset", "Owner and key may lie elsewhere than behind the links.",
     takesARecordOffset},
    {"tree.locks-safely",
     "The safe callbacks take the lock once, in their mode, before they look, and release it.",
     locksSafely},
    {"tree.serves-threads", "Threads may use one tree through the safe callbacks.", servesThreads},
};

}  // namespace

std::span<const Check> treeChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
