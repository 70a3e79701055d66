// Faults of the service table.

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "faulty_host.h"

namespace faulty {

namespace {

HostPool *createPool(HostServices *services, const PoolOptions *options, void *context,
                     const char *name) {
  if (faultIs("makes-pools-in-one-thread")) {
    static std::atomic<int> inside{0};
    const bool alone = inside.fetch_add(1) == 0;
    for (int i = 0; i < 20; ++i) sched_yield();
    inside.fetch_sub(1);
    if (!alone) return nullptr;
  }
  if (faultIs("takes-short-names-only") && std::strlen(name) > 31) return nullptr;
  HostPool *pool = originals.services.createPool(services, options, context, name);
  spoilPool(pool, options, name);
  return pool;
}

HostLock *createLock(HostServices *services, const LockOptions *options, void *context,
                     const char *name) {
  if (faultIs("wants-names-of-locks") && std::strlen(name) == 0) return nullptr;
  if (faultIs("makes-few-locks")) {
    static std::atomic<int> made{0};
    if (++made > 500) return nullptr;
  }
  HostLock *lock = originals.services.createLock(services, options, context, name);
  spoilLock(lock, options);
  return lock;
}

bool startsWith(const uint32_t *name, uint64_t length, const char32_t *expected) {
  return std::equal(name, name + length, expected);
}

void *loadExtension(HostServices *services, const uint32_t *name, uint64_t length,
                    uint64_t reserved) {
  std::u32string asked(name, name + length);
  if (faultIs("compares-names-without-length")) {
    for (const char32_t *known : {U"qzevp", U"qzeavl", U"qzeai"}) {
      if (length > 0 && startsWith(name, std::min<uint64_t>(length, 5), known)) asked = known;
    }
  }
  if (faultIs("reads-names-to-their-terminator")) {
    asked.clear();
    for (const uint32_t *at = name; *at != 0; ++at) asked += static_cast<char32_t>(*at);
  }
  if (faultIs("compares-lowest-bytes")) {
    for (char32_t &character : asked) character &= 0xFF;
  }
  if (faultIs("answers-to-every-name") && asked.size() == 5 && asked != U"qzevp") asked = U"qzeai";
  if (faultIs("has-no-order-lists") && asked == U"qzeai") return nullptr;
  std::vector<uint32_t> characters(asked.begin(), asked.end());
  void *companion =
      originals.services.loadExtension(services, characters.data(), characters.size(), reserved);
  if (companion == nullptr) return nullptr;
  if (asked == U"qzevp") spoilPackers(static_cast<RecordPackerExt *>(companion));
  if (asked == U"qzeavl") spoilTrees(static_cast<TreeExt *>(companion));
  if (asked == U"qzeai") spoilLists(static_cast<OrderListExt *>(companion));
  return companion;
}

}  // namespace

void spoilServices(HostServices *services) {
  services->createPool = createPool;
  services->createLock = createLock;
  services->loadExtension = loadExtension;
}

}  // namespace faulty
