// The worker of removal, called by an operation that already holds the lock.
#include "ops/remove.h"
#include "table.h"

namespace morva_test {
namespace {

using morva::core::internalRemove;

class InternalRemove : public OpsTest {
 protected:
  const std::string tooLong = std::string(21, 'k');

  static MORVAStatus removeKey(Table &table, const char *text, uint32_t takeLock) {
    return internalRemove(table.get(), table.key(text).data(), 3, takeLock);
  }
  void expectUnmatchedRelease(const Shape &shape, LockUse use) {
    EXPECT_EQ(use, shape.has(flagNoLock) ? LockUse::none : LockUse::releaseOnly);
    if (!shape.has(flagNoLock)) unmatchedReleasesExpected++;
  }
};

TEST_F(InternalRemove, WithTheLockLeftToTheCallerRemovesWithoutTouchingIt) {
  for (const Shape &one : shapes()) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    table.pin(table.put("pin", "2"));
    EXPECT_EQ(lockUse(host,
                      [&] {
                        EXPECT_EQ(removeKey(table, "red", 0), MORVA_OK);
                        EXPECT_EQ(removeKey(table, "red", 0), MORVA_INVALID);
                        EXPECT_EQ(removeKey(table, "pin", 0), MORVA_PINNED);
                      }),
              LockUse::none);
    EXPECT_EQ(table.all("red"), "-");
    EXPECT_EQ(table.elements(), 1u);
  }
}

TEST_F(InternalRemove, ReleasesForAnOverLongFixedKeyWhoeverHoldsTheLock) {
  for (const Shape &one : shapes(flagFixedKey)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    expectUnmatchedRelease(one, lockUse(host, [&] {
                             EXPECT_EQ(internalRemove(table.get(), tooLong.data(), 21, 0),
                                       MORVA_INVALID);
                           }));
    EXPECT_EQ(table.freeRecords().size(), 1u) << "the scratch record is given back";
  }
}

TEST_F(InternalRemove, ReleasesWithoutAScratchRecordWhoeverHoldsTheLock) {
  for (const Shape &one : shapes()) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    host.failCall(Call::allocate);
    expectUnmatchedRelease(
        one, lockUse(host, [&] { EXPECT_EQ(removeKey(table, "red", 0), MORVA_NO_MEMORY); }));
    host.failNever();
  }
}

TEST_F(InternalRemove, GivesTheCallersLockBackOnThoseFailures) {
  Table table(host, ext.get(), shape(Keys::fixed));
  table->lock->acquire(table->lock, 1, 1);
  EXPECT_EQ(internalRemove(table.get(), tooLong.data(), 21, 0), MORVA_INVALID);
  EXPECT_EQ(host.locksHeld(), 0u);
}

TEST_F(InternalRemove, WithTakeLockBracketsEveryWayOut) {
  for (const Shape &one : shapes()) {
    SCOPED_TRACE(describe(one));
    const LockUse held = one.has(flagNoLock) ? LockUse::none : LockUse::whole;
    Table table(host, ext.get(), one);
    host.failCall(Call::allocate);
    EXPECT_EQ(lockUse(host, [&] { EXPECT_EQ(removeKey(table, "red", 1), MORVA_NO_MEMORY); }), held);
    host.failNever();
    table.put("red", "1");
    EXPECT_EQ(lockUse(host, [&] { EXPECT_EQ(removeKey(table, "red", 1), MORVA_OK); }), held);
    EXPECT_EQ(lockUse(host, [&] { EXPECT_EQ(removeKey(table, "red", 1), MORVA_INVALID); }), held);
    if (one.keys != Keys::fixed) continue;
    EXPECT_EQ(
        lockUse(
            host,
            [&] { EXPECT_EQ(internalRemove(table.get(), tooLong.data(), 21, 1), MORVA_INVALID); }),
        held);
  }
}

TEST_F(InternalRemove, RefusesNoInstanceAndAnInstanceNotDefinedWithoutTheLock) {
  MORVAParms parms = {};
  MORVAInst *inst = ext->Create(ext.get(), &parms, nullptr, "open");
  ASSERT_NE(inst, nullptr);
  host.forget();
  for (uint32_t takeLock : {0u, 1u}) {
    EXPECT_EQ(internalRemove(nullptr, "red", 3, takeLock), MORVA_INVALID);
    EXPECT_EQ(internalRemove(inst, "red", 3, takeLock), MORVA_INVALID);
  }
  EXPECT_TRUE(host.events().empty());
  inst->Destroy(inst);
}

}  // namespace
}  // namespace morva_test
