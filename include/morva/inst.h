/**
 * @file
 * The hash instance: one table of records, with its operations.
 *
 *   +0     eyeCatcher, name
 *   +16    25 operations, Destroy to TotalMem
 *   +216   keyLength, modeBits
 *   +224   Clear2, Find2
 *   +240   ext, pools, block chains
 *   +288   flags, hashMethod, the record layout
 *   +320   how full the newest blocks are, totalMem
 *   +368   sumIncrement
 *   +376   companions and the objects they made, buckets, lock
 *   +440   Recoff, FindNode
 *   +456   free chains, pinned, extraBlocksB
 *   +488   state of the library's own follows
 *
 * Made by MORVACreate, released by MORVADestroy; a host calls the operations
 * through the instance or by name, reads every field, and writes none but
 * `pinned` and `extraBlocksB`.
 */
#ifndef MORVA_INST_H
#define MORVA_INST_H

#include "morva/base.h"
#include "morva/bucket_array.h"
#include "morva/flags.h"
#include "morva/host_lock.h"
#include "morva/host_pool.h"
#include "morva/order_list.h"
#include "morva/order_node.h"
#include "morva/parms.h"
#include "morva/record_node.h"
#include "morva/record_packer.h"
#include "morva/status.h"
#include "morva/tree_container.h"

typedef struct MORVAInst MORVAInst;
typedef struct MORVAExt MORVAExt;

typedef struct PinnedEntry PinnedEntry;

/**
 * An entry of MORVAInst.pinned: the host pushes entries there (blocks of the
 * extension's pool, freed by MORVADestroy) and takes them off again, holding the
 * instance's lock or while nobody uses the instance. The first record of a key
 * is not removed while its node is on the list; a clear ignores that and says
 * so, and the host must then take the entry off, for the address will be used
 * again.
 */
struct PinnedEntry {
  /** The entry pushed before; null at the end. */
  PinnedEntry *next;
  /** The node that is not to be removed. */
  RecordNode *node;
};

MORVA_LAYOUT_FIELD(PinnedEntry, next, 0);
MORVA_LAYOUT_FIELD(PinnedEntry, node, 8);
MORVA_LAYOUT_SIZE(PinnedEntry, 16);

/** Each operation is the exported function of the same name with the prefix MORVA. */
struct MORVAInst {
  /** "nevo", without a terminator. */
  char eyeCatcher[4];
  uint32_t reserved4;
  /** Copy of the name's characters WITHOUT a terminator, or null. */
  char *name;

  MORVAStatus (*Destroy)(MORVAInst *inst);
  /** The fast variants of these three when neither flagSum nor flagMultiData is set. */
  MORVAStatus (*Add)(MORVAInst *inst, const void *data, const void *key, int32_t keyLen);
  MORVAStatus (*Replace)(MORVAInst *inst, const void *data, const void *key, int32_t keyLen);
  MORVAStatus (*Find)(MORVAInst *inst, const void *key, int32_t length, void **dataOut);
  MORVAStatus (*Remove)(MORVAInst *inst, const void *key, int32_t keyLen);
  MORVAStatus (*DefineKey)(MORVAInst *inst, const MORVAKeyDesc *desc);
  MORVAStatus (*DefineDone)(MORVAInst *inst, int32_t packerArg, uint32_t dataLength);
  MORVAStatus (*Sum)(MORVAInst *inst, const void *key, int32_t keyLen, double *sumOut);
  MORVAStatus (*FindNext)(MORVAInst *inst, void *data, void **dataOut);
  MORVAStatus (*FindPrev)(MORVAInst *inst, void *data, void **dataOut);
  uint32_t (*HasNext)(MORVAInst *inst, const void *data);
  uint32_t (*HasPrev)(MORVAInst *inst, const void *data);
  MORVAStatus (*SumDup)(MORVAInst *inst, const void *data, double *sumOut);
  MORVAStatus (*SumKey)(MORVAInst *inst, void *data, double *sumOut, int32_t storeOffset);
  MORVAStatus (*ReplaceDup)(MORVAInst *inst, void *data, const void *newData);
  MORVAStatus (*RemoveDup)(MORVAInst *inst, void **cursor, const void *key, int32_t keyLen);
  MORVAStatus (*Clear)(MORVAInst *inst);
  MORVAStatus (*Equals)(MORVAInst *instanceA, MORVAInst *instanceB, uint32_t *equalOut);
  MORVAStatus (*HashVal)(MORVAInst *inst, const void *key, int32_t length, uint32_t *bucketOut);
  uint32_t (*NumElements)(const MORVAInst *inst);
  uint32_t (*HashSize)(const MORVAInst *inst);
  uint32_t (*BucketSize)(const MORVAInst *inst, uint32_t index);
  void (*SetSumInc)(MORVAInst *inst, double increment);
  uint32_t (*RecSize)(const MORVAInst *inst);
  uint64_t (*TotalMem)(const MORVAInst *inst);

