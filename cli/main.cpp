#include <cstdio>
#include <exception>
#include <new>
#include <span>
#include <string>

#include "commands.h"
#include "error.h"
#include "options.h"

namespace {

using namespace morva::cli;

void run(const Options &options) {
  switch (options.command) {
    case Command::kCount:
      return runCount(options);
    case Command::kSum:
      return runSum(options);
    case Command::kDistinct:
      return runDistinct(options);
    case Command::kJoin:
      return runJoin(options);
    case Command::kGenerate:
      return runGenerate(options);
    case Command::kCheckExtension:
      return runCheckExtension(options);
    case Command::kCheckHost:
      return runCheckHost(options);
    case Command::kHelp:
      return runHelp(options);
    case Command::kVersion:
      return runVersion(options);
  }
}

void complain(const char *text) {
  std::fprintf(stderr, "morva: %s\n", text);
}

}  // namespace

// A reader of the output that goes away ends the program by SIGPIPE, silently, as it does others.
int main(int argc, char **argv) {
  try {
    const std::span<const char *const> arguments(argv, static_cast<size_t>(argc));
    run(parseOptions(arguments.subspan(arguments.empty() ? 0 : 1)));
    return 0;
  } catch (const UsageError &error) {
    complain(error.what());
    const std::string topic = error.topic().empty() ? "" : ' ' + error.topic();
    std::fprintf(stderr, "Try 'morva help%s'.\n", topic.c_str());
    return kStatusUsage;
  } catch (const std::bad_alloc &) {
    complain("there is not enough memory");
  } catch (const std::exception &error) {
    complain(error.what());
  }
  return kStatusError;
}
