// Keys of typed fields, as a host under check says that its packer takes them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host_subject.h"

namespace morva::cli::check {

// The kinds of keys of the host. Throws NotApplicable when there are none.
std::vector<const MORVAHostKey *> keyKinds(const Host &host);

// Room for one key of a kind, aligned as keys are promised to be, full of noise.
class KeyRoom {
 public:
  KeyRoom(const MORVAHostKey &kind, uint64_t noise);
  // What an operation is given as the key of that number.
  const void *make(uint64_t number);
  std::string contents() const;

 private:
  const MORVAHostKey &kind_;
  std::unique_ptr<unsigned char[]> bytes_;
  unsigned char *start_;
};

// As the library describes a field to the packer.
PackerField packerField(const MORVAKeyDesc &desc, uint64_t offset);
// As it describes the end of a definition.
PackerClosing packerClosing(uint64_t keyLength);

// Bytes of the first `count` fields.
uint64_t lengthOf(const MORVAHostKey &kind, uint32_t count);
inline uint64_t lengthOf(const MORVAHostKey &kind) {
  return lengthOf(kind, kind.fieldCount);
}

}  // namespace morva::cli::check
