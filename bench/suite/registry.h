// All that can be measured: which contender does which family of workloads with
// which kind of keys.
#pragma once

#include <string>
#include <vector>

#include "sample.h"

namespace bench {

struct Entry {
  std::string family;
  std::string keys;
  std::string contender;
  Sample (*run)(const Job &job);
};

std::vector<Entry> &registry();

}  // namespace bench
