#include "packer.h"

#include <cstring>
#include <new>

#include "host_state.h"

namespace qzhost {

namespace {

// MORVAKeyDesc.fieldType 5 arrives as a text with this sub-type.
constexpr uint32_t kTerminatedText = 27;

constexpr uint32_t kRefused = 1;

Packer *packerOf(RecordPacker *table) {
  return reinterpret_cast<Packer *>(table);
}

// ---- packing -------------------------------------------------------------

char capital(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

void copyText(char *to, const char *from, uint64_t length, bool fold) {
  if (!fold) {
    memcpy(to, from, length);
    return;
  }
  for (uint64_t i = 0; i < length; ++i) to[i] = capital(from[i]);
}

void packFloat(char *to, const char *from) {
  constexpr uint64_t kMinusZero = UINT64_C(1) << 63;
  uint64_t bits;
  memcpy(&bits, from, sizeof bits);
  if (bits == kMinusZero) bits = 0;
  memcpy(to, &bits, sizeof bits);
}

void packFixedText(char *to, const char *from, uint64_t length, bool fold) {
  uint64_t text = length;
  while (text > 0 && (from[text - 1] == ' ' || from[text - 1] == '\0')) --text;
  copyText(to, from, text, fold);
  memset(to + text, ' ', length - text);
}

void packTerminated(char *to, const char *from, uint64_t length, bool fold) {
  const void *end = memchr(from, '\0', length);
  const uint64_t text =
      end != nullptr ? static_cast<uint64_t>(static_cast<const char *>(end) - from) : length;
  copyText(to, from, text, fold);
  memset(to + text, '\0', length - text);
}

uint32_t pack(RecordPacker *table, const void *hostKey, void *destination, uint64_t) {
  const Packer *packer = packerOf(table);
  auto *key = static_cast<char *>(destination);
  const auto *row = static_cast<const char *>(hostKey);
  if (row == nullptr) {
    if (packer->keyLength != 0) memset(key, 0, packer->keyLength);
    return 0;
  }
  const PackStep *const end = packer->steps + packer->stepCount;
  for (const PackStep *step = packer->steps; step != end; ++step) {
    char *to = key + step->keyOffset;
    const char *from = row + step->rowOffset;
    switch (step->kind) {
      case PackStep::Kind::kBytes:
        memcpy(to, from, step->length);
        break;
      case PackStep::Kind::kBytes4:
        memcpy(to, from, 4);
        break;
      case PackStep::Kind::kBytes8:
        memcpy(to, from, 8);
        break;
      case PackStep::Kind::kFloat:
        packFloat(to, from);
        break;
      case PackStep::Kind::kFixedText:
        packFixedText(to, from, step->length, step->fold);
        break;
      case PackStep::Kind::kTerminated:
        packTerminated(to, from, step->length, step->fold);
        break;
    }
  }
  return 0;
}

// ---- defining ------------------------------------------------------------

bool isBytes(const PackStep &step) {
  return step.kind == PackStep::Kind::kBytes || step.kind == PackStep::Kind::kBytes4 ||
         step.kind == PackStep::Kind::kBytes8;
}

PackStep::Kind bytesKind(uint32_t length) {
  return length == 4   ? PackStep::Kind::kBytes4
         : length == 8 ? PackStep::Kind::kBytes8
                       : PackStep::Kind::kBytes;
}

// Answers whether the field has a type and a length that can be packed, and the
// step for it.
bool compile(const PackerField &field, PackStep *step) {
  if (field.fieldLength == 0 || field.fieldLength > UINT32_MAX) return false;
  const auto length = static_cast<uint32_t>(field.fieldLength);
  const bool fold = (field.fieldOptions & 1) != 0;
  *step = {PackStep::Kind::kBytes, false, length, field.fieldArg, field.fieldOffset};
  if (field.subType != 0) {
    if (field.typeCode != 2 || field.subType != kTerminatedText) return false;
    step->kind = PackStep::Kind::kTerminated;
    step->fold = fold;
    return true;
  }
  switch (field.typeCode) {
    case 1:
      step->kind = PackStep::Kind::kFloat;
      return length == 8;
    case 2:
      step->kind = PackStep::Kind::kFixedText;
      step->fold = fold;
      return true;
    case 3:
      step->kind = bytesKind(length);
      return length == 1 || length == 2 || length == 4 || length == 8;
    case 4:
      step->kind = bytesKind(length);
      return true;
    default:
      return false;
  }
}

bool reserveStep(Packer *packer) {
  if (packer->stepCount < packer->stepCapacity) return true;
  if (packer->stepCapacity > UINT32_MAX / 2) return false;
  const uint32_t capacity = packer->stepCapacity == 0 ? 8 : packer->stepCapacity * 2;
  auto *steps = new (std::nothrow) PackStep[capacity];
  if (steps == nullptr) return false;
  if (packer->stepCount != 0) memcpy(steps, packer->steps, packer->stepCount * sizeof(PackStep));
  delete[] packer->steps;
  packer->steps = steps;
  packer->stepCapacity = capacity;
  return true;
}

uint32_t defineField(RecordPacker *table, const PackerField *field) {
  Packer *packer = packerOf(table);
  PackStep step;
  if (field == nullptr || packer->finished || field->fieldOffset != packer->keyLength ||
      !compile(*field, &step))
    return kRefused;
  // Neither the key nor the row can end beyond the address space.
  if (step.length > UINT64_MAX - packer->keyLength || step.length > UINT64_MAX - step.rowOffset)
    return kRefused;

  if (isBytes(step) && packer->stepCount != 0) {
    PackStep &last = packer->steps[packer->stepCount - 1];
    if (isBytes(last) && last.rowOffset + last.length == step.rowOffset &&
        step.length <= UINT32_MAX - last.length) {
      last.length += step.length;
      last.kind = bytesKind(last.length);
      packer->keyLength += step.length;
      return 0;
    }
  }
  if (!reserveStep(packer)) return kRefused;
  packer->steps[packer->stepCount++] = step;
  packer->keyLength += step.length;
  return 0;
}

uint32_t finish(RecordPacker *table, const PackerClosing *closing) {
  Packer *packer = packerOf(table);
  if (closing == nullptr || packer->finished || closing->keyLength != packer->keyLength ||
      (closing->closingWord != 16 && closing->closingWord != 528))
    return kRefused;
  packer->finished = true;
  return 0;
}

void destroyPacker(RecordPacker *table) {
  if (table == nullptr) return;
  Packer *packer = packerOf(table);
  delist(packer->host, packer->host->packers, packer);
  delete packer;
}

}  // namespace

Packer::Packer(QZHost *owningHost) : table{}, host(owningHost) {
  table.destroy = destroyPacker;
  table.pack = pack;
  table.defineField = defineField;
  table.finish = finish;
}

Packer::~Packer() {
  delete[] steps;
}

void releasePackerExt(RecordPackerExt *companion) {
  if (companion != nullptr) Companion<RecordPackerExt>::of(companion)->release();
}

RecordPacker *makePacker(RecordPackerExt *companion, uint64_t) {
  if (companion == nullptr) return nullptr;
  QZHost *host = Companion<RecordPackerExt>::of(companion)->host;
  auto *packer = new (std::nothrow) Packer(host);
  if (packer == nullptr) return nullptr;
  enlist(host, host->packers, packer);
  return &packer->table;
}

}  // namespace qzhost
