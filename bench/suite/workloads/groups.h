// Group-by: a sum for each of up to 100 000 keys, of rows whose keys follow Zipf's law.
// Nobody knows beforehand how many keys there will be.
#pragma once

#include <algorithm>

#include "../contender.h"

namespace bench {

struct Groups {
  static constexpr char name[] = "groups";
  static constexpr unsigned family = kGroups;
  static constexpr size_t kMostKeys = 100'000;

  template <class Contender, class Keys>
  static Sample run(const Job &job) {
    const size_t different = std::min(kMostKeys, job.n);
    const Keys rows(zipfRows(job.n, different, job.sample));
    Indices all(different);
    for (size_t i = 0; i < different; ++i) all[i] = i;
    const Keys keys(all);

    Stopwatch watch;
    typename Contender::template Map<typename Keys::Key> map(0);
    watch.time([&] {
      for (size_t i = 0; i < job.n; ++i) map.accumulate(rows[i], i % 1000);
    });
    Checksum sums;
    for (size_t i = 0; i < different; ++i) {
      uint64_t total = 0;
      map.lookup(keys[i], total);
      sums.add((i + 1) * total);
    }
    return {{"group_sum", "ns", watch.total() / static_cast<double>(job.n), sums.value()}};
  }
};

}  // namespace bench
