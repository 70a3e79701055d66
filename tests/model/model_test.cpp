// Long random sequences of all operations against a simple model of the table.
//
// MORVA_TEST_SEED repeats a run that failed, MORVA_TEST_STEPS makes all runs
// longer or shorter.
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <tuple>

#include "twins.h"

namespace morva_test {
namespace {

uint64_t fromEnvironment(const char *name, uint64_t otherwise) {
  const char *text = std::getenv(name);
  if (text == nullptr || *text == '\0') return otherwise;
  char *end = nullptr;
  const uint64_t value = std::strtoull(text, &end, 0);
  if (*end != '\0') throw std::runtime_error(std::string(name) + " is no number: " + text);
  return value;
}

uint64_t baseSeed() {
  return fromEnvironment("MORVA_TEST_SEED", 20240917);
}

size_t stepsOr(size_t steps) {
  return fromEnvironment("MORVA_TEST_STEPS", steps);
}

void run(HostKind kind, const TableShape &shape, uint64_t run, size_t steps, size_t keyCount) {
  SCOPED_TRACE("MORVA_TEST_SEED=" + std::to_string(baseSeed()) + ": " + shape.text());
  const uint64_t seed = baseSeed() * 1000003 + run;
  const std::unique_ptr<HostUnderTest> host = makeHost(kind);
  // A look over a small table after every operation, over a large one now and then.
  const size_t size = (size_t{1} << shape.hashExp) + keyCount;
  const size_t checkEvery = size < 100 ? 1 : size / 30;
  {
    TableDriver table(*host, shape, seed, keyCount);
    TableDriver twin(*host, shape, seed, keyCount);
    ASSERT_TRUE(table.ready() && twin.ready());
    for (size_t step = 1; step <= steps; ++step) {
      table.step();
      twin.step();
      EXPECT_EQ(host->faults(), "");
      if (step % checkEvery == 0) {
        EXPECT_EQ(table.check(), "") << "the table";
      }
      if (step % (8 * checkEvery) == 0) {
        EXPECT_EQ(twin.check(), "") << "the twin";
        compareTwins(table, twin, shape.keyMode == KeyMode::variable);
      }
      if (step % (32 * checkEvery) == 0) checkPools(*host, table, twin);
      if (::testing::Test::HasFailure()) {
        ADD_FAILURE() << table.history();
        return;
      }
    }
    compareOtherChains(table, twin);
  }
  EXPECT_EQ(host->close(), "");
}

// Spreads what does not change the answers over the runs.
TableShape vary(TableShape shape, uint64_t run) {
  static constexpr uint32_t kDataLengths[] = {16, 13, 0, 8, 40};
  static constexpr uint32_t kFixedLengths[] = {12, 5, 8, 0};
  static constexpr int64_t kHints[] = {0, 100, 1};
  static constexpr uint32_t kBits[] = {0, flagLockOpt, flagPackOpt | flagDefineOpt, flagUnordered};
  shape.hashMethod = 2 + static_cast<int32_t>(run % 8);
  shape.dataLength = kDataLengths[run % 5];
  shape.memHint = kHints[run % 3];
  shape.flags |= kBits[run / 3 % 4];
  if (shape.keyMode == KeyMode::fixed) shape.keyLength = kFixedLengths[run / 2 % 4];
  return shape;
}

class RandomOperations : public ::testing::TestWithParam<std::tuple<size_t, bool>> {};

TEST_P(RandomOperations, AnswerAndLeaveBehindWhatTheModelSays) {
  const auto [index, embedded] = GetParam();
  uint64_t number = index * 3;
  for (int32_t hashExp : {0, 1, 3}) {
    TableShape shape = vary(everyShape()[index], number);
    shape.hashExp = hashExp;
    const bool treeLocks = number % 2 != 0;
    const HostKind kind =
        embedded ? (treeLocks ? HostKind::embeddedWithTreeLocks : HostKind::embedded)
                 : (treeLocks ? HostKind::recordingWithTreeLocks : HostKind::recording);
    run(kind, shape, number++, stepsOr(3000), 64);
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(EveryShape, RandomOperations,
                         ::testing::Combine(::testing::Range(size_t{0}, everyShape().size()),
                                            ::testing::Bool()),
                         [](const auto &info) {
                           return shapeName(everyShape()[std::get<0>(info.param)]) +
                                  (std::get<1>(info.param) ? "OnTheEmbeddedHost"
                                                           : "OnTheRecordingHost");
                         });

// Keys that do not share a bucket with many others, and keys that all do.
class RandomOperationsOnLargeTables
    : public ::testing::TestWithParam<std::tuple<KeyMode, int32_t, bool>> {};

TEST_P(RandomOperationsOnLargeTables, AnswerAndLeaveBehindWhatTheModelSays) {
  const auto [mode, hashExp, embedded] = GetParam();
  TableShape shape;
  shape.keyMode = mode;
  shape.flags = flagOrdered;
  if (mode == KeyMode::fixed) shape.flags |= flagSum | flagMultiData;
  if (mode == KeyMode::defined) shape.flags |= flagMultiData | flagNoLock;
  shape.hashExp = hashExp;
  shape.hashMethod = hashExp == 0 ? 8 : 3;
  run(embedded ? HostKind::embedded : HostKind::recording, shape,
      1000 + static_cast<uint64_t>(hashExp), stepsOr(20000), 2000);
}

INSTANTIATE_TEST_SUITE_P(EveryKeyMode, RandomOperationsOnLargeTables,
                         ::testing::Combine(::testing::Values(KeyMode::fixed, KeyMode::variable,
                                                              KeyMode::defined),
                                            ::testing::Values(0, 6, 11), ::testing::Bool()),
                         [](const auto &info) {
                           return modeName(std::get<0>(info.param)) + "In" +
                                  std::to_string(1 << std::get<1>(info.param)) + "Buckets" +
                                  (std::get<2>(info.param) ? "OnTheEmbeddedHost"
                                                           : "OnTheRecordingHost");
                         });

}  // namespace
}  // namespace morva_test
