// Which memory may lie on huge pages: what is counted by smaller steps must
// not, even where the system gives huge pages to everybody.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "qz_host.h"

namespace host_test {
namespace {

// The flags the system keeps for the mapping of that address, such as "hg" for
// huge pages asked for and "nh" for none wanted; "?" when it does not tell.
std::string flagsOf(const void *address) {
  std::ifstream maps("/proc/self/smaps");
  bool inside = false;
  for (std::string line; std::getline(maps, line);) {
    uintptr_t from = 0, to = 0;
    char dash = 0;
    std::istringstream words(line);
    if (words >> std::hex >> from >> dash >> to && dash == '-') {
      const auto wanted = reinterpret_cast<uintptr_t>(address);
      inside = from <= wanted && wanted < to;
    } else if (inside && line.starts_with("VmFlags:")) {
      return line + " ";
    }
  }
  return "?";
}

bool mayBeHuge(const void *address) {
  return flagsOf(address).find(" nh ") == std::string::npos;
}
bool askedForHuge(const void *address) {
  return flagsOf(address).find(" hg ") != std::string::npos;
}

HostPtr hostWithHugePages(uint32_t hugePages) {
  QZHostOptions options = QZ_HOST_OPTIONS_DEFAULT;
  options.hugePages = hugePages;
  return makeHost(options);
}

class PageSize : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(flagsOf(this), "?") << "the system tells nothing about its mappings";
  }
};

TEST_F(PageSize, TheFirstSmallBlocksOfAPoolStayOnSmallPages) {
  for (const uint32_t hugePages : {0u, 1u}) {
    const HostPtr host = hostWithHugePages(hugePages);
    HostPool *pool = makePool(host);
    EXPECT_FALSE(mayBeHuge(pool->allocate(pool, 100, 0))) << hugePages;
    EXPECT_LT(statsOf(host).bytesMapped, 64u << 10);
  }
}

TEST_F(PageSize, LargeBlocksAreOnHugePagesWhereTheOptionAllowsIt) {
  for (const uint32_t hugePages : {0u, 1u}) {
    const HostPtr host = hostWithHugePages(hugePages);
    HostPool *pool = makePool(host);
    const void *block = pool->allocate(pool, 5 << 20, 0);
    EXPECT_EQ(askedForHuge(block), hugePages == 1);
    EXPECT_EQ(mayBeHuge(block), hugePages == 1);
  }
}

TEST_F(PageSize, WithoutTheOptionNoSegmentIsHugeHoweverMuchThereIs) {
  const HostPtr host = hostWithHugePages(0);
  HostPool *pool = makePool(host, MORVA_POOL_VARKEYS);
  for (int i = 0; i < 40; ++i) ASSERT_FALSE(mayBeHuge(pool->allocate(pool, 200 << 10, 0))) << i;
}

}  // namespace
}  // namespace host_test
