#include "host_table_model.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace morva::cli::check {

namespace {

// Exact in a float, however often it is added.
constexpr double kIncrement = 1.5;

}  // namespace

Extension::Extension(const DrivingLibrary &library, const Host &host) {
  int64_t major = 0;
  int64_t minor = 0;
  library.qzextver(host.services(), &major, &minor);
  expect(major == MORVA_HOST_MAJOR, "the library that hosts are driven with is for another host");
  ext_ = library.entry(nullptr, nullptr);
}

void Extension::destroy() const {
  expectStatus(ext_->RealDestroy(ext_), MORVA_OK, "RealDestroy");
}

// ---- Shapes and keys ------------------------------------------------------------------

std::string TableShape::shown() const {
  static constexpr std::pair<uint32_t, const char *> kNames[] = {
      {flagFixedKey, "flagFixedKey"},   {flagVarKey, "flagVarKey"},   {flagNoLock, "flagNoLock"},
      {flagLockOpt, "flagLockOpt"},     {flagOrdered, "flagOrdered"}, {flagSum, "flagSum"},
      {flagMultiData, "flagMultiData"},
  };
  std::string text = has(flagFixedKey | flagVarKey) ? "" : "typed keys";
  for (const auto &[flag, name] : kNames) {
    if (!has(flag)) continue;
    if (!text.empty()) text += ' ';
    text += name;
  }
  return text;
}

std::vector<TableShape> everyShape(uint32_t always, uint32_t optional, const MORVAHostKey *kind) {
  std::vector<TableShape> shapes;
  // All subsets of a set of bits, largest last.
  uint32_t chosen = 0;
  do {
    shapes.push_back({always | chosen, kind, static_cast<int32_t>(shapes.size() % 6)});
    chosen = (chosen - optional) & optional;
  } while (chosen != 0);
  return shapes;
}

TableKey::TableKey(const TableShape &shape) : shape_(shape) {
  if (shape.kind != nullptr) room_ = std::make_unique<KeyRoom>(*shape.kind, 1);
}

void TableKey::set(uint64_t number) {
  if (room_ != nullptr) {
    data_ = room_->make(number);
    return;
  }
  text_ = 'k';
  text_ += std::to_string(number);
  if (shape_.has(flagVarKey)) text_.append(number * 7 % 150, '.');
  data_ = text_.data();
  length_ = static_cast<int32_t>(text_.size());
}

MORVAInst *newInstance(const Extension &extension, const TableShape &shape, void *context) {
  MORVAParms parms{};
  parms.flags = shape.flags;
  parms.keyLength = kLongestFixedKey;
  parms.dataLength = sizeof(TableData);
  parms.hashMethod = 2;
  parms.hashExp = shape.hashExp;
  MORVAInst *inst = extension.get()->Create(extension.get(), &parms, context, "table");
  if (inst == nullptr || shape.kind == nullptr) return inst;
  for (uint32_t i = 0; i < shape.kind->fieldCount; ++i) {
    expectStatus(inst->DefineKey(inst, &shape.kind->fields[i]), MORVA_OK, "DefineKey");
  }
  if (inst->DefineDone(inst, 0, sizeof(TableData)) != MORVA_OK) {
    inst->Destroy(inst);
    return nullptr;
  }
  return inst;
}

// ---- The table and its model -----------------------------------------------------------

ModelTable::ModelTable(const Host &host, const Extension &extension, const TableShape &shape)
    : host_(host), shape_(shape), inst_(newInstance(extension, shape)), key_(shape) {
  expectThat(inst_ != nullptr, "an instance cannot be made");
  const size_t bytes = sizeof(RecordNode) + std::max<size_t>(inst_->keyLength, 400) + 8;
  probe_.resize(bytes / 8 + 2);
  if (shape.has(flagSum)) inst_->SetSumInc(inst_, kIncrement);
}

void ModelTable::fail(const std::string &text) const {
  throw Unmet(text + " (a table with " + shape_.shown() + ')');
}

void ModelTable::expectData(const void *data, uint64_t number, uint64_t version,
                            const char *operation) const {
  TableData actual{};
  std::memcpy(&actual, data, sizeof actual);
  expectThat(actual == TableData::of(number, version),
             std::string(operation) + " reaches data that was not stored so");
}

ModelTable::Records *ModelTable::known(uint64_t number) {
  const auto at = records_.find(number);
  return at == records_.end() ? nullptr : &at->second;
}

