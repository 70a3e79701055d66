// How something fails: the n-th call, or that one and all later.
#pragma once

#include <cstdint>

namespace fault_test {

enum class Failing { once, fromThenOn };
inline constexpr Failing kFailings[] = {Failing::once, Failing::fromThenOn};

inline const char *nameOf(Failing failing) {
  return failing == Failing::once ? "once" : "from then on";
}

// Counts calls and tells which are to fail.
class FaultPlan {
 public:
  FaultPlan() = default;
  // `n` from 1; 0 fails none.
  FaultPlan(Failing failing, uint64_t n) : failing_(failing), n_(n) {}

  bool fails() {
    ++seen_;
    const bool fail = n_ != 0 && (failing_ == Failing::once ? seen_ == n_ : seen_ >= n_);
    if (fail) ++delivered_;
    return fail;
  }
  uint64_t delivered() const { return delivered_; }

 private:
  Failing failing_ = Failing::once;
  uint64_t n_ = 0;
  uint64_t seen_ = 0;
  uint64_t delivered_ = 0;
};

}  // namespace fault_test
