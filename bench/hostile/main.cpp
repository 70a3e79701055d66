// What an attacker who knows the hash method does to a table: up to a million keys
// that all fall into one bucket, inserted, found and removed, beside a balanced
// tree without buckets and a chained table. Prints the ratios; every sample goes to a file
// for report.py. Fails when a bucket's tree is higher than it may be.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <tuple>

#include "../thread_time.h"
#include "contenders.h"
#include "tree_height.h"

namespace bench::hostile {
namespace {

struct Plan {
  size_t largest = 1'000'000;
  size_t largestChained = 30'000;
  size_t samples = 3;
};

const std::vector<const char *> kOperations = {"insert", "find", "remove"};

// The samples, by what they are of: the file, and the medians.
class Samples {
 public:
  explicit Samples(const char *path) : file_(std::fopen(path, "w")) {
    if (!file_) throw std::runtime_error(std::string("cannot write ") + path);
    std::fprintf(file_.get(), "method,key_bytes,contender,n,operation,sample,ns\n");
  }

  void add(uint32_t method, size_t length, const char *contender, size_t n, const char *operation,
           double ns) {
    std::vector<double> &all = values_[{method, length, contender, n, operation}];
    std::fprintf(file_.get(), "%u,%zu,%s,%zu,%s,%zu,%.2f\n", method, length, contender, n,
                 operation, all.size(), ns);
    all.push_back(ns);
  }

  double medianOf(uint32_t method, size_t length, const char *contender, size_t n,
                  const char *operation) const {
    return median(values_.at({method, length, contender, n, operation}));
  }

  void close() {
    if (std::fclose(file_.release()) != 0) throw std::runtime_error("the samples are not written");
  }

 private:
  struct Closer {
    void operator()(FILE *file) const { std::fclose(file); }
  };
  std::unique_ptr<FILE, Closer> file_;
  std::map<std::tuple<uint32_t, size_t, std::string, size_t, std::string>, std::vector<double>>
      values_;
};

// The same keys in three orders of chance, in which they come, are looked for and go.
template <size_t Length>
struct Orders {
  std::vector<Key<Length>> inserted, found, removed;

