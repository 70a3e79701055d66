// What a process holds: descriptors, mappings, memory.
#pragma once

#include <malloc.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

#include "../host/loader_test.h"

namespace host_test {

struct Held {
  size_t descriptors = 0;
  size_t mappings = 0;
  size_t copies = 0;  // mappings of private copies of a library
  uint64_t mappedBytes = 0;
  uint64_t heapBytes = 0;  // what malloc has given out; 0 where a sanitizer has its own
};

inline uint64_t mappedBytes() {
  uint64_t bytes = 0;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    unsigned long long from = 0, to = 0;
    if (std::sscanf(line.c_str(), "%llx-%llx", &from, &to) == 2) bytes += to - from;
  }
  return bytes;
}

inline Held heldNow() {
  return {openDescriptors(), mappings(), mappings("memfd:"), mappedBytes(), mallinfo2().uordblks};
}

}  // namespace host_test
