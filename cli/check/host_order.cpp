// The order list.

#include <algorithm>
#include <vector>

#include "host_checks.h"
#include "host_subject.h"

namespace morva::cli::check {

namespace {

// Records and their order nodes, as an instance keeps them: side by side.
class Entries {
 public:
  explicit Entries(size_t count) : records_(count * kWords), nodes_(count) {
    owner_.eyeCatcher[0] = 'n';
    owner_.eyeCatcher[1] = 'e';
    owner_.eyeCatcher[2] = 'v';
    owner_.eyeCatcher[3] = 'o';
    owner_.flags = flagFixedKey | flagOrdered | flagDefined;
    owner_.recordSize = 32;
    for (size_t i = 0; i < count; ++i) {
      record(i)->owner = &owner_;
      // What a list may leave in a node that it no longer has.
      nodes_[i] = {poison(), poison(), record(i)};
    }
  }
  RecordNode *record(size_t i) { return reinterpret_cast<RecordNode *>(&records_[i * kWords]); }
  OrderNode *node(size_t i) { return &nodes_[i]; }
  size_t size() const { return nodes_.size(); }

  // No address that may be followed.
  static void *poison() { return reinterpret_cast<void *>(uintptr_t{0xDEADDEADDEAD0008}); }

 private:
  static constexpr size_t kWords = 8;
  MORVAInst owner_{};
  std::vector<uint64_t> records_;
  std::vector<OrderNode> nodes_;
};

// A host, its companions and a list.
struct Bench {
  explicit Bench(Host &theHost)
      : host(theHost), trees(host.trees()), lists(host.lists()), list(newList()) {}
  OrderList *newList() const {
    OrderList *made = lists->makeOrderList(lists, trees);
    expect(made != nullptr, "makeOrderList answers null");
    return made;
  }
  void end() const {
    list->destroy(list);
    trees->release(trees);
    lists->release(lists);
    host.endWithNothingLeft();
  }

  void append(OrderNode *node) const { lists->append(list, node); }
  OrderNode *unlink(RecordNode *record) const { return unlinkFrom(list, record); }
  OrderNode *unlinkFrom(OrderList *from, RecordNode *record) const {
    const OrderNode image{Entries::poison(), Entries::poison(), record};
    return lists->unlink(from, &image);
  }
  // As the clears do it.
  void resetHead() const {
    if (list->lock != nullptr) list->lock->acquire(list->lock, MORVA_LOCK_CHANGE, 1);
    list->head = nullptr;
    if (list->lock != nullptr) list->lock->release(list->lock);
  }
  bool canWalk() const { return host.table().orderFirst != nullptr; }

  Host &host;
  TreeExt *trees;
  OrderListExt *lists;
  OrderList *list;
};

// Compares a walk, where the host has one, with the entries that should be there.
void expectOrder(const Bench &bench, OrderList *list, Entries &entries,
                 const std::vector<size_t> &expected) {
  for (const size_t i : expected) {
    expect(entries.node(i)->record == entries.record(i),
           "the record of a linked node has been overwritten");
  }
  expect(expected.empty() || list->head != nullptr, "the head of a list with nodes is 0");
  if (!bench.canWalk()) return;
  const MORVAHostCheck &table = bench.host.table();
  size_t at = 0;
  for (OrderNode *node = table.orderFirst(list); node != nullptr; node = table.orderNext(node)) {
    expect(at < expected.size(), "a walk of the order goes on behind its last node");
    expect(node == entries.node(expected[at]),
           "node " + shown(at) + " of the order is another than it should be");
    ++at;
  }
  expectEqual(at, expected.size(), "the number of nodes in the order");
}

void needWalk(const Bench &bench) {
  if (!bench.canWalk()) throw NotApplicable("the host has no walk of its order lists");
}

std::vector<size_t> appendAll(const Bench &bench, Entries &entries) {
  std::vector<size_t> order;
  for (size_t i = 0; i < entries.size(); ++i) {
    bench.append(entries.node(i));
    order.push_back(i);
  }
  return order;
}

void expectUnlinked(const Bench &bench, Entries &entries, size_t i) {
  expect(bench.unlink(entries.record(i)) == entries.node(i),
         "unlink does not answer the node that was appended for a record");
}

void beginsEmpty(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const Bench bench(host);
    expectSlot(bench.list, 2, "an order list");
    Entries entries(1);
    expectOrder(bench, bench.list, entries, {});
    expect(bench.unlink(entries.record(0)) == nullptr, "unlink answers a node of an empty list");
    bench.end();
  });
}

