/**
 * @file
 * A memory pool of the host: where the library gets every byte from.
 *
 *   slot   0      1      2         3          4
 *        +------+------+---------+----------+------+
 *        |      |      | destroy | allocate | free |  ... the host's own
 *        +------+------+---------+----------+------+
 *
 * The pool object is its table: a host puts the table first in its own pool
 * structure and keeps its state behind it. The library never copies a table.
 */
#ifndef MORVA_HOST_POOL_H
#define MORVA_HOST_POOL_H

#include "morva/base.h"

/** Option word of HostPool.allocate: the block must be all zero bytes. */
#define MORVA_ZERO_FILL UINT32_C(0x80000000)

/** Option word of the pool "records". */
#define MORVA_POOL_RECORDS UINT32_C(0x01000000)

/** Option word of the pool "varkeys". */
#define MORVA_POOL_VARKEYS UINT32_C(0x80000000)

/** What HostServices.createPool is told about a pool. */
typedef struct PoolOptions {
  /** 0 for "MORVA Extension" and "inodes", else MORVA_POOL_RECORDS or MORVA_POOL_VARKEYS. */
  uint32_t options;
  /** All zero. */
  uint32_t reserved[5];
} PoolOptions;

MORVA_LAYOUT_FIELD(PoolOptions, options, 0);
MORVA_LAYOUT_FIELD(PoolOptions, reserved, 4);
MORVA_LAYOUT_SIZE(PoolOptions, 24);

typedef struct HostPool HostPool;

/**
 * Serialisation: the pool "MORVA Extension" is used by every MORVACreate and
 * MORVADestroy, so from any thread at any time. The pools of an instance are
 * used under that instance's lock, or under whatever its caller serialises
 * with where the instance has no lock.
 */
struct HostPool {
  void *slot0;
  void *slot1;
  /** Releases the pool and every block taken from it; no block is freed singly before. */
  void (*destroy)(HostPool *pool);
  /**
   * Takes `size` bytes, aligned to at least 8, 16 for speed. `options` is 0 or
   * MORVA_ZERO_FILL; `size` may be 0, for an empty name. The block belongs to the
   * library until it is freed or the pool destroyed. Null when there is no memory:
   * the operation fails then (only a name is done without).
   */
  void *(*allocate)(HostPool *pool, uint64_t size, uint32_t options);
  /** Gives back a block that this pool's `allocate` answered; never null. It is to be used again. */
  void (*free)(HostPool *pool, void *block);
};

MORVA_LAYOUT_FIELD(HostPool, slot0, 0);
MORVA_LAYOUT_FIELD(HostPool, slot1, 8);
MORVA_LAYOUT_FIELD(HostPool, destroy, 16);
MORVA_LAYOUT_FIELD(HostPool, allocate, 24);
MORVA_LAYOUT_FIELD(HostPool, free, 32);
MORVA_LAYOUT_SIZE(HostPool, 40);

#endif