  /** Bytes of the key area; 0 with flagVarKey. */
  uint32_t keyLength;
  /** `flags` AND 0x64 as given at creation; read by the tree callbacks. */
  uint32_t modeBits;

  MORVAStatus (*Clear2)(MORVAInst *inst);
  MORVAStatus (*Find2)(MORVAInst *inst, const void *key, int32_t length, RecordNode *probeRecord,
                       void **dataOut);

  /** The extension that made the instance; its pool holds the instance. */
  MORVAExt *ext;
  /** The pool "records"; null with flagVarKey, and until the layout is fixed. */
  HostPool *recordPool;
  /** The pool "varkeys"; null without flagVarKey. */
  HostPool *varkeyPool;
  /** The pool "inodes"; null without flagOrdered. */
  HostPool *inodePool;
  /** Newest record block; each block's first word links to the one taken before. */
  void *recordBlocks;
  /** Newest block of order nodes, linked likewise. */
  void *inodeBlocks;

  /** Option bits, see MORVAFlag: as given, but for the two state bits. */
  uint32_t flags;
  /** The hash method in use, 2 to 9. */
  uint32_t hashMethod;
  /** Record blocks taken. */
  uint32_t recordBlockCount;
  /** Bytes from the record base to the record's end, slack included; per key with flagVarKey. */
  uint32_t recordSize;
  /** From the record base to the data part, or the duplicate links; 0 with flagVarKey. */
  uint32_t dataOffset;
  /** Bytes of the data part of every record. */
  uint32_t dataLength;
  /** Length of the fields defined so far. */
  uint32_t definedKeyLength;
  /** From the record base to the running sum. */
  uint32_t sumOffset;

  /** Slots used of the newest record block. */
  int64_t recordsUsed;
  /** Slots of the newest record block. */
  int64_t recordBlockCapacity;
  /** The capacity doubles while it is below this. */
  int64_t recordBlockMax;
  /** Bytes of record blocks taken since creation or the last MORVAClear. */
  uint64_t totalMem;
  /** Slots used of the newest block of order nodes. */
  int64_t inodesUsed;
  /** Slots of the newest block of order nodes. */
  int64_t inodeBlockCapacity;

  /** What lookups add to the sums of the records they reach. */
  double sumIncrement;

  /** The companion "qzevp"; null in the raw-byte modes. */
  RecordPackerExt *vpExt;
  /** What packs the keys; null in the raw-byte modes. */
  RecordPacker *recordPacker;
  /** The companion "qzeavl". */
  TreeExt *treeExt;
  /** What keeps the trees of the buckets. */
  TreeContainer *tree;
  /** The insertion order; null without flagOrdered. */
  OrderList *orderList;
  /** The buckets, and the count of records. */
  BucketArray *buckets;
  /** Null with flagNoLock. */
  HostLock *lock;
  /** The companion "qzeai"; null without flagOrdered. */
  OrderListExt *aiExt;

  uint64_t (*Recoff)(const MORVAInst *inst, const RecordNode *node);
  MORVAStatus (*FindNode)(MORVAInst *inst, const void *key, int32_t keyLen, RecordNode **nodeOut,
                          uint32_t *bucketOut);

  /** Released record nodes, linked through `owner`, last in first out. */
  RecordNode *freeRecords;
  /** Released order nodes, linked through `record`, last in first out. */
  OrderNode *freeInodes;
  /** Filled by the host; the library reads it, and frees its entries at destruction. */
  PinnedEntry *pinned;
  /** Blocks of the extension's pool, linked through their first word, freed at destruction. */
  void *extraBlocksB;
};

