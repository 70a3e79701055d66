// Copies, fills and comparisons of bytes and 32-bit units.
#include <cstring>

#include "morva/port.h"

namespace {

// Above this the block copy pays for its call.
constexpr uint64_t kBlockCopyFrom = 96;

bool furtherApartThan(const unsigned char *a, const unsigned char *b, uint64_t n) {
  const auto x = reinterpret_cast<uintptr_t>(a);
  const auto y = reinterpret_cast<uintptr_t>(b);
  return (x > y ? x - y : y - x) > n;
}

// Strictly one byte after the other: a destination inside the source sees the
// bytes already written, as the callers of skMemCpy are promised.
void copyForward(const unsigned char *src, unsigned char *dst, uint64_t n) {
  for (; n >= 2; n -= 2, src += 2, dst += 2) {
    dst[0] = src[0];
    dst[1] = src[1];
  }
  if (n != 0) *dst = *src;
}

}  // namespace

extern "C" {

MORVAStatus skUnsup(void) {
  return MORVA_UNSUPPORTED;
}

void skMemSet(void *p, uint8_t c, uint64_t n) {
  if (p != nullptr) std::memset(p, c, n);
}

uint64_t skMemTSet(uint32_t *p, uint32_t c, uint64_t n) {
  if (p != nullptr) {
    for (uint64_t i = 0; i < n; ++i) p[i] = c;
  }
  return n;
}

int32_t skMemCmp(const void *a, const void *b, uint64_t n) {
  if (n == 0 || a == b) return 0;
  if (a == nullptr) return -1;
  if (b == nullptr) return 1;
  const int difference = std::memcmp(a, b, n);
  return difference == 0 ? 0 : difference < 0 ? -1 : 1;
}

int32_t skWMemCmp(const uint32_t *a, const uint32_t *b, uint64_t n) {
  if (n == 0 || a == b) return 0;
  if (a == nullptr) return -1;
  if (b == nullptr) return 1;
  for (uint64_t i = 0; i < n; ++i) {
    // The sign of the wrapped difference, not unsigned order.
    if (a[i] != b[i]) return static_cast<int32_t>(a[i] - b[i]) < 0 ? -1 : 1;
  }
  return 0;
}

void *skMemCpy(const void *src, void *dst, uint64_t n) {
  if (src == nullptr || dst == nullptr) return dst;
  const auto *from = static_cast<const unsigned char *>(src);
  auto *to = static_cast<unsigned char *>(dst);
  if (n > kBlockCopyFrom && furtherApartThan(from, to, n)) {
    std::memcpy(to, from, n);
  } else {
    copyForward(from, to, n);
  }
  return dst;
}

void skMemSCpy(const void *src, void *dst, uint64_t n) {
  if (src != nullptr && dst != nullptr) std::memmove(dst, src, n);
}

void *skMemDup(const void *src, uint64_t n, HostPool *pool) {
  if (src == nullptr || pool == nullptr) return nullptr;
  void *copy = pool->allocate(pool, n, 0);
  return copy == nullptr ? nullptr : skMemCpy(src, copy, n);
}

}  // extern "C"
