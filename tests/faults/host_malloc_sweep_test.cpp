// The embedded host with every allocation of its own, and every call of the system it makes,
// failing in turn until everything succeeds.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "host_scenario.h"
#include "system_faults.h"

namespace fault_test {
namespace {

struct Sweep {
  WayIn way;
  SystemCall call;
};

void PrintTo(const Sweep &sweep, std::ostream *out) {
  *out << nameOf(sweep.call) << ", " << nameOf(sweep.way);
}

// Which calls a way in makes at all.
bool makes(WayIn way, SystemCall call) {
  switch (call) {
    case SystemCall::newMemory:
    case SystemCall::mmap:
    case SystemCall::madvise:
    case SystemCall::getrandom:
      return true;
    case SystemCall::dlopen:
      return way != WayIn::attached;
    case SystemCall::dlinfo:
    case SystemCall::open:
    case SystemCall::fstat:
    case SystemCall::pread:
    case SystemCall::write:
    case SystemCall::memfdCreate:
    case SystemCall::fcntl:
      return way == WayIn::loadedPrivate;
  }
  return false;
}

// Which the host does without: it then is slower, or guards itself less well.
bool canDoWithout(SystemCall call) {
  return call == SystemCall::madvise || call == SystemCall::getrandom || call == SystemCall::fcntl;
}

std::vector<Sweep> sweeps() {
  std::vector<Sweep> made;
  for (const WayIn way : kWaysIn) {
    for (const SystemCall call : kSystemCalls) {
      if (makes(way, call)) made.push_back({way, call});
    }
  }
  return made;
}

std::string nameOfSweep(const testing::TestParamInfo<Sweep> &info) {
  static constexpr const char *kWays[] = {"Attached", "Loaded", "LoadedPrivate"};
  std::string name = kWays[static_cast<size_t>(info.param.way)];
  bool starts = true;
  for (const char *at = nameOf(info.param.call); *at != '\0'; ++at) {
    const bool isLetter = *at >= 'a' && *at <= 'z';
    if (isLetter) name += starts ? static_cast<char>(*at - 'a' + 'A') : *at;
    starts = !isLetter;
  }
  return name;
}

class SystemSweep : public testing::TestWithParam<Sweep> {};

INSTANTIATE_TEST_SUITE_P(Calls, SystemSweep, testing::ValuesIn(sweeps()), nameOfSweep);

TEST_P(SystemSweep, FailsCleanlyAtEveryCallAndThenSucceeds) {
  const Surroundings surroundings(GetParam().way);
  ASSERT_EQ(surroundings.fault(), "");
  // What stays for good, such as a copy's name in the loader, is there after one life.
  ASSERT_EQ(live(surroundings, QZ_HOST_OPTIONS_DEFAULT).fault, "");
  const Outstanding before = outstanding();
  uint64_t total = 0;
  for (const uint32_t lockedTrees : {0u, 1u}) {
    for (const Failing failing : kFailings) {
      uint64_t failures = 0;
      for (uint64_t n = 1;; ++n) {
        const std::string where = std::string(nameOf(GetParam().call)) + ", call " +
                                  std::to_string(n) + " fails " + nameOf(failing);
        ASSERT_LT(n, 2000u) << where;
        planSystemFailure(GetParam().call, failing, n);
        const Life life =
            live(surroundings, {0, 1, lockedTrees}, beginSystemFailures, endSystemFailures);
        ASSERT_EQ(life.fault, "") << where;
        const Outstanding after = outstanding();
        ASSERT_TRUE(after == before)
            << where << ": left are " << after.blocks - before.blocks << " blocks, "
            << after.mapped - before.mapped << " bytes mapped, " << after.handles - before.handles
            << " handles, " << after.files - before.files << " files";
        if (systemFailures() == 0) {
          ASSERT_TRUE(life.complete) << where;
          break;
        }
        ++failures;
        if (canDoWithout(GetParam().call)) {
          EXPECT_TRUE(life.complete) << where;
        }
      }
      EXPECT_GT(failures, 0u);
      total += failures;
    }
  }
  RecordProperty("failures", std::to_string(total));
}

}  // namespace
}  // namespace fault_test
