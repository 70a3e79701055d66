// The operations on many keys, each beside the operation that it is for every key.
#pragma once

#include <iosfwd>
#include <vector>

#include "morva/many.h"
#include "world.h"

namespace fault_test {

// The keys of one call: of them all, some are new, some stored and some are there twice.
inline constexpr int kManyKeys[] = {kNew, 2, kAbsent, 0, kNew2, kNew, 5, kNew3};
inline constexpr size_t kManyCount = std::size(kManyKeys);

// What a call answered, key by key.
struct ManyAnswers {
  MORVAStatus statuses[kManyCount];
  uint64_t data[kManyCount];  // of a find: the record's first word, or 0
  size_t done = 0;

  bool operator==(const ManyAnswers &) const = default;
};

struct ManyOperation {
  const char *name;
  // All keys in one call, and key after key by the instance's operation.
  void (*together)(World &, ManyAnswers &);
  void (*oneByOne)(World &, ManyAnswers &);
};

void PrintTo(const ManyOperation &operation, std::ostream *out);

const std::vector<ManyOperation> &manyOperations();

}  // namespace fault_test
