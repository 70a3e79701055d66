// Record by record, without duplicates.
#include <gtest/gtest.h>

#include <set>

#include "equals_test.h"

using morva_test::Event;
using morva_test::freeRecordsOf;
using morva_test::prefixOf;

namespace {

using Records = std::vector<std::pair<std::string, std::string>>;

class EqualsRecords : public keys_test::EqualsTest {};

Records manyRecords() {
  Records records;
  for (int i = 0; i < 100; i++) records.push_back({std::to_string(10000000 + i * 7), "v"});
  return records;
}

}  // namespace

TEST_F(EqualsRecords, EmptyInstancesAreEqual) {
  EXPECT_EQ(equal(with(Mode::fixed, {}), with(Mode::fixed, {})), 1u);
  EXPECT_EQ(equal(with(Mode::defined, {}), with(Mode::defined, {})), 1u);
}

TEST_F(EqualsRecords, TheSameRecordsInAnyOrderAreEqual) {
  const Records records = manyRecords();
  const Records backwards(records.rbegin(), records.rend());
  for (Mode mode : {Mode::fixed, Mode::defined}) {
    for (int32_t hashExp : {0, 2, 8}) {
      EXPECT_EQ(equal(with(mode, records, 0, hashExp), with(mode, backwards, 0, hashExp)), 1u)
          << nameOf(mode) << " " << hashExp;
    }
  }
}

TEST_F(EqualsRecords, AnInstanceEqualsItself) {
  MORVAInst *inst = with(Mode::fixed, manyRecords());
  EXPECT_EQ(equal(inst, inst), 1u);
}

TEST_F(EqualsRecords, OneOtherDataByteIsUnequalAndTheAnswerFollowsEveryChange) {
  for (Mode mode : {Mode::fixed, Mode::defined}) {
    MORVAInst *a = with(mode, manyRecords()), *b = with(mode, manyRecords());
    for (const auto &record : manyRecords()) {
      char *data = dataOf(b, record.first);
      for (size_t at : {0, 3}) {
        data[at] ^= 0x20;
        ASSERT_EQ(equal(a, b), 0u) << record.first << " at " << at;
        data[at] ^= 0x20;
      }
    }
    EXPECT_EQ(equal(a, b), 1u);
  }
}

TEST_F(EqualsRecords, BytesBehindTheDataAreNotCompared) {
  MORVAInst *a = with(Mode::fixed, {{"k", "v"}}), *b = with(Mode::fixed, {{"k", "v"}});
  dataOf(b, "k")[4] ^= 0x20;
  EXPECT_EQ(equal(a, b), 1u);
}

TEST_F(EqualsRecords, BytesBetweenKeyAreaAndDataAreNotCompared) {
  MORVAInst *a = with(Mode::fixed, {{"k", "v"}}), *b = with(Mode::fixed, {{"k", "v"}});
  ASSERT_EQ(b->keyLength, 20u);
  ASSERT_EQ(b->dataOffset, 24u);
  for (size_t at = 20; at < 24; at++) keyAreaOf(b, "k")[at] ^= 0x20;
  EXPECT_EQ(equal(a, b), 1u);
}

TEST_F(EqualsRecords, EveryByteOfTheKeyAreaIsCompared) {
  MORVAInst *a = with(Mode::fixed, {{"12345678", "v"}}, 0, 0);
  MORVAInst *b = with(Mode::fixed, {{"12345678", "v"}}, 0, 0);
  char *area = keyAreaOf(b, "12345678");
  for (size_t at = 0; at < 20; at++) {
    area[at] ^= 0x40;
    EXPECT_EQ(equal(a, b), 0u) << at;
    area[at] ^= 0x40;
  }
  EXPECT_EQ(equal(a, b), 1u);
}

TEST_F(EqualsRecords, WithoutDataOnlyTheKeysCount) {
  for (Mode mode : {Mode::fixed, Mode::defined}) {
    MORVAInst *a = create(mode, 0, 0), *b = create(mode, 0, 0);
    addAll(a, 1, 40);
    addAll(b, 1, 40);
    EXPECT_EQ(equal(a, b), 1u);
    ASSERT_EQ(remove(b, 7), MORVA_OK);
    ASSERT_EQ(add(b, 7000), MORVA_OK);
    EXPECT_EQ(equal(a, b), 0u);
  }
}

TEST_F(EqualsRecords, AnotherKeyIsUnequal) {
  for (Mode mode : {Mode::fixed, Mode::defined}) {
    EXPECT_EQ(equal(with(mode, {{"aaaaaaaa", "v"}}, 0, 0), with(mode, {{"aaaaaaab", "v"}}, 0, 0)),
              0u);
    EXPECT_EQ(equal(with(mode, {{"aaaaaaaa", "v"}}, 0, 0), with(mode, {{"baaaaaaa", "v"}}, 0, 0)),
              0u);
  }
}

