// Locked trees: many lookups without the table's lock, beside many threads that
// store, replace and remove other keys.
#include <gtest/gtest.h>

#include <atomic>

#include "two_tables.h"

namespace morva_test {
namespace {

constexpr size_t kWriters = 3;
constexpr size_t kReaders = kMany - kWriters;

class LockedTreesOfATable : public ::testing::TestWithParam<size_t> {
 protected:
  const TableShape &shape() const { return lockedShapes()[GetParam()]; }
};

INSTANTIATE_TEST_SUITE_P(EveryKeyMode, LockedTreesOfATable,
                         ::testing::Range(size_t{0}, lockedShapes().size()),
                         [](const auto &info) { return shapeName(lockedShapes()[info.param]); });

// Stores, replaces and removes keys of its own; answers what it leaves.
ThreadWork::Contents comeAndGo(MORVAInst *inst, const TableShape &shape,
                               const std::vector<std::string> &keys, uint64_t seed) {
  ThreadWork::Contents held;
  std::mt19937_64 random(seed);
  for (size_t step = 0; step < kLonger * 4000; ++step) {
    const std::string &key = keys[random() % keys.size()];
    const std::string data = dataFor(shape, random());
    const auto at = held.find(key);
    if (at == held.end()) {
      EXPECT_EQ(addTo(inst, key, data), MORVA_OK);
      held[key] = {data};
    } else if (random() % 3 == 0) {
      EXPECT_EQ(replaceIn(inst, key, data), MORVA_OK);
      at->second = {data};
    } else {
      EXPECT_EQ(removeFrom(inst, key), MORVA_OK);
      held.erase(at);
    }
  }
  return held;
}

TEST_P(LockedTreesOfATable, AreSearchedWithoutTheLockBesideSeveralWriters) {
  TwoTables tables(shape(), HostKind::embeddedWithTreeLocks);
  MORVAInst *inst = tables.one();
  // A find adds the increment to the record: with one, it is a change.
  if (shape().sums()) inst->SetSumInc(inst, 0.0);
  const std::vector<std::string> keys = someKeys(shape(), 240);
  const std::vector<std::string> kept = shareOf(keys, 0, 4), absent = shareOf(keys, 1, 4);
  const std::vector<std::string> moving = [&] {
    std::vector<std::string> all = shareOf(keys, 2, 4);
    const std::vector<std::string> more = shareOf(keys, 3, 4);
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }();
  ThreadWork::Contents expected;
  std::vector<void *> places(kept.size());
  for (size_t i = 0; i < kept.size(); ++i) {
    const std::string data = dataFor(shape(), i);
    ASSERT_EQ(addTo(inst, kept[i], data), MORVA_OK);
    ASSERT_EQ(inst->Find(inst, kept[i].data(), lengthOf(kept[i]), &places[i]), MORVA_OK);
    expected[kept[i]] = {data};
  }

  std::vector<ThreadWork::Contents> left(kWriters);
  std::atomic<size_t> writing{kWriters};
  inParallel(kWriters + kReaders, [&](size_t thread) {
    if (thread < kWriters) {
      left[thread] = comeAndGo(inst, shape(), shareOf(moving, thread, kWriters), 700 + thread);
      --writing;
      return;
    }
    std::vector<uint64_t> probe(shape().probeSize(shape().longestKey()) / 8);
    const auto find = [&](const std::string &key) {
      void *data = inst;
      EXPECT_EQ(inst->Find2(inst, key.data(), lengthOf(key),
                            reinterpret_cast<RecordNode *>(probe.data()), &data),
                MORVA_OK);
      return data;
    };
    for (size_t step = thread; writing != 0; ++step) {
      const size_t at = step * 7 % kept.size();
      void *place = find(kept[at]);
      EXPECT_EQ(place, places[at]);
      if (place != nullptr) {
        EXPECT_EQ(numberIn(place), at);
      }
      EXPECT_EQ(find(absent[step % absent.size()]), nullptr);
    }
  });
  for (const ThreadWork::Contents &one : left) expected.insert(one.begin(), one.end());
  EXPECT_EQ(tables.contentsOf(inst), expected);
}

}  // namespace
}  // namespace morva_test
