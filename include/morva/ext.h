/**
 * @file
 * Loading the library: the service table pointer, the entry function and the
 * extension object.
 *
 *   MORVAExt slot   0       3              4           6            9       10
 *                   "nevo"  GetReqVersion  GetVersion  RealDestroy  Create  pool
 *
 * The way in, for a host:
 *
 *   1. qzextver(table, &major, &minor)   stores the host's service table
 *   2. ext = morva(NULL, context)        builds the extension object
 *   3. inst = ext->Create(ext, &parms, context, "name"), as often as wanted
 *   4. inst->Destroy(inst) for each, then ext->RealDestroy(ext)
 *
 * The library keeps one global, Exported_QZHandle. One loaded copy of the
 * library therefore serves one host table at a time; the entry function may be
 * called several times and answers a separate extension object each time.
 */
#ifndef MORVA_EXT_H
#define MORVA_EXT_H

#include "morva/base.h"
#include "morva/host_services.h"
#include "morva/inst.h"
#include "morva/parms.h"
#include "morva/status.h"

/** The host interface the library is built for, as qzextver answers it: the first part. */
#define MORVA_HOST_MAJOR 6
/** Its second part. */
#define MORVA_HOST_MINOR 1

/** The extension object: exactly eleven slots; those not named are zero. */
struct MORVAExt {
  /** "nevo", then four zero bytes. */
  char eyeCatcher[8];
  void *slot1[2];
  MORVAStatus (*GetReqVersion)(MORVAExt *ext, int64_t *a, int64_t *b, int64_t *c);
  MORVAStatus (*GetVersion)(MORVAExt *ext, int64_t *a, int64_t *b, int64_t *c);
  void *slot5;
  MORVAStatus (*RealDestroy)(MORVAExt *ext);
  void *slot7[2];
  MORVAInst *(*Create)(MORVAExt *ext, MORVAParms *parms, void *hostContext, const char *name);
  /** The pool "MORVA Extension": this object, and every instance, name and bucket array. */
  HostPool *pool;
};

MORVA_LAYOUT_FIELD(MORVAExt, eyeCatcher, 0);
MORVA_LAYOUT_FIELD(MORVAExt, slot1, 8);
MORVA_LAYOUT_FIELD(MORVAExt, GetReqVersion, 24);
MORVA_LAYOUT_FIELD(MORVAExt, GetVersion, 32);
MORVA_LAYOUT_FIELD(MORVAExt, slot5, 40);
MORVA_LAYOUT_FIELD(MORVAExt, RealDestroy, 48);
MORVA_LAYOUT_FIELD(MORVAExt, slot7, 56);
MORVA_LAYOUT_FIELD(MORVAExt, Create, 72);
MORVA_LAYOUT_FIELD(MORVAExt, pool, 80);
MORVA_LAYOUT_SIZE(MORVAExt, 88);

/** The version record that qzvercn1 delivers: plain text fields, zero padded. */
typedef struct MORVAVersionRecord {
  /** "nevo". */
  char eyeCatcher[4];
  /** Version of this record's layout: 1. */
  uint32_t recordVersion;
  /** The library's version. */
  uint32_t major, minor, patch;
  /** The host version required. */
  uint32_t hostMajor, hostMinor, hostPatch;
  /** "morva". */
  char product[32];
  /** "1.0.3". */
  char version[16];
  /** The compiler that built the library. */
  char compiler[64];
  char reserved[64];
} MORVAVersionRecord;

