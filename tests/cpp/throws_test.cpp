// The throwing layer.
#include "morva/throws.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "recording_host.h"
#include "tables.h"

namespace cpp_test {
namespace {

using morva::errc;
using morva::failure;

// The error of the failure that `work` throws.
template <class Work>
errc failureOf(Work work) {
  try {
    work();
  } catch (const failure &thrown) {
    return thrown.error();
  }
  ADD_FAILURE() << "nothing was thrown";
  return errc{};
}

TEST(Raising, PicksTheExceptionOfTheError) {
  EXPECT_THROW(morva::raise(errc::no_memory), std::bad_alloc);
  EXPECT_THROW(morva::raise(errc::not_found), std::out_of_range);
  for (const errc error : {errc::refused, errc::unsupported, errc::pinned, errc::key_too_long,
                           errc::no_record, errc::no_table, errc::not_loaded, errc::not_a_number}) {
    EXPECT_EQ(failureOf([&] { morva::raise(error); }), error);
  }
}

TEST(Raising, SaysWhatIsWrong) {
  try {
    morva::raise(errc::not_found);
  } catch (const std::out_of_range &thrown) {
    EXPECT_STREQ(thrown.what(), "no record has this key");
  }
  try {
    morva::raise(errc::pinned);
  } catch (const std::runtime_error &thrown) {
    EXPECT_STREQ(thrown.what(), "record is pinned");
  }
  const failure thrown(errc::no_table, "a sentence");
  EXPECT_STREQ(thrown.what(), "a sentence");
  EXPECT_EQ(thrown.error(), errc::no_table);
  EXPECT_EQ(thrown.code(), errc::no_table);
}

TEST(ErrorCodes, HaveACategoryOfTheirOwn) {
  const std::error_code code = errc::key_too_long;
  EXPECT_STREQ(code.category().name(), "morva");
  EXPECT_EQ(&code.category(), &morva::error_category());
  EXPECT_EQ(code, errc::key_too_long);
  EXPECT_NE(code, errc::pinned);
  EXPECT_NE(code, std::make_error_code(std::errc::invalid_argument));
  for (const errc error : {errc::no_memory, errc::refused, errc::unsupported, errc::pinned,
                           errc::not_found, errc::key_too_long, errc::no_record, errc::no_table,
                           errc::not_loaded, errc::not_a_number}) {
    const std::error_code made = make_error_code(error);
    EXPECT_TRUE(made);
    EXPECT_EQ(made.message(), describe(error));
    EXPECT_EQ(failure(error).error(), error);
  }
}

TEST(OrThrow, AnswersTheValue) {
  EXPECT_EQ(morva::or_throw(morva::result<int>(5)), 5);
  EXPECT_EQ(*morva::or_throw(morva::result<std::unique_ptr<int>>(std::make_unique<int>(6))), 6);
  int number = 7;
  EXPECT_EQ(&morva::or_throw(morva::result<int &>(number)), &number);
  morva::or_throw(morva::result<void>());
}

TEST(OrThrow, AnswersTheValueInPlaceWhereTheResultStays) {
  const morva::result<std::unique_ptr<int>> owner = std::make_unique<int>(5);
  EXPECT_EQ(&morva::or_throw(owner), &owner.value());
  morva::result<std::string> text = std::string("stays");
  EXPECT_EQ(morva::or_throw(text), "stays");
  EXPECT_EQ(*text, "stays");
  int number = 7;
  const morva::result<int &> reference = number;
  EXPECT_EQ(&morva::or_throw(reference), &number);
  const morva::result<void> done;
  morva::or_throw(done);
  const morva::result<void> error = errc::pinned;
  EXPECT_THROW(morva::or_throw(error), failure);
}

TEST(OrThrow, ThrowsForAnError) {
  EXPECT_THROW(morva::or_throw(morva::result<int>(errc::no_memory)), std::bad_alloc);
  EXPECT_THROW(morva::or_throw(morva::result<int &>(errc::not_found)), std::out_of_range);
  EXPECT_THROW(morva::or_throw(morva::result<void>(errc::pinned)), failure);
}

TEST(OrThrow, TakesWhatLoadingAnswersWithItsSentence) {
  try {
    morva::or_throw(morva::extension::load("no-such-library.so"));
    ADD_FAILURE() << "nothing was thrown";
  } catch (const failure &thrown) {
    EXPECT_EQ(thrown.error(), errc::not_loaded);
    EXPECT_NE(std::string(thrown.what()).find("no-such-library.so"), std::string::npos)
        << thrown.what();
  }
  morva::load_failure full;
  full.code = errc::no_memory;
  EXPECT_THROW(morva::or_throw(morva::extension::made(full)), std::bad_alloc);
}

using Table = morva::table<morva::text<8>, int, morva::throws, morva::ordered, morva::duplicates,
                           morva::sums, morva::locked>;

class ThrowingTables : public ::testing::Test {
 protected:
  morva::extension library = morva::or_throw(morva::extension::linked());
  Table table{library};
};

TEST_F(ThrowingTables, AnswerValues) {
  static_assert(std::is_same_v<decltype(table.insert("a", 1)), bool>);
  static_assert(std::is_same_v<decltype(table.at("a")), int &>);
  static_assert(std::is_same_v<decltype(std::as_const(table).at("a")), const int &>);
  static_assert(std::is_same_v<decltype(table.erase("a")), std::size_t>);
  static_assert(std::is_same_v<decltype(table.erase(table.begin())), Table::iterator>);
  static_assert(std::is_same_v<decltype(table.erase(table.find("a"))), Table::cursor>);
  static_assert(std::is_same_v<decltype(Table::make(library)), Table>);

  EXPECT_TRUE(table.insert("a", 1));
  EXPECT_TRUE(table.insert("a", 2));
  EXPECT_FALSE(table.insert_or_assign("a", 3));
  EXPECT_TRUE(table.find_or_insert("b", 4).inserted);
  EXPECT_EQ(table.insert_range(std::vector<std::pair<std::string, int>>{{"c", 5}, {"d", 6}}), 2U);
  EXPECT_EQ(table.at("a"), 3);
  table.at("a") = 7;
  EXPECT_EQ(std::as_const(table).at("a"), 7);
  EXPECT_EQ(table.add_to_sum("a", 1.5), 1.5);
  EXPECT_EQ(table.add_to_sum(table.find("a"), 1.5), 3.0);
  EXPECT_EQ(table.add_to_sum("e", 2.5, 8), 2.5);
  EXPECT_EQ(table.erase("a"), 2U);
  EXPECT_FALSE(table.erase(table.find("b")));
  EXPECT_EQ(table.erase(table.begin())->data, 6);
  EXPECT_EQ(erase_if(table, [](auto entry) { return entry.data == 6; }), 1U);
  EXPECT_EQ(table.size(), 1U);
}

TEST_F(ThrowingTables, AreIndexed) {
  table["a"] = 5;
  ++table["a"];
  ++table["b"];
  EXPECT_EQ(table["a"], 6);
  EXPECT_EQ(table["b"], 1);
  EXPECT_EQ(table["c"], 0);
  EXPECT_EQ(table.size(), 3U);
  EXPECT_EQ(&table["a"], &table.find("a")->data);
  EXPECT_EQ(failureOf([&] { table["too long a key"] = 1; }), errc::key_too_long);
  morva::table<std::string_view, long, morva::throws> words(library);
  for (const char *word : {"one", "two", "one"}) ++words[word];
  EXPECT_EQ(words["one"], 2);
}

TEST_F(ThrowingTables, ThrowWhatOthersAnswer) {
  table.insert("a", 1);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(table.at("b"), std::out_of_range);
  EXPECT_THROW(std::as_const(table).at("b"), std::out_of_range);
  EXPECT_THROW(table.add_to_sum("b", 1.0), std::out_of_range);
  EXPECT_EQ(failureOf([&] { table.insert("123456789", 1); }), errc::key_too_long);
  EXPECT_EQ(failureOf([&] { table.insert_or_assign("123456789", 1); }), errc::key_too_long);
  EXPECT_EQ(failureOf([&] { table.find_or_insert("123456789", 1); }), errc::key_too_long);
  EXPECT_EQ(failureOf([&] {
              table.insert_range(std::vector<std::pair<std::string, int>>{{"123456789", 5}});
            }),
            errc::key_too_long);
  EXPECT_EQ(failureOf([&] { table.add_to_sum("123456789", 1.0, 1); }), errc::key_too_long);
  EXPECT_EQ(failureOf([&] { table.erase(table.end()); }), errc::no_record);
  EXPECT_EQ(failureOf([&] { table.erase(table.find("b")); }), errc::no_record);
  EXPECT_EQ(failureOf([&] { table.add_to_sum(table.find("b"), 1.0); }), errc::no_record);
  EXPECT_EQ(failureOf([&] { table.add_to_sum("a", nan); }), errc::not_a_number);
  EXPECT_EQ(failureOf([&] { table.add_to_sum("b", nan, 1); }), errc::not_a_number);
  EXPECT_EQ(table.erase("b"), 0U) << "no record is no failure";
  EXPECT_EQ(table.size(), 1U);

  Table none;
  EXPECT_EQ(failureOf([&] { none.insert("a", 1); }), errc::no_table);
  EXPECT_EQ(failureOf([&] { none["a"] = 1; }), errc::no_table);
  EXPECT_EQ(failureOf([&] { none.erase("a"); }), errc::no_table);
  const morva::extension taken = std::move(library);
  EXPECT_EQ(failureOf([&] { Table again(library); }), errc::not_loaded);
  EXPECT_EQ(failureOf([&] { Table::make(library); }), errc::not_loaded);
}

TEST_F(ThrowingTables, ThrowOutOfConditionsWithTheLockGivenBack) {
  for (int n = 0; n < 10; ++n) table.insert(std::to_string(n), n);
  const auto condition = [](auto entry) {
    if (entry.data == 5) throw std::runtime_error("enough");
    return true;
  };
  EXPECT_THROW(erase_if(table, condition), std::runtime_error);
  EXPECT_EQ(table.size(), 5U);
  EXPECT_EQ(table.begin()->data, 5);
  EXPECT_TRUE(table.insert("next", 1));
}

TEST(ThrowingFailures, AreThrownWithTheTableAsItWas) {
  morva_test::RecordingHost recording;
  {
    const auto library =
        morva::or_throw(morva::extension::linked(morva::host::of(recording.services()).value()));
    EXPECT_EQ(failureOf([&] { Table ordered(library); }), errc::unsupported);
    using Plain = morva::table<std::string_view, int, morva::throws, morva::locked>;
    recording.failNth(1);
    EXPECT_THROW(Plain refused(library), std::bad_alloc);
    recording.failNever();
    Plain table(library);
    table.insert("a", 1);
    recording.failFromNth(1);
    EXPECT_THROW(table.insert("another", 1), std::bad_alloc);
    EXPECT_THROW(table["another"] = 2, std::bad_alloc);
    EXPECT_THROW(table.insert_or_assign("another", 2), std::bad_alloc);
    recording.failNever();
    EXPECT_FALSE(table.contains("another"));
    EXPECT_EQ(table.size(), 1U);
    EXPECT_EQ(recording.locksHeld(), 0U);
    table["another"] = 3;
    EXPECT_EQ(table.at("another"), 3);
  }
  EXPECT_TRUE(recording.nothingAlive()) << recording.alive();
  EXPECT_TRUE(recording.complaints().empty());
}

}  // namespace
}  // namespace cpp_test
