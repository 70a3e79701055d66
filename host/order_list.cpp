#include "order_list.h"

#include <cstring>
#include <new>

#include "host_state.h"

namespace qzhost {

namespace {

OrderedList *listOf(OrderList *table) {
  return reinterpret_cast<OrderedList *>(table);
}

OrderNode *firstOf(const OrderList *table) {
  return static_cast<OrderNode *>(table->head);
}
OrderNode *before(const OrderNode *node) {
  return static_cast<OrderNode *>(node->link0);
}
OrderNode *after(const OrderNode *node) {
  return static_cast<OrderNode *>(node->link1);
}

// Forgets what the list held before its head word was cleared.
void dropStale(OrderedList *list) {
  list->strays = 0;
  if (list->index.count() != 0) list->index.reset();
}

// Slots of the record blocks of an instance lie its slot size apart, and never
// less than 32 bytes. Where no instance says more, record nodes still have to
// be on different words.
uint64_t distanceOfRecords(const void *record) {
  constexpr uint64_t kLeast = 32;
  const auto *inst = static_cast<const MORVAInst *>(static_cast<const RecordNode *>(record)->owner);
  if (inst == nullptr || memcmp(inst->eyeCatcher, "nevo", sizeof inst->eyeCatcher) != 0)
    return sizeof(void *);
  if ((inst->flags & flagVarKey) != 0) return kLeast;
  const uint64_t slot = (uint64_t{inst->recordSize} + 47) & ~UINT64_C(15);
  return slot > kLeast ? slot : kLeast;
}

// Looks for a node that is not in the index. Newest first: a node becomes a
// stray when memory has run out, which is late in a list's life.
OrderNode *findStray(const OrderedList *list, const void *record) {
  OrderNode *node = list->last;
  while (node != nullptr && node->record != record) node = before(node);
  return node;
}

void append(OrderedList *list, OrderNode *node) {
  if (list->table.head == nullptr) {
    dropStale(list);
    if (node->record != nullptr) list->index.setDistance(distanceOfRecords(node->record));
    node->link0 = nullptr;
    list->table.head = node;
  } else {
    node->link0 = list->last;
    list->last->link1 = node;
  }
  node->link1 = nullptr;
  list->last = node;
  if (!list->index.insert(node)) ++list->strays;
}

OrderNode *unlink(OrderedList *list, const void *record) {
  if (list->table.head == nullptr) {
    dropStale(list);
    return nullptr;
  }
  OrderNode *node = list->index.remove(record);
  if (node == nullptr) {
    if (list->strays == 0) return nullptr;
    node = findStray(list, record);
    if (node == nullptr) return nullptr;
    --list->strays;
  }
  OrderNode *previous = before(node);
  OrderNode *following = after(node);
  if (previous != nullptr) {
    previous->link1 = following;
  } else {
    list->table.head = following;
  }
  if (following != nullptr) {
    following->link0 = previous;
  } else {
    list->last = previous;
  }
  node->link0 = nullptr;
  node->link1 = nullptr;
  return node;
}

void destroyOrderList(OrderList *table) {
  if (table == nullptr) return;
  OrderedList *list = listOf(table);
  delist(list->host, list->host->orderLists, list);
  delete list;
}

// The list of an instance, if it is one of ours.
const OrderedList *listOf(const MORVAInst *inst) {
  if (inst == nullptr || inst->orderList == nullptr || inst->aiExt == nullptr ||
      inst->aiExt->append != appendNode)
    return nullptr;
  return listOf(inst->orderList);
}

}  // namespace

OrderedList::OrderedList(QZHost *owningHost, bool locked)
    : table{},
      index(&owningHost->memory, &owningHost->idle, owningHost->options.hugePages != 0,
            owningHost->nextSecret()),
      host(owningHost),
      lock(owningHost) {
  table.destroy = destroyOrderList;
  if (locked) table.lock = &lock.table;
}

void appendNode(OrderList *table, OrderNode *node) {
  if (table == nullptr || node == nullptr) return;
  OrderedList *list = listOf(table);
  if (table->lock == nullptr) return append(list, node);
  const Holding holding(&list->lock, MORVA_LOCK_CHANGE);
  append(list, node);
}

OrderNode *unlinkNode(OrderList *table, const OrderNode *image) {
  if (table == nullptr || image == nullptr) return nullptr;
  OrderedList *list = listOf(table);
  if (table->lock == nullptr) return unlink(list, image->record);
  const Holding holding(&list->lock, MORVA_LOCK_CHANGE);
  return unlink(list, image->record);
}

void releaseOrderListExt(OrderListExt *companion) {
  if (companion != nullptr) Companion<OrderListExt>::of(companion)->release();
}

OrderList *makeOrderList(OrderListExt *companion, TreeExt *) {
  if (companion == nullptr) return nullptr;
  QZHost *host = Companion<OrderListExt>::of(companion)->host;
  auto *list = new (std::nothrow) OrderedList(host, host->options.lockedTrees != 0);
  if (list == nullptr) return nullptr;
  enlist(host, host->orderLists, list);
  return &list->table;
}

}  // namespace qzhost

OrderNode *QZOrderFirst(const MORVAInst *inst) {
  const qzhost::OrderedList *list = qzhost::listOf(inst);
  return list != nullptr ? qzhost::firstOf(&list->table) : nullptr;
}

OrderNode *QZOrderLast(const MORVAInst *inst) {
  const qzhost::OrderedList *list = qzhost::listOf(inst);
  return list != nullptr && list->table.head != nullptr ? list->last : nullptr;
}

OrderNode *QZOrderNext(const OrderNode *node) {
  return node != nullptr ? qzhost::after(node) : nullptr;
}

OrderNode *QZOrderPrev(const OrderNode *node) {
  return node != nullptr ? qzhost::before(node) : nullptr;
}
