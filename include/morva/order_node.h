/**
 * @file
 * A node of the insertion order (flagOrdered): one for the first record of
 * every key.
 */
#ifndef MORVA_ORDER_NODE_H
#define MORVA_ORDER_NODE_H

#include "morva/base.h"
#include "morva/record_node.h"

/** The library fills `record` and chains free nodes through it; the rest is the order list's. */
typedef struct OrderNode {
  /** The order list's, while the node is linked. */
  void *link0;
  /** The order list's, while the node is linked. */
  void *link1;
  /** The record node; while the order node is free, the next node of `freeInodes`. */
  void *record;
} OrderNode;

MORVA_LAYOUT_FIELD(OrderNode, link0, 0);
MORVA_LAYOUT_FIELD(OrderNode, link1, 8);
MORVA_LAYOUT_FIELD(OrderNode, record, 16);
MORVA_LAYOUT_SIZE(OrderNode, 24);

#endif
