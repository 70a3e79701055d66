// The one place that reads the host's service table.
//
// A table that was never stored answers like a host that has nothing: null.
#pragma once

#include "morva/ext.h"

namespace morva::core {

inline HostPool *createPool(uint32_t options, void *context, const char *name) {
  HostServices *host = Exported_QZHandle;
  if (host == nullptr) return nullptr;
  const PoolOptions block{.options = options, .reserved = {}};
  return host->createPool(host, &block, context, name);
}

inline HostLock *createLock(uint8_t option1, void *context, const char *name) {
  HostServices *host = Exported_QZHandle;
  if (host == nullptr) return nullptr;
  const LockOptions block{.option0 = 0, .option1 = option1, .reserved = {}};
  return host->createLock(host, &block, context, name);
}

// Loads a companion by its name, a literal such as U"qzeavl", as the type that
// the name stands for.
template <class Companion, size_t n>
Companion *loadCompanion(const char32_t (&name)[n]) {
  HostServices *host = Exported_QZHandle;
  if (host == nullptr) return nullptr;
  static_assert(sizeof(char32_t) == sizeof(uint32_t));
  uint32_t characters[n];
  for (size_t i = 0; i < n; ++i) characters[i] = name[i];
  return static_cast<Companion *>(host->loadExtension(host, characters, n - 1, 0));
}

}  // namespace morva::core
