#include "fault_host.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fault_test {
namespace {

constexpr uint32_t kNoise = 0xDEAD;
constexpr uint64_t kGuard = UINT64_C(0xFBFBFBFBFBFBFBFB);
constexpr int kGarbage = 0xA5;

void unexpectedCall() {
  std::fputs("the library called a slot that is not its to call\n", stderr);
  std::abort();
}

// Makes every slot of a table abort when called; the used ones are set after.
template <class Table>
void fillWithTraps(Table *table) {
  void *trap = reinterpret_cast<void *>(&unexpectedCall);
  for (size_t at = 0; at != sizeof(Table); at += sizeof trap) {
    std::memcpy(reinterpret_cast<char *>(table) + at, &trap, sizeof trap);
  }
}

RecordNode *nodeOf(uintptr_t link) {
  return reinterpret_cast<RecordNode *>(link & ~uintptr_t{LINK_HEAVY | LINK_THREAD});
}

RecordNode *leftmost(RecordNode *node) {
  while ((node->left & LINK_THREAD) == 0) node = nodeOf(node->left);
  return node;
}

}  // namespace

const char *nameOf(Asked asked) {
  static constexpr const char *kNames[] = {"the extension's pool",
                                           "the pool \"records\"",
                                           "the pool \"varkeys\"",
                                           "the pool \"inodes\"",
                                           "an extension block",
                                           "a record block",
                                           "a varkey block",
                                           "an order node block",
                                           "the lock",
                                           "the packer companion",
                                           "the tree companion",
                                           "the order companion",
                                           "the packer",
                                           "a field",
                                           "the end of the definition",
                                           "the tree",
                                           "the order list",
                                           "the order node of a record"};
  static_assert(sizeof kNames / sizeof *kNames == kAskedKinds);
  return kNames[static_cast<size_t>(asked)];
}

struct FaultHost::Functions {
  // ---- pools ------------------------------------------------------------------

  static Block *blockOf(void *body) { return static_cast<Block *>(body) - 1; }
  static unsigned char *endOf(Block *block) {
    return reinterpret_cast<unsigned char *>(block + 1) + block->size;
  }

  static void drop(Pool *pool, Block *block) {
    FaultHost *host = pool->host;
    if (block->guard != kGuard || std::memcmp(endOf(block), &kGuard, sizeof kGuard) != 0) {
      host->complain("the guards of a block are damaged");
    }
    block->previous->next = block->next;
    block->next->previous = block->previous;
    block->pool = nullptr;
    std::memset(block + 1, kGarbage, block->size);
    --host->alive_.blocks;
    if (pool->kind == Asked::varkeyBlock) --host->varkeyBlocks_;
    std::free(block);
  }

  static void destroyPool(HostPool *table) {
    auto *pool = static_cast<Pool *>(table);
    if (!pool->alive) return pool->host->complain("a pool was destroyed twice");
    while (pool->blocks.next != &pool->blocks) drop(pool, pool->blocks.next);
    pool->alive = false;
    --pool->host->alive_.pools;
  }

  static void *allocate(HostPool *table, uint64_t size, uint32_t options) {
    auto *pool = static_cast<Pool *>(table);
    FaultHost *host = pool->host;
    if (!pool->alive) host->complain("a block was taken from a destroyed pool");
    if (options != 0 && options != MORVA_ZERO_FILL) host->complain("unknown block options");
    if (host->fails(pool->kind)) return nullptr;
    auto *block = static_cast<Block *>(std::malloc(sizeof(Block) + size + sizeof kGuard));
    if (block == nullptr) std::abort();
    *block = {pool->blocks.previous, &pool->blocks, pool, size, kGuard};
    block->previous->next = block;
    pool->blocks.previous = block;
    std::memset(block + 1, options == MORVA_ZERO_FILL ? 0 : kGarbage, size);
    std::memcpy(endOf(block), &kGuard, sizeof kGuard);
    ++host->alive_.blocks;
    if (pool->kind == Asked::varkeyBlock) ++host->varkeyBlocks_;
    return block + 1;
  }

  static void freeBlock(HostPool *table, void *body) {
    auto *pool = static_cast<Pool *>(table);
    if (!pool->alive) pool->host->complain("a block was given to a destroyed pool");
    // Of memory freed before, the sanitizers tell; without them it mostly names no pool.
    if (blockOf(body)->pool != pool) return pool->host->complain("freed what is no block");
    drop(pool, blockOf(body));
  }

