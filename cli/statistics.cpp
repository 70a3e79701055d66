#include "statistics.h"

#include <sys/resource.h>

#include <cinttypes>
#include <cstdio>

#include "text.h"

namespace morva::cli {

namespace {

constexpr const char *kNumberLine = "%-15s %" PRIu64 "\n";

void printSize(const char *label, uint64_t bytes) {
  std::fprintf(stderr, "%-15s %" PRIu64 " (%s)\n", label, bytes, byteSize(bytes).c_str());
}

}  // namespace

void Statistics::print(uint64_t rows, const Library &library) const {
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
  for (const Line &line : lines_) std::fprintf(stderr, kNumberLine, line.label, line.number);
  std::fprintf(stderr, "%-15s %.3f\n", "seconds", elapsed.count());
  if (elapsed.count() > 0) {
    const double speed = static_cast<double>(rows) / elapsed.count();
    std::fprintf(stderr, kNumberLine, "rows/s", static_cast<uint64_t>(speed));
  }
  const QZHostStats held = library.stats();
  printSize("pools live", held.bytesLive);
  printSize("pools mapped", held.bytesMapped);
  struct rusage usage {};
  if (::getrusage(RUSAGE_SELF, &usage) == 0) {
    printSize("peak resident", static_cast<uint64_t>(usage.ru_maxrss) * 1024);
  }
}

}  // namespace morva::cli
