// The tree container, driven with callbacks of the checker's own.

#include <string>
#include <vector>

#include "host_checks.h"
#include "host_tree_bench.h"

namespace morva::cli::check {

namespace {

// The one call since the last question, which must have been of that kind.
CallOfTree theCall(Called called, const char *operation) {
  const std::vector<CallOfTree> calls = callsOfTrees();
  expectEqual<size_t>(calls.size(), 1,
                      std::string("the number of callbacks that ") + operation + " calls");
  expect(calls[0].called == called, std::string(operation) + " calls the " +
                                        nameOf(calls[0].called) + " and not the " + nameOf(called));
  return calls[0];
}

void expectWalk(TreeContainer *tree, Bucket *bucket, const std::vector<RecordNode *> &expected) {
  std::vector<RecordNode *> walked;
  for (RecordNode *node = tree->first(tree, bucket); node != nullptr; node = tree->next(node)) {
    walked.push_back(node);
    expect(walked.size() <= expected.size(), "a walk of a bucket goes on behind its last node");
  }
  expectEqual(walked.size(), expected.size(), "the number of nodes in a walk of a bucket");
  expect(walked == expected, "a walk of a bucket is not in key order");
}

void hasItsSlots(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    for (const unsigned slot : {2U, 12U, 14U, 15U, 17U, 18U}) {
      expectSlot(bench.tree, slot, "a tree container");
    }
    bench.end();
  });
}

void insertCallsTheAdder(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    TreeBuckets buckets(4);
    TreeNodes nodes(9);
    for (const size_t i : {4, 2, 6, 1, 3, 5, 7, 0, 8}) {
      RecordNode *before = buckets.at(1)->root;
      expect(bench.insert(buckets, 1, nodes.at(i)) == nodes.at(i),
             "insert does not answer the new node");
      const CallOfTree call = theCall(Called::kAdder, "insert");
      expect(call.root == before, "insert gives the adder another root than the bucket's");
      expect(call.node == nodes.at(i), "insert gives the adder another node than its own");
    }
    bench.end();
  });
}

void insertAnswersTheEqualNode(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    TreeBuckets buckets(1);
    TreeNodes nodes(7);
    for (size_t i = 0; i < 7; ++i) bench.insert(buckets, 0, nodes.at(i));
    for (uint64_t i = 0; i < 7; ++i) {
      RecordNode *root = buckets.at(0)->root;
      expect(bench.insert(buckets, 0, nodes.probe(i * 10)) == nodes.at(i),
             "insert does not answer the node that has the key already");
      expect(buckets.at(0)->root == root, "insert of a key that is there changes the root");
    }
    bench.end();
  });
}

void findCallsTheFinder(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    TreeBuckets buckets(2);
    TreeNodes nodes(12);
    for (size_t i = 0; i < 12; ++i) bench.insert(buckets, 0, nodes.at(i));
    callsOfTrees();
    for (uint64_t i = 0; i < 12; ++i) {
      RecordNode *probe = nodes.probe(i * 10);
      expect(bench.tree->find(bench.tree, buckets.at(0), probe) == nodes.at(i),
             "find does not answer the node with the key");
      const CallOfTree call = theCall(Called::kFinder, "find");
      expect(call.root == buckets.at(0)->root,
             "find gives the finder another root than the bucket's");
      expect(call.node == probe, "find gives the finder another probe than its own");
    }
    bench.end();
  });
}

void removeCallsTheKiller(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    TreeBuckets buckets(2);
    TreeNodes nodes(12);
    for (size_t i = 0; i < 12; ++i) bench.insert(buckets, 1, nodes.at(i));
    callsOfTrees();
    for (uint64_t i = 0; i < 12; ++i) {
      RecordNode *before = buckets.at(1)->root;
      RecordNode *probe = nodes.probe((i * 5 % 12) * 10);
      expect(bench.tree->remove(bench.tree, buckets.at(1), probe) == nodes.at(i * 5 % 12),
             "remove does not answer the node with the key");
      const CallOfTree call = theCall(Called::kKiller, "remove");
      expect(call.root == before, "remove gives the killer another root than the bucket's");
      expect(call.node == probe, "remove gives the killer another probe than its own");
    }
    bench.end();
  });
}

