// The operation around the hash: refusals, scratch records, the lock.
#include <gtest/gtest.h>

#include <climits>

#include "keys_test.h"
#include "morva/operations.h"

using morva_test::Call;
using morva_test::Event;
using morva_test::freeRecordsOf;
using morva_test::Mode;
using morva_test::prefixOf;
using morva_test::Shape;
using morva_test::slotOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// 8-byte keys: 20 bytes are accepted, the data lies at 24, a slot has 80.
constexpr int32_t longestFixed = 20;
constexpr uint64_t slotSize = 80;

class HashVal : public keys_test::KeysTest {
 protected:
  MORVAStatus hashVal(MORVAInst *inst, const std::string &key) {
    bucket = untouched;
    return MORVAHashVal(inst, bytesOf(key), lengthOf(key), &bucket);
  }

  void expectLockedOnce() {
    EXPECT_EQ(host.locksHeld(), 0u);
    const auto acquired = host.eventsOf(Call::acquire);
    ASSERT_THAT(acquired, SizeIs(1));
    EXPECT_EQ(acquired[0].a, 1u);
    EXPECT_EQ(acquired[0].b, 1u);
    EXPECT_EQ(host.count(Call::release), 1u);
    EXPECT_EQ(host.events().front().call, Call::acquire);
    EXPECT_EQ(host.events().back().call, Call::release);
  }

  uint32_t bucket = untouched;
};

class HashValInMode : public HashVal, public testing::WithParamInterface<Mode> {};

INSTANTIATE_TEST_SUITE_P(Modes, HashValInMode,
                         testing::Values(Mode::fixed, Mode::variable, Mode::defined),
                         [](const auto &info) { return std::string(nameOf(info.param)); });

}  // namespace

// ---- refusals -----------------------------------------------------------------

TEST_F(HashVal, OfANullInstanceIsRefused) {
  EXPECT_EQ(MORVAHashVal(nullptr, "12345678", 8, &bucket), MORVA_INVALID);
  EXPECT_EQ(bucket, untouched);
}

TEST_F(HashVal, OfAnInstanceWithoutALayoutIsRefusedWithoutTheLock) {
  Shape shape;
  shape.flags = 0;
  MORVAInst *inst = create(shape);
  host.forget();
  EXPECT_EQ(hashVal(inst, "12345678"), MORVA_INVALID);
  EXPECT_EQ(bucket, untouched);
  EXPECT_THAT(host.events(), IsEmpty());
  define(inst, {8}, 4);
  EXPECT_EQ(hashVal(inst, "12345678"), MORVA_OK);
}

TEST_F(HashVal, OfAFixedKeyAsLongAsTheKeyLengthIsAcceptedAndOneByteMoreRefused) {
  MORVAInst *inst = create(Mode::fixed);
  ASSERT_EQ(inst->keyLength, static_cast<uint32_t>(longestFixed));
  EXPECT_EQ(hashVal(inst, std::string(longestFixed, 'k')), MORVA_OK);
  EXPECT_NE(bucket, untouched);
  host.forget();
  EXPECT_EQ(hashVal(inst, std::string(longestFixed + 1, 'k')), MORVA_INVALID);
  EXPECT_EQ(bucket, untouched);
  expectLockedOnce();
}

TEST_F(HashVal, ComparesTheLengthOfAFixedKeyWithTheKeyLengthAsSignedNumbers) {
  MORVAInst *inst = create(Mode::fixed);
  ASSERT_EQ(hashVal(inst, "12345678"), MORVA_OK);
  const uint32_t kept = inst->keyLength;
  // No instance of this size is made here: its smallest block would have 16 GiB.
  inst->keyLength = 0x80000000;
  EXPECT_EQ(hashVal(inst, "12345678"), MORVA_INVALID);
  EXPECT_EQ(bucket, untouched);
  // A new slot, whose key area is cleared, must come while its length is true.
  inst->keyLength = kept;
  ASSERT_EQ(hashVal(inst, "12345678"), MORVA_OK);
  inst->keyLength = 0x7FFFFFFF;
  EXPECT_EQ(hashVal(inst, "12345678"), MORVA_OK);
  inst->keyLength = kept;
}

