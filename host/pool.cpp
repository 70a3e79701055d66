#include "pool.h"

#include <cstdio>
#include <new>

#include "host_state.h"

namespace qzhost {

namespace {

Pool *poolOf(HostPool *table) {
  return reinterpret_cast<Pool *>(table);
}

// ---- pools that their users serialise ----

void *allocateUnlocked(HostPool *table, uint64_t size, uint32_t options) {
  Pool *pool = poolOf(table);
  return pool->blocks.allocate(size, pool->zeroFill || (options & MORVA_ZERO_FILL) != 0);
}

void freeUnlocked(HostPool *table, void *block) {
  poolOf(table)->blocks.free(block);
}

// ---- pools that serialise themselves ----

void *allocateLocked(HostPool *table, uint64_t size, uint32_t options) {
  Pool *pool = poolOf(table);
  const std::lock_guard guard(pool->mutex);
  return pool->blocks.allocate(size, (options & MORVA_ZERO_FILL) != 0);
}

void freeLocked(HostPool *table, void *block) {
  Pool *pool = poolOf(table);
  const std::lock_guard guard(pool->mutex);
  pool->blocks.free(block);
}

}  // namespace

Pool::Pool(QZHost *owner, const PoolOptions *options, void *contextWord, const char *poolName)
    : table{},
      host(owner),
      context(contextWord),
      zeroFill(options != nullptr && (options->options & MORVA_ZERO_FILL) != 0),
      blocks(&owner->memory, &owner->idle, owner->options.hugePages != 0, owner->nextSecret()) {
  const bool shared = options == nullptr || options->options == 0;
  table.destroy = destroyPool;
  table.allocate = shared ? allocateLocked : allocateUnlocked;
  table.free = shared ? freeLocked : freeUnlocked;
  snprintf(name, sizeof name, "%s", poolName != nullptr ? poolName : "");
}

HostPool *createPool(HostServices *services, const PoolOptions *options, void *context,
                     const char *name) {
  QZHost *host = hostOf(services);
  if (host == nullptr) return nullptr;
  auto *pool = new (std::nothrow) Pool(host, options, context, name);
  if (pool == nullptr) return nullptr;
  host->idle.poolMade();
  const std::lock_guard guard(host->mutex);
  host->pools.pushBack(pool);
  return &pool->table;
}

void destroyPool(HostPool *table) {
  if (table == nullptr) return;
  Pool *pool = poolOf(table);
  QZHost *host = pool->host;
  {
    const std::lock_guard guard(host->mutex);
    host->pools.remove(pool);
    host->forgetExtensionOf(pool);
  }
  delete pool;
  host->idle.poolGone();
}

}  // namespace qzhost
