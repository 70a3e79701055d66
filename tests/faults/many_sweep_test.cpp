// The operations on many keys beside the same done key after key: with the same call failing they
// answer the same, key by key, and leave the same instance.
#include <gtest/gtest.h>

#include "many_operations.h"
#include "model/instance_checker.h"

namespace fault_test {
namespace {

using Contents = std::map<std::string, std::vector<std::string>, morva_test::KeyOrder>;

// One of the two ways, with the n-th call failing.
class Way {
 public:
  Way(uint32_t flags, Stock stock) : world_(flags, stock, false) {}

  // What is wrong in itself, or empty.
  std::string run(void (*call)(World &, ManyAnswers &), Failing failing, uint64_t n) {
    world_.host.arm(failing, n);
    call(world_, answers_);
    failures_ = world_.host.delivered();
    asked_ = world_.host.asked();
    world_.host.disarm();
    if (world_.host.held() != 0) return "a lock is still held";
    if (world_.host.unmatchedReleases() != 0) return "a lock was released too often";
    world_.inst->SetSumInc(world_.inst, 0.0);
    // A record whose order node could not be had is in no order, and is not counted.
    drifted_ = false;
    for (size_t i = 0; i < kManyCount; ++i) drifted_ = drifted_ || lostItsPlace(i);
    if (drifted_) return "";
    return checkInstanceAlone(world_.inst, world_.shape(), order(), &contents_);
  }

  uint64_t failures() const { return failures_; }

  // What differs between the two ways; null when nothing does.
  static const char *difference(const Way &a, const Way &b) {
    if (!(a.asked_ == b.asked_) || a.failures_ != b.failures_)
      return "the host was asked otherwise";
    if (a.answers_ != b.answers_) return "the answers differ";
    if (a.drifted_ != b.drifted_ || a.contents_ != b.contents_) return "the contents differ";
    if (a.world_.inst->NumElements(a.world_.inst) != b.world_.inst->NumElements(b.world_.inst)) {
      return "the counts differ";
    }
    return nullptr;
  }

  const char *end() { return world_.end(); }

  // With the host in order again the instance takes and finds everything once more.
  const char *useAgain() {
    if (world_.inst->Clear(world_.inst) != MORVA_OK) return "clearing failed";
    for (int key = 0; key <= kNew; ++key) {
      if (world_.add(key, 7) != MORVA_OK) return "a key cannot be stored in the cleared instance";
      world_.content.remove(key);
      world_.content.add(key, {7, 0.0});
    }
    return world_.check(0);
  }

 private:
  bool lostItsPlace(size_t i) {
    return world_.has(flagOrdered) && answers_.statuses[i] == MORVA_NO_MEMORY &&
           world_.nodeOf(kManyKeys[i]) != nullptr && kManyKeys[i] >= kNew;
  }

  std::vector<RecordNode *> order() const {
    std::vector<RecordNode *> nodes;
    if (!world_.has(flagOrdered)) return nodes;
    for (auto *node = static_cast<const OrderNode *>(world_.inst->orderList->head); node != nullptr;
         node = static_cast<const OrderNode *>(node->link1)) {
      nodes.push_back(static_cast<RecordNode *>(node->record));
    }
    return nodes;
  }

  World world_;
  ManyAnswers answers_ = {};
  uint64_t failures_ = 0;
  Sequence asked_;
  bool drifted_ = false;
  Contents contents_;
};

class ManySweep : public testing::TestWithParam<ManyOperation> {};

INSTANTIATE_TEST_SUITE_P(Operations, ManySweep, testing::ValuesIn(manyOperations()),
                         [](const testing::TestParamInfo<ManyOperation> &info) {
                           return std::string(info.param.name);
                         });

TEST_P(ManySweep, AnswersAndLeavesWhatKeyAfterKeyDoes) {
  uint64_t cells = 0, failures = 0, successes = 0;
  for (const uint32_t flags : acceptedFlags()) {
    for (const Stock stock : kStocks) {
      for (const Failing failing : kFailings) {
        ++cells;
        bool failed = true;
        for (uint64_t n = 1; failed && n < 20; ++n) {
          const std::string where = textOf(flags) + ", " + nameOf(stock) + ", call " +
                                    std::to_string(n) + " fails " + nameOf(failing);
          Way together(flags, stock), oneByOne(flags, stock);
          ASSERT_EQ(together.run(GetParam().together, failing, n), "") << where;
          ASSERT_EQ(oneByOne.run(GetParam().oneByOne, failing, n), "") << where;
          ASSERT_STREQ(Way::difference(together, oneByOne), nullptr) << where;
          failed = together.failures() != 0;
          ++(failed ? failures : successes);
          ASSERT_STREQ(together.useAgain(), nullptr) << where;
          ASSERT_STREQ(together.end(), nullptr) << where;
          ASSERT_STREQ(oneByOne.end(), nullptr) << where;
        }
        ASSERT_FALSE(failed) << textOf(flags) << ": it never succeeds";
      }
    }
  }
  EXPECT_EQ(successes, cells);
  EXPECT_GT(failures, 0u);
  RecordProperty("cells", std::to_string(cells));
  RecordProperty("failures", std::to_string(failures));
  RecordProperty("successes", std::to_string(successes));
}

}  // namespace
}  // namespace fault_test
