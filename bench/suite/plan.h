// Which samples a run takes.
#pragma once

#include <string>
#include <vector>

#include "registry.h"

namespace bench {

struct Step {
  std::string family;
  size_t n;
  unsigned samples;
};

enum class Extent { kSmoke, kQuick, kFull };

std::vector<Step> planOf(Extent extent);

// Whether the memory that is free now is enough for a sample of `n` records, all of it.
bool memorySuffices(size_t n);

}  // namespace bench
