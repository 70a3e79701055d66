#include "mapping.h"

#include <sys/mman.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include "poison.h"

namespace qzhost {

bool MemoryAccount::reserve(uint64_t bytes) {
  uint64_t reserved = reserved_.load(std::memory_order_relaxed);
  do {
    if (bytes > UINT64_MAX - reserved) return false;
    if (limit_ != 0 && bytes > limit_ - reserved) return false;
    // With the release in cancel(): what made room here is off `taken_` before
    // this is on it.
  } while (!reserved_.compare_exchange_weak(reserved, reserved + bytes, std::memory_order_acquire,
                                            std::memory_order_relaxed));
  return true;
}

void MemoryAccount::enter(uint64_t bytes) {
  const uint64_t now = taken_.fetch_add(bytes, std::memory_order_relaxed) + bytes;
  uint64_t peak = peak_.load(std::memory_order_relaxed);
  while (peak < now && !peak_.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
  }
}

uint64_t roundToPages(uint64_t bytes) {
  static const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  if (bytes > (UINT64_C(1) << 63) - page) return 0;
  return (bytes + page - 1) & ~(page - 1);
}

namespace {

char *mapAnywhere(size_t bytes) {
  void *start = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return start == MAP_FAILED ? nullptr : static_cast<char *>(start);
}

bool isAligned(const char *start) {
  return (reinterpret_cast<uintptr_t>(start) & (kSegmentBytes - 1)) == 0;
}

}  // namespace

void *mapAligned(size_t bytes) {
  // Whole segments tend to come aligned by themselves: the system puts them
  // side by side, and recent ones align what can take a huge page.
  if (bytes % kSegmentBytes == 0) {
    char *start = mapAnywhere(bytes);
    if (start == nullptr) return nullptr;
    if (isAligned(start)) {
      unpoison(start, bytes);
      return start;
    }
    munmap(start, bytes);
  }
  if (bytes > SIZE_MAX - kSegmentBytes) return nullptr;
  char *reserved = mapAnywhere(bytes + kSegmentBytes);
  if (reserved == nullptr) return nullptr;
  const size_t past = reinterpret_cast<uintptr_t>(reserved) & (kSegmentBytes - 1);
  const size_t head = past == 0 ? 0 : kSegmentBytes - past;
  if (head != 0) munmap(reserved, head);
  char *start = reserved + head;
  munmap(start + bytes, kSegmentBytes - head);
  unpoison(start, bytes);
  return start;
}

void unmap(void *start, size_t bytes) {
  unpoison(start, bytes);
  munmap(start, bytes);
}

bool discard(void *start, size_t bytes) {
  return madvise(start, bytes, MADV_DONTNEED) == 0;
}

// What the system has no word for is left as it is.
void adviseHugePages(void *start, size_t bytes) {
  madvise(start, bytes, MADV_HUGEPAGE);
}

void adviseSmallPages(void *start, size_t bytes) {
  madvise(start, bytes, MADV_NOHUGEPAGE);
}

uint64_t randomSecret() {
  uint64_t secret;
  if (getrandom(&secret, sizeof secret, GRND_NONBLOCK) == sizeof secret) return secret;
  // Early in a system's life there may be no randomness yet. The clock and the
  // place of the stack are a poorer secret, but enough to catch accidents.
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (static_cast<uint64_t>(now.tv_nsec) ^ reinterpret_cast<uintptr_t>(&now)) *
         UINT64_C(0x9E3779B97F4A7C15);
}

}  // namespace qzhost
