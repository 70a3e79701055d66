/**
 * @file
 * The host's service table, whose address the host stores in
 * Exported_QZHandle before it calls the entry function.
 *
 *   slot    0..2   3            4..5   6            7..8   9
 *         +------+------------+------+------------+------+---------------+
 *         |      | createLock |      | createPool |      | loadExtension |  ...
 *         +------+------------+------+------------+------+---------------+
 *
 * The library calls the three named slots and reads no other. They may be
 * called from several threads at once (two instances made in parallel).
 */
#ifndef MORVA_HOST_SERVICES_H
#define MORVA_HOST_SERVICES_H

#include "morva/base.h"
#include "morva/host_lock.h"
#include "morva/host_pool.h"

typedef struct HostServices HostServices;

/** Every service is asked for with the table itself as the first argument. */
struct HostServices {
  void *slot0[3];
  /**
   * Makes the lock of an instance (MORVACreate, last but one step). `context`
   * is the word the caller gave to MORVACreate, `name` the caller's name
   * pointer, possibly null; neither is kept by the library. The lock belongs
   * to the instance and is destroyed by MORVADestroy; a creation that fails
   * after it was made leaves it to the host. Null fails the creation.
   */
  HostLock *(*createLock)(HostServices *services, const LockOptions *options, void *context,
                          const char *name);
  void *slot4[2];
  /**
   * Makes a pool. `context` is the entry function's `context` for the pool
   * "MORVA Extension" and 0 for "records", "varkeys" and "inodes". `options`
   * and `name` are valid during the call only. Null fails the caller.
   */
  HostPool *(*createPool)(HostServices *services, const PoolOptions *options, void *context,
                          const char *name);
  void *slot7[2];
  /**
   * Answers the companion extension of that name: U"qzevp" (RecordPackerExt),
   * U"qzeavl" (TreeExt) or U"qzeai" (OrderListExt). `name` has `length`
   * 32-bit characters; `reserved` is 0. The instance releases the companion
   * through its slot 2. Null fails the creation.
   */
  void *(*loadExtension)(HostServices *services, const uint32_t *name, uint64_t length,
                         uint64_t reserved);
};

MORVA_LAYOUT_FIELD(HostServices, slot0, 0);
MORVA_LAYOUT_FIELD(HostServices, createLock, 24);
MORVA_LAYOUT_FIELD(HostServices, slot4, 32);
MORVA_LAYOUT_FIELD(HostServices, createPool, 48);
MORVA_LAYOUT_FIELD(HostServices, slot7, 56);
MORVA_LAYOUT_FIELD(HostServices, loadExtension, 72);
MORVA_LAYOUT_SIZE(HostServices, 80);

#endif
