#include "symbolic.h"

#include <elf.h>

#include <cstdint>
#include <cstring>

namespace qzhost {

namespace {

// A view of the file that answers null for what lies outside of it.
class Image {
 public:
  Image(void *start, size_t bytes) : start_(static_cast<char *>(start)), bytes_(bytes) {}

  template <class T>
  T *at(uint64_t offset, uint64_t count) const {
    if (offset % alignof(T) != 0 || offset > bytes_) return nullptr;
    if (count > (bytes_ - offset) / sizeof(T)) return nullptr;
    return reinterpret_cast<T *>(start_ + offset);
  }

 private:
  char *start_;
  uint64_t bytes_;
};

const Elf64_Phdr *findDynamic(const Image &image) {
  const auto *header = image.at<Elf64_Ehdr>(0, 1);
  if (header == nullptr || memcmp(header->e_ident, ELFMAG, SELFMAG) != 0) return nullptr;
  if (header->e_ident[EI_CLASS] != ELFCLASS64 || header->e_ident[EI_DATA] != ELFDATA2LSB)
    return nullptr;
  if (header->e_phentsize != sizeof(Elf64_Phdr)) return nullptr;
  const auto *segments = image.at<Elf64_Phdr>(header->e_phoff, header->e_phnum);
  if (segments == nullptr) return nullptr;
  for (uint32_t i = 0; i < header->e_phnum; ++i)
    if (segments[i].p_type == PT_DYNAMIC) return &segments[i];
  return nullptr;
}

}  // namespace

bool bindToItself(void *start, size_t bytes) {
  const Image image(start, bytes);
  const Elf64_Phdr *dynamic = findDynamic(image);
  if (dynamic == nullptr) return false;
  const uint64_t count = dynamic->p_filesz / sizeof(Elf64_Dyn);
  auto *entries = image.at<Elf64_Dyn>(dynamic->p_offset, count);
  if (entries == nullptr) return false;

  uint64_t end = 0;
  for (; end < count && entries[end].d_tag != DT_NULL; ++end) {
    if (entries[end].d_tag == DT_FLAGS) {
      entries[end].d_un.d_val |= DF_SYMBOLIC;
      return true;
    }
  }
  // Linkers leave spare entries behind the one that ends the list.
  if (end + 1 >= count || entries[end + 1].d_tag != DT_NULL) return false;
  entries[end].d_tag = DT_SYMBOLIC;
  entries[end].d_un.d_val = 0;
  return true;
}

}  // namespace qzhost
