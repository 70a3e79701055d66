// Faults of locks: a lock on a mutex, with something left out.

#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "faulty_host.h"

namespace faulty {

namespace {

class Lock {
 public:
  uint32_t acquire() {
    std::unique_lock guard(mutex_);
    const bool mine = depth_ > 0 && owner_ == std::this_thread::get_id();
    if (faultIs("excludes-nobody") || (faultIs("excludes-by-option-only") && !option1)) return 0;
    if (mine && !faultIs("does-not-nest")) {
      ++depth_;
      return 0;
    }
    if (faultIs("gives-up") && depth_ > 0) return 1;
    if (faultIs("falls-below-zero")) {
      turn_.wait(guard, [this] { return depth_ <= 0; });
      ++depth_;
      owner_ = std::this_thread::get_id();
      return 0;
    }
    turn_.wait(guard, [this] { return depth_ == 0; });
    owner_ = std::this_thread::get_id();
    depth_ = 1;
    return 0;
  }

  void release() {
    const std::lock_guard guard(mutex_);
    const bool mine = depth_ > 0 && owner_ == std::this_thread::get_id();
    if (faultIs("falls-below-zero")) {
      if (depth_ <= 0 || mine) --depth_;
    } else if (mine || (faultIs("lets-anybody-release") && depth_ > 0)) {
      depth_ = faultIs("releases-all-at-once") ? 0 : depth_ - 1;
    }
    if (depth_ > 0) return;
    if (!faultIs("wakes-nobody")) turn_.notify_all();
  }

  uint8_t option1 = 1;

 private:
  std::mutex mutex_;
  std::condition_variable turn_;
  std::thread::id owner_;
  int depth_ = 0;
};

Known<Lock> locks;
Lock onlyLock;

Lock &lockOf(HostLock *table) {
  return faultIs("has-one-lock-for-all") ? onlyLock : locks.of(table);
}

}  // namespace

void spoilLock(HostLock *lock, const LockOptions *options) {
  if (faultIs("has-locks-without-release")) lock->release = nullptr;
  if (faultIs("keeps-a-page-for-each-lock")) std::memset(std::malloc(4096), 1, 4096);
  for (const char *fault : {"excludes-nobody", "excludes-by-option-only", "does-not-nest",
                            "gives-up", "falls-below-zero", "lets-anybody-release",
                            "releases-all-at-once", "has-one-lock-for-all", "wakes-nobody"}) {
    if (!faultIs(fault)) continue;
    lockOf(lock).option1 = options->option1;
    lock->acquire = [](HostLock *table, uint32_t, uint32_t) { return lockOf(table).acquire(); };
    lock->release = [](HostLock *table) { lockOf(table).release(); };
  }
}

}  // namespace faulty
