// Loading the library and releasing it, in a program it is not linked into.
#include "loader_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace host_test {
namespace {

using ::testing::HasSubstr;

TEST(Loader, LoadsTheLibraryAndReleasesIt) {
  ASSERT_FALSE(isLoaded(kMorva));
  const HostPtr host = makeHost();
  MORVAExt *ext = load(host, kMorva);
  ASSERT_NE(ext, nullptr);
  EXPECT_TRUE(isLoaded(kMorva));
  EXPECT_EQ(statsOf(host).extensions, 1u);
  EXPECT_EQ(statsOf(host).pools, 1u);
  EXPECT_TRUE(works(ext));
  unload(host, ext);
  EXPECT_FALSE(isLoaded(kMorva));
  EXPECT_EQ(statsOf(host).extensions, 0u);
  EXPECT_EQ(statsOf(host).pools, 0u);
  EXPECT_EQ(statsOf(host).bytesMapped, 0u);
}

TEST(Loader, LoadsAgainWhatWasReleased) {
  const HostPtr host = makeHost();
  for (int i = 0; i < 5; ++i) {
    MORVAExt *ext = load(host, kMorva);
    EXPECT_TRUE(works(ext));
    unload(host, ext);
  }
}

TEST(Loader, ErrorsMayBeNull) {
  const HostPtr host = makeHost();
  MORVAExt *ext = QZHostLoad(host.get(), kMorva.c_str(), nullptr, 0);
  ASSERT_NE(ext, nullptr);
  EXPECT_EQ(QZHostUnload(host.get(), ext, nullptr, 0), 0u);
}

TEST(Loader, DestroyingTheHostReleasesEverything) {
  HostPtr host = makeHost();
  load(host, kMorva);
  load(host, kMorva);
  load(host, fixture("sound"));
  QZHostStats left{};
  EXPECT_EQ(QZHostDestroy(host.release(), &left), 0u);
  EXPECT_EQ(left.extensions, 3u);
  EXPECT_EQ(left.pools, 3u);
  EXPECT_FALSE(isLoaded(kMorva));
  EXPECT_FALSE(isLoaded(fixture("sound")));
}

TEST(Loader, OneHostHasOneCopyForAllItsExtensions) {
  const HostPtr host = makeHost();
  MORVAExt *first = load(host, kMorva), *second = load(host, kMorva);
  EXPECT_NE(first, second);
  EXPECT_EQ(first->Create, second->Create);
  EXPECT_EQ(statsOf(host).extensions, 2u);
  EXPECT_TRUE(works(first));
  EXPECT_TRUE(works(second));
  unload(host, first);
  EXPECT_TRUE(isLoaded(kMorva));
  EXPECT_TRUE(works(second));
  unload(host, second);
  EXPECT_FALSE(isLoaded(kMorva));
}

TEST(Loader, EveryHostHasACopyOfItsOwn) {
  const size_t descriptors = openDescriptors();
  {
    std::vector<HostPtr> hosts;
    std::vector<MORVAExt *> extensions;
    std::vector<MORVAInst *> instances;
    for (int i = 0; i < 6; ++i) {
      hosts.push_back(makeHost());
      extensions.push_back(load(hosts.back(), kMorva));
      instances.push_back(makeInstance(extensions.back()));
    }
    std::set<void *> entries;
    for (MORVAExt *ext : extensions) entries.insert(reinterpret_cast<void *>(ext->Create));
    EXPECT_EQ(entries.size(), 6u);
    // All of them by turns, each on the services of its own host.
    for (uint64_t round = 0; round < 5; ++round) {
      for (MORVAInst *inst : instances) EXPECT_TRUE(works(inst, round * 100, 100));
    }
    for (size_t i = 0; i < hosts.size(); ++i) {
      MORVAInst *second = makeInstance(extensions[i]);
      for (size_t k = 0; k < hosts.size(); ++k)
        EXPECT_EQ(statsOf(hosts[k]).locks, k < i ? 0u : k == i ? 2u : 1u);
      second->Destroy(second);
      instances[i]->Destroy(instances[i]);
    }
    // In an order that is neither that of loading nor its reverse.
    for (const size_t i : {2, 0, 5, 1, 4, 3}) {
      EXPECT_TRUE(works(extensions[i]));
      unload(hosts[i], extensions[i]);
    }
  }
  EXPECT_FALSE(isLoaded(kMorva));
  EXPECT_EQ(mappings("memfd:"), 0u);
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(Loader, AHostWithAPrivateCopyUsesThatOneAgain) {
  const HostPtr first = makeHost(), second = makeHost();
  load(first, kMorva);
  MORVAExt *a = load(second, kMorva);
  const size_t descriptors = openDescriptors(), lines = mappings("memfd:");
  EXPECT_GT(lines, 0u);
  MORVAExt *b = load(second, kMorva);
  EXPECT_EQ(a->Create, b->Create);
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_EQ(mappings("memfd:"), lines);
  unload(second, a);
  EXPECT_TRUE(works(b));
  unload(second, b);
  EXPECT_EQ(mappings("memfd:"), 0u);
  EXPECT_TRUE(works(load(second, kMorva)));
}

TEST(Loader, OtherNamesOfAFileAreTheSameCopy) {
  const std::string link = ::testing::TempDir() + "loader_test_link.so";
  unlink(link.c_str());
  ASSERT_EQ(symlink(kMorva.c_str(), link.c_str()), 0);
  const HostPtr first = makeHost(), second = makeHost();
  for (const HostPtr *host : {&first, &second}) {
    MORVAExt *a = load(*host, kMorva), *b = load(*host, link);
    EXPECT_EQ(a->Create, b->Create);
    EXPECT_TRUE(works(a));
    EXPECT_TRUE(works(b));
  }
  unlink(link.c_str());
}

TEST(Loader, AFileLoadedByARelativeNameIsFoundAgainFromElsewhere) {
  const std::filesystem::path file = kMorva;
  char before[4096];
  ASSERT_NE(getcwd(before, sizeof before), nullptr);
  ASSERT_EQ(chdir(file.parent_path().c_str()), 0);
  const HostPtr first = makeHost();
  MORVAExt *ext = load(first, "." / file.filename());
  ASSERT_EQ(chdir("/"), 0);
  const HostPtr second = makeHost();
  EXPECT_TRUE(works(load(second, kMorva)));
  EXPECT_TRUE(works(ext));
  ASSERT_EQ(chdir(before), 0);
}

TEST(Loader, ACopyIsFreeForTheNextHostOnceItsHostIsGone) {
  void *code = nullptr;
  for (int i = 0; i < 3; ++i) {
    void *keep = dlopen(kMorva.c_str(), RTLD_NOW | RTLD_LOCAL);
    const HostPtr host = makeHost();
    MORVAExt *ext = load(host, kMorva);
    if (i > 0) {
      EXPECT_EQ(reinterpret_cast<void *>(ext->Create), code);
    }
    code = reinterpret_cast<void *>(ext->Create);
    if (i == 2) dlclose(keep);
  }
  // The handles of the first two rounds.
  for (int i = 0; i < 2; ++i) {
    void *handle = dlopen(kMorva.c_str(), RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(handle, nullptr);
    dlclose(handle);
    dlclose(handle);
  }
  EXPECT_FALSE(isLoaded(kMorva));
}

// ---- what is done to an extension --------------------------------------------

class Watched : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(handle, nullptr); }
  void TearDown() override { dlclose(handle); }
  uint32_t number(const char *name) { return *static_cast<uint32_t *>(dlsym(handle, name)); }
  HostServices *table() {
    return *static_cast<HostServices **>(dlsym(handle, "Exported_QZHandle"));
  }

  // Keeps it loaded, to be looked at.
  void *handle = dlopen(fixture("sound").c_str(), RTLD_NOW | RTLD_LOCAL);
  HostPtr host = makeHost();
};

TEST_F(Watched, GetsTheTableOnceAndIsDestroyedAsOftenAsItWasMade) {
  MORVAExt *first = load(host, fixture("sound")), *second = load(host, fixture("sound"));
  EXPECT_EQ(table(), QZHostServices(host.get()));
  EXPECT_EQ(number("fixtureTables"), 1u);
  EXPECT_EQ(number("fixtureObjects"), 2u);
  unload(host, first);
  EXPECT_EQ(table(), QZHostServices(host.get()));
  EXPECT_EQ(number("fixtureDestroyed"), 1u);
  unload(host, second);
  EXPECT_EQ(number("fixtureDestroyed"), 2u);
}

TEST_F(Watched, LosesTheTableWhenItsHostReleasesIt) {
  unload(host, load(host, fixture("sound")));
  EXPECT_EQ(table(), nullptr);
  {
    const HostPtr other = makeHost();
    load(other, fixture("sound"));
    EXPECT_EQ(table(), QZHostServices(other.get()));
  }
  EXPECT_EQ(table(), nullptr);
}

// ---- releasing -----------------------------------------------------------------

TEST(Unloading, IsRefusedWhileThereAreInstances) {
  const HostPtr host = makeHost();
  MORVAExt *ext = load(host, kMorva);
  MORVAInst *first = makeInstance(ext), *second = makeInstance(ext);
  for (MORVAInst *inst : {first, second}) {
    char error[1024] = "";
    EXPECT_EQ(QZHostUnload(host.get(), ext, error, sizeof error), 1u);
    EXPECT_THAT(error, HasSubstr(kMorva));
    EXPECT_THAT(error, HasSubstr("still has instances"));
    EXPECT_EQ(statsOf(host).extensions, 1u);
    EXPECT_TRUE(works(inst, 0, 100));
    EXPECT_EQ(QZHostUnload(host.get(), ext, nullptr, 0), 1u);
    inst->Destroy(inst);
  }
  unload(host, ext);
}

TEST(Unloading, IsRefusedForWhatIsNotTheHosts) {
  const HostPtr host = makeHost(), other = makeHost();
  MORVAExt *ext = load(host, kMorva);
  char error[1024];
  const auto refusal = [&](QZHost *of, MORVAExt *what) -> std::string {
    memset(error, 0, sizeof error);
    EXPECT_EQ(QZHostUnload(of, what, error, sizeof error), 1u);
    return error;
  };
  EXPECT_THAT(refusal(other.get(), ext), HasSubstr("not one of this host"));
  EXPECT_THAT(refusal(nullptr, ext), HasSubstr("no host"));
  EXPECT_THAT(refusal(host.get(), nullptr), HasSubstr("no extension"));
  MORVAExt object{};
  EXPECT_THAT(refusal(host.get(), &object), HasSubstr("not one of this host"));
  EXPECT_TRUE(works(ext));
  unload(host, ext);
  EXPECT_THAT(refusal(host.get(), ext), HasSubstr("not one of this host"));
}

TEST(Unloading, LeavesAnExtensionThatTheProgramDestroyedToTheHost) {
  HostPtr host = makeHost();
  MORVAExt *ext = load(host, kMorva);
  EXPECT_EQ(ext->RealDestroy(ext), MORVA_OK);
  EXPECT_EQ(statsOf(host).extensions, 0u);
  EXPECT_EQ(statsOf(host).pools, 0u);
  EXPECT_EQ(QZHostUnload(host.get(), ext, nullptr, 0), 1u);
  // Another one is made as before.
  EXPECT_TRUE(works(load(host, kMorva)));
  EXPECT_EQ(QZHostDestroy(host.release(), nullptr), 0u);
  EXPECT_FALSE(isLoaded(kMorva));
}

TEST(Unloading, LeavesOtherExtensionsOfTheHostAlone) {
  const HostPtr host = makeHost();
  MORVAExt *ext = load(host, kMorva), *other = load(host, fixture("sound"));
  unload(host, other);
  EXPECT_FALSE(isLoaded(fixture("sound")));
  EXPECT_TRUE(works(ext));
}

}  // namespace
}  // namespace host_test