void ModelTable::store(uint64_t number, uint64_t version) {
  Records &records = records_[number];
  if (records.empty()) order_.push_back(number);
  records.push_back({version, shape_.has(flagSum) ? kIncrement : 0});
  ++count_;
}

void ModelTable::forget(uint64_t number) {
  count_ -= records_[number].size();
  records_.erase(number);
  std::erase(order_, number);
}

void ModelTable::add(uint64_t number) {
  key_.set(number);
  const TableData data = TableData::of(number, ++version_);
  const MORVAStatus status = inst_->Add(inst_, &data, key_.data(), key_.length());
  const bool refused = known(number) != nullptr && !shape_.has(flagMultiData);
  expectThat(status == (refused ? MORVA_PRESENT : MORVA_OK),
             "Add of a key that is " + std::string(known(number) ? "present" : "new") +
                 " answers " + shownStatus(status));
  if (!refused) store(number, version_);
}

void ModelTable::replace(uint64_t number) {
  key_.set(number);
  const TableData data = TableData::of(number, ++version_);
  const MORVAStatus status = inst_->Replace(inst_, &data, key_.data(), key_.length());
  expectThat(status == MORVA_OK, "Replace answers " + shownStatus(status));
  Records *records = known(number);
  if (records == nullptr) return store(number, version_);
  for (Record &record : *records) record.version = version_;
  if (shape_.has(flagSum)) records->front().sum = kIncrement;
}

void ModelTable::find(uint64_t number) {
  key_.set(number);
  void *data = nullptr;
  const MORVAStatus status = inst_->Find(inst_, key_.data(), key_.length(), &data);
  expectThat(status == MORVA_OK, "Find answers " + shownStatus(status));
  Records *records = known(number);
  expectThat((data != nullptr) == (records != nullptr), std::string("Find of a key that is ") +
                                                            (records ? "present" : "missing") +
                                                            (data ? " finds one" : " finds none"));
  if (records == nullptr) return;
  expectData(data, number, records->front().version, "Find");
  if (shape_.has(flagSum)) records->front().sum += kIncrement;
}

void ModelTable::find2(uint64_t number) {
  key_.set(number);
  void *data = nullptr;
  const MORVAStatus status = inst_->Find2(inst_, key_.data(), key_.length(),
                                          reinterpret_cast<RecordNode *>(probe_.data()), &data);
  expectThat(status == MORVA_OK, "Find2 answers " + shownStatus(status));
  Records *records = known(number);
  expectThat((data != nullptr) == (records != nullptr), "Find2 does not answer as it should");
  if (records == nullptr) return;
  expectData(data, number, records->front().version, "Find2");
  if (shape_.has(flagSum)) records->front().sum += kIncrement;
}

void ModelTable::remove(uint64_t number) {
  key_.set(number);
  const MORVAStatus status = inst_->Remove(inst_, key_.data(), key_.length());
  const bool present = known(number) != nullptr;
  expectThat(status == (present ? MORVA_OK : MORVA_INVALID),
             std::string("Remove of a key that is ") + (present ? "present" : "missing") +
                 " answers " + shownStatus(status));
  if (present) forget(number);
}

void ModelTable::sum(uint64_t number) {
  if (!shape_.has(flagSum)) return;
  key_.set(number);
  double sum = -1;
  const MORVAStatus status = inst_->Sum(inst_, key_.data(), key_.length(), &sum);
  expectThat(status == MORVA_OK, "Sum answers " + shownStatus(status));
  const Records *records = known(number);
  const double expected = records != nullptr ? records->front().sum : 0;
  expectThat(sum == expected,
             "a sum is " + check::shown(sum) + " and should be " + check::shown(expected));
}

void *ModelTable::reach(uint64_t number, size_t which) {
  find(number);
  key_.set(number);
  void *data = nullptr;
  inst_->Find(inst_, key_.data(), key_.length(), &data);
  Records &records = *known(number);
  if (shape_.has(flagSum)) records.front().sum += kIncrement;
  for (size_t i = 1; i <= which; ++i) {
    const MORVAStatus status = inst_->FindNext(inst_, data, &data);
    expectThat(status == MORVA_OK && data != nullptr, "FindNext does not find the next record");
    expectData(data, number, records[i].version, "FindNext");
    if (shape_.has(flagSum)) records[i].sum += kIncrement;
  }
  return data;
}

