/**
 * @file
 * Operations on many keys at a time: see the `..._many` operations of
 * morva::table.
 */
#ifndef MORVA_MANY_HPP
#define MORVA_MANY_HPP

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <ranges>
#include <string_view>
#include <type_traits>

#include "morva/lookahead.hpp"

namespace morva::detail {

// Keys in a row, each in its place until the operation is over: for text whatever
// shows as a std::string_view, else objects of the key's own type.
template <class Range, class Argument>
concept keys_in_a_row = std::ranges::random_access_range<Range> &&
    std::ranges::sized_range<Range> &&
    (std::same_as<Argument, std::string_view>
         ? std::convertible_to<std::ranges::range_reference_t<Range>, std::string_view> &&
               (std::is_lvalue_reference_v<std::ranges::range_reference_t<Range>> ||
                std::same_as<std::ranges::range_value_t<Range>, std::string_view>)
         : std::same_as<std::remove_cvref_t<std::ranges::range_reference_t<Range>>,
                        std::remove_cvref_t<Argument>>
               &&std::is_lvalue_reference_v<std::ranges::range_reference_t<Range>>);

// Values that go with keys in a row: for numbers whatever is one, else of the
// very type.
template <class Range, class Value>
concept values_in_a_row = std::ranges::random_access_range<Range> &&
    std::ranges::sized_range<Range> &&
    std::convertible_to<std::ranges::range_reference_t<Range>, Value> &&
    (std::is_arithmetic_v<Value> || std::same_as<std::ranges::range_value_t<Range>, Value>);

// Which of a key's records are going to be needed: the first, the last as well,
// or all.
enum class needed { first, last, all };

// Lookups in tables of one type that go side by side. A lookup is begun with
// the key and its table, which walks trees itself; the key stays where it is
// until the lookups have ended.
template <class Table>
class side_by_side {
  using traits = typename Table::traits;
  using image_room = typename traits::image_room;

  // Packed keys have their images here: not more of them than a stack likes.
  static constexpr std::size_t largest_rooms = 8192;
  static constexpr std::size_t lanes =
      std::clamp<std::size_t>(largest_rooms / sizeof(image_room), 1, 128);
  using order = decltype(traits::order(std::declval<typename traits::image>()));

 public:
  bool is_full() const noexcept { return ahead_.is_full(); }

  void begin(const Table &table, typename Table::key_argument key) noexcept {
    const std::size_t lane = ahead_.size();
    tables_[lane] = &table;
    if (!table.mayHave(key)) {
      ahead_.begin_nothing();
      return;
    }
    const auto image = traits::make_image(table.inst_, key, rooms_[lane]);
    const Bucket *bucket = MORVABucketAt(table.inst_->buckets, table.bucketOf(image));
    ahead_.begin(bucket, traits::order(image), table.reachOf(image.length));
  }

  // Ends all lookups, and calls use(table, node) for each in the order they were
  // begun; the node is null where the key is not there. Until an answer is false,
  // which is passed on.
  template <class Use>
  bool finish(needed records, Use use) {
    ahead_.finish();
    if constexpr (Table::hasDuplicates) fetchFurther(records);
    bool more = true;
    for (std::size_t lane = 0; more && lane < ahead_.size(); ++lane) {
      more = use(*tables_[lane], ahead_.found(lane));
    }
    ahead_.clear();
    return more;
  }

 private:
  // Fetches further records of the keys found, a step in each chain in turn.
  void fetchFurther(needed records) noexcept {
    if (records == needed::first) return;
    constexpr int few = 4;
    std::array<const DupLinks *, lanes> at;
    std::size_t left = 0;
    for (std::size_t lane = 0; lane < ahead_.size(); ++lane) {
      RecordNode *node = ahead_.found(lane);
      if (node != nullptr) at[left++] = tables_[lane]->linksOf(node);
    }
    for (int step = 0; step < (records == needed::all ? few : 1); ++step) {
      std::size_t stay = 0;
      for (std::size_t i = 0; i < left; ++i) {
        const DupLinks *next = records == needed::all ? at[i]->next : at[i]->back;
        if (next == nullptr) continue;
        // The node's own words and the links may lie in two lines.
        __builtin_prefetch(next);
        __builtin_prefetch(tables_[0]->nodeOf(next));
        at[stay++] = next;
      }
      left = stay;
    }
  }

  lookahead<order, lanes> ahead_;
  std::array<const Table *, lanes> tables_;
  std::array<image_room, lanes> rooms_;
};

// Calls use(i, node) for all keys, in turn, while it answers true. With `ahead`,
// which needs a table that walks trees itself, the records have been looked for
// before that, many at a time, so their memory is near: `node` is what was found
// then. Else it is null.
template <class Table, class Keys, class Use>
void with_lookahead(bool ahead, const Table &table, Keys &keys, needed records, Use use) {
  const auto count = static_cast<std::size_t>(std::ranges::size(keys));
  const auto first = std::ranges::begin(keys);
  const auto key = [&](std::size_t i) -> decltype(auto) {
    return first[static_cast<std::ranges::range_difference_t<Keys>>(i)];
  };
  if (!ahead) {
    for (std::size_t i = 0; i < count && use(i, nullptr);) ++i;
    return;
  }
  side_by_side<Table> lookups;
  std::size_t used = 0;
  for (std::size_t i = 0; i < count;) {
    while (i < count && !lookups.is_full()) lookups.begin(table, key(i++));
    const auto tell = [&](const Table &, RecordNode *node) { return use(used++, node); };
    if (!lookups.finish(records, tell)) return;
  }
}

}  // namespace morva::detail

#endif
