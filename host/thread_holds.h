// What a thread remembers about locks: its own number, and how often it holds
// which lock shared.
//
// The first holds lie in the thread's static storage; more of them at once move
// to the heap, which is freed when the thread ends.
#pragma once

#include <cstdint>

namespace qzhost {

class ThreadHolds {
 public:
  static ThreadHolds &mine() { return mine_; }

  // The thread's number, never 0 and never given again.
  uint64_t number() {
    if (number_ == 0) [[unlikely]]
      takeNumber();
    return number_;
  }

  bool any() const { return used_ != 0; }

  // How often the thread holds the lock of that number: the place of the count,
  // or null when it does not.
  uint32_t *find(uint64_t lock) {
    for (uint32_t i = 0; i < used_; ++i)
      if (entries()[i].lock == lock) return &entries()[i].count;
    return nullptr;
  }

  // Makes sure that add() finds room; false when there is no memory.
  bool reserve() { return used_ < capacity() || grow(); }
  // Enters a first hold, after reserve().
  void add(uint64_t lock) { entries()[used_++] = {lock, 1}; }
  // Forgets the entry that find() answered.
  void remove(uint32_t *count);

 private:
  struct Entry {
    uint64_t lock = 0;
    uint32_t count = 0;
  };
  struct AtThreadEnd;

  static constexpr uint32_t kInside = 6;

  Entry *entries() { return outside_ != nullptr ? outside_ : inside_; }
  uint32_t capacity() const { return outside_ != nullptr ? outsideCapacity_ : kInside; }
  bool grow();
  void takeNumber();

  // Small, so that it always fits in what is set aside for libraries loaded
  // late, and is reached without a call.
  static constinit thread_local ThreadHolds mine_ __attribute__((tls_model("initial-exec")));

  uint64_t number_ = 0;
  uint32_t used_ = 0;
  uint32_t outsideCapacity_ = 0;
  Entry *outside_ = nullptr;
  Entry inside_[kInside]{};
};

}  // namespace qzhost
