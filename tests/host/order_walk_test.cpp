// The insertion order of instances, walked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

#include <algorithm>
#include <cstring>
#include <list>
#include <random>

#include "companion_host.h"
#include "recording_host.h"

namespace host_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Keys = std::vector<uint64_t>;

uint64_t keyOf(const MORVAInst *inst, const OrderNode *node) {
  auto *record = static_cast<RecordNode *>(node->record);
  const bool raw = (inst->flags & (flagFixedKey | flagVarKey)) != 0;
  uint64_t key;
  std::memcpy(&key, static_cast<char *>(MORVARecordBase(record)) + (raw ? sizeof(KeyPrefix) : 0),
              sizeof key);
  return key;
}

Keys forwards(const MORVAInst *inst) {
  Keys keys;
  for (const OrderNode *node = QZOrderFirst(inst); node != nullptr; node = QZOrderNext(node))
    keys.push_back(keyOf(inst, node));
  return keys;
}

Keys backwards(const MORVAInst *inst) {
  Keys keys;
  for (const OrderNode *node = QZOrderLast(inst); node != nullptr; node = QZOrderPrev(node))
    keys.push_back(keyOf(inst, node));
  std::reverse(keys.begin(), keys.end());
  return keys;
}

struct Shape {
  const char *name;
  uint32_t flags;
  bool lockedTrees;
};

// Named in the list of tests.
void PrintTo(const Shape &shape, std::ostream *out) {
  *out << shape.name;
}

class Order : public testing::TestWithParam<Shape> {
 protected:
  Order() : host(GetParam().lockedTrees), inst(make()) {}

  MORVAInst *make() {
    MORVAInst *made = host.create(GetParam().flags | flagOrdered);
    if ((made->flags & (flagFixedKey | flagVarKey)) == 0) {
      const MORVAKeyDesc desc = {8, 3, 0, 0};
      EXPECT_EQ(made->DefineKey(made, &desc), MORVA_OK);
      EXPECT_EQ(made->DefineDone(made, 0, 8), MORVA_OK);
    }
    return made;
  }

  MORVAStatus add(uint64_t key) { return inst->Add(inst, &key, &key, sizeof key); }
  MORVAStatus remove(uint64_t key) { return inst->Remove(inst, &key, sizeof key); }
  void addAll(const Keys &keys) {
    for (const uint64_t key : keys) ASSERT_EQ(add(key), MORVA_OK);
  }
  // Both ways at once.
  Keys walk() const {
    EXPECT_EQ(forwards(inst), backwards(inst));
    return forwards(inst);
  }

  CompanionHost host;
  MORVAInst *inst;
};
class OrderOfDuplicates : public Order {};

const auto shapeName = [](const auto &info) { return info.param.name; };
INSTANTIATE_TEST_SUITE_P(Shapes, Order,
                         testing::Values(Shape{"Fixed", flagFixedKey, false},
                                         Shape{"Variable", flagVarKey, false},
                                         Shape{"Packed", 0, false},
                                         Shape{"FixedNoLock", flagFixedKey | flagNoLock, false},
                                         Shape{"FixedLockedTrees", flagFixedKey, true},
                                         Shape{"PackedSum", flagSum, true},
                                         Shape{"VariableLockedTrees", flagVarKey, true}),
                         shapeName);
INSTANTIATE_TEST_SUITE_P(Shapes, OrderOfDuplicates,
                         testing::Values(Shape{"Fixed", flagFixedKey | flagMultiData, false},
                                         Shape{"Packed", flagMultiData, false},
                                         Shape{"FixedSum", flagFixedKey | flagMultiData | flagSum,
                                               true}),
                         shapeName);

TEST_P(Order, OfAnEmptyInstanceHasNoEnds) {
  EXPECT_EQ(QZOrderFirst(inst), nullptr);
  EXPECT_EQ(QZOrderLast(inst), nullptr);
  addAll({1});
  ASSERT_EQ(remove(1), MORVA_OK);
  EXPECT_EQ(QZOrderFirst(inst), nullptr);
  EXPECT_EQ(QZOrderLast(inst), nullptr);
}

TEST_P(Order, OfOneRecordHasOneNodeForBothEnds) {
  addAll({9});
  OrderNode *node = QZOrderFirst(inst);
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(QZOrderLast(inst), node);
  EXPECT_EQ(QZOrderNext(node), nullptr);
  EXPECT_EQ(QZOrderPrev(node), nullptr);
  auto *record = static_cast<RecordNode *>(node->record);
  EXPECT_EQ(record->owner, inst);
  EXPECT_EQ(keyOf(inst, node), 9u);
}

TEST_P(Order, IsThatOfInsertionAndNotOfKeys) {
  addAll({5, 1, 9, 3, 7});
  EXPECT_THAT(walk(), ElementsAre(5, 1, 9, 3, 7));
}

