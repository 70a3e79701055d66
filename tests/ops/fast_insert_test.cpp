#include <gmock/gmock.h>

#include "table.h"

namespace morva_test {
namespace {

using testing::ElementsAre;

class FastInsert : public OpsTest {};
class FastInsertEveryShape : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, FastInsertEveryShape,
                         testing::ValuesIn(sampledShapes(0, flagSum | flagMultiData)), nameOfShape);

TEST_F(FastInsert, IsInstalledExactlyWithoutSumsAndWithoutSeveralRecordsPerKey) {
  for (const Shape &one : shapes()) {
    Table table(host, ext.get(), one);
    EXPECT_EQ(table->Add == &MORVAFastAdd, one.fast()) << describe(one);
    EXPECT_EQ(table->Add == &MORVAAdd, !one.fast()) << describe(one);
    EXPECT_EQ(table->Replace == &MORVAFastReplace, one.fast()) << describe(one);
    EXPECT_EQ(table->Replace == &MORVAReplace, !one.fast()) << describe(one);
    EXPECT_EQ(table->Find == &MORVAFastFind, one.fast()) << describe(one);
    EXPECT_EQ(table->Find == &MORVAFind, !one.fast()) << describe(one);
  }
}

TEST_P(FastInsertEveryShape, AddingAKeyTwiceYieldsZeroThenOneAndKeepsTheFirstData) {
  Table table(host, ext.get(), GetParam());
  const std::string first = table.bytes("1"), second = table.bytes("2"), key = table.key("red");
  EXPECT_EQ(MORVAFastAdd(table.get(), first.data(), key.data(), 3), 0u);
  EXPECT_EQ(MORVAFastAdd(table.get(), second.data(), key.data(), 3), 1u);
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.all("red"), "1");
}

TEST_P(FastInsertEveryShape, ReplaceOfAnAbsentKeyIsAnAdd) {
  Table table(host, ext.get(), GetParam());
  const std::string data = table.bytes("1"), key = table.key("red");
  EXPECT_EQ(MORVAFastReplace(table.get(), data.data(), key.data(), 3), MORVA_OK);
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.bucket()->count, 1u);
  EXPECT_EQ(table.used(), 1u);
  EXPECT_EQ(table.all("red"), "1");
}

TEST_P(FastInsertEveryShape, ReplaceOfAPresentKeyOverwritesAndCountsNothing) {
  Table table(host, ext.get(), GetParam());
  const std::string first = table.bytes("1"), second = table.bytes("2"), key = table.key("red");
  EXPECT_EQ(MORVAFastAdd(table.get(), first.data(), key.data(), 3), MORVA_OK);
  EXPECT_EQ(MORVAFastReplace(table.get(), second.data(), key.data(), 3), MORVA_OK);
  EXPECT_EQ(table.elements(), 1u);
  EXPECT_EQ(table.bucket()->count, 1u);
  EXPECT_EQ(table.used(), 1u);
  EXPECT_EQ(table.all("red"), "2");
}

TEST_P(FastInsertEveryShape, TheFreshNodeOfAPresentKeyIsPushedOnTheFreeChain) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  for (bool replace : {false, true}) {
    const MORVAStatus status = replace ? table.replace("red", "2") : table.add("red", "2");
    EXPECT_EQ(status, replace ? MORVA_OK : MORVA_PRESENT);
    EXPECT_THAT(table.freeRecords(), ElementsAre(table.offered()));
  }
  EXPECT_EQ(table.elements(), 1u);
}

TEST_P(FastInsertEveryShape, AnOverLongFixedKeyIsRefusedAndItsNodeStaysOutOfUse) {
  const Shape shape = GetParam();
  Table table(host, ext.get(), shape);
  const std::string key(21, 'k'), data = table.bytes("1");
  table.put("red", "1");
  ASSERT_EQ(table.add("red", "2"), MORVA_PRESENT);
  ASSERT_EQ(table.freeRecords().size(), 1u);
  const bool fixed = shape.keys == Keys::fixed;
  const MORVAStatus status = MORVAFastAdd(table.get(), data.data(), key.data(), 21);
  EXPECT_EQ(status, fixed ? MORVA_INVALID : MORVA_OK);
  EXPECT_EQ(table.elements(), fixed ? 1u : 2u);
  if (!fixed) return;
  EXPECT_TRUE(table.freeRecords().empty());
  const int64_t used = table->recordsUsed;
  EXPECT_EQ(MORVAFastReplace(table.get(), data.data(), key.data(), 21), MORVA_INVALID);
  EXPECT_TRUE(table.freeRecords().empty());
  EXPECT_EQ(table->recordsUsed, used + 1);
}

