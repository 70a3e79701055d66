// Tables on the recording host, which can let any call fail.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "recording_host.h"
#include "recording_state.h"
#include "tables.h"

namespace cpp_test {

using morva::errc;
using morva_test::Call;
using morva_test::RecordingHost;

// The order list of the recording host, walked.
inline OrderNode *firstInOrder(const MORVAInst *inst) {
  const auto *list = static_cast<const morva_test::List *>(inst->orderList);
  return list->head != nullptr ? list->nodes.front() : nullptr;
}
inline OrderNode *nextInOrder(const OrderNode *node) {
  auto *list = static_cast<morva_test::List *>(node->link0);
  const auto next = std::next(list->byRecord.at(node->record));
  return next != list->nodes.end() ? *next : nullptr;
}

// All that can be seen of a table: its size and its records as it walks them.
template <class Table>
struct Seen {
  std::size_t size = 0;
  std::vector<std::tuple<int, int, double>> records;
  friend bool operator==(const Seen &, const Seen &) = default;
};

template <class Table>
Seen<Table> look(const Table &table) {
  Seen<Table> seen;
  seen.size = table.size();
  for (auto at = table.begin(); at != table.end(); ++at) {
    double sum = 0;
    if constexpr (requires { table.sum(at); }) sum = table.sum(at);
    seen.records.emplace_back(KeyKind<typename Table::key_type>::number(at->key), at->data, sum);
  }
  return seen;
}

class RecordingTables : public ::testing::Test {
 protected:
  void TearDown() override {
    recording.failNever();
    recording.checkGuards();
    EXPECT_EQ(recording.locksHeld(), 0U);
    EXPECT_THAT(recording.complaints(), ::testing::IsEmpty());
    library.reset();
    host.reset();
    EXPECT_EQ(recording.poolsAlive() + recording.blocksAlive(), 0U) << recording.alive();
    EXPECT_EQ(recording.companionsAlive() + recording.objectsAlive(), 0U) << recording.alive();
    EXPECT_EQ(recording.locksAlive(), locksLeft);
    EXPECT_THAT(recording.complaints(), ::testing::IsEmpty());
  }

  // Calls work() with the n-th call failing, once or with all later ones, for
  // n = 1, 2, 3 and so on, until nothing fails any more. A failure must answer
  // no_memory, or refused where it was the record packer that failed, and check()
  // is called after it.
  void failEverywhere(bool allLater, const std::function<std::optional<errc>()> &work,
                      const std::function<void()> &check) {
    for (std::uint64_t n = 1;; ++n) {
      SCOPED_TRACE(::testing::Message() << "failure " << n << (allLater ? " and on" : ""));
      ASSERT_LT(n, 1000U);
      recording.forget();
      if (allLater) {
        recording.failFromNth(n);
      } else {
        recording.failNth(n);
      }
      const std::optional<errc> error = work();
      const bool delivered = recording.failuresDelivered() != 0;
      recording.failNever();
      if (!error) {
        if (!delivered) return;
        continue;  // it could do without
      }
      ASSERT_TRUE(delivered);
      const errc expected = packerRefused() ? errc::refused : errc::no_memory;
      EXPECT_EQ(*error, expected) << describe(*error) << " after " << recording.story();
      check();
      if (HasFatalFailure()) return;
    }
  }

  bool packerRefused() const {
    const auto &events = recording.events();
    return std::any_of(events.begin(), events.end(), [](const morva_test::Event &event) {
      return (event.call == Call::defineField || event.call == Call::finish) && event.a != 0;
    });
  }

  RecordingHost recording;
  // Locks that creations have left to the host.
  std::uint64_t locksLeft = 0;
  std::optional<morva::host> host{
      morva::host::of(recording.services(), {&firstInOrder, &nextInOrder}).value()};
  std::optional<morva::extension> library{morva::extension::linked(*host).value()};
};

template <class T>
std::optional<errc> errorOf(const morva::result<T> &answer) {
  if (answer) return std::nullopt;
  return answer.error();
}

// A key of the recording host's packer, which copies its fields as they are.
struct Row {
  std::int32_t a;
  std::int32_t b;
};
using RowKey = morva::composed<&Row::a, &Row::b>;
template <>
struct KeyKind<RowKey> {
  static Row make(int number) { return {number, -number}; }
  template <class View>
  static int number(const View &key) {
    return key.template field<&Row::a>();
  }
};

}  // namespace cpp_test