  Orders(const std::vector<Key<Length>> &keys, size_t n, size_t sample) {
    std::mt19937_64 random(sample);
    inserted.assign(keys.begin(), keys.begin() + static_cast<std::ptrdiff_t>(n));
    std::shuffle(inserted.begin(), inserted.end(), random);
    found = removed = inserted;
    std::shuffle(found.begin(), found.end(), random);
    std::shuffle(removed.begin(), removed.end(), random);
  }
};

template <template <size_t> class Contender, size_t Length>
void measure(uint32_t method, const Orders<Length> &orders, Samples &samples) {
  using Table = Contender<Length>;
  Table table(method);
  const size_t n = orders.inserted.size();
  uint64_t done = 0;
  const auto time = [&](const char *operation, auto run) {
    const double start = nanoseconds();
    run();
    const double each = (nanoseconds() - start) / static_cast<double>(n);
    samples.add(method, Length, Table::name, n, operation, each);
  };
  time("insert", [&] {
    for (size_t i = 0; i < n; ++i) done += table.insert(orders.inserted[i], i + 1);
  });
  time("find", [&] {
    for (const Key<Length> &key : orders.found) done += table.find(key);
  });
  time("remove", [&] {
    for (const Key<Length> &key : orders.removed) done += table.remove(key);
  });
  const uint64_t all = n;
  if (done != all + all * (all + 1) / 2 + all) {
    throw std::runtime_error(std::string(Table::name) + " lost or gained keys");
  }
}

// How high the tree of the one bucket is, with all keys and with half of them.
struct Heights {
  size_t full = 0;
  size_t half = 0;
  bool kept = true;
};

template <size_t Length>
Heights heightsOf(uint32_t method, const Orders<Length> &orders) {
  const MorvaC<Length> table(method);
  MORVAInst *inst = table.inst();
  const auto bucketOf = [inst](const Key<Length> &key) {
    uint32_t bucket = UINT32_MAX;
    inst->HashVal(inst, key.data(), Length, &bucket);
    return bucket;
  };
  const uint32_t bucket = bucketOf(orders.inserted.front());
  Heights heights;
  const auto height = [&](size_t keys) {
    const TreeSize size = sizeOf(MORVABucketAt(inst->buckets, bucket)->root);
    if (size.nodes != keys) throw std::runtime_error("the keys are not all in one bucket");
    heights.kept &= static_cast<double>(size.height) <= heightBound(keys);
    return size.height;
  };
  const size_t n = orders.inserted.size();
  for (const Key<Length> &key : orders.inserted) {
    if (bucketOf(key) != bucket) throw std::runtime_error("a key is in another bucket");
    if (!table.insert(key, 1)) throw std::runtime_error("a key came twice");
  }
  heights.full = height(n);
  for (size_t i = 0; i < n / 2; ++i) {
    if (!table.remove(orders.removed[i])) throw std::runtime_error("a key is not there");
  }
  heights.half = height(n - n / 2);
  return heights;
}

// One line of the table: nanoseconds of std::map, and of each interface with their ratio.
template <size_t Length>
void print(uint32_t method, size_t n, const Heights &heights, const Samples &samples) {
  std::printf("%6u %5zu %7u %6zu %4zu", method, Length, 1U << hashExp(method), heights.full,
              heights.half);
  for (const char *operation : kOperations) {
    const auto of = [&](const char *contender) {
      return samples.medianOf(method, Length, contender, n, operation);
    };
    const double map = of(StdMap<Length>::name);
    std::printf(" | %10.0f %6.0f %4.2f %6.0f %4.2f", map, of(MorvaC<Length>::name),
                of(MorvaC<Length>::name) / map, of(MorvaTable<Length>::name),
                of(MorvaTable<Length>::name) / map);
  }
  std::printf("\n");
  std::fflush(stdout);
}

// ---- one run --------------------------------------------------------------------------

std::vector<size_t> sizesOf(const Plan &plan) {
  std::vector<size_t> sizes = {plan.largestChained, plan.largest};
  for (size_t n = 1000; n < plan.largest; n *= 10) sizes.push_back(n);
  std::sort(sizes.begin(), sizes.end());
  sizes.erase(std::unique(sizes.begin(), sizes.end()), sizes.end());
  while (sizes.back() > plan.largest) sizes.pop_back();
  return sizes;
}

// The contenders take turns, so that what else the machine does meets all of them.
template <size_t Length>
bool measureMethod(uint32_t method, const Plan &plan, Samples &samples) {
  const std::vector<Key<Length>> keys = collidingKeys<Length>(method, plan.largest);
  bool kept = true;
  for (const size_t n : sizesOf(plan)) {
    const size_t rounds = n <= 10'000 ? 3 * plan.samples : plan.samples;
    for (size_t round = 0; round < rounds; ++round) {
      const Orders<Length> orders(keys, n, round);
      measure<MorvaC>(method, orders, samples);
      measure<StdMap>(method, orders, samples);
      measure<MorvaTable>(method, orders, samples);
      // Its time grows with the square: once will do.
      if (n <= plan.largestChained && round == 0) measure<StdUnorderedMap>(method, orders, samples);
    }
    const Heights heights = heightsOf(method, Orders<Length>(keys, n, 0));
    kept &= heights.kept;
    if (n == plan.largest) print<Length>(method, n, heights, samples);
  }
  return kept;
}

bool run(const Plan &plan, const char *path) {
  Samples samples(path);
  std::printf(
      "%zu keys in one bucket: nanoseconds per operation, and times std::map's.\n"
      "A tree of so many may be %.1f high, of half as many %.1f.\n\n",
      plan.largest, heightBound(plan.largest), heightBound(plan.largest / 2));
  std::printf("%6s %5s %7s %6s %4s", "method", "bytes", "buckets", "height", "half");
  for (const char *operation : kOperations)
    std::printf(" | %6s map %11s %11s", operation, "C", "table");
  std::printf("\n");
  bool kept = true;
  for (uint32_t method = kFirstMethod; method <= kLastMethod; ++method) {
    kept &= measureMethod<8>(method, plan, samples);
    kept &= measureMethod<16>(method, plan, samples);
  }
  samples.close();
  return kept;
}

size_t number(const char *text) {
  char *end = nullptr;
  const unsigned long long value = std::strtoull(text, &end, 10);
  if (end == text || *end != '\0' || value == 0) {
    throw std::runtime_error(std::string("not a number above 0: ") + text);
  }
  return value;
}

}  // namespace
}  // namespace bench::hostile

int main(int argc, char **argv) try {
  using namespace bench::hostile;
  if (argc < 2 || argc > 5) {
    std::fprintf(stderr, "usage: hostile_keys SAMPLES.csv [KEYS [SAMPLES [CHAINED_KEYS]]]\n");
    return 2;
  }
  Plan plan;
  if (argc > 2) plan.largest = number(argv[2]);
  if (argc > 3) plan.samples = number(argv[3]);
  if (argc > 4) plan.largestChained = number(argv[4]);
  if (run(plan, argv[1])) return 0;
  std::fprintf(stderr, "hostile_keys: a tree is too high\n");
  return 1;
} catch (const std::exception &error) {
  std::fprintf(stderr, "hostile_keys: %s\n", error.what());
  return 1;
}
