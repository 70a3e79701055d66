// Files and extensions that are not to be had, and the sentences that say so.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "loader_test.h"

namespace host_test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

struct Broken {
  const char *name;
  const char *sentence;
};

void PrintTo(const Broken &broken, std::ostream *out) {
  *out << broken.name;
}

class BrokenExtensions : public ::testing::TestWithParam<Broken> {};

INSTANTIATE_TEST_SUITE_P(
    Fixtures, BrokenExtensions,
    ::testing::Values(Broken{"without_qzextver", "no entry point 'qzextver'"},
                      Broken{"without_morva", "no entry point 'morva'"},
                      Broken{"refuses_table", "status 0x803fc004"},
                      Broken{"older_major", "needs host 5.1, this host is 6.1.1"},
                      Broken{"newer_major", "needs host 7.1, this host is 6.1.1"},
                      Broken{"newer_minor", "needs host 6.2, this host is 6.1.1"},
                      Broken{"negative_minor", "needs host 6.-1, this host is 6.1.1"},
                      Broken{"answers_null", "answered no extension object"},
                      Broken{"wrong_eye_catcher", "not an extension object"},
                      Broken{"long_eye_catcher", "not an extension object"},
                      Broken{"without_real_destroy", "not an extension object"},
                      Broken{"without_create", "without 'Create'"},
                      Broken{"without_req_version", "without 'GetReqVersion'"},
                      Broken{"fails_req_version", "status 0x803fc009"},
                      Broken{"requires_newer_patch", "needs host 6.1.2, this host is 6.1.1"},
                      Broken{"requires_newer_minor", "needs host 6.2.0, this host is 6.1.1"},
                      Broken{"requires_newer_major", "needs host 7.0.0, this host is 6.1.1"}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_P(BrokenExtensions, AreRefusedWithASentenceAndNothingStaysBehind) {
  const std::string file = fixture(GetParam().name);
  HostPtr host = makeHost();
  const size_t descriptors = openDescriptors();
  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(failure(host, file), AllOf(HasSubstr(file), HasSubstr(GetParam().sentence)));
    EXPECT_FALSE(isLoaded(file));
    const QZHostStats stats = statsOf(host);
    EXPECT_EQ(stats.extensions, 0u);
    EXPECT_EQ(stats.pools, 0u);
    EXPECT_EQ(stats.bytesMapped, 0u);
  }
  EXPECT_EQ(openDescriptors(), descriptors);
  // The host is as good as before.
  EXPECT_TRUE(works(load(host, kMorva)));
  EXPECT_EQ(QZHostDestroy(host.release(), nullptr), 0u);
}

TEST_P(BrokenExtensions, AreLeftWithoutTheTable) {
  const std::string file = fixture(GetParam().name);
  void *handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(handle, nullptr);
  const HostPtr host = makeHost();
  failure(host, file);
  EXPECT_EQ(*static_cast<HostServices **>(dlsym(handle, "Exported_QZHandle")), nullptr);
  // And another host may try.
  EXPECT_THAT(failure(makeHost(), file), HasSubstr(GetParam().sentence));
  dlclose(handle);
}

TEST(LoaderFailures, AnObjectThatCannotBeUsedIsDestroyedAgain) {
  const std::string file = fixture("requires_newer_patch");
  void *handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  failure(makeHost(), file);
  EXPECT_EQ(*static_cast<uint32_t *>(dlsym(handle, "fixtureObjects")), 1u);
  EXPECT_EQ(*static_cast<uint32_t *>(dlsym(handle, "fixtureDestroyed")), 1u);
  dlclose(handle);
}

TEST(LoaderFailures, ExtensionsForOlderHostsAreNone) {
  const HostPtr host = makeHost();
  for (const char *name : {"older_minor", "requires_older"})
    unload(host, load(host, fixture(name)));
}

// ---- files -----------------------------------------------------------------------

TEST(LoaderFailures, AMissingFileIsNamed) {
  const HostPtr host = makeHost();
  const std::string file = ::testing::TempDir() + "no_such_file.so";
  EXPECT_THAT(failure(host, file),
              AllOf(HasSubstr("cannot load '" + file), HasSubstr("No such file")));
  EXPECT_THAT(failure(host, "libnosuchlibrary.so.1"), HasSubstr("libnosuchlibrary.so.1"));
}

TEST(LoaderFailures, AFileThatIsNoLibraryIsNamed) {
  const HostPtr host = makeHost();
  const std::string file = ::testing::TempDir() + "loader_test_text.so";
  for (const size_t bytes : {0, 1, 100, 100000}) {
    std::ofstream(file) << std::string(bytes, 'x');
    EXPECT_THAT(failure(host, file), HasSubstr("cannot load '" + file));
  }
  // The start of a library's header, and no more.
  std::ifstream whole(kMorva, std::ios::binary);
  std::string start(40, '\0');
  whole.read(start.data(), static_cast<std::streamsize>(start.size()));
  std::ofstream(file, std::ios::binary) << start;
  EXPECT_THAT(failure(host, file), HasSubstr("cannot load '" + file));
  unlink(file.c_str());
}

TEST(LoaderFailures, ADirectoryIsNamed) {
  EXPECT_THAT(failure(makeHost(), ::testing::TempDir()),
              HasSubstr("cannot load '" + ::testing::TempDir()));
}

TEST(LoaderFailures, AFileThatMayNotBeReadIsNamed) {
  // Nobody has an open file of that number, not even the super-user.
  EXPECT_THAT(failure(makeHost(), "/proc/self/fd/987654"), HasSubstr("/proc/self/fd/987654"));
}

TEST(LoaderFailures, NullsAreRefused) {
  const HostPtr host = makeHost();
  EXPECT_THAT(failure(host.get(), nullptr), HasSubstr("no file"));
  EXPECT_THAT(failure(host.get(), ""), HasSubstr("no file"));
  EXPECT_THAT(failure(nullptr, kMorva.c_str()), AllOf(HasSubstr("no host"), HasSubstr(kMorva)));
  EXPECT_THAT(failure(nullptr, nullptr), HasSubstr("no file"));
  EXPECT_EQ(QZHostLoad(nullptr, nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(QZHostUnload(nullptr, nullptr, nullptr, 0), 1u);
  EXPECT_FALSE(isLoaded(kMorva));
}

TEST(LoaderFailures, TheLimitMayLeaveNoRoomForAnExtension) {
  const HostPtr host = makeHostWithLimit(4096);
  EXPECT_THAT(failure(host, kMorva), AllOf(HasSubstr(kMorva), HasSubstr("no extension object")));
  EXPECT_FALSE(isLoaded(kMorva));
  EXPECT_EQ(statsOf(host).pools, 0u);
  EXPECT_EQ(statsOf(host).bytesMapped, 0u);
  EXPECT_EQ(statsOf(host).allocationsRefused, 1u);
}

// ---- sentences ---------------------------------------------------------------------

TEST(LoaderFailures, SentencesAreCutToTheBuffer) {
  const HostPtr host = makeHost();
  const std::string file = fixture("without_morva"), whole = failure(host, file);
  for (const size_t size : {1, 2, 8, 20, 64}) {
    std::vector<char> error(size + 8, '#');
    EXPECT_EQ(QZHostLoad(host.get(), file.c_str(), error.data(), size), nullptr);
    EXPECT_EQ(std::string(error.data()), whole.substr(0, size - 1));
    for (size_t i = size; i < error.size(); ++i) EXPECT_EQ(error[i], '#') << size;
  }
  std::vector<char> exact(whole.size() + 1, '#');
  QZHostLoad(host.get(), file.c_str(), exact.data(), exact.size());
  EXPECT_EQ(std::string(exact.data()), whole);
}

TEST(LoaderFailures, WithoutABufferNothingIsWritten) {
  const HostPtr host = makeHost();
  char untouched[] = "####";
  EXPECT_EQ(QZHostLoad(host.get(), fixture("without_morva").c_str(), untouched, 0), nullptr);
  EXPECT_EQ(QZHostUnload(host.get(), nullptr, untouched, 0), 1u);
  EXPECT_STREQ(untouched, "####");
  EXPECT_EQ(QZHostLoad(host.get(), fixture("without_morva").c_str(), nullptr, 100), nullptr);
  EXPECT_EQ(QZHostUnload(host.get(), nullptr, nullptr, 100), 1u);
}

TEST(LoaderFailures, RefusalsToUnloadAreCutToTheBuffer) {
  const HostPtr host = makeHost();
  char error[9] = "########";
  EXPECT_EQ(QZHostUnload(host.get(), nullptr, error, 8), 1u);
  EXPECT_STREQ(error, "no exte");
  EXPECT_EQ(QZHostUnload(host.get(), nullptr, error, 1), 1u);
  EXPECT_STREQ(error, "");
}

}  // namespace
}  // namespace host_test
