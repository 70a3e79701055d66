// The kinds of table the typed suites run over: every combination of features
// on one key kind, and the richest and the plainest on the others.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>
#include <type_traits>

#include "morva/throws.hpp"
#include "tables.h"

namespace cpp_test {

template <class... Features>
using Numbers = morva::table<std::uint32_t, int, Features...>;
template <class... Features>
using Bounded = morva::table<morva::text<24>, int, Features...>;
template <class... Features>
using AnyText = morva::table<std::string_view, int, Features...>;
template <class... Features>
using Sales = morva::table<SaleKey, int, Features...>;

using morva::duplicates;
using morva::locked;
using morva::ordered;
using morva::sums;
using morva::throws;

using TableKinds =
    ::testing::Types<Numbers<>, Numbers<ordered>, Numbers<duplicates>, Numbers<sums>,
                     Numbers<locked>, Numbers<ordered, duplicates>, Numbers<ordered, sums>,
                     Numbers<ordered, locked>, Numbers<duplicates, sums>,
                     Numbers<duplicates, locked>, Numbers<sums, locked>,
                     Numbers<ordered, duplicates, sums>, Numbers<ordered, duplicates, locked>,
                     Numbers<ordered, sums, locked>, Numbers<duplicates, sums, locked>,
                     Numbers<locked, sums, duplicates, ordered>, Numbers<throws>,
                     Numbers<throws, ordered, duplicates, sums, locked>, Bounded<>,
                     Bounded<ordered, duplicates, sums, locked>, AnyText<>, AnyText<ordered>,
                     AnyText<locked>, AnyText<ordered, locked>, AnyText<throws, ordered>, Sales<>,
                     Sales<ordered, duplicates, sums, locked>, Sales<throws, duplicates>>;

template <class Feature, class Table>
inline constexpr bool hasFeature = false;
template <class Feature, class Key, class Data, class... Features>
inline constexpr bool hasFeature<Feature, morva::table<Key, Data, Features...>> =
    (std::is_same_v<Feature, Features> || ...);

template <class Table>
class TableTest : public ::testing::Test {
 protected:
  static constexpr bool kDuplicates = hasFeature<duplicates, Table>;
  static constexpr bool kOrdered = hasFeature<ordered, Table>;
  static constexpr bool kSums = hasFeature<sums, Table>;

  Table make(const morva::table_options &options = {.expected = 32}) {
    return got(Table::make(library, options));
  }

  static auto key(int number) { return keyOf<Table>(number); }

  // Keys 0 to count - 1, with their numbers as data; further records of every
  // third have 1000 more.
  static void fill(Table &table, int count) {
    for (int n = 0; n < count; ++n) ASSERT_TRUE(got(table.insert(key(n), n))) << n;
    if constexpr (kDuplicates) {
      for (int more = 1000; more <= 2000; more += 1000) {
        for (int n = 0; n < count; n += 3) {
          ASSERT_TRUE(got(table.insert(key(n), n + more))) << n;
        }
      }
    }
  }

  // The data that fill() has put under a key.
  static std::vector<int> filled(int n) {
    if (kDuplicates && n % 3 == 0) return {n, n + 1000, n + 2000};
    return {n};
  }

  static std::size_t recordsFilled(int count) {
    std::size_t records = 0;
    for (int n = 0; n < count; ++n) records += filled(n).size();
    return records;
  }

  morva::extension library = linkedLibrary();
};

}  // namespace cpp_test
