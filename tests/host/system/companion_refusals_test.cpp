// What packers and order lists do at their limits.
#include <gtest/gtest.h>

#include <cstring>

#include "host_state.h"
#include "morva/many.h"
#include "packer_fields.h"
#include "system.h"

namespace host_test {
namespace {

// ---- the record packer -----------------------------------------------------------

class Packers : public ::testing::Test {
 protected:
  Packers() : table(host.packers->makePacker(host.packers, 0)) {}
  ~Packers() override { table->destroy(table); }

  // Texts, each of which is a step of its own.
  uint32_t define(uint32_t length, uint64_t keyOffset, uint32_t type = 2, uint32_t rowOffset = 0) {
    const PackerField field = packerField({type, length, rowOffset}, keyOffset);
    return table->defineField(table, &field);
  }

  qzhost::Packer *packer() { return reinterpret_cast<qzhost::Packer *>(table); }

  CompanionHost host;
  RecordPacker *table;
};

TEST_F(Packers, RefuseAFieldThereIsNoMemoryFor) {
  {
    const Instead refused(theSystem.hasMemory, never);
    EXPECT_NE(define(4, 0), 0u);
  }
  for (uint32_t i = 0; i < 8; ++i) ASSERT_EQ(define(4, i * 4), 0u);
  {
    const Instead refused(theSystem.hasMemory, never);
    EXPECT_NE(define(4, 32), 0u);
  }
  EXPECT_EQ(define(4, 32), 0u);
  char key[36], row[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EQ(table->pack(table, row, key, 1), 0u);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(memcmp(key + i * 4, row, 4), 0);
}

TEST_F(Packers, RefuseMoreFieldsThanCanBeCounted) {
  packer()->stepCount = packer()->stepCapacity = 1u << 31;
  EXPECT_NE(define(4, 0), 0u);
  packer()->stepCount = packer()->stepCapacity = 0;
  EXPECT_EQ(define(4, 0), 0u);
}

TEST_F(Packers, RefuseAKeyThatEndsBeyondTheAddressSpace) {
  packer()->keyLength = UINT64_MAX - 3;
  EXPECT_NE(define(4, UINT64_MAX - 3), 0u);
  EXPECT_EQ(define(3, UINT64_MAX - 3), 0u);
}

TEST_F(Packers, TakeNeighboursApartThatAreTooLongForOneStep) {
  constexpr uint32_t kHalf = 1u << 31;
  constexpr uint32_t kBytes = 4;
  EXPECT_EQ(define(kHalf, 0, kBytes, 0), 0u);
  EXPECT_EQ(define(kHalf - 1, kHalf, kBytes, kHalf), 0u);
  EXPECT_EQ(packer()->stepCount, 1u);
  EXPECT_EQ(define(1, UINT32_MAX, kBytes, UINT32_MAX), 0u);
  EXPECT_EQ(packer()->stepCount, 2u);
}

// ---- the order list --------------------------------------------------------------

class OrderLists : public ::testing::Test {
 protected:
  OrderLists() : list(host.orderLists->makeOrderList(host.orderLists, host.trees)) {}
  ~OrderLists() override { list->destroy(list); }

  // Appends nodes of `records` and takes them out by their records again.
  template <size_t n>
  void expectGoodOrder(RecordNode (&records)[n]) {
    OrderNode nodes[n] = {};
    for (size_t i = 0; i < n; ++i) {
      nodes[i].record = &records[i];
      host.orderLists->append(list, &nodes[i]);
    }
    EXPECT_EQ(list->head, &nodes[0]);
    for (size_t i = 0; i < n; ++i) {
      const OrderNode image{.link0 = nullptr, .link1 = nullptr, .record = &records[i]};
      EXPECT_EQ(host.orderLists->unlink(list, &image), &nodes[i]);
    }
    EXPECT_EQ(list->head, nullptr);
  }

  CompanionHost host;
  OrderList *list;
};

TEST_F(OrderLists, KeepRecordsThatNobodyOwns) {
  RecordNode records[5] = {};
  expectGoodOrder(records);
}

TEST_F(OrderLists, KeepRecordsWhoseOwnerIsNoInstance) {
  MORVAInst other = {};
  memcpy(other.eyeCatcher, "oven", sizeof other.eyeCatcher);
  RecordNode records[5] = {};
  for (RecordNode &record : records) record.owner = &other;
  expectGoodOrder(records);
}

TEST_F(OrderLists, KeepANodeWithoutARecord) {
  OrderNode node = {};
  host.orderLists->append(list, &node);
  const OrderNode image = {};
  EXPECT_EQ(host.orderLists->unlink(list, &image), &node);
}

TEST_F(OrderLists, AreNotWalkedForAnInstanceWithoutACompanion) {
  MORVAInst inst = {};
  OrderNode node = {};
  host.orderLists->append(list, &node);
  inst.orderList = list;
  EXPECT_EQ(QZOrderFirst(&inst), nullptr);
  EXPECT_EQ(QZOrderLast(&inst), nullptr);
  inst.aiExt = host.orderLists;
  EXPECT_EQ(QZOrderFirst(&inst), &node);
  EXPECT_EQ(QZOrderLast(&inst), &node);
  host.orderLists->unlink(list, &node);
}

// ---- many keys ---------------------------------------------------------------------

TEST(ManyKeys, MayHoldTheEmptyOneWithoutBytes) {
  CompanionHost host;
  MORVAInst *inst = host.create(flagVarKey);
  const uint64_t data = 7;
  ASSERT_EQ(inst->Add(inst, &data, nullptr, 0), MORVA_OK);
  const QZKey keys[] = {{nullptr, 0, 0}, {nullptr, 1, 0}};
  void *found[2] = {};
  MORVAStatus statuses[2];
  EXPECT_EQ(QZFindMany(inst, keys, 2, found, statuses), 1u);
  ASSERT_NE(found[0], nullptr);
  EXPECT_EQ(memcmp(found[0], &data, sizeof data), 0);
  EXPECT_EQ(statuses[0], MORVA_OK);
  EXPECT_EQ(statuses[1], MORVA_INVALID);
}

}  // namespace
}  // namespace host_test
