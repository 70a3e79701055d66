#include "host_typed_keys.h"

namespace morva::cli::check {

std::vector<const MORVAHostKey *> keyKinds(const Host &host) {
  std::vector<const MORVAHostKey *> kinds;
  for (uint64_t i = 0; i < host.table().keyCount; ++i) kinds.push_back(&host.table().keys[i]);
  if (kinds.empty()) throw NotApplicable("the host names no keys of typed fields");
  return kinds;
}

KeyRoom::KeyRoom(const MORVAHostKey &kind, uint64_t noise)
    : kind_(kind), bytes_(new unsigned char[kind.roomSize + 16]) {
  const auto address = reinterpret_cast<uintptr_t>(bytes_.get());
  start_ = bytes_.get() + (16 - address % 16) % 16;
  fillWith(start_, kind.roomSize, noise);
}

const void *KeyRoom::make(uint64_t number) {
  return kind_.make(number, start_);
}

std::string KeyRoom::contents() const {
  return {reinterpret_cast<const char *>(start_), kind_.roomSize};
}

PackerField packerField(const MORVAKeyDesc &desc, uint64_t offset) {
  const bool terminated = desc.fieldType == 5;
  PackerField field{};
  field.fieldClass = 3;
  field.fieldArg = desc.fieldArg;
  field.fieldLength = field.fieldLengthAgain = desc.fieldLength;
  field.typeCode = field.typeCodeAgain = terminated ? 2 : desc.fieldType;
  field.subType = terminated ? 27 : 0;
  field.fieldOffset = offset;
  if (desc.fieldType == 2 || terminated) field.fieldOptions = desc.fieldOptions & 1;
  return field;
}

PackerClosing packerClosing(uint64_t keyLength) {
  PackerClosing closing{};
  closing.closingWord = 16;
  closing.keyLength = keyLength;
  closing.name = "lumaakey";
  return closing;
}

uint64_t lengthOf(const MORVAHostKey &kind, uint32_t count) {
  uint64_t length = 0;
  for (uint32_t i = 0; i < count; ++i) length += kind.fields[i].fieldLength;
  return length;
}

}  // namespace morva::cli::check
