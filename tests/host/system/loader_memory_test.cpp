// Loading without memory: every allocation of a load refused in turn.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "loader_test.h"
#include "system.h"

namespace host_test {
namespace {

using ::testing::HasSubstr;

class LoadingWithoutMemory : public ::testing::Test {
 protected:
  // Loads with the n-th allocation refused; whether that failed.
  bool fails(int n) {
    char error[1024] = "";
    const size_t descriptors = openDescriptors();
    MORVAExt *ext = nullptr;
    {
      const Instead refused(theSystem.hasMemory, allBut(n));
      ext = QZHostLoad(host.get(), kMorva.c_str(), error, sizeof error);
    }
    if (ext != nullptr) {
      EXPECT_TRUE(works(ext));
      unload(host, ext);
      EXPECT_STREQ(error, "");
    } else {
      EXPECT_THAT(std::string(error),
                  ::testing::ContainsRegex("there is no memory|Cannot allocate memory|"
                                           "answered no extension object"));
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    const QZHostStats stats = statsOf(host);
    EXPECT_EQ(stats.extensions, 0u);
    EXPECT_EQ(stats.pools, 0u);
    return ext == nullptr;
  }

  HostPtr host = makeHost();
};

// A copy of the file's, the extension, its name, its pool.
TEST_F(LoadingWithoutMemory, FailsAndLeavesNothingBehindButDoesWithoutAName) {
  EXPECT_TRUE(fails(1));
  EXPECT_TRUE(fails(2));
  EXPECT_FALSE(fails(3));
  EXPECT_TRUE(fails(4));
  EXPECT_FALSE(fails(5));
}

// Besides, the contents of the file.
TEST_F(LoadingWithoutMemory, OfAPrivateCopyFailsAndLeavesNothingBehind) {
  const HostPtr other = makeHost();
  load(other, kMorva);
  EXPECT_TRUE(fails(1));
  EXPECT_TRUE(fails(2));
  EXPECT_TRUE(fails(3));
  EXPECT_FALSE(fails(4));
  EXPECT_TRUE(fails(5));
  EXPECT_FALSE(fails(6));
}

TEST_F(LoadingWithoutMemory, ForANameSaysExtensionInstead) {
  MORVAExt *ext = nullptr;
  {
    const Instead refused(theSystem.hasMemory, allBut(3));
    ext = load(host, kMorva);
  }
  ASSERT_NE(ext, nullptr);
  MORVAInst *inst = makeInstance(ext);
  char error[256] = "";
  EXPECT_EQ(QZHostUnload(host.get(), ext, error, sizeof error), 1u);
  EXPECT_THAT(error, HasSubstr("'extension' still has instances"));
  inst->Destroy(inst);
  unload(host, ext);
}

TEST_F(LoadingWithoutMemory, AttachingIsRefused) {
  const QZEntryPoints entry{"morva", qzextver, morva::morva};
  char error[256] = "";
  const Instead refused(theSystem.hasMemory, never);
  EXPECT_EQ(QZHostAttach(host.get(), &entry, error, sizeof error), nullptr);
  EXPECT_STREQ(error, "cannot attach 'morva': there is no memory");
}

}  // namespace
}  // namespace host_test