void missingKeysAreAnsweredWithNull(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    TreeBuckets buckets(2);
    TreeNodes nodes(5);
    const auto expectMissing = [&](uint64_t key) {
      RecordNode *root = buckets.at(0)->root;
      expect(bench.tree->find(bench.tree, buckets.at(0), nodes.probe(key)) == nullptr,
             "find answers a node for a key that is not there");
      expect(bench.tree->remove(bench.tree, buckets.at(0), nodes.probe(key)) == nullptr,
             "remove answers a node for a key that is not there");
      expect(buckets.at(0)->root == root, "remove of a key that is not there changes the root");
    };
    expectMissing(7);
    for (size_t i = 0; i < 5; ++i) bench.insert(buckets, 0, nodes.at(i));
    for (const uint64_t key : {5, 15, 45, 1000}) expectMissing(key);
    bench.end();
  });
}

void writesTheRootBack(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    TreeBuckets buckets(1);
    TreeNodes nodes(31);
    const auto expectWritten = [&](const char *operation) {
      for (const CallOfTree &call : callsOfTrees()) {
        expect(buckets.at(0)->root == call.newRoot,
               std::string(operation) + " does not write the new root into the bucket");
      }
    };
    for (size_t i = 0; i < 31; ++i) {
      bench.insert(buckets, 0, nodes.at(i * 7 % 31));
      expectWritten("insert");
    }
    for (uint64_t i = 0; i < 31; ++i) {
      bench.tree->remove(bench.tree, buckets.at(0), nodes.probe((i * 11 % 31) * 10));
      expectWritten("remove");
    }
    expect(buckets.at(0)->root == nullptr, "the root of an empty bucket is not null");
    bench.end();
  });
}

void gives0AsRecordOffset(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    TreeBuckets buckets(1);
    TreeNodes nodes(3);
    for (size_t i = 0; i < 3; ++i) bench.insert(buckets, 0, nodes.at(i));
    bench.tree->find(bench.tree, buckets.at(0), nodes.probe(10));
    bench.tree->remove(bench.tree, buckets.at(0), nodes.probe(10));
    for (const CallOfTree &call : callsOfTrees()) {
      expectEqual(call.recordOffset, 0,
                  std::string("the record offset given to the ") + nameOf(call.called));
    }
    bench.end();
  });
}

void staysWithOneSet(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    TreeBuckets buckets(64);
    TreeNodes nodes(64);
    for (uint32_t i = 0; i < 64; ++i) bench.insert(buckets, i, nodes.at(i));
    for (uint32_t i = 0; i < 64; ++i) {
      bench.tree->find(bench.tree, buckets.at(i), nodes.probe(i * 10));
      bench.tree->remove(bench.tree, buckets.at(i), nodes.probe(i * 10));
    }
    const std::vector<CallOfTree> calls = callsOfTrees();
    for (const CallOfTree &call : calls) {
      expect(call.safe == calls[0].safe, "a container calls plain and safe callbacks");
      expect(!call.safe || call.lock != nullptr, "a safe callback is given no lock");
    }
    bench.end();
  });
}

void walksInKeyOrder(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    // 37 shares no factor with any of them.
    for (const size_t count : {0, 1, 2, 3, 4, 7, 8, 20, 100}) {
      // A container is of one instance, and sees one array of buckets.
      TreeContainer *tree = newTree(bench.companion);
      TreeBuckets buckets(1);
      TreeNodes nodes(count);
      std::vector<RecordNode *> expected;
      for (size_t i = 0; i < count; ++i) {
        expected.push_back(nodes.at(i));
        tree->insert(tree, buckets.at(0), nodes.at((i * 37 + 5) % count), buckets.array());
      }
      expectWalk(tree, buckets.at(0), expected);
      tree->destroy(tree);
    }
    bench.end();
  });
}

