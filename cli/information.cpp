#include <unistd.h>

#include <cstdint>
#include <string>

#include "commands.h"
#include "error.h"
#include "help.h"
#include "library.h"
#include "writer.h"

namespace morva::cli {

namespace {

using VersionQuery = MORVAStatus (*)(MORVAExt *, int64_t *, int64_t *, int64_t *);

std::string version(MORVAExt *extension, VersionQuery query) {
  int64_t major = 0;
  int64_t minor = 0;
  int64_t patch = 0;
  if (query(extension, &major, &minor, &patch) != MORVA_OK) {
    throw Error("the library does not tell its version");
  }
  return std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(patch);
}

void print(const std::string &text) {
  Writer out(STDOUT_FILENO, kStandardOutput, kCsv);
  out.lines(text);
  out.flush();
}

}  // namespace

void runHelp(const Options &options) {
  print(helpText(options.topic));
}

void runVersion(const Options &options) {
  const Library library(options.library, 0);
  MORVAExt *extension = library.extension();
  print("morva " MORVA_CLI_VERSION "\nlibrary " + version(extension, extension->GetVersion) + ", " +
        library.file() + "\nhost interface " + std::to_string(MORVA_HOST_MAJOR) + '.' +
        std::to_string(MORVA_HOST_MINOR) + ", the library needs " +
        version(extension, extension->GetReqVersion) + '\n');
}

}  // namespace morva::cli
