/**
 * @file
 * The operations of an instance, each under its own name. A host that holds an
 * instance calls them through it (`inst->Add(inst, ...)`), which also picks
 * the fast variants; the names serve hosts that link the library.
 *
 * Keys. With flagFixedKey and flagVarKey, `key` points to `keyLen` raw bytes.
 * With defined fields, `key` is what the host's record packer packs from, and
 * `keyLen` is ignored. In the raw-byte modes every keyed operation refuses,
 * with MORVA_INVALID, before the lock and before anything changes: a negative
 * `keyLen`; a null `key` with `keyLen` above 0; with flagVarKey a key whose
 * record would not fit in 32 bits.
 *
 * Fixed keys longer than declared. With flagFixedKey a key of up to
 * `inst->keyLength` bytes is accepted, 12 more than the declared length; but
 * only 4 bytes more (rounded up to the next sum or data offset) have room of
 * their own. Bytes past that are overwritten by the sum or the data, after
 * which the record is no longer found. Declare the longest key you use, below
 * 2 GiB: an instance declared for longer ones accepts no key.
 *
 * Threads. Unless flagNoLock is set, an operation marked [lock] holds the
 * instance's lock from its argument checks to its return. The others say what
 * the caller must see to.
 *
 * Cost. One key image, one hash, one descent of a tree of about
 * n / 2^hashExp records: O(log) in that number; no allocation once the record
 * blocks are there. To that comes what an operation goes through: with
 * flagVarKey the free nodes up to the first that is large enough; in removals
 * the pinned entries; in MORVAReplace, MORVARemove and MORVARemoveDup the
 * records of the key (the last from the cursor back).
 */
#ifndef MORVA_OPERATIONS_H
#define MORVA_OPERATIONS_H

#include "morva/ext.h"
#include "morva/inst.h"

MORVA_BEGIN_C

/* ---- Definition: instances with neither flagFixedKey nor flagVarKey --------------------- */

/**
 * Describes the next key field. Fields lie end to end in the order given,
 * without alignment. No lock: nobody else uses an instance not yet defined.
 *
 * @return MORVA_OK; MORVA_INVALID when `inst` or `desc` is null, the instance is defined already
 *         or has raw-byte keys, the type is not 1 to 5, or the packer refuses the field. In the
 *         last case the field's length stays counted: give up on the instance.
 */
MORVA_API MORVAStatus MORVADefineKey(MORVAInst *inst, const MORVAKeyDesc *desc);

/**
 * Closes the definition: fixes the layout, makes the pool "records", sets
 * flagDefined. Without any field the key is empty and one key exists.
 *
 * @param packerArg   passed through to the record packer
 * @param dataLength  bytes of data of every record; replaces MORVAParms.dataLength
 * @return MORVA_OK; MORVA_INVALID when `inst` is null, defined already or has raw-byte keys, when
 *         the record does not fit in 32 bits, or the pool cannot be made; MORVA_NO_MEMORY when the
 *         packer refuses, after which it may be called again (the pool made stays with the host).
 */
MORVA_API MORVAStatus MORVADefineDone(MORVAInst *inst, int32_t packerArg, uint32_t dataLength);

/* ---- Storing ----------------------------------------------------------------------------- */

/**
 * Stores a record: `dataLength` bytes of `data` under `key`; both are copied.
 * With flagMultiData a key already present gets a further record, at the end
 * of its chain; the insertion order holds the first record of each key only.
 * With flagSum the record's sum starts at the sum increment. [lock]
 *
 * @return MORVA_OK; MORVA_PRESENT when the key exists (never with flagMultiData), nothing being
 *         stored; MORVA_INVALID for an instance null or undefined, null `data` with a dataLength
 *         above 0, a refused key, or a fixed key above `inst->keyLength` (one record slot stays
 *         out of use until MORVAClear); MORVA_NO_MEMORY. If it was the order node
 *         that could not be had, the record stays findable, uncounted and without data: clear or
 *         destroy the instance.
 */
