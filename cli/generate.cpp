#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <string>

#include "commands.h"
#include "writer.h"

namespace morva::cli {

namespace {

// SplitMix64: integers only, so the same numbers everywhere.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint64_t next() {
    uint64_t z = state_ += 0x9E3779B97F4A7C15;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return z ^ (z >> 31);
  }

  // A number from 0 to `count` - 1.
  uint64_t below(uint64_t count) { return next() % count; }

  // As below, number k about as often as 1 / (k + 1): every doubling of the numbers is as likely
  // as the one before, and so are the numbers within it.
  uint64_t skewed(uint64_t count) {
    const auto doublings = static_cast<uint64_t>(std::bit_width(count));
    for (;;) {
      const uint64_t first = uint64_t{1} << below(doublings);
      const uint64_t number = first + below(first);
      if (number <= count) return number - 1;
    }
  }

 private:
  uint64_t state_;
};

constexpr const char *kAdjectives[] = {"Northern", "Old",   "United", "Golden", "Pacific", "Royal",
                                       "Central",  "Quick", "Silver", "Alpine", "First",   "Green",
                                       "Maritime", "New",   "Swift",  "Bright"};
constexpr const char *kTrades[] = {
    "Timber", "Tea",   "Bakery", "Instruments", "Glass",    "Paper", "Logistics", "Textile",
    "Tools",  "Books", "Wine",   "Optics",      "Ceramics", "Steel", "Seeds",     "Cycles"};
constexpr const char *kRegions[] = {"north",     "north-east", "east",    "south-east",
                                    "south",     "south-west", "west",    "north-west",
                                    "highlands", "coast",      "islands", "capital"};

template <size_t kCount>
const char *pick(const char *const (&words)[kCount], uint64_t number) {
  return words[number % kCount];
}

std::string customerName(uint64_t number) {
  std::string name = pick(kAdjectives, number * 7);
  name += ' ';
  name += pick(kTrades, number * 5 + number / 16);
  name += ' ';
  return name += std::to_string(number + 1);
}

// Mostly small amounts, now and then a large one, and a refund for every fiftieth order.
std::string amountText(Random &random) {
  const uint64_t cents = 99 + random.skewed(500000);
  const bool refund = random.below(50) == 0;
  char text[32];
  std::snprintf(text, sizeof text, "%s%llu.%02llu", refund ? "-" : "",
                static_cast<unsigned long long>(cents / 100),
                static_cast<unsigned long long>(cents % 100));
  return text;
}

}  // namespace

void runGenerate(const Options &options) {
  const uint64_t groups = options.groups.value_or(std::max<uint64_t>(1, options.rows / 10));
  Random random(options.seed);
  Writer out(STDOUT_FILENO, kStandardOutput, kCsv);
  for (const char *name : {"id", "customer", "region", "amount"}) out.field(name);
  out.endRow();
  for (uint64_t id = 1; id <= options.rows; ++id) {
    out.number(id);
    out.field(customerName(random.skewed(groups)));
    out.field(pick(kRegions, random.next() >> 32));
    out.field(amountText(random));
    out.endRow();
  }
  out.flush();
}

}  // namespace morva::cli