TEST_P(Order, IsWalkedFromTheMiddleBothWays) {
  addAll({5, 1, 9, 3, 7});
  OrderNode *middle = QZOrderNext(QZOrderNext(QZOrderFirst(inst)));
  EXPECT_EQ(keyOf(inst, middle), 9u);
  EXPECT_EQ(keyOf(inst, QZOrderNext(middle)), 3u);
  EXPECT_EQ(keyOf(inst, QZOrderPrev(middle)), 1u);
  EXPECT_EQ(QZOrderPrev(QZOrderNext(middle)), middle);
  EXPECT_EQ(QZOrderNext(QZOrderPrev(middle)), middle);
}

TEST_P(Order, KeepsARefusedKeyAndAReplacedOneInPlace) {
  addAll({1, 2, 3});
  EXPECT_EQ(add(2), MORVA_PRESENT);
  EXPECT_THAT(walk(), ElementsAre(1, 2, 3));
  const uint64_t key = 1, data = 55;
  ASSERT_EQ(inst->Replace(inst, &data, &key, sizeof key), MORVA_OK);
  EXPECT_THAT(walk(), ElementsAre(1, 2, 3));
}

TEST_P(Order, GetsAKeyThatReplaceStoresAtItsEnd) {
  addAll({3, 1});
  const uint64_t key = 2, data = 55;
  ASSERT_EQ(inst->Replace(inst, &data, &key, sizeof key), MORVA_OK);
  EXPECT_THAT(walk(), ElementsAre(3, 1, 2));
}

TEST_P(Order, GetsAKeyThatComesBackAtItsEnd) {
  addAll({1, 2, 3, 4});
  ASSERT_EQ(remove(2), MORVA_OK);
  EXPECT_THAT(walk(), ElementsAre(1, 3, 4));
  ASSERT_EQ(add(2), MORVA_OK);
  EXPECT_THAT(walk(), ElementsAre(1, 3, 4, 2));
  ASSERT_EQ(remove(1), MORVA_OK);
  ASSERT_EQ(remove(2), MORVA_OK);
  EXPECT_THAT(walk(), ElementsAre(3, 4));
}

TEST_P(Order, IsNotChangedByLookups) {
  addAll({1, 2, 3});
  for (uint64_t key = 0; key < 5; ++key) {
    void *data = nullptr;
    ASSERT_EQ(inst->Find(inst, &key, sizeof key, &data), MORVA_OK);
  }
  EXPECT_EQ(remove(8), MORVA_INVALID);
  EXPECT_THAT(walk(), ElementsAre(1, 2, 3));
}

TEST_P(Order, IsEmptyAfterEitherClearAndGoodForUse) {
  for (int round = 0; round < 4; ++round) {
    for (uint64_t key = 0; key < 500; ++key) ASSERT_EQ(add(key * 3 % 500), MORVA_OK);
    ASSERT_EQ(round % 2 == 0 ? inst->Clear2(inst) : inst->Clear(inst), MORVA_OK);
    EXPECT_EQ(QZOrderFirst(inst), nullptr);
    EXPECT_EQ(QZOrderLast(inst), nullptr);
    EXPECT_EQ(inst->orderList->head, nullptr);
    // The same memory holds other records now.
    addAll({7, 3, 5});
    EXPECT_THAT(walk(), ElementsAre(7, 3, 5));
    ASSERT_EQ(remove(3), MORVA_OK);
    EXPECT_THAT(walk(), ElementsAre(7, 5));
    ASSERT_EQ(remove(7), MORVA_OK);
    ASSERT_EQ(remove(5), MORVA_OK);
    EXPECT_THAT(walk(), IsEmpty());
  }
}

TEST_P(Order, AgreesWithAListThroughRandomOperations) {
  std::list<uint64_t> model;
  std::mt19937 random(21);
  constexpr uint64_t kKeys = 3000;
  std::vector<std::list<uint64_t>::iterator> places(kKeys, model.end());
  for (int step = 0; step < 30000; ++step) {
    const uint64_t key = random() % kKeys;
    const bool known = places[key] != model.end();
    const uint32_t turn = random() % 1000;
    if (turn == 0 && step > 5000) {
      ASSERT_EQ(step % 2 == 0 ? inst->Clear(inst) : inst->Clear2(inst), MORVA_OK);
      model.clear();
      std::fill(places.begin(), places.end(), model.end());
    } else if (turn < 450) {
      ASSERT_EQ(remove(key), known ? MORVA_OK : MORVA_INVALID);
      if (known) model.erase(places[key]);
      places[key] = model.end();
    } else {
      const uint64_t data = 1;
      ASSERT_EQ(inst->Replace(inst, &data, &key, sizeof key), MORVA_OK);
      if (!known) places[key] = model.insert(model.end(), key);
    }
    if (step % 1000 == 999) {
      ASSERT_EQ(walk(), Keys(model.begin(), model.end()));
    }
  }
}