void ModelTable::walkRecords(uint64_t number) {
  Records *records = known(number);
  if (!shape_.has(flagMultiData) || records == nullptr) return;
  void *data = reach(number, records->size() - 1);
  void *beyond = data;
  expectThat(inst_->FindNext(inst_, data, &beyond) == MORVA_OK && beyond == nullptr,
             "FindNext finds a record after the last one");
  expectThat(inst_->HasNext(inst_, data) == 0, "HasNext sees a record after the last one");
  for (size_t i = records->size() - 1; i > 0; --i) {
    expectThat(inst_->HasPrev(inst_, data) == 1, "HasPrev does not see the record before");
    expectThat(inst_->FindPrev(inst_, data, &data) == MORVA_OK && data != nullptr,
               "FindPrev does not find the record before");
    expectData(data, number, (*records)[i - 1].version, "FindPrev");
    if (shape_.has(flagSum)) (*records)[i - 1].sum += kIncrement;
  }
  expectThat(inst_->HasPrev(inst_, data) == 0, "HasPrev sees a record before the first one");
}

void ModelTable::replaceRecord(uint64_t number, uint64_t which) {
  Records *records = known(number);
  if (!shape_.has(flagMultiData) || records == nullptr) return;
  which %= records->size();
  void *cursor = reach(number, which);
  const TableData data = TableData::of(number, ++version_);
  expectThat(inst_->ReplaceDup(inst_, cursor, &data) == MORVA_OK, "ReplaceDup fails");
  (*records)[which].version = version_;
  if (shape_.has(flagSum)) (*records)[which].sum = kIncrement;
}

void ModelTable::removeRecord(uint64_t number, uint64_t which) {
  Records *records = known(number);
  if (!shape_.has(flagMultiData) || records == nullptr) return;
  which %= records->size();
  void *cursor = reach(number, which);
  const MORVAStatus status = inst_->RemoveDup(inst_, &cursor, key_.data(), key_.length());
  expectThat(status == MORVA_OK, "RemoveDup answers " + shownStatus(status));
  if (records->size() == 1) return forget(number);
  records->erase(records->begin() + static_cast<std::ptrdiff_t>(which));
  --count_;
}

void ModelTable::clear(bool keepMemory) {
  const MORVAStatus status = keepMemory ? inst_->Clear2(inst_) : inst_->Clear(inst_);
  expectThat(status == MORVA_OK,
             std::string(keepMemory ? "Clear2" : "Clear") + " answers " + shownStatus(status));
  records_.clear();
  order_.clear();
  count_ = 0;
}

void ModelTable::doAnything(Random &numbers, uint64_t range) {
  const uint64_t number = numbers.below(range);
  switch (numbers.below(24)) {
    case 0:
    case 1:
    case 2:
      return replace(number);
    case 3:
    case 4:
    case 5:
    case 6:
      return remove(number);
    case 7:
    case 8:
      return find(number);
    case 9:
    case 10:
      return find2(number);
    case 11:
      return sum(number);
    case 12:
      return walkRecords(number);
    case 13:
      return replaceRecord(number, numbers.next());
    case 14:
    case 15:
      return removeRecord(number, numbers.next());
    case 16:
      return numbers.below(20) == 0 ? clear(numbers.below(2) == 0) : find(number);
    default:
      return add(number);
  }
}

void ModelTable::verify() {
  expectThat(inst_->NumElements(inst_) == count_, "NumElements is " +
                                                      check::shown(inst_->NumElements(inst_)) +
                                                      " and should be " + check::shown(count_));
  for (size_t i = 0; i < order_.size(); ++i) {
    const uint64_t number = order_[i];
    if (shape_.has(flagMultiData)) {
      walkRecords(number);
    } else {
      find(number);
    }
    sum(number);
  }
  if (!shape_.has(flagOrdered) || host_.table().orderFirst == nullptr) return;
  size_t at = 0;
  for (OrderNode *node = host_.table().orderFirst(inst_->orderList); node != nullptr;
       node = host_.table().orderNext(node)) {
    expectThat(at < order_.size(), "the order has more records than the table has keys");
    auto *record = static_cast<RecordNode *>(node->record);
    const auto *data = static_cast<const unsigned char *>(MORVARecordBase(record)) +
                       inst_->Recoff(inst_, record) +
                       (shape_.has(flagMultiData) ? sizeof(DupLinks) : 0);
    const uint64_t number = order_[at++];
    expectData(data, number, known(number)->front().version, "a walk of the order");
  }
  expectThat(at == order_.size(), "the order has fewer records than the table has keys");
}

void ModelTable::destroy() {
  expectThat(inst_->Destroy(inst_) == MORVA_OK, "Destroy fails");
}

}  // namespace morva::cli::check