TEST_F(EqualsRecords, KeysThatDifferInLengthOnlyAreUnequal) {
  EXPECT_EQ(equal(with(Mode::fixed, {{std::string("\0", 1), "v"}}, 0, 0),
                  with(Mode::fixed, {{std::string("\0\0", 2), "v"}}, 0, 0)),
            0u);
}

TEST_F(EqualsRecords, AWalkThatEndsBeforeTheOtherIsUnequal) {
  // One-byte keys fall into the bucket of their lowest bit here. The buckets
  // begin alike; one of them goes on.
  const auto letters = [&](const std::string &keys) {
    Records records;
    for (char key : keys) records.push_back({std::string(1, key), "v"});
    return with(Mode::fixed, records, 0, 1);
  };
  // "b" and "d" are even, "a" and "c" odd.
  EXPECT_EQ(equal(letters("bda"), letters("bac")), 0u);
  EXPECT_EQ(equal(letters("ba"), letters("bd")), 0u);
  EXPECT_EQ(equal(letters("ac"), letters("bd")), 0u);
  EXPECT_EQ(equal(letters("bac"), letters("bca")), 1u);
}

TEST_F(EqualsRecords, ARecordThatIsNotCountedIsStillWalked) {
  // Without memory for its order node a record stays in its tree, uncounted.
  MORVAInst *empty = with(Mode::fixed, {});
  MORVAInst *uncounted = with(Mode::fixed, {}, flagOrdered);
  host.failCall(Call::allocate, 2);
  ASSERT_EQ(addKey(uncounted, "k"), MORVA_NO_MEMORY);
  ASSERT_EQ(host.failuresDelivered(), 1u);
  ASSERT_EQ(uncounted->buckets->elementCount, 0u);
  ASSERT_EQ(walk(uncounted, bucketOf(uncounted, "k")).size(), 1u);
  EXPECT_EQ(equal(empty, uncounted), 0u);
}

TEST_F(EqualsRecords, ADifferenceInTheLastBucketIsSeen) {
  const Records a = {{"a", "v"}, {"o", "v"}}, b = {{"a", "v"}, {"\x1F", "v"}};
  // Both second keys fall into bucket 15 of 16.
  EXPECT_EQ(equal(with(Mode::fixed, a), with(Mode::fixed, b)), 0u);
}

TEST_F(EqualsRecords, EveryBucketOfBothIsAskedForItsFirstRecord) {
  MORVAInst *a = with(Mode::fixed, {{"k", "v"}}, 0, 3), *b = with(Mode::fixed, {{"k", "v"}}, 0, 3);
  host.forget();
  uint32_t answer = untouched;
  ASSERT_EQ(MORVAEquals(a, b, &answer), MORVA_OK);
  EXPECT_EQ(answer, 1u);
  std::multiset<uint64_t> asked, wanted;
  for (const Event &event : host.eventsOf(Call::treeFirst)) asked.insert(event.c);
  for (MORVAInst *inst : {a, b}) {
    for (uint32_t i = 0; i <= inst->buckets->mask; i++) {
      wanted.insert(reinterpret_cast<uintptr_t>(MORVABucketAt(inst->buckets, i)));
    }
  }
  EXPECT_EQ(asked, wanted);
}

TEST_F(EqualsRecords, TheComparisonChangesNothing) {
  MORVAInst *a = with(Mode::fixed, manyRecords()), *b = with(Mode::fixed, manyRecords());
  const auto freeA = freeRecordsOf(a), freeB = freeRecordsOf(b);
  host.forget();
  EXPECT_EQ(equal(a, b), 1u);
  EXPECT_EQ(freeRecordsOf(a), freeA);
  EXPECT_EQ(freeRecordsOf(b), freeB);
  EXPECT_EQ(host.count(Call::allocate), 0u);
  EXPECT_EQ(a->NumElements(a), 100u);
}

// ---- what lies behind a short fixed key ------------------------------------------

TEST_F(EqualsRecords, FreshShortKeysAreEqualUnderAnyHost) {
  MORVAInst *a = with(Mode::fixed, {{"ab", "v"}, {"", "w"}});
  morva_test::RecordingHost otherHost(morva_test::RecordingHost::Options{.garbage = 0x5A});
  morva_test::Extension otherExt(otherHost);
  MORVAParms parms = morva_test::parmsOf(
      {.flags = flagFixedKey, .keyLength = 8, .dataLength = 4, .hashMethod = 9, .hashExp = 4});
  MORVAInst *b = otherExt->Create(otherExt.get(), &parms, nullptr, nullptr);
  ASSERT_NE(b, nullptr);
  ASSERT_EQ(addKey(b, "ab", "v"), MORVA_OK);
  ASSERT_EQ(addKey(b, "", "w"), MORVA_OK);
  EXPECT_EQ(equal(a, b), 1u);
  EXPECT_EQ(b->Destroy(b), MORVA_OK);
}

