// Runs a check in a process of its own, with a limit to the time it takes.
#pragma once

#include <chrono>
#include <string>

#include "check.h"

namespace morva::cli::check {

enum class Outcome {
  kPassed,
  kFailed,
  kCrashed,   // a signal or the library under check ended the process
  kTimedOut,  // it was ended because it took too long
  kNotApplicable,
  kNotRun,  // a check that everything rests on failed before
};

// "passed", "failed", "crashed", "timed-out", "not-applicable", "not-run".
const char *nameOf(Outcome outcome);

// Whether the library under check has to be mended.
constexpr bool isBad(Outcome outcome) {
  return outcome == Outcome::kFailed || outcome == Outcome::kCrashed ||
         outcome == Outcome::kTimedOut;
}

struct Verdict {
  Outcome outcome = Outcome::kNotRun;
  // What was seen; empty for a check that passed.
  std::string detail;
  std::chrono::milliseconds time{0};
};

// Whatever the check starts or writes ends with it, but a process that has left its group. Throws
// Error when no process can be made.
Verdict runAlone(const Check &check, const Subject &subject, std::chrono::milliseconds limit);

}  // namespace morva::cli::check