  static HostPool *createPool(HostServices *services, const PoolOptions *options, void *,
                              const char *name) {
    FaultHost *host = static_cast<Services *>(services)->host;
    static constexpr struct {
      const char *name;
      uint32_t options;
      Asked pool, block;
    } kPools[] = {{"MORVA Extension", 0, Asked::extensionPool, Asked::extensionBlock},
                  {"records", MORVA_POOL_RECORDS, Asked::recordPool, Asked::recordBlock},
                  {"varkeys", MORVA_POOL_VARKEYS, Asked::varkeyPool, Asked::varkeyBlock},
                  {"inodes", 0, Asked::inodePool, Asked::inodeBlock}};
    for (const auto &known : kPools) {
      if (std::strcmp(known.name, name) != 0) continue;
      if (options->options != known.options) host->complain("unknown pool options");
      if (host->fails(known.pool)) return nullptr;
      Pool *pool = host->store_->pools.take();
      fillWithTraps<HostPool>(pool);
      pool->destroy = destroyPool;
      pool->allocate = allocate;
      pool->free = freeBlock;
      pool->host = host;
      pool->blocks = {&pool->blocks, &pool->blocks, pool, 0, 0};
      pool->kind = known.block;
      pool->alive = true;
      ++host->alive_.pools;
      return pool;
    }
    host->complain("a pool of an unknown name");
    return nullptr;
  }

  // ---- locks ------------------------------------------------------------------

  static void destroyLock(HostLock *table) {
    auto *lock = static_cast<Lock *>(table);
    if (!lock->alive) return lock->host->complain("a lock was destroyed twice");
    if (!lock->ofServices) lock->host->complain("a container's lock was destroyed");
    if (lock->depth != 0) lock->host->complain("a lock was destroyed that is held");
    lock->alive = false;
    --lock->host->alive_.locks;
  }

  static uint32_t acquire(HostLock *table, uint32_t mode, uint32_t wait) {
    auto *lock = static_cast<Lock *>(table);
    if (!lock->alive) lock->host->complain("a destroyed lock was acquired");
    const bool known = mode == MORVA_LOCK_CHANGE || (mode == MORVA_LOCK_READ && !lock->ofServices);
    if (!known || wait != 1) lock->host->complain("a lock was acquired in an unknown way");
    ++lock->depth;
    ++lock->host->held_;
    return kNoise;
  }

  static void release(HostLock *table) {
    auto *lock = static_cast<Lock *>(table);
    if (!lock->alive) lock->host->complain("a destroyed lock was released");
    if (lock->depth == 0) {
      ++lock->host->unmatched_;
      return;
    }
    --lock->depth;
    --lock->host->held_;
  }

  static Lock *newLock(FaultHost *host, bool ofServices) {
    Lock *lock = host->store_->locks.take();
    fillWithTraps<HostLock>(lock);
    lock->destroy = destroyLock;
    lock->acquire = acquire;
    lock->release = release;
    lock->host = host;
    lock->depth = 0;
    lock->ofServices = ofServices;
    lock->alive = true;
    if (ofServices) ++host->alive_.locks;
    return lock;
  }

  static HostLock *createLock(HostServices *services, const LockOptions *, void *, const char *) {
    FaultHost *host = static_cast<Services *>(services)->host;
    return host->fails(Asked::lock) ? nullptr : newLock(host, true);
  }

  // ---- what companions and their objects have in common ----------------------

  template <class Companion, class Table>
  static void released(Table *table) {
    auto *companion = static_cast<Companion *>(table);
    if (companion->loads == 0) return companion->host->complain("a companion released too often");
    --companion->loads;
    --companion->host->alive_.companions;
  }

  template <class Companion>
  static Companion *loaded(FaultHost *host, Companion &companion, Asked asked) {
    if (host->fails(asked)) return nullptr;
    ++companion.loads;
    ++host->alive_.companions;
    return &companion;
  }

  template <class Object>
  static Object *made(FaultHost *host, Objects<Object> &objects) {
    Object *object = objects.take();
    object->host = host;
    object->alive = true;
    ++host->alive_.objects;
    return object;
  }

  template <class Object, class Table>
  static void ended(Table *table) {
    auto *object = static_cast<Object *>(table);
    if (!object->alive) return object->host->complain("a companion's object was destroyed twice");
    object->alive = false;
    --object->host->alive_.objects;
  }

