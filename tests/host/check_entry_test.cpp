// What a host is tried through: MORVAHostForCheck of the embedded host.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "companion_host.h"
#include "morva/check_host.h"

namespace host_test {
namespace {

TEST(CheckEntry, MakesHostsAsAskedAndCountsWhatIsLeft) {
  void *host = nullptr;
  const MORVAHostRequest request{.memoryLimit = 1 << 20, .lockedTrees = 1, .reserved = 0};
  HostServices *services = MORVAHostForCheck.create(&request, &host);
  ASSERT_NE(services, nullptr);
  QZHostStats stats{};
  QZHostGetStats(static_cast<QZHost *>(host), &stats);
  EXPECT_EQ(stats.memoryLimit, request.memoryLimit);
  const LockOptions options{0, 1, {}};
  services->createLock(services, &options, nullptr, "left");
  EXPECT_EQ(MORVAHostForCheck.destroy(host), 1u);
}

TEST(CheckEntry, WalksTheOrderOfAList) {
  CompanionHost host;
  OrderList *list = host.orderLists->makeOrderList(host.orderLists, host.trees);
  RecordNode records[2] = {};
  OrderNode nodes[2] = {};
  EXPECT_EQ(MORVAHostForCheck.orderFirst(list), nullptr);
  for (int i = 0; i < 2; ++i) {
    nodes[i].record = &records[i];
    host.orderLists->append(list, &nodes[i]);
  }
  EXPECT_EQ(MORVAHostForCheck.orderFirst(list), &nodes[0]);
  EXPECT_EQ(MORVAHostForCheck.orderNext(&nodes[0]), &nodes[1]);
  EXPECT_EQ(MORVAHostForCheck.orderNext(&nodes[1]), nullptr);
  list->destroy(list);
}

// Equal for one number whatever lay in the room, and different for two.
TEST(CheckEntry, MakesKeysThatArePackedAlikeWhereverTheyLie) {
  CompanionHost host;
  for (uint64_t kind = 0; kind < MORVAHostForCheck.keyCount; ++kind) {
    const MORVAHostKey &key = MORVAHostForCheck.keys[kind];
    MORVAParms parms = {};
    parms.hashExp = 4;
    MORVAInst *inst = host.ext()->Create(host.ext(), &parms, nullptr, "table");
    ASSERT_NE(inst, nullptr);
    EXPECT_EQ(inst->DefineKey(inst, key.refused), MORVA_INVALID);
    inst->Destroy(inst);
    inst = host.ext()->Create(host.ext(), &parms, nullptr, "table");
    for (uint32_t i = 0; i < key.fieldCount; ++i)
      ASSERT_EQ(inst->DefineKey(inst, &key.fields[i]), MORVA_OK);
    ASSERT_EQ(inst->DefineDone(inst, 0, 8), MORVA_OK);
    for (uint64_t number = 0; number < 200; ++number) {
      for (const char garbage : {'\x55', '\x22'}) {
        alignas(16) char room[64];
        ASSERT_LE(key.roomSize, sizeof room);
        memset(room, garbage, sizeof room);
        const MORVAStatus status = inst->Add(inst, &number, key.make(number, room), 0);
        EXPECT_EQ(status, garbage == '\x55' ? MORVA_OK : MORVA_PRESENT) << number;
      }
    }
    EXPECT_EQ(inst->NumElements(inst), 200u);
    inst->Destroy(inst);
  }
}

}  // namespace
}  // namespace host_test
