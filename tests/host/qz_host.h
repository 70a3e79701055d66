// A host for the time of a test, and short ways to its services.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "morva/host.h"
#include "morva/host_services.h"

namespace host_test {

struct DestroyHost {
  void operator()(QZHost *host) const { QZHostDestroy(host, nullptr); }
};
using HostPtr = std::unique_ptr<QZHost, DestroyHost>;

inline HostPtr makeHost() {
  return HostPtr(QZHostCreate(nullptr));
}

inline HostPtr makeHost(const QZHostOptions &options) {
  return HostPtr(QZHostCreate(&options));
}

inline HostPtr makeHostWithLimit(uint64_t limit) {
  QZHostOptions options = QZ_HOST_OPTIONS_DEFAULT;
  options.memoryLimit = limit;
  return makeHost(options);
}

inline QZHostStats statsOf(const HostPtr &host) {
  QZHostStats stats{};
  QZHostGetStats(host.get(), &stats);
  return stats;
}

inline std::vector<QZPoolStats> poolStatsOf(const HostPtr &host) {
  std::vector<QZPoolStats> pools(QZHostGetPoolStats(host.get(), nullptr, 0));
  QZHostGetPoolStats(host.get(), pools.data(), static_cast<uint32_t>(pools.size()));
  return pools;
}

inline HostPool *makePool(QZHost *host, uint32_t optionWord = 0, const char *name = "blocks") {
  HostServices *services = QZHostServices(host);
  PoolOptions options{};
  options.options = optionWord;
  return services->createPool(services, &options, nullptr, name);
}

inline HostPool *makePool(const HostPtr &host, uint32_t optionWord = 0,
                          const char *name = "blocks") {
  return makePool(host.get(), optionWord, name);
}

inline HostLock *makeLock(const HostPtr &host) {
  HostServices *services = QZHostServices(host.get());
  const LockOptions options{0, 1, {}};
  return services->createLock(services, &options, nullptr, "lock");
}

}  // namespace host_test
