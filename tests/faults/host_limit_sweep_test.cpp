// The embedded host with a memory limit that rises step by step, until everything succeeds.
#include <gtest/gtest.h>

#include <string>

#include "host_scenario.h"

namespace fault_test {
namespace {

// The step in which pools take memory, as morva/host.h says.
constexpr uint64_t kStep = 4096;
constexpr uint64_t kFarTooMuch = uint64_t{64} << 20;

std::string nameOfWay(const testing::TestParamInfo<WayIn> &info) {
  static constexpr const char *kNames[] = {"Attached", "Loaded", "LoadedPrivate"};
  return kNames[static_cast<size_t>(info.param)];
}

class LimitSweep : public testing::TestWithParam<WayIn> {};

INSTANTIATE_TEST_SUITE_P(WaysIn, LimitSweep, testing::ValuesIn(kWaysIn), nameOfWay);

TEST_P(LimitSweep, EveryLimitIsKeptCleanlyUntilOneIsHighEnough) {
  const Surroundings surroundings(GetParam());
  ASSERT_EQ(surroundings.fault(), "");
  for (const uint32_t lockedTrees : {0u, 1u}) {
    uint64_t failures = 0;
    bool complete = false;
    // The lowest limits are below one step; 0 would be none.
    for (uint64_t limit = 1; !complete; limit = (limit / kStep + 1) * kStep) {
      ASSERT_LT(limit, kFarTooMuch);
      const Life life = live(surroundings, {limit, 1, lockedTrees});
      ASSERT_EQ(life.fault, "") << "limit " << limit << ", locked trees " << lockedTrees;
      complete = life.complete;
      failures += complete ? 0 : 1;
    }
    EXPECT_GT(failures, 10u);
    RecordProperty(lockedTrees != 0 ? "failuresLocked" : "failures", std::to_string(failures));
  }
}

}  // namespace
}  // namespace fault_test
