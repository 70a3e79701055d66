#include "order_index.h"

#include <algorithm>
#include <bit>

namespace qzhost {

namespace {

constexpr uint32_t kFirstBits = 4;
constexpr uint32_t kMovesPerLeaf = 8;

// Granules of more than this would save no leaf worth mentioning.
constexpr uint64_t kWidestGranule = 4096;
constexpr uint64_t kNarrowestGranule = 8;

}  // namespace

void OrderIndex::setDistance(uint64_t bytes) {
  const uint64_t granule =
      std::bit_floor(std::clamp<uint64_t>(bytes, kNarrowestGranule, kWidestGranule));
  const auto bits = static_cast<uint32_t>(std::countr_zero(granule));
  if (bits == granuleBits_) return;
  // Leaves of another width are of no use.
  reset();
  granuleBits_ = bits;
}

// The place of the stretch, or the empty place where it belongs.
OrderIndex::Place *OrderIndex::Table::find(uint64_t stretch) const {
  const uint64_t mask = (uint64_t{1} << bits) - 1;
  uint64_t at = (stretch * UINT64_C(0x9E3779B97F4A7C15)) >> (64 - bits);
  while (places[at].leaf != nullptr && places[at].stretch != stretch) at = (at + 1) & mask;
  return &places[at];
}

OrderIndex::Leaf *OrderIndex::leafOf(uint64_t stretch) {
  if (lastLeaf_ != nullptr && stretch == lastStretch_) return lastLeaf_;
  Leaf *leaf = nullptr;
  if (current_.places != nullptr) leaf = current_.find(stretch)->leaf;
  if (leaf == nullptr && old_.places != nullptr) leaf = old_.find(stretch)->leaf;
  if (leaf != nullptr) {
    lastStretch_ = stretch;
    lastLeaf_ = leaf;
  }
  return leaf;
}

bool OrderIndex::insert(OrderNode *node) {
  const uint64_t stretch = stretchOf(node->record);
  Leaf *leaf = leafOf(stretch);
  if (leaf == nullptr) leaf = newLeaf(stretch);
  if (leaf == nullptr) return false;
  OrderNode *&slot = leaf[slotOf(node->record)];
  if (slot != nullptr) return false;
  slot = node;
  ++count_;
  return true;
}

OrderNode *OrderIndex::remove(const void *record) {
  Leaf *leaf = leafOf(stretchOf(record));
  if (leaf == nullptr) return nullptr;
  OrderNode *&slot = leaf[slotOf(record)];
  OrderNode *node = slot;
  if (node == nullptr || node->record != record) return nullptr;
  slot = nullptr;
  --count_;
  return node;
}

OrderIndex::Leaf *OrderIndex::newLeaf(uint64_t stretch) {
  if (!makeRoom()) return nullptr;
  auto *leaf = static_cast<Leaf *>(memory_.allocate(kLeafSlots * sizeof(Leaf), true));
  if (leaf == nullptr) return nullptr;
  *current_.find(stretch) = {stretch, leaf};
  ++leaves_;
  moveSome();
  lastStretch_ = stretch;
  lastLeaf_ = leaf;
  return leaf;
}

// Makes the table twice as large once it is half full. When there is no memory
// for that the table may go on filling up to seven eighths.
bool OrderIndex::makeRoom() {
  if ((leaves_ + 1) * 2 <= current_.size()) return true;
  if (old_.places == nullptr) {
    const uint32_t bits = current_.places != nullptr ? current_.bits + 1 : kFirstBits;
    auto *places =
        static_cast<Place *>(memory_.allocate((uint64_t{1} << bits) * sizeof(Place), true));
    if (places != nullptr) {
      old_ = current_;
      moved_ = 0;
      current_ = {places, bits};
      return true;
    }
  }
  return (leaves_ + 1) * 8 <= current_.size() * 7;
}

void OrderIndex::moveSome() {
  if (old_.places == nullptr) return;
  const uint64_t end = std::min(moved_ + kMovesPerLeaf, old_.size());
  for (; moved_ != end; ++moved_) {
    const Place &place = old_.places[moved_];
    if (place.leaf != nullptr) *current_.find(place.stretch) = place;
  }
  if (moved_ == old_.size()) {
    memory_.free(old_.places);
    old_ = {};
  }
}

void OrderIndex::reset() {
  memory_.releaseAll();
  current_ = {};
  old_ = {};
  moved_ = 0;
  leaves_ = 0;
  count_ = 0;
  lastLeaf_ = nullptr;
}

}  // namespace qzhost
