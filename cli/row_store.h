// Rows held in memory, in blocks of a pool of the host.
#pragma once

#include <cstddef>
#include <string_view>

#include "library.h"

namespace morva::cli {

class RowStore {
 public:
  explicit RowStore(Library &library);
  ~RowStore();
  RowStore(const RowStore &) = delete;
  RowStore &operator=(const RowStore &) = delete;

  // Copies a text; the copy stays where it is as long as the store. Throws OutOfMemory.
  const char *keep(std::string_view text);

 private:
  Library &library_;
  HostPool *pool_;
  char *block_ = nullptr;
  size_t room_ = 0;
  size_t nextBlock_;
  size_t largestBlock_;
};

}  // namespace morva::cli
