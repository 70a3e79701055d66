// Defining the key fields of an instance, and closing the definition.
#include "ext/services.h"
#include "instance/layout.h"
#include "instance/open_records.h"
#include "morva/operations.h"

namespace morva::core {
namespace {

constexpr uint32_t kFieldTypes = 5;
constexpr uint32_t kTextType = 2;     // takes the option bit
constexpr uint32_t kTextVariant = 5;  // told to the packer as type 2 with a sub-type
constexpr uint32_t kTextVariantSubType = 27;

// Open for definition: born without a layout and not yet closed. Variable keys
// are defined from creation on.
bool isOpen(const MORVAInst *inst) {
  return inst != nullptr && !has(*inst, flagDefined | flagFixedKey);
}

uint32_t fieldClassOf(const MORVAInst &inst) {
  if (has(inst, flagUnordered)) return 1;
  return has(inst, flagPackOpt) ? 4 : 3;
}

PackerField packerField(const MORVAInst &inst, const MORVAKeyDesc &desc, uint64_t offset) {
  const bool variant = desc.fieldType == kTextVariant;
  const bool takesOption = variant || desc.fieldType == kTextType;
  const uint32_t typeCode = variant ? kTextType : desc.fieldType;
  PackerField field{};
  field.fieldClass = fieldClassOf(inst);
  field.fieldArg = desc.fieldArg;
  field.fieldLength = desc.fieldLength;
  field.typeCode = typeCode;
  field.subType = variant ? kTextVariantSubType : 0;
  field.fieldOffset = offset;
  field.fieldLengthAgain = desc.fieldLength;
  field.typeCodeAgain = typeCode;
  field.fieldOptions = takesOption ? desc.fieldOptions & 1 : 0;
  return field;
}

PackerClosing packerClosing(const MORVAInst &inst, int32_t packerArg) {
  PackerClosing closing{};
  closing.closingWord = has(inst, flagDefineOpt) ? 528 : 16;
  closing.packerArg = packerArg;
  closing.keyLength = inst.definedKeyLength;
  closing.name = "lumaakey";
  return closing;
}

}  // namespace
}  // namespace morva::core

using namespace morva::core;

extern "C" {

MORVAStatus MORVADefineKey(MORVAInst *inst, const MORVAKeyDesc *desc) {
  if (!isOpen(inst) || desc == nullptr) return MORVA_INVALID;
  if (desc->fieldType < 1 || desc->fieldType > kFieldTypes) return MORVA_INVALID;
  Instance &own = ownState(*inst);
  const PackerField field = packerField(*inst, *desc, own.definedKeyTotal);
  // Counted before the packer is asked, and kept if it refuses: the host is
  // expected to give up on the instance then.
  own.definedKeyTotal += desc->fieldLength;
  inst->definedKeyLength = static_cast<uint32_t>(own.definedKeyTotal);
  RecordPacker *packer = inst->recordPacker;
  return packer->defineField(packer, &field) == 0 ? MORVA_OK : MORVA_INVALID;
}

MORVAStatus MORVADefineDone(MORVAInst *inst, int32_t packerArg, uint32_t dataLength) {
  if (!isOpen(inst)) return MORVA_INVALID;
  Layout layout;
  if (!computeLayout(ownState(*inst).definedKeyTotal, dataLength, inst->flags, layout)) {
    return MORVA_INVALID;
  }
  inst->dataLength = dataLength;
  applyLayout(*inst, layout);
  const int64_t unscaledMax = inst->recordBlockMax;
  if (!openRecordPool(*inst)) return MORVA_INVALID;
  const PackerClosing closing = packerClosing(*inst, packerArg);
  RecordPacker *packer = inst->recordPacker;
  if (packer->finish(packer, &closing) != 0) {
    // The host may close the definition again; it then gets another pool.
    inst->recordBlockMax = unscaledMax;
    return MORVA_NO_MEMORY;
  }
  inst->flags |= flagDefined;
  return MORVA_OK;
}

}  // extern "C"
