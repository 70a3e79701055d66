// What operations refuse, and that a refusal changes nothing.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "tables.h"

namespace cpp_test {
namespace {

using morva::errc;
using Chains = morva::table<std::uint32_t, int, morva::ordered, morva::duplicates, morva::sums>;

TEST(Refusals, PositionsWithoutARecord) {
  const morva::extension library = linkedLibrary();
  auto table = got(Chains::make(library));
  got(table.insert(1, 1));
  EXPECT_EQ(table.erase(Chains::cursor()).error(), errc::no_record);
  EXPECT_EQ(table.erase(table.find(2)).error(), errc::no_record);
  EXPECT_EQ(table.erase(table.end()).error(), errc::no_record);
  EXPECT_EQ(table.erase(Chains::iterator()).error(), errc::no_record);
  EXPECT_EQ(table.add_to_sum(table.find(2), 1.0).error(), errc::no_record);
  EXPECT_EQ(table.at(2).error(), errc::not_found);
  EXPECT_EQ(std::as_const(table).at(2).error(), errc::not_found);
  EXPECT_EQ(table.size(), 1U);
}

TEST(Refusals, ATableThatIsNone) {
  Chains none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none.insert(1, 1).error(), errc::no_table);
  EXPECT_EQ(none.insert_or_assign(1, 1).error(), errc::no_table);
  EXPECT_EQ(none.find_or_insert(1, 1).error(), errc::no_table);
  EXPECT_EQ(none.add_to_sum(1, 1.0, 1).error(), errc::no_table);
  EXPECT_EQ(none.insert_range(std::vector<std::pair<std::uint32_t, int>>{{1, 1}}).error(),
            errc::no_table);
  EXPECT_EQ(none.erase(1).error(), errc::no_table);
  EXPECT_EQ(none.erase(Chains::cursor()).error(), errc::no_table);
  EXPECT_EQ(none.erase(none.begin()).error(), errc::no_table);
  EXPECT_EQ(none.size(), 0U);
  EXPECT_EQ(none.memory(), 0U);
  EXPECT_FALSE(none.reader().contains(1));
  none.clear();
  none.clear_keeping_memory();
}

// Pins the node of a record, as a host does.
class Pin {
 public:
  Pin(MORVAInst *inst, RecordNode *node) : inst_(inst), entry_{inst->pinned, node} {
    inst->pinned = &entry_;
  }
  ~Pin() { inst_->pinned = entry_.next; }
  Pin(const Pin &) = delete;
  Pin &operator=(const Pin &) = delete;

 private:
  MORVAInst *inst_;
  PinnedEntry entry_;
};

TEST(Refusals, APinnedRecordStays) {
  const morva::extension library = linkedLibrary();
  auto table = got(Chains::make(library));
  auto plain = got(morva::table<std::uint32_t, int>::make(library));
  for (int n = 0; n < 3; ++n) {
    got(table.insert(1, n));
    got(table.insert(2, n));
    got(plain.insert(static_cast<std::uint32_t>(n), n));
  }
  {
    const Pin pin(table.native(), table.find(1).native());
    const Pin other(plain.native(), plain.find(1).native());
    EXPECT_EQ(table.erase(1).error(), errc::pinned);
    EXPECT_EQ(table.erase(table.find(1)).error(), errc::pinned);
    EXPECT_EQ(table.erase(std::next(table.find(1))).error(), errc::pinned);
    EXPECT_EQ(table.erase(table.begin()).error(), errc::pinned);
    EXPECT_EQ(plain.erase(1).error(), errc::pinned);
    EXPECT_EQ(plain.erase(plain.find(1)).error(), errc::pinned);
    EXPECT_EQ(erase_if(plain, [](auto entry) { return entry.key == 1; }).error(), errc::pinned);
    EXPECT_EQ(chainOf(table, 1U), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(table.size(), 6U);
    EXPECT_EQ(plain.size(), 3U);
    EXPECT_EQ(got(table.erase(2)), 3U) << "others go";
  }
  EXPECT_EQ(got(table.erase(1)), 3U);
  EXPECT_EQ(got(plain.erase(1)), 1U);
}

// Its type is the type of errors: neither may be taken for the other.
TEST(Refusals, AreToldFromDataThatIsAnErrorItself) {
  const morva::extension library = linkedLibrary();
  auto table = got(morva::table<int, errc>::make(library));
  ASSERT_TRUE(got(table.insert(1, errc::pinned)));
  EXPECT_EQ(table.find(1)->data, errc::pinned);
  EXPECT_EQ(got(table.at(1)), errc::pinned);
  EXPECT_EQ(table.at(2).error(), errc::not_found);
}

}  // namespace
}  // namespace cpp_test
