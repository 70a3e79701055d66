// What the eight hash methods do to keys as programs have them: how they spread
// over the buckets, what that costs a find, and how long a hash takes. Prints
// Markdown tables; docs/hash-methods.md shows and explains them.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "key_sets.h"
#include "morva/host.h"
#include "morva/morva.h"
#include "thread_time.h"

namespace bench {
namespace {

constexpr int kFirstMethod = 2;
constexpr int kMethods = 8;

int methodAt(size_t index) {
  return kFirstMethod + static_cast<int>(index);
}

struct HostDestroyer {
  void operator()(QZHost *host) const { QZHostDestroy(host, nullptr); }
};
using Host = std::unique_ptr<QZHost, HostDestroyer>;

struct TableDestroyer {
  void operator()(MORVAInst *table) const { table->Destroy(table); }
};
using Table = std::unique_ptr<MORVAInst, TableDestroyer>;

MORVAExt *attach(QZHost *host) {
  char error[256] = "no memory for a host";
  const QZEntryPoints entry = {"morva", qzextver, morva::morva};
  MORVAExt *ext = host == nullptr ? nullptr : QZHostAttach(host, &entry, error, sizeof error);
  if (ext == nullptr) throw std::runtime_error(error);
  return ext;
}

Table makeTable(MORVAExt *ext, int method, int exp, size_t longestKey) {
  MORVAParms parms{};
  parms.dataLength = 8;
  parms.keyLength = static_cast<uint32_t>(longestKey);
  parms.flags = flagFixedKey | flagNoLock;
  parms.hashMethod = method;
  parms.hashExp = exp;
  Table table(ext->Create(ext, &parms, nullptr, "bench"));
  if (!table) throw std::runtime_error("no memory for a table");
  return table;
}

size_t longest(const Keys &keys) {
  size_t length = 0;
  for (const std::string &key : keys) length = std::max(length, key.size());
  return length;
}

void add(MORVAInst *table, const std::string &key) {
  const uint64_t data = 0;
  if (table->Add(table, &data, key.data(), static_cast<int32_t>(key.size())) != MORVA_OK)
    throw std::runtime_error("a key could not be added: equal to another, or no memory");
}

// ---- spread -----------------------------------------------------------------

struct Spread {
  double emptyShare;   // of the buckets
  double longest;      // records of the fullest bucket
  double comparisons;  // of a find that succeeds, on average over the keys
  double chiSquare;    // per degree of freedom: 1 is what chance gives
};

const RecordNode *child(uintptr_t link) {
  if ((link & LINK_THREAD) != 0) return nullptr;
  return reinterpret_cast<const RecordNode *>(link & ~uintptr_t{LINK_HEAVY});
}

// The sum of the depths of a bucket's nodes, the root's being 1: a find compares
// once on every level down to its node.
uint64_t depths(const RecordNode *node, uint64_t depth) {
  if (node == nullptr) return 0;
  return depth + depths(child(node->left), depth + 1) + depths(child(node->right), depth + 1);
}

Spread spreadOf(MORVAInst *table) {
  const uint32_t buckets = table->HashSize(table);
  const double records = table->NumElements(table);
  uint64_t empty = 0;
  uint64_t squares = 0;
  uint64_t comparisons = 0;
  uint64_t fullest = 0;
  for (uint32_t i = 0; i < buckets; ++i) {
    const uint64_t size = table->BucketSize(table, i);
    empty += size == 0;
    squares += size * size;
    fullest = std::max(fullest, size);
    comparisons += depths(MORVABucketAt(table->buckets, i)->root, 1);
  }
  const double expected = records / buckets;
  return {static_cast<double>(empty) / buckets, static_cast<double>(fullest),
          static_cast<double>(comparisons) / records,
          (static_cast<double>(squares) / expected - records) / (buckets - 1)};
}

// Comparisons of all finds in the best tree of `nodes` nodes.
double bestTree(uint32_t nodes) {
  double sum = 0;
  for (uint32_t i = 1; i <= nodes; ++i) sum += std::floor(std::log2(i)) + 1;
  return sum;
}

// What a hash that throws the keys at random would do, with the best trees.
Spread ideal(double records, double buckets) {
  const double load = records / buckets;
  double probability = std::exp(-load);  // of a bucket of `size` records
  double below = probability;
  double comparisons = 0;
  double fullest = 0;
  for (uint32_t size = 1; size < 64; ++size) {
    probability *= load / size;
    comparisons += probability * bestTree(size);
    // The fullest bucket, as often as not: half a bucket is expected above it.
    if (buckets * (1 - below) > 0.5) fullest = size;
    below += probability;
  }
  return {std::exp(-load), fullest, comparisons / load, 1};
}

using Row = std::array<double, kMethods>;
struct NamedRow {
  std::string name;
  Row values;
};

void printTable(const char *title, const std::vector<NamedRow> &rows, int decimals) {
  std::printf("%s\n\n| keys |", title);
  for (int method = kFirstMethod; method < kFirstMethod + kMethods; ++method)
    std::printf(" %d |", method);
  std::printf("\n|---|");
  for (int i = 0; i < kMethods; ++i) std::printf("---:|");
  std::printf("\n");
  for (const NamedRow &row : rows) {
    std::printf("| %s |", row.name.c_str());
    for (const double value : row.values) std::printf(" %.*f |", decimals, value);
    std::printf("\n");
  }
  std::printf("\n");
}

// Calls `use` with every set that has a key for each of 2^exp buckets.
template <class Use>
void forEachSet(const std::vector<KeySet> &sets, int exp, Use use) {
  const size_t count = size_t{1} << exp;
  for (const KeySet &set : sets) {
    const Keys keys = set.make(count);
    if (keys.size() == count) {
      use(set.name, keys);
    } else {
      std::fprintf(stderr, "%s: %zu keys only, left out\n", set.name.c_str(), keys.size());
    }
  }
}

void spread(MORVAExt *ext, const std::vector<KeySet> &sets, int exp) {
  std::vector<NamedRow> empty, fullest, comparisons, chiSquare;
  forEachSet(sets, exp, [&](const std::string &name, const Keys &keys) {
    for (std::vector<NamedRow> *rows : {&empty, &fullest, &comparisons, &chiSquare})
      rows->push_back({name, {}});
    for (size_t i = 0; i < kMethods; ++i) {
      const Table table = makeTable(ext, methodAt(i), exp, longest(keys));
      for (const std::string &key : keys) add(table.get(), key);
      const Spread result = spreadOf(table.get());
      empty.back().values[i] = 100 * result.emptyShare;
      fullest.back().values[i] = result.longest;
      comparisons.back().values[i] = result.comparisons;
      chiSquare.back().values[i] = result.chiSquare;
    }
  });
  const double count = std::ldexp(1, exp);
  const Spread best = ideal(count, count);
  std::printf(
      "2^%d keys in as many buckets. Chance gives: chi-square 1, %.3f comparisons, a longest "
      "bucket of %.0f, %.1f %% empty.\n\n",
      exp, best.comparisons, best.longest, 100 * best.emptyShare);
  printTable("Chi-square per degree of freedom", chiSquare, 3);
  printTable("Comparisons of a find", comparisons, 3);
  printTable("Longest bucket", fullest, 0);
  printTable("Empty buckets, per cent", empty, 1);
}

// ---- finds ------------------------------------------------------------------

// The keys in another order, side by side in memory.
class Requests {
 public:
  explicit Requests(const Keys &keys) {
    std::vector<size_t> order(keys.size());
    std::iota(order.begin(), order.end(), size_t{0});
    for (size_t i = order.size(); i > 1; --i) std::swap(order[i - 1], order[scrambled(i) % i]);
    for (const size_t i : order) {
      lengths_.push_back(static_cast<int32_t>(keys[i].size()));
      bytes_ += keys[i];
    }
  }
  // With `waiting` each key's place depends on the data found before it, so that
  // no find begins before the last one is done.
  void findAll(MORVAInst *table, bool waiting) const {
    const char *key = bytes_.data();
    for (const int32_t length : lengths_) {
      void *data = nullptr;
      if (table->Find(table, key, length, &data) != MORVA_OK || data == nullptr)
        throw std::runtime_error("a key was not found");
      key += length;
      if (waiting) key += *static_cast<const uint64_t *>(data);  // 0, but only memory knows
    }
  }