void readsOnlyWhenItSearches(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    TreeNodes nodes(20);
    std::vector<RecordNode *> expected;
    // The whole array: it is of one container, which may know where it lies.
    const TreeBuckets empty(1);
    const LentBytes lent(empty.words.data(), empty.words.size() * sizeof(uint64_t));
    Bucket *bucket = MORVABucketAt(lent.as<BucketArray>(), 0);
    for (size_t i = 0; i < 20; ++i) {
      bench.tree->insert(bench.tree, bucket, nodes.at(i), lent.as<BucketArray>());
      expected.push_back(nodes.at(i));
    }
    lent.lockForReading();
    for (uint64_t i = 0; i < 20; ++i) {
      expect(bench.tree->find(bench.tree, bucket, nodes.probe(i * 10)) == nodes.at(i),
             "find does not answer the node with the key");
    }
    expect(bench.tree->find(bench.tree, bucket, nodes.probe(3)) == nullptr,
           "find answers a node for a key that is not there");
    expectWalk(bench.tree, bucket, expected);
    bench.end();
  });
}

// As the clears leave it: empty buckets, and a head word of 0.
void clear(TreeContainer *tree, TreeBuckets &buckets) {
  for (uint32_t i = 0; i <= buckets.array()->mask; ++i) *buckets.at(i) = {};
  if (tree->lock != nullptr) tree->lock->acquire(tree->lock, MORVA_LOCK_CHANGE, 1);
  tree->head = nullptr;
  if (tree->lock != nullptr) tree->lock->release(tree->lock);
}

void remembersNoRoots(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    TreeBuckets buckets(4);
    for (int round = 0; round < 3; ++round) {
      // The nodes of the round before are gone.
      TreeNodes nodes(20);
      for (size_t i = 0; i < 20; ++i) {
        expect(bench.insert(buckets, i % 4, nodes.at(i)) == nodes.at(i),
               "insert does not answer the new node after the bucket was emptied");
      }
      for (uint64_t i = 0; i < 20; ++i) {
        expect(bench.tree->find(bench.tree, buckets.at(i % 4), nodes.probe(i * 10)) == nodes.at(i),
               "find does not answer the node with the key");
      }
      clear(bench.tree, buckets);
      for (uint64_t i = 0; i < 4; ++i) {
        expect(bench.tree->first(bench.tree, buckets.at(i)) == nullptr,
               "first answers a node of a bucket that was emptied");
        expect(bench.tree->find(bench.tree, buckets.at(i), nodes.probe(i * 10)) == nullptr,
               "find answers a node of a bucket that was emptied");
        expect(bench.tree->remove(bench.tree, buckets.at(i), nodes.probe(i * 10)) == nullptr,
               "remove answers a node of a bucket that was emptied");
      }
    }
    bench.end();
  });
}

// A container that serves one bucket after another must look at the bucket.
void keepsBucketsApart(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    TreeBuckets buckets(128);
    TreeNodes nodes(1280);
    for (size_t i = 0; i < 1280; ++i) bench.insert(buckets, i % 128, nodes.at(i));
    for (uint32_t bucket = 0; bucket < 128; ++bucket) {
      std::vector<RecordNode *> expected;
      for (size_t i = bucket; i < 1280; i += 128) expected.push_back(nodes.at(i));
      expectWalk(bench.tree, buckets.at(bucket), expected);
      expect(bench.tree->find(bench.tree, buckets.at(bucket),
                              nodes.probe(uint64_t{(bucket + 1) % 128} * 10)) == nullptr,
             "find answers a node of another bucket");
    }
    bench.end();
  });
}

