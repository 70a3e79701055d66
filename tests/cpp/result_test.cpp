// Results, and what errors are called.
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "morva/result.hpp"

namespace cpp_test {
namespace {

using morva::errc;
using morva::result;

constexpr errc kAll[] = {errc::no_memory,  errc::refused,      errc::unsupported, errc::pinned,
                         errc::not_found,  errc::key_too_long, errc::no_record,   errc::no_table,
                         errc::not_loaded, errc::not_a_number};

struct Pair {
  int a;
  int b;
};

TEST(Results, HoldAValueOrAnError) {
  const result<int> value = 5;
  EXPECT_TRUE(value);
  EXPECT_TRUE(value.has_value());
  EXPECT_EQ(value.value(), 5);
  EXPECT_EQ(*value, 5);
  EXPECT_EQ(value.value_or(7), 5);
  const result<int> error = errc::pinned;
  EXPECT_FALSE(error);
  EXPECT_FALSE(error.has_value());
  EXPECT_EQ(error.error(), errc::pinned);
  EXPECT_EQ(error.value_or(7), 7);
}

TEST(Results, OfBoolTellFalseFromNoAnswer) {
  const result<bool> no = false;
  EXPECT_TRUE(no);
  EXPECT_FALSE(*no);
  EXPECT_FALSE(no.value_or(true));
  const result<bool> error = errc::no_memory;
  EXPECT_TRUE(error.value_or(true));
}

TEST(Results, AreWrittenThroughAndAssigned) {
  result<Pair> pair = Pair{1, 2};
  pair->a = 3;
  (*pair).b = 4;
  EXPECT_EQ(pair.value().a + pair.value().b, 7);
  pair = errc::refused;
  EXPECT_EQ(pair.error(), errc::refused);
  pair = Pair{5, 6};
  EXPECT_EQ(std::as_const(pair)->a, 5);
  const auto copy = pair;
  EXPECT_EQ(copy->b, 6);
}

TEST(Results, MoveWhatTheyHold) {
  using Owner = std::unique_ptr<int>;
  static_assert(!std::is_copy_constructible_v<result<Owner>>);
  static_assert(std::is_nothrow_move_constructible_v<result<Owner>>);
  result<Owner> owner = std::make_unique<int>(5);
  result<Owner> second = std::move(owner);
  EXPECT_EQ(**second, 5);
  const Owner taken = std::move(second).value();
  EXPECT_EQ(*taken, 5);
  const Owner other = *result<Owner>(std::make_unique<int>(6));
  EXPECT_EQ(*other, 6);
  result<Owner> third = std::make_unique<int>(7);
  EXPECT_EQ(*std::move(third).value_or(nullptr), 7);
  result<Owner> none = errc::pinned;
  EXPECT_EQ(std::move(none).value_or(nullptr), nullptr);
}

TEST(Results, OfReferencesReferAndDoNotCopy) {
  int number = 5;
  const result<int &> value = number;
  EXPECT_TRUE(value.has_value());
  EXPECT_EQ(&value.value(), &number);
  EXPECT_EQ(value.operator->(), &number);
  *value += 1;
  EXPECT_EQ(number, 6);
  static_assert(std::is_same_v<decltype(value.value_or(7)), int>);
  EXPECT_EQ(value.value_or(7), 6);
  const result<const int &> reading = number;
  static_assert(std::is_same_v<decltype(*reading), const int &>);
  static_assert(std::is_same_v<decltype(reading.value_or(7)), int>);
  EXPECT_EQ(*reading, 6);
  const result<int &> error = errc::not_found;
  EXPECT_FALSE(error);
  EXPECT_EQ(error.error(), errc::not_found);
  EXPECT_EQ(error.value_or(7), 7);
}

TEST(Results, OfNothingAreDoneOrAnError) {
  const result<void> done;
  EXPECT_TRUE(done);
  EXPECT_TRUE(done.has_value());
  done.value();
  const result<void> error = errc::pinned;
  EXPECT_FALSE(error);
  EXPECT_EQ(error.error(), errc::pinned);
}

TEST(Results, TakeErrorsOfOtherTypes) {
  const result<int, std::string> error = std::string("why");
  EXPECT_FALSE(error);
  EXPECT_EQ(error.error(), "why");
  const result<int, std::string> value = 3;
  EXPECT_EQ(*value, 3);
}

TEST(Results, WorkWhenTheProgramIsCompiled) {
  constexpr result<int> value = 5;
  static_assert(value && *value == 5 && value.value() == 5 && value.value_or(1) == 5);
  constexpr result<int> error = errc::pinned;
  static_assert(!error && error.error() == errc::pinned && error.value_or(1) == 1);
  constexpr result<void> done;
  static_assert(done.has_value());
  constexpr result<Pair> pair = Pair{1, 2};
  static_assert(pair->b == 2);
}

TEST(Results, AValueThatIsNotThereEndsTheProgram) {
  result<int> number = errc::pinned;
  const result<Pair> pair = errc::pinned;
  const result<int &> reference = errc::pinned;
  const result<void> nothing = errc::pinned;
  EXPECT_DEATH(number.value(), "");
  EXPECT_DEATH(*number = 3, "");
  EXPECT_DEATH(std::move(number).value(), "");
  EXPECT_DEATH(static_cast<void>(pair->a), "");
  EXPECT_DEATH(static_cast<void>(pair.value()), "");
  EXPECT_DEATH(reference.value(), "");
  EXPECT_DEATH(static_cast<void>(*reference), "");
  EXPECT_DEATH(nothing.value(), "");
}

TEST(Errors, EachHasASentenceOfItsOwn) {
  std::set<std::string_view> sentences;
  for (const errc error : kAll) {
    const std::string_view sentence = describe(error);
    EXPECT_FALSE(sentence.empty());
    EXPECT_NE(sentence, "unknown error");
    EXPECT_NE(sentence.back(), '.') << sentence;
    sentences.insert(sentence);
  }
  EXPECT_EQ(sentences.size(), std::size(kAll));
  EXPECT_EQ(describe(errc::no_memory), "out of memory");
  EXPECT_EQ(describe(errc{12345}), "unknown error");
  static_assert(describe(errc::pinned) == "record is pinned");
}

TEST(Errors, OfTheLibraryHaveItsNumbers) {
  EXPECT_EQ(static_cast<MORVAStatus>(errc::no_memory), MORVA_NO_MEMORY);
  EXPECT_EQ(static_cast<MORVAStatus>(errc::refused), MORVA_INVALID);
  EXPECT_EQ(static_cast<MORVAStatus>(errc::unsupported), MORVA_UNSUPPORTED);
  EXPECT_EQ(static_cast<MORVAStatus>(errc::pinned), MORVA_PINNED);
}

}  // namespace
}  // namespace cpp_test
