// Measures Morva and its peers. Contenders take turns, every sample is a process
// of its own, and all must come to the same checksums. Writes CSV; report.py
// makes tables and drawings of it.
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <stdexcept>
#include <tuple>

#include "plan.h"
#include "process.h"

namespace bench {
namespace {

constexpr char kUsage[] =
    "usage: morva_bench quick|full|smoke FILE [--only TEXT]... [--samples N]\n"
    "                                     [--smallest N] [--largest N]\n"
    "       morva_bench list\n"
    "  quick      sizes up to 300000, a sample of each: takes about a minute\n"
    "  full       all sizes, many samples: takes long\n"
    "  smoke      tiny, to see that everything works\n"
    "  FILE       receives the samples as CSV\n"
    "  --only     leaves out what has none of these texts in \"FAMILY KEYS CONTENDER\"\n"
    "  --samples  takes N samples of everything\n"
    "  --smallest, --largest  leave out sizes below, and above N\n";

#if defined(__clang__)
constexpr char kCompiler[] = __VERSION__;
#else
constexpr char kCompiler[] = "GCC " __VERSION__;
#endif

struct Request {
  Extent extent = Extent::kQuick;
  std::string file;
  std::vector<std::string> only;
  unsigned samples = 0;
  size_t smallest = 0;
  size_t largest = SIZE_MAX;

  bool wants(const Entry &entry) const {
    const std::string title = entry.family + " " + entry.keys + " " + entry.contender;
    return only.empty() || std::any_of(only.begin(), only.end(), [&](const std::string &text) {
             return title.find(text) != std::string::npos;
           });
  }
};

// Finds out when two contenders do not come to the same result.
class Referee {
 public:
  void check(const Entry &entry, const Job &job, const Measure &measure) {
    const auto [at, first] = results_.try_emplace({measure.workload, entry.keys, job.n, job.sample},
                                                  Result{measure.checksum, entry.contender});
    if (first || at->second.checksum == measure.checksum) return;
    throw std::runtime_error(measure.workload + " of " + entry.keys +
                             ", n = " + std::to_string(job.n) + ": " + entry.contender + " and " +
                             at->second.contender + " came to different results");
  }

 private:
  struct Result {
    uint64_t checksum;
    std::string contender;
  };
  std::map<std::tuple<std::string, std::string, size_t, unsigned>, Result> results_;
};

class Run {
 public:
  explicit Run(const Request &request) : request_(request), file_(request.file) {
    if (!file_) throw std::runtime_error("cannot write " + request.file);
    writeHead();
  }

  void go() {
    for (Step step : planOf(request_.extent)) {
      if (step.n < request_.smallest || step.n > request_.largest) continue;
      if (request_.samples != 0) step.samples = request_.samples;
      if (!memorySuffices(step.n)) {
        std::fprintf(stderr, "left out: %s, n = %zu: too little memory is free\n",
                     step.family.c_str(), step.n);
        continue;
      }
      take(step);
    }
    if (!file_.flush()) throw std::runtime_error("cannot write " + request_.file);
  }

 private:
  void take(const Step &step) {
    std::vector<const Entry *> turns;
    for (const Entry &entry : registry()) {
      if (entry.family == step.family && request_.wants(entry)) turns.push_back(&entry);
    }
    if (turns.empty()) return;
    std::fprintf(stderr, "%s, n = %zu\n", step.family.c_str(), step.n);
    for (unsigned sample = 0; sample < step.samples; ++sample) {
      for (const Entry *entry : turns) write(*entry, {step.n, sample});
      // Nobody is always the first, or behind the same one.
      std::rotate(turns.begin(),
                  turns.begin() + static_cast<ptrdiff_t>(turns.size() / 3 + 1) %
                                      static_cast<ptrdiff_t>(turns.size()),
                  turns.end());
    }
  }

  void write(const Entry &entry, const Job &job) {
    const ProcessSample sample = sampleInProcess(entry, job);
    for (const Measure &measure : sample.measures) {
      referee_.check(entry, job, measure);
      file_ << measure.workload << ',' << entry.keys << ",\"" << entry.contender << "\"," << job.n
            << ',' << job.sample << ',' << measure.value << ',' << measure.unit << ','
            << measure.checksum << ',' << sample.peakResidentBytes << '\n';
    }
    // A run of hours that is stopped leaves what it has.
    file_.flush();
  }

  // Lines with "#" say where the samples are from.
  void writeHead() {
    char date[32];
    const time_t now = time(nullptr);
    strftime(date, sizeof date, "%Y-%m-%d", gmtime(&now));
    file_ << "# date: " << date << "\n# machine: " << processor() << "\n# compiler: " << kCompiler
          << "\nworkload,keys,contender,n,sample,value,unit,checksum,peak_resident_bytes\n";
  }

  static std::string processor() {
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; std::getline(file, line);) {
      if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
    }
    return "unknown";
  }

  const Request request_;
  std::ofstream file_;
  Referee referee_;
};

size_t number(const std::string &word) {
  size_t used = 0;
  unsigned long long value = 0;
  try {
    value = std::stoull(word, &used);
  } catch (const std::exception &) {
    used = 0;
  }
  if (used == 0 || used != word.size() || value == 0)
    throw std::runtime_error("'" + word + "' is no number above 0");
  return value;
}

Request parse(const std::vector<std::string> &words) {
  static const std::map<std::string, Extent> extents = {
      {"quick", Extent::kQuick}, {"full", Extent::kFull}, {"smoke", Extent::kSmoke}};
  Request request;
  request.extent = extents.at(words.at(0));
  request.file = words.at(1);
  for (size_t i = 2; i < words.size(); i += 2) {
    const std::string &value = words.at(i + 1);
    if (words[i] == "--only") {
      request.only.push_back(value);
    } else if (words[i] == "--samples") {
      request.samples = static_cast<unsigned>(number(value));
    } else if (words[i] == "--smallest") {
      request.smallest = number(value);
    } else if (words[i] == "--largest") {
      request.largest = number(value);
    } else {
      throw std::out_of_range(words[i]);
    }
  }
  return request;
}

int run(const std::vector<std::string> &words) {
  if (!words.empty() && words[0] == "sample")
    return answerSample(std::vector<std::string>(words.begin() + 1, words.end()));
  if (words.size() == 1 && words[0] == "list") {
    for (const Entry &entry : registry())
      std::printf("%s %s %s\n", entry.family.c_str(), entry.keys.c_str(), entry.contender.c_str());
    return 0;
  }
  Request request;
  try {
    request = parse(words);
  } catch (const std::out_of_range &) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  Run(request).go();
  return 0;
}

}  // namespace
}  // namespace bench

int main(int argc, char **argv) {
  try {
    return bench::run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception &error) {
    std::fprintf(stderr, "morva_bench: %s\n", error.what());
    return 1;
  }
}
