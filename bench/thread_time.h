// Time that a thread has worked, and the middle of several samples of it.
#pragma once

#include <time.h>

#include <algorithm>
#include <vector>

namespace bench {

// Of this thread, so that the machine's other work counts as little as it can.
inline double nanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

inline double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace bench