void appendsAtTheEnd(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const Bench bench(host);
    needWalk(bench);
    Entries entries(300);
    std::vector<size_t> order;
    for (size_t i = 0; i < entries.size(); ++i) {
      // Not the order of their addresses.
      order.push_back(i * 7 % entries.size());
      bench.append(entries.node(order.back()));
      if (i < 5) expectOrder(bench, bench.list, entries, order);
    }
    expectOrder(bench, bench.list, entries, order);
    bench.end();
  });
}

void keepsTheRecord(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const Bench bench(host);
    Entries entries(20);
    appendAll(bench, entries);
    for (size_t i = 0; i < 20; ++i) {
      for (size_t k = i; k < 20; ++k) {
        expect(entries.node(k)->record == entries.record(k),
               "the record of a linked node has been overwritten");
        expect(entries.record(k)->left == 0 && entries.record(k)->right == 0,
               "a record has been written to");
      }
      expectUnlinked(bench, entries, i);
    }
    bench.end();
  });
}

void unlinksWhere(const Subject &subject, size_t (*choose)(size_t left)) {
  onHostsOfBothKinds(subject, [choose](Host &host) {
    const Bench bench(host);
    Entries entries(40);
    std::vector<size_t> order = appendAll(bench, entries);
    while (!order.empty()) {
      const size_t at = choose(order.size());
      expectUnlinked(bench, entries, order[at]);
      order.erase(order.begin() + static_cast<std::ptrdiff_t>(at));
      expectOrder(bench, bench.list, entries, order);
    }
    bench.end();
  });
}

void knowsNoOtherRecords(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const Bench bench(host);
    Entries entries(10);
    std::vector<size_t> order;
    for (size_t i = 1; i < 9; ++i) {
      bench.append(entries.node(i));
      order.push_back(i);
    }
    for (const size_t i : {0, 9}) {
      expect(bench.unlink(entries.record(i)) == nullptr,
             "unlink answers a node for a record that was not appended");
    }
    expectUnlinked(bench, entries, 4);
    expect(bench.unlink(entries.record(4)) == nullptr, "unlink answers a node a second time");
    order.erase(order.begin() + 3);
    expectOrder(bench, bench.list, entries, order);
    bench.end();
  });
}

void takesNodesAgain(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const Bench bench(host);
    Entries entries(12);
    std::vector<size_t> order = appendAll(bench, entries);
    for (size_t round = 0; round < 40; ++round) {
      const size_t at = round * 5 % order.size();
      const size_t i = order[at];
      expectUnlinked(bench, entries, i);
      order.erase(order.begin() + static_cast<std::ptrdiff_t>(at));
      bench.append(entries.node(i));
      order.push_back(i);
      expectOrder(bench, bench.list, entries, order);
    }
    // The same records with other nodes.
    Entries others(12);
    for (size_t i = 0; i < 12; ++i) {
      expectUnlinked(bench, entries, i);
      others.node(i)->record = entries.record(i);
      bench.append(others.node(i));
    }
    for (size_t i = 0; i < 12; ++i) {
      expect(bench.unlink(entries.record(i)) == others.node(i),
             "unlink answers the node that a record had before");
    }
    bench.end();
  });
}

void isEmptyAfterAReset(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const Bench bench(host);
    Entries entries(50);
    std::vector<size_t> order = appendAll(bench, entries);
    bench.resetHead();
    expectOrder(bench, bench.list, entries, {});
    for (size_t i = 0; i < 50; i += 7) {
      expect(bench.unlink(entries.record(i)) == nullptr,
             "unlink answers a node that the list had before its head was reset");
    }
    // It is good for use at once, without an unlink in between too.
    for (int round = 0; round < 2; ++round) {
      Entries fresh(30);
      order = appendAll(bench, fresh);
      expectOrder(bench, bench.list, fresh, order);
      bench.resetHead();
    }
    expect(bench.unlink(entries.record(1)) == nullptr,
           "unlink answers a node that the list had before its head was reset");
    bench.end();
  });
}

// MORVAClear gives the memory of the nodes back before the list is used again.
void forgetsOldNodes(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const Bench bench(host);
    Entries entries(40);
    const std::vector<OrderNode> none(40, OrderNode{});
    std::vector<LentBytes> lent;
    for (int round = 0; round < 3; ++round) {
      lent.emplace_back(none.data(), none.size() * sizeof(OrderNode));
      auto *nodes = lent.back().as<OrderNode>();
      for (size_t i = 0; i < 40; ++i) {
        nodes[i].record = entries.record(i);
        bench.append(&nodes[i]);
      }
      for (size_t i = 0; i < 40; i += 5) {
        expect(bench.unlink(entries.record(i)) == &nodes[i],
               "unlink does not answer the node that was appended for a record");
      }
      bench.resetHead();
      lent.back().takeBack();
      if (round == 1) {
        expect(bench.unlink(entries.record(1)) == nullptr,
               "unlink answers a node that the list had before its head was reset");
      }
    }
    bench.end();
  });
}