void containersAreIndependent(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const TreeBench bench(host);
    TreeContainer *other = newTree(bench.companion, 1);
    callsOfTrees(1);
    TreeBuckets buckets(2);
    TreeBuckets otherBuckets(2);
    TreeNodes nodes(10);
    TreeNodes otherNodes(10);
    for (size_t i = 0; i < 10; ++i) {
      bench.insert(buckets, i % 2, nodes.at(i));
      other->insert(other, otherBuckets.at(i % 2), otherNodes.at(i), otherBuckets.array());
    }
    expectEqual<size_t>(callsOfTrees(0).size(), 10, "the number of calls of the first's callbacks");
    expectEqual<size_t>(callsOfTrees(1).size(), 10, "the number of calls of the other's callbacks");
    bench.tree->destroy(bench.tree);
    for (uint64_t i = 0; i < 10; ++i) {
      expect(
          other->find(other, otherBuckets.at(i % 2), otherNodes.probe(i * 10)) == otherNodes.at(i),
          "a container fails when another one is destroyed");
    }
    other->destroy(other);
    bench.companion->release(bench.companion);
    bench.host.endWithNothingLeft();
  });
}

void optionsAreBorrowed(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    TreeExt *companion = host.trees();
    const TreeOptions options{0, 0, 1, numberedCallbacks(), 0};
    const LentBytes lent(&options, sizeof options);
    TreeContainer *tree = companion->makeTree(companion, lent.as<TreeOptions>(), 0, 0);
    expect(tree != nullptr, "makeTree answers null");
    lent.takeBack();
    TreeBuckets buckets(1);
    TreeNodes nodes(2);
    expect(tree->insert(tree, buckets.at(0), nodes.at(0), buckets.array()) == nodes.at(0),
           "insert does not answer the new node");
    tree->destroy(tree);
    companion->release(companion);
    host.endWithNothingLeft();
  });
}

constexpr Check kChecks[] = {
    {"tree.has-its-slots", "A tree container has the six slots that are called.", hasItsSlots},
    {"tree.options-are-borrowed", "TreeOptions may go away when makeTree has come back.",
     optionsAreBorrowed},
    {"tree.insert-calls-the-adder",
     "insert has the adder link the node into the tree of the bucket, and answers it.",
     insertCallsTheAdder},
    {"tree.insert-answers-the-equal-node", "insert answers the node that has the key already.",
     insertAnswersTheEqualNode},
    {"tree.find-calls-the-finder", "find has the finder look in the tree of the bucket.",
     findCallsTheFinder},
    {"tree.remove-calls-the-killer",
     "remove has the killer unlink the node from the tree of the bucket, and answers it.",
     removeCallsTheKiller},
    {"tree.answers-null-for-missing-keys", "find and remove answer null for a key that is missing.",
     missingKeysAreAnsweredWithNull},
    {"tree.writes-the-root-back", "A root that a callback changed goes into the bucket.",
     writesTheRootBack},
    {"tree.gives-0-as-record-offset", "The record offset of the holder is 0.",
     gives0AsRecordOffset},
    {"tree.stays-with-one-set",
     "A container calls either plain callbacks or safe ones, the latter with a lock.",
     staysWithOneSet},
    {"tree.walks-in-key-order", "first and next go through a bucket in the order of its keys.",
     walksInKeyOrder},
    {"tree.only-reads-when-it-searches", "find, first and next write nothing into the bucket.",
     readsOnlyWhenItSearches},
    {"tree.remembers-no-roots",
     "A bucket that the library emptied is empty, and good for other nodes.", remembersNoRoots},
    {"tree.keeps-buckets-apart", "Each bucket has its own tree.", keepsBucketsApart},
    {"tree.containers-are-independent", "Each container calls the callbacks it was made with.",
     containersAreIndependent},
};

}  // namespace

std::span<const Check> hostTreeChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
