// What the sweep tries: every operation on an instance, on each of its ways.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "world.h"

namespace morva_test {

struct SweptOperation {
  const char *name;
  uint32_t needs;  // option and key mode bits of the instances it is tried on
  uint32_t excludes;
  bool canFail;            // whether it asks the host for anything that can fail
  bool releasesOnFailure;  // gives the lock back on failure without having taken it
  uint32_t result;         // when nothing fails
  std::function<uint32_t(World &)> call;
  // What a success does to the content; empty when it does nothing.
  std::function<void(World &)> effect;
  // The key it adds, if it does; found but uncounted when its order node fails. Else empty.
  const char *added;
};

void PrintTo(const SweptOperation &operation, std::ostream *out);

const std::vector<SweptOperation> &sweptOperations();

}  // namespace morva_test
