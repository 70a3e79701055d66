// What the suites on the companions share: an embedded host, its companions at
// hand, the linked library attached to it, and short ways to make instances. At
// the end of its scope nothing may be left on the host.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "morva/host.h"
#include "morva/morva.h"

namespace host_test {

inline QZHostOptions optionsWith(uint64_t memoryLimit, bool lockedTrees) {
  QZHostOptions options = QZ_HOST_OPTIONS_DEFAULT;
  options.memoryLimit = memoryLimit;
  options.lockedTrees = lockedTrees ? 1 : 0;
  return options;
}

class CompanionHost {
 public:
  explicit CompanionHost(bool lockedTrees = false, uint64_t memoryLimit = 0) {
    const QZHostOptions options = optionsWith(memoryLimit, lockedTrees);
    host_ = QZHostCreate(&options);
    if (host_ == nullptr) std::abort();
    trees = static_cast<TreeExt *>(load(U"qzeavl", 6));
    packers = static_cast<RecordPackerExt *>(load(U"qzevp", 5));
    orderLists = static_cast<OrderListExt *>(load(U"qzeai", 5));
  }
  ~CompanionHost() {
    while (!made_.empty()) destroy(made_.back());
    trees->release(trees);
    packers->release(packers);
    orderLists->release(orderLists);
    EXPECT_EQ(QZHostDestroy(host_, nullptr), 0u);
  }
  CompanionHost(const CompanionHost &) = delete;
  CompanionHost &operator=(const CompanionHost &) = delete;

  HostServices *services() const { return QZHostServices(host_); }

  QZHostStats stats() const {
    QZHostStats stats{};
    QZHostGetStats(host_, &stats);
    return stats;
  }

  // The linked library on this host; attached at the first call.
  MORVAExt *ext() {
    if (ext_ != nullptr) return ext_;
    const QZEntryPoints entry{"morva", qzextver, morva::morva};
    char error[256] = "";
    ext_ = QZHostAttach(host_, &entry, error, sizeof error);
    if (ext_ == nullptr) ADD_FAILURE() << error;
    return ext_;
  }

  // An instance, destroyed with the host if not before.
  MORVAInst *create(uint32_t flags, uint32_t keyLength = 8, uint32_t dataLength = 8,
                    int32_t hashExp = 4) {
    MORVAParms parms = {};
    parms.flags = flags;
    parms.keyLength = keyLength;
    parms.dataLength = dataLength;
    parms.hashMethod = 2;
    parms.hashExp = hashExp;
    MORVAInst *inst = ext()->Create(ext(), &parms, nullptr, "table");
    if (inst == nullptr) {
      ADD_FAILURE() << "no instance";
    } else {
      made_.push_back(inst);
    }
    return inst;
  }

  void destroy(MORVAInst *inst) {
    std::erase(made_, inst);
    EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
  }

  TreeExt *trees;
  RecordPackerExt *packers;
  OrderListExt *orderLists;

 private:
  void *load(const char32_t *name, uint64_t length) {
    std::vector<uint32_t> characters(name, name + length);
    void *companion = services()->loadExtension(services(), characters.data(), length, 0);
    if (companion == nullptr) std::abort();
    return companion;
  }

  QZHost *host_;
  MORVAExt *ext_ = nullptr;
  std::vector<MORVAInst *> made_;
};

}  // namespace host_test
