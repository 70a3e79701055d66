// Operations within operations: under holds of locks, and from the host's own
// functions while the library is calling them.
#include <gtest/gtest.h>

#include <set>

#include "morva/guard.hpp"
#include "recording_host.h"
#include "two_tables.h"

namespace morva_test {
namespace {

TEST(HoldsOfTwoTables, MakeMovingARecordOneStep) {
  const TableShape shape = shapeOf(KeyMode::fixed, flagOrdered);
  TwoTables tables(shape);
  const std::vector<std::string> keys = someKeys(shape, 100);
  for (size_t i = 0; i < keys.size(); ++i) {
    ASSERT_EQ(addTo(tables.one(), keys[i], dataFor(shape, i)), MORVA_OK);
  }
  const auto move = [&](MORVAInst *from, MORVAInst *to, const std::string &key) {
    void *data = nullptr;
    EXPECT_EQ(from->Find(from, key.data(), lengthOf(key), &data), MORVA_OK);
    if (data == nullptr) return;
    EXPECT_EQ(to->Add(to, data, key.data(), lengthOf(key)), MORVA_OK);
    EXPECT_EQ(removeFrom(from, key), MORVA_OK);
  };
  inParallel(kMany, [&](size_t thread) {
    std::mt19937_64 random(thread);
    for (size_t step = 0; step < kLonger * 1500; ++step) {
      // Deeper than once, as where one function that holds calls another.
      const morva::guard one(tables.one()->lock), two(tables.two()->lock);
      const morva::guard again(tables.one()->lock);
      const std::string &key = keys[random() % keys.size()];
      if (random() % 2 == 0) {
        move(tables.one(), tables.two(), key);
      } else {
        move(tables.two(), tables.one(), key);
      }
      EXPECT_EQ(tables.one()->NumElements(tables.one()) + tables.two()->NumElements(tables.two()),
                keys.size());
    }
  });
  ThreadWork::Contents all = tables.contentsOf(tables.one());
  all.merge(tables.contentsOf(tables.two()));
  ASSERT_EQ(all.size(), keys.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    EXPECT_EQ(all[keys[i]], std::vector<std::string>{dataFor(shape, i)});
  }
}

// So that the next test's host may have the linked library.
struct FreedAtTheEnd {
  ~FreedAtTheEnd() { qzextent(nullptr); }
};

// A host keeps a table of its own on the library, and uses it wherever the library
// calls: in its pools, locks, trees, packers and order lists.
class FromWithinTheHost : public ::testing::TestWithParam<size_t> {
 protected:
  const TableShape &shape() const { return lockedShapes()[GetParam()]; }
};

INSTANTIATE_TEST_SUITE_P(EveryKeyMode, FromWithinTheHost,
                         ::testing::Range(size_t{0}, lockedShapes().size()),
                         [](const auto &info) { return shapeName(lockedShapes()[info.param]); });

TEST_P(FromWithinTheHost, AnotherTableIsUsedInTheMiddleOfEveryOperation) {
  RecordingHost host;
  host.keepLog(false);
  const FreedAtTheEnd library;
  const Extension ext(host);
  MORVAInst *inst = makeInstance(ext.get(), shape());
  const TableShape &tallyShape = lockedShapes()[1];
  MORVAInst *tally = makeInstance(ext.get(), tallyShape);
  ASSERT_NE(inst, nullptr);
  ASSERT_NE(tally, nullptr);
  if (shape().sums()) inst->SetSumInc(inst, 1.0);
  tally->SetSumInc(tally, 1.0);

  // Of each kind of call: how often, by the tally's own sums.
  std::map<Call, int> calls;
  bool within = false;
  const auto keyOf = [](Call call) {
    return std::string(1 + static_cast<size_t>(call) % 3, 'a') + static_cast<char>(call);
  };
  const auto count = [&](const Event &event) {
    if (within) return;
    within = true;
    EXPECT_LE(inst->NumElements(inst), 10000u);  // of the very table that is being changed
    const std::string key = keyOf(event.call);
    if (calls[event.call]++ == 0) {
      EXPECT_EQ(addTo(tally, key, dataFor(tallyShape, 1)), MORVA_OK);
    } else {
      void *data = nullptr;
      EXPECT_EQ(tally->Find(tally, key.data(), lengthOf(key), &data), MORVA_OK);
      EXPECT_NE(data, nullptr);
    }
    // And a record that comes and goes.
    EXPECT_EQ(addTo(tally, "comes and goes", dataFor(tallyShape, 2)), MORVA_OK);
    EXPECT_EQ(removeFrom(tally, "comes and goes"), MORVA_OK);
    within = false;
  };
  host.onEvent = count;
  ThreadWork work(inst, shape(), someKeys(shape(), 60), 1100);
  work.run(1500);
  EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
  ThreadWork after(inst, shape(), someKeys(shape(), 60), 1101);
  after.run(500);
  host.onEvent = nullptr;

  ThreadWork::Contents contents;
  EXPECT_EQ(checkInstanceAlone(inst, shape(), host.order(inst), &contents), "");
  EXPECT_EQ(contents, after.contents());
  ThreadWork::Contents tallied;
  EXPECT_EQ(checkInstanceAlone(tally, tallyShape, host.order(tally), &tallied), "");
  EXPECT_EQ(tallied.size(), calls.size());
  for (const Call call : {Call::acquire, Call::release, Call::treeFind, Call::treeInsert,
                          Call::treeRemove, Call::allocate}) {
    EXPECT_GT(calls[call], 0) << static_cast<int>(call);
  }
  for (const auto &[call, times] : calls) {
    const std::string key = keyOf(call);
    double sum = 0.0;
    EXPECT_EQ(tally->Sum(tally, key.data(), lengthOf(key), &sum), MORVA_OK);
    EXPECT_EQ(sum, times);
  }
  EXPECT_EQ(host.locksHeld(), 0u);
  EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
  EXPECT_EQ(tally->Destroy(tally), MORVA_OK);
  host.checkGuards();
  EXPECT_TRUE(host.complaints().empty()) << host.complaints().front();
}

}  // namespace
}  // namespace morva_test
