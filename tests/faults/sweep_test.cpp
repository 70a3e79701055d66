// Every operation, on every accepted combination of option bits, with every call to the host that
// can fail failing in turn until the operation succeeds.
#include <gtest/gtest.h>

#include "operations.h"

namespace fault_test {
namespace {

// What is done with the instance after the failure, before it is destroyed. The clear operations
// take the locks of tree and order list, if there are any: so where they end a run, there are.
enum class Ending { nothing, again, clear, clear2 };
constexpr Ending kEndings[] = {Ending::nothing, Ending::again, Ending::clear, Ending::clear2};

constexpr bool hasContainerLocks(Ending ending) {
  return ending == Ending::clear || ending == Ending::clear2;
}

// One cell of the sweep: one run of one operation on one world, with the n-th call failing.
class Cell {
 public:
  Cell(const Operation &operation, uint32_t flags, Stock stock, Failing failing, uint64_t n,
       Ending ending)
      : operation_(operation),
        expected_(expectedSequence(operation, flags, stock)),
        failing_(failing),
        n_(n),
        ending_(ending),
        world_(flags, stock, hasContainerLocks(ending)) {}

  // What is wrong; null when all is well.
  const char *run() {
    if (world_.inst == nullptr) return "there is no instance";
    if (operation_.prepare != nullptr) operation_.prepare(world_);
    world_.host.arm(failing_, n_);
    const uint32_t result = operation_.call(world_);
    failures_ = world_.host.delivered();
    const Sequence asked = world_.host.asked();
    world_.host.disarm();
    const char *fault = failures_ == 0 ? checkSuccess(result, asked) : checkFailure(result, asked);
    if (fault == nullptr) fault = world_.check(unmatched_);
    if (fault == nullptr && failures_ != 0) fault = end();
    return fault != nullptr ? fault : world_.end();
  }

  bool failed() const { return failures_ != 0; }

 private:
  bool hasLock() const { return !world_.has(flagNoLock); }

  const char *checkSuccess(uint32_t result, const Sequence &asked) {
    if (!(asked == expected_)) return "the host was asked for other things";
    if (result != operation_.result) return "it answered another result";
    if (operation_.effect != nullptr) operation_.effect(world_);
    if (operation_.releasesAlways && hasLock()) unmatched_ = 1;
    return nullptr;
  }

  const char *checkFailure(uint32_t result, const Sequence &asked) {
    if (asked.size() < n_ || n_ > expected_.size()) return "it failed where nothing can fail";
    const Asked failed = asked[n_ - 1];
    if (failed != expected_[n_ - 1]) return "another call failed";
    if (failed == Asked::unlink) {
      // Too late to keep the record: it is gone, and who looks at the result is told.
      const bool told = operation_.unlinks == Unlinks::one;
      if (result != (told ? MORVA_INVALID : operation_.result)) return "it answered another result";
      operation_.effect(world_);
      world_.lostOrderNodes = static_cast<uint32_t>(failures_);
      return nullptr;
    }
    if (asked.size() != n_ || failures_ != 1) return "it went on after the failure";
    if (result != MORVA_NO_MEMORY) return "it answered another result";
    if (!world_.answers.areUntouched()) return "it wrote an answer in spite of the failure";
    if (failed == Asked::inodeBlock) {
      world_.uncounted = kNew;
      world_.uncountedIsBare = true;
    }
    if (operation_.releasesOnFailure && hasLock()) unmatched_ = 1;
    return nullptr;
  }

  const char *end() {
    switch (ending_) {
      case Ending::nothing:
        return nullptr;
      case Ending::again:
        return again();
      case Ending::clear:
        return clear(world_.inst->Clear);
      case Ending::clear2:
        return clear(world_.inst->Clear2);
    }
    return "there is no such ending";
  }

  // With the host in order again the operation does what it does.
  const char *again() {
    if (world_.uncounted) return againAfterTheOrderNode();
    if (world_.lostOrderNodes != 0) return againAfterTheUnlinking();
    world_.answers.reset();
    if (operation_.call(world_) != operation_.result) return "the second try failed";
    if (operation_.effect != nullptr) operation_.effect(world_);
    if (operation_.releasesAlways && hasLock()) ++unmatched_;
    return world_.check(unmatched_);
  }

