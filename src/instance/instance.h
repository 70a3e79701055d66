// The block of an instance, and the small questions every operation asks it.
//
// Who writes what: create, define and destroy write alone; everything else
// changes under the instance's lock, but for MORVAFindNode (free chain, blocks)
// and MORVAFind2 (sums), whose callers serialise. The counters that accessors
// read without the lock, and sumIncrement, are relaxed atomic accesses on both
// sides.
#pragma once

#include "ext/scope_lock.h"
#include "instance/free_index.h"
#include "morva/ext.h"

namespace morva::core {

// The selectors of hash methods; the first is the default.
inline constexpr int32_t kFirstHashMethod = 2;
inline constexpr int32_t kLastHashMethod = 9;

// What hosts see, then state of the library's own. Zero-filled at creation.
struct Instance {
  MORVAInst face;
  // definedKeyLength before it was cut to 32 bits; a layout that does not fit
  // is refused when the definition is closed.
  uint64_t definedKeyTotal;
  // With flagVarKey: over the older part of freeRecords.
  FreeIndex freeIndex;
  // Set once elementCount may be 0 or below while trees hold records: after an
  // order node could not be had, or past 2^31 records. Clearing then walks the
  // buckets whatever the count says.
  uint32_t countsDrifted;
};

static_assert(offsetof(Instance, face) == 0);
static_assert(offsetof(Instance, definedKeyTotal) == sizeof(MORVAInst));

inline Instance &ownState(MORVAInst &inst) {
  return reinterpret_cast<Instance &>(inst);
}

template <class T>
T relaxedLoad(const T &place) {
  T value;
  __atomic_load(&place, &value, __ATOMIC_RELAXED);
  return value;
}

template <class T>
void relaxedStore(T &place, T value) {
  __atomic_store(&place, &value, __ATOMIC_RELAXED);
}

// Only for places with one writer at a time: not one atomic step.
template <class T>
void relaxedAdd(T &place, T amount) {
  relaxedStore(place, static_cast<T>(relaxedLoad(place) + amount));
}

inline bool has(const MORVAInst &inst, uint32_t flags) {
  return (inst.flags & flags) != 0;
}

inline bool isDefined(const MORVAInst *inst) {
  return inst != nullptr && has(*inst, flagDefined);
}

// The lock that operations hold, or null where the caller serialises.
inline HostLock *lockOf(const MORVAInst &inst) {
  return has(inst, flagNoLock) ? nullptr : inst.lock;
}

// Releases the instance's lock without holding it. MORVAFind2, MORVAFindNode
// and a nested removal do so on some failures; hosts count on it.
inline void releaseUnheld(const MORVAInst &inst) {
  if (HostLock *lock = lockOf(inst)) lock->release(lock);
}

}  // namespace morva::core
