// Faults of the way in, of creation and of the extension object; and where the faults of instances
// are put into them.
#include <dlfcn.h>

#include <mutex>

#include "faulty_slots.h"

namespace {

void *(*g_allocate)(HostPool *pool, uint64_t size, uint32_t options) = nullptr;
MORVAExt *g_extension = nullptr;
bool g_tableStored = false;
HostLock *g_lock = nullptr;

// The name anew, with its terminator.
void terminateName(MORVAInst *inst, const char *name) {
  if (inst->name == nullptr || name == nullptr) return;
  HostPool *pool = inst->ext->pool;
  const size_t size = std::strlen(name) + 1;
  pool->free(pool, inst->name);
  inst->name = static_cast<char *>(pool->allocate(pool, size, 0));
  if (inst->name != nullptr) std::memcpy(inst->name, name, size);
}

struct Services : HostServices {
  HostServices *real;
};

HostServices *realOf(HostServices *services) {
  return static_cast<Services *>(services)->real;
}

HostLock *createLock(HostServices *services, const LockOptions *options, void *context,
                     const char *name) {
  LockOptions changed = *options;
  if (faultIs("create-forgets-the-lock-option")) changed.option1 = 1;
  HostServices *real = realOf(services);
  return g_lock = real->createLock(real, &changed, context, name);
}

HostPool *createPool(HostServices *services, const PoolOptions *options, void *context,
                     const char *name) {
  PoolOptions changed = *options;
  if (faultIs("create-forgets-the-pool-option")) changed.options = 0;
  HostServices *real = realOf(services);
  return real->createPool(real, &changed, context, name);
}

void *loadExtension(HostServices *services, const uint32_t *name, uint64_t length,
                    uint64_t reserved) {
  HostServices *real = realOf(services);
  return real->loadExtension(real, name, length,
                             faultIs("create-asks-for-something-reserved") ? 1 : reserved);
}

MORVAInst *createOn(MORVAExt *ext, MORVAParms *parms, void *hostContext, const char *name) {
  static std::mutex oneAtATime;
  const std::lock_guard<std::mutex> guard(oneAtATime);
  Services services = {};
  services.createLock = createLock;
  services.createPool = createPool;
  services.loadExtension = loadExtension;
  HostServices *const real = Exported_QZHandle;
  services.real = real;
  Exported_QZHandle = &services;
  g_lock = nullptr;
  MORVAInst *inst = MORVACreate(ext, parms, hostContext, name);
  Exported_QZHandle = real;
  if (inst == nullptr && g_lock != nullptr && faultIs("create-destroys-the-lock")) {
    g_lock->destroy(g_lock);
  }
  return inst;
}

bool breaksServices() {
  return faultIs("create-forgets-the-lock-option") || faultIs("create-forgets-the-pool-option") ||
         faultIs("create-asks-for-something-reserved") || faultIs("create-destroys-the-lock");
}

MORVAInst *createFaulty(MORVAExt *ext, MORVAParms *parms, void *hostContext, const char *name) {
  MORVAParms usual = {};
  usual.flags = flagVarKey;
  if (parms == nullptr && faultIs("create-needs-no-parameters")) parms = &usual;
  if (parms == nullptr) return MORVACreate(ext, parms, hostContext, name);
  const MORVAParms given = *parms;
  if (faultIs("create-accepts-two-key-modes") && (given.flags & flagFixedKey) != 0) {
    parms->flags &= ~uint32_t{flagVarKey};
  }
  if (faultIs("create-ignores-the-hint")) parms->memHint = 0;
  MORVAInst *inst = breaksServices() ? createOn(ext, parms, hostContext, name)
                                     : MORVACreate(ext, parms, hostContext, name);
  parms->flags = given.flags;
  parms->memHint = given.memHint;
  if (faultIs("create-keeps-the-exponent")) parms->hashExp = given.hashExp;
  if (inst == nullptr) {
    if (faultIs("create-leaks-when-it-fails") && ext != nullptr) {
      ext->pool->allocate(ext->pool, sizeof(MORVAInst), MORVA_ZERO_FILL);
    }
    return nullptr;
  }
  if (faultIs("create-terminates-the-name")) terminateName(inst, name);
  if (faultIs("create-leaks-a-block")) ext->pool->allocate(ext->pool, 16, 0);
  if (faultIs("create-takes-flag-defined")) inst->flags |= given.flags & flagDefined;
  if (faultIs("create-keeps-flag-unordered")) inst->flags |= given.flags & flagUnordered;
  for (const auto faults : {recordFaults(), tableFaults()}) {
    for (const SlotFault &fault : faults) {
      if (faultIs(fault.name)) fault.patch(inst);
    }
  }
  return inst;
}

MORVAStatus versionForgetsANumber(MORVAExt *ext, int64_t *a, int64_t *b, int64_t *) {
  return MORVAGetVersion(ext, a, b, nullptr);
}

MORVAStatus realDestroyForgetsThePool(MORVAExt *ext) {
  return ext == nullptr ? MORVA_INVALID : MORVA_OK;
}

// Clears memory itself, and does not ask for zeros.
void *allocateUncleared(HostPool *pool, uint64_t size, uint32_t options) {
  void *block = g_allocate(pool, size, 0);
  if (block != nullptr && (options & MORVA_ZERO_FILL) != 0) std::memset(block, 0, size);
  return block;
}

void breakExtension(MORVAExt *ext) {
  ext->Create = createFaulty;
  if (faultIs("version-forgets-a-number")) ext->GetVersion = versionForgetsANumber;
  if (faultIs("real-destroy-forgets-the-pool")) ext->RealDestroy = realDestroyForgetsThePool;
  if (faultIs("entry-fills-a-slot-too-many")) ext->slot5 = ext;
  if (faultIs("create-asks-for-no-zeros")) {
    g_allocate = ext->pool->allocate;
    ext->pool->allocate = allocateUncleared;
  }
}

}  // namespace

namespace morva {

extern "C" MORVA_API MORVAExt *morva(void *unused, void *context) {
  const auto entry = reinterpret_cast<decltype(&morva)>(dlsym(RTLD_NEXT, "morva"));
  if (faultIs("entry-answers-null")) return nullptr;
  if (faultIs("entry-needs-no-table") && Exported_QZHandle == nullptr) {
    static MORVAExt nobody = {};
    return &nobody;
  }
  if (faultIs("entry-ignores-a-stored-table") && !g_tableStored) return nullptr;
  if (faultIs("entry-answers-one-object") && g_extension != nullptr) return g_extension;
  MORVAExt *ext = entry(unused, faultIs("entry-forgets-the-context") ? nullptr : context);
  if (ext != nullptr) {
    breakExtension(ext);
  } else if (faultIs("entry-leaks-a-pool") && Exported_QZHandle != nullptr) {
    const PoolOptions options = {};
    Exported_QZHandle->createPool(Exported_QZHandle, &options, context, "MORVA Extension");
  }
  return g_extension = ext;
}

extern "C" MORVA_API MORVAStatus qzextent(HostServices *table) {
  g_tableStored = true;
  return reinterpret_cast<decltype(&qzextent)>(dlsym(RTLD_NEXT, "qzextent"))(table);
}

}  // namespace morva
