// The host with the library loaded into it.
#pragma once

#include <cstdint>
#include <string>

#include "morva/host.h"

namespace morva::cli {

class Library {
 public:
  // Loads `file`; if it is empty, what MORVA_LIBRARY names; if that is not set, the library that
  // belongs to the program: in ../lib beside the program's own directory, or in the directory it
  // was installed to, or wherever the system finds libmorva.so.1. Throws Error. `memoryLimit` is in
  // bytes, 0 for none.
  Library(const std::string &file, uint64_t memoryLimit);
  // Everything made with the library has been released before.
  ~Library();
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;

  // The file that a Library made with `file` would load.
  static std::string chosenFile(const std::string &file);

  MORVAExt *extension() const { return extension_; }
  const std::string &file() const { return file_; }

  // A pool of the host, for data of the program's own that is to count for the memory limit. The
  // caller destroys it. Throws OutOfMemory.
  HostPool *makePool(const char *name);

  QZHostStats stats() const;

  // The most that one block should take of the memory, out of `wanted` bytes: a fair part of what
  // the limit allows, so that little of it is lost with the last block that does not fit.
  uint64_t fairBlock(uint64_t wanted) const;

  // Throws OutOfMemory, saying why there is no memory.
  [[noreturn]] void failOutOfMemory() const;

 private:
  void load(const std::string &file);

  QZHost *host_ = nullptr;
  MORVAExt *extension_ = nullptr;
  uint64_t memoryLimit_;
  std::string file_;
};

}  // namespace morva::cli
