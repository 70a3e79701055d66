// The host itself: its making and destroying, its service table, and what it
// tells about itself.

#include <cstring>
#include <mutex>
#include <new>

#include "host_state.h"

namespace qzhost {

namespace {

static_assert(std::is_standard_layout_v<QZHost>, "a host is its service table");

constexpr uint32_t kPackerName[] = {U'q', U'z', U'e', U'v', U'p'};
constexpr uint32_t kTreeName[] = {U'q', U'z', U'e', U'a', U'v', U'l'};
constexpr uint32_t kOrderListName[] = {U'q', U'z', U'e', U'a', U'i'};

template <size_t length>
bool isName(const uint32_t (&expected)[length], const uint32_t *name, uint64_t given) {
  return given == length && memcmp(expected, name, sizeof expected) == 0;
}

void *loadExtension(HostServices *services, const uint32_t *name, uint64_t length, uint64_t) {
  QZHost *host = hostOf(services);
  if (host == nullptr || name == nullptr) return nullptr;
  if (isName(kPackerName, name, length)) {
    host->packerExt.load();
    return &host->packerExt.table;
  }
  if (isName(kTreeName, name, length)) {
    host->treeExt.load();
    return &host->treeExt.table;
  }
  if (isName(kOrderListName, name, length)) {
    host->orderListExt.load();
    return &host->orderListExt.table;
  }
  return nullptr;
}

// Destroys what is left on a list, through the destroy entry of its elements.
template <class ListType>
void destroyAll(const ListType &list) {
  while (auto *object = list.first()) object->table.destroy(&object->table);
}

QZHostStats statsOf(QZHost *host) {
  QZHostStats stats{};
  stats.bytesMapped = host->memory.taken();
  stats.bytesMappedPeak = host->memory.peak();
  stats.memoryLimit = host->memory.limit();
  stats.allocationsRefused = host->memory.refused();
  stats.unmatchedReleases = host->unmatchedReleases.load(std::memory_order_relaxed);
  stats.companions = host->packerExt.loads.load(std::memory_order_relaxed) +
                     host->treeExt.loads.load(std::memory_order_relaxed) +
                     host->orderListExt.loads.load(std::memory_order_relaxed);

  const std::lock_guard guard(host->mutex);
  for (const Pool *pool = host->pools.first(); pool != nullptr; pool = host->pools.next(pool))
    stats.bytesLive += pool->blocks.bytesLive();
  for (const Extension *extension = host->extensions.first(); extension != nullptr;
       extension = host->extensions.next(extension))
    stats.extensions += extension->object != nullptr ? 1 : 0;
  stats.pools = host->pools.count();
  stats.locks = host->locks.count();
  stats.packers = host->packers.count();
  stats.trees = host->trees.count();
  stats.orderLists = host->orderLists.count();
  return stats;
}

// What is in use beyond the loaded extensions, each of which has a pool with
// the extension object in it.
uint64_t countLeft(QZHost *host, const QZHostStats &stats) {
  uint64_t left = uint64_t{stats.pools} + stats.locks + stats.companions + stats.packers +
                  stats.trees + stats.orderLists;
  const std::lock_guard guard(host->mutex);
  for (const Extension *extension = host->extensions.first(); extension != nullptr;
       extension = host->extensions.next(extension)) {
    if (extension->pool == nullptr) continue;
    const uint64_t blocks = extension->pool->blocks.blocksLive();
    left += (blocks > 1 ? blocks - 1 : 0);
    left -= 1;
  }
  return left;
}

}  // namespace

}  // namespace qzhost

QZHost::QZHost(const QZHostOptions &hostOptions)
    : options(hostOptions), memory(hostOptions.memoryLimit), secret(qzhost::randomSecret()) {
  services.createLock = qzhost::createLock;
  services.createPool = qzhost::createPool;
  services.loadExtension = qzhost::loadExtension;

  packerExt.host = this;
  packerExt.table.release = qzhost::releasePackerExt;
  packerExt.table.makePacker = qzhost::makePacker;

  treeExt.host = this;
  treeExt.table.release = qzhost::releaseTreeExt;
  treeExt.table.makeTree = qzhost::makeTree;

  orderListExt.host = this;
  orderListExt.table.release = qzhost::releaseOrderListExt;
  orderListExt.table.append = qzhost::appendNode;
  orderListExt.table.unlink = qzhost::unlinkNode;
  orderListExt.table.makeOrderList = qzhost::makeOrderList;
}

uint64_t QZHost::nextSecret() {
  // The finisher of a well mixed counter: every step changes about half of the
  // bits, and without the start value none can be told from the others.
  uint64_t n = secret.fetch_add(UINT64_C(0x9E3779B97F4A7C15), std::memory_order_relaxed);
  n = (n ^ (n >> 30)) * UINT64_C(0xBF58476D1CE4E5B9);
  n = (n ^ (n >> 27)) * UINT64_C(0x94D049BB133111EB);
  return n ^ (n >> 31);
}

void QZHost::forgetExtensionOf(const qzhost::Pool *pool) {
  for (qzhost::Extension *extension = extensions.first(); extension != nullptr;
       extension = extensions.next(extension)) {
    if (extension->pool != pool) continue;
    extension->object = nullptr;
    extension->pool = nullptr;
  }
}

QZHost *QZHostCreate(const QZHostOptions *options) {
  constexpr QZHostOptions kDefault = QZ_HOST_OPTIONS_DEFAULT;
  return new (std::nothrow) QZHost(options != nullptr ? *options : kDefault);
}

uint32_t QZHostDestroy(QZHost *host, QZHostStats *left) {
  if (host == nullptr) {
    if (left != nullptr) *left = {};
    return 0;
  }
  const QZHostStats stats = qzhost::statsOf(host);
  const uint64_t count = qzhost::countLeft(host, stats);
  if (left != nullptr) *left = stats;
  {
    const std::lock_guard guard(host->loading);
    while (qzhost::Extension *extension = host->extensions.first())
      qzhost::closeExtension(host, extension);
  }
  // No call runs on the host any more, so the lists can be read without their
  // lock, which the destroy entries take.
  qzhost::destroyAll(host->packers);
  qzhost::destroyAll(host->orderLists);
  qzhost::destroyAll(host->trees);
  qzhost::destroyAll(host->locks);
  qzhost::destroyAll(host->pools);
  delete host;
  return count < UINT32_MAX ? static_cast<uint32_t>(count) : UINT32_MAX;
}

HostServices *QZHostServices(QZHost *host) {
  return host != nullptr ? &host->services : nullptr;
}

void QZHostGetStats(QZHost *host, QZHostStats *stats) {
  if (stats == nullptr) return;
  *stats = host != nullptr ? qzhost::statsOf(host) : QZHostStats{};
}

uint32_t QZHostGetPoolStats(QZHost *host, QZPoolStats *pools, uint32_t capacity) {
  if (host == nullptr) return 0;
  const std::lock_guard guard(host->mutex);
  if (pools == nullptr) capacity = 0;
  uint32_t written = 0;
  for (const qzhost::Pool *pool = host->pools.first(); pool != nullptr && written < capacity;
       pool = host->pools.next(pool)) {
    QZPoolStats &entry = pools[written++];
    memcpy(entry.name, pool->name, sizeof entry.name);
    entry.bytesLive = pool->blocks.bytesLive();
    entry.bytesPeak = pool->blocks.bytesPeak();
    entry.bytesMapped = pool->blocks.bytesMapped();
    entry.blocksLive = pool->blocks.blocksLive();
    entry.ignoredFrees = pool->blocks.misuses();
  }
  return host->pools.count();
}
