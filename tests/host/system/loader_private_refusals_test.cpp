// A private copy of a library that another host has loaded: every step of making
// one that the system can refuse.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cerrno>
#include <string>

#include "loader_test.h"
#include "system.h"

namespace host_test {
namespace {

using ::testing::HasSubstr;

const std::string kSound = fixture("sound");
const std::string kOther = fixture("older_minor");

bool isCopy(const char *file) {
  return file != nullptr && strncmp(file, "/proc/self/fd/", 14) == 0;
}

class PrivateCopy : public ::testing::Test {
 protected:
  PrivateCopy() {
    load(first, kSound);
    load(first, kOther);
    descriptors = openDescriptors();
  }

  // What the second host says; afterwards nothing is left, and loading works.
  void expectRefusal(const std::string &sentence) {
    EXPECT_THAT(failure(second, kSound), HasSubstr(sentence));
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(statsOf(second).extensions, 0u);
  }
  // To be called where nothing is refused any more.
  void expectToLoad() {
    MORVAExt *ext = load(second, kSound);
    ASSERT_NE(ext, nullptr);
    unload(second, ext);
    EXPECT_EQ(openDescriptors(), descriptors);
  }

  HostPtr first = makeHost(), second = makeHost();
  size_t descriptors = 0;
};

// ---- which file it is --------------------------------------------------------

TEST_F(PrivateCopy, IsRefusedWhereTheSystemDoesNotTellTheFile) {
  char empty[] = "";
  link_map nameless = {}, unnamed = {};
  unnamed.l_name = empty;
  for (link_map *answer : {static_cast<link_map *>(nullptr), &nameless, &unnamed}) {
    const Instead told(theSystem.dlinfo, [=](void *, int, void *map) {
      *static_cast<link_map **>(map) = answer;
      return 0;
    });
    expectRefusal("a second time: its file is not known");
  }
  const Instead failed(theSystem.dlinfo, [](void *, int, void *) { return -1; });
  expectRefusal("a second time: its file is not known");
}

TEST_F(PrivateCopy, IsOfTheFileThatWasFoundForANameWithoutDirectory) {
  std::string known = "lib/sound.so";
  const Instead relative(theSystem.dlinfo, [&](void *handle, int request, void *map) {
    const int status = real::dlinfo(handle, request, map);
    static link_map named;
    named.l_name = known.data();
    *static_cast<link_map **>(map) = &named;
    return status;
  });
  const Instead searched(theSystem.dlopen, [](const char *file, int mode) {
    return real::dlopen(strcmp(file, "sound.so") == 0 ? kSound.c_str() : file, mode);
  });
  std::string opened;
  const Instead watched(theSystem.open, [&](const char *path) {
    opened = path;
    errno = ENOENT;
    return -1;
  });
  EXPECT_NE(failure(second.get(), "sound.so"), "");
  EXPECT_EQ(opened, "lib/sound.so");
  EXPECT_NE(failure(second, kSound), "");
  EXPECT_EQ(opened, kSound);
}

TEST_F(PrivateCopy, IsRefusedWhereTheFileCannotBeOpened) {
  {
    const Instead refused(theSystem.open, [](const char *) {
      errno = EACCES;
      return -1;
    });
    expectRefusal("a second time: Permission denied");
  }
  expectToLoad();
}

TEST_F(PrivateCopy, IsRefusedWhereTheFileCannotBeLookedAt) {
  for (int refused = 1; refused <= 2; ++refused) {
    int left = refused;
    const Instead failing(theSystem.fstat, [&](int file, struct stat *status) {
      if (--left != 0) return real::fstat(file, status);
      errno = EIO;
      return -1;
    });
    expectRefusal("a second time: Input/output error");
  }
  expectToLoad();
}

TEST_F(PrivateCopy, OfOneFileIsNotTakenForThatOfAnother) {
  load(second, fixture("requires_older"));  // nobody else's: not a private copy
  MORVAExt *sound = load(second, kSound);
  MORVAExt *other = load(second, kOther);
  int64_t a = 0, minor = 0, b = 0;
  EXPECT_EQ(sound->GetReqVersion(sound, &a, &minor, &b), MORVA_OK);
  EXPECT_NE(reinterpret_cast<void *>(sound->Create), reinterpret_cast<void *>(other->Create));
  // The same number on another device is another file.
  const Instead elsewhere(theSystem.fstat, [](int file, struct stat *status) {
    const int answer = real::fstat(file, status);
    ++status->st_dev;
    return answer;
  });
  MORVAExt *third = load(second, kSound);
  EXPECT_NE(reinterpret_cast<void *>(sound->Create), reinterpret_cast<void *>(third->Create));
}

// ---- reading and writing it --------------------------------------------------

TEST_F(PrivateCopy, IsRefusedWhereTheFileIsEmpty) {
  int left = 2;
  const Instead emptied(theSystem.fstat, [&](int file, struct stat *status) {
    const int answer = real::fstat(file, status);
    if (--left == 0) status->st_size = 0;
    return answer;
  });
  expectRefusal("a second time: No data available");
}

TEST_F(PrivateCopy, IsRefusedWhereTheFileCannotBeReadToItsEnd) {
  for (const bool isCut : {true, false}) {
    bool begun = false;
    const Instead cut(theSystem.pread, [&](int file, void *to, size_t bytes, off_t offset) {
      if (begun) {
        if (!isCut) errno = EIO;
        return ssize_t{isCut ? 0 : -1};
      }
      begun = true;
      return real::pread(file, to, bytes / 2, offset);
    });
    expectRefusal(isCut ? "a second time: No data available" : "a second time: Input/output error");
  }
  expectToLoad();
}

TEST_F(PrivateCopy, IsReadAndWrittenInAsManyPartsAsItTakes) {
  int reads = 0, writes = 0;
  const Instead read(theSystem.pread, [&](int file, void *to, size_t bytes, off_t offset) {
    if (++reads % 3 != 2) return real::pread(file, to, bytes < 3000 ? bytes : 3000, offset);
    errno = EINTR;
    return ssize_t{-1};
  });
  const Instead written(theSystem.write, [&](int file, const void *from, size_t bytes) {
    if (++writes % 3 != 2) return real::write(file, from, bytes < 3000 ? bytes : 3000);
    errno = EINTR;
    return ssize_t{-1};
  });
  expectToLoad();
  EXPECT_GT(reads, 4);
  EXPECT_GT(writes, 4);
}

TEST_F(PrivateCopy, IsRefusedWhereItCannotBeWritten) {
  for (const bool isFull : {true, false}) {
    const Instead refused(theSystem.write, [=](int, const void *, size_t) {
      if (!isFull) errno = EFBIG;
      return ssize_t{isFull ? 0 : -1};
    });
    expectRefusal(isFull ? "a second time: No space left on device"
                         : "a second time: File too large");
  }
  expectToLoad();
}

// ---- the file in memory ------------------------------------------------------

TEST_F(PrivateCopy, NeedsNoWordForExecutableMemory) {
  const Instead older(theSystem.memfd_create, [](unsigned flags) {
    constexpr unsigned kExecutable = 0x10;
    if ((flags & kExecutable) == 0) return real::memfd_create(flags);
    errno = EINVAL;
    return -1;
  });
  expectToLoad();
}

TEST_F(PrivateCopy, IsRefusedWithoutAFileInMemory) {
  {
    const Instead refused(theSystem.memfd_create, [](unsigned) {
      errno = EMFILE;
      return -1;
    });
    expectRefusal("a second time: Too many open files");
  }
  expectToLoad();
}

TEST_F(PrivateCopy, GetsAnotherNameWhereTheSystemKnowsTheFirstOnes) {
  int known = 3;
  const Instead remembering(theSystem.dlopen, [&](const char *file, int mode) {
    const bool asked = isCopy(file) && (mode & RTLD_NOLOAD) != 0;
    return real::dlopen(asked && known-- > 0 ? kSound.c_str() : file, mode);
  });
  expectToLoad();
  EXPECT_LT(known, 1);
}

TEST_F(PrivateCopy, IsRefusedWhereTheSystemKnowsEveryName) {
  const Instead remembering(theSystem.dlopen, [](const char *file, int mode) {
    const bool asked = isCopy(file) && (mode & RTLD_NOLOAD) != 0;
    return real::dlopen(asked ? kSound.c_str() : file, mode);
  });
  expectRefusal("a second time: Device or resource busy");
  const Instead numberless(theSystem.fcntl, [](int, int) {
    errno = EMFILE;
    return -1;
  });
  expectRefusal("a second time: Too many open files");
}

TEST_F(PrivateCopy, IsRefusedWhereTheSystemDoesNotLoadIt) {
  char reason[] = "no room for it";
  {
    const Instead refused(theSystem.dlopen, [](const char *file, int mode) -> void * {
      return isCopy(file) ? nullptr : real::dlopen(file, mode);
    });
    const Instead told(theSystem.dlerror, [&] { return reason; });
    expectRefusal("a second time: no room for it");
  }
  expectToLoad();
}

// ---- what is in it -----------------------------------------------------------

// Has `name` in the private copy answered otherwise.
auto inTheCopy(const char *name, void *answer) {
  return [=, asked = 0](void *handle, const char *symbol) mutable {
    // The names are asked for in the file first, then in the copy.
    if (handle == RTLD_DEFAULT || strcmp(symbol, name) != 0 || ++asked == 1)
      return real::dlsym(handle, symbol);
    return answer;
  };
}

TEST_F(PrivateCopy, IsRefusedWithoutItsEntryPoints) {
  for (const char *name : {"qzextver", "morva"}) {
    const Instead missing(theSystem.dlsym, inTheCopy(name, nullptr));
    expectRefusal("has no entry point '" + std::string(name) + "'");
  }
  expectToLoad();
}

TEST_F(PrivateCopy, IsRefusedWhereItsReferencesLeadToAnothersTable) {
  static HostServices *foreign = QZHostServices(first.get());
  const Instead bound(theSystem.dlsym, [](void *handle, const char *symbol) -> void * {
    const bool asked = handle != RTLD_DEFAULT && strcmp(symbol, "Exported_QZHandle") == 0;
    return asked ? static_cast<void *>(&foreign) : real::dlsym(handle, symbol);
  });
  expectRefusal("uses the service table of another library");
}

// A file may have its entry points from a library that it depends on, and there
// is one of that for all who do.
TEST_F(PrivateCopy, IsRefusedWhereItStandsOnALibraryThatServesTheOtherHost) {
  void *sound = dlopen(kSound.c_str(), RTLD_NOW | RTLD_LOCAL);
  const Instead shared(theSystem.dlsym, [=](void *handle, const char *symbol) {
    return real::dlsym(handle == RTLD_DEFAULT ? handle : sound, symbol);
  });
  expectRefusal("what it depends on serves another host");
  dlclose(sound);
}

TEST_F(PrivateCopy, IsUsedAgainWhereItStandsOnALibraryOfTheSameHost) {
  MORVAExt *ext = load(second, kSound);
  // What is loaded next stands on that copy.
  const auto entry = reinterpret_cast<void *>(ext->Create);
  Dl_info copy{};
  ASSERT_NE(dladdr(entry, &copy), 0);
  void *sound = real::dlopen(copy.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
  ASSERT_NE(sound, nullptr);
  int asked = 0;
  const Instead shared(theSystem.dlsym, [&](void *handle, const char *symbol) {
    const bool inCopy = handle != RTLD_DEFAULT && ++asked > 2;
    return real::dlsym(inCopy ? sound : handle, symbol);
  });
  MORVAExt *again = load(second, kOther);
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(reinterpret_cast<void *>(again->Create), entry);
  EXPECT_EQ(statsOf(second).extensions, 2u);
  unload(second, again);
  unload(second, ext);
  dlclose(sound);
  EXPECT_EQ(openDescriptors(), descriptors);
}

}  // namespace
}  // namespace host_test