MORVA_LAYOUT_FIELD(MORVAVersionRecord, eyeCatcher, 0);
MORVA_LAYOUT_FIELD(MORVAVersionRecord, recordVersion, 4);
MORVA_LAYOUT_FIELD(MORVAVersionRecord, major, 8);
MORVA_LAYOUT_FIELD(MORVAVersionRecord, minor, 12);
MORVA_LAYOUT_FIELD(MORVAVersionRecord, patch, 16);
MORVA_LAYOUT_FIELD(MORVAVersionRecord, hostMajor, 20);
MORVA_LAYOUT_FIELD(MORVAVersionRecord, hostMinor, 24);
MORVA_LAYOUT_FIELD(MORVAVersionRecord, hostPatch, 28);
MORVA_LAYOUT_FIELD(MORVAVersionRecord, product, 32);
MORVA_LAYOUT_FIELD(MORVAVersionRecord, version, 64);
MORVA_LAYOUT_FIELD(MORVAVersionRecord, compiler, 80);
MORVA_LAYOUT_FIELD(MORVAVersionRecord, reserved, 144);
MORVA_LAYOUT_SIZE(MORVAVersionRecord, 208);

MORVA_BEGIN_C

/**
 * The host's service table. Written by the host, directly or through qzextent
 * or qzextver, before any other call; read by morva, MORVACreate and
 * MORVADefineDone. The library never clears it.
 */
extern MORVA_API HostServices *Exported_QZHandle;

/** Stores `table` in Exported_QZHandle. Answers 0. */
MORVA_API MORVAStatus qzextent(HostServices *table);

/**
 * Answers the host interface version the library is built for, 6 and 1,
 * through `major` and `minor` (a null place is left out), then stores `table`
 * as qzextent does. Answers 0.
 */
MORVA_API MORVAStatus qzextver(HostServices *table, int64_t *major, int64_t *minor);

/** Copies the version record into `buffer`, which has room for 208 bytes; null copies nothing. */
MORVA_API void qzvercn1(MORVAVersionRecord *buffer);

/**
 * Stores the host version required, 6, 1 and 1, through the three places (a
 * null place is left out). Answers 0. `ext` is not looked at.
 */
MORVA_API MORVAStatus MORVAGetReqVersion(MORVAExt *ext, int64_t *a, int64_t *b, int64_t *c);

/** As MORVAGetReqVersion, with the library's own version: 1, 0 and 3. */
MORVA_API MORVAStatus MORVAGetVersion(MORVAExt *ext, int64_t *a, int64_t *b, int64_t *c);

/**
 * Destroys the extension's pool, and with it `ext` and all it ever took:
 * instances still alive lose their memory. Answers 0, or MORVA_INVALID for a
 * null `ext`. Called once no operation on any of its instances runs or follows.
 */
MORVA_API MORVAStatus MORVARealDestroy(MORVAExt *ext);

/**
 * Makes an instance.
 *
 * @param ext          the extension object; null answers null
 * @param parms        the parameters; null answers null. `hashExp` is written back once the
 *                     key mode's storage has been made
 * @param hostContext  handed unchanged to HostServices.createLock
 * @param name         NUL-terminated, copied; may be null
 * @return the instance, owned by the caller until MORVADestroy; or null when the option bits
 *         exclude each other, the record does not fit in 32 bits, or the host could not supply
 *         a pool, a companion, an object, the buckets or the lock. All that was made is released
 *         again, except the lock of a creation that fails while the order list is made: that
 *         one is left to the host.
 *
 * Any number of threads may create at once. Cost: one block of
 * 16 * 2^hashExp + 32 bytes is zeroed.
 */
MORVA_API MORVAInst *MORVACreate(MORVAExt *ext, MORVAParms *parms, void *hostContext,
                                 const char *name);

#if defined(__cplusplus)
}
/* In C++ the entry function lives in the namespace of the same name: morva::morva. */
namespace morva {
extern "C" {
#endif

/**
 * The entry function: makes the pool "MORVA Extension" with `context` as its
 * context word, and the extension object in it. `unused` is not read. Null
 * when Exported_QZHandle is null or there is no memory.
 */
MORVA_API MORVAExt *morva(void *unused, void *context);

#if defined(__cplusplus)
}
} /* namespace morva */
#else
MORVA_END_C
#endif

#endif
