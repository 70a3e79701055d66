// A sample in a process of its own.
#pragma once

#include "registry.h"

namespace bench {

struct ProcessSample {
  Sample measures;
  uint64_t peakResidentBytes;
};

// Runs this program anew for one sample. Throws std::runtime_error, with what the
// process did, when it fails.
ProcessSample sampleInProcess(const Entry &entry, const Job &job);

// What the program does when it was run so; `words` are those behind "sample".
int answerSample(const std::vector<std::string> &words);

}  // namespace bench
