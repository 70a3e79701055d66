/**
 * @file
 * Holding the lock of a table.
 */
#ifndef MORVA_GUARD_HPP
#define MORVA_GUARD_HPP

#include <utility>

#include "morva/host_lock.h"

namespace morva {

/** Holds the lock of a table while it lives. Goes before the table does. */
class [[nodiscard]] guard {
 public:
  /** Holds nothing when `lock` is null. */
  explicit guard(HostLock *lock) noexcept : lock_(lock) {
    if (lock_ != nullptr) lock_->acquire(lock_, MORVA_LOCK_CHANGE, 1);
  }
  guard(guard &&other) noexcept : lock_(std::exchange(other.lock_, nullptr)) {}
  guard &operator=(guard &&) = delete;
  guard(const guard &) = delete;
  guard &operator=(const guard &) = delete;
  ~guard() {
    if (lock_ != nullptr) lock_->release(lock_);
  }

 private:
  HostLock *lock_;
};

}  // namespace morva

#endif
