/**
 * @file
 * Shared ownership for the handles of the C++ interface; not for use on its
 * own. A table keeps its extension alive, and an extension its host, so that
 * the three may be destroyed in any order.
 */
#ifndef MORVA_SHARED_HPP
#define MORVA_SHARED_HPP

#include <atomic>
#include <cstdint>
#include <utility>

namespace morva::detail {

/** How often a state is held; its base class. */
struct counted {
  std::atomic<std::uint32_t> holders{1};
};

/** One hold of a T, which derives from `counted`. The last one to go deletes it. */
template <class T>
class shared {
 public:
  shared() noexcept = default;
  /** Takes over the hold a new state is born with. */
  explicit shared(T *state) noexcept : state_(state) {}
  shared(const shared &other) noexcept : state_(other.state_) {
    if (state_ != nullptr) state_->holders.fetch_add(1, std::memory_order_relaxed);
  }
  shared(shared &&other) noexcept : state_(std::exchange(other.state_, nullptr)) {}
  shared &operator=(shared other) noexcept {
    std::swap(state_, other.state_);
    return *this;
  }
  ~shared() {
    if (state_ != nullptr && state_->holders.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      delete state_;
    }
  }

  T *get() const noexcept { return state_; }
  T *operator->() const noexcept { return state_; }
  explicit operator bool() const noexcept { return state_ != nullptr; }

 private:
  T *state_ = nullptr;
};

}  // namespace morva::detail

#endif