TEST_F(HashVal, OfATooLongFixedKeyLosesItsScratchRecord) {
  MORVAInst *inst = create(Mode::fixed);
  ASSERT_EQ(hashVal(inst, "12345678"), MORVA_OK);
  const auto before = freeRecordsOf(inst);
  ASSERT_THAT(before, SizeIs(1));
  ASSERT_EQ(hashVal(inst, std::string(longestFixed + 1, 'k')), MORVA_INVALID);
  EXPECT_THAT(freeRecordsOf(inst), IsEmpty());
  EXPECT_EQ(inst->recordsUsed, 1);
  // The next one has to take another slot.
  ASSERT_EQ(hashVal(inst, "12345678"), MORVA_OK);
  EXPECT_EQ(inst->recordsUsed, 2);
  ASSERT_THAT(freeRecordsOf(inst), SizeIs(1));
  EXPECT_NE(freeRecordsOf(inst)[0], before[0]);
}

TEST_F(HashVal, OfATooLongFixedKeyLosesAFreshSlotToo) {
  MORVAInst *inst = create(Mode::fixed);
  for (int64_t lost = 1; lost <= 20; lost++) {
    ASSERT_EQ(hashVal(inst, std::string(longestFixed + 1, 'k')), MORVA_INVALID);
    ASSERT_THAT(freeRecordsOf(inst), IsEmpty());
  }
  // 16 slots of the first block, 4 of the second.
  EXPECT_EQ(inst->recordBlockCount, 2u);
  EXPECT_EQ(inst->recordsUsed, 4);
}

TEST_F(HashVal, OfATooLongFixedKeyTakesOnlyTheHeadOfTheFreeRecords) {
  MORVAInst *inst = create(Mode::fixed);
  addAll(inst, 1, 3);
  for (uint64_t key = 1; key <= 3; key++) ASSERT_EQ(remove(inst, key), MORVA_OK);
  auto wanted = freeRecordsOf(inst);
  ASSERT_GE(wanted.size(), 3u);
  ASSERT_EQ(hashVal(inst, std::string(longestFixed + 1, 'k')), MORVA_INVALID);
  wanted.erase(wanted.begin());
  EXPECT_EQ(freeRecordsOf(inst), wanted);
}

TEST_F(HashVal, OfANegativeLengthIsRefusedBeforeTheLockAndBeforeARecordIsTaken) {
  for (Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = create(mode);
    ASSERT_EQ(hashVal(inst, "12345678"), MORVA_OK);
    const auto before = freeRecordsOf(inst);
    host.forget();
    for (int32_t length : {-1, -8, INT_MIN}) {
      bucket = untouched;
      EXPECT_EQ(MORVAHashVal(inst, "12345678", length, &bucket), MORVA_INVALID) << length;
      EXPECT_EQ(bucket, untouched);
    }
    EXPECT_THAT(host.events(), IsEmpty());
    EXPECT_EQ(freeRecordsOf(inst), before);
  }
}

TEST_F(HashVal, OfANullKeyIsRefusedUnlessItIsEmpty) {
  for (Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = create(mode);
    host.forget();
    bucket = untouched;
    EXPECT_EQ(MORVAHashVal(inst, nullptr, 1, &bucket), MORVA_INVALID);
    EXPECT_EQ(bucket, untouched);
    EXPECT_THAT(host.events(), IsEmpty());
    EXPECT_THAT(freeRecordsOf(inst), IsEmpty());
    EXPECT_EQ(MORVAHashVal(inst, nullptr, 0, &bucket), MORVA_OK);
    EXPECT_EQ(bucket, 0u);
  }
}