  static void *loadExtension(HostServices *services, const uint32_t *name, uint64_t length,
                             uint64_t) {
    FaultHost *host = static_cast<Services *>(services)->host;
    const auto is = [&](const char32_t *known, uint64_t knownLength) {
      return length == knownLength && std::memcmp(name, known, length * sizeof *name) == 0;
    };
    if (is(U"qzevp", 5)) return loaded(host, host->packerExt_, Asked::packerCompanion);
    if (is(U"qzeavl", 6)) return loaded(host, host->containerExt_, Asked::treeCompanion);
    if (is(U"qzeai", 5)) return loaded(host, host->listExt_, Asked::orderCompanion);
    host->complain("a companion of an unknown name");
    return nullptr;
  }

  // ---- record packer ----------------------------------------------------------

  static uint32_t pack(RecordPacker *table, const void *hostKey, void *destination, uint64_t) {
    auto *packer = static_cast<Packer *>(table);
    if (!packer->alive || !packer->finished) packer->host->complain("packed out of its time");
    for (uint32_t i = 0; i < packer->fieldCount; ++i) {
      const PackerField &field = packer->fields[i];
      std::memcpy(static_cast<char *>(destination) + field.fieldOffset,
                  static_cast<const char *>(hostKey) + field.fieldArg, field.fieldLength);
    }
    return kNoise;
  }

  static uint32_t defineField(RecordPacker *table, const PackerField *field) {
    auto *packer = static_cast<Packer *>(table);
    if (packer->host->fails(Asked::field)) return kNoise;
    if (packer->fieldCount == packer->fields.size()) std::abort();
    packer->fields[packer->fieldCount++] = *field;
    return 0;
  }

  static uint32_t finish(RecordPacker *table, const PackerClosing *) {
    auto *packer = static_cast<Packer *>(table);
    if (packer->host->fails(Asked::finish)) return kNoise;
    packer->finished = true;
    return 0;
  }

  static RecordPacker *makePacker(RecordPackerExt *companion, uint64_t) {
    FaultHost *host = static_cast<PackerExt *>(companion)->host;
    if (host->fails(Asked::packer)) return nullptr;
    Packer *packer = made(host, host->store_->packers);
    fillWithTraps<RecordPacker>(packer);
    packer->destroy = ended<Packer, RecordPacker>;
    packer->pack = pack;
    packer->defineField = defineField;
    packer->finish = finish;
    packer->fieldCount = 0;
    packer->finished = false;
    return packer;
  }

  // ---- tree container ---------------------------------------------------------

  static RecordNode *next(RecordNode *node) {
    RecordNode *right = nodeOf(node->right);
    return (node->right & LINK_THREAD) != 0 ? right : leftmost(right);
  }

  static RecordNode *first(TreeContainer *, Bucket *bucket) {
    return bucket->root == nullptr ? nullptr : leftmost(bucket->root);
  }

  template <class Call>
  static RecordNode *inTree(TreeContainer *table, Bucket *bucket, Call call) {
    auto *tree = static_cast<Container *>(table);
    if (!tree->alive) tree->host->complain("a destroyed tree was used");
    TreeHolder holder = {bucket->root, 0, 0, tree->lock};
    RecordNode *answer = call(*tree->callbacks, holder);
    bucket->root = holder.root;
    return answer;
  }

  static RecordNode *insert(TreeContainer *table, Bucket *bucket, RecordNode *node, BucketArray *) {
    return inTree(table, bucket, [node](const TreeCallbacks &call, TreeHolder &holder) {
      return (holder.lock != nullptr ? call.safe_adder : call.adder)(&holder, node);
    });
  }

  static RecordNode *find(TreeContainer *table, Bucket *bucket, RecordNode *probe) {
    return inTree(table, bucket, [probe](const TreeCallbacks &call, TreeHolder &holder) {
      return (holder.lock != nullptr ? call.safe_finder : call.finder)(&holder, probe);
    });
  }

  static RecordNode *remove(TreeContainer *table, Bucket *bucket, RecordNode *probe) {
    return inTree(table, bucket, [probe](const TreeCallbacks &call, TreeHolder &holder) {
      return (holder.lock != nullptr ? call.safe_killer : call.killer)(&holder, probe);
    });
  }

  static TreeContainer *makeTree(TreeExt *companion, const TreeOptions *options, uint64_t,
                                 uint64_t) {
    FaultHost *host = static_cast<ContainerExt *>(companion)->host;
    if (host->fails(Asked::tree)) return nullptr;
    Container *tree = made(host, host->store_->containers);
    fillWithTraps<TreeContainer>(tree);
    tree->destroy = ended<Container, TreeContainer>;
    tree->next = next;
    tree->insert = insert;
    tree->find = find;
    tree->remove = remove;
    tree->first = first;
    tree->head = nullptr;
    tree->lock = host->containerLocks_ ? newLock(host, false) : nullptr;
    tree->callbacks = options->callbacks;
    return tree;
  }

