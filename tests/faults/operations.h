// What the sweep tries: every operation on an instance, on each of its ways.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <vector>

#include "world.h"

namespace fault_test {

inline constexpr size_t kByName = 0;  // not through the instance

enum class Unlinks { nothing, one, all };

struct Operation {
  const char *name;
  // The exported functions it is a way of, separated by blanks.
  const char *functions;
  // Where in MORVAInst it is called from.
  size_t slot;
  // On which accepted option bits it is tried.
  bool (*applies)(uint32_t flags);
  bool needsContent;

  // What it asks the host for, and so where it can fail: this, and `flags` and the stock, decide
  // how many failures each cell must see.
  bool takesNode;
  bool appends;
  Unlinks unlinks;

  // Without a node it releases the lock that it has not taken; and where it succeeds, too.
  bool releasesOnFailure;
  bool releasesAlways;

  uint32_t result;  // when nothing fails
  uint32_t (*call)(World &);
  // What it does to the content where no memory fails; null when it does nothing.
  void (*effect)(World &) = nullptr;
  // Before the host begins to fail.
  void (*prepare)(World &) = nullptr;
};

// What the operation asks for, in order, where nothing fails.
Sequence expectedSequence(const Operation &operation, uint32_t flags, Stock stock);

void PrintTo(const Operation &operation, std::ostream *out);

const std::vector<Operation> &sweptOperations();

}  // namespace fault_test
