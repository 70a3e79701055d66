// The companion "qzevp": typed key fields, packed end to end.
//
// Defining compiles the fields into steps, each of which writes one stretch of
// the key from one stretch of the row; plain bytes that lie side by side in
// both become one step. Packing runs the steps and nothing else.
//
// The rules of each type are in morva/host.h.
//
// Thread-safety: packing changes nothing, so any number of threads may pack
// once the definition is finished. Defining is one thread's.
#pragma once

#include <cstdint>
#include <type_traits>

#include "intrusive_list.h"
#include "morva/record_packer.h"

struct QZHost;

namespace qzhost {

struct PackStep {
  enum class Kind : uint8_t {
    kBytes,       // as they are
    kBytes4,      // four or
    kBytes8,      //   eight of them
    kFloat,       // 64-bit float; -0.0 as 0.0
    kFixedText,   // trailing blanks and NULs become blanks
    kTerminated,  // NULs from the first NUL on
  };

  Kind kind;
  // Letters become capitals.
  bool fold;
  uint32_t length;
  uint64_t rowOffset;
  uint64_t keyOffset;
};

struct Packer {
  explicit Packer(QZHost *host);
  ~Packer();

  RecordPacker table;
  PackStep *steps = nullptr;
  uint32_t stepCount = 0;
  uint32_t stepCapacity = 0;
  // The length of the fields defined so far.
  uint64_t keyLength = 0;
  bool finished = false;
  QZHost *host;
  Link<Packer> link;
};
static_assert(std::is_standard_layout_v<Packer>, "a packer is its table");

// The slots of the companion.
void releasePackerExt(RecordPackerExt *companion);
RecordPacker *makePacker(RecordPackerExt *companion, uint64_t);

}  // namespace qzhost
