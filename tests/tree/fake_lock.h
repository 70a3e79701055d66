// A tree lock that locks nothing: it writes down who called it, and lets a test
// look and act at the very moment of a call.
#pragma once

#include <functional>
#include <string>

#include "morva/host_lock.h"

namespace tree_test {

struct FakeLock : HostLock {
  FakeLock() : HostLock{} {
    HostLock::acquire = [](HostLock *lock, uint32_t mode, uint32_t wait) -> uint32_t {
      auto *self = static_cast<FakeLock *>(lock);
      self->story += "acquire(" + std::to_string(mode) + "," + std::to_string(wait) + ") ";
      if (self->onAcquire) self->onAcquire();
      return 0;
    };
    HostLock::release = [](HostLock *lock) {
      auto *self = static_cast<FakeLock *>(lock);
      self->story += "release ";
      if (self->onRelease) self->onRelease();
    };
  }
  FakeLock(const FakeLock &) = delete;
  FakeLock &operator=(const FakeLock &) = delete;

  std::string story;
  std::function<void()> onAcquire, onRelease;
};

}  // namespace tree_test
