#include "runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <optional>
#include <utility>

#include "../error.h"

namespace morva::cli::check {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr size_t kLongestDetail = 4096;
constexpr size_t kLongestOutput = 400;
// What a check may print before the rest is dropped, so that one that never stops fills no memory.
constexpr off_t kMostOutput = off_t{1} << 20;

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  int get() const { return fd_; }
  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

[[noreturn]] void failSystem(const char *what) {
  throw Error(std::string(what) + ": " + std::strerror(errno));
}

// A new descriptor above those of the standard streams, which the program may have been started
// without: what is to become one of them, or to stay beside them, must not be one.
Descriptor aboveStreams(int fd) {
  if (fd < 0) failSystem("no descriptor can be had");
  const Descriptor made(fd);
  Descriptor above(fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (above.get() < 0) failSystem("no descriptor can be had");
  return above;
}

// A file for what a check prints. It has its whole size from the start and cannot grow: a limit to
// the size of files would be one for the library under check, too, whose memory may be files.
Descriptor makeOutput() {
  Descriptor output = aboveStreams(memfd_create("check", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (ftruncate(output.get(), kMostOutput) != 0 ||
      fcntl(output.get(), F_ADD_SEALS, F_SEAL_GROW) != 0) {
    failSystem("no file in memory can be made");
  }
  return output;
}

// ---- In the check's process ----------------------------------------------------------

// The first byte is the outcome, the rest the detail.
void tell(int to, Outcome outcome, const std::string &detail) {
  std::string message(1, static_cast<char>(outcome));
  message.append(detail, 0, kLongestDetail);
  std::string_view rest = message;
  while (!rest.empty()) {
    const ssize_t written = write(to, rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    rest.remove_prefix(static_cast<size_t>(written));
  }
}

void settleIn(int output, pid_t parent) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);
  const rlimit noCore{0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  // What sets handlers of its own in the program says nothing about the library under check.
  for (const int number : {SIGPIPE, SIGINT, SIGTERM}) signal(number, SIG_DFL);
  const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (nothing >= 0) dup2(nothing, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
}

[[noreturn]] void checkAndEnd(const Check &check, const Subject &subject, int result) {
  const pid_t process = getpid();
  const auto say = [=](Outcome outcome, const std::string &detail) {
    // A copy of the process that the library under check has made has no say.
    if (getpid() == process) tell(result, outcome, detail);
  };
  try {
    check.run(subject);
    say(Outcome::kPassed, "");
  } catch (const NotApplicable &reason) {
    say(Outcome::kNotApplicable, reason.what());
  } catch (const std::exception &complaint) {
    say(Outcome::kFailed, complaint.what());
  } catch (...) {
    say(Outcome::kFailed, "something unknown was thrown");
  }
  // Neither the destructors of the program nor those of the library under check.
  _exit(0);
}

// ---- In the program -------------------------------------------------------------------

int millisecondsUntil(Clock::time_point end) {
  const auto left = std::chrono::ceil<milliseconds>(end - Clock::now()).count();
  return static_cast<int>(std::clamp<long long>(left, 0, 24 * 3600 * 1000));
}

// What is in the pipe, or as much of it as a check can have to say; whether there can be more.
bool drain(int from, std::string &message) {
  for (size_t taken = 0; taken <= kLongestDetail;) {
    char piece[1024];
    const ssize_t got = read(from, piece, sizeof piece);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return got < 0 && errno == EAGAIN;
    taken += static_cast<size_t>(got);
    if (message.size() <= kLongestDetail) message.append(piece, static_cast<size_t>(got));
  }
  return true;
}

// Reads until the process has ended, or to the end of the time. The end of the pipe alone would not
// do: a process that the library under check has started keeps it open.
std::string listen(int from, int process, Clock::time_point end) {
  std::string message;
  for (;;) {
    pollfd waiting[] = {{from, POLLIN, 0}, {process, POLLIN, 0}};
    const int ready = poll(waiting, 2, millisecondsUntil(end));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return message;
    const bool ended = waiting[1].revents != 0;
    if (!drain(from, message) || ended || Clock::now() >= end) return message;
  }
}

// How the process ended; nothing when it had to be ended.
std::optional<int> awaitEnd(pid_t process, Clock::time_point end) {
  int status = 0;
  for (;;) {
    const pid_t ended = waitpid(process, &status, WNOHANG);
    if (ended == process) {
      kill(-process, SIGKILL);  // what it started itself
      return status;
    }
    if (ended < 0 && errno != EINTR) failSystem("the process of a check is lost");
    if (Clock::now() >= end) break;
    poll(nullptr, 0, 1);
  }
  kill(-process, SIGKILL);
  kill(process, SIGKILL);
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return std::nullopt;
}

// The end of what the check printed, on one line.
std::string lastWords(int output) {
  // Whoever printed has moved the place that all copies of the descriptor share.
  const off_t size = lseek(output, 0, SEEK_CUR);
  if (size <= 0) return "";
  std::string text(std::min(static_cast<size_t>(size), kLongestOutput), '\0');
  const ssize_t got =
      pread(output, text.data(), text.size(), size - static_cast<off_t>(text.size()));
  text.resize(got > 0 ? static_cast<size_t>(got) : 0);
  while (!text.empty() && text.back() == '\n') text.pop_back();
  for (char &character : text) {
    if (static_cast<unsigned char>(character) < ' ') character = ' ';
  }
  return text.empty() ? "" : "; it printed: " + text;
}

// What the process of a check may say of itself.
bool isTold(Outcome outcome) {
  return outcome == Outcome::kPassed || outcome == Outcome::kFailed ||
         outcome == Outcome::kNotApplicable;
}

Verdict judge(const std::string &message, std::optional<int> ended, int output) {
  Verdict verdict;
  if (!ended) {
    verdict.outcome = Outcome::kTimedOut;
    verdict.detail = "it did not come back in time" + lastWords(output);
  } else if (WIFSIGNALED(*ended)) {
    verdict.outcome = Outcome::kCrashed;
    verdict.detail = "it was ended by signal " + std::to_string(WTERMSIG(*ended)) + " (" +
                     strsignal(WTERMSIG(*ended)) + ')' + lastWords(output);
  } else if (message.empty()) {
    verdict.outcome = Outcome::kCrashed;
    verdict.detail = "it ended the process with status " + std::to_string(WEXITSTATUS(*ended)) +
                     lastWords(output);
  } else if (!isTold(static_cast<Outcome>(message[0]))) {
    verdict.outcome = Outcome::kCrashed;
    verdict.detail = "it wrote to a descriptor that is not its own";
  } else {
    verdict.outcome = static_cast<Outcome>(message[0]);
    verdict.detail = message.substr(1);
  }
  return verdict;
}

}  // namespace

const char *nameOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::kPassed:
      return "passed";
    case Outcome::kFailed:
      return "failed";
    case Outcome::kCrashed:
      return "crashed";
    case Outcome::kTimedOut:
      return "timed-out";
    case Outcome::kNotApplicable:
      return "not-applicable";
    case Outcome::kNotRun:
      break;
  }
  return "not-run";
}

Verdict runAlone(const Check &check, const Subject &subject, milliseconds limit) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) failSystem("no pipe can be made");
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  const Descriptor from = aboveStreams(ends[0]);
  Descriptor to = aboveStreams(ends[1]);
  const Descriptor output = makeOutput();

  const Clock::time_point start = Clock::now();
  const Clock::time_point end = start + limit;
  const pid_t parent = getpid();
  const pid_t process = fork();
  if (process < 0) failSystem("no process can be made");
  if (process == 0) {
    settleIn(output.get(), parent);
    checkAndEnd(check, subject, to.get());
  }
  to.close();
  setpgid(process, process);  // both do it, so that it is done whoever comes first
  // Without a descriptor of the process the end of the pipe must do.
  const Descriptor watch(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
  const std::string message = listen(from.get(), watch.get(), end);
  const std::optional<int> ended = awaitEnd(process, end);
  Verdict verdict = judge(message, ended, output.get());
  verdict.time = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
  return verdict;
}

}  // namespace morva::cli::check
