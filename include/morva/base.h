/**
 * @file
 * What every header of the library rests on: fixed-width integers, C linkage,
 * symbol visibility and the macros that pin a layout at compile time.
 *
 * The headers compile as C11 and as C++20. They describe a 64-bit binary
 * interface; nothing in them depends on a build option.
 *
 * Conventions that hold for every function of the library:
 *
 *  1. Operations take the instance first and answer a MORVAStatus unless their
 *     text says otherwise. Nothing throws, nothing is logged, and a host
 *     function that the library calls must not throw either.
 *  2. A null instance is refused (MORVA_INVALID, or 0 from the accessors)
 *     before anything else happens; the one exception is MORVADestroy.
 *  3. A failed operation leaves the table as it was unless its text names what
 *     stays behind. Output places are written on success only.
 *  4. Lengths are in bytes, integers in the machine's (little-endian) order.
 *  5. Records never move: an address that an operation hands out stays good
 *     until its record is removed, or the instance cleared or destroyed. One
 *     operation frees another record's address: see MORVARemoveDup.
 */
#ifndef MORVA_BASE_H
#define MORVA_BASE_H

#include <stddef.h>
#include <stdint.h>

#if defined(__cplusplus)
#define MORVA_BEGIN_C extern "C" {
#define MORVA_END_C }
#define MORVA_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define MORVA_BEGIN_C
#define MORVA_END_C
#define MORVA_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

/** Marks what the shared library exports. */
#if defined(__GNUC__)
#define MORVA_API __attribute__((visibility("default")))
#else
#define MORVA_API
#endif

/** Fails to compile when a field is not where the binary interface has it. */
#define MORVA_LAYOUT_FIELD(type, field, offset) \
  MORVA_STATIC_ASSERT(offsetof(type, field) == (offset), #type "." #field " has moved")

/** Fails to compile when a structure does not have its size. */
#define MORVA_LAYOUT_SIZE(type, size) \
  MORVA_STATIC_ASSERT(sizeof(type) == (size), #type " has changed its size")

MORVA_STATIC_ASSERT(sizeof(void *) == 8, "the interface is defined for 64-bit machines");

#endif