MORVA_API MORVAStatus MORVAAdd(MORVAInst *inst, const void *data, const void *key, int32_t keyLen);

/**
 * Stores a record, or overwrites the data of the records the key has: all of
 * them, with flagMultiData. With flagSum the first record's sum goes back to
 * the increment. Results as MORVAAdd without MORVA_PRESENT. [lock]
 */
MORVA_API MORVAStatus MORVAReplace(MORVAInst *inst, const void *data, const void *key,
                                   int32_t keyLen);

/**
 * MORVAAdd for instances with neither flagSum nor flagMultiData, whose `Add`
 * it is; MORVA_INVALID on any other. [lock]
 */
MORVA_API MORVAStatus MORVAFastAdd(MORVAInst *inst, const void *data, const void *key,
                                   int32_t keyLen);

/** MORVAReplace for instances with neither flagSum nor flagMultiData; otherwise as MORVAFastAdd. */
MORVA_API MORVAStatus MORVAFastReplace(MORVAInst *inst, const void *data, const void *key,
                                       int32_t keyLen);

/* ---- Finding ------------------------------------------------------------------------------ */

/**
 * Finds a key's (first) record. With flagSum a find is a counting event: the
 * increment is added to the record's sum, also when `dataOut` is null. [lock]
 *
 * @param dataOut  receives the record's data pointer, which is also the cursor of the duplicate
 *                 operations, or null when the key is absent; may be null
 * @return MORVA_OK, found or not; MORVA_INVALID for an instance null or undefined, a refused key,
 *         or a fixed key above `inst->keyLength` (one record slot stays out of use);
 *         MORVA_NO_MEMORY when no record slot can be had for the key, even for a key present.
 */
MORVA_API MORVAStatus MORVAFind(MORVAInst *inst, const void *key, int32_t length, void **dataOut);

/**
 * MORVAFind for instances with neither flagSum nor flagMultiData, whose `Find`
 * it is. It touches no sum on any instance; with flagMultiData its answer
 * points to the record's DupLinks, not to the data. [lock]
 */
MORVA_API MORVAStatus MORVAFastFind(MORVAInst *inst, const void *key, int32_t length,
                                    void **dataOut);

/**
 * MORVAFind without the lock and without a record slot: the key image is built
 * in the caller's `probeRecord`, so that any number of threads, each with a
 * probe of its own, may look up in a table that nobody changes (with flagSum
 * and an increment, a find does change it).
 *
 * @param probeRecord  room for a RecordNode and the key area: 24 + `inst->keyLength` + 8 bytes, or
 *                     with flagVarKey 32 + length, aligned to 8; null is refused. The key may lie
 *                     in it, but not in its first 32 bytes
 * @return as MORVAFind, never MORVA_NO_MEMORY, and no slot is lost. A fixed key above
 *         `inst->keyLength` releases the instance's lock although it was not taken: intended,
 *         hosts' locks expect it.
 */
MORVA_API MORVAStatus MORVAFind2(MORVAInst *inst, const void *key, int32_t length,
                                 RecordNode *probeRecord, void **dataOut);

/**
 * Finds the node of a key, and the key's bucket. Takes no lock, and takes a
 * record slot for a moment: the caller serialises it with every other use.
 *
 * @param nodeOut    receives the node, or null when the key is absent; may be null
 * @param bucketOut  receives the bucket index; may be null
 * @return MORVA_OK, found or not; MORVA_INVALID and MORVA_NO_MEMORY as MORVAFind, but no slot is
 *         lost. A fixed key too long, or no record slot, releases the instance's lock although it
 *         was not taken.
 */
MORVA_API MORVAStatus MORVAFindNode(MORVAInst *inst, const void *key, int32_t keyLen,
                                    RecordNode **nodeOut, uint32_t *bucketOut);

/**
 * Byte offset from the record base of `node` to its data part (with
 * flagMultiData to the links in front of it): `dataOffset`, or with flagVarKey
 * what the node's key length gives. 0 for a null instance, and for a null node
 * with flagVarKey. No lock.
 */
