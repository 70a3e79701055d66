/**
 * @file
 * The results of operations.
 *
 * A status is a plain 32-bit number. 0 is success, also for a lookup or a sum
 * that finds no key. The small numbers are answers a caller is expected to
 * meet; the numbers with the high bit set are refusals and exhaustion.
 */
#ifndef MORVA_STATUS_H
#define MORVA_STATUS_H

#include "morva/base.h"

/** Result of an operation; one of the MORVA_ constants below. */
typedef uint32_t MORVAStatus;

/** Done. */
#define MORVA_OK UINT32_C(0)

/** An add found the key present and stored nothing. */
#define MORVA_PRESENT UINT32_C(1)

/** A sum operation on an instance that keeps no sums. */
#define MORVA_NO_SUM UINT32_C(4)

/** A pinned node was met: it was not removed (removal), or it was skipped (clearing). */
#define MORVA_PINNED UINT32_C(5)

/** The duplicate cursor is empty. */
#define MORVA_NO_CURSOR UINT32_C(6)

/**
 * The request is refused: null instance, instance not defined yet (or already
 * defined), operation not valid in the instance's mode, key too long or of
 * negative length, null where bytes are needed, or the key to remove is absent.
 */
#define MORVA_INVALID UINT32_C(0x803fc009)

/** Memory or a companion object could not be obtained. */
#define MORVA_NO_MEMORY UINT32_C(0x803fc002)

/** The operation is not supported (skUnsup). */
#define MORVA_UNSUPPORTED UINT32_C(0x803fc004)

#endif
