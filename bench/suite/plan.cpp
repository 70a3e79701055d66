#include "plan.h"

#include <fstream>

namespace bench {

std::vector<Step> planOf(Extent extent) {
  switch (extent) {
    case Extent::kSmoke:
      return {{"points", 300, 1},  {"one_bucket", 100, 1}, {"groups", 1000, 1},
              {"records", 400, 1}, {"latency", 300, 1},    {"latency_told", 300, 1},
              {"threads", 400, 1}};
    case Extent::kQuick:
      return {{"points", 1000, 1},     {"points", 100'000, 1}, {"points", 300'000, 1},
              {"one_bucket", 1000, 1}, {"groups", 300'000, 1}, {"records", 100'000, 1},
              {"latency", 300'000, 1}, {"threads", 100'000, 1}};
    case Extent::kFull:
      break;
  }
  return {
      {"points", 1000, 11},       {"points", 100'000, 11},         {"points", 1'000'000, 11},
      {"points", 10'000'000, 3},  {"one_bucket", 1000, 11},        {"one_bucket", 4000, 5},
      {"groups", 1'000'000, 11},  {"groups", 10'000'000, 3},       {"records", 100'000, 11},
      {"records", 1'000'000, 7},  {"latency", 1'000'000, 7},       {"latency_told", 1'000'000, 7},
      {"latency", 10'000'000, 3}, {"latency_told", 10'000'000, 3}, {"threads", 100'000, 11},
      {"threads", 1'000'000, 7}};
}

bool memorySuffices(size_t n) {
  // The text keys, their order, the table, and its growing.
  constexpr uint64_t kBytesPerRecord = 400;
  std::ifstream file("/proc/meminfo");
  for (std::string word; file >> word;) {
    uint64_t kilobytes = 0;
    if (word == "MemAvailable:" && file >> kilobytes) return n * kBytesPerRecord / 1024 < kilobytes;
  }
  return true;
}

}  // namespace bench
