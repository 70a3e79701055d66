/**
 * @file
 * The embedded host: everything the library takes from a host (service table,
 * pools, locks, tree container, record packer, order list), so that it runs
 * anywhere. Library `libqzhost`.
 *
 *   char error[256];
 *   QZHost *host = QZHostCreate(NULL);
 *   MORVAExt *ext = QZHostLoad(host, "libmorva.so.1", error, sizeof error);
 *   MORVAInst *inst = ext->Create(ext, &parms, NULL, "table");
 *   ...
 *   inst->Destroy(inst);
 *   QZHostDestroy(host, NULL);
 *
 * A process may have any number of hosts; every function here may be called
 * from any thread, except that QZHostDestroy is the last call on its host.
 * Nothing here throws.
 *
 * Hosts and copies of the library. The library keeps one service table pointer
 * per loaded copy, so a copy serves one host at a time. QZHostLoad gives every
 * host a copy of its own of the file; QZHostAttach, for a library linked into
 * the program, refuses while another host has it. A program that is linked with
 * the very file it loads has one copy for both: the first host to come has it.
 *
 * Pools. Blocks are aligned to 16 bytes, blocks of more than 512 bytes to 64.
 * They have no header: they are cut from chunks of 2 MiB, by size class up to
 * 256 KiB. Blocks of more than 1984 KiB are mapped straight from the system. A
 * pool's first chunk is on small pages; where the option allows it and it pays,
 * further ones are on huge pages, those for blocks of more than 256 KiB, and
 * blocks of 2 MiB and more. MORVA_ZERO_FILL is honoured as an option of a block
 * and of a pool. A pool made with option 0 may be used from several threads at
 * once; the record pools of an instance (options not 0) rely on the
 * serialisation that morva/host_pool.h states.
 *
 * Destroying a pool gives its memory back, but while a host has other pools it
 * keeps some for the next ones: four chunks at most, 4 MiB of them touched at
 * most. That counts in `bytesMapped` of the host and of no pool, and goes back to
 * the system before the memory limit refuses anything, with the last pool, and
 * with the host.
 *
 * Locks. Exclusive or shared, re-entrant: a thread may acquire again what it
 * holds (shared inside exclusive counts as exclusive). Turning a shared hold
 * into an exclusive one waits until the other readers have gone; of two
 * threads that try it at once the second is refused (acquire answers 1). A
 * release by a thread that holds nothing does nothing and is counted.
 *
 * Trees. With lockedTrees the container calls the safe callbacks under locks
 * of its own, so that MORVAFind2 may search beside an add, replace or remove
 * that holds the instance lock. What it finds must not be what is being
 * replaced or removed, and a clear is no such operation.
 *
 * Record packer. The field types of MORVADefineKey; a key is a pointer to a
 * row of the host's, `fieldArg` is the field's byte offset in that row, and
 * the field is packed as follows, fields end to end:
 *
 *   type  field in the row                fieldLength  packed as
 *   1     64-bit float                    8            its 8 bytes; -0.0 as 0.0
 *   2     fixed-length text               1 and more   trailing blanks and NULs become blanks
 *   3     signed integer, two's compl.    1, 2, 4, 8   its bytes
 *   4     raw bytes                       1 and more   its bytes
 *   5     text up to a NUL, or full       1 and more   NULs from the first NUL on
 *
 * fieldOptions bit 0 (types 2 and 5): "a" to "z" are packed as "A" to "Z", so
 * that case does not matter. Floats compare by their bits otherwise: a NaN is
 * equal to itself only, bit for bit. Refused: any other length, any other
 * type, and a field that does not start where the one before it ended. A null
 * row packs as all zero bytes. `packerArg` and the field class mean nothing.
 */
#ifndef MORVA_HOST_H
#define MORVA_HOST_H

#include "morva/base.h"
#include "morva/ext.h"
#include "morva/inst.h"
#include "morva/order_node.h"

/** A host. What is in it is its own. */
typedef struct QZHost QZHost;

/** How a host behaves. */
typedef struct QZHostOptions {
  /**
   * The most bytes its pools may take from the system together; 0 means no
   * limit. Beyond it allocations answer null, and operations MORVA_NO_MEMORY.
   * Small pools take memory in steps of 4 KiB and more.
   */
  uint64_t memoryLimit;
  /** 1: ask for huge pages under large blocks. 0: never. */
  uint32_t hugePages;
  /** 1: bucket trees are locked, by locks of the container's. 0: the instance lock is enough. */
  uint32_t lockedTrees;
} QZHostOptions;

/** The defaults: no limit, huge pages, plain trees. */
#define QZ_HOST_OPTIONS_DEFAULT \
  { 0, 1, 0 }