MORVA_API uint64_t MORVARecoff(const MORVAInst *inst, const RecordNode *node);

/**
 * The bucket a key belongs to; the table is not searched. [lock]
 *
 * @param bucketOut  receives hash AND mask; may be null
 * @return as MORVAFind
 */
MORVA_API MORVAStatus MORVAHashVal(MORVAInst *inst, const void *key, int32_t length,
                                   uint32_t *bucketOut);

/* ---- The records of one key: instances with flagMultiData ---------------------------------- */

/*
 * `data` is a cursor: the data pointer of a record, from MORVAFind or from
 * these. The instance keeps none; a cursor whose record was removed must not
 * be used.
 */

/** 1 when a record follows the one at `data`; 0 otherwise and for every refusal. [lock] */
MORVA_API uint32_t MORVAHasNext(MORVAInst *inst, const void *data);

/** 1 when the record at `data` is not its key's first; 0 otherwise and for every refusal. [lock] */
MORVA_API uint32_t MORVAHasPrev(MORVAInst *inst, const void *data);

/**
 * The record after the one at `data`. With flagSum the increment is added to
 * the sum of the record reached. [lock]
 *
 * @param data     the cursor; null answers null
 * @param dataOut  receives the data pointer, null at the end of the chain; may be null
 * @return MORVA_OK, also at the end; MORVA_INVALID for an instance null, undefined or without
 *         flagMultiData
 */
MORVA_API MORVAStatus MORVAFindNext(MORVAInst *inst, void *data, void **dataOut);

/** The record before the one at `data`; otherwise as MORVAFindNext. [lock] */
MORVA_API MORVAStatus MORVAFindPrev(MORVAInst *inst, void *data, void **dataOut);

/**
 * Overwrites the data of the one record at `data`, on any instance. With
 * flagSum its sum is set to the increment. [lock]
 *
 * @return MORVA_OK; MORVA_NO_CURSOR for a null `data`; MORVA_INVALID for an instance null or
 *         undefined, or null `newData` with a dataLength above 0
 */
MORVA_API MORVAStatus MORVAReplaceDup(MORVAInst *inst, void *data, const void *newData);

/**
 * Removes the one record at the cursor and sets the cursor word to null. When
 * it is its key's first record and others follow, the next one's contents move
 * into the first's node, so the next one's address becomes free. [lock]
 *
 * @param cursor  address of the word that holds the data pointer
 * @param key     the cursor's key, as `keyLen`
 * @return MORVA_OK; MORVA_NO_CURSOR when the cursor word is null; MORVA_PINNED when the key's
 *         first node is pinned; MORVA_INVALID for a null `cursor`, an instance null, undefined or
 *         without flagMultiData, or a key refused or too long; MORVA_NO_MEMORY. The cursor
 *         word then stays. Where the record is its key's only one, the answer is what MORVARemove
 *         answers for `key`, and the word is emptied whatever that is.
 */
MORVA_API MORVAStatus MORVARemoveDup(MORVAInst *inst, void **cursor, const void *key,
                                     int32_t keyLen);

/* ---- Running sums: instances with flagSum ---------------------------------------------------- */

/**
 * Sets what new records' sums start at and what lookups add: 0.0 once the
 * layout is fixed. Does nothing for an instance null, undefined or without
 * flagSum, and for a NaN. No lock: a lookup running meanwhile adds the old or
 * the new increment.
 */
MORVA_API void MORVASetSumInc(MORVAInst *inst, double increment);

/**
 * The sum of a key's first record; reading changes nothing. [lock]
 *
 * @param sumOut  receives the sum, 0.0 when the key is absent; may be null
 * @return MORVA_OK, found or not; MORVA_NO_SUM without flagSum; otherwise as MORVAFind
 */
MORVA_API MORVAStatus MORVASum(MORVAInst *inst, const void *key, int32_t keyLen, double *sumOut);

