// Host locks for the length of a scope.
#pragma once

#include "morva/host_lock.h"

namespace morva::core {

// Holds `lock`, if there is one, from construction to the end of the scope.
class ScopeLock {
 public:
  explicit ScopeLock(HostLock *lock, uint32_t mode = MORVA_LOCK_CHANGE) : lock_(lock) {
    if (lock_ != nullptr) lock_->acquire(lock_, mode, 1);
  }
  ~ScopeLock() {
    if (lock_ != nullptr) lock_->release(lock_);
  }
  ScopeLock(const ScopeLock &) = delete;
  ScopeLock &operator=(const ScopeLock &) = delete;

 private:
  HostLock *lock_;
};

}  // namespace morva::core
