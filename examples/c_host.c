/* A whole host in one file, and a program that uses a table on it: docs/hosting.md walks through
   it. Answers 0 when everything was right and every object was given back. */
#define _POSIX_C_SOURCE 200809L
#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "morva/morva.h"

static atomic_int alive;     /* pools, blocks, locks, companions in use, and their objects */
static atomic_int unmatched; /* releases by a thread that did not hold the lock */

static void *make(size_t size) {
  void *object = calloc(1, size);
  if (object != NULL) ++alive;
  return object;
}
static void drop(void *object) {
  free(object);
  --alive;
}

/* ---- Pools: zeroed heap blocks in a ring, so that destroying a pool finds them all ---- */
typedef struct Block Block;
struct Block { /* 16 bytes: what follows is aligned as calloc aligns */
  Block *before, *after;
};
typedef struct Pool {
  HostPool table; /* the public table first, the host's own state behind it */
  Block ring;
} Pool;
/* One pool is used from many threads: that of the extension. */
static pthread_mutex_t poolMutex = PTHREAD_MUTEX_INITIALIZER;

static void *poolAllocate(HostPool *table, uint64_t size, uint32_t options) {
  Block *ring = &((Pool *)table)->ring, *block = make(sizeof *block + size);
  if (block == NULL) return NULL;
  pthread_mutex_lock(&poolMutex);
  *block = (Block){.before = ring, .after = ring->after};
  block->after->before = ring->after = block;
  pthread_mutex_unlock(&poolMutex);
  return block + 1;
}
static void poolFree(HostPool *table, void *memory) {
  Block *block = (Block *)memory - 1;
  pthread_mutex_lock(&poolMutex);
  block->before->after = block->after;
  block->after->before = block->before;
  pthread_mutex_unlock(&poolMutex);
  drop(block);
}
static void poolDestroy(HostPool *table) {
  Pool *pool = (Pool *)table;
  while (pool->ring.after != &pool->ring) poolFree(table, pool->ring.after + 1);
  drop(pool);
}
static HostPool *createPool(HostServices *services, const PoolOptions *options, void *context,
                            const char *name) {
  Pool *pool = make(sizeof *pool);
  if (pool == NULL) return NULL;
  pool->table = (HostPool){.destroy = poolDestroy, .allocate = poolAllocate, .free = poolFree};
  pool->ring = (Block){.before = &pool->ring, .after = &pool->ring};
  return &pool->table;
}

/* ---- Locks: a recursive mutex nests, and refuses a release by a thread without it ---- */
typedef struct Lock {
  HostLock table;
  pthread_mutex_t mutex;
} Lock;

static uint32_t lockAcquire(HostLock *table, uint32_t mode, uint32_t wait) {
  return (uint32_t)pthread_mutex_lock(&((Lock *)table)->mutex); /* readers may be alone, too */
}
static void lockRelease(HostLock *table) {
  if (pthread_mutex_unlock(&((Lock *)table)->mutex) != 0) ++unmatched;
}
static void lockDestroy(HostLock *table) { /* a lock still held stays alive, and is told */
  if (pthread_mutex_destroy(&((Lock *)table)->mutex) == 0) drop(table);
}
static HostLock *createLock(HostServices *services, const LockOptions *options, void *context,
                            const char *name) {
  Lock *lock = make(sizeof *lock);
  if (lock == NULL) return NULL;
  lock->table = (HostLock){.destroy = lockDestroy, .acquire = lockAcquire, .release = lockRelease};
  pthread_mutexattr_t recursive;
  pthread_mutexattr_init(&recursive);
  pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&lock->mutex, &recursive);
  pthread_mutexattr_destroy(&recursive);
  return &lock->table;
}

/* ---- "qzeavl": puts a bucket's root into a holder and has the library's callback work ---- */
typedef struct Tree {
  TreeContainer table;
  const TreeCallbacks *callbacks;
} Tree;

