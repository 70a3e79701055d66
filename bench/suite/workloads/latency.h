// The time of single insertions while a table grows from nothing: the usual one,
// and the worst. The clock's own time is in every figure. "latency" is of tables
// that were not told how many records would come, "latency_told" of tables that
// were.
#pragma once

#include <algorithm>

#include "../contender.h"

namespace bench {

template <bool Told>
struct Latency {
  static constexpr char name[] = "latency";
  static constexpr char nameWhenTold[] = "latency_told";
  static constexpr unsigned family = kLatency;

  template <class Contender, class Keys>
  static Sample run(const Job &job) {
    const Keys keys(shuffled(0, job.n, job.sample));
    // Filled, so that its pages are there.
    std::vector<float> times(job.n, 1);
    Checksum inserted;
    typename Contender::template Map<typename Keys::Key> map(Told ? job.n : 0);
    for (size_t i = 0; i < job.n; ++i) {
      const double start = wallNanoseconds();
      const bool stored = map.insert(keys[i], i);
      times[i] = static_cast<float>(wallNanoseconds() - start);
      inserted.add(stored);
    }
    std::sort(times.begin(), times.end());
    const auto at = [&](double share) {
      return static_cast<double>(
          times[std::min(job.n - 1, static_cast<size_t>(share * static_cast<double>(job.n)))]);
    };
    const std::string prefix = Told ? nameWhenTold : name;
    return {{prefix + "_p50", "ns", at(0.5), inserted.value()},
            {prefix + "_p99", "ns", at(0.99), inserted.value()},
            {prefix + "_p99.9", "ns", at(0.999), inserted.value()},
            {prefix + "_worst", "ns", static_cast<double>(times.back()), inserted.value()}};
  }
};

}  // namespace bench
