/**
 * @file
 * Operations on many keys at a time: functions of the embedded host's library,
 * for instances on any host.
 *
 * Each does what an operation does for one key, for all keys in turn, with the
 * same answers and the same instance at the end. The records are looked for side
 * by side beforehand, up to 128 at once, so that a table larger than the
 * processor's caches answers several times sooner. That goes for instances on an
 * embedded host without lockedTrees, and but for packed keys of more than 256
 * bytes; elsewhere the operation is simply called for one key after another.
 *
 * The instance's lock is held from the first key to the last, which asks for a
 * lock that a thread may acquire again; with flagNoLock the caller serialises.
 * Nothing is allocated. Keys and data are read during the call.
 *
 * All answer for how many keys the status was MORVA_OK, and store the status of
 * each in `statuses`, unless that is null. Where the instance, the keys, `dataOut` or
 * `amounts` is null they do nothing, answer 0, and say MORVA_INVALID for all keys.
 */
#ifndef MORVA_MANY_H
#define MORVA_MANY_H

#include "morva/inst.h"

/** A key as the operations take it: a raw key, or with packed keys the row, and any length. */
typedef struct QZKey {
  /** The key's bytes, or the row. */
  const void *bytes;
  /** How many bytes a raw key has. */
  int32_t length;
  uint32_t reserved;
} QZKey;

MORVA_LAYOUT_FIELD(QZKey, bytes, 0);
MORVA_LAYOUT_FIELD(QZKey, length, 8);
MORVA_LAYOUT_FIELD(QZKey, reserved, 12);
MORVA_LAYOUT_SIZE(QZKey, 16);

MORVA_BEGIN_C

/**
 * MORVAFind for each key: the data of the key's first record, or null, goes to
 * its place in `dataOut`; null for a key that is refused. Where lookups go side
 * by side they need no free record, as MORVAFind does.
 */
MORVA_API size_t QZFindMany(MORVAInst *inst, const QZKey *keys, size_t count, void **dataOut,
                            MORVAStatus *statuses);

/**
 * The instance's Add for each key. The data of key i lies `i * stride` bytes
 * behind `data`, which may be null only where records have no data.
 */
MORVA_API size_t QZAddMany(MORVAInst *inst, const QZKey *keys, size_t count, const void *data,
                           size_t stride, MORVAStatus *statuses);

/** The instance's Remove for each key. */
MORVA_API size_t QZRemoveMany(MORVAInst *inst, const QZKey *keys, size_t count,
                              MORVAStatus *statuses);

/**
 * Adds the amount at its place to the running sum of each key's first record,
 * which counts as found before. MORVA_NO_SUM without flagSum; MORVA_INVALID where the key is
 * not there, and where the amount or the sum would be a NaN.
 */
MORVA_API size_t QZAddToSumMany(MORVAInst *inst, const QZKey *keys, size_t count,
                                const double *amounts, MORVAStatus *statuses);

MORVA_END_C

#endif