static RecordNode *treeInsert(TreeContainer *table, Bucket *bucket, RecordNode *node,
                              BucketArray *buckets) {
  TreeHolder holder = {.root = bucket->root};
  RecordNode *answer = ((Tree *)table)->callbacks->adder(&holder, node);
  bucket->root = holder.root;
  return answer;
}
static RecordNode *treeFind(TreeContainer *table, Bucket *bucket, RecordNode *probe) {
  TreeHolder holder = {.root = bucket->root}; /* not written back: many may search at once */
  return ((Tree *)table)->callbacks->finder(&holder, probe);
}
static RecordNode *treeRemove(TreeContainer *table, Bucket *bucket, RecordNode *probe) {
  TreeHolder holder = {.root = bucket->root};
  RecordNode *answer = ((Tree *)table)->callbacks->killer(&holder, probe);
  bucket->root = holder.root;
  return answer;
}
static RecordNode *nodeAt(uintptr_t link) {
  return (RecordNode *)(link & ~(uintptr_t)(LINK_HEAVY | LINK_THREAD));
}
static RecordNode *leftmost(RecordNode *node) {
  while ((node->left & LINK_THREAD) == 0) node = nodeAt(node->left);
  return node;
}
static RecordNode *treeFirst(TreeContainer *table, Bucket *bucket) {
  return bucket->root == NULL ? NULL : leftmost(bucket->root);
}
static RecordNode *treeNext(RecordNode *node) { /* a thread leads to the next node itself */
  RecordNode *right = nodeAt(node->right);
  return node->right & LINK_THREAD ? right : leftmost(right);
}
static void treeDestroy(TreeContainer *table) {
  drop(table);
}
static TreeContainer *makeTree(TreeExt *companion, const TreeOptions *options, uint64_t zero1,
                               uint64_t zero2) {
  static const TreeContainer table = {.destroy = treeDestroy,
                                      .next = treeNext,
                                      .insert = treeInsert,
                                      .find = treeFind,
                                      .remove = treeRemove,
                                      .first = treeFirst};
  Tree *tree = make(sizeof *tree);
  if (tree != NULL) *tree = (Tree){table, options->callbacks};
  return (TreeContainer *)tree;
}
static void treeExtRelease(TreeExt *companion) {
  --alive;
}
static TreeExt treeExt = {.release = treeExtRelease, .makeTree = makeTree};

/* ---- "qzevp": copies raw bytes; a key is a row of the program's, fieldArg an offset in it ---- */
typedef struct Packer {
  RecordPacker table;
  uint32_t fieldCount;
  PackerField fields[8];
} Packer;

static uint32_t packerField(RecordPacker *table, const PackerField *field) {
  Packer *packer = (Packer *)table;
  if (field->typeCode != 4 || packer->fieldCount == 8) return 1; /* not 0: refused */
  packer->fields[packer->fieldCount++] = *field;
  return 0;
}
static uint32_t packerFinish(RecordPacker *table, const PackerClosing *closing) {
  return 0;
}
static uint32_t packerPack(RecordPacker *table, const void *row, void *base, uint64_t one) {
  const Packer *packer = (Packer *)table;
  for (const PackerField *at = packer->fields; at < packer->fields + packer->fieldCount; ++at)
    memcpy((char *)base + at->fieldOffset, (const char *)row + at->fieldArg, at->fieldLength);
  return 0;
}
static void packerDestroy(RecordPacker *table) {
  drop(table);
}
static RecordPacker *makePacker(RecordPackerExt *companion, uint64_t zero) {
  static const RecordPacker table = {.destroy = packerDestroy,
                                     .pack = packerPack,
                                     .defineField = packerField,
                                     .finish = packerFinish};
  Packer *packer = make(sizeof *packer);
  if (packer != NULL) *packer = (Packer){.table = table};
  return (RecordPacker *)packer;
}
static void packerExtRelease(RecordPackerExt *companion) {
  --alive;
}
static RecordPackerExt packerExt = {.release = packerExtRelease, .makePacker = makePacker};

/* ---- "qzeai": links order nodes; link0 is the one before, link1 the one after ---- */
typedef struct List {
  OrderList table; /* its head word is the first node */
  OrderNode *last; /* means nothing while head is null: a clear resets head alone */
} List;

static void listAppend(OrderList *table, OrderNode *node) {
  List *list = (List *)table;
  OrderNode *last = table->head == NULL ? NULL : list->last;
  *node = (OrderNode){.link0 = last, .link1 = NULL, .record = node->record};
  *(last == NULL ? &table->head : &last->link1) = node;
  list->last = node;
}
static OrderNode *listUnlink(OrderList *table, const OrderNode *image) {
  List *list = (List *)table;
  OrderNode *node = table->head; /* a host with long lists keeps an index by record instead */
  while (node != NULL && node->record != image->record) node = node->link1;
  if (node == NULL) return NULL;
  OrderNode *before = node->link0, *after = node->link1;
  *(before == NULL ? &table->head : &before->link1) = after;
  *(after == NULL ? (void **)&list->last : &after->link0) = before;
  return node;
}
static void listDestroy(OrderList *table) {
  drop(table);
}
static OrderList *makeList(OrderListExt *companion, TreeExt *trees) {
  List *list = make(sizeof *list);
  if (list != NULL) list->table.destroy = listDestroy;
  return (OrderList *)list;
}
static void listExtRelease(OrderListExt *companion) {
  --alive;
}
static OrderListExt listExt = {.release = listExtRelease,
                               .append = listAppend,
                               .unlink = listUnlink,
                               .makeOrderList = makeList};

