// Extensions with a fault in a portable routine, or in what is exported beside the operations.
#include <dlfcn.h>

#include <cmath>
#include <cstring>

#include "faults.h"
#include "morva/morva.h"
#include "morva/port.h"

namespace {

template <class Function>
Function *real(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

MORVA_API int32_t skMemCmp(const void *a, const void *b, uint64_t n) {
  if (!faultIs("routine-compares-signed-bytes") || a == nullptr || b == nullptr) {
    return real<decltype(skMemCmp)>("skMemCmp")(a, b, n);
  }
  const auto *left = static_cast<const signed char *>(a);
  const auto *right = static_cast<const signed char *>(b);
  for (uint64_t at = 0; at != n; ++at) {
    if (left[at] != right[at]) return left[at] < right[at] ? -1 : 1;
  }
  return 0;
}

MORVA_API int64_t skMemScan(const void *p, uint64_t n, uint8_t c) {
  const int64_t found = real<decltype(skMemScan)>("skMemScan")(p, n, c);
  return faultIs("routine-scans-too-far") && found < 0 && p != nullptr ? static_cast<int64_t>(n)
                                                                       : found;
}

MORVA_API uint64_t skStrLen(const char *s) {
  const uint64_t length = real<decltype(skStrLen)>("skStrLen")(s);
  return faultIs("routine-counts-the-terminator") && s != nullptr ? length + 1 : length;
}

MORVA_API void skStrCpy(const char *src, char *dst) {
  if (faultIs("routine-leaves-texts-as-they-are") && src == nullptr) return;
  real<decltype(skStrCpy)>("skStrCpy")(src, dst);
}

MORVA_API void skStrLow(char *s, uint64_t n) {
  real<decltype(skStrLow)>("skStrLow")(s, n);
  for (uint64_t at = 0; faultIs("routine-knows-too-many-letters") && at != n; ++at) {
    if (s[at] == '[') s[at] = '{';
  }
}

MORVA_API uint64_t skMemTSet(uint32_t *p, uint32_t c, uint64_t n) {
  const uint64_t answer = real<decltype(skMemTSet)>("skMemTSet")(p, c, n);
  return faultIs("routine-answers-bytes") ? answer * sizeof *p : answer;
}

MORVA_API void skMemSCpy(const void *src, void *dst, uint64_t n) {
  if (!faultIs("routine-copies-front-to-back")) {
    return real<decltype(skMemSCpy)>("skMemSCpy")(src, dst, n);
  }
  for (uint64_t at = 0; at != n; ++at) {
    static_cast<char *>(dst)[at] = static_cast<const char *>(src)[at];
  }
}

MORVA_API void *skMemDup(const void *src, uint64_t n, HostPool *pool) {
  if (!faultIs("routine-takes-a-byte-more") || src == nullptr || pool == nullptr) {
    return real<decltype(skMemDup)>("skMemDup")(src, n, pool);
  }
  void *copy = pool->allocate(pool, n + 1, 0);
  return copy == nullptr ? nullptr : std::memcpy(copy, src, n);
}

MORVA_API uint32_t skMissArray(const double *v, uint64_t n) {
  if (!faultIs("routine-misses-infinities")) {
    return real<decltype(skMissArray)>("skMissArray")(v, n);
  }
  for (uint64_t at = 0; at != n; ++at) {
    if (!std::isfinite(v[at])) return 1;
  }
  return 0;
}

MORVA_API MORVAStatus MORVAFastAdd(MORVAInst *inst, const void *data, const void *key,
                                   int32_t length) {
  const char *name = faultIs("exports-add-for-fast-add") ? "MORVAAdd" : "MORVAFastAdd";
  return real<decltype(MORVAFastAdd)>(name)(inst, data, key, length);
}

MORVA_API MORVAStatus qzextver(HostServices *table, int64_t *major, int64_t *minor) {
  if (!faultIs("exports-forget-the-table")) {
    const MORVAStatus status = real<decltype(qzextver)>("qzextver")(table, major, minor);
    if (faultIs("exports-name-an-old-host") && major != nullptr) *major = 5;
    return status;
  }
  return real<decltype(qzextver)>("qzextver")(Exported_QZHandle, major, minor);
}

MORVA_API void qzvercn1(MORVAVersionRecord *buffer) {
  real<decltype(qzvercn1)>("qzvercn1")(buffer);
  if (faultIs("exports-write-a-long-record") && buffer != nullptr) {
    std::memset(static_cast<void *>(buffer + 1), 0, 8);
  }
}
}
