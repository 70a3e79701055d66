// Programs that must not compile, one to a section. Each line that opens a
// section holds the name of its test and a piece of the compiler's message.
// Without any of the names defined, all of this file compiles.
#include <array>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "morva/morva.hpp"

namespace {

struct order {
  double amount;
  int count;
};

struct sale {
  char region[12];
  std::int32_t year;
  float discount;
  const char *note;
  std::string_view remark;
};

struct other_row {
  std::int32_t year;
};

struct padded_pair {
  std::uint8_t small;
  std::uint32_t large;
};

struct alignas(16) wide {
  double x[2];
};

struct virtual_row {
  virtual ~virtual_row() = default;
  std::int32_t year = 0;
};

using plain = morva::table<std::uint64_t, order>;
using everything = morva::table<std::uint64_t, order, morva::ordered, morva::duplicates,
                                morva::sums, morva::locked>;
using by_year = morva::table<morva::composed<&sale::year>, int>;

using parted = morva::partitioned_table<std::uint64_t, order>;
using parted_everything =
    morva::partitioned_table<std::uint64_t, order, morva::ordered, morva::duplicates, morva::sums>;

[[maybe_unused]] void right(plain &t, const plain &c, everything &e, by_year &y, morva::host &h,
                            morva::extension &x) {
  (void)t.insert(1, order{1.0, 2}).has_value();
  (void)t.insert(1).has_value();
  if (auto at = t.find(1)) at->data.count = 2;
  if (auto at = c.find(1)) (void)at->data.count;
  (void)e.sum(1);
  (void)e.add_to_sum(1, 2.0).has_value();
  (void)e.lock();
  (void)e.find(1).previous();
  (void)y.find(sale{});
  plain moved = std::move(t);
  morva::host host = std::move(h);
  morva::extension extension = std::move(x);
  auto reader = c.reader();
  (void)reader.contains(1);
  const std::array<std::uint64_t, 2> keys{1, 2};
  std::array<plain::const_cursor, 2> found;
  (void)c.find_many(keys, found).has_value();
  (void)e.insert_many(keys, std::array<order, 2>{}).has_value();
  (void)e.erase_many(keys).has_value();
  (void)e.add_to_sum_many(keys, std::array{1.0, 2.0}).has_value();
  (void)y.erase_many(std::array<sale, 2>{}).has_value();
}

[[maybe_unused]] void rightInParts(parted &t, const parted &c, parted_everything &e) {
  (void)t.insert(1, order{1.0, 2}).has_value();
  if (auto at = t.find(1)) at->data.count = 2;
  (void)c.part(0).contains(1);
  (void)e.sum(1);
  (void)e.in_order().has_value();
  const auto all = t.lock();
  const auto one = t.lock(1);
  parted moved = std::move(t);
}

// ---- Keys -------------------------------------------------------------------------

#ifdef AFloatingPointKeyIsRefused  // a floating-point key has several byte patterns per value
morva::table<double, int> t;
#endif

#ifdef AKeyWithPaddingIsRefused  // equal keys must have equal bytes
morva::table<padded_pair, int> t;
#endif

#ifdef APointerToCharactersIsRefused  // compared by address: use std::string_view
morva::table<const char *, int> t;
#endif

#ifdef AViewAsAKeyIsRefused  // a view would be compared by address
morva::table<std::u8string_view, int> t;
#endif

#ifdef AnArrayOfViewsAsAKeyIsRefused  // a view would be compared by address
morva::table<std::array<std::string_view, 2>, int> t;
#endif

#ifdef APointerToWideCharactersIsRefused  // compared by address: use std::string_view
morva::table<const char16_t *, int> t;
#endif

#ifdef AKeyThatCannotBeCopiedByteByByteIsRefused  // must be trivially copyable
morva::table<std::unique_ptr<int>, int> t;
#endif

#ifdef AHugeKeyIsRefused  // a key of fixed size has at most 4096 bytes
morva::table<std::array<char, 4097>, int> t;
#endif

#ifdef TextWithoutRoomIsRefused  // morva::text<N> has 1 to 4096 bytes
morva::table<morva::text<0>, int> t;
#endif

#ifdef HugeBoundedTextIsRefused  // use std::string_view for longer keys
morva::table<morva::text<5000>, int> t;
#endif

#ifdef AKeyOfAnotherTypeIsRefused  // call to '[^']*find
void wrong(morva::table<std::string_view, int> &t) {
  (void)t.find(17);
}
#endif

#ifdef TextInPlaceOfANumberIsRefused  // call to '[^']*find|invalid conversion
void wrong(plain &t) {
  (void)t.find("seventeen");
}
#endif

// ---- Composed keys ----------------------------------------------------------------

#ifdef AComposedKeyWithoutFieldsIsRefused  // at least one field
morva::table<morva::composed<>, int> t;
#endif

#ifdef AFloatFieldIsRefused  // has no packed form: use a double
morva::table<morva::composed<&sale::discount>, int> t;
#endif

#ifdef APointerFieldIsRefused  // a pointer or a view would be compared by address
morva::table<morva::composed<&sale::note>, int> t;
#endif

#ifdef AViewAsAFieldIsRefused  // a pointer or a view would be compared by address
morva::table<morva::composed<&sale::remark>, int> t;
#endif

#ifdef FieldsOfTwoRowsAreRefused  // are members of one row type
morva::table<morva::composed<&sale::year, &other_row::year>, int> t;
#endif

#ifdef AFieldThatIsNoMemberIsRefused  // are pointers to data members
morva::table<morva::composed<17>, int> t;
#endif

#ifdef ANumberThatIgnoresCaseIsRefused  // morva::caseless is for members of type char
morva::table<morva::composed<morva::caseless<&sale::year>>, int> t;
#endif

#ifdef ANumberWithBlanksAtItsEndIsRefused  // morva::padded is for members of type char
morva::table<morva::composed<morva::padded<&sale::year>>, int> t;
#endif

#ifdef ARowWithVirtualFunctionsIsRefused  // standard-layout type with a default constructor
morva::table<morva::composed<&virtual_row::year>, int> t;
#endif

#ifdef ARowThatIsTooLargeForTheStackIsRefused  // has at most 16 KiB
struct large_row {
  int number;
  char rest[20000];
};
morva::table<morva::composed<&large_row::number>, int> t;
#endif

#ifdef ARowOfAnotherTypeIsRefused  // other_row
void wrong(by_year &t) {
  (void)t.find(other_row{});
}
#endif

#ifdef AFieldTheKeyDoesNotHaveIsRefused  // the key has no such field
void wrong(by_year &t) {
  (void)t.begin()->key.field<&sale::region>();
}
#endif

// ---- Data ---------------------------------------------------------------------------

#ifdef DataThatCannotBeCopiedByteByByteIsRefused  // it must be a trivially copyable type
morva::table<int, std::string> t;
#endif

#ifdef ConstantDataIsRefused  // its type is neither const nor volatile
morva::table<int, const int> t;
#endif

#ifdef OverAlignedDataIsRefused  // data is kept at addresses that are multiples of 8
morva::table<int, wide> t;
#endif

#ifdef AnArrayAsDataIsRefused  // an array as data is a std::array
morva::table<int, int[3]> t;
#endif

#ifdef AReferenceAsDataIsRefused  // it must be a trivially copyable type
morva::table<int, int &> t;
#endif

#ifdef DataOfAnotherTypeIsRefused  // cannot convert 'const char|could not bind
void wrong(plain &t) {
  (void)t.insert(1, "text");
}
#endif

// ---- Features -----------------------------------------------------------------------

#ifdef AnUnknownFeatureIsRefused  // the features of a table are
morva::table<int, int, order> t;
#endif

#ifdef AFeatureNamedTwiceIsRefused  // a feature of a table is named once
morva::table<int, int, morva::ordered, morva::ordered> t;
#endif

#ifdef AnyTextWithDuplicatesIsRefused  // text of any length cannot have duplicates
morva::table<std::string_view, int, morva::duplicates> t;
#endif

#ifdef AnyTextWithSumsIsRefused  // text of any length cannot have sums
morva::table<std::string, int, morva::sums> t;
#endif

#ifdef ASumOfATableWithoutSumsIsRefused  // no matching|invalid reference|not satisfied
void wrong(plain &t) {
  (void)t.sum(1);
}
#endif

#ifdef AddingToASumOfATableWithoutSumsIsRefused  // no matching|not satisfied
void wrong(plain &t) {
  (void)t.add_to_sum(1, 2.0).has_value();
}
#endif

#ifdef AReadersSumOfATableWithoutSumsIsRefused  // no matching|invalid reference|not satisfied
void wrong(plain &t) {
  (void)t.reader().sum(1);
}
#endif

#ifdef LockingATableWithoutALockIsRefused  // no matching|invalid reference|not satisfied
void wrong(plain &t) {
  (void)t.lock();
}
#endif

#ifdef GoingBackWhereKeysHaveOneRecordIsRefused  // no matching|invalid reference|not satisfied
void wrong(plain &t) {
  (void)t.find(1).previous();
}
#endif

#ifdef ThrowingWithoutTheThrowingLayerIsRefused  // needs morva/throws.hpp
morva::table<int, int, morva::throws> t;
#endif

#ifdef IndexingATableThatDoesNotThrowIsRefused  // no match for|no viable
void wrong(plain &t) {
  t[1] = order{};
}
#endif

#ifdef ConstructingATableThatDoesNotThrowIsRefused  // no matching (member )?(function|constructor)
void wrong(morva::extension &x) {
  plain t(x);
}
#endif

// ---- Many keys at a time ----------------------------------------------------------

#ifdef ManyKeysOfAnotherTypeAreRefused  // keys_in_a_row
void wrong(plain &t, std::span<int, 2> keys, std::span<plain::cursor> found) {
  (void)t.find_many(keys, found).has_value();
}
#endif

#ifdef ManyKeysThatAreMadeOnTheWayAreRefused  // keys_in_a_row
void wrong(morva::table<bool, int> &t, std::vector<bool> &keys) {
  (void)t.erase_many(keys).has_value();
}
#endif

#ifdef NumbersInPlaceOfManyTextsAreRefused  // keys_in_a_row
void wrong(morva::table<std::string_view, int> &t, std::span<const int> keys) {
  (void)t.erase_many(keys).has_value();
}
#endif

#ifdef FindingManyInAConstTableForWritingIsRefused  // no matching|discards qualifiers|const
void wrong(const plain &t, std::span<std::uint64_t> keys, std::span<plain::cursor> found) {
  (void)t.find_many(keys, found).has_value();
}
#endif

#ifdef DataOfAnotherTypeForManyKeysIsRefused  // no matching|cannot convert|could not convert
void wrong(plain &t, std::span<std::uint64_t> keys, std::span<const double> data) {
  (void)t.insert_many(keys, data).has_value();
}
#endif

#ifdef AddingManyToSumsOfATableWithoutSumsIsRefused  // no matching|not satisfied
void wrong(plain &t, std::span<std::uint64_t> keys, std::span<const double> amounts) {
  (void)t.add_to_sum_many(keys, amounts).has_value();
}
#endif

#ifdef ManyAnswersThatAreNotLookedAtAreAWarning  // nodiscard
void wrong(plain &t, std::span<std::uint64_t> keys) {
  t.erase_many(keys);
}
#endif

// ---- Ownership, constness, results ---------------------------------------------------

#ifdef CopyingATableIsRefused  // deleted
void wrong(plain &t) {
  plain copy = t;
}
#endif

#ifdef AssigningACopyOfATableIsRefused  // deleted
void wrong(plain &t, plain &u) {
  t = u;
}
#endif

#ifdef CopyingAHostIsRefused  // deleted
void wrong(morva::host &h) {
  morva::host copy = h;
}
#endif

#ifdef CopyingAnExtensionIsRefused  // deleted
void wrong(morva::extension &x) {
  morva::extension copy = x;
}
#endif

#ifdef CopyingAReaderIsRefused  // deleted
void wrong(plain &t) {
  auto reader = t.reader();
  auto copy = reader;
}
#endif

#ifdef WritingThroughAConstTableIsRefused  // read-only|const-qualified|not assignable
void wrong(const plain &t) {
  t.find(1)->data.count = 2;
}
#endif

#ifdef WritingThroughAReaderIsRefused  // read-only|const-qualified|not assignable
void wrong(plain &t) {
  t.reader().find(1)->data.count = 2;
}
#endif

#ifdef WritingAKeyIsRefused  // read-only|const-qualified|not assignable
void wrong(plain &t) {
  t.find(1)->key = 2;
}
#endif

#ifdef InsertingIntoAConstTableIsRefused  // discards qualifiers|is not marked const
void wrong(const plain &t) {
  (void)t.insert(1, order{}).has_value();
}
#endif

#ifdef AResultThatIsNotLookedAtIsAWarning  // nodiscard
void wrong(plain &t) {
  t.insert(1, order{});
}
#endif

#ifdef AGuardThatIsNotKeptIsAWarning  // nodiscard
void wrong(everything &t) {
  t.lock();
}
#endif

#ifdef AResultIsNotItsValue  // cannot convert|no viable conversion
bool wrong(plain &t) {
  return t.insert(1, order{});
}
#endif

#ifdef ComparingTablesWhoseDataCannotBeComparedIsRefused  // no match for|invalid operands
bool wrong(plain &t, plain &u) {
  return t == u;
}
#endif

#ifdef ComparingTablesOfDifferentTypesIsRefused  // no match for|invalid operands
bool wrong(plain &t, everything &u) {
  return t == u;
}
#endif

// ---- Partitioned tables -------------------------------------------------------------

#ifdef AFloatingPointKeyOfAPartitionedTableIsRefused  // has several byte patterns per value
morva::partitioned_table<double, int> t;
#endif

#ifdef AnArrayAsDataOfAnOrderedPartitionedTableIsRefused  // an array as data is a std::array
morva::partitioned_table<int, int[3], morva::ordered> t;
#endif

#ifdef TheInsertionOrderOfATableThatHasNoneIsRefused  // no matching|invalid reference|not satisfied
void wrong(parted &t) {
  (void)t.in_order();
}
#endif

#ifdef ASumOfAPartitionedTableWithoutSumsIsRefused  // no matching|invalid reference|not satisfied
void wrong(parted &t) {
  (void)t.sum(1);
}
#endif

#ifdef StoringInAPartIsRefused  // discards qualifiers|is not marked const
void wrong(parted &t) {
  (void)t.part(0).insert(1, order{}).has_value();
}
#endif

#ifdef TheStampOfAKeyIsNoData  // no member named 'stamp'
void wrong(parted_everything &t) {
  (void)t.find(1)->data.stamp;
}
#endif

#ifdef ErasingAPartsRecordByItsCursorIsRefused  // no matching|call to '[^']*erase
void wrong(parted &t) {
  (void)t.erase(t.part(0).find(1)).has_value();
}
#endif

#ifdef WritingThroughAPartitionedReaderIsRefused  // read-only|const-qualified|not assignable
void wrong(parted &t) {
  t.reader().find(1)->data.count = 2;
}
#endif

#ifdef AGuardOfAllPartsThatIsNotKeptIsAWarning  // nodiscard
void wrong(parted &t) {
  t.lock();
}
#endif

#ifdef CopyingAPartitionedTableIsRefused  // deleted
void wrong(parted &t) {
  parted copy = t;
}
#endif

}  // namespace
