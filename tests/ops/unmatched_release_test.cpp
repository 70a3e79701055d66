// The places where a lock is released that the operation has not acquired, all
// of them intended, and the neighbouring exits where it is not.
#include <functional>

#include "table.h"

namespace morva_test {
namespace {

class UnmatchedRelease : public OpsTest {
 protected:
  const std::string tooLong = std::string(21, 'k');

  // The call releases the lock once, unacquired, or with flagNoLock does not touch it.
  void expectRelease(const Table &table, const std::function<void()> &call) {
    const bool locked = !table.shape().has(flagNoLock);
    EXPECT_EQ(lockUse(host, call), locked ? LockUse::releaseOnly : LockUse::none);
    if (!locked) return;
    EXPECT_EQ(host.eventsOf(Call::release)[0].text, "table");
    unmatchedReleasesExpected++;
  }
};

TEST_F(UnmatchedRelease, Find2ReleasesForAnOverLongFixedKey) {
  for (const Shape &one : shapes(flagFixedKey)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    int mark = 0;
    void *data = &mark;
    expectRelease(table, [&] { EXPECT_EQ(table.find2(tooLong, &data), MORVA_INVALID); });
    EXPECT_EQ(data, &mark);
  }
}

TEST_F(UnmatchedRelease, Find2StoresTheOwnerBeforeItMeetsTheLength) {
  Table table(host, ext.get(), shape(Keys::fixed, flagNoLock));
  std::vector<uint64_t> probe(16, 0);
  auto *record = reinterpret_cast<RecordNode *>(probe.data());
  EXPECT_EQ(table->Find2(table.get(), tooLong.data(), 21, record, nullptr), MORVA_INVALID);
  EXPECT_EQ(record->owner, table.get());
}

TEST_F(UnmatchedRelease, FindNodeReleasesForAnOverLongFixedKey) {
  for (const Shape &one : shapes(flagFixedKey)) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    auto *const mark = reinterpret_cast<RecordNode *>(&table);
    RecordNode *node = mark;
    uint32_t index = 77;
    expectRelease(table, [&] { EXPECT_EQ(table.findNode(tooLong, &node, &index), MORVA_INVALID); });
    EXPECT_EQ(node, mark);
    EXPECT_EQ(index, 77u);
  }
}

TEST_F(UnmatchedRelease, FindNodeReleasesWhenThereIsNoScratchRecord) {
  for (const Shape &one : shapes()) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    auto *const mark = reinterpret_cast<RecordNode *>(&table);
    RecordNode *node = mark;
    uint32_t index = 77;
    host.failCall(Call::allocate);
    expectRelease(table, [&] { EXPECT_EQ(table.findNode("red", &node, &index), MORVA_NO_MEMORY); });
    host.failNever();
    EXPECT_EQ(node, mark);
    EXPECT_EQ(index, 77u);
  }
}

TEST_F(UnmatchedRelease, ALockThatTheCallerHoldsIsGivenBackByTheRefusal) {
  Table table(host, ext.get(), shape(Keys::fixed));
  table->lock->acquire(table->lock, 1, 1);
  EXPECT_EQ(table.find2(tooLong, nullptr), MORVA_INVALID);
  EXPECT_EQ(host.locksHeld(), 0u);
  table->lock->acquire(table->lock, 1, 1);
  EXPECT_EQ(table.findNode(tooLong, nullptr, nullptr), MORVA_INVALID);
  EXPECT_EQ(host.locksHeld(), 0u);
}

TEST_F(UnmatchedRelease, NoOtherExitOfFind2AndFindNodeReleases) {
  for (const Shape &one : shapes()) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    std::vector<uint64_t> probe(32);
    auto *record = reinterpret_cast<RecordNode *>(probe.data());
    EXPECT_EQ(lockUse(host,
                      [&] {
                        EXPECT_EQ(table.find2("red", nullptr), MORVA_OK);
                        EXPECT_EQ(table.find2("tan", nullptr), MORVA_OK);
                        EXPECT_EQ(table.findNode("red", nullptr, nullptr), MORVA_OK);
                        EXPECT_EQ(table.findNode("tan", nullptr, nullptr), MORVA_OK);
                        MORVAFind2(nullptr, "red", 3, record, nullptr);
                        MORVAFindNode(nullptr, "red", 3, nullptr, nullptr);
                        if (!one.raw()) return;
                        table->Find2(table.get(), "red", -1, record, nullptr);
                        table->Find2(table.get(), nullptr, 3, record, nullptr);
                        table->FindNode(table.get(), "red", -1, nullptr, nullptr);
                        table->FindNode(table.get(), nullptr, 3, nullptr, nullptr);
                      }),
              LockUse::none);
  }
}

}  // namespace
}  // namespace morva_test
