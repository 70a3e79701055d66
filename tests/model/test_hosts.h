// The hosts that a table can be tested on, behind one face.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "morva/morva.h"

namespace morva_test {

class HostUnderTest {
 public:
  virtual ~HostUnderTest() = default;

  // The library's extension object on this host.
  virtual MORVAExt *ext() = 0;
  // The insertion order that the host's order list holds, first to last.
  virtual std::vector<RecordNode *> order(const MORVAInst *inst) = 0;
  // Blocks in use of all pools of that name.
  virtual uint64_t blocksLive(const std::string &pool) = 0;
  // Releases of locks that nobody held.
  virtual uint64_t unmatchedReleases() = 0;
  // What the host has against the library between two operations; empty when all is well.
  virtual std::string faults() = 0;
  // Releases the extension, every instance being destroyed; says what was left behind.
  virtual std::string close() = 0;
};

enum class HostKind {
  recording,
  recordingWithTreeLocks,
  // The linked library.
  embedded,
  embeddedWithTreeLocks,
  // A copy of its own, loaded from the library's file.
  embeddedWithLoadedLibrary,
};

void PrintTo(HostKind kind, std::ostream *out);

std::unique_ptr<HostUnderTest> makeHost(HostKind kind);

}  // namespace morva_test
