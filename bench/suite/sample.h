// One sample: what one fresh process measured.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// What a sample is to do. Orders are shuffled anew for every sample number, and
// alike for all contenders.
struct Job {
  size_t n;
  unsigned sample;
};

// One figure. Contenders that do the same work get the same checksum.
struct Measure {
  std::string workload;
  std::string unit;
  double value;
  uint64_t checksum;
};

using Sample = std::vector<Measure>;

// Sums what lookups found, in any order.
class Checksum {
 public:
  void add(uint64_t value) { sum_ += value; }
  uint64_t value() const { return sum_; }

 private:
  uint64_t sum_ = 0;
};

// As Checksum, but the order counts.
class OrderedChecksum {
 public:
  void add(uint64_t value) { sum_ = ((sum_ << 7) | (sum_ >> 57)) + value; }
  uint64_t value() const { return sum_; }

 private:
  uint64_t sum_ = 0;
};

// Processor time of the calling thread, so that other work of the machine counts as
// little as it can.
double threadNanoseconds();

// Time that has passed.
double wallNanoseconds();

// Adds up the time of its calls.
class Stopwatch {
 public:
  template <class Work>
  void time(Work work) {
    const double start = threadNanoseconds();
    work();
    total_ += threadNanoseconds() - start;
  }
  void add(double nanoseconds) { total_ += nanoseconds; }
  double total() const { return total_; }

 private:
  double total_ = 0;
};

// Bytes of memory this process has now, and the most it has had.
uint64_t residentBytes();
uint64_t peakResidentBytes();

}  // namespace bench
