#include "table_shape.h"

#include <cstring>
#include <set>

namespace morva_test {
namespace {

constexpr uint32_t kNodeHead = sizeof(RecordNode);
constexpr uint32_t kFieldLengths[] = {3, 1, 8};
constexpr uint32_t kLongestVariableKey = 70;

uint32_t roundUp8(uint32_t n) {
  return (n + 7) & ~uint32_t{7};
}

}  // namespace

uint32_t TableShape::keyArea() const {
  return keyMode == KeyMode::fixed ? keyLength + 12 : keyLength;
}

uint32_t TableShape::sumOffset() const {
  return sums() ? roundUp8(keyArea()) : 0;
}

uint32_t TableShape::dataOffset() const {
  return roundUp8(sums() ? sumOffset() + 8 : keyArea());
}

uint32_t TableShape::recordSize() const {
  return dataOffset() + dataLength + (multi() ? 24 : 0);
}

uint32_t TableShape::dataOffsetFor(size_t keyLen) const {
  if (keyMode != KeyMode::variable) return dataOffset();
  return (static_cast<uint32_t>(keyLen) + 19) & ~uint32_t{7};
}

uint32_t TableShape::recordSizeFor(size_t keyLen) const {
  if (keyMode != KeyMode::variable) return recordSize();
  return dataOffsetFor(keyLen) + dataLength;
}

uint32_t TableShape::slotSizeFor(size_t keyLen) const {
  return (recordSizeFor(keyLen) + 47) & ~uint32_t{15};
}

size_t TableShape::linksInNode(size_t keyLen) const {
  return kNodeHead + dataOffsetFor(keyLen);
}

size_t TableShape::dataInNode(size_t keyLen) const {
  return linksInNode(keyLen) + (multi() ? sizeof(DupLinks) : 0);
}

size_t TableShape::probeSize(size_t keyLen) const {
  const size_t size = keyMode == KeyMode::variable ? kNodeHead + sizeof(KeyPrefix) + keyLen
                                                   : kNodeHead + keyArea() + sizeof(KeyPrefix);
  return (size + 7) & ~size_t{7};
}

size_t TableShape::longestKey() const {
  if (keyMode == KeyMode::fixed) return keyLength + 4;
  return keyMode == KeyMode::variable ? kLongestVariableKey : keyLength;
}

std::string TableShape::text() const {
  static const char *const modes[] = {"fixed", "variable", "defined"};
  std::string text = std::string(modes[static_cast<int>(keyMode)]) + " keys";
  if (!locked()) text += ", no lock";
  if (ordered()) text += ", ordered";
  if (sums()) text += ", sums";
  if (multi()) text += ", multi";
  return text + ", hash method " + std::to_string(hashMethod) + ", hashExp " +
         std::to_string(hashExp) + ", data length " + std::to_string(dataLength) + ", memHint " +
         std::to_string(memHint) + ", flags " + std::to_string(flags);
}

std::string modeName(KeyMode mode) {
  static const char *const names[] = {"FixedKeys", "VariableKeys", "DefinedKeys"};
  return names[static_cast<int>(mode)];
}

std::string shapeName(const TableShape &shape) {
  std::string name = modeName(shape.keyMode);
  name += shape.locked() ? "Locked" : "Unlocked";
  if (shape.ordered()) name += "Ordered";
  if (shape.sums()) name += "Sums";
  if (shape.multi()) name += "Multi";
  return name;
}

std::vector<TableShape> everyShape() {
  std::vector<TableShape> shapes;
  for (KeyMode mode : {KeyMode::fixed, KeyMode::variable, KeyMode::defined}) {
    for (uint32_t bits = 0; bits < 16; ++bits) {
      TableShape shape;
      shape.keyMode = mode;
      if ((bits & 1) != 0) shape.flags |= flagNoLock;
      if ((bits & 2) != 0) shape.flags |= flagOrdered;
      if ((bits & 4) != 0) shape.flags |= flagSum;
      if ((bits & 8) != 0) shape.flags |= flagMultiData;
      if (mode == KeyMode::variable && (shape.sums() || shape.multi())) continue;
      shapes.push_back(shape);
    }
  }
  return shapes;
}

MORVAInst *makeInstance(MORVAExt *ext, const TableShape &shape) {
  MORVAParms parms{};
  parms.dataLength = shape.dataLength;
  parms.keyLength = shape.keyLength;
  parms.flags = shape.flags;
  if (shape.keyMode == KeyMode::fixed) parms.flags |= flagFixedKey;
  if (shape.keyMode == KeyMode::variable) parms.flags |= flagVarKey;
  parms.hashMethod = shape.hashMethod;
  parms.hashExp = shape.hashExp;
  parms.memHint = shape.memHint;
  MORVAInst *inst = ext->Create(ext, &parms, nullptr, "model");
  if (inst == nullptr || shape.keyMode != KeyMode::defined) return inst;

  uint32_t offset = 0;
  bool defined = true;
  for (uint32_t length : kFieldLengths) {
    MORVAKeyDesc field{};
    field.fieldLength = length;
    field.fieldType = 4;
    field.fieldArg = offset;
    offset += length;
    defined = defined && inst->DefineKey(inst, &field) == MORVA_OK;
  }
  if (defined && offset == shape.keyLength &&
      inst->DefineDone(inst, 0, shape.dataLength) == MORVA_OK) {
    return inst;
  }
  inst->Destroy(inst);
  return nullptr;
}

std::vector<std::string> makeKeys(const TableShape &shape, size_t count, std::mt19937_64 &random) {
  static constexpr unsigned char kBytes[] = {0x00, 0x01, 'a', 'b', 0x7f, 0x80, 0xff};
  std::set<std::string> distinct;
  while (distinct.size() < count) {
    size_t length = shape.longestKey();
    if (shape.rawKeys()) length = random() % (length + 1);
    std::string key(length, '\0');
    const bool anyByte = random() % 2 == 0;
    for (char &c : key) {
      c = static_cast<char>(anyByte ? random() % 256 : kBytes[random() % sizeof kBytes]);
    }
    distinct.insert(key);
  }
  std::vector<std::string> keys(distinct.begin(), distinct.end());
  for (size_t i = keys.size(); i > 1; --i) std::swap(keys[i - 1], keys[random() % i]);
  return keys;
}

bool KeyOrder::operator()(const std::string &a, const std::string &b) const {
  if (a.size() != b.size()) return a.size() < b.size();
  return std::memcmp(a.data(), b.data(), a.size()) < 0;
}

}  // namespace morva_test
