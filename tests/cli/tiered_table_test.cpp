#include "tiered_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "error.h"
#include "library.h"
#include "row_store.h"

namespace morva::cli {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

using Sums = std::vector<std::pair<std::string, double>>;

constexpr const char *kLibrary = MORVA_TEST_LIBRARY;

Sums sumsOf(TieredTable &table) {
  Sums sums;
  table.visitSums([&sums](std::string_view key, double sum) { sums.emplace_back(key, sum); });
  return sums;
}

TEST(TieredTable, AddsUpPerKeyInFirstSeenOrder) {
  Library library(kLibrary, 0);
  TieredTable table(library, TieredTable::Kind::kSums, 0);
  table.addToSum("b", 1.5);
  table.addToSum("a", 1);
  table.addToSum("b", -4);
  table.addToSum("", 0);
  table.addToSum("a", 0);
  EXPECT_EQ(table.keys(), 3U);
  EXPECT_THAT(sumsOf(table), ElementsAre(Pair("b", -2.5), Pair("a", 1), Pair("", 0)));
  EXPECT_EQ(sumsOf(table), sumsOf(table));
}

TEST(TieredTable, KeepsTheOrderAcrossKeysOfAllLengths) {
  Library library(kLibrary, 0);
  TieredTable table(library, TieredTable::Kind::kSums, 0);
  std::mt19937 random(3);
  Sums expected;
  for (const size_t length : {40, 1, 16, 17, 5000, 0, 32, 33, 64, 65, 300000, 2, 4096, 4097, 15}) {
    expected.emplace_back(std::string(length, 'k'), 0);
  }
  for (int round = 0; round < 3; ++round) {
    for (auto &[key, sum] : expected) {
      const double number = static_cast<double>(random() % 100);
      table.addToSum(key, number);
      sum += number;
    }
  }
  EXPECT_EQ(sumsOf(table), expected);
}

TEST(TieredTable, AgreesWithAMapOnRandomKeys) {
  Library library(kLibrary, 0);
  for (const uint64_t inputBytes : {uint64_t{0}, uint64_t{1}, uint64_t{1} << 40}) {
    TieredTable table(library, TieredTable::Kind::kSums, inputBytes);
    std::map<std::string, double> expected;
    std::mt19937 random(11);
    for (int i = 0; i < 20000; ++i) {
      const std::string key(random() % 70, static_cast<char>('a' + random() % 20));
      const double number = static_cast<double>(random() % 1000) / 8;
      expected[key] += number;
      table.addToSum(key, number);
    }
    const Sums sums = sumsOf(table);
    EXPECT_EQ((std::map<std::string, double>(sums.begin(), sums.end())), expected);
    EXPECT_EQ(sums.size(), expected.size());
  }
}

std::vector<std::string> rowsOf(TieredTable &table, std::string_view key) {
  std::vector<std::string> rows;
  for (TieredTable::Cursor cursor = table.findRows(key); cursor; table.next(cursor)) {
    const TieredTable::Row row = cursor.row();
    rows.emplace_back(row.text, row.length);
  }
  return rows;
}

TEST(TieredTable, KeepsTheRowsOfAKeyInTheirOrder) {
  Library library(kLibrary, 0);
  RowStore store(library);
  TieredTable table(library, TieredTable::Kind::kRows, 0);
  const std::string longKey(1000, 'x');
  for (const char *text : {"one", "two", "", "three"}) {
    for (const std::string &key : {std::string("k"), longKey}) {
      table.addRow(key, {store.keep(text), std::strlen(text), 1});
    }
  }
  EXPECT_THAT(rowsOf(table, "k"), ElementsAre("one", "two", "", "three"));
  EXPECT_THAT(rowsOf(table, longKey), ElementsAre("one", "two", "", "three"));
  EXPECT_THAT(rowsOf(table, "K"), ElementsAre());
  EXPECT_THAT(rowsOf(table, std::string(100, 'x')), ElementsAre());
}

TEST(TieredTable, TellsNewKeysFromKnownOnes) {
  Library library(kLibrary, 0);
  TieredTable table(library, TieredTable::Kind::kKeys, 0);
  for (const size_t length : {0, 1, 16, 17, 100, 1000, 100000}) {
    EXPECT_TRUE(table.insert(std::string(length, 'x'))) << length;
  }
  for (const size_t length : {0, 1, 16, 17, 100, 1000, 100000}) {
    EXPECT_FALSE(table.insert(std::string(length, 'x'))) << length;
  }
  EXPECT_EQ(table.keys(), 7U);
}

TEST(TieredTable, LongKeysSeenAgainCostShortKeysNothing) {
  Library library(kLibrary, 0);
  TieredTable table(library, TieredTable::Kind::kKeys, 0);
  const std::string longKey(100000, 'x');
  for (int i = 0; i < 1000; ++i) {
    table.insert(longKey);
    table.insert(std::to_string(i));
  }
  EXPECT_EQ(table.keys(), 1001U);
  EXPECT_LT(library.stats().bytesLive, uint64_t{4} << 20);
}

TEST(TieredTable, GivesEverythingBack) {
  Library library(kLibrary, 0);
  const QZHostStats before = library.stats();
  {
    RowStore store(library);
    TieredTable sums(library, TieredTable::Kind::kSums, 0);
    TieredTable rows(library, TieredTable::Kind::kRows, 0);
    TieredTable keys(library, TieredTable::Kind::kKeys, 0);
    for (int i = 0; i < 1000; ++i) {
      const std::string key(static_cast<size_t>(i) % 100, 'x');
      sums.addToSum(key, 1);
      rows.addRow(key, {store.keep(key), key.size(), 1});
      keys.insert(key);
    }
  }
  const QZHostStats after = library.stats();
  EXPECT_EQ(after.pools, before.pools);
  EXPECT_EQ(after.trees, before.trees);
  EXPECT_EQ(after.bytesLive, before.bytesLive);
}

template <typename Call>
std::string failureOf(Call call) {
  try {
    for (uint64_t i = 0; i < 10000000; ++i) call(i);
  } catch (const OutOfMemory &error) {
    return error.what();
  }
  return "no failure";
}

TEST(TieredTable, SaysThatTheMemoryLimitIsReached) {
  Library library(kLibrary, 1 << 20);
  RowStore store(library);
  TieredTable sums(library, TieredTable::Kind::kSums, 1000);
  EXPECT_EQ(failureOf([&](uint64_t i) { sums.addToSum(std::to_string(i), 1); }),
            "the memory limit of 1 MiB is reached");
  EXPECT_GT(sums.keys(), 1000U);
  EXPECT_EQ(failureOf([&](uint64_t) { store.keep(std::string(10000, 'x')); }),
            "the memory limit of 1 MiB is reached");
}

TEST(Library, NamesTheFileThatCannotBeLoaded) {
  std::string message;
  try {
    Library library("no/such/libmorva.so", 0);
  } catch (const Error &error) {
    message = error.what();
  }
  EXPECT_THAT(message, HasSubstr("the library cannot be loaded: "));
  EXPECT_THAT(message, HasSubstr("no/such/libmorva.so"));
  EXPECT_THAT(message, HasSubstr("MORVA_LIBRARY"));
}

}  // namespace
}  // namespace morva::cli