MORVA_LAYOUT_FIELD(MORVAInst, eyeCatcher, 0);
MORVA_LAYOUT_FIELD(MORVAInst, name, 8);
MORVA_LAYOUT_FIELD(MORVAInst, Destroy, 16);
MORVA_LAYOUT_FIELD(MORVAInst, Add, 24);
MORVA_LAYOUT_FIELD(MORVAInst, Replace, 32);
MORVA_LAYOUT_FIELD(MORVAInst, Find, 40);
MORVA_LAYOUT_FIELD(MORVAInst, Remove, 48);
MORVA_LAYOUT_FIELD(MORVAInst, DefineKey, 56);
MORVA_LAYOUT_FIELD(MORVAInst, DefineDone, 64);
MORVA_LAYOUT_FIELD(MORVAInst, Sum, 72);
MORVA_LAYOUT_FIELD(MORVAInst, FindNext, 80);
MORVA_LAYOUT_FIELD(MORVAInst, FindPrev, 88);
MORVA_LAYOUT_FIELD(MORVAInst, HasNext, 96);
MORVA_LAYOUT_FIELD(MORVAInst, HasPrev, 104);
MORVA_LAYOUT_FIELD(MORVAInst, SumDup, 112);
MORVA_LAYOUT_FIELD(MORVAInst, SumKey, 120);
MORVA_LAYOUT_FIELD(MORVAInst, ReplaceDup, 128);
MORVA_LAYOUT_FIELD(MORVAInst, RemoveDup, 136);
MORVA_LAYOUT_FIELD(MORVAInst, Clear, 144);
MORVA_LAYOUT_FIELD(MORVAInst, Equals, 152);
MORVA_LAYOUT_FIELD(MORVAInst, HashVal, 160);
MORVA_LAYOUT_FIELD(MORVAInst, NumElements, 168);
MORVA_LAYOUT_FIELD(MORVAInst, HashSize, 176);
MORVA_LAYOUT_FIELD(MORVAInst, BucketSize, 184);
MORVA_LAYOUT_FIELD(MORVAInst, SetSumInc, 192);
MORVA_LAYOUT_FIELD(MORVAInst, RecSize, 200);
MORVA_LAYOUT_FIELD(MORVAInst, TotalMem, 208);
MORVA_LAYOUT_FIELD(MORVAInst, keyLength, 216);
MORVA_LAYOUT_FIELD(MORVAInst, modeBits, 220);
MORVA_LAYOUT_FIELD(MORVAInst, Clear2, 224);
MORVA_LAYOUT_FIELD(MORVAInst, Find2, 232);
MORVA_LAYOUT_FIELD(MORVAInst, ext, 240);
MORVA_LAYOUT_FIELD(MORVAInst, recordPool, 248);
MORVA_LAYOUT_FIELD(MORVAInst, varkeyPool, 256);
MORVA_LAYOUT_FIELD(MORVAInst, inodePool, 264);
MORVA_LAYOUT_FIELD(MORVAInst, recordBlocks, 272);
MORVA_LAYOUT_FIELD(MORVAInst, inodeBlocks, 280);
MORVA_LAYOUT_FIELD(MORVAInst, flags, 288);
MORVA_LAYOUT_FIELD(MORVAInst, hashMethod, 292);
MORVA_LAYOUT_FIELD(MORVAInst, recordBlockCount, 296);
MORVA_LAYOUT_FIELD(MORVAInst, recordSize, 300);
MORVA_LAYOUT_FIELD(MORVAInst, dataOffset, 304);
MORVA_LAYOUT_FIELD(MORVAInst, dataLength, 308);
MORVA_LAYOUT_FIELD(MORVAInst, definedKeyLength, 312);
MORVA_LAYOUT_FIELD(MORVAInst, sumOffset, 316);
MORVA_LAYOUT_FIELD(MORVAInst, recordsUsed, 320);
MORVA_LAYOUT_FIELD(MORVAInst, recordBlockCapacity, 328);
MORVA_LAYOUT_FIELD(MORVAInst, recordBlockMax, 336);
MORVA_LAYOUT_FIELD(MORVAInst, totalMem, 344);
MORVA_LAYOUT_FIELD(MORVAInst, inodesUsed, 352);
MORVA_LAYOUT_FIELD(MORVAInst, inodeBlockCapacity, 360);
MORVA_LAYOUT_FIELD(MORVAInst, sumIncrement, 368);
MORVA_LAYOUT_FIELD(MORVAInst, vpExt, 376);
MORVA_LAYOUT_FIELD(MORVAInst, recordPacker, 384);
MORVA_LAYOUT_FIELD(MORVAInst, treeExt, 392);
MORVA_LAYOUT_FIELD(MORVAInst, tree, 400);
MORVA_LAYOUT_FIELD(MORVAInst, orderList, 408);
MORVA_LAYOUT_FIELD(MORVAInst, buckets, 416);
MORVA_LAYOUT_FIELD(MORVAInst, lock, 424);
MORVA_LAYOUT_FIELD(MORVAInst, aiExt, 432);
MORVA_LAYOUT_FIELD(MORVAInst, Recoff, 440);
MORVA_LAYOUT_FIELD(MORVAInst, FindNode, 448);
MORVA_LAYOUT_FIELD(MORVAInst, freeRecords, 456);
MORVA_LAYOUT_FIELD(MORVAInst, freeInodes, 464);
MORVA_LAYOUT_FIELD(MORVAInst, pinned, 472);
MORVA_LAYOUT_FIELD(MORVAInst, extraBlocksB, 480);
MORVA_LAYOUT_SIZE(MORVAInst, 488);

#endif
