// Memory that ends exactly where the process may not read, or begins exactly
// behind such a place, so that a routine that touches a byte too many dies.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <new>

namespace port_test {

class GuardedArea {
 public:
  explicit GuardedArea(size_t atLeast) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    size_ = (atLeast + page - 1) / page * page;
    mapped_ = size_ + 2 * page;
    void *p = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    map_ = static_cast<uint8_t *>(p);
    begin_ = map_ + page;
    if (mprotect(begin_, size_, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
  }
  ~GuardedArea() { munmap(map_, mapped_); }
  GuardedArea(const GuardedArea &) = delete;
  GuardedArea &operator=(const GuardedArea &) = delete;

  // The first byte; the one before it cannot be touched.
  uint8_t *begin() const { return begin_; }
  // `n` bytes, the one behind them cannot be touched.
  uint8_t *last(size_t n) const { return begin_ + size_ - n; }
  size_t size() const { return size_; }

 private:
  uint8_t *map_;
  uint8_t *begin_;
  size_t size_;
  size_t mapped_;
};

}  // namespace port_test
