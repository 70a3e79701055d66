// Chains of records of one key, compared.
#include <gtest/gtest.h>

#include <set>

#include "equals_test.h"

using morva_test::Event;

namespace {

using Records = std::vector<std::pair<std::string, std::string>>;

class EqualsDuplicates : public keys_test::EqualsTest {
 protected:
  MORVAInst *chains(const Records &records, int32_t hashExp = 0) {
    return with(Mode::fixed, records, flagMultiData, hashExp);
  }

  // The data of the record that follows.
  static char *following(MORVAInst *inst, char *data) {
    void *next = nullptr;
    EXPECT_EQ(inst->FindNext(inst, data, &next), MORVA_OK);
    EXPECT_NE(next, nullptr);
    return static_cast<char *>(next);
  }
};

}  // namespace

TEST_F(EqualsDuplicates, TheSameChainsAreEqual) {
  for (Mode mode : {Mode::fixed, Mode::defined}) {
    for (int32_t hashExp : {0, 4}) {
      Records records;
      for (int i = 0; i < 60; i++) {
        records.push_back({std::to_string(10000000 + i % 20), std::to_string(i)});
      }
      EXPECT_EQ(equal(with(mode, records, flagMultiData, hashExp),
                      with(mode, records, flagMultiData, hashExp)),
                1u);
    }
  }
}

TEST_F(EqualsDuplicates, OneChainIsEqualWhereverKeysWereAddedBetween) {
  EXPECT_EQ(equal(chains({{"a", "1"}, {"a", "2"}, {"b", "3"}}),
                  chains({{"b", "3"}, {"a", "1"}, {"a", "2"}})),
            1u);
}

TEST_F(EqualsDuplicates, AnotherOrderWithinAChainIsUnequal) {
  EXPECT_EQ(equal(chains({{"a", "1"}, {"a", "2"}}), chains({{"a", "2"}, {"a", "1"}})), 0u);
}

TEST_F(EqualsDuplicates, OtherDataAnywhereInAChainIsUnequal) {
  const Records records = {{"a", "1"}, {"a", "2"}, {"a", "3"}, {"b", "4"}, {"b", "5"}};
  MORVAInst *a = chains(records), *b = chains(records);
  std::vector<char *> places;
  for (const char *key : {"a", "b"}) {
    void *data = dataOf(b, key);
    while (data != nullptr) {
      places.push_back(static_cast<char *>(data));
      ASSERT_EQ(b->FindNext(b, data, &data), MORVA_OK);
    }
  }
  ASSERT_EQ(places.size(), 5u);
  for (char *data : places) {
    for (size_t at = 0; at < 4; at++) {
      data[at] ^= 1;
      EXPECT_EQ(equal(a, b), 0u) << at;
      data[at] ^= 1;
    }
  }
  EXPECT_EQ(equal(a, b), 1u);
}

TEST_F(EqualsDuplicates, TheLinksInFrontOfTheDataAreNotCompared) {
  // Two chains in other places of memory: the links differ, the rest does not.
  MORVAInst *a = chains({{"a", "1"}, {"b", "2"}, {"a", "3"}});
  MORVAInst *b = chains({{"b", "2"}, {"a", "1"}, {"a", "3"}});
  EXPECT_EQ(equal(a, b), 1u);
}

TEST_F(EqualsDuplicates, ALongerChainIsUnequalThoughTheNumberOfRecordsAgrees) {
  // Either chain may be the longer one; `equal` compares both ways round.
  EXPECT_EQ(equal(chains({{"a", "1"}, {"a", "1"}, {"b", "1"}}),
                  chains({{"a", "1"}, {"b", "1"}, {"b", "1"}})),
            0u);
  EXPECT_EQ(equal(chains({{"a", "1"}, {"a", "1"}, {"a", "1"}, {"b", "1"}}),
                  chains({{"a", "1"}, {"a", "1"}, {"b", "1"}, {"b", "1"}})),
            0u);
}

TEST_F(EqualsDuplicates, AChainAgainstSingleRecordsIsUnequal) {
  EXPECT_EQ(equal(chains({{"a", "1"}, {"a", "1"}}), chains({{"a", "1"}, {"b", "1"}})), 0u);
}

