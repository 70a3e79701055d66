/**
 * @file
 * Where a record lives.
 *
 *   node  +0    left      tree link towards smaller keys, two tag bits
 *         +8    right     tree link towards larger keys, two tag bits
 *         +16   owner     the instance while live, the next free node while free
 *   base  +24   key area  keyLength bytes, in one of two layouts (below)
 *               sum       8 bytes at sumOffset from the base, with flagSum
 *               links     DupLinks at dataOffset from the base, with flagMultiData
 *               data      at dataOffset, or 16 bytes further on behind the links
 *
 * Key area, length-prefixed (flagFixedKey, flagVarKey): a KeyPrefix, then the
 * key bytes. Packed (defined fields): the bytes the record packer wrote.
 */
#ifndef MORVA_RECORD_NODE_H
#define MORVA_RECORD_NODE_H

#include "morva/base.h"

/** Tag bits of a link word. */
enum MORVALinkTag {
  /** The subtree on this side is one level taller than the other. */
  LINK_HEAVY = 1,
  /** No child on this side: the address is the neighbour in key order, 0 at the ends. */
  LINK_THREAD = 2
};

typedef struct RecordNode RecordNode;

/** The head of every record slot. A node keeps its address while it is in use. */
struct RecordNode {
  /** Link word: address of a node, plus LINK_HEAVY and LINK_THREAD. 0 when detached. */
  uintptr_t left;
  /** As `left`, on the other side. */
  uintptr_t right;
  /** The owning MORVAInst while live, the next node of `freeRecords` while free. */
  void *owner;
};

MORVA_LAYOUT_FIELD(RecordNode, left, 0);
MORVA_LAYOUT_FIELD(RecordNode, right, 8);
MORVA_LAYOUT_FIELD(RecordNode, owner, 16);
MORVA_LAYOUT_SIZE(RecordNode, 24);

/** What precedes the key bytes with flagFixedKey and flagVarKey. */
typedef struct KeyPrefix {
  /** Bytes of the key. */
  uint32_t length;
  /** With flagVarKey the longest key the node can take; 0 with flagFixedKey. */
  uint32_t capacity;
} KeyPrefix;

MORVA_LAYOUT_FIELD(KeyPrefix, length, 0);
MORVA_LAYOUT_FIELD(KeyPrefix, capacity, 4);
MORVA_LAYOUT_SIZE(KeyPrefix, 8);

typedef struct DupLinks DupLinks;

/**
 * The chain of the records of one key (flagMultiData). Only the first record
 * is in the tree. For any record, `links->back->next` is null exactly when the
 * record is the first of its chain.
 */
struct DupLinks {
  /** The following record's links; null at the last record. */
  DupLinks *next;
  /** The preceding record's links; at the first record, the last record's. */
  DupLinks *back;
};

MORVA_LAYOUT_FIELD(DupLinks, next, 0);
MORVA_LAYOUT_FIELD(DupLinks, back, 8);
MORVA_LAYOUT_SIZE(DupLinks, 16);

/** The first byte of the key area of a node: the record base. */
static inline void *MORVARecordBase(RecordNode *node) {
  return node + 1;
}

#endif
