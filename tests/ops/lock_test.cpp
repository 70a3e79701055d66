// Every operation that takes the lock takes it first, in change mode, and
// gives it back last, on each of its ways out.
#include <ostream>

#include "table.h"

namespace morva_test {
namespace {

// A way out of an operation, on an instance that holds "red" (three records
// with flagMultiData) and "one", and whose newest record block may be full.
struct WayOut {
  const char *name;
  uint32_t needs;     // option or key mode bits the instance must have
  uint32_t excludes;  // and must not have
  bool withoutMemory;
  uint64_t status;
  uint64_t (*call)(Table &table);
};

void PrintTo(const WayOut &wayOut, std::ostream *out) {
  *out << wayOut.name;
}

const std::string kTooLong(21, 'k');

void *first(Table &table) {
  return table.cursors("red").at(0);
}
void *last(Table &table) {
  return table.cursors("red").back();
}

const WayOut kWaysOut[] = {
    {"AddOfANewKey", 0, 0, false, MORVA_OK, [](Table &t) -> uint64_t { return t.add("new", "x"); }},
    {"AddOfAPresentKey", 0, flagMultiData, false, MORVA_PRESENT,
     [](Table &t) -> uint64_t { return t.add("red", "x"); }},
    {"AddOfAFurtherRecord", flagMultiData, 0, false, MORVA_OK,
     [](Table &t) -> uint64_t { return t.add("red", "x"); }},
    {"AddOfAKeyTooLong", flagFixedKey, 0, false, MORVA_INVALID,
     [](Table &t) -> uint64_t { return t.add(kTooLong, "x"); }},
    {"AddWithoutMemory", 0, 0, true, MORVA_NO_MEMORY,
     [](Table &t) -> uint64_t { return t.add("new", "x"); }},
    {"ReplaceOfANewKey", 0, 0, false, MORVA_OK,
     [](Table &t) -> uint64_t { return t.replace("new", "x"); }},
    {"ReplaceOfAPresentKey", 0, 0, false, MORVA_OK,
     [](Table &t) -> uint64_t { return t.replace("red", "x"); }},
    {"ReplaceOfAKeyTooLong", flagFixedKey, 0, false, MORVA_INVALID,
     [](Table &t) -> uint64_t { return t.replace(kTooLong, "x"); }},
    {"ReplaceWithoutMemory", 0, 0, true, MORVA_NO_MEMORY,
     [](Table &t) -> uint64_t { return t.replace("red", "x"); }},
    {"FindOfAPresentKey", 0, 0, false, MORVA_OK,
     [](Table &t) -> uint64_t { return t.find("red", nullptr); }},
    {"FindOfAnAbsentKey", 0, 0, false, MORVA_OK,
     [](Table &t) -> uint64_t { return t.find("new", nullptr); }},
    {"FindOfAKeyTooLong", flagFixedKey, 0, false, MORVA_INVALID,
     [](Table &t) -> uint64_t { return t.find(kTooLong, nullptr); }},
    {"FindWithoutMemory", 0, 0, true, MORVA_NO_MEMORY,
     [](Table &t) -> uint64_t { return t.find("red", nullptr); }},
    {"GeneralFindOnAnyInstance", 0, 0, false, MORVA_OK,
     [](Table &t) -> uint64_t { return MORVAFind(t.get(), t.key("red").data(), 3, nullptr); }},
    {"HashVal", 0, 0, false, MORVA_OK,
     [](Table &t) -> uint64_t { return t.hashVal("red", nullptr); }},
    {"HashValOfAKeyTooLong", flagFixedKey, 0, false, MORVA_INVALID,
     [](Table &t) -> uint64_t { return t.hashVal(kTooLong, nullptr); }},
    {"HashValWithoutMemory", 0, 0, true, MORVA_NO_MEMORY,
     [](Table &t) -> uint64_t { return t.hashVal("red", nullptr); }},
    {"SumOfAPresentKey", flagSum, 0, false, MORVA_OK,
     [](Table &t) -> uint64_t { return t.sum("red", nullptr); }},
    {"SumOfAnAbsentKey", flagSum, 0, false, MORVA_OK,
     [](Table &t) -> uint64_t { return t.sum("new", nullptr); }},
    {"SumOfAKeyTooLong", flagSum | flagFixedKey, 0, false, MORVA_INVALID,
     [](Table &t) -> uint64_t { return t.sum(kTooLong, nullptr); }},
    {"SumWithoutMemory", flagSum, 0, true, MORVA_NO_MEMORY,
     [](Table &t) -> uint64_t { return t.sum("red", nullptr); }},
    {"SumDup", flagSum | flagMultiData, 0, false, MORVA_OK,
     [](Table &t) -> uint64_t { return t->SumDup(t.get(), nullptr, nullptr); }},
    {"SumKey", flagSum, 0, false, MORVA_OK,
     [](Table &t) -> uint64_t { return t->SumKey(t.get(), nullptr, nullptr, 0); }},
    {"RemoveOfAPresentKey", 0, 0, false, MORVA_OK,
     [](Table &t) -> uint64_t { return t.remove("red"); }},
    {"RemoveOfAnAbsentKey", 0, 0, false, MORVA_INVALID,
     [](Table &t) -> uint64_t { return t.remove("new"); }},
    {"RemoveOfAKeyTooLong", flagFixedKey, 0, false, MORVA_INVALID,
     [](Table &t) -> uint64_t { return t.remove(kTooLong); }},
    {"RemoveWithoutMemory", 0, 0, true, MORVA_NO_MEMORY,
     [](Table &t) -> uint64_t { return t.remove("red"); }},
    {"RemoveOfAPinnedKey", 0, 0, false, MORVA_PINNED,
     [](Table &t) -> uint64_t { return t.remove("pin"); }},
    {"Clear", 0, 0, false, MORVA_PINNED, [](Table &t) -> uint64_t { return t->Clear(t.get()); }},
    {"Clear2", 0, 0, false, MORVA_PINNED, [](Table &t) -> uint64_t { return t->Clear2(t.get()); }},
};

// The same for the operations that start from a record of "red".
struct CursorWayOut {
  const char *name;
  uint32_t needs;
  bool withoutMemory;
  uint64_t result;
  void *(*cursor)(Table &table);
  uint64_t (*call)(Table &table, void *data);
};

void PrintTo(const CursorWayOut &wayOut, std::ostream *out) {
  *out << wayOut.name;
}

const CursorWayOut kCursorWaysOut[] = {
    {"HasNextOfTheFirst", 0, false, 1, first,
     [](Table &t, void *data) -> uint64_t { return t->HasNext(t.get(), data); }},
    {"HasNextOfTheLast", 0, false, 0, last,
     [](Table &t, void *data) -> uint64_t { return t->HasNext(t.get(), data); }},
    {"HasPrevOfTheFirst", 0, false, 0, first,
     [](Table &t, void *data) -> uint64_t { return t->HasPrev(t.get(), data); }},
    {"HasPrevOfTheLast", 0, false, 1, last,
     [](Table &t, void *data) -> uint64_t { return t->HasPrev(t.get(), data); }},
    {"FindNextOfTheFirst", 0, false, MORVA_OK, first,
     [](Table &t, void *data) -> uint64_t { return t->FindNext(t.get(), data, nullptr); }},
    {"FindNextOfTheLast", 0, false, MORVA_OK, last,
     [](Table &t, void *data) -> uint64_t { return t->FindNext(t.get(), data, nullptr); }},
    {"FindPrevOfTheFirst", 0, false, MORVA_OK, first,
     [](Table &t, void *data) -> uint64_t { return t->FindPrev(t.get(), data, nullptr); }},
    {"FindPrevOfTheLast", 0, false, MORVA_OK, last,
     [](Table &t, void *data) -> uint64_t { return t->FindPrev(t.get(), data, nullptr); }},
    {"ReplaceDup", 0, false, MORVA_OK, last,
     [](Table &t, void *data) -> uint64_t { return t.replaceDup(data, "x"); }},
    {"SumDup", flagSum, false, MORVA_OK, last,
     [](Table &t, void *data) -> uint64_t {
       double sum;
       return t->SumDup(t.get(), data, &sum);
     }},
    {"SumKey", flagSum, false, MORVA_OK, last,
     [](Table &t, void *data) -> uint64_t {
       double sum;
       return t->SumKey(t.get(), data, &sum, 0);
     }},
    {"RemoveDupOfTheFirst", 0, false, MORVA_OK, first,
     [](Table &t, void *data) -> uint64_t { return t.removeDup(&data, "red"); }},
    {"RemoveDupOfTheLast", 0, false, MORVA_OK, last,
     [](Table &t, void *data) -> uint64_t { return t.removeDup(&data, "red"); }},
    {"RemoveDupOfAKeyTooLong", flagFixedKey, false, MORVA_INVALID, last,
     [](Table &t, void *data) -> uint64_t { return t.removeDup(&data, kTooLong); }},
    {"RemoveDupWithoutMemory", 0, true, MORVA_NO_MEMORY, last,
     [](Table &t, void *data) -> uint64_t { return t.removeDup(&data, "red"); }},
    {"RemoveDupOfTheOnlyRecord", 0, false, MORVA_OK, [](Table &t) { return t.at("one"); },
     [](Table &t, void *data) -> uint64_t { return t.removeDup(&data, "one"); }},
    {"RemoveDupOfAPinnedRecord", 0, false, MORVA_PINNED, [](Table &t) { return t.at("pin"); },
     [](Table &t, void *data) -> uint64_t { return t.removeDup(&data, "pin"); }},
    {"RemoveDupOfTheOnlyRecordWithAnotherKey", 0, false, MORVA_INVALID,
     [](Table &t) { return t.at("one"); },
     [](Table &t, void *data) -> uint64_t { return t.removeDup(&data, "new"); }},
};

class Lock : public OpsTest {
 protected:
  void populate(Table &table) {
    for (int i = 0; i < (table.shape().has(flagMultiData) ? 3 : 1); i++) table.put("red", "1");
    table.put("one", "2");
    table.pin(table.put("pin", "3"));
  }
  void exhaust(Table &table) {
    if (table.shape().keys == Keys::var) {
      table->freeRecords = nullptr;  // no block fits any more
    } else {
      table.fillRecordBlock();
    }
  }
  static LockUse expected(const Shape &shape) {
    return shape.has(flagNoLock) ? LockUse::none : LockUse::whole;
  }
};

class LockKeyed : public Lock, public testing::WithParamInterface<WayOut> {};
class LockCursor : public Lock, public testing::WithParamInterface<CursorWayOut> {};

INSTANTIATE_TEST_SUITE_P(WaysOut, LockKeyed, testing::ValuesIn(kWaysOut),
                         [](const testing::TestParamInfo<WayOut> &info) {
                           return std::string(info.param.name);
                         });
INSTANTIATE_TEST_SUITE_P(WaysOut, LockCursor, testing::ValuesIn(kCursorWaysOut),
                         [](const testing::TestParamInfo<CursorWayOut> &info) {
                           return std::string(info.param.name);
                         });

TEST_P(LockKeyed, IsAcquiredFirstAndReleasedLast) {
  const WayOut &wayOut = GetParam();
  for (const Shape &one : shapes(wayOut.needs, wayOut.excludes)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    populate(table);
    if (wayOut.withoutMemory) exhaust(table);
    if (wayOut.withoutMemory) host.failFromNth(1);
    EXPECT_EQ(lockUse(host, [&] { EXPECT_EQ(wayOut.call(table), wayOut.status); }), expected(one));
    EXPECT_EQ(host.failuresDelivered(), wayOut.withoutMemory ? 1u : 0u);
    host.failNever();
  }
}

TEST_P(LockCursor, IsAcquiredFirstAndReleasedLast) {
  const CursorWayOut &wayOut = GetParam();
  for (const Shape &one : shapes(wayOut.needs | flagMultiData)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    populate(table);
    void *const cursor = wayOut.cursor(table);
    if (wayOut.withoutMemory) exhaust(table);
    if (wayOut.withoutMemory) host.failFromNth(1);
    EXPECT_EQ(lockUse(host, [&] { EXPECT_EQ(wayOut.call(table, cursor), wayOut.result); }),
              expected(one));
    EXPECT_EQ(host.failuresDelivered(), wayOut.withoutMemory ? 1u : 0u);
    host.failNever();
  }
}

TEST_F(Lock, AccessorsTakeNone) {
  for (const Shape &one : shapes()) {
    Table table(host, ext.get(), one);
    RecordNode *node = table.put("red", "1");
    host.forget();
    MORVAInst *inst = table.get();
    EXPECT_EQ(inst->NumElements(inst), 1u);
    EXPECT_EQ(inst->HashSize(inst), 1u);
    EXPECT_EQ(inst->BucketSize(inst, 0), 1u);
    EXPECT_NE(inst->RecSize(inst), 0u);
    inst->TotalMem(inst);
    EXPECT_NE(inst->Recoff(inst, node), 0u);
    inst->SetSumInc(inst, 1.0);
    EXPECT_TRUE(host.events().empty()) << describe(one);
  }
}

TEST_F(Lock, WithoutALockEveryOperationWorks) {
  for (const Shape &one : shapes(flagNoLock)) {
    Table table(host, ext.get(), one);
    EXPECT_EQ(table->lock, nullptr) << describe(one);
    populate(table);
    EXPECT_EQ(table.find("red", nullptr), MORVA_OK);
    EXPECT_EQ(table.remove("red"), MORVA_OK);
    EXPECT_EQ(host.count(Call::acquire) + host.count(Call::release), 0u);
    EXPECT_EQ(host.locksAlive(), 0u);
  }
}

}  // namespace
}  // namespace morva_test
