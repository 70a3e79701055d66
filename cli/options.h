// The command line.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "dialect.h"

namespace morva::cli {

enum class Command {
  kCount,
  kSum,
  kDistinct,
  kJoin,
  kGenerate,
  kCheckExtension,
  kCheckHost,
  kHelp,
  kVersion
};

struct Options {
  Command command = Command::kHelp;
  // FILEs as given; the commands on one file have exactly one, "-" when none was given.
  std::vector<std::string> files;

  // Column lists as given, one entry for each time the option stands there.
  std::vector<std::string> by;
  std::vector<std::string> on;
  std::string value;
  bool emptyAsZero = false;
  bool keysOnly = false;
  bool left = false;
  std::optional<uint64_t> width;

  std::optional<Dialect> dialect;
  bool noHeader = false;
  std::string comment;
  bool skipBad = false;

  uint64_t memoryLimit = 0;
  std::string library;
  bool stats = false;

  uint64_t rows = 0;
  std::optional<uint64_t> groups;
  uint64_t seed = 1;

  // Of the checks: names of those to run, all if there are none; seconds for each.
  std::vector<std::string> only;
  uint64_t timeLimit = 20;
  bool listChecks = false;
  bool json = false;

  // What help was asked for: the name of a command, or empty.
  std::string topic;

  // The format of a file: what was asked for, else what its name says.
  Dialect dialectFor(const std::string &file) const { return dialect.value_or(dialectOf(file)); }
};

// Reads the arguments, without the program's name. Throws UsageError.
Options parseOptions(std::span<const char *const> arguments);

}  // namespace morva::cli
