/**
 * @file
 * The option bits of an instance, given in MORVAParms.flags.
 */
#ifndef MORVA_FLAGS_H
#define MORVA_FLAGS_H

#include "morva/base.h"

/**
 * Option bits. Exactly one of three key modes holds for an instance:
 *
 *   flagFixedKey  one byte string of bounded length
 *   flagVarKey    one byte string of any length
 *   neither       typed fields, described by MORVADefineKey and MORVADefineDone
 *
 * Refused at creation: flagFixedKey with flagVarKey, flagVarKey with
 * flagMultiData, flagVarKey with flagSum.
 */
enum MORVAFlag {
  /** State bit, kept as given; cleared when the order list has been set up. Field class 1. */
  flagUnordered = 0x1,
  /** State bit owned by the library: the record layout is fixed. Ignored in MORVAParms. */
  flagDefined = 0x2,
  /** The key is one byte string of bounded length; the layout is fixed at creation. */
  flagFixedKey = 0x4,
  /** No lock is made and none is taken: the caller serialises all calls. */
  flagNoLock = 0x8,
  /** The lock is made with its second option byte 0 instead of 1. */
  flagLockOpt = 0x10,
  /** Keys of any length; every record is one block of the pool "varkeys". */
  flagVarKey = 0x20,
  /** Records are also kept in insertion order. */
  flagOrdered = 0x40,
  /** Passed on to the record packer: field class 4 instead of 3. */
  flagPackOpt = 0x80,
  /** Every record carries a running sum, a 64-bit float. */
  flagSum = 0x100,
  /** Several records per key. */
  flagMultiData = 0x200,
  /** MORVADefineDone passes 528 instead of 16 to the record packer. */
  flagDefineOpt = 0x400
};

#endif
