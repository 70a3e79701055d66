// Loading and releasing again and again leaves nothing behind.
#include <gtest/gtest.h>

#include "loader_test.h"

namespace host_test {
namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kCycles = 300;
#else
constexpr int kCycles = 1000;
#endif

// A cycle that left one mapping behind would pass this by far; what the
// sanitizers map for themselves as time goes on does not.
constexpr size_t kSlack = kCycles / 2;

template <class Cycle>
void expectNothingLeft(Cycle cycle) {
  for (int i = 0; i < 10; ++i) cycle();
  const size_t descriptors = openDescriptors(), lines = mappings(), files = mappings("memfd:");
  for (int i = 0; i < kCycles; ++i) cycle();
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_EQ(mappings("memfd:"), files);
  EXPECT_LE(mappings(), lines + kSlack);
}

TEST(LoaderCycles, OfTheLibraryLeaveNothingBehind) {
  const HostPtr host = makeHost();
  expectNothingLeft([&] { unload(host, load(host, kMorva)); });
  EXPECT_FALSE(isLoaded(kMorva));
  EXPECT_EQ(mappings(kMorva), 0u);
  EXPECT_EQ(statsOf(host).pools, 0u);
  EXPECT_EQ(statsOf(host).bytesMapped, 0u);
}

TEST(LoaderCycles, OfPrivateCopiesLeaveNothingBehind) {
  const HostPtr first = makeHost(), host = makeHost();
  MORVAExt *ext = load(first, kMorva);
  expectNothingLeft([&] { unload(host, load(host, kMorva)); });
  EXPECT_EQ(mappings("memfd:"), 0u);
  EXPECT_TRUE(works(ext));
}

TEST(LoaderCycles, OfWholeHostsLeaveNothingBehind) {
  const HostPtr first = makeHost();
  load(first, kMorva);
  expectNothingLeft([] {
    HostPtr a = makeHost(), b = makeHost();
    MORVAInst *inst = makeInstance(load(a, kMorva));
    load(b, kMorva);
    inst->Destroy(inst);
    EXPECT_EQ(QZHostDestroy(a.release(), nullptr), 0u);
    EXPECT_EQ(QZHostDestroy(b.release(), nullptr), 0u);
  });
  EXPECT_EQ(mappings("memfd:"), 0u);
}

TEST(LoaderCycles, OfFailuresLeaveNothingBehind) {
  const HostPtr host = makeHost();
  expectNothingLeft([&] {
    for (const char *name : {"without_morva", "answers_null", "newer_minor", "without_create"})
      QZHostLoad(host.get(), fixture(name).c_str(), nullptr, 0);
    QZHostLoad(host.get(), "/no/such/file.so", nullptr, 0);
  });
  EXPECT_EQ(mappings(FIXTURE_DIRECTORY), 0u);
}

}  // namespace
}  // namespace host_test
