#include "report.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "../text.h"

namespace morva::cli::check {

namespace {

constexpr Outcome kOutcomes[] = {Outcome::kPassed,   Outcome::kFailed,        Outcome::kCrashed,
                                 Outcome::kTimedOut, Outcome::kNotApplicable, Outcome::kNotRun};

size_t countOf(std::span<const Result> results, Outcome outcome) {
  return static_cast<size_t>(std::ranges::count_if(
      results, [&](const Result &result) { return result.verdict.outcome == outcome; }));
}

// Details quote what a library printed, which need not be text: every byte that is not plain ASCII
// is written as the character of that number.
std::string jsonText(std::string_view text) {
  std::string quoted = "\"";
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      quoted += '\\';
      quoted += character;
    } else if (byte >= ' ' && byte < 0x7F) {
      quoted += character;
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
      quoted += escaped;
    }
  }
  return quoted + '"';
}

std::string jsonCheck(const Result &result) {
  const auto &[check, verdict] = result;
  return "    {\"name\": " + jsonText(check->name) + ", \"outcome\": \"" + nameOf(verdict.outcome) +
         "\", \"milliseconds\": " + std::to_string(verdict.time.count()) +
         ",\n     \"promise\": " + jsonText(check->promise) +
         ",\n     \"detail\": " + jsonText(verdict.detail) + '}';
}

}  // namespace

std::string lineOf(const Result &result) {
  const auto &[check, verdict] = result;
  std::string outcome = nameOf(verdict.outcome);
  if (isBad(verdict.outcome)) {
    std::ranges::transform(outcome, outcome.begin(),
                           [](char letter) { return letter == '-' ? ' ' : letter & ~0x20; });
  }
  outcome.resize(std::max<size_t>(outcome.size(), 15), ' ');
  std::string line = outcome + check->name + '\n';
  if (isBad(verdict.outcome)) {
    line += std::string("    promised: ") + check->promise + "\n    seen: " + verdict.detail + '\n';
  } else if (!verdict.detail.empty()) {
    line += "    " + verdict.detail + '\n';
  }
  return line;
}

std::string summaryOf(std::span<const Result> results) {
  std::string text = counted(results.size(), "check") + ':';
  const char *separator = " ";
  for (const Outcome outcome : kOutcomes) {
    const size_t count = countOf(results, outcome);
    if (count == 0 && outcome != Outcome::kPassed) continue;
    std::string name = nameOf(outcome);
    std::ranges::replace(name, '-', ' ');
    text += separator + std::to_string(count) + ' ' + name;
    separator = ", ";
  }
  return text + '\n';
}

std::string jsonOf(const char *kind, const std::string &file, std::span<const Result> results) {
  std::string text =
      "{\n  \"kind\": " + jsonText(kind) + ",\n  \"file\": " + jsonText(file) + ",\n";
  for (const Outcome outcome : kOutcomes) {
    text +=
        "  " + jsonText(nameOf(outcome)) + ": " + std::to_string(countOf(results, outcome)) + ",\n";
  }
  text += "  \"checks\": [\n";
  for (const Result &result : results) {
    text += jsonCheck(result) + (&result == &results.back() ? "\n" : ",\n");
  }
  return text + "  ]\n}\n";
}

size_t countBad(std::span<const Result> results) {
  return static_cast<size_t>(std::ranges::count_if(
      results, [](const Result &result) { return isBad(result.verdict.outcome); }));
}

}  // namespace morva::cli::check
