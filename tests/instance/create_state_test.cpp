// What a new instance holds: its flags, its counters, and the parameters put
// into range.
#include <limits>

#include "instance_test.h"

namespace morva_test {
namespace {

using NewInstance = InstanceTest;

// ---- flags and mode bits ----------------------------------------------------

TEST_F(NewInstance, KeepsTheFlagsAndTheModeBitsAmongThem) {
  for (uint32_t flags = 0; flags != 0x800; ++flags) {
    const bool fixed = (flags & 0x4) != 0, variable = (flags & 0x20) != 0;
    if (variable && (fixed || (flags & 0x300) != 0)) continue;
    Shape shape;
    shape.flags = flags;
    shape.hashExp = 0;
    MORVAInst *inst = create(shape);
    ASSERT_NE(inst, nullptr) << std::hex << flags;
    uint32_t expected = flags & ~uint32_t{0x2};
    if (fixed || variable) expected |= 0x2;
    if ((flags & 0x40) != 0) expected &= ~uint32_t{0x1};
    EXPECT_EQ(inst->flags, expected) << std::hex << flags;
    EXPECT_EQ(inst->modeBits, flags & 0x64) << std::hex << flags;
    EXPECT_EQ(inst->lock != nullptr, (flags & 0x8) == 0) << std::hex << flags;
    EXPECT_EQ(inst->orderList != nullptr, (flags & 0x40) != 0) << std::hex << flags;
    EXPECT_EQ(inst->recordPacker != nullptr, !fixed && !variable) << std::hex << flags;
    destroy(inst);
  }
}

TEST_F(NewInstance, TheCallersDefinedBitIsNotTakenOver) {
  Shape shape;
  shape.flags = flagDefined;
  MORVAInst *inst = create(shape);
  ASSERT_NE(inst, nullptr);
  EXPECT_EQ(inst->flags & flagDefined, 0u);
  EXPECT_EQ(add(inst, 1), MORVA_INVALID);
  define(inst, {8}, 16);
  EXPECT_EQ(add(inst, 1), MORVA_OK);
}

TEST_F(NewInstance, BitsItDoesNotKnowChangeNothing) {
  Shape shape;
  shape.flags = flagFixedKey | 0xFFFFF800;
  MORVAInst *inst = create(shape);
  ASSERT_NE(inst, nullptr);
  EXPECT_EQ(inst->flags, 0xFFFFF800u | flagFixedKey | flagDefined);
  EXPECT_EQ(inst->modeBits, uint32_t{flagFixedKey});
  EXPECT_EQ(add(inst, 1), MORVA_OK);
}

// ---- what else a new instance holds -----------------------------------------

TEST_F(NewInstance, StartsEmptyAndRememberingItsExtension) {
  for (const Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    MORVAInst *inst = create(mode, flagOrdered);
    EXPECT_EQ(std::memcmp(inst->eyeCatcher, "nevo", 4), 0);
    EXPECT_EQ(inst->reserved4, 0u);
    EXPECT_EQ(inst->ext, ext.get());
    EXPECT_EQ(inst->dataLength, 16u);
    EXPECT_EQ(inst->inodesUsed, 8);
    EXPECT_EQ(inst->inodeBlockCapacity, 8);
    EXPECT_EQ(inst->inodeBlocks, nullptr);
    EXPECT_EQ(inst->recordBlocks, nullptr);
    EXPECT_EQ(inst->recordBlockCount, 0u);
    EXPECT_EQ(inst->totalMem, 0u);
    EXPECT_EQ(inst->sumIncrement, 0.0);
    EXPECT_EQ(inst->freeRecords, nullptr);
    EXPECT_EQ(inst->freeInodes, nullptr);
    EXPECT_EQ(inst->pinned, nullptr);
    EXPECT_EQ(inst->extraBlocksB, nullptr);
    EXPECT_EQ(inst->buckets->elementCount, 0u);
    EXPECT_EQ(inst->buckets->usedBuckets, 0u);
  }
}

TEST_F(NewInstance, RecordCountersStartAtEightOnlyWhereThePoolIsMade) {
  MORVAInst *fixed = create(Mode::fixed);
  EXPECT_EQ(fixed->recordsUsed, 8);
  EXPECT_EQ(fixed->recordBlockCapacity, 8);
  EXPECT_NE(fixed->recordPool, nullptr);
  EXPECT_EQ(fixed->varkeyPool, nullptr);

  MORVAInst *variable = create(Mode::variable);
  EXPECT_EQ(variable->recordsUsed, 0);
  EXPECT_EQ(variable->recordBlockCapacity, 0);
  EXPECT_EQ(variable->recordBlockMax, 0);
  EXPECT_EQ(variable->recordPool, nullptr);
  EXPECT_NE(variable->varkeyPool, nullptr);

  Shape open;
  open.flags = 0;
  MORVAInst *defined = create(open);
  ASSERT_NE(defined, nullptr);
  EXPECT_EQ(defined->recordsUsed, 0);
  EXPECT_EQ(defined->recordBlockCapacity, 0);
  EXPECT_EQ(defined->recordPool, nullptr);
  EXPECT_EQ(defined->definedKeyLength, 0u);
  EXPECT_EQ(defined->keyLength, 0u);
}

TEST_F(NewInstance, EveryBucketStartsEmpty) {
  MORVAInst *inst = create(Mode::fixed);
  for (uint32_t index = 0; index <= inst->buckets->mask; ++index) {
    const Bucket *bucket = MORVABucketAt(inst->buckets, index);
    EXPECT_EQ(bucket->root, nullptr);
    EXPECT_EQ(bucket->count, 0u);
  }
}

TEST_F(NewInstance, TwoInstancesShareNothingButTheExtension) {
  MORVAInst *one = create(Mode::fixed, flagOrdered);
  MORVAInst *two = create(Mode::fixed, flagOrdered);
  EXPECT_NE(one->recordPool, two->recordPool);
  EXPECT_NE(one->inodePool, two->inodePool);
  EXPECT_NE(one->tree, two->tree);
  EXPECT_NE(one->orderList, two->orderList);
  EXPECT_NE(one->lock, two->lock);
  EXPECT_EQ(add(one, 1), MORVA_OK);
  EXPECT_EQ(find(two, 1), nullptr);
}

// ---- hash method, bucket count ----------------------------------------------

TEST_F(NewInstance, HashMethodsTwoToNineAreKeptAndOthersBecomeTwo) {
  const int32_t least = std::numeric_limits<int32_t>::min();
  const int32_t most = std::numeric_limits<int32_t>::max();
  for (const int32_t method : {least, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, most}) {
    Shape shape;
    shape.hashMethod = method;
    MORVAParms parms = parmsOf(shape);
    MORVAInst *inst = adopt(ext->Create(ext.get(), &parms, nullptr, nullptr));
    ASSERT_NE(inst, nullptr);
    EXPECT_EQ(inst->hashMethod, method >= 2 && method <= 9 ? static_cast<uint32_t>(method) : 2u);
    EXPECT_EQ(parms.hashMethod, method);
  }
}

TEST_F(NewInstance, HashExpIsClampedAndWrittenBack) {
  const int32_t least = std::numeric_limits<int32_t>::min();
  const int32_t most = std::numeric_limits<int32_t>::max();
  const std::vector<std::pair<int32_t, int32_t>> cases = {
      {-1, 8}, {least, 8}, {0, 0}, {1, 1}, {8, 8}, {20, 20}, {21, 20}, {25, 20}, {most, 20}};
  for (const auto &[given, used] : cases) {
    Shape shape;
    shape.hashExp = given;
    MORVAParms parms = parmsOf(shape);
    MORVAInst *inst = adopt(ext->Create(ext.get(), &parms, nullptr, nullptr));
    ASSERT_NE(inst, nullptr);
    EXPECT_EQ(parms.hashExp, used) << given;
    const uint64_t buckets = uint64_t{1} << used;
    EXPECT_EQ(inst->buckets->mask, buckets - 1) << given;
    EXPECT_EQ(inst->HashSize(inst), buckets) << given;
    EXPECT_EQ(host.blockSize(inst->buckets), buckets * 16 + 32) << given;
    destroy(inst);
  }
}

TEST_F(NewInstance, OneBucketHoldsEveryRecord) {
  MORVAInst *inst = create(Mode::fixed, 0, 16, 0);
  addAll(inst, 1, 20);
  EXPECT_EQ(inst->BucketSize(inst, 0), 20u);
  EXPECT_EQ(inst->buckets->usedBuckets, 1u);
}

TEST_F(NewInstance, ReadsTheBlockAndChangesNothingInItButHashExp) {
  for (const uint32_t flags : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, uint32_t{0}}) {
    Shape shape;
    shape.flags = flags | flagUnordered | flagDefined;
    shape.hashMethod = 77;
    shape.hashExp = -9;
    shape.memHint = -5;
    MORVAParms parms = parmsOf(shape);
    ASSERT_NE(adopt(ext->Create(ext.get(), &parms, nullptr, nullptr)), nullptr);
    MORVAParms expected = parmsOf(shape);
    expected.hashExp = 8;
    EXPECT_EQ(std::memcmp(&parms, &expected, sizeof parms), 0);
  }
}

// ---- the record block limit -------------------------------------------------

TEST_F(NewInstance, MemHintGivesTheBlockLimitInBytes) {
  const int64_t most = std::numeric_limits<int64_t>::max();
  // Defined keys keep the bytes until the layout is known.
  const std::vector<std::pair<int64_t, int64_t>> cases = {
      {std::numeric_limits<int64_t>::min(), 2013265},
      {-1, 2013265},
      {0, 2013265},
      {1, 30},
      {2, 61},
      {3, 92},
      {7, 215},
      {1000, 30720},
      {65535, 2013235},
      {65536, 2013265},
      {65537, 2013296},
      {1000000007, 30720000215},
      {300239000000000000, 9223342080000000000},
      {300240000000000001, most},
      {most, most}};
  for (const auto &[hint, limit] : cases) {
    Shape shape;
    shape.flags = 0;
    shape.memHint = hint;
    MORVAInst *inst = create(shape);
    ASSERT_NE(inst, nullptr);
    // Above 2^53 the product has no unit to be exact to.
    EXPECT_NEAR(static_cast<double>(inst->recordBlockMax), static_cast<double>(limit),
                limit > int64_t{1} << 53 ? 4096.0 : 0.0)
        << hint;
    if (limit == most) {
      EXPECT_EQ(inst->recordBlockMax, most) << hint;
    }
  }
}

TEST_F(NewInstance, FixedKeysCountTheBlockLimitInSlots) {
  const int64_t most = std::numeric_limits<int64_t>::max();
  const std::vector<std::pair<int64_t, int64_t>> cases = {
      {0, 2013265 / 80}, {-3, 2013265 / 80}, {1000, 30720 / 80}, {2, 0}, {3, 1}, {most, most / 80}};
  for (const auto &[hint, limit] : cases) {
    Shape shape;
    shape.memHint = hint;
    MORVAInst *inst = create(shape);
    ASSERT_NE(inst, nullptr);
    EXPECT_EQ(inst->recordBlockMax, limit) << hint;
  }
}

}  // namespace
}  // namespace morva_test
