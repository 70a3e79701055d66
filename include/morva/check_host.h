/**
 * @file
 * What the library of a host exports so that `morva check-host FILE` can try
 * the host: one object, MORVAHostForCheck, with functions that make a host and
 * end it.
 *
 *   static HostServices *create(const MORVAHostRequest *request, void **host) { ... }
 *   static uint32_t destroy(void *host) { ... }
 *   const MORVAHostCheck MORVAHostForCheck = {
 *       .version = MORVA_HOST_CHECK_VERSION, .create = create, .destroy = destroy};
 *
 * Nothing of it is used when the host works; it may be in a file of its own.
 * The checks call from one thread what is said to be used by one, and from
 * several what may be; each check is a process of its own.
 */
#ifndef MORVA_CHECK_HOST_H
#define MORVA_CHECK_HOST_H

#include "morva/base.h"
#include "morva/host_services.h"
#include "morva/order_list.h"
#include "morva/order_node.h"
#include "morva/parms.h"

/** The version of MORVAHostCheck. */
#define MORVA_HOST_CHECK_VERSION 1

/** The host that is wanted. */
typedef struct MORVAHostRequest {
  /**
   * The most bytes that its pools may hold together; 0 for no limit. Half of it at least can be had
   * in blocks of 48 bytes and more.
   */
  uint64_t memoryLimit;
  /** 1: its tree containers call the safe callbacks, with locks of their own. 0: either set. */
  uint32_t lockedTrees;
  /** 0. */
  uint32_t reserved;
} MORVAHostRequest;

MORVA_LAYOUT_FIELD(MORVAHostRequest, memoryLimit, 0);
MORVA_LAYOUT_FIELD(MORVAHostRequest, lockedTrees, 8);
MORVA_LAYOUT_FIELD(MORVAHostRequest, reserved, 12);
MORVA_LAYOUT_SIZE(MORVAHostRequest, 16);

/**
 * A kind of key of typed fields that the host's record packer takes, with what
 * such keys are made of: what a key is, and what a field type means, is known to
 * the host alone.
 */
typedef struct MORVAHostKey {
  /**
   * The fields, as MORVADefineKey is to be given them, in this order. The first few of them alone
   * are a key, too.
   */
  const MORVAKeyDesc *fields;
  /** How many they are, 1 at least. */
  uint32_t fieldCount;
  /** 0. */
  uint32_t reserved;
  /** Bytes of the room that `make` is given. */
  uint64_t roomSize;
  /**
   * Makes a key in `room`, which is aligned to 16 and holds anything, and answers what an operation
   * is to be given as that key. Keys of the same `number` are equal, wherever they lie, and keys of
   * different numbers below 1048576 are not. Called from several threads, with a room each.
   */
  const void *(*make)(uint64_t number, void *room);
  /** A field that the packer refuses when it is given as the first one; null for none. */
  const MORVAKeyDesc *refused;
} MORVAHostKey;

MORVA_LAYOUT_FIELD(MORVAHostKey, fields, 0);
MORVA_LAYOUT_FIELD(MORVAHostKey, fieldCount, 8);
MORVA_LAYOUT_FIELD(MORVAHostKey, reserved, 12);
MORVA_LAYOUT_FIELD(MORVAHostKey, roomSize, 16);
MORVA_LAYOUT_FIELD(MORVAHostKey, make, 24);
MORVA_LAYOUT_FIELD(MORVAHostKey, refused, 32);
MORVA_LAYOUT_SIZE(MORVAHostKey, 40);

/** How a host is tried. */
typedef struct MORVAHostCheck {
  /** MORVA_HOST_CHECK_VERSION. */
  uint32_t version;
  /** 0. */
  uint32_t reserved;
  /**
   * Makes a host as `request`, which is valid during the call, asks. Answers its service table and
   * stores what `destroy` is to be given; null when it has no such host (no limits, no locked
   * trees): the checks that need one do not apply then. A host without limit and locked trees must
   * be had. Called again when the host before has been ended, or, where there is no `destroy`, when
   * it is not used any more.
   */
  HostServices *(*create)(const MORVAHostRequest *request, void **host);
  /**
   * Ends the host. Answers how many pools, locks, companions (each as often as it was loaded and
   * not released) and objects of companions (packers, tree containers, order lists) were still
   * alive. Null where a host cannot be ended or does not count: the checks for leaks do not apply
   * then.
   */
  uint32_t (*destroy)(void *host);
  /** The first node of an order list of this host, or null; null where it has no walk. */
  OrderNode *(*orderFirst)(OrderList *list);
  /** The node after `node`, which is linked in a list of this host, or null; as `orderFirst`. */
  OrderNode *(*orderNext)(OrderNode *node);
  /** Keys of typed fields, `keyCount` kinds. Null, and 0: what needs such keys does not apply. */
  const MORVAHostKey *keys;
  /** How many kinds `keys` are. */
  uint64_t keyCount;
} MORVAHostCheck;

MORVA_LAYOUT_FIELD(MORVAHostCheck, version, 0);
MORVA_LAYOUT_FIELD(MORVAHostCheck, reserved, 4);
MORVA_LAYOUT_FIELD(MORVAHostCheck, create, 8);
MORVA_LAYOUT_FIELD(MORVAHostCheck, destroy, 16);
MORVA_LAYOUT_FIELD(MORVAHostCheck, orderFirst, 24);
MORVA_LAYOUT_FIELD(MORVAHostCheck, orderNext, 32);
MORVA_LAYOUT_FIELD(MORVAHostCheck, keys, 40);
MORVA_LAYOUT_FIELD(MORVAHostCheck, keyCount, 48);
MORVA_LAYOUT_SIZE(MORVAHostCheck, 56);

MORVA_BEGIN_C

/** Exported by the library of a host, and by libqzhost for the embedded host. */
extern MORVA_API const MORVAHostCheck MORVAHostForCheck;

MORVA_END_C

#endif
