// The way in: the service table pointer, the entry function and the extension
// object.
#include "ext/services.h"
#include "ext/version.h"

HostServices *Exported_QZHandle = nullptr;

namespace {

using morva::core::Version;

void store(int64_t *place, int64_t value) {
  if (place != nullptr) *place = value;
}

MORVAStatus answer(const Version &version, int64_t *a, int64_t *b, int64_t *c) {
  store(a, version.major);
  store(b, version.minor);
  store(c, version.patch);
  return MORVA_OK;
}

}  // namespace

extern "C" {

MORVAStatus qzextent(HostServices *table) {
  Exported_QZHandle = table;
  return MORVA_OK;
}

MORVAStatus qzextver(HostServices *table, int64_t *major, int64_t *minor) {
  static_assert(MORVA_HOST_MAJOR == morva::core::kHostVersion.major &&
                MORVA_HOST_MINOR == morva::core::kHostVersion.minor);
  store(major, MORVA_HOST_MAJOR);
  store(minor, MORVA_HOST_MINOR);
  return qzextent(table);
}

MORVAStatus MORVAGetReqVersion(MORVAExt *, int64_t *a, int64_t *b, int64_t *c) {
  return answer(morva::core::kHostVersion, a, b, c);
}

MORVAStatus MORVAGetVersion(MORVAExt *, int64_t *a, int64_t *b, int64_t *c) {
  return answer(morva::core::kOwnVersion, a, b, c);
}

MORVAStatus MORVARealDestroy(MORVAExt *ext) {
  if (ext == nullptr) return MORVA_INVALID;
  HostPool *pool = ext->pool;  // holds `ext` itself
  pool->destroy(pool);
  return MORVA_OK;
}

MORVAExt *morva::morva(void *, void *context) {
  HostPool *pool = core::createPool(0, context, "MORVA Extension");
  if (pool == nullptr) return nullptr;
  auto *ext = static_cast<MORVAExt *>(pool->allocate(pool, sizeof(MORVAExt), MORVA_ZERO_FILL));
  if (ext == nullptr) {
    pool->destroy(pool);
    return nullptr;
  }
  ext->pool = pool;
  ext->GetReqVersion = MORVAGetReqVersion;
  ext->GetVersion = MORVAGetVersion;
  ext->RealDestroy = MORVARealDestroy;
  ext->Create = MORVACreate;
  for (int i = 0; i < 4; ++i) ext->eyeCatcher[i] = "nevo"[i];
  return ext;
}

}  // extern "C"