TEST_F(HashVal, OfAVariableKeyWhoseRecordWouldNotFitIsRefusedBeforeARecordIsTaken) {
  MORVAInst *inst = create(Mode::variable, 0, 0x80000000);
  ASSERT_NE(inst, nullptr);
  host.forget();
  bucket = untouched;
  EXPECT_EQ(MORVAHashVal(inst, "short", INT_MAX, &bucket), MORVA_INVALID);
  EXPECT_EQ(bucket, untouched);
  EXPECT_EQ(host.count(Call::allocate), 0u);
  EXPECT_THAT(freeRecordsOf(inst), IsEmpty());
}

TEST_P(HashValInMode, WithoutMemoryForAScratchRecordAnswersSoAndReleasesTheLock) {
  MORVAInst *inst = create(GetParam());
  host.forget();
  host.failCall(Call::allocate);
  EXPECT_EQ(hashVal(inst, "12345678"), MORVA_NO_MEMORY);
  EXPECT_EQ(host.failuresDelivered(), 1u);
  EXPECT_EQ(bucket, untouched);
  expectLockedOnce();
  EXPECT_EQ(inst->recordBlockCount, 0u);
  EXPECT_EQ(inst->totalMem, 0u);
  EXPECT_THAT(freeRecordsOf(inst), IsEmpty());
  host.failNever();
  EXPECT_EQ(hashVal(inst, "12345678"), MORVA_OK);
}

// ---- scratch records --------------------------------------------------------------

TEST_P(HashValInMode, CyclesOneScratchRecordThroughTheFreeRecords) {
  MORVAInst *inst = create(GetParam());
  ASSERT_EQ(hashVal(inst, "12345678"), MORVA_OK);
  const auto first = freeRecordsOf(inst);
  ASSERT_THAT(first, SizeIs(1));
  EXPECT_EQ(first[0]->owner, nullptr);
  host.forget();
  for (int i = 0; i < 50; i++) {
    ASSERT_EQ(hashVal(inst, std::to_string(10000000 + i)), MORVA_OK);
    ASSERT_EQ(freeRecordsOf(inst), first);
  }
  EXPECT_EQ(host.count(Call::allocate), 0u);
}

TEST_P(HashValInMode, WithoutAPlaceForTheBucketStillCyclesAScratchRecord) {
  MORVAInst *inst = create(GetParam());
  EXPECT_EQ(inst->HashVal(inst, "12345678", 8, nullptr), MORVA_OK);
  EXPECT_THAT(freeRecordsOf(inst), SizeIs(1));
  EXPECT_EQ(inst->HashVal(inst, "87654321", 8, nullptr), MORVA_OK);
  EXPECT_THAT(freeRecordsOf(inst), SizeIs(1));
  EXPECT_EQ(host.locksHeld(), 0u);
}

TEST_P(HashValInMode, TakesTheHeadOfTheFreeRecordsAndPutsItBackThere) {
  MORVAInst *inst = create(GetParam());
  addAll(inst, 1, 4);
  for (uint64_t key = 1; key <= 4; key++) ASSERT_EQ(remove(inst, key), MORVA_OK);
  const auto before = freeRecordsOf(inst);
  ASSERT_GE(before.size(), 4u);
  ASSERT_EQ(hashVal(inst, "probe..."), MORVA_OK);
  EXPECT_EQ(freeRecordsOf(inst), before);
  // The image was built in the head.
  const char *base = static_cast<const char *>(MORVARecordBase(before[0]));
  EXPECT_EQ(std::string(base + (GetParam() == Mode::defined ? 0 : 8), 8), "probe...");
}

