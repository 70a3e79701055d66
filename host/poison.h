// What the address sanitizer is told about pool memory. Without it everything
// here is empty and costs nothing.
#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define QZHOST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QZHOST_ASAN 1
#endif
#endif
#ifndef QZHOST_ASAN
#define QZHOST_ASAN 0
#endif

#if QZHOST_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace qzhost {

inline constexpr bool kAsan = QZHOST_ASAN != 0;

#if QZHOST_ASAN
inline void poison(const void *p, size_t bytes) {
  __asan_poison_memory_region(p, bytes);
}
inline void unpoison(const void *p, size_t bytes) {
  __asan_unpoison_memory_region(p, bytes);
}
#else
inline void poison(const void *, size_t) {}
inline void unpoison(const void *, size_t) {}
#endif

}  // namespace qzhost
