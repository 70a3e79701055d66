// Creation: options checked, operations installed, storage and companions made.
#include "ext/services.h"
#include "instance/destroy.h"
#include "instance/open_records.h"
#include "morva/operations.h"
#include "morva/port.h"

namespace morva::core {
namespace {

constexpr uint32_t kModeBits = flagFixedKey | flagVarKey | flagOrdered;

// Bits no host may give: the library's own state.
constexpr uint32_t kOwnFlags = flagDefined;

constexpr int32_t kDefaultHashExp = 8;
constexpr int32_t kLargestHashExp = 20;

// Bytes of the largest record blocks per unit of memHint, and the default hint.
constexpr double kBytesPerHint = 30.72;
constexpr int64_t kDefaultHint = 65536;

// 2^63: the first number that does not fit a signed 64-bit one.
constexpr double kTooManyBytes = 9223372036854775808.0;

constexpr int64_t largestBlockBytes(int64_t memHint) {
  const double bytes = static_cast<double>(memHint < 1 ? kDefaultHint : memHint) * kBytesPerHint;
  return bytes >= kTooManyBytes ? INT64_MAX : static_cast<int64_t>(bytes);
}
static_assert(largestBlockBytes(0) == 2013265);

void installOperations(MORVAInst &inst) {
  const bool general = has(inst, flagSum | flagMultiData);
  inst.Destroy = MORVADestroy;
  inst.Add = general ? MORVAAdd : MORVAFastAdd;
  inst.Replace = general ? MORVAReplace : MORVAFastReplace;
  inst.Find = general ? MORVAFind : MORVAFastFind;
  inst.Remove = MORVARemove;
  inst.DefineKey = MORVADefineKey;
  inst.DefineDone = MORVADefineDone;
  inst.Sum = MORVASum;
  inst.FindNext = MORVAFindNext;
  inst.FindPrev = MORVAFindPrev;
  inst.HasNext = MORVAHasNext;
  inst.HasPrev = MORVAHasPrev;
  inst.SumDup = MORVASumDup;
  inst.SumKey = MORVASumKey;
  inst.ReplaceDup = MORVAReplaceDup;
  inst.RemoveDup = MORVARemoveDup;
  inst.Clear = MORVAClear;
  inst.Equals = MORVAEquals;
  inst.HashVal = MORVAHashVal;
  inst.NumElements = MORVANumElements;
  inst.HashSize = MORVAHashSize;
  inst.BucketSize = MORVABucketSize;
  inst.SetSumInc = MORVASetSumInc;
  inst.RecSize = MORVARecSize;
  inst.TotalMem = MORVATotalMem;
  inst.Clear2 = MORVAClear2;
  inst.Find2 = MORVAFind2;
  inst.Recoff = MORVARecoff;
  inst.FindNode = MORVAFindNode;
}

bool optionsAgree(uint32_t flags) {
  const auto both = [flags](uint32_t bits) { return (flags & bits) == bits; };
  return !both(flagFixedKey | flagVarKey) && !both(flagVarKey | flagMultiData);
}

bool openVarStorage(MORVAInst &inst) {
  inst.varkeyPool = createPool(MORVA_POOL_VARKEYS, nullptr, "varkeys");
  if (inst.varkeyPool == nullptr || has(inst, flagSum)) return false;
  inst.flags |= flagDefined;
  return true;
}

bool openFixedStorage(MORVAInst &inst, uint32_t declaredKeyLength) {
  Layout layout;
  const uint64_t keyArea = uint64_t{declaredKeyLength} + kFixedKeyExtra;
  if (!computeLayout(keyArea, inst.dataLength, inst.flags, layout)) return false;
  applyLayout(inst, layout);
  inst.flags |= flagDefined;
  return openRecordPool(inst);
}

// The layout and the pool wait for the definition to be closed.
bool openPacker(MORVAInst &inst) {
  inst.vpExt = loadCompanion<RecordPackerExt>(U"qzevp");
  if (inst.vpExt == nullptr) return false;
  inst.recordPacker = inst.vpExt->makePacker(inst.vpExt, 0);
  return inst.recordPacker != nullptr;
}

bool openStorage(MORVAInst &inst, const MORVAParms &parms) {
  if (has(inst, flagVarKey)) return openVarStorage(inst);
  inst.recordBlockMax = largestBlockBytes(parms.memHint);
  return has(inst, flagFixedKey) ? openFixedStorage(inst, parms.keyLength) : openPacker(inst);
}

uint32_t hashMethodOf(const MORVAParms &parms) {
  const int32_t method = parms.hashMethod;
  const bool known = method >= kFirstHashMethod && method <= kLastHashMethod;
  return static_cast<uint32_t>(known ? method : kFirstHashMethod);
}

bool openBuckets(MORVAInst &inst, MORVAParms &parms) {
  int32_t exp = parms.hashExp;
  if (exp < 0) exp = kDefaultHashExp;
  if (exp > kLargestHashExp) exp = kLargestHashExp;
  parms.hashExp = exp;  // the caller reads the size it got
  HostPool *pool = inst.ext->pool;
  const uint64_t size = bucketArraySize(static_cast<uint32_t>(exp));
  inst.buckets = static_cast<BucketArray *>(pool->allocate(pool, size, MORVA_ZERO_FILL));
  if (inst.buckets == nullptr) return false;
  inst.buckets->mask = (uint32_t{1} << exp) - 1;
  return true;
}

bool openTree(MORVAInst &inst) {
  inst.treeExt = loadCompanion<TreeExt>(U"qzeavl");
  if (inst.treeExt == nullptr) return false;
  const TreeOptions options{
      .reserved0 = 0, .word0 = 0, .word1 = 1, .callbacks = &aa_tree, .reserved24 = 0};
  inst.tree = inst.treeExt->makeTree(inst.treeExt, &options, 0, 0);
  return inst.tree != nullptr;
}

bool openLock(MORVAInst &inst, void *hostContext, const char *name) {
  if (has(inst, flagNoLock)) return true;
  inst.lock = createLock(has(inst, flagLockOpt) ? 0 : 1, hostContext, name);
  return inst.lock != nullptr;
}

bool openOrder(MORVAInst &inst) {
  if (!has(inst, flagOrdered)) return true;
  inst.inodePool = createPool(0, nullptr, "inodes");
  if (inst.inodePool == nullptr) return false;
  inst.aiExt = loadCompanion<OrderListExt>(U"qzeai");
  if (inst.aiExt == nullptr) return false;
  inst.orderList = inst.aiExt->makeOrderList(inst.aiExt, inst.treeExt);
  if (inst.orderList == nullptr) return false;
  inst.flags &= ~uint32_t{flagUnordered};
  return true;
}

// Every step of a creation after the instance has its name; false fails it.
bool build(MORVAInst &inst, MORVAParms &parms, void *hostContext, const char *name) {
  installOperations(inst);
  inst.inodesUsed = kFirstCapacity;
  inst.inodeBlockCapacity = kFirstCapacity;
  inst.modeBits = inst.flags & kModeBits;
  inst.dataLength = parms.dataLength;
  if (!optionsAgree(inst.flags) || !openStorage(inst, parms)) return false;
  inst.hashMethod = hashMethodOf(parms);
  return openBuckets(inst, parms) && openTree(inst) && openLock(inst, hostContext, name) &&
         openOrder(inst);
}

}  // namespace
}  // namespace morva::core

extern "C" MORVAInst *MORVACreate(MORVAExt *ext, MORVAParms *parms, void *hostContext,
                                  const char *name) {
  using namespace morva::core;
  if (ext == nullptr || parms == nullptr) return nullptr;
  HostPool *pool = ext->pool;
  auto *inst = static_cast<MORVAInst *>(pool->allocate(pool, sizeof(Instance), MORVA_ZERO_FILL));
  if (inst == nullptr) return nullptr;
  inst->flags = parms->flags & ~kOwnFlags;
  inst->ext = ext;
  for (int i = 0; i < 4; ++i) inst->eyeCatcher[i] = "nevo"[i];
  // An instance does without its name when the copy cannot be had.
  inst->name = static_cast<char *>(skMemDup(name, skStrLen(name), pool));
  if (!build(*inst, *parms, hostContext, name)) {
    dismantle(inst, LockFate::left);
    return nullptr;
  }
  return inst;
}