 private:
  std::string bytes_;
  std::vector<int32_t> lengths_;
};

// One value for each method: the median of `rounds` calls of `measure`. Methods
// take turns, so that a busy moment of the machine meets them all.
template <class Measure>
Row mediansOf(int rounds, Measure measure) {
  std::array<std::vector<double>, kMethods> values;
  for (int round = 0; round < rounds; ++round) {
    for (size_t i = 0; i < kMethods; ++i) values[i].push_back(measure(i));
  }
  Row medians{};
  for (size_t i = 0; i < kMethods; ++i) medians[i] = median(values[i]);
  return medians;
}

void finds(MORVAExt *ext, const std::vector<KeySet> &sets, int exp, int rounds) {
  std::vector<NamedRow> overlapping, waiting;
  forEachSet(sets, exp, [&](const std::string &name, const Keys &keys) {
    const Requests requests(keys);
    std::array<Table, kMethods> tables;
    for (size_t i = 0; i < kMethods; ++i) {
      tables[i] = makeTable(ext, methodAt(i), exp, longest(keys));
      for (const std::string &key : keys) add(tables[i].get(), key);
    }
    const auto time = [&](bool wait) {
      return mediansOf(rounds, [&](size_t i) {
        const double start = nanoseconds();
        requests.findAll(tables[i].get(), wait);
        return (nanoseconds() - start) / static_cast<double>(keys.size());
      });
    };
    overlapping.push_back({name, time(false)});
    waiting.push_back({name, time(true)});
  });
  std::printf("2^%d keys in as many buckets, found in random order; median of %d rounds.\n\n", exp,
              rounds);
  printTable("Nanoseconds per find, all keys known beforehand", overlapping, 0);
  printTable("Nanoseconds per find, each key known after the find before", waiting, 0);
}

// ---- speed ------------------------------------------------------------------

constexpr size_t kSpeedKeys = 1024;

// Each call's key depends on the answer before it, as a find's bucket does on
// its hash: what is measured is how long a hash takes, not how many overlap.
double hashTime(MORVAInst *table, const std::string &bytes, size_t length, int calls) {
  size_t at = 0;
  const double start = nanoseconds();
  for (int i = 0; i < calls; ++i) {
    uint32_t bucket = 0;
    const char *key = bytes.data() + at * length;
    if (table->HashVal(table, key, static_cast<int32_t>(length), &bucket) != MORVA_OK)
      throw std::runtime_error("no memory for a hash");
    at = (at + 1 + (bucket & 1)) % kSpeedKeys;
  }
  return (nanoseconds() - start) / calls;
}

void speed(MORVAExt *ext, int rounds, int calls) {
  // The shortest key is what the others are compared with: an empty one would
  // not make a call wait for the one before.
  constexpr size_t kShortest = 1;
  constexpr size_t lengths[] = {kShortest, 8, 16, 32, 100};
  std::string bytes;
  for (uint64_t i = 0; bytes.size() < kSpeedKeys * 100; ++i)
    bytes += static_cast<char>(scrambled(i));
  std::array<Table, kMethods> tables;
  for (size_t i = 0; i < kMethods; ++i) tables[i] = makeTable(ext, methodAt(i), 16, 100);
  std::vector<NamedRow> whole, further, ratio;
  for (const size_t length : lengths) {
    const std::string name = std::to_string(length) + (length == 1 ? " byte" : " bytes");
    whole.push_back({name, mediansOf(rounds, [&](size_t i) {
                       return hashTime(tables[i].get(), bytes, length, calls);
                     })});
    if (length == kShortest) continue;
    Row more{}, relative{};
    for (size_t i = 0; i < kMethods; ++i) {
      more[i] = whole.back().values[i] - whole.front().values[i];
      relative[i] = more[i] / more[0];
    }
    further.push_back({name, more});
    ratio.push_back({name, relative});
  }
  std::printf("Median of %d rounds of %d calls.\n\n", rounds, calls);
  printTable("Nanoseconds per call of HashVal", whole, 1);
  printTable("Nanoseconds above a call with a key of 1 byte", further, 1);
  printTable("The same as a multiple of method 2", ratio, 2);
}

// ---- the command line -------------------------------------------------------

constexpr char kUsage[] =
    "usage: hash_methods spread EXP [NAME=FILE ...]\n"
    "       hash_methods finds EXP ROUNDS [NAME=FILE ...]\n"
    "       hash_methods speed ROUNDS CALLS\n"
    "2^EXP keys of each set go into as many buckets. With files, the keys are their lines.\n";

int number(const std::string &word, int least, int most) {
  char *end = nullptr;
  const long value = std::strtol(word.c_str(), &end, 10);
  if (end == word.c_str() || *end != 0 || value < least || value > most) {
    throw std::runtime_error("'" + word + "' is no number from " + std::to_string(least) + " to " +
                             std::to_string(most));
  }
  return static_cast<int>(value);
}

std::vector<KeySet> setsNamed(const std::vector<std::string> &words, size_t from) {
  if (words.size() <= from) return keySets();
  std::vector<KeySet> sets;
  for (size_t i = from; i < words.size(); ++i) {
    const size_t equals = words[i].find('=');
    if (equals == std::string::npos)
      throw std::runtime_error("'" + words[i] + "' is not NAME=FILE");
    sets.push_back(linesOf(words[i].substr(0, equals), words[i].substr(equals + 1)));
  }
  return sets;
}

int run(const std::vector<std::string> &words) {
  const Host host(QZHostCreate(nullptr));
  MORVAExt *ext = attach(host.get());
  const std::string command = words.empty() ? "" : words[0];
  if (command == "spread" && words.size() >= 2) {
    spread(ext, setsNamed(words, 2), number(words[1], 1, 20));
  } else if (command == "finds" && words.size() >= 3) {
    finds(ext, setsNamed(words, 3), number(words[1], 1, 20), number(words[2], 1, 1000));
  } else if (command == "speed" && words.size() == 3) {
    speed(ext, number(words[1], 1, 1000), number(words[2], 1, 100'000'000));
  } else {
    std::fputs(kUsage, stderr);
    return 2;
  }
  return 0;
}

}  // namespace
}  // namespace bench

int main(int argc, char **argv) {
  try {
    return bench::run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception &error) {
    std::fprintf(stderr, "hash_methods: %s\n", error.what());
    return 1;
  }
}
