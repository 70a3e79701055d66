// All keys in one bucket: what a bad hash, or an attacker, makes of a table.
#pragma once

#include "../contender.h"

namespace bench {

struct OneBucket {
  static constexpr char name[] = "one_bucket";
  static constexpr unsigned family = kOneBucket;

  template <class Contender, class Keys>
  static Sample run(const Job &job) {
    const Keys keys(shuffled(0, job.n, 2 * job.sample));
    const Keys inAnotherOrder(shuffled(0, job.n, 2 * job.sample + 1));
    Stopwatch inserting;
    Stopwatch finding;
    Checksum inserted;
    Checksum found;
    typename Contender::template Colliding<typename Keys::Key> map(job.n);
    inserting.time([&] {
      for (size_t i = 0; i < job.n; ++i) inserted.add(map.insert(keys[i], i));
    });
    finding.time([&] {
      for (size_t i = 0; i < job.n; ++i) {
        uint64_t word = 0;
        map.lookup(inAnotherOrder[i], word);
        found.add(word);
      }
    });
    const auto count = static_cast<double>(job.n);
    return {{"one_bucket_insert", "ns", inserting.total() / count, inserted.value()},
            {"one_bucket_find", "ns", finding.total() / count, found.value()}};
  }
};

}  // namespace bench
