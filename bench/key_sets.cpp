#include "key_sets.h"

#include <bit>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <unordered_set>

namespace bench {
namespace {

template <class Number>
std::string bytesOf(Number number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

template <class... Values>
std::string text(const char *format, Values... values) {
  char buffer[128];
  const int length = std::snprintf(buffer, sizeof buffer, format, values...);
  return std::string(buffer, static_cast<size_t>(length));
}

// A set given by the key of each number; numbers from `most` on have none.
KeySet numbered(const char *name, std::function<std::string(uint64_t)> key,
                uint64_t most = UINT64_MAX) {
  return {name, [key, most](size_t count) {
            Keys keys;
            for (uint64_t i = 0; i < count && i < most; ++i) keys.push_back(key(i));
            return keys;
          }};
}

std::string bigEndian(uint64_t number) {
  return bytesOf(__builtin_bswap64(number));
}

// Pages of 4096 bytes where a process has its libraries.
std::string page(uint64_t i) {
  return bytesOf(UINT64_C(0x7F0000000000) + i * 4096);
}

// A field 1024 wide, row by row: two 32-bit numbers.
std::string gridPoint(uint64_t i) {
  return bytesOf(static_cast<uint32_t>(i / 1024)) + bytesOf(static_cast<uint32_t>(i % 1024));
}

// 10.0.0.0 onwards, in the order of the network.
std::string address(uint64_t i) {
  return bytesOf(__builtin_bswap32(UINT32_C(0x0A000000) + static_cast<uint32_t>(i)));
}

// The finalizer of MurmurHash3, a permutation of the 32-bit numbers.
uint32_t scrambled32(uint32_t h) {
  h = (h ^ (h >> 16)) * 0x85EBCA6B;
  h = (h ^ (h >> 13)) * 0xC2B2AE35;
  return h ^ (h >> 16);
}

std::string addressText(uint64_t i) {
  const uint32_t a = scrambled32(static_cast<uint32_t>(i));
  return text("%u.%u.%u.%u", a >> 24, (a >> 16) & 255, (a >> 8) & 255, a & 255);
}

std::string date(std::chrono::sys_days day) {
  const std::chrono::year_month_day ymd(day);
  return text("%04d-%02u-%02u", int(ymd.year()), unsigned(ymd.month()), unsigned(ymd.day()));
}

// Every day from 1900-01-01 on.
std::string day(uint64_t i) {
  using namespace std::chrono;
  return date(sys_days(January / 1 / 1900) + days(i));
}
constexpr uint64_t kDays = 65536;  // to the middle of 2079

// Every 37 seconds from 2020-01-01 on.
std::string moment(uint64_t i) {
  using namespace std::chrono;
  const uint64_t seconds = i * 37;
  const auto inDay = static_cast<unsigned>(seconds % 86400);
  return date(sys_days(January / 1 / 2020) + days(seconds / 86400)) +
         text("T%02u:%02u:%02u", inDay / 3600, inDay / 60 % 60, inDay % 60);
}

// Two to four syllables that can be pronounced, such as "seskcea".
std::string word(uint64_t i) {
  static const char *const onsets[] = {"b", "br", "c", "d", "f", "g", "gr", "h",
                                       "l", "m",  "n", "p", "r", "s", "st", "t"};
  static const char *const vowels[] = {"a", "e", "i", "o", "u", "ea", "ou", "y"};
  static const char *const codas[] = {"", "", "", "n", "r", "s", "t", "sk"};
  uint64_t random = scrambled(i);
  std::string word;
  for (uint64_t syllables = 2 + random % 3; syllables != 0; --syllables) {
    random /= 3;
    word += onsets[random % 16];
    word += vowels[random / 16 % 8];
    word += codas[random / 128 % 8];
    random /= 1024;
  }
  return word;
}

Keys words(size_t count) {
  Keys keys;
  std::unordered_set<std::string> seen;
  for (uint64_t i = 0; keys.size() < count; ++i) {
    std::string next = word(i);
    if (seen.insert(next).second) keys.push_back(std::move(next));
  }
  return keys;
}

std::string link(uint64_t i) {
  static const char *const sections[] = {"products", "articles", "users", "orders"};
  return text("https://www.example.com/%s/%u/comments?page=%u", sections[i % 4],
              static_cast<unsigned>(i / 16), static_cast<unsigned>(i / 4 % 4 + 1));
}

// A random (version 4) identifier as text.
std::string uuid(uint64_t i) {
  const uint64_t high = scrambled(2 * i);
  const uint64_t low = scrambled(2 * i + 1);
  return text("%08x-%04x-4%03x-%04x-%012llx", static_cast<unsigned>(high >> 32),
              static_cast<unsigned>(high >> 16 & 0xFFFF), static_cast<unsigned>(high & 0xFFF),
              static_cast<unsigned>(low >> 48 & 0x3FFF) | 0x8000,
              static_cast<unsigned long long>(low & 0xFFFFFFFFFFFF));
}

}  // namespace

uint64_t scrambled(uint64_t index) {
  uint64_t z = (index + 1) * 0x9E3779B97F4A7C15;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
  return z ^ (z >> 31);
}

const std::vector<KeySet> &keySets() {
  static const std::vector<KeySet> sets = {
      numbered("u64: 0, 1, 2, ...", [](uint64_t i) { return bytesOf(i); }),
      numbered("u64: multiples of 64", [](uint64_t i) { return bytesOf(i * 64); }),
      numbered("u64: multiples of 1000", [](uint64_t i) { return bytesOf(i * 1000); }),
      numbered("u64: addresses of pages", page),
      numbered("u64: random", [](uint64_t i) { return bytesOf(scrambled(i)); }),
      numbered("u64 big-endian: 0, 1, 2, ...", bigEndian),
      numbered("two u32: a grid", gridPoint),
      numbered("float: 0.0, 1.0, 2.0, ...",
               [](uint64_t i) { return bytesOf(static_cast<double>(i)); }),
      numbered("IPv4: from 10.0.0.0", address),
      numbered("IPv4 text: random", addressText),
      numbered("date: every day", day, kDays),
      numbered("time: every 37 s", moment),
      {"word", words},
      numbered("link", link),
      numbered("UUID text", uuid),
      numbered("user:0000001", [](uint64_t i) { return text("user:%07u", unsigned(i + 1)); }),
  };
  return sets;
}

KeySet linesOf(const std::string &name, const std::string &path) {
  return {name, [path](size_t count) {
            std::ifstream file(path);
            Keys keys;
            std::unordered_set<std::string> seen;
            for (std::string line; keys.size() < count && std::getline(file, line);) {
              if (!line.empty() && seen.insert(line).second) keys.push_back(line);
            }
            if (keys.empty()) throw std::runtime_error("cannot read lines of " + path);
            return keys;
          }};
}

}  // namespace bench
