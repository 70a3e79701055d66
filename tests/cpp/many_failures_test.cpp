// Operations on many keys at a time that fail in the middle.
#include <algorithm>
#include <memory>
#include <span>

#include "recording_tables.h"

namespace cpp_test {
namespace {

using morva::duplicates;
using morva::locked;
using morva::ordered;
using morva::sums;

// ---- A host whose memory is limited ---------------------------------------------

template <class Table>
class ManyKeysWithoutMemory : public RecordingTables {
 protected:
  static auto keysFrom(int first, int count) {
    std::vector<decltype(keyOf<Table>(0))> keys;
    for (int n = first; n < first + count; ++n) keys.push_back(keyOf<Table>(n));
    return keys;
  }
};
using Tables =
    ::testing::Types<morva::table<std::uint32_t, int>,
                     morva::table<std::uint32_t, int, ordered, duplicates, sums, locked>,
                     morva::table<std::string_view, int, ordered>, morva::table<RowKey, int, sums>>;
TYPED_TEST_SUITE(ManyKeysWithoutMemory, Tables);

TYPED_TEST(ManyKeysWithoutMemory, AreStoredUpToTheOneThatHasNoRoom) {
  this->library.reset();  // the linked library serves one host
  const auto library = morva::extension::linked({.memory_limit = 150'000}).value();
  auto table = got(TypeParam::make(library, {.expected = 256}));
  constexpr int kBatch = 300;
  std::vector<int> data(kBatch);
  int stored = 0;
  for (int first = 0;; first += kBatch) {
    ASSERT_LT(first, 100'000);
    const auto keys = this->keysFrom(first, kBatch);
    for (int i = 0; i < kBatch; ++i) data[static_cast<std::size_t>(i)] = first + i;
    const auto flags = std::make_unique<bool[]>(kBatch);
    const auto answer = table.insert_many(keys, data, {flags.get(), kBatch});
    const auto there = std::make_unique<bool[]>(kBatch);
    const std::size_t found = table.contains_many(keys, {there.get(), kBatch}).value();
    stored += static_cast<int>(found);
    ASSERT_EQ(table.size(), static_cast<std::size_t>(stored));
    // The first ones, in a row.
    for (std::size_t i = 0; i < kBatch; ++i) {
      ASSERT_EQ(there[i], i < found) << i;
      ASSERT_EQ(flags[i], i < found) << i;
    }
    if (answer) {
      ASSERT_EQ(*answer, static_cast<std::size_t>(kBatch));
      continue;
    }
    ASSERT_EQ(answer.error(), errc::no_memory);
    ASSERT_LT(found, static_cast<std::size_t>(kBatch));
    break;
  }
  for (int n = 0; n < stored; ++n) ASSERT_EQ(table.find(keyOf<TypeParam>(n))->data, n);
  // Erasing takes a free node for a moment, of the size of the key's.
  const auto gone = this->keysFrom(0, 100);
  const auto all = table.erase_many(gone);
  EXPECT_EQ(all.value_or(100), 100U);
  EXPECT_EQ(errorOf(all).value_or(errc::no_memory), errc::no_memory);
  EXPECT_EQ(table.contains(gone[99]), !all);
  table.clear();
  EXPECT_EQ(got(table.insert_many(gone, std::vector<int>(100))), 100U);
  EXPECT_EQ(got(table.erase_many(gone)), 100U);
}

// ---- A host that fails at every moment there is -----------------------------------

// Calls one(0), one(1) and so on, until one fails.
template <class One>
morva::result<std::size_t> inTurn(std::size_t count, One one) {
  std::size_t done = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto answer = one(i);
    if (!answer) return answer.error();
    done += static_cast<std::size_t>(*answer);
  }
  return done;
}

TYPED_TEST(ManyKeysWithoutMemory, FailWhereOneAfterAnotherWouldFail) {
  constexpr std::size_t kCount = 200;
  const auto keys = this->keysFrom(0, kCount);
  const std::vector<int> data(kCount, 5);
  const std::vector<double> amounts(kCount, 0.5);
  auto &recording = this->recording;
  constexpr bool kSums = requires(TypeParam & table) {
    table.add_to_sum_many(keys, amounts, 5);
  };
  for (const bool bySum : {false, true}) {
    if (bySum && !kSums) continue;
    std::uint64_t failures = 1;
    for (std::uint64_t n = 1; failures != 0; ++n) {
      SCOPED_TRACE(::testing::Message() << "failure " << n << (bySum ? " in sums" : ""));
      ASSERT_LT(n, 1000U);
      recording.forget();
      auto many = got(TypeParam::make(*this->library, {.expected = 4}));
      auto one = got(TypeParam::make(*this->library, {.expected = 4}));
      const auto failing = [&](auto work) {
        recording.failFromNth(n);
        const morva::result<std::size_t> answer = work();
        failures = recording.failuresDelivered();
        recording.failNever();
        return answer;
      };
      const auto all = failing([&]() -> morva::result<std::size_t> {
        if constexpr (kSums) {
          if (bySum) return many.add_to_sum_many(keys, amounts, 5);
        }
        return many.insert_many(keys, data);
      });
      const auto single = failing([&]() -> morva::result<std::size_t> {
        if constexpr (kSums) {
          if (bySum) {
            return inTurn(kCount, [&](std::size_t i) -> morva::result<bool> {
              const auto added = one.add_to_sum(keys[i], amounts[i], 5);
              if (!added) return added.error();
              return true;
            });
          }
        }
        return inTurn(kCount, [&](std::size_t i) { return one.insert(keys[i], data[i]); });
      });
      ASSERT_EQ(errorOf(all), errorOf(single));
      if (all) {
        ASSERT_EQ(*all, *single);
      }
      ASSERT_EQ(look(many), look(one));
      ASSERT_EQ(many.memory(), one.memory());
      // What failed can be had later.
      const std::size_t before = many.size();
      if (!all) {
        const auto rest = this->keysFrom(static_cast<int>(before), 20);
        ASSERT_EQ(got(many.insert_many(rest, std::vector<int>(20))), 20U);
      }
      if (this->HasFatalFailure()) return;
    }
  }
}

// Removing a key takes a free node for a moment: with all memory used and none
// to be had, that fails for keys that are there, and not for others.
TYPED_TEST(ManyKeysWithoutMemory, AreErasedUpToTheOneThatCannotBe) {
  for (const int count : {15, 16, 17, 48}) {
    SCOPED_TRACE(count);
    const auto keys = this->keysFrom(0, count);
    const auto absent = this->keysFrom(1000, 20);
    auto many = got(TypeParam::make(*this->library, {.expected = 4}));
    auto one = got(TypeParam::make(*this->library, {.expected = 4}));
    for (auto *table : {&many, &one}) {
      got(table->insert_many(keys, std::vector<int>(static_cast<std::size_t>(count))));
    }
    this->recording.failFromNth(1);
    EXPECT_EQ(got(many.erase_many(absent)), 0U);
    EXPECT_EQ(got(inTurn(20, [&](std::size_t i) { return one.erase(absent[i]); })), 0U);
    const auto all = many.erase_many(keys);
    const auto single = inTurn(keys.size(), [&](std::size_t i) { return one.erase(keys[i]); });
    this->recording.failNever();
    EXPECT_EQ(errorOf(all), errorOf(single));
    EXPECT_EQ(look(many), look(one));
    EXPECT_EQ(many.memory(), one.memory());
  }
}

MORVAStatus findNode(MORVAInst *inst, const std::string &key, RecordNode **node) {
  return inst->FindNode(inst, key.data(), static_cast<std::int32_t>(key.size()), node, nullptr);
}
template <class Key>
MORVAStatus findNode(MORVAInst *inst, const Key &key, RecordNode **node) {
  return inst->FindNode(inst, &key, sizeof key, node, nullptr);
}

// A pinned record stays, and those behind it.
TYPED_TEST(ManyKeysWithoutMemory, AreErasedUpToOneThatIsPinned) {
  const auto keys = this->keysFrom(0, 140);
  auto table = got(TypeParam::make(*this->library, {.expected = 4}));
  got(table.insert_many(keys, std::vector<int>(140)));
  MORVAInst *inst = table.native();
  RecordNode *node = nullptr;
  ASSERT_EQ(findNode(inst, keys[133], &node), MORVA_OK);
  ASSERT_NE(node, nullptr);
  HostPool *pool = inst->ext->pool;
  auto *entry = static_cast<PinnedEntry *>(pool->allocate(pool, sizeof(PinnedEntry), 0));
  *entry = {inst->pinned, node};
  inst->pinned = entry;
  EXPECT_EQ(table.erase_many(keys).error(), errc::pinned);
  EXPECT_EQ(table.size(), 7U);
  EXPECT_TRUE(table.contains(keys[133]));
  inst->pinned = entry->next;
  pool->free(pool, entry);
  EXPECT_EQ(got(table.erase_many(keys)), 7U);
}

}  // namespace
}  // namespace cpp_test
