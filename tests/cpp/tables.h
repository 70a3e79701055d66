// What the suites on the C++ interface share: the library on an embedded host,
// keys of every kind by number, and answers with and without `throws`.
#pragma once

#include <gtest/gtest.h>

#include <concepts>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "morva/morva.hpp"

namespace cpp_test {

inline morva::extension linkedLibrary() {
  auto made = morva::extension::linked();
  if (!made) throw std::runtime_error(std::string(made.error().sentence()));
  return std::move(*made);
}

// The seed of random tests: fixed, or MORVA_TEST_SEED of the environment.
inline std::uint64_t testSeed() {
  const char *text = std::getenv("MORVA_TEST_SEED");
  return text != nullptr ? std::strtoull(text, nullptr, 0) : UINT64_C(20240917);
}

// The value of a result, or of what a throwing table answers; an error fails
// the test.
template <class T>
T got(morva::result<T> answer) {
  if (!answer) throw std::runtime_error("refused: " + std::string(describe(answer.error())));
  return std::move(answer).value();
}
template <class T>
T got(T &&answer) {
  return std::forward<T>(answer);
}

struct Sale {
  char region[12];
  std::int32_t year;
  double price;
  std::string note;  // no part of any key
};
using SaleKey = morva::composed<&Sale::region, &Sale::year, &Sale::price>;

// keyOf<Key>(n) is the n-th key, and numberOf<Key> of what a record shows is n.
template <class Key>
struct KeyKind;

// Numbers are scattered, by a factor that can be taken out again.
template <std::unsigned_integral Key>
struct KeyKind<Key> {
  static constexpr Key kFactor = 0x9E3779B1U;
  static constexpr Key inverse() {
    Key guess = kFactor;  // Newton: every round doubles the bits that are right
    for (int round = 0; round < 6; ++round) guess *= 2 - kFactor * guess;
    return guess;
  }
  static Key make(int number) { return static_cast<Key>(number) * kFactor; }
  static int number(const Key &key) { return static_cast<int>(key * inverse()); }
};

struct TextKind {
  static int number(std::string_view key) {
    return std::atoi(std::string(key.substr(key.find('#') + 1)).c_str());
  }
};
template <std::size_t N>
struct KeyKind<morva::text<N>> : TextKind {
  static std::string make(int number) { return "key#" + std::to_string(number); }
};
// Every fourth key is too long for the image on the stack.
template <>
struct KeyKind<std::string_view> : TextKind {
  static std::string make(int number) {
    const std::size_t length = number % 4 == 3 ? 260 + static_cast<std::size_t>(number) % 40 : 3;
    return std::string(length, 'k') + "#" + std::to_string(number);
  }
};
template <>
struct KeyKind<std::string> : KeyKind<std::string_view> {};

template <>
struct KeyKind<SaleKey> {
  static Sale make(int number) {
    Sale sale{};
    std::snprintf(sale.region, sizeof sale.region, "region%d", number % 7);
    sale.year = number;
    sale.price = number / 4.0;
    sale.note = "note";
    return sale;
  }
  template <class View>
  static int number(const View &key) {
    return key.template field<&Sale::year>();
  }
};

template <class Table>
auto keyOf(int number) {
  return KeyKind<typename Table::key_type>::make(number);
}

// The numbers of a table's keys as it walks them.
template <class Table>
std::vector<int> keyNumbers(const Table &table) {
  std::vector<int> numbers;
  for (const auto entry : table) {
    numbers.push_back(KeyKind<typename Table::key_type>::number(entry.key));
  }
  return numbers;
}

// The data of a key's records, first to last.
template <class Table, class Key>
auto chainOf(const Table &table, const Key &key) {
  std::vector<typename Table::mapped_type> chain;
  for (const auto entry : table.equal_range(key)) chain.push_back(entry.data);
  return chain;
}

}  // namespace cpp_test
