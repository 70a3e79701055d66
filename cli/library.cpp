#include "library.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include "error.h"
#include "text.h"

namespace morva::cli {

namespace {

namespace fs = std::filesystem;

constexpr const char *kFileName = "libmorva.so.1";

// Where the library may be that belongs to the program, best first.
std::vector<fs::path> besideProgram() {
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  if (error) return {};
  const fs::path prefix = program.parent_path().parent_path();
  // An absolute MORVA_CLI_LIBDIR replaces the prefix.
  return {prefix / "lib" / kFileName, prefix / "lib" / "libmorva.so",
          prefix / MORVA_CLI_LIBDIR / kFileName};
}

}  // namespace

std::string Library::chosenFile(const std::string &file) {
  if (!file.empty()) return file;
  if (const char *variable = std::getenv("MORVA_LIBRARY"); variable != nullptr && *variable != 0) {
    return variable;
  }
  for (const fs::path &candidate : besideProgram()) {
    std::error_code error;
    if (fs::exists(candidate, error)) return candidate.lexically_normal().string();
  }
  return kFileName;
}

Library::Library(const std::string &file, uint64_t memoryLimit) : memoryLimit_(memoryLimit) {
  QZHostOptions options = QZ_HOST_OPTIONS_DEFAULT;
  options.memoryLimit = memoryLimit;
  host_ = QZHostCreate(&options);
  if (host_ == nullptr) throw OutOfMemory("there is no memory for the host");
  try {
    load(chosenFile(file));
  } catch (...) {
    QZHostDestroy(host_, nullptr);
    throw;
  }
}

Library::~Library() {
  QZHostDestroy(host_, nullptr);
}

void Library::load(const std::string &file) {
  char reason[512] = "";
  file_ = file;
  extension_ = QZHostLoad(host_, file.c_str(), reason, sizeof reason);
  if (extension_ == nullptr) {
    if (stats().allocationsRefused > 0) failOutOfMemory();
    throw Error("the library cannot be loaded: " + std::string(reason) +
                "\nName it with --library FILE or in the environment variable MORVA_LIBRARY.");
  }
}

HostPool *Library::makePool(const char *name) {
  HostServices *services = QZHostServices(host_);
  const PoolOptions options{};
  HostPool *pool = services->createPool(services, &options, nullptr, name);
  if (pool == nullptr) failOutOfMemory();
  return pool;
}

QZHostStats Library::stats() const {
  QZHostStats stats{};
  QZHostGetStats(host_, &stats);
  return stats;
}

uint64_t Library::fairBlock(uint64_t wanted) const {
  return memoryLimit_ == 0 ? wanted : std::min(wanted, memoryLimit_ / 16);
}

void Library::failOutOfMemory() const {
  if (memoryLimit_ == 0) throw OutOfMemory("there is not enough memory");
  throw OutOfMemory("the memory limit of " + byteSize(memoryLimit_) + " is reached");
}

}  // namespace morva::cli
