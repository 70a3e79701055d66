// Two threads in one table, each with keys of its own. The time is what passes,
// divided by the operations of both.
#pragma once

#include <array>
#include <mutex>
#include <thread>

#include "../contender.h"

namespace bench {

// A map under a std::mutex.
template <class Map>
class WithMutex {
 public:
  explicit WithMutex(size_t told) : map_(told) {}

  template <class Key>
  bool insert(Key key, uint64_t word) {
    const std::lock_guard hold(mutex_);
    return map_.insert(key, word);
  }
  template <class Key>
  bool lookup(Key key, uint64_t &word) const {
    const std::lock_guard hold(mutex_);
    return map_.lookup(key, word);
  }
  template <class Key>
  bool remove(Key key) {
    const std::lock_guard hold(mutex_);
    return map_.remove(key);
  }

 private:
  mutable std::mutex mutex_;
  Map map_;
};

struct TwoThreads {
  static constexpr char name[] = "threads";
  static constexpr unsigned family = kThreads;
  static constexpr size_t kThreadCount = 2;

  template <class Contender, class Keys>
  static Sample run(const Job &job) {
    using Shared = typename Contender::template Shared<typename Keys::Key>;
    const size_t each = job.n / kThreadCount;
    Shared map(job.n);
    std::array<Worker<Shared, Keys>, kThreadCount> workers = {
        Worker<Shared, Keys>(map, 0, each, job.sample),
        Worker<Shared, Keys>(map, 2 * each, each, job.sample)};
    const double start = wallNanoseconds();
    {
      std::jthread other([&] { workers[1].work(); });
      workers[0].work();
    }
    const double passed = wallNanoseconds() - start;
    Checksum all;
    for (const auto &worker : workers) all.add(worker.checksum());
    const auto operations = static_cast<double>(kThreadCount * kRounds * each);
    return {{"two_threads", "ns", passed / operations, all.value()}};
  }

 private:
  static constexpr size_t kRounds = 4;

  // Three lookups of a key that stays for every one that comes or goes.
  template <class Shared, class Keys>
  class Worker {
   public:
    Worker(Shared &map, size_t first, size_t count, unsigned seed)
        : map_(map),
          staying_(shuffled(first, count, seed)),
          moving_(shuffled(first + count, count, seed)) {
      for (size_t i = 0; i < count; ++i) map_.insert(staying_[i], i);
    }

    void work() {
      Checksum sum;
      for (size_t round = 0; round < kRounds; ++round) {
        for (size_t i = 0; i < staying_.size(); ++i) {
          if (i % 4 == 3) {
            sum.add(round % 2 == 0 ? map_.insert(moving_[i], i) : map_.remove(moving_[i]));
          } else {
            uint64_t word = 0;
            map_.lookup(staying_[i], word);
            sum.add(word);
          }
        }
      }
      checksum_ = sum.value();
    }

    uint64_t checksum() const { return checksum_; }

   private:
    Shared &map_;
    const Keys staying_;
    const Keys moving_;
    uint64_t checksum_ = 0;
  };
};

}  // namespace bench