TEST_P(HashValInMode, LeavesTheTableAlone) {
  MORVAInst *inst = create(GetParam());
  addAll(inst, 1, 5);
  host.forget();
  const BucketArray header = *inst->buckets;
  for (uint64_t key = 1; key <= 9; key++) {
    ASSERT_EQ(MORVAHashVal(inst, &key, 8, &bucket), MORVA_OK);
  }
  EXPECT_EQ(std::memcmp(&header, inst->buckets, sizeof header), 0);
  for (Call call :
       {Call::treeFind, Call::treeInsert, Call::treeRemove, Call::treeFirst, Call::treeNext}) {
    EXPECT_EQ(host.count(call), 0u);
  }
  for (uint64_t key = 1; key <= 9; key++) EXPECT_EQ(find(inst, key) != nullptr, key <= 5) << key;
}

TEST_F(HashVal, CarvesItsScratchRecordFromANewBlockWhenTheNewestIsFull) {
  MORVAInst *inst = create(Mode::fixed);
  addAll(inst, 1, 16);
  ASSERT_EQ(inst->recordBlockCount, 1u);
  ASSERT_EQ(inst->recordsUsed, inst->recordBlockCapacity);
  host.forget();
  ASSERT_EQ(hashVal(inst, "12345678"), MORVA_OK);
  EXPECT_EQ(inst->recordBlockCount, 2u);
  EXPECT_EQ(inst->recordsUsed, 1);
  EXPECT_EQ(inst->recordBlockCapacity, 32);
  EXPECT_EQ(inst->totalMem, 16 * slotSize + 16 + 32 * slotSize + 16);
  EXPECT_THAT(freeRecordsOf(inst), ElementsAre(slotOf(inst->recordBlocks, slotSize, 0)));
  const auto taken = host.eventsOf(Call::allocate);
  ASSERT_THAT(taken, SizeIs(1));
  EXPECT_EQ(taken[0].text, "records");
  EXPECT_EQ(taken[0].a, 32 * slotSize + 16);
  EXPECT_EQ(taken[0].b, 0u);
}

TEST_F(HashVal, OfVariableKeysReusesAScratchRecordThatFits) {
  MORVAInst *inst = create(Mode::variable);
  ASSERT_EQ(hashVal(inst, std::string(10, 'k')), MORVA_OK);
  const auto ten = freeRecordsOf(inst);
  ASSERT_THAT(ten, SizeIs(1));
  EXPECT_EQ(prefixOf(ten[0]).capacity, 10u);
  host.forget();
  for (size_t n : {10, 0, 9, 4}) {
    ASSERT_EQ(hashVal(inst, std::string(n, 'k')), MORVA_OK);
    EXPECT_EQ(freeRecordsOf(inst), ten);
    EXPECT_EQ(prefixOf(ten[0]).length, n);
    EXPECT_EQ(prefixOf(ten[0]).capacity, 10u) << "the room of a node does not shrink";
  }
  EXPECT_EQ(host.count(Call::allocate), 0u);
  ASSERT_EQ(hashVal(inst, std::string(11, 'k')), MORVA_OK);
  EXPECT_EQ(host.count(Call::allocate), 1u);
  const auto both = freeRecordsOf(inst);
  ASSERT_THAT(both, SizeIs(2));
  EXPECT_EQ(both[1], ten[0]);
  EXPECT_EQ(prefixOf(both[0]).capacity, 11u);
}

TEST_F(HashVal, ScratchRecordsOfVariableKeysServeLaterAdds) {
  MORVAInst *inst = create(Mode::variable);
  ASSERT_EQ(hashVal(inst, "12345678"), MORVA_OK);
  RecordNode *const scratch = inst->freeRecords;
  host.forget();
  ASSERT_EQ(addKey(inst, "abc"), MORVA_OK);
  EXPECT_EQ(host.count(Call::allocate), 0u);
  EXPECT_THAT(freeRecordsOf(inst), IsEmpty());
  EXPECT_THAT(walk(inst, bucketOf(inst, "abc")), ElementsAre(scratch));
}

// ---- the key image ------------------------------------------------------------------