TEST_F(EqualsRecords, TheKeyAreaOfAFreshRecordIsZeroBehindTheKey) {
  MORVAInst *inst = with(Mode::fixed, {});
  // Beyond the first block, too.
  for (int i = 0; i < 60; i++) {
    const std::string key = std::to_string(i);
    ASSERT_EQ(addKey(inst, key), MORVA_OK);
    const char *area = keyAreaOf(inst, key);
    for (size_t at = 8 + key.size(); at < inst->keyLength; at++) ASSERT_EQ(area[at], 0) << i;
    // The lookup has used a fresh slot; it is not to be reused.
    inst->freeRecords = nullptr;
  }
}

TEST_F(EqualsRecords, TheSecondWordOfAFixedKeyIsZeroInFreshAndReusedRecords) {
  MORVAInst *inst = with(Mode::fixed, {{"abcdefgh", "v"}});
  EXPECT_EQ(prefixOf(walk(inst, bucketOf(inst, "abcdefgh"))[0]).capacity, 0u);
  ASSERT_EQ(removeKey(inst, "abcdefgh"), MORVA_OK);
  for (RecordNode *node : freeRecordsOf(inst)) {
    const uint32_t rubbish = 0x77777777;
    std::memcpy(static_cast<char *>(MORVARecordBase(node)) + 4, &rubbish, 4);
  }
  ASSERT_EQ(addKey(inst, "ab"), MORVA_OK);
  EXPECT_EQ(prefixOf(walk(inst, bucketOf(inst, "ab"))[0]).capacity, 0u);
}

TEST_F(EqualsRecords, StaleBytesBehindAShortKeyOfAReusedRecordMakeUnequal) {
  MORVAInst *fresh = with(Mode::fixed, {{"ab", "v"}});
  MORVAInst *reused = with(Mode::fixed, {{"abcdefgh", "v"}});
  ASSERT_EQ(removeKey(reused, "abcdefgh"), MORVA_OK);
  ASSERT_EQ(addKey(reused, "ab", "v"), MORVA_OK);
  EXPECT_EQ(std::string(keyAreaOf(reused, "ab") + 8, 8), "abcdefgh");
  EXPECT_EQ(equal(fresh, reused), 0u);
  // The same stale bytes on both sides are equal again.
  MORVAInst *reusedToo = with(Mode::fixed, {{"abcdefgh", "v"}});
  ASSERT_EQ(removeKey(reusedToo, "abcdefgh"), MORVA_OK);
  ASSERT_EQ(addKey(reusedToo, "ab", "v"), MORVA_OK);
  EXPECT_EQ(equal(reused, reusedToo), 1u);
}

TEST_F(EqualsRecords, StaleBytesMayComeFromALookupToo) {
  MORVAInst *fresh = with(Mode::fixed, {{"ab", "v"}});
  MORVAInst *searched = with(Mode::fixed, {});
  void *data = nullptr;
  ASSERT_EQ(searched->Find(searched, "abcdefgh", 8, &data), MORVA_OK);
  ASSERT_EQ(addKey(searched, "ab", "v"), MORVA_OK);
  EXPECT_EQ(equal(fresh, searched), 0u);
}

TEST_F(EqualsRecords, AReusedRecordWhoseKeyFillsTheAreaLeavesNothingStale) {
  MORVAInst *fresh = with(Mode::fixed, {{"ABCDEFGH", "v"}});
  MORVAInst *reused = with(Mode::fixed, {{"abcdefgh", "v"}});
  ASSERT_EQ(removeKey(reused, "abcdefgh"), MORVA_OK);
  ASSERT_EQ(addKey(reused, "ABCDEFGH", "v"), MORVA_OK);
  EXPECT_EQ(equal(fresh, reused), 1u);
}

TEST_F(EqualsRecords, PackedKeysLeaveNothingStale) {
  MORVAInst *fresh = with(Mode::defined, {{"ABCDEFGH", "v"}});
  MORVAInst *reused = with(Mode::defined, {{"abcdefgh", "v"}});
  ASSERT_EQ(removeKey(reused, "abcdefgh"), MORVA_OK);
  ASSERT_EQ(addKey(reused, "ABCDEFGH", "v"), MORVA_OK);
  EXPECT_EQ(equal(fresh, reused), 1u);
}
