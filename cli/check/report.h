// What the program says about the checks it ran.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "runner.h"

namespace morva::cli::check {

struct Result {
  const Check *check;
  Verdict verdict;
};

// One line, or two, for people.
std::string lineOf(const Result &result);

// "62 checks: 60 passed, 2 failed".
std::string summaryOf(std::span<const Result> results);

// Everything, for programs: an object with the members "kind" (such as "extension"), "file",
// "checks" (an array of objects with "name", "promise", "outcome", "detail", "milliseconds") and
// the number of checks for each outcome.
std::string jsonOf(const char *kind, const std::string &file, std::span<const Result> results);

// How many have to be mended.
size_t countBad(std::span<const Result> results);

}  // namespace morva::cli::check
