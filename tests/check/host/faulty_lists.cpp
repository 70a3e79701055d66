// Faults of order lists: a plain list, with something left out.

#include <map>

#include "faulty_host.h"

namespace faulty {

namespace {

struct List {
  OrderNode *last = nullptr;
  std::map<const void *, OrderNode *> index;
};

Known<List> lists;
List onlyList;

List &listOf(OrderList *table) {
  return faultIs("has-one-list") ? onlyList : lists.of(table);
}

OrderNode *before(OrderNode *node) {
  return static_cast<OrderNode *>(node->link0);
}
OrderNode *after(OrderNode *node) {
  return static_cast<OrderNode *>(node->link1);
}

void append(OrderList *table, OrderNode *node) {
  List &list = listOf(table);
  auto *head = static_cast<OrderNode *>(table->head);
  if (head == nullptr && !faultIs("keeps-its-tail")) list.last = nullptr;
  if (head == nullptr && !faultIs("keeps-its-index") && !faultIs("has-one-list")) {
    if (faultIs("looks-at-old-nodes")) {
      for (auto &[record, old] : list.index) old->link0 = nullptr;
    }
    list.index.clear();
  }
  if (faultIs("has-room-for-a-thousand") && list.index.size() == 1000) return;
  list.index[node->record] = node;
  if (faultIs("appends-at-the-front") && head != nullptr) {
    *node = {nullptr, head, node->record};
    head->link0 = node;
    table->head = node;
    return;
  }
  *node = {list.last, nullptr, node->record};
  if (list.last != nullptr) list.last->link1 = node;
  if (head == nullptr) table->head = node;
  list.last = node;
  if (faultIs("overwrites-records")) node->record = table;
}

OrderNode *unlink(OrderList *table, const OrderNode *image) {
  List &list = listOf(table);
  if (faultIs("reads-whole-images") && image->link0 != nullptr) {
    if (*static_cast<volatile char *>(image->link0) == 'x') return nullptr;
  }
  if (table->head == nullptr && !faultIs("keeps-its-index") && !faultIs("has-one-list")) {
    list.index.clear();
  }
  const auto at = list.index.find(image->record);
  if (at == list.index.end()) return nullptr;
  OrderNode *node = at->second;
  if (!faultIs("unlinks-twice")) list.index.erase(at);
  if (faultIs("unlinks-the-first-for-any")) {
    node = static_cast<OrderNode *>(table->head);
  }
  OrderNode *previous = before(node);
  OrderNode *following = after(node);
  if (previous != nullptr) {
    previous->link1 = following;
  } else if (!(faultIs("keeps-an-unlinked-head") && following != nullptr)) {
    table->head = following;
  }
  if (following != nullptr) {
    following->link0 = faultIs("breaks-links-backwards") ? nullptr : previous;
  } else if (!faultIs("keeps-an-unlinked-tail")) {
    list.last = previous;
  }
  return node;
}

}  // namespace

void spoilLists(OrderListExt *companion) {
  static constexpr const char *kFaults[] = {"keeps-its-tail",          "keeps-its-index",
                                            "has-room-for-a-thousand", "has-one-list",
                                            "looks-at-old-nodes",      "appends-at-the-front",
                                            "overwrites-records",      "reads-whole-images",
                                            "unlinks-twice",           "unlinks-the-first-for-any",
                                            "keeps-an-unlinked-head",  "breaks-links-backwards",
                                            "keeps-an-unlinked-tail"};
  for (const char *fault : kFaults) {
    if (!faultIs(fault)) continue;
    companion->append = append;
    companion->unlink = unlink;
    companion->makeOrderList = [](OrderListExt *self, TreeExt *trees) {
      OrderList *list = originals.lists.makeOrderList(self, trees);
      lists.of(list) = {};
      return list;
    };
  }
  if (faultIs("serves-one-user")) {
    // Gone for all when the first one goes.
    companion->release = [](OrderListExt *self) {
      originals.lists.release(self);
      self->append = [](OrderList *, OrderNode *) {};
    };
  }
}

}  // namespace faulty