TEST_F(EqualsDuplicates, AChainAtTheEndOfABucketIsCompared) {
  EXPECT_EQ(equal(chains({{"a", "1"}, {"b", "1"}, {"b", "2"}}),
                  chains({{"a", "1"}, {"b", "1"}, {"b", "3"}})),
            0u);
}

TEST_F(EqualsDuplicates, TheKeyAreasOfFurtherRecordsAreComparedToo) {
  MORVAInst *fresh = chains({{"ab", "1"}, {"ab", "2"}});
  MORVAInst *reused = chains({{"ab", "1"}, {"zzzzzzzz", "?"}});
  ASSERT_EQ(removeKey(reused, "zzzzzzzz"), MORVA_OK);
  // The second record goes where the long key was, whose end stays behind it.
  ASSERT_EQ(addKey(reused, "ab", "2"), MORVA_OK);
  ASSERT_EQ(fresh->NumElements(fresh), reused->NumElements(reused));
  EXPECT_EQ(equal(fresh, reused), 0u);
  // Without the stale bytes the two are equal.
  char *base = following(reused, dataOf(reused, "ab")) - 16 - reused->dataOffset;
  std::memset(base + 10, 0, reused->keyLength - 10);
  EXPECT_EQ(equal(fresh, reused), 1u);
}

TEST_F(EqualsDuplicates, TheWalkGoesOnFromTheRecordsThatHeadTheChains) {
  const Records records = {{"a", "1"}, {"a", "2"}, {"b", "3"}, {"c", "4"}, {"c", "5"}};
  MORVAInst *a = chains(records), *b = chains(records);
  std::set<uint64_t> heads;
  for (MORVAInst *inst : {a, b}) {
    for (RecordNode *node : walk(inst, 0)) heads.insert(reinterpret_cast<uintptr_t>(node));
  }
  ASSERT_EQ(heads.size(), 6u);
  host.forget();
  uint32_t answer = untouched;
  ASSERT_EQ(MORVAEquals(a, b, &answer), MORVA_OK);
  EXPECT_EQ(answer, 1u);
  std::multiset<uint64_t> walked;
  for (const Event &event : host.eventsOf(Call::treeNext)) walked.insert(event.a);
  EXPECT_EQ(walked, std::multiset<uint64_t>(heads.begin(), heads.end()));
}

TEST_F(EqualsDuplicates, AnInstanceEqualsItself) {
  MORVAInst *inst = chains({{"a", "1"}, {"a", "2"}, {"b", "3"}, {"b", "4"}});
  EXPECT_EQ(equal(inst, inst), 1u);
}

TEST_F(EqualsDuplicates, WithoutDataTheLengthsOfChainsCount) {
  MORVAInst *a = create(Mode::fixed, flagMultiData, 0), *b = create(Mode::fixed, flagMultiData, 0);
  for (uint64_t key : {1, 1, 2}) ASSERT_EQ(add(a, key), MORVA_OK);
  for (uint64_t key : {1, 2, 1}) ASSERT_EQ(add(b, key), MORVA_OK);
  EXPECT_EQ(equal(a, b), 1u);
  MORVAInst *c = create(Mode::fixed, flagMultiData, 0);
  for (uint64_t key : {1, 2, 2}) ASSERT_EQ(add(c, key), MORVA_OK);
  EXPECT_EQ(equal(a, c), 0u);
}

TEST_F(EqualsDuplicates, SumsOfChainsAreNotCompared) {
  MORVAInst *a = with(Mode::fixed, {}, flagMultiData | flagSum);
  MORVAInst *b = with(Mode::fixed, {}, flagMultiData | flagSum);
  for (MORVAInst *inst : {a, b}) {
    inst->SetSumInc(inst, inst == a ? 1.0 : 50.0);
    for (const char *data : {"1", "2", "3"}) ASSERT_EQ(addKey(inst, "k", data), MORVA_OK);
  }
  EXPECT_EQ(equal(a, b), 1u);
}
