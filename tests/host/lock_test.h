// A lock of a host, and threads to compete for it.
#pragma once

#include <gtest/gtest.h>

#include "qz_host.h"
#include "worker.h"

namespace host_test {

inline constexpr uint32_t kRead = MORVA_LOCK_READ, kChange = MORVA_LOCK_CHANGE;

inline uint32_t acquire(HostLock *lock, uint32_t mode) {
  return lock->acquire(lock, mode, 1);
}
inline uint32_t tryAcquire(HostLock *lock, uint32_t mode) {
  return lock->acquire(lock, mode, 0);
}
inline void release(HostLock *lock) {
  lock->release(lock);
}

class LockTest : public ::testing::Test {
 protected:
  // Whether `thread` could have the lock at once; leaves it as it is.
  static bool isToBeHad(Worker &thread, HostLock *lock, uint32_t mode) {
    return thread.run([=] {
      if (tryAcquire(lock, mode) != 0) return false;
      release(lock);
      return true;
    });
  }
  bool isFree(HostLock *which) { return isToBeHad(observer, which, kChange); }
  bool isFree() { return isFree(lock); }
  bool isShared() { return !isFree() && isToBeHad(observer, lock, kRead); }
  bool isExclusive() { return !isFree() && !isToBeHad(observer, lock, kRead); }
  uint64_t unmatched() { return statsOf(host).unmatchedReleases; }

  HostPtr host = makeHost();
  HostLock *lock = makeLock(host);
  Worker observer, one, two;
};

}  // namespace host_test