/** What a host holds. */
typedef struct QZHostStats {
  /** Bytes of blocks handed out and not given back, as rounded up to their size class. */
  uint64_t bytesLive;
  /** Bytes taken from the system for pools, with what is kept for the next ones. */
  uint64_t bytesMapped;
  /** The most that `bytesMapped` has been. */
  uint64_t bytesMappedPeak;
  /** The limit in force, 0 for none. */
  uint64_t memoryLimit;
  /** Allocations refused: limit reached, or no memory to be had. */
  uint64_t allocationsRefused;
  /** Releases of locks by threads that did not hold them. */
  uint64_t unmatchedReleases;
  /** Extensions loaded; like the numbers below, what is alive now. */
  uint32_t extensions;
  /** Pools. */
  uint32_t pools;
  /** Locks. */
  uint32_t locks;
  /** Companions, loaded and not released. */
  uint32_t companions;
  /** Record packers. */
  uint32_t packers;
  /** Tree containers. */
  uint32_t trees;
  /** Order lists. */
  uint32_t orderLists;
  uint32_t reserved;
} QZHostStats;

/** What one pool holds. */
typedef struct QZPoolStats {
  /** The pool's name, cut to 31 characters. */
  char name[32];
  /** Bytes of blocks handed out and not given back, as in QZHostStats. */
  uint64_t bytesLive;
  /** The most that `bytesLive` has been. */
  uint64_t bytesPeak;
  /** Bytes taken from the system for this pool. */
  uint64_t bytesMapped;
  /** Blocks handed out and not given back. */
  uint64_t blocksLive;
  /** Calls of free with what was no live block of the pool, as far as noticed; nothing was done. */
  uint64_t ignoredFrees;
} QZPoolStats;

MORVA_BEGIN_C

/**
 * Makes a host. `options` is copied; null means the defaults. Null when there
 * is no memory for the host itself.
 */
MORVA_API QZHost *QZHostCreate(const QZHostOptions *options);

/**
 * Destroys the host with everything it made: extensions are released, files
 * unloaded, pools, locks, companions and objects freed. `left`, if not null,
 * receives what was alive when the call came.
 *
 * @return how many extensions' blocks, pools, locks, companions and objects were still in use
 *         beyond the loaded extensions themselves: 0 when every instance had been destroyed. A null
 *         host answers 0.
 */
MORVA_API uint32_t QZHostDestroy(QZHost *host, QZHostStats *left);

/** The host's service table, for Exported_QZHandle. Lives as long as the host. */
MORVA_API HostServices *QZHostServices(QZHost *host);

/**
 * Loads the extension in `file` (as dlopen finds it), gives it the service
 * table, checks the versions and calls its entry function.
 *
 * @param error      receives, on failure, one sentence that names the file and what is wrong or
 *                   missing; cut to `errorSize` bytes; may be null
 * @return the extension object, owned by the host until QZHostUnload or QZHostDestroy; null on
 *         failure, with nothing left loaded
 */
MORVA_API MORVAExt *QZHostLoad(QZHost *host, const char *file, char *error, size_t errorSize);

/** The entry points of an extension linked into the program. */
typedef struct QZEntryPoints {
  /** Such as "morva"; used in error sentences. */
  const char *name;
  /** What takes the service table. */
  MORVAStatus (*qzextver)(HostServices *table, int64_t *major, int64_t *minor);
  /** The entry function. */
  MORVAExt *(*morva)(void *unused, void *context);
} QZEntryPoints;

/** As QZHostLoad, for an extension linked into the program. `entry` is read during the call. */
MORVA_API MORVAExt *QZHostAttach(QZHost *host, const QZEntryPoints *entry, char *error,
                                 size_t errorSize);

/**
 * Releases an extension that QZHostLoad or QZHostAttach answered, and unloads
 * its file when no other extension of this host uses it.
 *
 * @return 0; or 1, with a sentence in `error`, when the extension is not this host's or still has
 *         instances: then nothing is done
 */
MORVA_API uint32_t QZHostUnload(QZHost *host, MORVAExt *ext, char *error, size_t errorSize);

/** What the host holds now. Numbers of other threads' running calls may be missing. */
MORVA_API void QZHostGetStats(QZHost *host, QZHostStats *stats);

/**
 * What each pool holds now, oldest pool first. Writes at most `capacity`
 * entries; answers how many pools there are.
 */
MORVA_API uint32_t QZHostGetPoolStats(QZHost *host, QZPoolStats *pools, uint32_t capacity);

/*
 * The insertion order of an instance made with flagOrdered on an embedded host;
 * for any other instance, or null, the first and the last node are null. A node
 * is one that these answered and that is still linked, or null. The caller
 * serialises a walk with changes to the instance. Constant time each.
 */

/** The first node of the order, or null. Its `record` is the RecordNode. */
MORVA_API OrderNode *QZOrderFirst(const MORVAInst *inst);
/** The last node of the order, or null. */
MORVA_API OrderNode *QZOrderLast(const MORVAInst *inst);
/** The node after `node`, or null. */
MORVA_API OrderNode *QZOrderNext(const OrderNode *node);
/** The node before `node`, or null. */
MORVA_API OrderNode *QZOrderPrev(const OrderNode *node);

MORVA_END_C

#endif
