// Libraries that the program has given a table of its own, or that are not what
// the others are.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "loader_test.h"
#include "system.h"

namespace host_test {
namespace {

using ::testing::HasSubstr;

const std::string kSound = fixture("sound");

TEST(Loading, FailsWithASentenceWhereTheSystemGivesNoReason) {
  const HostPtr host = makeHost();
  const Instead refused(theSystem.dlopen, [](const char *, int) -> void * { return nullptr; });
  const Instead silent(theSystem.dlerror, []() -> char * { return nullptr; });
  EXPECT_EQ(failure(host, kSound), "cannot load '" + kSound + "': unknown reason");
}

TEST(Loading, LeavesALibraryToTheProgramThatGaveItATable) {
  const HostPtr programs = makeHost(), host = makeHost();
  void *handle = dlopen(kSound.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(handle, nullptr);
  auto **table = static_cast<HostServices **>(dlsym(handle, "Exported_QZHandle"));
  *table = QZHostServices(programs.get());

  MORVAExt *ext = load(host, kSound);
  ASSERT_NE(ext, nullptr);
  Dl_info at{};
  ASSERT_NE(dladdr(reinterpret_cast<void *>(ext->Create), &at), 0);
  EXPECT_STRNE(at.dli_fname, kSound.c_str());
  EXPECT_EQ(*table, QZHostServices(programs.get()));
  unload(host, ext);
  *table = nullptr;
  dlclose(handle);
}

TEST(Loading, ServesALibraryThatKeepsItsTableToItself) {
  const HostPtr host = makeHost();
  const Instead hidden(theSystem.dlsym, [](void *handle, const char *symbol) -> void * {
    return strcmp(symbol, "Exported_QZHandle") == 0 ? nullptr : real::dlsym(handle, symbol);
  });
  MORVAExt *ext = load(host, kSound);
  ASSERT_NE(ext, nullptr);
  unload(host, ext);
}

// ---- attaching -----------------------------------------------------------------

uint32_t destroyed = 0;

// Needs no pool of the host's.
MORVAExt *poolless(void *, void *) {
  static MORVAExt object;
  object = {};
  memcpy(object.eyeCatcher, "nevo", 4);
  object.GetReqVersion = [](MORVAExt *, int64_t *a, int64_t *b, int64_t *c) -> MORVAStatus {
    *a = 6;
    *b = 1;
    *c = 1;
    return MORVA_OK;
  };
  object.RealDestroy = [](MORVAExt *) -> MORVAStatus {
    ++destroyed;
    return MORVA_OK;
  };
  object.Create = [](MORVAExt *, MORVAParms *, void *, const char *) -> MORVAInst * {
    return nullptr;
  };
  return &object;
}

MORVAStatus greets(HostServices *, int64_t *major, int64_t *minor) {
  *major = 6;
  *minor = 1;
  return MORVA_OK;
}

TEST(Attaching, TakesAnObjectThatNeedsNoPool) {
  const HostPtr host = makeHost();
  HostPool *pool = makePool(host);  // of nobody's
  const QZEntryPoints entry{"poolless", greets, poolless};
  char error[256] = "";
  MORVAExt *ext = QZHostAttach(host.get(), &entry, error, sizeof error);
  ASSERT_NE(ext, nullptr) << error;
  EXPECT_EQ(statsOf(host).extensions, 1u);
  destroyed = 0;
  unload(host, ext);
  EXPECT_EQ(destroyed, 1u);
  EXPECT_EQ(statsOf(host).extensions, 0u);
  pool->destroy(pool);
}

TEST(Attaching, IsRefusedOfALibraryThatTheProgramGaveATable) {
  const HostPtr programs = makeHost(), host = makeHost();
  static HostServices *table = nullptr;
  const Instead linked(theSystem.dlsym, [](void *handle, const char *symbol) -> void * {
    if (strcmp(symbol, "morva") == 0) return reinterpret_cast<void *>(poolless);
    return strcmp(symbol, "Exported_QZHandle") == 0 ? static_cast<void *>(&table)
                                                    : real::dlsym(handle, symbol);
  });
  const QZEntryPoints entry{"linked", greets, poolless};
  char error[256] = "";
  table = QZHostServices(programs.get());
  EXPECT_EQ(QZHostAttach(host.get(), &entry, error, sizeof error), nullptr);
  EXPECT_STREQ(error, "'linked' serves another host");
  table = nullptr;
  MORVAExt *ext = QZHostAttach(host.get(), &entry, error, sizeof error);
  ASSERT_NE(ext, nullptr) << error;
  unload(host, ext);
}

}  // namespace
}  // namespace host_test
