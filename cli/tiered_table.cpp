#include "tiered_table.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "error.h"
#include "morva/host.h"
#include "morva/record_node.h"

namespace morva::cli {

namespace {

// Times 33 with a fold. On names, numbers, amounts and random digits it fills as many buckets as
// the two Jenkins hashes (8 and 3) do; but it keeps keys that differ in their last characters close
// together, and so a file of numbered rows is counted in a third of the time. Keys made to collide
// find balanced trees.
constexpr int32_t kHashMethod = 2;

// About how many bytes of input there are to a record; an estimate for the number of buckets.
constexpr uint64_t kBytesPerRecord = 64;
constexpr int32_t kLeastHashExp = 8;
constexpr int32_t kMostHashExp = 20;
// Taken for the size of an input that does not tell its own.
constexpr uint64_t kUnknownInput = uint64_t{8} << 20;

// The largest record blocks: worth huge pages, and few. The library takes the size in parts of
// 30.72.
constexpr uint64_t kLargestRecordBlock = uint64_t{32} << 20;
constexpr double kMemHintUnit = 30.72;

uint32_t flagsOf(TieredTable::Kind kind) {
  switch (kind) {
    case TieredTable::Kind::kSums:
      return flagFixedKey | flagNoLock | flagOrdered | flagSum;
    case TieredTable::Kind::kRows:
      return flagFixedKey | flagNoLock | flagMultiData;
    case TieredTable::Kind::kKeys:
      return flagVarKey | flagNoLock;
  }
  return 0;
}

uint32_t dataLengthOf(TieredTable::Kind kind) {
  switch (kind) {
    case TieredTable::Kind::kSums:
      return sizeof(uint64_t);
    case TieredTable::Kind::kRows:
      return sizeof(TieredTable::Row);
    case TieredTable::Kind::kKeys:
      return 0;
  }
  return 0;
}

int32_t lengthOf(std::string_view key) {
  return static_cast<int32_t>(key.size());
}

}  // namespace

TieredTable::Row TieredTable::Cursor::row() const {
  Row row;
  std::memcpy(&row, data, sizeof row);
  return row;
}

TieredTable::TieredTable(Library &library, Kind kind, uint64_t inputBytes)
    : library_(library), kind_(kind), inputBytes_(inputBytes) {}

TieredTable::~TieredTable() {
  for (MORVAInst *tier : tiers_) {
    if (tier != nullptr) tier->Destroy(tier);
  }
}

// About one record to a bucket. Too few buckets cost a step or two in their trees, too many cost
// memory. No tier can hold more keys than fit in the input.
int32_t TieredTable::hashExpFor(size_t index) const {
  const uint64_t shortestKey = index == 0 ? 0 : (uint64_t{1} << (kFirstTierBits + index - 1)) + 1;
  const uint64_t input = inputBytes_ == 0 ? kUnknownInput : inputBytes_;
  const uint64_t records = input / std::max(kBytesPerRecord, shortestKey);
  const uint64_t affordable = library_.fairBlock(UINT64_MAX) / sizeof(Bucket);
  const auto exponent = static_cast<int32_t>(std::bit_width(std::min(records, affordable))) - 1;
  return std::clamp(exponent, kLeastHashExp, kMostHashExp);
}

// The size of the largest record blocks, in the unit of MORVAParms.memHint.
int64_t TieredTable::memHint() const {
  const auto block = static_cast<double>(library_.fairBlock(kLargestRecordBlock));
  return std::max<int64_t>(1, static_cast<int64_t>(block / kMemHintUnit));
}

MORVAInst *TieredTable::makeTier(size_t index) {
  if (index >= kTiers) throw Error("a key is longer than 1 GiB");
  MORVAParms parms{};
  parms.dataLength = dataLengthOf(kind_);
  parms.keyLength = uint32_t{1} << (kFirstTierBits + index);
  parms.flags = flagsOf(kind_);
  parms.hashMethod = kHashMethod;
  parms.hashExp = hashExpFor(index);
  parms.memHint = memHint();
  char name[32];
  std::snprintf(name, sizeof name, "keys to %u", parms.keyLength);
  MORVAExt *extension = library_.extension();
  tiers_[index] = extension->Create(extension, &parms, nullptr, name);
  if (tiers_[index] == nullptr) library_.failOutOfMemory();
  return tiers_[index];
}

void TieredTable::check(MORVAStatus status) const {
  if (status == MORVA_OK) return;
  if (status == MORVA_NO_MEMORY) library_.failOutOfMemory();
  char text[64];
  std::snprintf(text, sizeof text, "the library refused a request with status 0x%x", status);
  throw Error(text);
}

// To find a key is to add to its sum; a key that is not there gets a record that starts with it.
void TieredTable::addToSum(std::string_view key, double number) {
  MORVAInst *tier = tierFor(key);
  tier->SetSumInc(tier, number);
  void *data = nullptr;
  check(tier->Find(tier, key.data(), lengthOf(key), &data));
  if (data != nullptr) return;
  check(tier->Add(tier, &keys_, key.data(), lengthOf(key)));
  ++keys_;
}

void TieredTable::addRow(std::string_view key, const Row &row) {
  MORVAInst *tier = tierFor(key);
  check(tier->Add(tier, &row, key.data(), lengthOf(key)));
}

TieredTable::Cursor TieredTable::findRows(std::string_view key) {
  const size_t index = tierOf(key.size());
  if (index >= kTiers || tiers_[index] == nullptr) return {};
  Cursor cursor{tiers_[index], nullptr};
  check(cursor.tier->Find(cursor.tier, key.data(), lengthOf(key), &cursor.data));
  return cursor;
}

void TieredTable::next(Cursor &cursor) {
  check(cursor.tier->FindNext(cursor.tier, cursor.data, &cursor.data));
}

bool TieredTable::insert(std::string_view key) {
  MORVAInst *tier = tierFor(key);
  const MORVAStatus status = tier->Add(tier, nullptr, key.data(), lengthOf(key));
  if (status == MORVA_PRESENT) return false;
  check(status);
  ++keys_;
  return true;
}

TieredTable::OrderedWalk::OrderedWalk(TieredTable &table) {
  for (MORVAInst *tier : table.tiers_) {
    if (tier == nullptr) continue;
    Head head{tier, QZOrderFirst(tier), 0};
    if (settle(head)) heads_[count_++] = head;
  }
}

// Reads the number of the record that a head stands on.
bool TieredTable::OrderedWalk::settle(Head &head) {
  if (head.node == nullptr) return false;
  auto *record = static_cast<RecordNode *>(head.node->record);
  const char *base = static_cast<const char *>(MORVARecordBase(record));
  std::memcpy(&head.number, base + head.tier->dataOffset, sizeof head.number);
  return true;
}

bool TieredTable::OrderedWalk::next(std::string_view &key, double &sum) {
  if (count_ == 0) return false;
  Head *const begin = heads_.data();
  Head &first = *std::min_element(begin, begin + count_,
                                  [](const Head &a, const Head &b) { return a.number < b.number; });
  MORVAInst *tier = first.tier;
  char *base = static_cast<char *>(MORVARecordBase(static_cast<RecordNode *>(first.node->record)));
  KeyPrefix prefix;
  std::memcpy(&prefix, base, sizeof prefix);
  key = {base + sizeof prefix, prefix.length};
  // SumKey also stores the sum at an offset from the data: at that of the sum itself, it stays.
  const auto toSum = static_cast<int32_t>(tier->sumOffset) - static_cast<int32_t>(tier->dataOffset);
  if (tier->SumKey(tier, base + tier->dataOffset, &sum, toSum) != MORVA_OK) {
    throw Error("the library refused to tell a sum");
  }
  first.node = QZOrderNext(first.node);
  if (!settle(first)) first = heads_[--count_];
  return true;
}

}  // namespace morva::cli
