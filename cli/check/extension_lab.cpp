#include "extension_lab.h"

#include <algorithm>
#include <cstring>

namespace morva::cli::check {

Lab::Lab(const Subject &subject, const RecordingHost::Options &options)
    : Lab(subject, options, true) {}

Lab::Lab(const Subject &subject, const RecordingHost::Options &options, bool makeExtension)
    : host(options), file(subject.file) {
  file.get<TableFunction *>("qzextent")(host.services());
  if (!makeExtension) return;
  ext = enter();
  expect(ext != nullptr, "the entry function answered null");
}

MORVAExt *Lab::enter(void *context) const {
  return file.get<EntryFunction *>("morva")(nullptr, context);
}

void Lab::end() {
  expectStatus(ext->RealDestroy(ext), MORVA_OK, "RealDestroy");
  ext = nullptr;
}

void Lab::expectNoComplaints() {
  host.checkGuards();
  if (!host.complaints().empty()) throw Unmet("the host complains: " + host.complaints()[0]);
}

void Lab::expectNothingLeft() {
  expect(host.nothingAlive(), "still alive at the end: " + host.alive());
}

MORVAParms Shape::parms() const {
  MORVAParms parms = {};
  parms.dataLength = dataLength;
  parms.keyLength = keyLength;
  parms.flags = flags;
  parms.hashMethod = hashMethod;
  parms.hashExp = hashExp;
  parms.memHint = memHint;
  return parms;
}

std::string described(const Shape &shape) {
  std::string text = shape.packed()          ? "packed keys"
                     : shape.has(flagVarKey) ? "variable keys"
                                             : "fixed keys";
  if (shape.has(flagSum)) text += ", sums";
  if (shape.has(flagMultiData)) text += ", duplicates";
  if (shape.has(flagOrdered)) text += ", in order";
  if (shape.has(flagNoLock)) text += ", no lock";
  return text;
}

std::vector<uint32_t> allFlags() {
  std::vector<uint32_t> all;
  for (const uint32_t mode : kKeyModes) {
    for (uint32_t bits = 0; bits != 16; ++bits) {
      const uint32_t sums = (bits & 1) != 0 ? flagSum : 0;
      const uint32_t duplicates = (bits & 2) != 0 ? flagMultiData : 0;
      if (mode == flagVarKey && (sums | duplicates) != 0) continue;
      all.push_back(mode | sums | duplicates | ((bits & 4) != 0 ? flagOrdered : 0) |
                    ((bits & 8) != 0 ? flagNoLock : 0));
    }
  }
  return all;
}

MORVAInst *createInstance(MORVAExt *ext, const Shape &shape, const char *name, void *context) {
  MORVAParms parms = shape.parms();
  return ext->Create(ext, &parms, context, name);
}

MORVAStatus defineField(MORVAInst *inst, uint32_t length, uint32_t argument, uint32_t type) {
  const MORVAKeyDesc desc = {length, type, argument, 0};
  return inst->DefineKey(inst, &desc);
}

Table::Table(Lab &lab, const Shape &shape, const char *name) : Table(lab, lab.ext, shape, name) {}

Table::Table(Lab &, MORVAExt *ext, const Shape &shape, const char *name)
    : inst_(createInstance(ext, shape, name)), shape_(shape), kind_("with " + described(shape)) {
  expect(inst_ != nullptr, "Create " + kind_ + " answered null");
  if (!shape.packed()) return;
  const uint32_t half = shape.keyLength / 2;
  expectStatus(defineField(inst_, half, 0), MORVA_OK, "DefineKey");
  expectStatus(defineField(inst_, shape.keyLength - half, half), MORVA_OK, "DefineKey");
  expectStatus(inst_->DefineDone(inst_, 0, shape.dataLength), MORVA_OK, "DefineDone");
}

std::string Table::payload(uint64_t value) const {
  std::string bytes(shape_.dataLength, '\0');
  for (size_t at = 0; at != bytes.size(); ++at) {
    bytes[at] = static_cast<char>((value >> (at % 8 * 8)) + at / 8 * 31);
  }
  return bytes;
}

bool Table::holds(const void *data, uint64_t value) const {
  const std::string wanted = payload(value);
  return data != nullptr && std::memcmp(data, wanted.data(), wanted.size()) == 0;
}

void Table::mustHold(const void *data, uint64_t value, const std::string &what) const {
  expect(data != nullptr, what + " is not there, " + kind_);
  expect(holds(data, value), what + " has other data than was stored, " + kind_);
}

std::string Table::image(const std::string &key) const {
  std::string bytes = key;
  if (shape_.packed()) bytes.resize(shape_.keyLength, '\0');
  return bytes;
}

std::string Table::keyOf(RecordNode *node) const {
  const auto *base = static_cast<const char *>(MORVARecordBase(node));
  if (shape_.packed()) return {base, shape_.keyLength};
  KeyPrefix prefix;
  std::memcpy(&prefix, base, sizeof prefix);
  return {base + sizeof prefix, std::min<uint32_t>(prefix.length, 1U << 24)};
}

void *Table::dataOf(RecordNode *node) const {
  const uint64_t links = shape_.has(flagMultiData) ? sizeof(DupLinks) : 0;
  return static_cast<char *>(MORVARecordBase(node)) + inst_->Recoff(inst_, node) + links;
}

MORVAStatus Table::add(const std::string &key, uint64_t value) const {
  const std::string data = payload(value);
  const std::string bytes = image(key);
  return inst_->Add(inst_, data.data(), bytes.data(), static_cast<int32_t>(bytes.size()));
}

MORVAStatus Table::replace(const std::string &key, uint64_t value) const {
  const std::string data = payload(value);
  const std::string bytes = image(key);
  return inst_->Replace(inst_, data.data(), bytes.data(), static_cast<int32_t>(bytes.size()));
}

MORVAStatus Table::find(const std::string &key, void **dataOut) const {
  const std::string bytes = image(key);
  return inst_->Find(inst_, bytes.data(), static_cast<int32_t>(bytes.size()), dataOut);
}

MORVAStatus Table::remove(const std::string &key) const {
  const std::string bytes = image(key);
  return inst_->Remove(inst_, bytes.data(), static_cast<int32_t>(bytes.size()));
}

void Table::mustAdd(const std::string &key, uint64_t value) const {
  expectStatus(add(key, value), MORVA_OK, "Add " + kind_);
}

void Table::mustRemove(const std::string &key) const {
  expectStatus(remove(key), MORVA_OK, "Remove of a key that is there, " + kind_ + ',');
}

void *Table::found(const std::string &key) const {
  void *data = nullptr;
  expectStatus(find(key, &data), MORVA_OK, "Find " + kind_);
  return data;
}

std::vector<void *> Table::chain(const std::string &key) const {
  std::vector<void *> records;
  for (void *at = found(key); at != nullptr;) {
    records.push_back(at);
    expect(records.size() <= 1000000, "a chain of records does not end");
    void *next = nullptr;
    expectStatus(inst_->FindNext(inst_, at, &next), MORVA_OK, "FindNext " + kind_);
    at = next;
  }
  return records;
}

RecordNode *Table::node(const std::string &key, uint32_t *bucket) const {
  const std::string bytes = image(key);
  RecordNode *answer = nullptr;
  expectStatus(
      inst_->FindNode(inst_, bytes.data(), static_cast<int32_t>(bytes.size()), &answer, bucket),
      MORVA_OK, "FindNode " + kind_);
  return answer;
}

double Table::sum(const std::string &key) const {
  const std::string bytes = image(key);
  double answer = -1;
  expectStatus(inst_->Sum(inst_, bytes.data(), static_cast<int32_t>(bytes.size()), &answer),
               MORVA_OK, "Sum " + kind_);
  return answer;
}

void Table::expectValue(const std::string &key, uint64_t value) const {
  mustHold(found(key), value, "the record of a key that was stored");
}

void Table::expectAbsent(const std::string &key) const {
  expect(found(key) == nullptr, "a key that is not in the table was found, " + kind_);
}

void Table::expectCount(uint32_t count) const {
  expectEqual(inst_->NumElements(inst_), count, "NumElements " + kind_);
}

void Table::destroy() {
  expectStatus(inst_->Destroy(inst_), MORVA_OK, "Destroy");
  inst_ = nullptr;
}

std::string keyNumber(uint64_t number) {
  std::string key("k");
  key += std::to_string(number);
  if (number % 3 == 0) key += "-x";
  return key;
}

}  // namespace morva::cli::check
