// Loading extensions: names of files, short calls, and what the process holds.
#pragma once

#include <dirent.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

#include "morva/operations.h"
#include "qz_host.h"

namespace host_test {

inline const std::string kMorva = MORVA_LIBRARY_FILE;

inline std::string fixture(const std::string &name) {
  return FIXTURE_DIRECTORY + name + ".so";
}

inline MORVAExt *load(const HostPtr &host, const std::string &file) {
  char error[1024] = "";
  MORVAExt *ext = QZHostLoad(host.get(), file.c_str(), error, sizeof error);
  EXPECT_NE(ext, nullptr) << error;
  EXPECT_STREQ(error, "");
  return ext;
}

inline void unload(const HostPtr &host, MORVAExt *ext) {
  char error[1024] = "";
  EXPECT_EQ(QZHostUnload(host.get(), ext, error, sizeof error), 0u) << error;
}

// The sentence that a load fails with.
inline std::string failure(QZHost *host, const char *file) {
  char error[1024] = "";
  EXPECT_EQ(QZHostLoad(host, file, error, sizeof error), nullptr);
  return error;
}
inline std::string failure(const HostPtr &host, const std::string &file) {
  return failure(host.get(), file.c_str());
}

// Whether the system has the file loaded, under this name.
inline bool isLoaded(const std::string &file) {
  void *handle = dlopen(file.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  if (handle != nullptr) dlclose(handle);
  return handle != nullptr;
}

inline MORVAInst *makeInstance(MORVAExt *ext) {
  MORVAParms parms{};
  parms.dataLength = 8;
  parms.keyLength = 8;
  parms.flags = flagFixedKey;
  parms.hashExp = 6;
  return ext->Create(ext, &parms, nullptr, "table");
}

// Adds and finds; whether everything was there.
inline bool works(MORVAInst *inst, uint64_t first, uint64_t count) {
  for (uint64_t key = first; key < first + count; ++key) {
    const uint64_t data = ~key;
    if (inst->Add(inst, &data, &key, 8) != MORVA_OK) return false;
  }
  for (uint64_t key = first; key < first + count; ++key) {
    void *found = nullptr;
    if (inst->Find(inst, &key, 8, &found) != MORVA_OK || found == nullptr) return false;
    const uint64_t data = ~key;
    if (memcmp(found, &data, 8) != 0) return false;
  }
  return true;
}

// A whole life of an instance.
inline bool works(MORVAExt *ext) {
  MORVAInst *inst = makeInstance(ext);
  if (inst == nullptr) return false;
  const bool good = works(inst, 0, 500) && inst->NumElements(inst) == 500;
  inst->Destroy(inst);
  return good;
}

inline size_t openDescriptors() {
  size_t count = 0;
  DIR *directory = opendir("/proc/self/fd");
  while (readdir(directory) != nullptr) ++count;
  closedir(directory);
  return count;
}

// The lines of the process's map that contain `text`.
inline size_t mappings(const std::string &text = "") {
  size_t count = 0;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);)
    count += line.find(text) != std::string::npos ? 1 : 0;
  return count;
}

}  // namespace host_test
