/**
 * @file
 * The create parameter block, and the description of one key field.
 */
#ifndef MORVA_PARMS_H
#define MORVA_PARMS_H

#include "morva/base.h"

/**
 * What MORVACreate is told. The block stays the caller's. Words 0 to 2 are not
 * read.
 */
typedef struct MORVAParms {
  uint32_t reserved[3];
  /** Bytes of the data part of every record. MORVADefineDone gives it anew. */
  uint32_t dataLength;
  /** With flagFixedKey: the longest key the instance is made for, in bytes. */
  uint32_t keyLength;
  /** Option bits, see MORVAFlag. */
  uint32_t flags;
  /** Hash method, 2 to 9; any other value becomes 2. */
  int32_t hashMethod;
  /**
   * Log2 of the bucket count, 0 to 20; a negative value becomes 8, a larger
   * one 20. Creation writes the value it used back.
   */
  int32_t hashExp;
  /**
   * Sizes the largest record blocks: about 30.72 times this many bytes; below
   * 1 the default, 65536. Blocks do not grow past 512 MiB.
   */
  int64_t memHint;
} MORVAParms;

MORVA_LAYOUT_FIELD(MORVAParms, reserved, 0);
MORVA_LAYOUT_FIELD(MORVAParms, dataLength, 12);
MORVA_LAYOUT_FIELD(MORVAParms, keyLength, 16);
MORVA_LAYOUT_FIELD(MORVAParms, flags, 20);
MORVA_LAYOUT_FIELD(MORVAParms, hashMethod, 24);
MORVA_LAYOUT_FIELD(MORVAParms, hashExp, 28);
MORVA_LAYOUT_FIELD(MORVAParms, memHint, 32);
MORVA_LAYOUT_SIZE(MORVAParms, 40);

/**
 * One key field, as the host describes it to MORVADefineKey. What the types,
 * the argument and the option mean is the record packer's; morva/host.h
 * documents the embedded host's.
 */
typedef struct MORVAKeyDesc {
  /** Bytes the field takes in the key area. */
  uint32_t fieldLength;
  /** 1 to 5. */
  uint32_t fieldType;
  /** Passed through to the record packer. */
  uint32_t fieldArg;
  /** Bit 0 is passed on for the types 2 and 5. */
  uint32_t fieldOptions;
} MORVAKeyDesc;

MORVA_LAYOUT_FIELD(MORVAKeyDesc, fieldLength, 0);
MORVA_LAYOUT_FIELD(MORVAKeyDesc, fieldType, 4);
MORVA_LAYOUT_FIELD(MORVAKeyDesc, fieldArg, 8);
MORVA_LAYOUT_FIELD(MORVAKeyDesc, fieldOptions, 12);
MORVA_LAYOUT_SIZE(MORVAKeyDesc, 16);

#endif
