// Marking an ELF image so that it refers to itself.
#include "symbolic.h"

#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace qzhost {
namespace {

using Bytes = std::vector<char>;

Bytes library() {
  std::ifstream file(MORVA_LIBRARY_FILE, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

const Elf64_Dyn *dynamicOf(const Bytes &image) {
  Elf64_Ehdr header;
  memcpy(&header, image.data(), sizeof header);
  const auto *segments = reinterpret_cast<const Elf64_Phdr *>(image.data() + header.e_phoff);
  while (segments->p_type != PT_DYNAMIC) ++segments;
  return reinterpret_cast<const Elf64_Dyn *>(image.data() + segments->p_offset);
}

// Whether the image has the mark, in either of its two forms.
bool isMarked(const Bytes &image) {
  for (const Elf64_Dyn *entry = dynamicOf(image); entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_SYMBOLIC) return true;
    if (entry->d_tag == DT_FLAGS && (entry->d_un.d_val & DF_SYMBOLIC) != 0) return true;
  }
  return false;
}

TEST(Symbolic, MarksALibraryAndChangesNothingElse) {
  const Bytes before = library();
  Bytes after = before;
  ASSERT_FALSE(isMarked(before));
  EXPECT_TRUE(bindToItself(after.data(), after.size()));
  EXPECT_TRUE(isMarked(after));
  size_t changed = 0;
  for (size_t i = 0; i < before.size(); ++i) changed += before[i] != after[i] ? 1 : 0;
  EXPECT_EQ(changed, 1u);

  Bytes again = after;
  EXPECT_TRUE(bindToItself(again.data(), again.size()));
  EXPECT_EQ(again, after);
}

TEST(Symbolic, UsesASpareEntryWhereThereAreNoFlags) {
  Bytes image = library();
  auto *entry = const_cast<Elf64_Dyn *>(dynamicOf(image));
  for (; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_FLAGS) entry->d_tag = DT_DEBUG;
  }
  ASSERT_EQ(entry[1].d_tag, DT_NULL) << "the linker has left no spare entry";
  ASSERT_FALSE(isMarked(image));
  EXPECT_TRUE(bindToItself(image.data(), image.size()));
  EXPECT_TRUE(isMarked(image));
}

TEST(Symbolic, LeavesWhatIsNoLibraryAlone) {
  for (const char *text : {"", "x", "\177ELF",
                           "not a library, and rather longer than a header is, "
                           "so that all of the header could be read"}) {
    Bytes image(text, text + strlen(text));
    const Bytes before = image;
    EXPECT_FALSE(bindToItself(image.data(), image.size())) << text;
    EXPECT_EQ(image, before);
  }
  Bytes other = library();
  other[EI_CLASS] = ELFCLASS32;
  EXPECT_FALSE(bindToItself(other.data(), other.size()));
}

TEST(Symbolic, NeverReadsBehindACutImage) {
  const Bytes whole = library();
  for (size_t bytes = 0; bytes < whole.size(); bytes += bytes < 1024 ? 1 : 509) {
    Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(bytes));
    cut.shrink_to_fit();
    const bool marked = bindToItself(cut.data(), cut.size());
    EXPECT_FALSE(marked && bytes < sizeof(Elf64_Ehdr)) << bytes;
  }
}

TEST(Symbolic, SurvivesHeadersThatLie) {
  const Bytes whole = library();
  for (size_t at = 0; at < 1024; ++at) {
    for (const char byte : {'\0', '\1', '\177', '\377'}) {
      Bytes image = whole;
      image[at] = byte;
      bindToItself(image.data(), image.size());
    }
  }
}

}  // namespace
}  // namespace qzhost