/* ---- The service table: one companion of each kind serves all instances ---- */
static void *loadExtension(HostServices *services, const uint32_t *name, uint64_t length,
                           uint64_t reserved) {
  void *companion = NULL; /* names are of 32-bit characters */
  if (length == 5 && memcmp(name, U"qzevp", 5 * sizeof *name) == 0) companion = &packerExt;
  if (length == 6 && memcmp(name, U"qzeavl", 6 * sizeof *name) == 0) companion = &treeExt;
  if (length == 5 && memcmp(name, U"qzeai", 5 * sizeof *name) == 0) companion = &listExt;
  if (companion != NULL) ++alive;
  return companion;
}
static HostServices services = {
    .createLock = createLock, .createPool = createPool, .loadExtension = loadExtension};

/* ---- A program that uses a table ---- */
typedef struct Item { /* the key is number and plant; the library never looks at the rest */
  char name[12];
  uint16_t plant;
  uint32_t number;
} Item;

static int failures;

static void expect(int right, const char *what) {
  if (!right) ++failures, fprintf(stderr, "c_host: wrong: %s\n", what);
}
static void printInOrder(MORVAInst *parts) {
  for (OrderNode *at = parts->orderList->head; at != NULL; at = at->link1) {
    const char *base = MORVARecordBase(at->record);
    uint32_t number;
    memcpy(&number, base, sizeof number); /* the first field defined */
    printf("%u: %s\n", number, base + parts->Recoff(parts, at->record));
  }
}

int main(void) {
  static const Item stock[] = {{"bolt", 1, 700}, {"nut", 1, 300}, {"washer", 2, 700}};
  int64_t major, minor;
  qzextver(&services, &major, &minor);
  MORVAExt *ext = major == MORVA_HOST_MAJOR ? morva(NULL, NULL) : NULL;
  MORVAParms parms = {.flags = flagOrdered, .hashExp = 4};
  MORVAInst *parts = ext == NULL ? NULL : ext->Create(ext, &parms, NULL, "parts");
  if (parts == NULL) return fprintf(stderr, "c_host: no memory\n"), 1;

  const MORVAKeyDesc number = {sizeof(uint32_t), 4, offsetof(Item, number), 0};
  const MORVAKeyDesc plant = {sizeof(uint16_t), 4, offsetof(Item, plant), 0};
  expect(parts->DefineKey(parts, &number) == MORVA_OK, "the first field");
  expect(parts->DefineKey(parts, &plant) == MORVA_OK, "the second field");
  expect(parts->DefineDone(parts, 0, sizeof stock->name) == MORVA_OK, "the end of the fields");

  for (int i = 0; i < 3; ++i)
    expect(parts->Add(parts, stock[i].name, &stock[i], 0) == MORVA_OK, "adding");
  expect(parts->Add(parts, stock[0].name, &stock[1], 0) == MORVA_PRESENT, "adding twice");
  void *name = NULL;
  expect(parts->Find(parts, &stock[2], 0, &name) == MORVA_OK && name != NULL, "finding");
  expect(name != NULL && strcmp(name, "washer") == 0, "the data found");
  printInOrder(parts);

  uint32_t equal = 0; /* this acquires one lock twice */
  expect(parts->Equals(parts, parts, &equal) == MORVA_OK && equal == 1, "comparing");
  expect(parts->Remove(parts, &stock[0], 0) == MORVA_OK, "removing");
  expect(parts->Remove(parts, &stock[0], 0) == MORVA_INVALID, "removing what is gone");
  printInOrder(parts);
  expect(parts->Clear(parts) == MORVA_OK && parts->NumElements(parts) == 0, "clearing");
  expect(parts->Replace(parts, stock[0].name, &stock[0], 0) == MORVA_OK, "adding after a clear");
  printInOrder(parts);

  parts->Destroy(parts);
  ext->RealDestroy(ext);
  expect(alive == 0, "something was not given back");
  expect(unmatched == 0, "a lock was released that was not held");
  return failures == 0 ? 0 : 1;
}