/**
 * The sum of the record at a cursor of an instance with flagMultiData. [lock]
 *
 * @param sumOut  receives the sum, 0.0 for a null `data`; may be null
 * @return MORVA_OK; MORVA_INVALID for an instance null, undefined or without flagMultiData (looked
 *         at first); MORVA_NO_SUM without flagSum
 */
MORVA_API MORVAStatus MORVASumDup(MORVAInst *inst, const void *data, double *sumOut);

/**
 * The sum of the record at `data`, stored through `sumOut` and also written
 * into the record, 8 bytes at `data` + `storeOffset`. With a null `sumOut`
 * nothing is read or written; with a null `data` 0.0 is stored. [lock]
 *
 * @return MORVA_OK; MORVA_INVALID for an instance null or undefined; MORVA_NO_SUM without flagSum
 */
MORVA_API MORVAStatus MORVASumKey(MORVAInst *inst, void *data, double *sumOut, int32_t storeOffset);

/* ---- Removing -------------------------------------------------------------------------------- */

/**
 * Removes a key with all its records. Their nodes are kept for reuse. [lock]
 *
 * @return MORVA_OK; MORVA_INVALID when the key is absent, refused or too long, or the instance null
 *         or undefined (also when the record was removed and the order list did not know it);
 *         MORVA_PINNED when its node is pinned; MORVA_NO_MEMORY
 */
MORVA_API MORVAStatus MORVARemove(MORVAInst *inst, const void *key, int32_t keyLen);

/**
 * Empties the instance and gives its record memory back to the pools. [lock]
 *
 * @return MORVA_OK; MORVA_PINNED when pinned nodes were met (their memory goes all the same);
 *         MORVA_INVALID for an instance null or undefined
 *
 * Cost: linear in buckets and records.
 */
MORVA_API MORVAStatus MORVAClear(MORVAInst *inst);

/** As MORVAClear, but keeps all memory for reuse; pinned nodes stay out of use. [lock] */
MORVA_API MORVAStatus MORVAClear2(MORVAInst *inst);

/**
 * Releases the instance and all it owns. `inst` must not be null; no other
 * call on it runs or follows. Takes no lock. Answers 0. Cost: the host's, for
 * destroying pools; records are not walked.
 */
MORVA_API MORVAStatus MORVADestroy(MORVAInst *inst);

/* ---- Whole instances, sizes --------------------------------------------------------------------
 */

/**
 * Compares two instances record by record, bucket by bucket: equal when the
 * layouts, counts and masks agree and every bucket holds the same keys and
 * data, duplicates in the same order. Sums, the hash method and the insertion
 * order are not compared; another hash method usually means other buckets. Of
 * fixed keys the whole key area counts, stale bytes of reused nodes included.
 *
 * Holds both locks, A's taken and released first: two threads must not compare
 * one pair in opposite orders. An instance may be compared with itself if its
 * lock may be re-acquired by its holder.
 *
 * Cost: linear in buckets and records.
 *
 * @param equalOut  receives 1 or 0; with null nothing is compared
 * @return MORVA_OK; MORVA_INVALID when an instance is null, undefined or has variable keys
 */
MORVA_API MORVAStatus MORVAEquals(MORVAInst *instanceA, MORVAInst *instanceB, uint32_t *equalOut);

/*
 * The accessors take no lock: while others change the instance they answer a
 * value of before or after. 0 for an instance null or undefined.
 */

/** Records stored, duplicates included. */
MORVA_API uint32_t MORVANumElements(const MORVAInst *inst);

/** Buckets. */
MORVA_API uint32_t MORVAHashSize(const MORVAInst *inst);

/** The record count of bucket `index`; 0 for an index above the mask. */
MORVA_API uint32_t MORVABucketSize(const MORVAInst *inst, uint32_t index);

/** Bytes of one record slot, header and padding included; with flagVarKey, of the last key's. */
MORVA_API uint32_t MORVARecSize(const MORVAInst *inst);

/** Bytes of record blocks taken since creation or the last MORVAClear; 0 with flagVarKey. */
MORVA_API uint64_t MORVATotalMem(const MORVAInst *inst);

MORVA_END_C

#endif
