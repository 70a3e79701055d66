// The companion "qzeai": records in insertion order.
//
// A list is doubly linked through the two words of its order nodes:
//
//   link0   the node before, null at the first
//   link1   the node after, null at the last
//
// with the first node in the table's head word. The last node and the index,
// which finds a record's node in constant time, are private; both mean
// something only while the head word is not null. The library empties a list by
// writing null there, after or before the nodes' memory has gone: the next call
// finds the head null with nodes still in the index, and drops the index
// without looking at them.
//
// Appending cannot fail, having memory for the index can. A node that is not in
// the index is linked all the same and counted in `strays`; while there are
// strays, a record that the index does not know is looked for along the list.
//
// With QZHostOptions.lockedTrees a list has a lock, which append and unlink
// take.
//
// Thread-safety: as morva/order_list.h says, the instance's lock.
#pragma once

#include <cstdint>
#include <type_traits>

#include "intrusive_list.h"
#include "lock.h"
#include "morva/order_list.h"
#include "order_index.h"

struct QZHost;

namespace qzhost {

struct OrderedList {
  OrderedList(QZHost *host, bool locked);

  OrderList table;
  OrderNode *last = nullptr;
  // Linked nodes that are not in the index.
  uint64_t strays = 0;
  OrderIndex index;
  QZHost *host;
  Link<OrderedList> link;
  Lock lock;
};
static_assert(std::is_standard_layout_v<OrderedList>, "an order list is its table");

// The slots of the companion.
void releaseOrderListExt(OrderListExt *companion);
void appendNode(OrderList *table, OrderNode *node);
OrderNode *unlinkNode(OrderList *table, const OrderNode *image);
OrderList *makeOrderList(OrderListExt *companion, TreeExt *treeExt);

}  // namespace qzhost
