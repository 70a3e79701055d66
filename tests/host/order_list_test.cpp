// The order list and its index, through the slots of the companion.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>
#include <ostream>

#include <algorithm>
#include <numeric>
#include <random>

#include "order_nodes.h"

namespace host_test {
namespace {

struct Spacing {
  const char *name;
  uint32_t slot;
  size_t perBlock;
  bool variableKeys;
};

// Named in the list of tests.
void PrintTo(const Spacing &spacing, std::ostream *out) {
  *out << spacing.name;
}

class SpacedRecords : public testing::TestWithParam<Spacing> {
 protected:
  Records records(size_t count) const {
    const Spacing &spacing = GetParam();
    return Records(count, spacing.slot, spacing.perBlock, spacing.variableKeys);
  }
  CompanionHost host;
};

INSTANTIATE_TEST_SUITE_P(
    Spacings, SpacedRecords,
    testing::Values(Spacing{"Nearest", 48, 1000, false}, Spacing{"SixtyFour", 64, 5000, false},
                    Spacing{"Eighty", 80, 16, false}, Spacing{"Large", 1040, 100, false},
                    Spacing{"VeryLarge", 9008, 7, false}, Spacing{"Variable", 64, 1, true}),
    [](const auto &info) { return info.param.name; });

TEST_P(SpacedRecords, AgreeWithAModelThroughRandomAppendsAndUnlinks) {
  constexpr size_t kRecords = 6000;
  Records all = records(kRecords);
  DrivenList list(host);
  std::mt19937 random(5);
  // Growing, staying, shrinking.
  for (const uint32_t appendsInTen : {8u, 5u, 2u}) {
    for (int step = 0; step < 15000; ++step) {
      RecordNode *record = all.at(random() % kRecords);
      if (random() % 10 >= appendsInTen) {
        ASSERT_TRUE(list.unlink(record));
      } else if (!list.holds(record)) {
        list.append(record);
      }
      if (step % 1000 == 0) {
        ASSERT_TRUE(list.agrees());
      }
    }
    ASSERT_TRUE(list.agrees());
    EXPECT_GT(list.size(), 100u);
  }
  for (size_t i = 0; i < kRecords; ++i) ASSERT_TRUE(list.unlink(all.at(i)));
  EXPECT_EQ(list->head, nullptr);
}

TEST_P(SpacedRecords, AreEachFoundByTheirOwnAddressOnly) {
  constexpr size_t kRecords = 500;
  Records all = records(kRecords);
  DrivenList list(host);
  for (size_t i = 0; i < kRecords; i += 2) list.append(all.at(i));
  for (size_t i = 0; i < kRecords; ++i) {
    // A neighbour, and addresses within a record that are nobody's.
    for (const size_t inside : {8u, 16u, 24u, 40u}) {
      auto *address = reinterpret_cast<RecordNode *>(reinterpret_cast<char *>(all.at(i)) + inside);
      ASSERT_TRUE(list.unlink(address));
    }
    if (i % 2 == 1) {
      ASSERT_TRUE(list.unlink(all.at(i)));
    }
  }
  EXPECT_EQ(list.size(), kRecords / 2);
  EXPECT_TRUE(list.agrees());
}

TEST_P(SpacedRecords, MayBeUsedAgainAfterTheHeadWordWasCleared) {
  constexpr size_t kRecords = 3000;
  Records all = records(kRecords);
  DrivenList list(host);
  std::mt19937 random(6);
  for (int round = 0; round < 6; ++round) {
    for (size_t i = 0; i < kRecords; ++i) {
      RecordNode *record = all.at(random() % kRecords);
      if (!list.holds(record)) list.append(record);
    }
    ASSERT_TRUE(list.agrees());
    list.clear();
    // Whatever comes first: a lookup, or the next record.
    if (round % 2 == 0) {
      for (size_t i = 0; i < kRecords; i += 5) ASSERT_TRUE(list.unlink(all.at(i)));
    }
  }
  EXPECT_EQ(list->head, nullptr);
}

TEST_P(SpacedRecords, MayBeUsedAgainAfterTheyWereUnlinkedOneByOne) {
  constexpr size_t kRecords = 2000;
  Records all = records(kRecords);
  DrivenList list(host);
  for (int round = 0; round < 4; ++round) {
    for (size_t i = 0; i < kRecords; ++i) list.append(all.at((i * 7 + round) % kRecords));
    ASSERT_TRUE(list.agrees());
    for (size_t i = 0; i < kRecords; ++i) ASSERT_TRUE(list.unlink(all.at((i * 11) % kRecords)));
    ASSERT_EQ(list->head, nullptr);
  }
  // The index has grown to what one round takes and no further.
  const uint64_t mapped = host.stats().bytesMapped;
  for (int round = 0; round < 20; ++round) {
    for (size_t i = 0; i < kRecords; ++i) list.append(all.at(i));
    for (size_t i = kRecords; i-- > 0;) ASSERT_TRUE(list.unlink(all.at(i)));
  }
  EXPECT_EQ(host.stats().bytesMapped, mapped);
  // Nor does it go, the records' memory being kept as well.
  ASSERT_TRUE(list.unlink(all.at(0)));
  EXPECT_EQ(host.stats().bytesMapped, mapped);
}

TEST_P(SpacedRecords, LeaveNothingInTheIndexWhenTheHeadWordWasCleared) {
  constexpr size_t kRecords = 1000;
  Records all = records(kRecords);
  DrivenList list(host);
  uint64_t peak = 0;
  for (int round = 0; round < 20; ++round) {
    for (size_t i = 0; i < kRecords; ++i) list.append(all.at(i));
    if (round == 0) peak = host.stats().bytesMappedPeak;
    list.clear();
    ASSERT_TRUE(list.unlink(all.at(0)));
    EXPECT_EQ(host.stats().bytesMapped, 0u);
  }
  EXPECT_EQ(host.stats().bytesMappedPeak, peak);
}

// ---- a few records ---------------------------------------------------------

class OrderOfRecords : public testing::TestWithParam<bool> {
 protected:
  OrderOfRecords() : host(GetParam()), all(10, 64, 10), list(host) {}
  CompanionHost host;
  Records all;
  DrivenList list;
};

INSTANTIATE_TEST_SUITE_P(Lists, OrderOfRecords, testing::Bool(), [](const auto &info) {
  return info.param ? std::string("Locked") : std::string("Plain");
});

TEST_P(OrderOfRecords, HasTheDocumentedWords) {
  EXPECT_NE(list->destroy, nullptr);
  EXPECT_EQ(list->head, nullptr);
  EXPECT_THAT(list->slot0, testing::Each(nullptr));
  EXPECT_EQ(list->slot4, nullptr);
  ASSERT_EQ(list->lock != nullptr, GetParam());
  if (list->lock != nullptr) {
    EXPECT_EQ(list->lock->acquire(list->lock, MORVA_LOCK_CHANGE, 1), 0u);
    // The holder goes on using the list.
    list.append(all.at(0));
    EXPECT_TRUE(list.unlink(all.at(0)));
    list->lock->release(list->lock);
    list.append(all.at(1));
    EXPECT_EQ(host.stats().unmatchedReleases, 0u);
    list->lock->release(list->lock);
    EXPECT_EQ(host.stats().unmatchedReleases, 1u);
  }
}

TEST_P(OrderOfRecords, KeepsItsFirstNodeInTheHeadWord) {
  OrderNode *first = list.append(all.at(3));
  EXPECT_EQ(list->head, first);
  OrderNode *second = list.append(all.at(1));
  EXPECT_EQ(list->head, first);
  EXPECT_TRUE(list.unlink(all.at(3)));
  EXPECT_EQ(list->head, second);
  EXPECT_TRUE(list.unlink(all.at(1)));
  EXPECT_EQ(list->head, nullptr);
}

TEST_P(OrderOfRecords, LosesTheFirstTheLastAndTheMiddleAlike) {
  for (size_t i = 0; i < 5; ++i) list.append(all.at(i));
  for (const size_t i : {2, 0, 4}) {
    EXPECT_TRUE(list.unlink(all.at(i)));
    EXPECT_TRUE(list.agrees());
  }
  list.append(all.at(2));
  EXPECT_TRUE(list.agrees());
  EXPECT_EQ(list.size(), 3u);
}

TEST_P(OrderOfRecords, DetachesTheNodeItAnswers) {
  for (size_t i = 0; i < 3; ++i) list.append(all.at(i));
  const OrderNode image = {nullptr, nullptr, all.at(1)};
  OrderNode *node = host.orderLists->unlink(list.get(), &image);
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->record, all.at(1));
  EXPECT_EQ(QZOrderNext(node), nullptr);
  EXPECT_EQ(QZOrderPrev(node), nullptr);
}

TEST_P(OrderOfRecords, DoesNotKnowARecordUnlinkedTwiceOrNeverAppended) {
  EXPECT_TRUE(list.unlink(all.at(0)));
  list.append(all.at(0));
  list.append(all.at(1));
  EXPECT_TRUE(list.unlink(all.at(0)));
  EXPECT_TRUE(list.unlink(all.at(0)));
  EXPECT_TRUE(list.unlink(all.at(5)));
  EXPECT_TRUE(list.unlink(nullptr));
  EXPECT_TRUE(list.agrees());
  EXPECT_EQ(list.size(), 1u);
}

TEST_P(OrderOfRecords, ForgetsNullArguments) {
  OrderListExt *companion = host.orderLists;
  OrderNode node = {nullptr, nullptr, all.at(0)};
  companion->append(nullptr, &node);
  companion->append(list.get(), nullptr);
  EXPECT_EQ(companion->unlink(nullptr, &node), nullptr);
  EXPECT_EQ(companion->unlink(list.get(), nullptr), nullptr);
  EXPECT_EQ(companion->makeOrderList(nullptr, host.trees), nullptr);
  EXPECT_EQ(list->head, nullptr);
}

TEST_P(OrderOfRecords, TakesTwoNodesOfOneRecordForTwo) {
  OrderNode nodes[3] = {
      {nullptr, nullptr, all.at(0)}, {nullptr, nullptr, all.at(1)}, {nullptr, nullptr, all.at(0)}};
  for (OrderNode &node : nodes) host.orderLists->append(list.get(), &node);
  const OrderNode image = {nullptr, nullptr, all.at(0)};
  std::vector<OrderNode *> answers;
  for (int i = 0; i < 3; ++i) answers.push_back(host.orderLists->unlink(list.get(), &image));
  EXPECT_THAT(answers, testing::UnorderedElementsAre(&nodes[0], &nodes[2], nullptr));
  EXPECT_EQ(list->head, &nodes[1]);
  EXPECT_EQ(QZOrderNext(&nodes[1]), nullptr);
}

TEST_P(OrderOfRecords, NeverLooksAtNodesFromBeforeTheHeadWordWasCleared) {
  // Nodes and records in memory that is taken away.
  const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto *gone = static_cast<OrderNode *>(memory);
  for (size_t i = 0; i < 5; ++i) {
    gone[i].record = all.at(i);
    host.orderLists->append(list.get(), &gone[i]);
  }
  list->head = nullptr;
  ASSERT_EQ(munmap(memory, size), 0);
  EXPECT_TRUE(list.unlink(all.at(1)));
  for (size_t i = 5; i-- > 0;) list.append(all.at(i));
  EXPECT_TRUE(list.agrees());
  for (size_t i = 0; i < 5; ++i) EXPECT_TRUE(list.unlink(all.at(i)));
}

TEST(OrderCompanion, DestroysListsWithNodesInsideAndLeavesTheNodesAlone) {
  CompanionHost host;
  Records all(100, 64, 100);
  std::vector<OrderNode> nodes(100);
  OrderList *list = host.orderLists->makeOrderList(host.orderLists, host.trees);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(host.stats().orderLists, 1u);
  for (size_t i = 0; i < nodes.size(); ++i) {
    nodes[i].record = all.at(i);
    host.orderLists->append(list, &nodes[i]);
  }
  EXPECT_GT(host.stats().bytesMapped, 0u);
  list->destroy(list);
  EXPECT_EQ(host.stats().orderLists, 0u);
  EXPECT_EQ(host.stats().bytesMapped, 0u);
  for (size_t i = 0; i < nodes.size(); ++i) EXPECT_EQ(nodes[i].record, all.at(i));
}

TEST(OrderCompanion, KeepsItsListsApart) {
  CompanionHost host;
  Records all(20, 64, 20);
  DrivenList one(host), two(host);
  for (size_t i = 0; i < 20; ++i) {
    one.append(all.at(i));
    two.append(all.at(19 - i));
  }
  for (size_t i = 0; i < 20; i += 2) ASSERT_TRUE(one.unlink(all.at(i)));
  EXPECT_TRUE(one.agrees());
  EXPECT_TRUE(two.agrees());
  EXPECT_EQ(two.size(), 20u);
}

TEST(OrderCompanion, ServesRecordsOfAnyWidthOneAfterTheOther) {
  CompanionHost host;
  DrivenList list(host);
  for (const uint32_t slot : {4112u, 48u, 64u, 1040u, 32u, 80u}) {
    Records all(300, slot, 50);
    for (size_t i = 0; i < 300; ++i) list.append(all.at(i));
    ASSERT_TRUE(list.agrees());
    if (slot % 64 == 0) {
      list.clear();
    } else {
      for (size_t i = 0; i < 300; ++i) ASSERT_TRUE(list.unlink(all.at(i)));
    }
  }
}

// ---- what an operation costs -----------------------------------------------

TEST(OrderListCost, UnlinkingTouchesNoNodeButTheNeighbours) {
  CompanionHost host;
  OrderList *list = host.orderLists->makeOrderList(host.orderLists, host.trees);
  ASSERT_NE(list, nullptr);
  // Three areas of nodes; the first and the last become unreadable.
  const auto area = static_cast<size_t>(sysconf(_SC_PAGESIZE)) * 4;
  void *memory =
      mmap(nullptr, 3 * area, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  char *const start = static_cast<char *>(memory);
  const size_t perArea = area / sizeof(OrderNode);
  Records all(3 * perArea + 1, 64, 512);
  std::vector<OrderNode *> nodes;
  for (size_t i = 0; i < 3 * perArea; ++i) {
    nodes.push_back(reinterpret_cast<OrderNode *>(start + i / perArea * area) + i % perArea);
    nodes[i]->record = all.at(i);
    host.orderLists->append(list, nodes[i]);
  }
  ASSERT_EQ(mprotect(start, area, PROT_NONE), 0);
  ASSERT_EQ(mprotect(start + 2 * area, area, PROT_NONE), 0);
  const auto unlink = [&](RecordNode *record) {
    const OrderNode image = {nullptr, nullptr, record};
    return host.orderLists->unlink(list, &image);
  };
  // All of the middle but its first and last node, from the inside out.
  std::vector<size_t> middle(perArea - 2);
  std::iota(middle.begin(), middle.end(), perArea + 1);
  std::shuffle(middle.begin(), middle.end(), std::mt19937(8));
  for (const size_t i : middle) ASSERT_EQ(unlink(all.at(i)), nodes[i]);
  for (const size_t i : middle) ASSERT_EQ(unlink(all.at(i)), nullptr);
  EXPECT_EQ(unlink(all.at(3 * perArea)), nullptr);
  // Appending touches the last node; finding the last to append to, no other.
  ASSERT_EQ(mprotect(start + 2 * area, area, PROT_READ | PROT_WRITE), 0);
  for (const size_t i : middle) host.orderLists->append(list, nodes[i]);
  EXPECT_EQ(unlink(all.at(3 * perArea - 1)), nodes[3 * perArea - 1]);
  ASSERT_EQ(mprotect(start, area, PROT_READ | PROT_WRITE), 0);
  size_t count = 0;
  for (const OrderNode *node = static_cast<OrderNode *>(list->head); node != nullptr;
       node = QZOrderNext(node))
    ++count;
  EXPECT_EQ(count, 3 * perArea - 1);
  list->destroy(list);
  munmap(memory, 3 * area);
}

TEST(OrderListCost, TheIndexIsSmallerThanTheNodesItFinds) {
  CompanionHost host;
  constexpr size_t kRecords = 100'000;
  for (const uint32_t slot : {48u, 64u, 80u, 208u}) {
    Records all(kRecords, slot, 8192);
    std::vector<OrderNode> nodes(kRecords);
    OrderList *list = host.orderLists->makeOrderList(host.orderLists, host.trees);
    ASSERT_NE(list, nullptr);
    for (size_t i = 0; i < kRecords; ++i) {
      nodes[i].record = all.at(i);
      host.orderLists->append(list, &nodes[i]);
    }
    EXPECT_LT(host.stats().bytesMappedPeak, kRecords * sizeof(OrderNode)) << slot;
    list->destroy(list);
    EXPECT_EQ(host.stats().bytesMapped, 0u);
  }
}

}  // namespace
}  // namespace host_test
