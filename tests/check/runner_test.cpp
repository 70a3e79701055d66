// That a check is a process of its own, whatever it does there.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "check/report.h"
#include "check/runner.h"

namespace {

using namespace morva::cli::check;
using std::chrono::milliseconds;

constexpr milliseconds kLong{20000};

Verdict verdictOf(void (*run)(const Subject &), milliseconds limit = kLong) {
  const Check check{"test.check", "It does what is asked of it.", run};
  return runAlone(check, {"file", "library"}, limit);
}

bool says(const Verdict &verdict, const std::string &text) {
  return verdict.detail.find(text) != std::string::npos;
}

TEST(Runner, PassesAKeptPromiseWithoutAWord) {
  const Verdict verdict = verdictOf([](const Subject &subject) {
    if (subject.file != "file" || subject.library != "library") throw Unmet("another subject");
  });
  EXPECT_EQ(verdict.outcome, Outcome::kPassed);
  EXPECT_EQ(verdict.detail, "");
}

TEST(Runner, TellsWhatWasSeen) {
  const Verdict verdict =
      verdictOf([](const Subject &) { expectEqual(3, 4, "the number of legs"); });
  EXPECT_EQ(verdict.outcome, Outcome::kFailed);
  EXPECT_EQ(verdict.detail, "the number of legs is 3 and should be 4");
}

TEST(Runner, ShowsStatusesAsTheyAreWritten) {
  const Verdict verdict = verdictOf([](const Subject &) { expectStatus(1, 0x803fc009, "Add"); });
  EXPECT_EQ(verdict.detail, "Add answered 1 and should answer 0x803fc009");
}

TEST(Runner, TakesAnythingThrownForAFailure) {
  EXPECT_EQ(verdictOf([](const Subject &) { throw std::runtime_error("odd"); }).detail, "odd");
  EXPECT_EQ(verdictOf([](const Subject &) { throw 17; }).outcome, Outcome::kFailed);
}

TEST(Runner, TellsWhatDoesNotApply) {
  const Verdict verdict = verdictOf([](const Subject &) { throw NotApplicable("no such thing"); });
  EXPECT_EQ(verdict.outcome, Outcome::kNotApplicable);
  EXPECT_EQ(verdict.detail, "no such thing");
  EXPECT_FALSE(isBad(verdict.outcome));
}

TEST(Runner, SurvivesACrash) {
  const Verdict verdict = verdictOf([](const Subject &) {
    std::fputs("about to fall\n", stderr);
    raise(SIGKILL);
  });
  EXPECT_EQ(verdict.outcome, Outcome::kCrashed);
  EXPECT_TRUE(says(verdict, "signal 9")) << verdict.detail;
  EXPECT_TRUE(says(verdict, "about to fall")) << verdict.detail;
}

TEST(Runner, NoticesAnExitInTheMiddle) {
  const Verdict verdict = verdictOf([](const Subject &) { _exit(0); });
  EXPECT_EQ(verdict.outcome, Outcome::kCrashed);
  EXPECT_TRUE(says(verdict, "ended the process with status 0")) << verdict.detail;
}

TEST(Runner, EndsWhatHangs) {
  const Verdict verdict = verdictOf(
      [](const Subject &) {
        for (;;) pause();
      },
      milliseconds(50));
  EXPECT_EQ(verdict.outcome, Outcome::kTimedOut);
  EXPECT_GE(verdict.time.count(), 50);
}

TEST(Runner, EndsWhatHangsAndDoesNotListenToSignals) {
  const Verdict verdict = verdictOf(
      [](const Subject &) {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, nullptr);
        for (;;) pause();
      },
      milliseconds(50));
  EXPECT_EQ(verdict.outcome, Outcome::kTimedOut);
}

TEST(Runner, DropsEndlessOutputAndShowsSomeOfIt) {
  const Verdict verdict = verdictOf([](const Subject &) {
    const std::string line(4096, 'o');
    while (write(STDOUT_FILENO, line.data(), line.size()) > 0) {
    }
    raise(SIGKILL);
  });
  EXPECT_EQ(verdict.outcome, Outcome::kCrashed);
  EXPECT_TRUE(says(verdict, "it printed: ooo")) << verdict.detail;
  EXPECT_LT(verdict.detail.size(), 1000U);
}

TEST(Runner, LetsACheckHaveLargeFiles) {
  const Verdict verdict = verdictOf([](const Subject &) {
    const int file = memfd_create("memory of a host", 0);
    expectEqual(ftruncate(file, off_t{1} << 24), 0, "what ftruncate answers");
    expectEqual(pwrite(file, "x", 1, (off_t{1} << 24) - 1), ssize_t{1}, "what pwrite answers");
  });
  EXPECT_EQ(verdict.outcome, Outcome::kPassed) << verdict.detail;
}

TEST(Runner, TakesNoWordFromACopyOfTheProcess) {
  const Verdict verdict = verdictOf([](const Subject &) {
    const pid_t copy = fork();
    if (copy == 0) throw Unmet("the copy has seen something");
    waitpid(copy, nullptr, 0);
  });
  EXPECT_EQ(verdict.outcome, Outcome::kPassed) << verdict.detail;
}

