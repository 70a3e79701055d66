// Tables that are compared while they change, and in both directions at once.
#include <gtest/gtest.h>

#include <thread>

#include "morva/guard.hpp"
#include "two_tables.h"

namespace morva_test {
namespace {

const TableShape &comparedShape(size_t which) {
  static const TableShape shapes[] = {
      shapeOf(KeyMode::fixed, 0),
      shapeOf(KeyMode::fixed, flagMultiData | flagOrdered | flagSum),
      shapeOf(KeyMode::defined, flagMultiData),
  };
  return shapes[which];
}

// Keys of one length: the bytes behind a shorter one are whatever was there, and
// count when records are compared.
std::vector<std::string> keysOfOneLength(const TableShape &shape, size_t count) {
  if (!shape.rawKeys()) return someKeys(shape, count);
  std::vector<std::string> keys;
  for (size_t i = 0; i < count; ++i) {
    std::string key(shape.keyLength, 'k');
    key[0] = static_cast<char>(i);
    keys.push_back(key);
  }
  return keys;
}

class ComparedTables : public ::testing::TestWithParam<size_t> {
 protected:
  ComparedTables() : tables_(shape()), keys_(keysOfOneLength(shape(), 60)) {
    for (size_t i = 0; i < keys_.size(); ++i) {
      EXPECT_EQ(addTo(tables_.one(), keys_[i], dataFor(shape(), i)), MORVA_OK);
      EXPECT_EQ(addTo(tables_.two(), keys_[i], dataFor(shape(), i)), MORVA_OK);
    }
  }

  const TableShape &shape() const { return comparedShape(GetParam()); }

  static bool areEqual(MORVAInst *a, MORVAInst *b) {
    uint32_t equal = 7;
    EXPECT_EQ(MORVAEquals(a, b, &equal), MORVA_OK);
    EXPECT_LE(equal, 1u);
    return equal == 1;
  }

  // Makes the second table another one, or as it was; its lock is held. What it
  // holds must not be taken for equal halfway.
  void change(uint64_t step) {
    const size_t at = step / 2 % keys_.size();
    const std::string &key = keys_[at];
    const bool restore = step % 2 == 1;
    const std::string data = dataFor(shape(), restore ? at : at + 1000);
    if (at % 2 == 0) {
      EXPECT_EQ(replaceIn(tables_.two(), key, data), MORVA_OK);
    } else {
      EXPECT_EQ(removeFrom(tables_.two(), key), MORVA_OK);
      EXPECT_EQ(addTo(tables_.two(), key, data), MORVA_OK);
    }
    // Others come and find the lock held.
    std::this_thread::yield();
    isChanged_ = !restore;
  }

  TwoTables tables_;
  const std::vector<std::string> keys_;
  bool isChanged_ = false;  // guarded by the second table's lock
};

INSTANTIATE_TEST_SUITE_P(Shapes, ComparedTables, ::testing::Range(size_t{0}, size_t{3}),
                         [](const auto &info) { return shapeName(comparedShape(info.param)); });

TEST_P(ComparedTables, AnswerWhatIsTrueWhileOneOfThemIsChanged) {
  inParallel(kMany, [&](size_t thread) {
    for (uint64_t step = 0; step < kLonger * 400; ++step) {
      if (thread == 0) {
        const morva::guard hold(tables_.two()->lock);
        change(step);
      } else if (thread < 4) {
        // The first table's lock first, as the comparison takes them.
        const morva::guard first(tables_.one()->lock), second(tables_.two()->lock);
        EXPECT_EQ(areEqual(tables_.one(), tables_.two()), !isChanged_);
      } else {
        areEqual(tables_.one(), tables_.two());
      }
    }
  });
  EXPECT_TRUE(areEqual(tables_.one(), tables_.two()));
  EXPECT_EQ(tables_.contentsOf(tables_.one()), tables_.contentsOf(tables_.two()));
}

// The comparison takes the locks in the order of its arguments: who compares both
// ways holds them both before, in one order.
TEST_P(ComparedTables, MayBeComparedBothWaysAtOnceByThoseWhoHoldThemInOneOrder) {
  inParallel(kMany, [&](size_t thread) {
    for (uint64_t step = 0; step < kLonger * 400; ++step) {
      const morva::guard first(tables_.one()->lock), second(tables_.two()->lock);
      if (thread == 0) {
        change(step);
      } else if (thread % 2 == 0) {
        EXPECT_EQ(areEqual(tables_.one(), tables_.two()), !isChanged_);
      } else {
        EXPECT_EQ(areEqual(tables_.two(), tables_.one()), !isChanged_);
      }
    }
  });
  EXPECT_TRUE(areEqual(tables_.two(), tables_.one()));
}

// With tables in a row, each compared with later ones only, nobody waits in a ring.
TEST(ComparisonsOfManyTables, NeedNoHoldsWhereEarlierOnesComeFirst) {
  const TableShape &shape = comparedShape(0);
  TwoTables tables(shape);
  MORVAInst *const third = makeInstance(tables.ext(), shape);
  ASSERT_NE(third, nullptr);
  MORVAInst *const row[] = {tables.one(), tables.two(), third};
  const std::vector<std::string> keys = keysOfOneLength(shape, 40);
  for (MORVAInst *inst : row) {
    for (const std::string &key : keys) ASSERT_EQ(addTo(inst, key, dataFor(shape, 1)), MORVA_OK);
  }
  inParallel(kMany, [&](size_t thread) {
    for (size_t step = 0; step < kLonger * 300; ++step) {
      const size_t a = (step + thread) % 2;
      const size_t b = a + 1 + step % (2 - a);
      if (thread == 0) {
        const std::string &key = keys[step % keys.size()];
        EXPECT_EQ(replaceIn(row[a], key, dataFor(shape, 2)), MORVA_OK);
        EXPECT_EQ(replaceIn(row[a], key, dataFor(shape, 1)), MORVA_OK);
        continue;
      }
      uint32_t equal = 7;
      EXPECT_EQ(MORVAEquals(row[a], row[b], &equal), MORVA_OK);
      EXPECT_LE(equal, 1u);
    }
  });
  for (MORVAInst *inst : row) {
    uint32_t equal = 0;
    EXPECT_EQ(MORVAEquals(row[0], inst, &equal), MORVA_OK);
    EXPECT_EQ(equal, 1u);
  }
  EXPECT_EQ(third->Destroy(third), MORVA_OK);
}

}  // namespace
}  // namespace morva_test
