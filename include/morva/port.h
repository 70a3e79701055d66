/**
 * @file
 * Small portable routines for lengths, copies, fills, comparisons and scans,
 * offered to hosts and companions.
 *
 * In the names, T and W mean 32-bit units instead of bytes, N not equal to, S
 * that overlapping areas are handled. The source comes before the destination.
 * Lengths count units. All are pure functions of their arguments, safe in any
 * thread, linear in the length. A null area counts as empty unless said
 * otherwise; a string must be terminated; units are aligned to 4 bytes.
 */
#ifndef MORVA_PORT_H
#define MORVA_PORT_H

#include "morva/base.h"
#include "morva/host_pool.h"
#include "morva/status.h"

MORVA_BEGIN_C

/** Answers MORVA_UNSUPPORTED: a placeholder operation. */
MORVA_API MORVAStatus skUnsup(void);

/** Bytes before the terminating zero; 0 for null. */
MORVA_API uint64_t skStrLen(const char *s);
/** 32-bit units before the terminating zero unit; 0 for null. */
MORVA_API uint64_t skStrTLen(const uint32_t *s);

/**
 * Copies `src` with its terminator to `dst`, front to back. A null `dst` does
 * nothing; a null `src` makes `dst` empty.
 */
MORVA_API void skStrCpy(const char *src, char *dst);
/** skStrCpy of 32-bit units. */
MORVA_API void skStrTCpy(const uint32_t *src, uint32_t *dst);

/** Turns "a" to "z" among the `n` bytes into upper case, in place. */
MORVA_API void skStrUp(char *s, uint64_t n);
/** Turns "A" to "Z" among the `n` bytes into lower case, in place. */
MORVA_API void skStrLow(char *s, uint64_t n);

/** 1 when every one of the `n` bytes equals `c` (also for none), else 0. */
MORVA_API uint32_t skMemNot(uint8_t c, const void *p, uint64_t n);
/** skMemNot of 32-bit units. */
MORVA_API uint32_t skMemTNot(uint32_t c, const uint32_t *p, uint64_t n);

/** Fills `n` bytes with `c`. */
MORVA_API void skMemSet(void *p, uint8_t c, uint64_t n);
/** Fills `n` units with `c`; answers n. */
MORVA_API uint64_t skMemTSet(uint32_t *p, uint32_t c, uint64_t n);

/**
 * 0 when the `n` bytes are equal (also for none); else 1 or -1 as the first
 * differing byte of `a` is the greater or the smaller, unsigned. Null sorts
 * before any area and equals null.
 */
MORVA_API int32_t skMemCmp(const void *a, const void *b, uint64_t n);
/**
 * As skMemCmp over 32-bit units, but a difference decides by the sign of
 * a - b wrapped to 32 bits: 0x80000000 compares below 0.
 */
MORVA_API int32_t skWMemCmp(const uint32_t *a, const uint32_t *b, uint64_t n);

/**
 * Copies `n` bytes front to back and answers `dst`: where `dst` starts inside
 * the source, bytes already copied are copied on. skMemSCpy is for that case.
 */
MORVA_API void *skMemCpy(const void *src, void *dst, uint64_t n);
/** Copies `n` bytes, right also for overlapping areas. */
MORVA_API void skMemSCpy(const void *src, void *dst, uint64_t n);

/**
 * A copy of `n` bytes of `src` in a block of `pool` (option 0), owned by the
 * caller; no terminator is added. Null when `src` or `pool` is null or the
 * pool has no memory.
 */
MORVA_API void *skMemDup(const void *src, uint64_t n, HostPool *pool);

/** Index of the first byte equal to `c`, or -1. */
MORVA_API int64_t skMemScan(const void *p, uint64_t n, uint8_t c);
/** Index of the first byte not equal to `c`, or -1. */
MORVA_API int64_t skMemNScan(const void *p, uint64_t n, uint8_t c);
/** Index of the first unit not equal to `c`, or -1. */
MORVA_API int64_t skMemTNScan(const uint32_t *p, uint64_t n, uint32_t c);

/** 1 when any of the `n` doubles is a NaN (a missing value), else 0. */
MORVA_API uint32_t skMissArray(const double *v, uint64_t n);

MORVA_END_C

#endif
