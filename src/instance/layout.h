// Where the parts of a record lie. All arithmetic is done in 64 bits and
// refused when the result, slot rounding included, does not fit in 32.
#pragma once

#include <cstdint>

#include "morva/bucket_array.h"
#include "morva/flags.h"
#include "morva/record_node.h"
#include "morva/search.hpp"

namespace morva::core {

// Slack that the fixed-key area has beyond the declared length: the KeyPrefix
// and 4 bytes more.
inline constexpr uint32_t kFixedKeyExtra = 12;

// Room for the duplicate links; 8 more than they take.
inline constexpr uint32_t kMultiDataExtra = 24;

inline constexpr uint32_t kSlotSlack = 47;

constexpr uint64_t roundUp(uint64_t n, uint64_t step) {
  return (n + step - 1) / step * step;
}

// Bytes of one node slot: the node's words and the record, a multiple of 16.
constexpr uint32_t slotSize(uint32_t recordSize) {
  return (recordSize + kSlotSlack) & ~15u;
}

constexpr bool slotFits(uint64_t recordSize) {
  return recordSize + kSlotSlack <= UINT32_MAX;
}

// Bytes of the BucketArray of 2^hashExp buckets, spare bytes included.
constexpr uint64_t bucketArraySize(uint32_t hashExp) {
  return (uint64_t{sizeof(Bucket)} << hashExp) + sizeof(BucketArray) + 16;
}

// With flagVarKey: from the record base to the data behind a key of keyLen bytes.
constexpr uint64_t varDataOffset(uint64_t keyLen) {
  return detail::var_data_offset(keyLen);
}

struct Layout {
  uint32_t keyLength;
  uint32_t sumOffset;  // 0 without flagSum
  uint32_t dataOffset;
  uint32_t recordSize;
};

// The layout of records with a key area of keyArea bytes. False when it does
// not fit; `layout` is written only when it does.
constexpr bool computeLayout(uint64_t keyArea, uint32_t dataLength, uint32_t flags,
                             Layout &layout) {
  if (keyArea > UINT32_MAX) return false;
  uint64_t end = keyArea;
  uint64_t sumOffset = 0;
  if ((flags & flagSum) != 0) {
    sumOffset = roundUp(end, 8);
    end = sumOffset + sizeof(double);
  }
  const uint64_t dataOffset = roundUp(end, 8);
  uint64_t recordSize = dataOffset + dataLength;
  if ((flags & flagMultiData) != 0) recordSize += kMultiDataExtra;
  if (!slotFits(recordSize)) return false;
  layout = {.keyLength = static_cast<uint32_t>(keyArea),
            .sumOffset = static_cast<uint32_t>(sumOffset),
            .dataOffset = static_cast<uint32_t>(dataOffset),
            .recordSize = static_cast<uint32_t>(recordSize)};
  return true;
}

}  // namespace morva::core
