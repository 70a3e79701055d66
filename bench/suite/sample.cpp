#include "sample.h"

#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace bench {
namespace {

double read(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

}  // namespace

double threadNanoseconds() {
  return read(CLOCK_THREAD_CPUTIME_ID);
}

double wallNanoseconds() {
  return read(CLOCK_MONOTONIC);
}

uint64_t residentBytes() {
  std::ifstream file("/proc/self/statm");
  uint64_t size = 0;
  uint64_t resident = 0;
  if (!(file >> size >> resident)) throw std::runtime_error("cannot read /proc/self/statm");
  return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

uint64_t peakResidentBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<uint64_t>(usage.ru_maxrss) * 1024;
}

}  // namespace bench
