// Runs a fuzz target on the files of the directories that are named: on what the
// fuzzers have found so far, without a fuzzer.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "check.h"

namespace {

using Path = std::filesystem::path;

std::vector<Path> filesOf(const Path &directory) {
  std::vector<Path> files;
  for (const auto &entry : std::filesystem::directory_iterator(directory)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// In a block of just its size, so that a sanitizer sees what reads beyond it.
void run(const std::vector<char> &input) {
  const std::vector<uint8_t> exact(input.begin(), input.end());
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

}  // namespace

int main(int argc, char **argv) {
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const Path &path : filesOf(argv[i])) {
      // Before it runs, for the case that it is the last one.
      std::printf("%s\n", path.filename().c_str());
      std::fflush(stdout);
      std::ifstream file(path, std::ios::binary);
      const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
      if (!file) return std::fprintf(stderr, "cannot read %s\n", path.c_str()), 1;
      run(bytes);
      ++count;
    }
  }
  run({});
  std::printf("%zu inputs replayed\n", count);
  return count > 0 ? 0 : 1;
}
