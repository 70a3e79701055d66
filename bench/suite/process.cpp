#include "process.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>

extern char **environ;

namespace bench {
namespace {

// What a process that runs `words` writes to its standard output.
std::string outputOf(std::vector<std::string> words, int &status) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, ends[0]);
  posix_spawn_file_actions_addclose(&actions, ends[1]);
  std::vector<char *> arguments;
  for (std::string &word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t pid = 0;
  const int failed =
      posix_spawn(&pid, "/proc/self/exe", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  std::string output;
  std::array<char, 4096> part;
  for (ssize_t got = 0; (got = read(ends[0], part.data(), part.size())) > 0;)
    output.append(part.data(), static_cast<size_t>(got));
  close(ends[0]);
  if (failed != 0) throw std::runtime_error("no process: " + std::string(std::strerror(failed)));
  waitpid(pid, &status, 0);
  return output;
}

std::string nameOf(const Entry &entry, const Job &job) {
  return entry.family + " of " + entry.keys + " by " + entry.contender +
         ", n = " + std::to_string(job.n);
}

const Entry &entryNamed(const std::string &family, const std::string &keys,
                        const std::string &contender) {
  for (const Entry &entry : registry()) {
    if (entry.family == family && entry.keys == keys && entry.contender == contender) return entry;
  }
  throw std::runtime_error("there is no " + family + " of " + keys + " by " + contender);
}

}  // namespace

ProcessSample sampleInProcess(const Entry &entry, const Job &job) {
  int status = 0;
  std::istringstream lines(
      outputOf({"morva_bench", "sample", entry.family, entry.keys, entry.contender,
                std::to_string(job.n), std::to_string(job.sample)},
               status));
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error(nameOf(entry, job) + ": the process ended with " +
                             (WIFEXITED(status) ? "status " + std::to_string(WEXITSTATUS(status))
                                                : "signal " + std::to_string(WTERMSIG(status))));
  }
  ProcessSample sample{{}, 0};
  Measure measure;
  while (lines >> measure.workload >> measure.unit >> measure.value >> measure.checksum)
    sample.measures.push_back(measure);
  if (sample.measures.size() < 2 || sample.measures.back().workload != "peak")
    throw std::runtime_error(nameOf(entry, job) + ": the process said nothing of use");
  sample.peakResidentBytes = sample.measures.back().checksum;
  sample.measures.pop_back();
  return sample;
}

int answerSample(const std::vector<std::string> &words) {
  if (words.size() != 5) throw std::runtime_error("a sample needs five words");
  const Entry &entry = entryNamed(words[0], words[1], words[2]);
  const Job job{std::stoull(words[3]), static_cast<unsigned>(std::stoul(words[4]))};
  for (const Measure &measure : entry.run(job)) {
    std::printf("%s %s %.9g %" PRIu64 "\n", measure.workload.c_str(), measure.unit.c_str(),
                measure.value, measure.checksum);
  }
  std::printf("peak bytes 0 %" PRIu64 "\n", peakResidentBytes());
  return 0;
}

}  // namespace bench
