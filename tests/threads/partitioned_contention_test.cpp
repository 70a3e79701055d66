// A partitioned table with fewer parts than threads, so that they wait for each
// other all the time.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <span>
#include <vector>

#include "morva/morva.hpp"
#include "two_tables.h"

namespace morva_test {
namespace {

using Table = morva::partitioned_table<uint64_t, uint64_t, morva::ordered, morva::sums>;

constexpr uint64_t kOwnKeys = 40;
constexpr uint64_t kSharedKeys = 10;

// What a thread does to keys of its own, and what it knows of them; all add to
// the sums of keys that they share.
class PartWork {
 public:
  PartWork(Table &table, size_t thread) : table_(table), thread_(thread), random_(thread) {}

  void run(size_t steps) {
    for (size_t i = 0; i < steps && !::testing::Test::HasFailure(); ++i) step();
  }

  const std::map<uint64_t, uint64_t> &held() const { return held_; }
  double added() const { return added_; }

 private:
  uint64_t ownKey() { return 1000 * (thread_ + 1) + random_() % kOwnKeys; }

  void step() {
    const uint64_t key = ownKey(), data = random_();
    const bool isThere = held_.contains(key);
    switch (random_() % 9) {
      case 0:
        EXPECT_EQ(table_.insert(key, data).value(), !isThere);
        held_.emplace(key, data);
        return;
      case 1:
        EXPECT_EQ(table_.insert_or_assign(key, data).value(), !isThere);
        held_[key] = data;
        return;
      case 2:
        EXPECT_EQ(table_.erase(key).value(), isThere ? 1u : 0u);
        held_.erase(key);
        return;
      case 3: {
        const auto hold = table_.lock(key);
        const auto at = table_.find_or_insert(key, data).value();
        EXPECT_EQ(at.inserted, !isThere);
        held_.emplace(key, data);
        held_[key] = at.position->data += 1;
        return;
      }
      case 4:
        EXPECT_TRUE(table_.add_to_sum(random_() % kSharedKeys, 1.0, 0));
        added_ += 1.0;
        return;
      case 5:
        return manyAtOnce();
      case 6: {
        const auto all = table_.lock();
        size_t walked = 0;
        auto walk = table_.in_order().value();
        for ([[maybe_unused]] const auto entry : walk) ++walked;
        EXPECT_EQ(walked, table_.size());
        return;
      }
      default: {
        EXPECT_EQ(table_.contains(key), isThere);
        const auto at = table_.find(key);
        EXPECT_EQ(static_cast<bool>(at), isThere);
        if (at && isThere) {
          EXPECT_EQ(at->data, held_[key]);
        }
      }
    }
  }

  void manyAtOnce() {
    std::vector<uint64_t> keys, data;
    size_t there = 0;
    for (uint64_t i = 0; i < kOwnKeys; i += 3) {
      keys.push_back(1000 * (thread_ + 1) + i);
      data.push_back(random_());
      there += held_.contains(keys.back()) ? 1 : 0;
    }
    EXPECT_EQ(table_.insert_many(keys, data).value(), keys.size() - there);
    for (size_t i = 0; i < keys.size(); ++i) held_.emplace(keys[i], data[i]);
    std::vector<Table::cursor> found(keys.size());
    EXPECT_EQ(table_.find_many(keys, std::span(found)).value(), keys.size());
    for (size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(found[i]->data, held_[keys[i]]);
    if (random_() % 2 == 0) return;
    EXPECT_EQ(table_.erase_many(keys).value(), keys.size());
    for (const uint64_t key : keys) held_.erase(key);
  }

  Table &table_;
  size_t thread_;
  std::mt19937_64 random_;
  std::map<uint64_t, uint64_t> held_;
  double added_ = 0;
};

class ContendedParts : public ::testing::TestWithParam<size_t> {};

INSTANTIATE_TEST_SUITE_P(Parts, ContendedParts, ::testing::Values(1, 2, 16));

TEST_P(ContendedParts, KeepWhatEightThreadsLeaveInThem) {
  const auto library = morva::extension::linked().value();
  Table table = Table::make(library, {.expected = 500, .parts = GetParam()}).value();
  std::vector<PartWork> works;
  for (size_t thread = 0; thread < kMany; ++thread) works.emplace_back(table, thread);
  inParallel(kMany, [&](size_t thread) { works[thread].run(kLonger * 1000); });

  size_t records = 0;
  double added = 0, sums = 0;
  for (const PartWork &work : works) {
    for (const auto &[key, data] : work.held()) {
      const auto at = table.find(key);
      ASSERT_TRUE(at) << key;
      EXPECT_EQ(at->data, data);
    }
    records += work.held().size();
    added += work.added();
  }
  for (uint64_t key = 0; key < kSharedKeys; ++key) sums += table.sum(key);
  EXPECT_EQ(sums, added);
  EXPECT_EQ(table.size(), records + kSharedKeys);
}

}  // namespace
}  // namespace morva_test