void usesAddressesAgain(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const Bench bench(host);
    Entries entries(60);
    // None of them shares a factor with 60: every node once, in another order each time.
    for (const size_t step : {7, 11, 13, 17}) {
      std::vector<size_t> order;
      for (size_t i = 0; i < 60; ++i) {
        const size_t which = i * step % 60;
        *entries.node(which) = {Entries::poison(), Entries::poison(), entries.record(which)};
        bench.append(entries.node(which));
        order.push_back(which);
      }
      expectOrder(bench, bench.list, entries, order);
      for (size_t i = 0; i < 60; i += 3) {
        expectUnlinked(bench, entries, i);
        std::erase(order, i);
      }
      expectOrder(bench, bench.list, entries, order);
      bench.resetHead();
    }
    bench.end();
  });
}

void listsAreIndependent(const Subject &subject) {
  onHostsOfBothKinds(subject, [](Host &host) {
    const Bench bench(host);
    OrderList *other = bench.newList();
    Entries entries(30);
    std::vector<size_t> order;
    std::vector<size_t> otherOrder;
    for (size_t i = 0; i < 30; ++i) {
      bench.lists->append(i % 2 == 0 ? bench.list : other, entries.node(i));
      (i % 2 == 0 ? order : otherOrder).push_back(i);
    }
    expect(bench.unlink(entries.record(1)) == nullptr, "unlink answers a node of another list");
    expect(bench.unlinkFrom(other, entries.record(2)) == nullptr,
           "unlink answers a node of another list");
    expectOrder(bench, bench.list, entries, order);
    expectOrder(bench, other, entries, otherOrder);
    bench.resetHead();
    expectOrder(bench, other, entries, otherOrder);
    for (const size_t i : otherOrder) {
      expect(bench.unlinkFrom(other, entries.record(i)) == entries.node(i),
             "unlink does not answer the node that was appended for a record");
    }
    other->destroy(other);
    bench.append(entries.node(5));
    expectUnlinked(bench, entries, 5);
    bench.end();
  });
}

void holdsMany(const Subject &subject) {
  Host host(subject);
  const Bench bench(host);
  Entries entries(5000);
  const std::vector<size_t> order = appendAll(bench, entries);
  expectOrder(bench, bench.list, entries, order);
  Random numbers(1);
  std::vector<size_t> toUnlink = order;
  for (size_t i = toUnlink.size(); i > 1; --i) {
    std::swap(toUnlink[i - 1], toUnlink[numbers.below(i)]);
  }
  for (const size_t i : toUnlink) expectUnlinked(bench, entries, i);
  expectOrder(bench, bench.list, entries, {});
  bench.end();
}

constexpr Check kChecks[] = {
    {"order.begins-empty", "A new list is empty.", beginsEmpty},
    {"order.appends-at-the-end", "append links a node at the end of the order.", appendsAtTheEnd},
    {"order.keeps-the-record", "The record of a linked node is the library's, and stays.",
     keepsTheRecord},
    {"order.unlinks-the-first", "The first node can be unlinked by its record.",
     [](const Subject &subject) { unlinksWhere(subject, [](size_t) -> size_t { return 0; }); }},
    {"order.unlinks-the-last", "The last node can be unlinked by its record.",
     [](const Subject &subject) { unlinksWhere(subject, [](size_t left) { return left - 1; }); }},
    {"order.unlinks-between", "A node between others can be unlinked by its record.",
     [](const Subject &subject) { unlinksWhere(subject, [](size_t left) { return left / 2; }); }},
    {"order.knows-no-other-records",
     "unlink answers null for a record that was not appended, or was unlinked.",
     knowsNoOtherRecords},
    {"order.takes-nodes-again", "Nodes and records that were unlinked can be appended again.",
     takesNodesAgain},
    {"order.is-empty-after-a-reset",
     "A list whose head the library has set to 0 is empty, and good for use.", isEmptyAfterAReset},
    {"order.forgets-old-nodes",
     "After a reset the nodes that the list had are not looked at: their memory may be gone.",
     forgetsOldNodes},
    {"order.uses-addresses-again",
     "After a reset the same nodes and records can be appended in another order.",
     usesAddressesAgain},
    {"order.lists-are-independent", "Each list has its own nodes.", listsAreIndependent},
    {"order.holds-many", "Thousands of nodes can be appended, and unlinked in any order.",
     holdsMany},
};

}  // namespace

std::span<const Check> hostOrderChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
