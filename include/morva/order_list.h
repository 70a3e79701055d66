/**
 * @file
 * The companion extension "qzeai" and the object it makes: the order list,
 * which keeps the first record of every key in insertion order (flagOrdered).
 *
 *   OrderListExt slot   2        10      11      12
 *                       release  append  unlink  makeOrderList
 *
 *   OrderList word      2        3     5
 *                       destroy  head  lock
 *
 * append and unlink are slots of the companion; the list is their argument.
 */
#ifndef MORVA_ORDER_LIST_H
#define MORVA_ORDER_LIST_H

#include "morva/base.h"
#include "morva/host_lock.h"
#include "morva/order_node.h"
#include "morva/tree_container.h"

typedef struct OrderList OrderList;

/** The order of one instance. The library reads and writes the words named here. */
struct OrderList {
  void *slot0[2];
  /** Destroys the list; its nodes are the instance's. */
  void (*destroy)(OrderList *list);
  /**
   * The list's first node, or however the list keeps it; 0 must mean empty.
   * Both clear operations set it to 0, under `lock` if there is one, and the
   * list must be good for use afterwards, all nodes it held being gone.
   */
  void *head;
  void *slot4;
  /** The list's lock, or null. Read by the clear operations only. */
  HostLock *lock;
};

MORVA_LAYOUT_FIELD(OrderList, slot0, 0);
MORVA_LAYOUT_FIELD(OrderList, destroy, 16);
MORVA_LAYOUT_FIELD(OrderList, head, 24);
MORVA_LAYOUT_FIELD(OrderList, slot4, 32);
MORVA_LAYOUT_FIELD(OrderList, lock, 40);
MORVA_LAYOUT_SIZE(OrderList, 48);

typedef struct OrderListExt OrderListExt;

/** What HostServices.loadExtension answers for U"qzeai". */
struct OrderListExt {
  void *slot0[2];
  /** Releases the companion; the list it made is destroyed before. */
  void (*release)(OrderListExt *companion);
  void *slot3[7];
  /** Links `node` at the end of the order; `node->record` is filled. Under the instance's lock. */
  void (*append)(OrderList *list, OrderNode *node);
  /**
   * Unlinks and answers the node that was appended for `image->record`, or
   * null when the list holds none. Only the third word of `image` is filled.
   * Under the instance's lock.
   */
  OrderNode *(*unlink)(OrderList *list, const OrderNode *image);
  /** Makes an empty list. `treeExt` is the loaded "qzeavl". Null fails the creation. */
  OrderList *(*makeOrderList)(OrderListExt *companion, TreeExt *treeExt);
};

MORVA_LAYOUT_FIELD(OrderListExt, slot0, 0);
MORVA_LAYOUT_FIELD(OrderListExt, release, 16);
MORVA_LAYOUT_FIELD(OrderListExt, slot3, 24);
MORVA_LAYOUT_FIELD(OrderListExt, append, 80);
MORVA_LAYOUT_FIELD(OrderListExt, unlink, 88);
MORVA_LAYOUT_FIELD(OrderListExt, makeOrderList, 96);
MORVA_LAYOUT_SIZE(OrderListExt, 104);

#endif
