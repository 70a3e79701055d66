// The table that a faulty host exports, and the faults of a host as a whole.

#include "faulty_host.h"

#include <dlfcn.h>

#include "morva/host.h"

namespace faulty {

Originals originals;

const std::string theFault = [] {
  static const char here = 0;
  Dl_info info{};
  std::string path = dladdr(&here, &info) != 0 ? info.dli_fname : "";
  path.erase(0, path.rfind('/') + 1);
  return path.substr(0, path.rfind(".so"));
}();

namespace {

template <class Companion, size_t size>
Companion *load(HostServices *services, const uint32_t (&name)[size]) {
  return static_cast<Companion *>(services->loadExtension(services, name, size, 0));
}

void takeOriginals(HostServices *services) {
  originals.services = *services;
  auto *packers = load<RecordPackerExt, 5>(services, {'q', 'z', 'e', 'v', 'p'});
  auto *trees = load<TreeExt, 6>(services, {'q', 'z', 'e', 'a', 'v', 'l'});
  auto *lists = load<OrderListExt, 5>(services, {'q', 'z', 'e', 'a', 'i'});
  originals.packers = *packers;
  originals.trees = *trees;
  originals.lists = *lists;
  RecordPacker *packer = packers->makePacker(packers, 0);
  originals.packer = *packer;
  packer->destroy(packer);
  static const TreeCallbacks kNone{};
  const TreeOptions options{0, 0, 1, &kNone, 0};
  TreeContainer *tree = trees->makeTree(trees, &options, 0, 0);
  originals.tree = *tree;
  tree->destroy(tree);
  packers->release(packers);
  trees->release(trees);
  lists->release(lists);
}

HostServices *create(const MORVAHostRequest *request, void **host) {
  if (faultIs("makes-no-host")) return nullptr;
  QZHostOptions options = QZ_HOST_OPTIONS_DEFAULT;
  options.memoryLimit = request->memoryLimit;
  options.lockedTrees = request->lockedTrees;
  if (faultIs("ignores-the-limit")) options.memoryLimit = 0;
  if (faultIs("grants-four-times-the-limit")) options.memoryLimit *= 4;
  if (faultIs("grants-a-quarter-of-the-limit")) options.memoryLimit /= 4;
  QZHost *made = QZHostCreate(&options);
  *host = made;
  HostServices *services = QZHostServices(made);
  takeOriginals(services);
  spoilServices(services);
  return services;
}

uint32_t destroy(void *host) {
  QZHostStats left{};
  const uint32_t count = QZHostDestroy(static_cast<QZHost *>(host), &left);
  if (faultIs("counts-nothing")) return 0;
  if (faultIs("counts-no-locks")) return count - left.locks;
  if (faultIs("counts-companions-once")) {
    return left.companions > 1 ? count - left.companions + 1 : count;
  }
  if (faultIs("counts-one-too-many")) return count + 1;
  return count;
}

OrderNode *orderFirst(OrderList *list) {
  return static_cast<OrderNode *>(list->head);
}

OrderNode *orderNext(OrderNode *node) {
  return static_cast<OrderNode *>(node->link1);
}

// The embedded host's, which this library is linked with.
const MORVAHostCheck &embedded() {
  return *static_cast<const MORVAHostCheck *>(dlsym(RTLD_NEXT, "MORVAHostForCheck"));
}

}  // namespace

}  // namespace faulty

extern const MORVAHostCheck MORVAHostForCheck;
const MORVAHostCheck MORVAHostForCheck = {
    faulty::faultIs("has-another-version") ? MORVA_HOST_CHECK_VERSION + 1U
                                           : MORVA_HOST_CHECK_VERSION,
    0,
    faulty::create,
    faulty::destroy,
    faulty::orderFirst,
    faulty::faultIs("has-half-a-walk") ? nullptr : faulty::orderNext,
    faulty::embedded().keys,
    faulty::embedded().keyCount,
};
