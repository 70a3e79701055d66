#include "inputs.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <random>
#include <stdexcept>

#include "../key_sets.h"

namespace bench {
namespace {

using Random = std::mt19937_64;

// A number below `bound`. (The standard's distributions differ between libraries.)
uint64_t below(Random &random, uint64_t bound) {
  return random() % bound;
}

// Permutes the 32-bit numbers, so that neighbours do not look like it.
uint32_t mixed(uint64_t index) {
  auto h = static_cast<uint32_t>(index);
  h = (h ^ (h >> 16)) * 0x85EBCA6B;
  h = (h ^ (h >> 13)) * 0xC2B2AE35;
  return h ^ (h >> 16);
}

// Writes the text of an index; answers its length. The number in it makes it
// unlike all others of its form, and the beginning tells the forms apart.
int writeText(char *to, size_t room, uint64_t index) {
  static const char *const names[] = {"anna",      "bela",   "carlos", "dmitri",
                                      "elisabeth", "fatima", "george", "hiroko"};
  static const char *const domains[] = {"example.com", "mail.example.org", "post.example.net",
                                        "example.de"};
  static const char *const sections[] = {"news", "articles", "products/details", "orders"};
  static const char *const towns[] = {"Lisbon", "Utrecht", "Aarhus",     "Santiago",
                                      "Osaka",  "Brno",    "Wellington", "Kingston upon Hull"};
  const unsigned id = mixed(index);
  const uint64_t choice = scrambled(index);
  switch (index % 4) {
    case 0:
      return std::snprintf(to, room, "%08X", id);
    case 1:
      return std::snprintf(to, room, "%s.%u@%s", names[choice % 8], id, domains[choice / 8 % 4]);
    case 2:
      return std::snprintf(to, room, "/%s/%u.html", sections[choice % 4], id);
    default:
      return std::snprintf(to, room, "%s, Main St %u", towns[choice % 8], id);
  }
}

}  // namespace

Indices shuffled(uint64_t first, size_t count, uint64_t seed) {
  return shuffledRows(first, count, 1, seed);
}

Indices shuffledRows(uint64_t first, size_t count, size_t times, uint64_t seed) {
  Indices rows(count * times);
  Random random(seed);
  for (uint64_t *row = rows.data(); row != rows.data() + rows.size(); row += count) {
    std::iota(row, row + count, first);
    for (size_t i = count; i > 1; --i) std::swap(row[i - 1], row[below(random, i)]);
  }
  return rows;
}

Indices oneCycle(size_t count, uint64_t seed) {
  Indices next(count);
  std::iota(next.begin(), next.end(), 0);
  Random random(seed);
  for (size_t i = count; i > 1; --i) std::swap(next[i - 1], next[below(random, i - 1)]);
  return next;
}

Indices zipfRows(size_t count, size_t different, uint64_t seed) {
  std::vector<double> upTo(different);
  double sum = 0;
  for (size_t k = 0; k < different; ++k) upTo[k] = sum += 1.0 / static_cast<double>(k + 1);
  Random random(seed);
  Indices rows(count);
  for (uint64_t &row : rows) {
    const double point = static_cast<double>(random() >> 11) * 0x1p-53 * sum;
    const auto at = std::upper_bound(upTo.begin(), upTo.end(), point);
    row = std::min<uint64_t>(static_cast<uint64_t>(at - upTo.begin()), different - 1);
  }
  return rows;
}

NumberKeys::NumberKeys(const Indices &indices) : keys_(indices) {
  for (uint64_t &key : keys_) key = scrambled(key);
}

TextKeys::TextKeys(const Indices &indices) : slots_(indices.size()) {
  for (size_t i = 0; i < indices.size(); ++i) {
    Slot &slot = slots_[i];
    const int length = writeText(slot.text, sizeof slot.text, indices[i]);
    if (length < static_cast<int>(kShortestText) || length > static_cast<int>(kLongestText))
      throw std::logic_error("a text key has not 8 to 40 bytes");
    slot.length = static_cast<uint8_t>(length);
  }
}

}  // namespace bench
