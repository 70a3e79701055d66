// What a table under test looks like, how long its records are, and how to make it.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "morva/morva.h"

namespace morva_test {

enum class KeyMode { fixed, variable, defined };

struct TableShape {
  KeyMode keyMode = KeyMode::fixed;
  // Option bits, without those that stand for the key mode.
  uint32_t flags = 0;
  int32_t hashMethod = 2;
  int32_t hashExp = 0;
  // Fixed keys: the declared length. Defined keys: all fields together.
  uint32_t keyLength = 12;
  uint32_t dataLength = 16;
  int64_t memHint = 0;

  bool locked() const { return (flags & flagNoLock) == 0; }
  bool ordered() const { return (flags & flagOrdered) != 0; }
  bool sums() const { return (flags & flagSum) != 0; }
  bool multi() const { return (flags & flagMultiData) != 0; }
  bool rawKeys() const { return keyMode != KeyMode::defined; }

  // Fixed and defined keys: the record layout.
  uint32_t keyArea() const;
  uint32_t sumOffset() const;
  uint32_t dataOffset() const;
  uint32_t recordSize() const;
  // Of the record of a key of `keyLen` bytes, in every mode.
  uint32_t dataOffsetFor(size_t keyLen) const;
  uint32_t recordSizeFor(size_t keyLen) const;
  uint32_t slotSizeFor(size_t keyLen) const;
  // From a node to its duplicate links, and to its data.
  size_t linksInNode(size_t keyLen) const;
  size_t dataInNode(size_t keyLen) const;
  // The bytes that a probe record of MORVAFind2 needs.
  size_t probeSize(size_t keyLen) const;
  // The longest key that has room of its own.
  size_t longestKey() const;

  std::string text() const;
};

// For the names of tests.
std::string modeName(KeyMode mode);
std::string shapeName(const TableShape &shape);

// Every combination of key mode, lock, order, sums and several records per key
// that creation accepts.
std::vector<TableShape> everyShape();

// Makes the instance, its key defined; null when the library refuses.
MORVAInst *makeInstance(MORVAExt *ext, const TableShape &shape);

// `count` different keys of the shape, short and long, with bytes of both signs.
std::vector<std::string> makeKeys(const TableShape &shape, size_t count, std::mt19937_64 &random);

// The order of keys inside a bucket: by length, then by unsigned bytes. The
// packed images of defined keys have one length.
struct KeyOrder {
  bool operator()(const std::string &a, const std::string &b) const;
};

}  // namespace morva_test