  // ---- order list: linked through the first two words of its nodes -------------

  static void append(OrderList *table, OrderNode *node) {
    auto *list = static_cast<List *>(table);
    if (!list->alive) list->host->complain("a destroyed order list was used");
    node->link0 = list->head == nullptr ? nullptr : list->last;
    node->link1 = nullptr;
    if (list->head == nullptr) {
      list->head = node;
    } else {
      list->last->link1 = node;
    }
    list->last = node;
  }

  // A list that fails has lost the node.
  static OrderNode *unlink(OrderList *table, const OrderNode *image) {
    auto *list = static_cast<List *>(table);
    if (!list->alive) list->host->complain("a destroyed order list was used");
    const bool fails = list->host->fails(Asked::unlink);
    auto *node = static_cast<OrderNode *>(list->head);
    while (node != nullptr && node->record != image->record) {
      node = static_cast<OrderNode *>(node->link1);
    }
    if (node == nullptr) return nullptr;
    auto *before = static_cast<OrderNode *>(node->link0);
    auto *after = static_cast<OrderNode *>(node->link1);
    if (before != nullptr) {
      before->link1 = after;
    } else {
      list->head = after;
    }
    if (after != nullptr) {
      after->link0 = before;
    } else {
      list->last = before;
    }
    return fails ? nullptr : node;
  }

  static OrderList *makeOrderList(OrderListExt *companion, TreeExt *) {
    FaultHost *host = static_cast<ListExt *>(companion)->host;
    if (host->fails(Asked::orderList)) return nullptr;
    List *list = made(host, host->store_->lists);
    fillWithTraps<OrderList>(list);
    list->destroy = ended<List, OrderList>;
    list->head = nullptr;
    list->lock = host->containerLocks_ ? newLock(host, false) : nullptr;
    list->last = nullptr;
    return list;
  }
};

FaultHost::FaultHost(bool containerLocks) : containerLocks_(containerLocks) {
  fillWithTraps<HostServices>(&services_);
  services_.createLock = Functions::createLock;
  services_.createPool = Functions::createPool;
  services_.loadExtension = Functions::loadExtension;
  services_.host = this;

  fillWithTraps<RecordPackerExt>(&packerExt_);
  packerExt_.release = Functions::released<PackerExt, RecordPackerExt>;
  packerExt_.makePacker = Functions::makePacker;
  fillWithTraps<TreeExt>(&containerExt_);
  containerExt_.release = Functions::released<ContainerExt, TreeExt>;
  containerExt_.makeTree = Functions::makeTree;
  fillWithTraps<OrderListExt>(&listExt_);
  listExt_.release = Functions::released<ListExt, OrderListExt>;
  listExt_.append = Functions::append;
  listExt_.unlink = Functions::unlink;
  listExt_.makeOrderList = Functions::makeOrderList;
  packerExt_.host = containerExt_.host = listExt_.host = this;
  packerExt_.loads = containerExt_.loads = listExt_.loads = 0;
}

FaultHost::~FaultHost() {
  Store &store = *store_;
  for (size_t i = 0; i < store.pools.used; ++i) {
    Pool *pool = store.pools.made[i].get();
    if (pool->alive) pool->destroy(pool);
  }
  store.pools.used = store.locks.used = 0;
  store.packers.used = store.containers.used = store.lists.used = 0;
  spareStore_ = std::move(store_);
}

std::unique_ptr<FaultHost::Store> FaultHost::spareStore_;

std::unique_ptr<FaultHost::Store> FaultHost::takeStore() {
  return spareStore_ != nullptr ? std::move(spareStore_) : std::make_unique<Store>();
}

void FaultHost::arm(Failing failing, uint64_t n) {
  plan_ = FaultPlan(failing, n);
  asked_ = {};
}

bool FaultHost::fails(Asked asked) {
  asked_.add(asked);
  return plan_.fails();
}

void FaultHost::destroyLocksSince(size_t first) {
  for (size_t i = first; i < locksMade(); ++i) {
    Lock *lock = store_->locks.made[i].get();
    if (lock->alive && lock->ofServices) lock->destroy(lock);
  }
}

}  // namespace fault_test
