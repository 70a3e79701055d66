/**
 * @file
 * A lock of the host. One serves each instance that has not asked for
 * flagNoLock; a tree container may give each tree one, an order list may have
 * one.
 *
 *   slot   0      1      2         3         4
 *        +------+------+---------+---------+---------+
 *        |      |      | destroy | acquire | release |  ... the host's own
 *        +------+------+---------+---------+---------+
 */
#ifndef MORVA_HOST_LOCK_H
#define MORVA_HOST_LOCK_H

#include "morva/base.h"

/** HostLock.acquire, argument `mode`: for a change, alone. */
#define MORVA_LOCK_CHANGE UINT32_C(1)
/** HostLock.acquire, argument `mode`: for reading, together with other readers. */
#define MORVA_LOCK_READ UINT32_C(0)

/** What HostServices.createLock is told about a lock. */
typedef struct LockOptions {
  /** Always 0. */
  uint8_t option0;
  /** 1, or 0 for an instance with flagLockOpt. */
  uint8_t option1;
  /** All zero. */
  uint8_t reserved[22];
} LockOptions;

MORVA_LAYOUT_FIELD(LockOptions, option0, 0);
MORVA_LAYOUT_FIELD(LockOptions, option1, 1);
MORVA_LAYOUT_FIELD(LockOptions, reserved, 2);
MORVA_LAYOUT_SIZE(LockOptions, 24);

typedef struct HostLock HostLock;

/**
 * The order of locks: the instance's first, a tree's or an order list's inside
 * it and one at a time; MORVAEquals takes two instance locks, its first
 * argument's first.
 *
 * A host must expect two things of the library, both intended:
 *  - MORVAEquals of an instance with itself acquires one lock twice in one
 *    thread and releases it twice;
 *  - MORVAFind2, MORVAFindNode and a nested removal release, on the failures
 *    their texts name, a lock that they have not acquired.
 */
struct HostLock {
  void *slot0;
  void *slot1;
  /** Destroys the lock; nobody holds it then. */
  void (*destroy)(HostLock *lock);
  /**
   * Acquires the lock. `mode` is MORVA_LOCK_CHANGE (an instance lock is never
   * taken otherwise) or MORVA_LOCK_READ; `wait` is always 1: come back only
   * with the lock held. The result is not examined.
   */
  uint32_t (*acquire)(HostLock *lock, uint32_t mode, uint32_t wait);
  /** Gives one acquisition back. */
  void (*release)(HostLock *lock);
};

MORVA_LAYOUT_FIELD(HostLock, slot0, 0);
MORVA_LAYOUT_FIELD(HostLock, slot1, 8);
MORVA_LAYOUT_FIELD(HostLock, destroy, 16);
MORVA_LAYOUT_FIELD(HostLock, acquire, 24);
MORVA_LAYOUT_FIELD(HostLock, release, 32);
MORVA_LAYOUT_SIZE(HostLock, 40);

#endif