// Writes to whatever the runner has opened, which alone is not for other programs.
void writeNoise() {
  const std::string noise(4096, 'n');
  for (int fd = STDERR_FILENO + 1; fd != 64; ++fd) {
    if (fcntl(fd, F_GETFD) != FD_CLOEXEC) continue;
    if (write(fd, noise.data(), noise.size()) < 0) continue;
  }
}

TEST(Runner, TakesNoNoiseForAVerdict) {
  const Verdict verdict = verdictOf([](const Subject &) { writeNoise(); });
  EXPECT_EQ(verdict.outcome, Outcome::kCrashed);
  EXPECT_TRUE(says(verdict, "not its own")) << verdict.detail;
}

TEST(Runner, EndsWhatMakesNoiseWithoutEnd) {
  const Verdict verdict = verdictOf(
      [](const Subject &) {
        for (;;) writeNoise();
      },
      milliseconds(200));
  EXPECT_EQ(verdict.outcome, Outcome::kTimedOut);
}

TEST(Runner, CutsLongComplaints) {
  const Verdict verdict =
      verdictOf([](const Subject &) { throw Unmet(std::string(1000000, 'x')); });
  EXPECT_EQ(verdict.outcome, Outcome::kFailed);
  EXPECT_EQ(verdict.detail.size(), 4096U);
}

TEST(Runner, DoesNotWaitForAProcessLeftBehindAndEndsIt) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const Verdict verdict = verdictOf([](const Subject &) {
    if (fork() != 0) return;
    for (;;) pause();
  });
  close(ends[1]);
  EXPECT_EQ(verdict.outcome, Outcome::kPassed) << verdict.detail;
  EXPECT_LT(verdict.time, kLong) << "it waited to the end of the time";
  // The end of the pipe comes when the last that holds it is gone.
  char byte;
  EXPECT_EQ(read(ends[0], &byte, 1), 0);
  close(ends[0]);
}

Result resultOf(const Check &check, Outcome outcome, const std::string &detail) {
  return {&check, {outcome, detail, milliseconds(7)}};
}

constexpr Check kOne{"one.check", "One is \"one\".", nullptr};
constexpr Check kTwo{"two.check", "Two is two.", nullptr};

TEST(Report, ShowsABadCheckWithItsPromise) {
  EXPECT_EQ(lineOf(resultOf(kTwo, Outcome::kTimedOut, "nothing")),
            "TIMED OUT      two.check\n    promised: Two is two.\n    seen: nothing\n");
  EXPECT_EQ(lineOf(resultOf(kTwo, Outcome::kPassed, "")), "passed         two.check\n");
  EXPECT_EQ(lineOf(resultOf(kTwo, Outcome::kNotRun, "it needs one.check")),
            "not-run        two.check\n    it needs one.check\n");
}

TEST(Report, CountsOutcomes) {
  const Result results[] = {resultOf(kOne, Outcome::kPassed, ""),
                            resultOf(kTwo, Outcome::kCrashed, "x"),
                            resultOf(kTwo, Outcome::kFailed, "x")};
  EXPECT_EQ(summaryOf(results), "3 checks: 1 passed, 1 failed, 1 crashed\n");
  EXPECT_EQ(countBad(results), 2U);
}

// A JSON reader of somebody else's.
std::string readBack(const std::string &json, const std::string &expression) {
  const std::string path = testing::TempDir() + "morva-report-" + std::to_string(getpid());
  FILE *file = std::fopen(path.c_str(), "w");
  std::fwrite(json.data(), 1, json.size(), file);
  std::fclose(file);
  const std::string command =
      "python3 -c 'import json, sys; r = json.load(open(sys.argv[1])); print(repr((" + expression +
      ")), end=\"\")' " + path;
  FILE *pipe = popen(command.c_str(), "r");
  std::string text;
  char piece[256];
  for (size_t got; (got = std::fread(piece, 1, sizeof piece, pipe)) != 0;) text.append(piece, got);
  EXPECT_EQ(pclose(pipe), 0) << json;
  std::remove(path.c_str());
  return text;
}

TEST(Report, IsJsonWhateverIsInIt) {
  std::string detail;
  for (int byte = 1; byte != 256; ++byte) detail += static_cast<char>(byte);
  const Result results[] = {resultOf(kOne, Outcome::kPassed, ""),
                            resultOf(kTwo, Outcome::kFailed, detail)};
  const std::string json = jsonOf("extension", "a \"file\"\n.so", results);
  EXPECT_EQ(readBack(json, "[ord(c) for c in r[\"checks\"][1][\"detail\"]] == list(range(1, 256))"),
            "True");
  EXPECT_EQ(
      readBack(json, "r[\"file\"], r[\"kind\"], r[\"passed\"], r[\"failed\"], r[\"crashed\"]"),
      "('a \"file\"\\n.so', 'extension', 1, 1, 0)");
  EXPECT_EQ(readBack(json, "r[\"checks\"][0]"),
            "{'name': 'one.check', 'outcome': 'passed', 'milliseconds': 7, "
            "'promise': 'One is \"one\".', 'detail': ''}");
}

}  // namespace
