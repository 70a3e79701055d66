#include "table.h"

#include <cstring>
#include <ostream>

namespace morva_test {

uint32_t Shape::flags() const {
  switch (keys) {
    case Keys::fixed:
      return options | flagFixedKey;
    case Keys::var:
      return options | flagVarKey;
    case Keys::defined:
      break;
  }
  return options;
}

Shape shape(Keys keys, uint32_t options) {
  Shape made;
  made.keys = keys;
  made.options = options;
  return made;
}

std::string numbered(std::string_view prefix, uint64_t number) {
  std::string made(prefix);
  made.append(std::to_string(number));
  return made;
}

std::string describe(const Shape &shape) {
  std::string text = shape.keys == Keys::fixed ? "Fixed"
                     : shape.keys == Keys::var ? "Variable"
                                               : "Defined";
  if (shape.has(flagNoLock)) text += "NoLock";
  if (shape.has(flagOrdered)) text += "Ordered";
  if (shape.has(flagSum)) text += "Sum";
  if (shape.has(flagMultiData)) text += "MultiData";
  return text;
}

void PrintTo(const Shape &shape, std::ostream *out) {
  *out << describe(shape);
}

std::string nameOfShape(const testing::TestParamInfo<Shape> &info) {
  return describe(info.param);
}

std::vector<Shape> shapes(uint32_t all, uint32_t none) {
  std::vector<Shape> made;
  for (Keys keys : {Keys::fixed, Keys::var, Keys::defined}) {
    for (uint32_t bits = 0; bits < 16; bits++) {
      const uint32_t options = ((bits & 1) ? flagNoLock : 0) | ((bits & 2) ? flagOrdered : 0) |
                               ((bits & 4) ? flagSum : 0) | ((bits & 8) ? flagMultiData : 0);
      const Shape one = shape(keys, options);
      if (keys == Keys::var && !one.fast()) continue;
      if ((one.flags() & all) == all && (one.flags() & none) == 0) made.push_back(one);
    }
  }
  return made;
}

std::vector<Shape> sampledShapes(uint32_t all, uint32_t none) {
  std::vector<Shape> sample;
  const std::vector<Shape> every = shapes(all, none);
  for (size_t i = 0; i < every.size(); i++) {
    const bool lastOfMode = i + 1 == every.size() || every[i + 1].keys != every[i].keys;
    if (lastOfMode || !every[i].has(flagNoLock)) sample.push_back(every[i]);
  }
  return sample;
}

Table::Table(RecordingHost &host, MORVAExt *ext, const Shape &shape, const char *name)
    : host_(host), shape_(shape) {
  MORVAParms parms = {};
  parms.dataLength = shape.keys == Keys::defined ? 0 : shape.dataLength;
  parms.keyLength = shape.keyLength;
  parms.flags = shape.flags();
  parms.hashMethod = shape.hashMethod;
  parms.hashExp = shape.hashExp;
  parms.memHint = shape.memHint;
  inst_ = ext->Create(ext, &parms, nullptr, name);
  if (inst_ == nullptr) {
    ADD_FAILURE() << "no instance for " << describe(shape);
    return;
  }
  if (shape.keys == Keys::defined) {
    const MORVAKeyDesc field = {shape.keyLength, 2, 0, 0};
    EXPECT_EQ(inst_->DefineKey(inst_, &field), MORVA_OK);
    EXPECT_EQ(inst_->DefineDone(inst_, 0, shape.dataLength), MORVA_OK);
  }
}

Table::~Table() {
  destroy();
}

MORVAStatus Table::destroy() {
  MORVAInst *inst = inst_;
  inst_ = nullptr;
  return inst == nullptr ? MORVA_OK : inst->Destroy(inst);
}

std::string Table::key(std::string_view text) const {
  std::string made(text);
  if (shape_.keys == Keys::defined) made.resize(shape_.keyLength, '\0');
  return made;
}

std::string Table::bytes(std::string_view text) const {
  std::string made(text);
  made.resize(shape_.dataLength, '\0');
  return made;
}

MORVAStatus Table::add(std::string_view key, std::string_view data) {
  return inst_->Add(inst_, bytes(data).data(), this->key(key).data(),
                    static_cast<int32_t>(key.size()));
}

MORVAStatus Table::replace(std::string_view key, std::string_view data) {
  return inst_->Replace(inst_, bytes(data).data(), this->key(key).data(),
                        static_cast<int32_t>(key.size()));
}

MORVAStatus Table::find(std::string_view key, void **dataOut) {
  return inst_->Find(inst_, this->key(key).data(), static_cast<int32_t>(key.size()), dataOut);
}

MORVAStatus Table::find2(std::string_view key, void **dataOut) {
  std::vector<uint64_t> probe((64 + inst_->keyLength + key.size()) / 8 + 1);
  return inst_->Find2(inst_, this->key(key).data(), static_cast<int32_t>(key.size()),
                      reinterpret_cast<RecordNode *>(probe.data()), dataOut);
}

MORVAStatus Table::findNode(std::string_view key, RecordNode **nodeOut, uint32_t *bucketOut) {
  return inst_->FindNode(inst_, this->key(key).data(), static_cast<int32_t>(key.size()), nodeOut,
                         bucketOut);
}

MORVAStatus Table::hashVal(std::string_view key, uint32_t *bucketOut) {
  return inst_->HashVal(inst_, this->key(key).data(), static_cast<int32_t>(key.size()), bucketOut);
}

MORVAStatus Table::sum(std::string_view key, double *sumOut) {
  return inst_->Sum(inst_, this->key(key).data(), static_cast<int32_t>(key.size()), sumOut);
}

MORVAStatus Table::remove(std::string_view key) {
  return inst_->Remove(inst_, this->key(key).data(), static_cast<int32_t>(key.size()));
}

MORVAStatus Table::removeDup(void **cursor, std::string_view key) {
  return inst_->RemoveDup(inst_, cursor, this->key(key).data(), static_cast<int32_t>(key.size()));
}

MORVAStatus Table::replaceDup(void *data, std::string_view newData) {
  return inst_->ReplaceDup(inst_, data, bytes(newData).data());
}

RecordNode *Table::put(std::string_view key, std::string_view data) {
  EXPECT_EQ(add(key, data), MORVA_OK) << key;
  return offered();
}

RecordNode *Table::offered() const {
  const std::vector<Event> inserts = host_.eventsOf(Call::treeInsert);
  if (inserts.empty()) return nullptr;
  return reinterpret_cast<RecordNode *>(inserts.back().a);
}

void *Table::at(std::string_view key) {
  RecordNode *node = nullptr;
  EXPECT_EQ(findNode(key, &node, nullptr), MORVA_OK) << key;
  return node == nullptr ? nullptr : dataOf(node);
}

std::string Table::all(std::string_view key) {
  const std::vector<void *> records = cursors(key);
  if (records.empty()) return "-";
  std::string text;
  for (void *one : records) {
    if (!text.empty()) text.push_back(' ');
    text.append(textAt(one));
  }
  return text;
}

std::string Table::textAt(const void *data) const {
  if (data == nullptr) return "-";
  std::string text(static_cast<const char *>(data), shape_.dataLength);
  while (!text.empty() && text.back() == '\0') text.pop_back();
  return text;
}

std::vector<void *> Table::cursors(std::string_view key) {
  std::vector<void *> found;
  void *data = at(key);
  if (data == nullptr) return found;
  if (!shape_.has(flagMultiData)) return {data};
  for (DupLinks *pair = static_cast<DupLinks *>(data) - 1; pair != nullptr; pair = pair->next) {
    found.push_back(pair + 1);
  }
  return found;
}

char *Table::base(RecordNode *node) const {
  return static_cast<char *>(MORVARecordBase(node));
}

void *Table::dataOf(RecordNode *node) const {
  return base(node) + inst_->Recoff(inst_, node) +
         (shape_.has(flagMultiData) ? sizeof(DupLinks) : 0);
}

DupLinks *Table::links(RecordNode *node) const {
  return reinterpret_cast<DupLinks *>(base(node) + inst_->dataOffset);
}

RecordNode *Table::nodeOf(void *data) const {
  char *recordBase = static_cast<char *>(data) - inst_->dataOffset -
                     (shape_.has(flagMultiData) ? sizeof(DupLinks) : 0);
  return reinterpret_cast<RecordNode *>(recordBase) - 1;
}

double Table::sumOf(RecordNode *node) const {
  double sum;
  std::memcpy(&sum, base(node) + inst_->sumOffset, sizeof sum);
  return sum;
}

void Table::setSumOf(RecordNode *node, double sum) const {
  std::memcpy(base(node) + inst_->sumOffset, &sum, sizeof sum);
}

KeyPrefix *Table::prefix(RecordNode *node) const {
  return reinterpret_cast<KeyPrefix *>(base(node));
}

std::vector<RecordNode *> Table::freeRecords() const {
  std::vector<RecordNode *> chain;
  for (RecordNode *node = inst_->freeRecords; node != nullptr;
       node = static_cast<RecordNode *>(node->owner)) {
    chain.push_back(node);
  }
  return chain;
}

std::vector<OrderNode *> Table::freeInodes() const {
  std::vector<OrderNode *> chain;
  for (OrderNode *node = inst_->freeInodes; node != nullptr;
       node = static_cast<OrderNode *>(node->record)) {
    chain.push_back(node);
  }
  return chain;
}

void Table::fillRecordBlock() {
  while (inst_->freeRecords != nullptr || room() > 0) {
    ASSERT_EQ(add(numbered("~", filler_++), "filler"), MORVA_OK);
  }
}

PinnedEntry *Table::pin(RecordNode *node) {
  HostPool *pool = inst_->ext->pool;
  auto *entry = static_cast<PinnedEntry *>(pool->allocate(pool, sizeof(PinnedEntry), 0));
  entry->next = inst_->pinned;
  entry->node = node;
  inst_->pinned = entry;
  return entry;
}

void PrintTo(LockUse use, std::ostream *out) {
  static const char *const names[] = {"none", "whole", "releaseOnly", "other"};
  *out << names[static_cast<int>(use)];
}

LockUse lockUse(RecordingHost &host, const std::function<void()> &call) {
  host.forget();
  call();
  const std::vector<Event> &events = host.events();
  const uint64_t acquired = host.count(Call::acquire);
  const uint64_t released = host.count(Call::release);
  if (acquired == 0 && released == 0) return LockUse::none;
  if (released != 1 || events.back().call != Call::release) return LockUse::other;
  if (acquired == 0) return LockUse::releaseOnly;
  const Event &first = events.front();
  const bool whole = acquired == 1 && first.call == Call::acquire && first.a == MORVA_LOCK_CHANGE &&
                     first.b == 1 && first.object == events.back().object;
  return whole ? LockUse::whole : LockUse::other;
}

void OpsTest::TearDown() {
  host.checkGuards();
  for (const std::string &complaint : host.complaints()) ADD_FAILURE() << complaint;
  EXPECT_EQ(host.locksHeld(), 0u);
  EXPECT_EQ(host.unmatchedReleases(), unmatchedReleasesExpected);
  EXPECT_EQ(host.poolsAlive(), 1u) << host.alive();
  EXPECT_EQ(host.blocksAlive(), 1u) << host.alive();
  EXPECT_EQ(host.locksAlive() + host.companionsAlive() + host.objectsAlive(), 0u) << host.alive();
}

}  // namespace morva_test