TEST_P(Order, GoesWithAnInstanceThatIsNotEmpty) {
  addAll({1, 2, 3});
  host.destroy(inst);
  EXPECT_EQ(host.stats().orderLists, 0u);
  EXPECT_EQ(host.stats().companions, 3u);
}

// ---- several records of a key ----------------------------------------------

TEST_P(OrderOfDuplicates, HoldsTheFirstRecordOfAKeyOnly) {
  addAll({4, 2, 4, 4, 2, 6, 4});
  EXPECT_THAT(walk(), ElementsAre(4, 2, 6));
  EXPECT_EQ(inst->NumElements(inst), 7u);
  ASSERT_EQ(remove(4), MORVA_OK);
  EXPECT_THAT(walk(), ElementsAre(2, 6));
  addAll({4});
  EXPECT_THAT(walk(), ElementsAre(2, 6, 4));
}

TEST_P(OrderOfDuplicates, KeepsAKeyInPlaceWhileItHasARecordLeft) {
  addAll({1, 2, 3, 2});
  uint64_t key = 2;
  const auto removeFirst = [&] {
    void *cursor = nullptr;
    EXPECT_EQ(inst->Find(inst, &key, sizeof key, &cursor), MORVA_OK);
    EXPECT_NE(cursor, nullptr);
    return inst->RemoveDup(inst, &cursor, &key, sizeof key);
  };
  const OrderNode *node = QZOrderNext(QZOrderFirst(inst));
  void *record = node->record;
  ASSERT_EQ(removeFirst(), MORVA_OK);
  EXPECT_THAT(walk(), ElementsAre(1, 2, 3));
  EXPECT_EQ(QZOrderNext(QZOrderFirst(inst)), node);
  EXPECT_EQ(node->record, record);
  ASSERT_EQ(removeFirst(), MORVA_OK);
  EXPECT_THAT(walk(), ElementsAre(1, 3));
  addAll({2});
  EXPECT_THAT(walk(), ElementsAre(1, 3, 2));
}

TEST_P(OrderOfDuplicates, IsNotChangedWhenALaterRecordGoesOrIsReplaced) {
  addAll({1, 2, 1, 1});
  const uint64_t key = 1, data = 9;
  void *first = nullptr, *second = nullptr;
  ASSERT_EQ(inst->Find(inst, &key, sizeof key, &first), MORVA_OK);
  ASSERT_EQ(inst->FindNext(inst, first, &second), MORVA_OK);
  ASSERT_NE(second, nullptr);
  ASSERT_EQ(inst->ReplaceDup(inst, second, &data), MORVA_OK);
  ASSERT_EQ(inst->RemoveDup(inst, &second, &key, sizeof key), MORVA_OK);
  EXPECT_EQ(inst->Replace(inst, &data, &key, sizeof key), MORVA_OK);
  EXPECT_THAT(walk(), ElementsAre(1, 2));
  EXPECT_EQ(inst->NumElements(inst), 3u);
}

// ---- what has no order -----------------------------------------------------

TEST(NoOrder, HaveNullArguments) {
  EXPECT_EQ(QZOrderFirst(nullptr), nullptr);
  EXPECT_EQ(QZOrderLast(nullptr), nullptr);
  EXPECT_EQ(QZOrderNext(nullptr), nullptr);
  EXPECT_EQ(QZOrderPrev(nullptr), nullptr);
}

TEST(NoOrder, HaveInstancesMadeWithoutTheOption) {
  CompanionHost host;
  for (const uint32_t flags :
       {uint32_t{flagFixedKey}, uint32_t{flagVarKey}, 0u, uint32_t{flagFixedKey | flagUnordered}}) {
    MORVAInst *inst = host.create(flags);
    const uint64_t key = 1;
    if ((flags & (flagFixedKey | flagVarKey)) != 0) {
      ASSERT_EQ(inst->Add(inst, &key, &key, sizeof key), MORVA_OK);
    }
    EXPECT_EQ(QZOrderFirst(inst), nullptr);
    EXPECT_EQ(QZOrderLast(inst), nullptr);
  }
}

TEST(NoOrder, HaveInstancesOfAnotherKindOfHost) {
  morva_test::RecordingHost host;
  morva_test::Extension ext(host);
  MORVAParms parms = {};
  parms.flags = flagFixedKey | flagOrdered;
  parms.keyLength = parms.dataLength = 8;
  MORVAInst *inst = ext->Create(ext.get(), &parms, nullptr, "elsewhere");
  ASSERT_NE(inst, nullptr);
  const uint64_t key = 1;
  ASSERT_EQ(inst->Add(inst, &key, &key, sizeof key), MORVA_OK);
  ASSERT_NE(inst->orderList, nullptr);
  ASSERT_NE(inst->orderList->head, nullptr);
  EXPECT_EQ(QZOrderFirst(inst), nullptr);
  EXPECT_EQ(QZOrderLast(inst), nullptr);
  EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
}

}  // namespace
}  // namespace host_test
