#include "../commands.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "../error.h"
#include "../library.h"
#include "../text.h"
#include "../writer.h"
#include "extension_checks.h"
#include "host_checks.h"
#include "report.h"

namespace morva::cli {

namespace {

using check::Check;
using check::Outcome;
using check::Result;
using check::Subject;

// A name without a slash is searched for by the loader; a file of that name comes first here.
std::string forLoader(const std::string &file) {
  std::error_code ignored;
  const bool here = file.find('/') == std::string::npos && std::filesystem::exists(file, ignored);
  return here ? "./" + file : file;
}

// The checks that were asked for, all of them without --only. A name that ends in "." stands for
// all that start so. The gates come along: the rest needs them.
std::vector<const Check *> chosen(std::span<const Check> checks,
                                  const std::vector<std::string> &only) {
  std::vector<const Check *> list;
  std::set<std::string_view> used;
  for (const Check &check : checks) {
    bool wanted = only.empty() || check.gate;
    for (const std::string &name : only) {
      const bool meant =
          name.ends_with('.') ? std::string_view(check.name).starts_with(name) : name == check.name;
      if (!meant) continue;
      used.insert(name);
      wanted = true;
    }
    if (wanted) list.push_back(&check);
  }
  for (const std::string &name : only) {
    if (!used.contains(name)) throw Error("there is no check " + cli::quoted(name));
  }
  return list;
}

void printList(std::span<const Check> checks) {
  Writer out(STDOUT_FILENO, kStandardOutput, kCsv);
  for (const Check &check : checks) {
    out.lines(std::string(check.name) + "\n    " + check.promise + '\n');
  }
  out.flush();
}

void run(const char *kind, std::span<const Check> checks, const Options &options) {
  if (options.listChecks) return printList(checks);
  const Subject subject{forLoader(options.files.at(0)), Library::chosenFile(options.library)};
  const std::vector<const Check *> list = chosen(checks, options.only);
  const std::chrono::milliseconds limit = std::chrono::seconds(options.timeLimit);

  Writer out(STDOUT_FILENO, kStandardOutput, kCsv);
  std::vector<Result> results;
  const char *closed = nullptr;
  for (const Check *check : list) {
    Result result{check, {}};
    if (closed == nullptr) {
      result.verdict = runAlone(*check, subject, limit);
      if (check->gate && isBad(result.verdict.outcome)) closed = check->name;
    } else {
      result.verdict.detail = std::string("it needs ") + closed;
    }
    if (!options.json) {
      out.lines(lineOf(result));
      out.flush();
    }
    results.push_back(std::move(result));
  }
  out.lines(options.json ? jsonOf(kind, options.files[0], results) : summaryOf(results));
  out.flush();
  if (const size_t bad = countBad(results); bad > 0) {
    throw Error(cli::quoted(options.files[0]) + ": " + counted(bad, "check") +
                (bad == 1 ? " has" : " have") + " not passed");
  }
}

}  // namespace

void runCheckExtension(const Options &options) {
  run("extension", check::extensionChecks(), options);
}

void runCheckHost(const Options &options) {
  run("host", check::hostChecks(), options);
}

}  // namespace morva::cli
