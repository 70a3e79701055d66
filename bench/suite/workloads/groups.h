// Group-by: a sum for each of up to 100 000 keys, of rows whose keys follow Zipf's law.
// All are told how many keys there may be.
#pragma once

#include <algorithm>

#include "../contender.h"
#include "../many.h"

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

    std::vector<uint64_t> amounts(job.n);
    for (size_t i = 0; i < job.n; ++i) amounts[i] = i % 1000;

    using Map = typename Contender::template Map<typename Keys::Key>;
    Stopwatch watch;
    Map map(different);
    watch.time([&] {
      if constexpr (TakesMany<Map>) {
        inPortions<Map>(rows, 0, job.n, [&](auto keys, size_t place) {
          map.accumulateMany(keys, std::span(amounts).subspan(place, keys.size()));
        });
      } else {
        for (size_t i = 0; i < job.n; ++i) map.accumulate(rows[i], amounts[i]);
      }
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
