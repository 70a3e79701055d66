#include "instance/destroy.h"

#include "instance/storage.h"
#include "morva/operations.h"

namespace morva::core {
namespace {

template <class Object>
void destroy(Object *object) {
  if (object != nullptr) object->destroy(object);
}

template <class Companion>
void release(Companion *companion) {
  if (companion != nullptr) companion->release(companion);
}

}  // namespace

void dismantle(MORVAInst *inst, LockFate lock) {
  destroy(inst->recordPacker);
  release(inst->vpExt);
  destroy(inst->tree);
  destroy(inst->orderList);
  release(inst->treeExt);
  release(inst->aiExt);
  if (lock == LockFate::destroyed && !has(*inst, flagNoLock)) destroy(inst->lock);
  // A pool takes its blocks with it: the block chains are not walked.
  destroy(has(*inst, flagVarKey) ? inst->varkeyPool : inst->recordPool);
  destroy(inst->inodePool);
  HostPool *pool = inst->ext->pool;
  if (inst->buckets != nullptr) pool->free(pool, inst->buckets);
  if (inst->name != nullptr) pool->free(pool, inst->name);
  pool->free(pool, inst);
}

}  // namespace morva::core

extern "C" MORVAStatus MORVADestroy(MORVAInst *inst) {
  using namespace morva::core;
  HostPool *pool = inst->ext->pool;
  freeChain(pool, inst->pinned);
  freeChain(pool, inst->extraBlocksB);
  dismantle(inst, LockFate::destroyed);
  return MORVA_OK;
}
