/**
 * @file
 * The buckets of an instance: one zero-filled block of the extension's pool.
 *
 *   +0    mask            bucket count minus one
 *   +4    elementCount    records stored, duplicates included
 *   +8    usedBuckets     buckets that have received a first record
 *   +12   reserved
 *   +16   bucket 0 .. bucket mask, 16 bytes each
 *   end   16 spare bytes
 *
 * A key goes to bucket (hash AND mask). The counts are kept step by step as
 * the operations describe; with duplicates the counts of buckets, and so
 * usedBuckets, drift from the records really held, elementCount does not.
 */
#ifndef MORVA_BUCKET_ARRAY_H
#define MORVA_BUCKET_ARRAY_H

#include "morva/base.h"
#include "morva/record_node.h"

/** One bucket. Its root slot is what the tree container is given. */
typedef struct Bucket {
  /** Root of the bucket's tree, without tags; null when empty. */
  RecordNode *root;
  /** Records counted in this bucket. */
  uint32_t count;
  uint32_t reserved;
} Bucket;

MORVA_LAYOUT_FIELD(Bucket, root, 0);
MORVA_LAYOUT_FIELD(Bucket, count, 8);
MORVA_LAYOUT_FIELD(Bucket, reserved, 12);
MORVA_LAYOUT_SIZE(Bucket, 16);

/** The header; `mask` + 1 buckets follow it. */
typedef struct BucketArray {
  /** Bucket count minus one. */
  uint32_t mask;
  /** Records stored, duplicates included. */
  uint32_t elementCount;
  /** Buckets that have received a first record. */
  uint32_t usedBuckets;
  uint32_t reserved;
} BucketArray;

MORVA_LAYOUT_FIELD(BucketArray, mask, 0);
MORVA_LAYOUT_FIELD(BucketArray, elementCount, 4);
MORVA_LAYOUT_FIELD(BucketArray, usedBuckets, 8);
MORVA_LAYOUT_FIELD(BucketArray, reserved, 12);
MORVA_LAYOUT_SIZE(BucketArray, 16);

/** Bucket `index` of `array`; `index` must not exceed `array->mask`. */
static inline Bucket *MORVABucketAt(BucketArray *array, uint32_t index) {
  return (Bucket *)(void *)(array + 1) + index;
}

#endif