TEST_F(FastInsert, AFixedKeyAsLongAsTheKeyAreaIsAccepted) {
  Table table(host, ext.get(), shape(Keys::fixed));
  const std::string key(20, 'k'), data = table.bytes("1");
  EXPECT_EQ(MORVAFastAdd(table.get(), data.data(), key.data(), 20), MORVA_OK);
  EXPECT_EQ(table.elements(), 1u);
}

TEST_F(FastInsert, TheBytesOfALongFixedKeyPastItsRoomGiveWayToTheData) {
  Table table(host, ext.get(), shape(Keys::fixed));
  const std::string key = "0123456789abcdefGHIJ";
  // The key starts 8 bytes and the data 24 bytes into the record.
  EXPECT_EQ(table.add(key, "ghij"), MORVA_OK);
  EXPECT_EQ(table.all(key), "-");
  EXPECT_EQ(table.all("0123456789abcdefghij"), "ghij");
}

TEST_F(FastInsert, BeforeTheDefinitionIsDoneBothAreRefusedWithoutTheLock) {
  MORVAParms parms = {};
  parms.flags = flagOrdered;
  MORVAInst *inst = ext->Create(ext.get(), &parms, nullptr, "open");
  ASSERT_NE(inst, nullptr);
  const std::string buffer(64, 'x');
  host.forget();
  EXPECT_EQ(MORVAFastAdd(inst, buffer.data(), buffer.data(), 3), MORVA_INVALID);
  EXPECT_EQ(MORVAFastReplace(inst, buffer.data(), buffer.data(), 3), MORVA_INVALID);
  EXPECT_TRUE(host.events().empty()) << host.story();
  inst->Destroy(inst);
}

TEST_F(FastInsert, IsRefusedWhereItWouldLoseSumsOrChains) {
  for (const Shape &one : shapes()) {
    if (one.fast()) continue;
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    const std::string data = table.bytes("2"), key = table.key("red"), other = table.key("blu");
    EXPECT_EQ(
        lockUse(
            host,
            [&] {
              EXPECT_EQ(MORVAFastAdd(table.get(), data.data(), key.data(), 3), MORVA_INVALID);
              EXPECT_EQ(MORVAFastAdd(table.get(), data.data(), other.data(), 3), MORVA_INVALID);
              EXPECT_EQ(MORVAFastReplace(table.get(), data.data(), key.data(), 3), MORVA_INVALID);
              EXPECT_EQ(MORVAFastReplace(table.get(), data.data(), other.data(), 3), MORVA_INVALID);
            }),
        LockUse::none);
    EXPECT_EQ(host.count(Call::treeInsert), 0u);
    EXPECT_EQ(table.elements(), 1u);
    EXPECT_EQ(table.all("red"), "1");
    EXPECT_EQ(table.all("blu"), "-");
  }
}

TEST_F(FastInsert, ABlockThatWouldPassHalfAGibibyteIsAskedForWithHalfTheCapacity) {
  // Of this size 16 slots pass 512 MiB, 8 do not.
  Shape made = shape(Keys::fixed);
  made.dataLength = 40u << 20;
  made.memHint = INT64_MAX;
  Table table(host, ext.get(), made);
  const uint64_t slot = table->RecSize(table.get());
  const std::string data(made.dataLength, 'x');
  host.forget();
  host.failFromNth(1);  // what is asked for matters, not 320 MiB of memory
  EXPECT_EQ(table->Add(table.get(), data.data(), "red", 3), MORVA_NO_MEMORY);
  host.failNever();
  const std::vector<Event> asked = host.eventsOf(Call::allocate);
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(asked[0].a, 8 * slot + 16);
  EXPECT_EQ(table->recordBlockCapacity, 8);
  EXPECT_EQ(table->TotalMem(table.get()), 0u);
}

}  // namespace
}  // namespace morva_test