  // The key is there, so an add finds it, or adds a further record, and a replace overwrites it.
  const char *againAfterTheOrderNode() {
    const uint32_t result = operation_.call(world_);
    // An add that finds it present stores nothing.
    world_.uncountedIsBare = result == MORVA_PRESENT;
    const bool isAdd = operation_.slot == offsetof(MORVAInst, Add) ||
                       std::strstr(operation_.name, "Add") != nullptr;
    const bool isFound = isAdd && !world_.has(flagMultiData);
    if (result != (isFound ? MORVA_PRESENT : MORVA_OK)) {
      return "the second try answered another result";
    }
    return world_.check(unmatched_);
  }

  // The removed key can be stored and removed as if nothing had been.
  const char *againAfterTheUnlinking() {
    const Content before = world_.content;
    for (int key = 0; key < kMostStored; ++key) {
      if (world_.content.keys[key].count != 0) continue;
      if (world_.add(key, 1) != MORVA_OK) return "a key lost to the order cannot be stored again";
      world_.content.add(key, {1, 1.0});
    }
    if (const char *fault = world_.check(unmatched_)) return fault;
    for (int key = 0; key < kMostStored; ++key) {
      if (before.keys[key].count != 0) continue;
      if (world_.inst->Remove(world_.inst, world_.key(key), world_.length(key)) != MORVA_OK) {
        return "a key lost to the order cannot be removed again";
      }
      world_.content.remove(key);
    }
    return world_.check(unmatched_);
  }

  const char *clear(MORVAStatus (*function)(MORVAInst *)) {
    world_.unpin();
    if (function(world_.inst) != MORVA_OK) return "clearing failed";
    world_.content.clear();
    world_.uncounted.reset();
    if (function == world_.inst->Clear) world_.lostNodes = world_.lostOrderNodes = 0;
    if (const char *fault = world_.check(unmatched_)) return fault;
    for (int key = 0; key <= kNew; ++key) {
      if (world_.add(key, 7) != MORVA_OK) return "a key cannot be stored in the cleared instance";
      world_.content.add(key, {7, 1.0});
    }
    return world_.check(unmatched_);
  }

  const Operation &operation_;
  const Sequence expected_;
  const Failing failing_;
  const uint64_t n_;
  const Ending ending_;
  World world_;
  uint64_t failures_ = 0;
  uint32_t unmatched_ = 0;
};

struct Counts {
  uint64_t cells = 0, failures = 0, successes = 0;
};

class Sweep : public testing::TestWithParam<Operation> {
 protected:
  void TearDown() override {
    RecordProperty("cells", std::to_string(counts_.cells));
    RecordProperty("failures", std::to_string(counts_.failures));
    RecordProperty("successes", std::to_string(counts_.successes));
  }

  // One cell: n = 1, 2, 3 ... until the operation succeeds.
  void sweep(uint32_t flags, Stock stock, Failing failing, Ending ending) {
    const size_t calls = expectedSequence(GetParam(), flags, stock).size();
    ++counts_.cells;
    uint64_t failures = 0;
    for (bool failed = true; failed && failures <= calls;) {
      Cell cell(GetParam(), flags, stock, failing, failures + 1, ending);
      const char *fault = cell.run();
      failed = cell.failed();
      ++(failed ? failures : counts_.successes);
      if (fault == nullptr) continue;
      FAIL() << fault << ": " << textOf(flags) << ", " << nameOf(stock) << ", call " << failures
             << " of " << calls << " fails " << nameOf(failing) << ", ending "
             << static_cast<int>(ending);
    }
    counts_.failures += failures;
    EXPECT_EQ(failures, calls) << textOf(flags) << ", " << nameOf(stock);
  }

  Counts counts_;
};

INSTANTIATE_TEST_SUITE_P(Operations, Sweep, testing::ValuesIn(sweptOperations()),
                         [](const testing::TestParamInfo<Operation> &info) {
                           return std::string(info.param.name);
                         });

TEST_P(Sweep, FailsCleanlyAtEveryCallAndThenSucceeds) {
  for (const uint32_t flags : acceptedFlags()) {
    if (!GetParam().applies(flags)) continue;
    for (const Stock stock : kStocks) {
      if (GetParam().needsContent && stock == Stock::none) continue;
      const bool canFail = expectedSequence(GetParam(), flags, stock).size() != 0;
      for (const Failing failing : kFailings) {
        for (const Ending ending : kEndings) {
          // Where nothing can fail nothing ends differently: one run with those locks, one without.
          if (!canFail && ending != Ending::nothing && ending != Ending::clear) continue;
          ASSERT_NO_FATAL_FAILURE(sweep(flags, stock, failing, ending));
        }
      }
    }
  }
  EXPECT_NE(counts_.successes, 0u);
}

}  // namespace
}  // namespace fault_test