TEST_F(HashVal, OfAFixedKeyBuildsTheImageOfLengthZeroWordAndBytes) {
  MORVAInst *inst = create(Mode::fixed);
  for (const std::string key : {"12345678", "abc", ""}) {
    ASSERT_EQ(hashVal(inst, key), MORVA_OK);
    EXPECT_EQ(prefixOf(inst->freeRecords).length, key.size());
    EXPECT_EQ(prefixOf(inst->freeRecords).capacity, 0u);
    EXPECT_EQ(prefixedKey(inst->freeRecords), key);
  }
}

TEST_F(HashVal, OfADefinedKeyHasThePackerWriteTheImage) {
  MORVAInst *inst = create(Mode::defined);
  ASSERT_EQ(hashVal(inst, "12345678"), MORVA_OK);
  host.forget();
  const std::string row = "abcdefgh";
  ASSERT_EQ(hashVal(inst, row), MORVA_OK);
  const auto packed = host.eventsOf(Call::pack);
  ASSERT_THAT(packed, SizeIs(1));
  EXPECT_EQ(packed[0].a, reinterpret_cast<uintptr_t>(row.data()));
  EXPECT_EQ(packed[0].b, reinterpret_cast<uintptr_t>(MORVARecordBase(inst->freeRecords)));
  EXPECT_EQ(packed[0].c, 1u);
}

TEST_F(HashVal, OfRawKeysNeedsNoPacker) {
  for (Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = create(mode);
    ASSERT_EQ(hashVal(inst, "12345678"), MORVA_OK);
    EXPECT_EQ(host.count(Call::pack), 0u);
  }
}

// ---- the lock --------------------------------------------------------------------------

TEST_P(HashValInMode, HoldsTheLockFromTheRecordToTheAnswer) {
  MORVAInst *inst = create(GetParam());
  host.forget();
  int inside = 0;
  host.onEvent = [&](const Event &event) {
    if (event.call != Call::allocate && event.call != Call::pack) return;
    EXPECT_EQ(host.locksHeld(), 1u);
    inside++;
  };
  ASSERT_EQ(hashVal(inst, "12345678"), MORVA_OK);
  host.onEvent = nullptr;
  EXPECT_GE(inside, 1);
  expectLockedOnce();
}

TEST_P(HashValInMode, StoresTheBucketWhileItHoldsTheLock) {
  MORVAInst *inst = create(GetParam());
  uint32_t atRelease = untouched;
  host.onEvent = [&](const Event &event) {
    if (event.call == Call::release) atRelease = bucket;
  };
  ASSERT_EQ(hashVal(inst, "12345678"), MORVA_OK);
  host.onEvent = nullptr;
  EXPECT_EQ(atRelease, bucket);
}

TEST_P(HashValInMode, TakesNoLockWhereThereIsNone) {
  MORVAInst *inst = create(GetParam(), flagNoLock);
  ASSERT_EQ(inst->lock, nullptr);
  host.forget();
  EXPECT_EQ(hashVal(inst, "12345678"), MORVA_OK);
  if (GetParam() == Mode::fixed) {
    EXPECT_EQ(hashVal(inst, std::string(longestFixed + 1, 'k')), MORVA_INVALID);
  }
  MORVAInst *other = create(GetParam(), flagNoLock);
  host.failCall(Call::allocate);
  EXPECT_EQ(hashVal(other, "12345678"), MORVA_NO_MEMORY);
  EXPECT_EQ(host.failuresDelivered(), 1u);
  EXPECT_EQ(host.count(Call::acquire), 0u);
  EXPECT_EQ(host.count(Call::release), 0u);
}

TEST_P(HashValInMode, IsTheOperationOfTheTable) {
  MORVAInst *inst = create(GetParam());
  uint32_t byName = untouched, byTable = untouched;
  ASSERT_EQ(MORVAHashVal(inst, "12345678", 8, &byName), MORVA_OK);
  ASSERT_EQ(inst->HashVal(inst, "12345678", 8, &byTable), MORVA_OK);
  EXPECT_EQ(byName, byTable);
  EXPECT_EQ(inst->HashVal, &MORVAHashVal);
}
