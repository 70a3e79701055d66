/**
 * @file
 * The companion extension "qzevp" and the object it makes: the record packer,
 * which lays typed key fields out in the key area of records. Loaded for
 * instances whose key is made of defined fields.
 *
 *   RecordPackerExt slot   2        9
 *                          release  makePacker
 *
 *   RecordPacker slot      2        4     6            7
 *                          destroy  pack  defineField  finish
 */
#ifndef MORVA_RECORD_PACKER_H
#define MORVA_RECORD_PACKER_H

#include "morva/base.h"

/** One key field, as MORVADefineKey describes it to the packer; zero where nothing is named. */
typedef struct PackerField {
  /** 1 with flagUnordered, else 4 with flagPackOpt, else 3. */
  uint32_t fieldClass;
  uint32_t reserved4;
  /** MORVAKeyDesc.fieldArg, passed through. */
  uint64_t fieldArg;
  /** Bytes of the field. */
  uint64_t fieldLength;
  /** 1 to 4: MORVAKeyDesc.fieldType, 5 becoming 2. */
  uint32_t typeCode;
  uint32_t reserved28[4];
  /** 27 for MORVAKeyDesc.fieldType 5, else 0. */
  uint32_t subType;
  /** Where the field starts in the key area: the length of all fields before it. */
  uint64_t fieldOffset;
  /** As `fieldLength`. */
  uint64_t fieldLengthAgain;
  /** As `typeCode`. */
  uint32_t typeCodeAgain;
  uint32_t reserved68[13];
  /** Bit 0: MORVAKeyDesc.fieldOptions bit 0, for the types 2 and 5. */
  uint32_t fieldOptions;
  uint32_t reserved124[9];
} PackerField;

MORVA_LAYOUT_FIELD(PackerField, fieldClass, 0);
MORVA_LAYOUT_FIELD(PackerField, reserved4, 4);
MORVA_LAYOUT_FIELD(PackerField, fieldArg, 8);
MORVA_LAYOUT_FIELD(PackerField, fieldLength, 16);
MORVA_LAYOUT_FIELD(PackerField, typeCode, 24);
MORVA_LAYOUT_FIELD(PackerField, reserved28, 28);
MORVA_LAYOUT_FIELD(PackerField, subType, 44);
MORVA_LAYOUT_FIELD(PackerField, fieldOffset, 48);
MORVA_LAYOUT_FIELD(PackerField, fieldLengthAgain, 56);
MORVA_LAYOUT_FIELD(PackerField, typeCodeAgain, 64);
MORVA_LAYOUT_FIELD(PackerField, reserved68, 68);
MORVA_LAYOUT_FIELD(PackerField, fieldOptions, 120);
MORVA_LAYOUT_FIELD(PackerField, reserved124, 124);
MORVA_LAYOUT_SIZE(PackerField, 160);

/** The end of a definition, as MORVADefineDone describes it; zero where nothing is named. */
typedef struct PackerClosing {
  /** 528 with flagDefineOpt, else 16. */
  uint32_t closingWord;
  uint32_t reserved4;
  /** The `packerArg` of MORVADefineDone, sign-extended. */
  int64_t packerArg;
  /** Bytes of the whole key. */
  uint64_t keyLength;
  uint64_t reserved24;
  /** "lumaakey". */
  const char *name;
  uint64_t reserved40[3];
} PackerClosing;

MORVA_LAYOUT_FIELD(PackerClosing, closingWord, 0);
MORVA_LAYOUT_FIELD(PackerClosing, reserved4, 4);
MORVA_LAYOUT_FIELD(PackerClosing, packerArg, 8);
MORVA_LAYOUT_FIELD(PackerClosing, keyLength, 16);
MORVA_LAYOUT_FIELD(PackerClosing, reserved24, 24);
MORVA_LAYOUT_FIELD(PackerClosing, name, 32);
MORVA_LAYOUT_FIELD(PackerClosing, reserved40, 40);
MORVA_LAYOUT_SIZE(PackerClosing, 64);

typedef struct RecordPacker RecordPacker;

/** The packer of one instance: fields are defined, the definition finished, then keys packed. */
struct RecordPacker {
  void *slot0[2];
  /** Destroys the packer (MORVADestroy, or a creation that failed). */
  void (*destroy)(RecordPacker *packer);
  void *slot3;
  /**
   * Writes the key image: all `keyLength` bytes at `destination`, the record
   * base of a node, from `hostKey`, which is whatever the host gave the
   * operation as its key. `one` is 1. The result is not examined. Called under
   * the instance's lock, except by MORVAFind2 and MORVAFindNode: with the same
   * arguments it must be safe in several threads at once.
   */
  uint32_t (*pack)(RecordPacker *packer, const void *hostKey, void *destination, uint64_t one);
  void *slot5;
  /** Takes one field; 0 on success, anything else refuses it. No lock is held. */
  uint32_t (*defineField)(RecordPacker *packer, const PackerField *field);
  /** Ends the definition; 0 on success, anything else refuses it. No lock is held. */
  uint32_t (*finish)(RecordPacker *packer, const PackerClosing *closing);
};

MORVA_LAYOUT_FIELD(RecordPacker, slot0, 0);
MORVA_LAYOUT_FIELD(RecordPacker, destroy, 16);
MORVA_LAYOUT_FIELD(RecordPacker, slot3, 24);
MORVA_LAYOUT_FIELD(RecordPacker, pack, 32);
MORVA_LAYOUT_FIELD(RecordPacker, slot5, 40);
MORVA_LAYOUT_FIELD(RecordPacker, defineField, 48);
MORVA_LAYOUT_FIELD(RecordPacker, finish, 56);
MORVA_LAYOUT_SIZE(RecordPacker, 64);

typedef struct RecordPackerExt RecordPackerExt;

/** What HostServices.loadExtension answers for U"qzevp". */
struct RecordPackerExt {
  void *slot0[2];
  /** Releases the companion; objects it made are destroyed before. */
  void (*release)(RecordPackerExt *companion);
  void *slot3[6];
  /** Makes a packer without fields. `zero` is 0. Null fails the creation of the instance. */
  RecordPacker *(*makePacker)(RecordPackerExt *companion, uint64_t zero);
};

MORVA_LAYOUT_FIELD(RecordPackerExt, slot0, 0);
MORVA_LAYOUT_FIELD(RecordPackerExt, release, 16);
MORVA_LAYOUT_FIELD(RecordPackerExt, slot3, 24);
MORVA_LAYOUT_FIELD(RecordPackerExt, makePacker, 72);
MORVA_LAYOUT_SIZE(RecordPackerExt, 80);

#endif
