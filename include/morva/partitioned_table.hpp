/**
 * @file
 * One table over many hash instances, its parts: for more than a million
 * records, and for threads that work on one table in parallel.
 *
 *   using totals = morva::partitioned_table<std::uint64_t, long, morva::sums>;
 *   auto made = totals::make(*library, {.expected = 50'000'000});
 *   totals &table = *made;
 *   ...                                         // in each of several threads:
 *   auto sum = table.add_to_sum(customer, price, 0);       // result<double>
 *
 * A hash of the key (morva/partition_hash.hpp) says in which part its records
 * are. A part is a table<Key, Data, locked, ...>: at most 2^20 buckets, and a
 * lock of its own. Threads that work on keys of different parts do not wait for
 * each other. Operations, answers and features are those of table; the feature
 * `locked` may be named and changes nothing. An ordered table keeps eight more
 * bytes with each record.
 *
 * Records never move; cursors, iterators and references are ended by the same
 * operations as in a table, see morva/table.hpp. A reader belongs to the table
 * object, and looks up whatever records it has.
 *
 * Threads. All operations may be called at any time from any number of threads,
 * but not to move, swap, assign to or destroy the table:
 *
 *   operation                            for other threads
 *   on one key, or on one record         is one step
 *   insert_range                         is one step for each pair
 *   find_many and the other ..._many     is one step for some keys of one part at
 *                                          a time; in an ordered table insert_many and
 *                                          add_to_sum_many with data are one step, and
 *                                          hold all parts that have any of the keys
 *   erase_if, clear,                     is one step for each part, from the first on
 *     clear_keeping_memory
 *   size, empty, memory, bucket_count    looks at part after part: a number that was
 *                                          right if nobody changed the table meanwhile
 *   ==                                   is one step
 *   iterators, in_order                  needs a guard of all parts, lock(), or that
 *                                          nobody changes the table
 *   reader()                             looks up beside other readers while nobody
 *                                          changes the table
 *
 * Hold the guard of a key's part, lock(key), while data is used in place, and
 * through several operations on that key. A thread that holds the guard of one
 * part must not wait for another: with lock(key) held it uses keys of that part
 * only, and for several parts it takes lock() first.
 *
 * Cost: that of the part's operation, and of one hash. An ordered table takes a
 * stamp for each new key from a counter that all threads share, and looks a key
 * up before insert_or_assign, and with duplicates before insert. When an
 * operation answers an error, the table is as it was before.
 */
#ifndef MORVA_PARTITIONED_TABLE_HPP
#define MORVA_PARTITIONED_TABLE_HPP

#include <algorithm>
#include <array>
#include <atomic>
#include <bitset>
#include <cmath>
#include <concepts>
#include <functional>
#include <memory>
#include <new>
#include <ranges>
#include <span>
#include <utility>

#include "morva/extension.hpp"
#include "morva/guard.hpp"
#include "morva/options.hpp"
#include "morva/partition.hpp"
#include "morva/partition_groups.hpp"
#include "morva/partitioned_cursor.hpp"
#include "morva/partitioned_reader.hpp"
#include "morva/result.hpp"
#include "morva/table.hpp"

namespace morva {
namespace detail {

// Numbers the keys of an ordered table. In a cache line of its own, as all
// threads write it.
class alignas(64) stamp_counter {
 public:
  stamp_counter() noexcept = default;
  stamp_counter(const stamp_counter &other) noexcept : next_(other.next_.load()) {}
  stamp_counter &operator=(const stamp_counter &other) noexcept {
    next_ = other.next_.load();
    return *this;
  }

  // Called with a part's lock held, so that the stamps of each part ascend.
  std::uint64_t next() noexcept { return next_.fetch_add(1, std::memory_order_relaxed); }

 private:
  std::atomic<std::uint64_t> next_{0};
};

struct no_stamps {};

}  // namespace detail

/**
 * A table of records of a Key (morva/key.hpp) and a Data, in parts, with
 * features (morva/options.hpp).
 */
template <class Key, class Data, class... Features>
class partitioned_table {
  using types = detail::partition_types<Key, Data, Features...>;
  using traits = typename types::traits;
  using set = typename types::set;
  using keys = detail::partition_key<Key>;
  using answers = detail::answers<std::conditional_t<set::template has<throws>, throws, void>>;
  template <class T>
  using answer = typename answers::template type<T>;

  static constexpr bool hasOrder = types::ordered;
  static constexpr bool hasDuplicates = types::duplicates;
  static constexpr bool hasSums = set::template has<sums>;
  static constexpr bool canThrow = set::template has<throws>;

 public:
  using key_type = Key;
  using mapped_type = Data;
  /** What operations take as a key: `const Key &`, std::string_view, or a row. */
  using key_argument = typename traits::argument;
  using reference = typename types::template entry_type<false>;
  using const_reference = typename types::template entry_type<true>;
  using value_type = reference;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;
  using cursor = partitioned_cursor<types, false>;
  using const_cursor = partitioned_cursor<types, true>;
  using iterator = partitioned_iterator<types, false>;
  using const_iterator = partitioned_iterator<types, true>;
  using reader_type = partitioned_reader<partitioned_table>;
  /**
   * What a part is: a table with a lock, that answers results. Where the table
   * is ordered, its data is stamped<Data>.
   */
  using part_type = typename types::part;

  /** What find_or_insert answers. */
  struct insertion {
    cursor position;
    bool inserted;
  };

  // ---- Making, moving, destroying -------------------------------------------------

  /**
   * Makes a table and all its parts. Fails with refused when the number of parts
   * is no power of two from 1 to 65536; else as table::make.
   */
  static answer<partitioned_table> make(const extension &on,
                                        const partition_options &options = {}) {
    return answers::template give<partitioned_table>(tryMake(on, options));
  }

  /** As make. */
  explicit partitioned_table(const extension &on,
                             const partition_options &options = {}) requires(canThrow) {
    if constexpr (canThrow) *this = make(on, options);
  }

  /** No table: empty, and stays so. As after a move. */
  partitioned_table() noexcept = default;

  partitioned_table(partitioned_table &&other) noexcept
      : parts_(std::move(other.parts_)), exponent_(other.exponent_), stamps_(other.stamps_) {}
  partitioned_table &operator=(partitioned_table &&other) noexcept {
    partitioned_table taken(std::move(other));
    swap(taken);
    return *this;
  }
  partitioned_table(const partitioned_table &) = delete;
  partitioned_table &operator=(const partitioned_table &) = delete;
  ~partitioned_table() = default;

  void swap(partitioned_table &other) noexcept {
    std::swap(parts_, other.parts_);
    std::swap(exponent_, other.exponent_);
    std::swap(stamps_, other.stamps_);
  }
  friend void swap(partitioned_table &a, partitioned_table &b) noexcept { a.swap(b); }

  /** Whether there is a table: not after a move. */
  explicit operator bool() const noexcept { return parts_ != nullptr; }

  // ---- Parts --------------------------------------------------------------------------

  /** How many parts there are; 0 after a move. */
  size_type parts() const noexcept { return parts_ ? size_type{1} << exponent_ : 0; }

  /**
   * The part with the number `index`, less than parts(), to look at. Records are
   * stored and removed by the table, which knows where they belong.
   */
  const part_type &part(size_type index) const noexcept { return parts_[index]; }

  /**
   * The number of the part that the records of `key` are in, if there are any:
   * the topmost bits of its partition hash. 0 for a key that is too long, and
   * after a move.
   */
  size_type part_of(key_argument key) const noexcept {
    if (!parts_ || !traits::fits(key)) return 0;
    return indexOf(keys::of(parts_[0].native(), key));
  }

  // ---- Size ---------------------------------------------------------------------------

  /** Records in all parts, those of one key counted each. */
  size_type size() const noexcept {
    return total([](const part_type &part) { return part.size(); });
  }
  [[nodiscard]] bool empty() const noexcept {
    for (size_type i = 0; i < parts(); ++i) {
      if (!parts_[i].empty()) return false;
    }
    return true;
  }
  /** The most records the parts can hold together; 0 after a move. */
  size_type max_size() const noexcept { return parts() * part_type::max_size(); }
  size_type bucket_count() const noexcept {
    return total([](const part_type &part) { return part.bucket_count(); });
  }
  /** Bytes of record blocks taken since the last clear(); 0 for text of any length. */
  std::uint64_t memory() const noexcept {
    return total([](const part_type &part) { return part.memory(); });
  }

  // ---- Storing ----------------------------------------------------------------------

  /** As table::insert. Fails with no_memory, key_too_long, no_table, refused. */
  answer<bool> insert(key_argument key, const Data &data = Data()) {
    part_type &home = homeOf(key);
    const guard hold = holdToStamp(home);
    return answers::template give<bool>(store(home, key, data));
  }

  /** As table::insert_or_assign. Fails as insert. */
  answer<bool> insert_or_assign(key_argument key, const Data &data) {
    part_type &home = homeOf(key);
    if constexpr (hasOrder) {
      const guard hold(home.lock());
      const auto there = home.find(key);
      const std::uint64_t stamp = there ? there->data.stamp : stamps_.next();
      return answers::template give<bool>(home.insert_or_assign(key, {data, stamp}));
    } else {
      return answers::template give<bool>(home.insert_or_assign(key, data));
    }
  }

  /** The first record of the key, stored with `data` when there was none. Fails as insert. */
  answer<insertion> find_or_insert(key_argument key, const Data &data = Data()) {
    return answers::template give<insertion>(findOrStore(homeOf(key), key, data));
  }

  /** The data of the key's first record, made when there is none. */
  Data &operator[](key_argument key) requires(canThrow &&std::default_initializable<Data>) {
    if constexpr (canThrow) {
      return find_or_insert(key, Data()).position->data;
    } else {
      return find_or_insert(key, Data()).value().position->data;
    }
  }

  /**
   * Inserts pairs of a key and data, one after the other. Answers how many were
   * stored. Fails as insert; what was stored before the failure stays.
   */
  template <std::ranges::input_range Pairs>
  answer<size_type> insert_range(Pairs &&pairs) {
    size_type count = 0;
    for (auto &&[key, data] : pairs) {
      part_type &home = homeOf(key);
      const guard hold = holdToStamp(home);
      const result<bool> stored = store(home, key, data);
      if (!stored) return answers::template give<size_type>(stored.error());
      if (*stored) ++count;
    }
    return answers::template give<size_type>(count);
  }

  // ---- Finding ----------------------------------------------------------------------

  /** The first record of the key, or none (end()). */
  cursor find(key_argument key) noexcept { return cursor(homeOf(key).find(key)); }
  const_cursor find(key_argument key) const noexcept {
    return const_cursor(std::as_const(homeOf(key)).find(key));
  }

  bool contains(key_argument key) const noexcept { return homeOf(key).contains(key); }

  /** How many records the key has. */
  size_type count(key_argument key) const noexcept { return homeOf(key).count(key); }

  /** The data of the key's first record. Fails with not_found. */
  answer<Data &> at(key_argument key) {
    const cursor found = find(key);
    if (!found) return answers::template give<Data &>(errc::not_found);
    return answers::template give<Data &>({std::in_place, found->data});
  }
  answer<const Data &> at(key_argument key) const {
    const const_cursor found = find(key);
    if (!found) return answers::template give<const Data &>(errc::not_found);
    return answers::template give<const Data &>({std::in_place, found->data});
  }

  /** The records of the key, in the order they were inserted. */
  records<cursor> equal_range(key_argument key) noexcept { return records(find(key)); }
  records<const_cursor> equal_range(key_argument key) const noexcept { return records(find(key)); }

  // ---- Many keys at a time --------------------------------------------------------------
  //
  // As those of table, with the same answers. The keys are taken part by part,
  // those of one part in their order, so that threads seldom wait for each
  // other; with more than 256 parts one after the other. Where one
  // fails, any others may have been done, or not.

  /** find of each key, into `found`; answers how many there are. */
  template <detail::keys_in_a_row<key_argument> Keys>
  answer<size_type> find_many(Keys &&keys, std::span<cursor> found) noexcept(!canThrow) {
    return answers::template give<size_type>(findMany(keys, found));
  }
  template <detail::keys_in_a_row<key_argument> Keys>
  answer<size_type> find_many(Keys &&keys, std::span<const_cursor> found) const
      noexcept(!canThrow) {
    return answers::template give<size_type>(findMany(keys, found));
  }

  /** contains of each key, into `there`; answers how many there are. */
  template <detail::keys_in_a_row<key_argument> Keys>
  answer<size_type> contains_many(Keys &&keys, std::span<bool> there) const noexcept(!canThrow) {
    return answers::template give<size_type>(containsMany(keys, there));
  }

  /**
   * insert of each key with the data at its place; answers how many were
   * stored, and says in `stored`, unless that is empty, which. Fails as insert.
   */
  template <detail::keys_in_a_row<key_argument> Keys, detail::values_in_a_row<Data> Values>
  answer<size_type> insert_many(Keys &&keys, Values &&data, std::span<bool> stored = {}) {
    return answers::template give<size_type>(insertMany(keys, data, stored));
  }

  /** erase of each key; answers how many records went. Fails as erase. */
  template <detail::keys_in_a_row<key_argument> Keys>
  answer<size_type> erase_many(Keys &&keys) {
    return answers::template give<size_type>(eraseMany(keys));
  }

  /** add_to_sum of each key with the amount at its place; answers how many. Fails as that. */
  template <detail::keys_in_a_row<key_argument> Keys, detail::values_in_a_row<double> Amounts>
  answer<size_type> add_to_sum_many(Keys &&keys, Amounts &&amounts) requires(hasSums) {
    return answers::template give<size_type>(addMany(keys, amounts));
  }
  /** The same; keys that are not there are stored with `data`. */
  template <detail::keys_in_a_row<key_argument> Keys, detail::values_in_a_row<double> Amounts>
  answer<size_type> add_to_sum_many(Keys &&keys, Amounts &&amounts,
                                    const Data &data) requires(hasSums) {
    return answers::template give<size_type>(addMany(keys, amounts, data));
  }

  // ---- Walking ------------------------------------------------------------------------

  /**
   * All records, part by part; within a part in the order of its own iterators.
   * To find the first may pass all parts and all their buckets.
   */
  iterator begin() noexcept { return walk<iterator>(0, parts()); }
  const_iterator begin() const noexcept { return walk<const_iterator>(0, parts()); }
  const_iterator cbegin() const noexcept { return begin(); }
  iterator end() noexcept { return {}; }
  const_iterator end() const noexcept { return {}; }
  const_iterator cend() const noexcept { return {}; }

  /**
   * The records of one part, so that several threads can share a walk. `index`
   * is less than parts().
   */
  iterator begin(size_type index) noexcept { return walk<iterator>(index, index + 1); }
  const_iterator begin(size_type index) const noexcept {
    return walk<const_iterator>(index, index + 1);
  }
  const_iterator cbegin(size_type index) const noexcept { return begin(index); }
  iterator end(size_type) noexcept { return {}; }
  const_iterator end(size_type) const noexcept { return {}; }
  const_iterator cend(size_type) const noexcept { return {}; }

  /**
   * All records in the order in which their keys first came, whatever the part.
   * Where two threads insert at one time, either may come first. Fails with
   * no_memory. The walk must have a name while it is gone through:
   *
   *   auto walk = table.in_order().value();
   *   for (auto [key, data] : walk) ...
   *
   * Costs time in the number of parts to begin, and see merged_records.
   */
  answer<merged_records<types, false>> in_order() requires(hasOrder) {
    return answers::template give<merged_records<types, false>>(merge<false>());
  }
  answer<merged_records<types, true>> in_order() const requires(hasOrder) {
    return answers::template give<merged_records<types, true>>(merge<true>());
  }

  // ---- Sums: tables with the feature sums ----------------------------------------------

  /** The sum of the key's first record; 0.0 when there is none. Begins at 0.0. */
  double sum(key_argument key) const noexcept requires(hasSums) { return sumIn(homeOf(key), key); }
  /** The sum of a record; 0.0 for none. */
  double sum(const_cursor record) const noexcept requires(hasSums) {
    return sumIn(homeOf(record), record.at_);
  }

  /**
   * Adds to the sum of the key's first record, and answers the new sum. Fails
   * with not_found, and with not_a_number where the amount or the sum would be
   * a NaN.
   */
  answer<double> add_to_sum(key_argument key, double amount) requires(hasSums) {
    return answers::template give<double>(addIn(homeOf(key), key, amount));
  }
  /** Adds to the sum of a record; fails with no_record for none. */
  answer<double> add_to_sum(cursor record, double amount) requires(hasSums) {
    return answers::template give<double>(addIn(homeOf(record), record.at_, amount));
  }
  /**
   * Adds to the sum of the key's first record, which is stored with `data`
   * when there is none: what grouping needs. Fails as insert and add_to_sum.
   */
  answer<double> add_to_sum(key_argument key, double amount, const Data &data) requires(hasSums) {
    return answers::template give<double>(storeAndAdd(homeOf(key), key, amount, data));
  }

  // ---- Removing ----------------------------------------------------------------------

  /** Removes all records of the key; answers how many. Fails with no_memory and pinned. */
  answer<size_type> erase(key_argument key) {
    return answers::template give<size_type>(homeOf(key).erase(key));
  }

  /**
   * Removes one record; answers the next of its key, or none. Fails with
   * no_record for none, no_memory and pinned.
   */
  answer<cursor> erase(cursor record) { return eraseAt(record); }
  answer<cursor> erase(const_cursor record) { return eraseAt(record); }

  /**
   * Removes one record; answers the next of the walk that the iterator is on.
   * Fails as erase of a cursor.
   */
  answer<iterator> erase(iterator record) { return eraseOnWalk(record); }
  answer<iterator> erase(const_iterator record) { return eraseOnWalk(record); }

  /** Removes all records, and gives their memory back to the host. */
  void clear() noexcept {
    for (size_type i = 0; i < parts(); ++i) parts_[i].clear();
  }
  /** Removes all records, and keeps their memory for new ones. */
  void clear_keeping_memory() noexcept {
    for (size_type i = 0; i < parts(); ++i) parts_[i].clear_keeping_memory();
  }

  // ---- Threads -------------------------------------------------------------------------

  /**
   * Holds the lock of the key's part while the guard lives. A thread may lock
   * again what it holds, and gives each guard back itself.
   */
  guard lock(key_argument key) const noexcept { return homeOf(key).lock(); }

  /**
   * Holds the locks of all parts, taken from the first to the last; a thread that
   * waits for it holds no lock(key). Two threads that hold the guards of two
   * tables and compare the tables may wait for each other.
   */
  some_parts_guard<part_type> lock() const noexcept { return {parts_.get(), parts()}; }

  /** A reader for the calling thread; see partitioned_reader. It goes before the table does. */
  reader_type reader() const noexcept { return reader_type(*this); }

  // ---- Comparing --------------------------------------------------------------------------

  /**
   * Whether the tables hold the same keys, with equal data (and sums) in the
   * same order under each. How they were made, into how many parts, and the
   * order of the keys, does not count. Holds the locks of all parts of both.
   */
  friend bool operator==(const partitioned_table &a,
                         const partitioned_table &b) requires(std::equality_comparable<Data> ||
                                                              std::is_empty_v<Data>) {
    if (&a == &b) return true;
    // One order for both, so that two threads cannot wait for each other.
    const bool inOrder = std::less<>{}(&a, &b);
    const auto first = (inOrder ? a : b).lock();
    const auto second = (inOrder ? b : a).lock();
    return a.equals(b);
  }

 private:
  friend reader_type;
  using stored_type = typename types::stored;
  using stamps = std::conditional_t<hasOrder, detail::stamp_counter, detail::no_stamps>;

  static result<partitioned_table> tryMake(const extension &on, const partition_options &options) {
    const size_type count =
        options.parts != 0 ? options.parts : detail::parts_for(options.expected);
    if (!detail::is_part_count(count)) return errc::refused;
    partitioned_table made;
    std::unique_ptr<part_type[]> parts(new (std::nothrow) part_type[count]);
    if (!parts) return errc::no_memory;
    const table_options each{options.name, detail::share_of(options.expected, count), options.hash,
                             options.memory_hint};
    for (size_type i = 0; i < count; ++i) {
      result<part_type> part = part_type::make(on, each);
      if (!part) return part.error();
      parts[i] = *std::move(part);
    }
    made.parts_ = std::move(parts);
    made.exponent_ = std::countr_zero(count);
    return made;
  }

  // ---- from keys and records to their part ----

  // Of a single part the topmost no bits.
  size_type indexOf(std::uint64_t hash) const noexcept { return hash >> 1 >> (63 - exponent_); }

  // What stands in for the parts of no table: it answers as one that was moved from.
  static part_type &noPart() noexcept {
    static part_type none;
    return none;
  }

  part_type &homeOf(key_argument key) const noexcept {
    return parts_ ? parts_[part_of(key)] : noPart();
  }

  // Any part answers for no record.
  part_type &homeOf(const_cursor record) const noexcept {
    if (!parts_) return noPart();
    return parts_[record ? indexOf(keys::of_stored(record.native())) : 0];
  }

  template <class Of>
  std::uint64_t total(Of of) const noexcept {
    std::uint64_t sum = 0;
    for (size_type i = 0; i < parts(); ++i) sum += of(parts_[i]);
    return sum;
  }

  // ---- walking ----

  template <class Iterator>
  Iterator walk(size_type first, size_type last) const noexcept {
    return Iterator(parts_.get() + first, parts_.get() + last);
  }

  template <bool Const>
  result<merged_records<types, Const>> merge() const {
    if constexpr (hasOrder) {
      merged_records<types, Const> walk;
      if (!walk.start(parts_.get(), parts())) return errc::no_memory;
      return walk;
    } else {
      return errc::unsupported;
    }
  }

  // ---- storing ----

  // Between taking a stamp and storing the record no other may be stored.
  static guard holdToStamp(const part_type &home) noexcept {
    if constexpr (hasOrder) {
      return home.lock();
    } else {
      return guard(nullptr);
    }
  }

  // With the lock held, in an ordered table.
  result<bool> store(part_type &home, key_argument key, const Data &data) {
    if constexpr (!hasOrder) {
      return home.insert(key, data);
    } else {
      if constexpr (hasDuplicates) {
        if (const auto there = home.find(key)) return home.insert(key, {data, there->data.stamp});
      }
      return home.insert(key, {data, stamps_.next()});
    }
  }

  result<insertion> findOrStore(part_type &home, key_argument key, const Data &data) {
    if constexpr (hasOrder) {
      const guard hold(home.lock());
      if (const auto there = home.find(key)) return insertion{cursor(there), false};
      return made(home.find_or_insert(key, {data, stamps_.next()}));
    } else {
      return made(home.find_or_insert(key, data));
    }
  }

  static result<insertion> made(const result<typename part_type::insertion> &in) {
    if (!in) return in.error();
    return insertion{cursor(in->position), in->inserted};
  }

  // ---- many keys ----

  template <class Keys>
  static size_type sizeOf(Keys &keys) noexcept {
    return static_cast<size_type>(std::ranges::size(keys));
  }

  template <class Keys>
  static decltype(auto) at(Keys &keys, size_type i) noexcept {
    return std::ranges::begin(keys)[static_cast<std::ranges::range_difference_t<Keys>>(i)];
  }

  // Calls use(home, offset, places) for the keys of each part, while it answers no
  // error; else with single keys.
  template <class Keys, class Use>
  result<size_type> inParts(Keys &keys, Use use) const {
    result<size_type> count = size_type{0};
    const auto some = [&](part_type &home, size_type offset,
                          std::span<const std::uint16_t> places) {
      const result<size_type> done = use(home, offset, places);
      count = done ? result<size_type>(*count + *done) : done;
      return static_cast<bool>(count);
    };
    if (!parts_ || parts() > detail::part_groups::most_parts) {
      constexpr std::uint16_t only = 0;
      for (size_type i = 0; i < sizeOf(keys); ++i) {
        if (!some(homeOf(at(keys, i)), i, std::span(&only, 1))) break;
      }
      return count;
    }
    detail::part_groups groups;
    groups.go_through(
        sizeOf(keys), parts(), [&](size_type i) { return part_of(at(keys, i)); },
        [&](size_type part, size_type offset, std::span<const std::uint16_t> places) {
          return some(parts_[part], offset, places);
        });
    return count;
  }

  template <class Keys, class Cursor>
  result<size_type> findMany(Keys &keys, std::span<Cursor> found) const noexcept {
    if (found.size() < sizeOf(keys)) return errc::refused;
    using inner = std::conditional_t<std::same_as<Cursor, cursor>, typename part_type::cursor,
                                     typename part_type::const_cursor>;
    return inParts(keys, [&](part_type &home, size_type offset, auto places) {
      std::array<inner, detail::part_groups::most_places> theirs;
      const auto count = home.find_many(detail::picked(keys, offset, places), theirs);
      for (size_type i = 0; i < places.size(); ++i) found[offset + places[i]] = Cursor(theirs[i]);
      return count;
    });
  }

  template <class Keys>
  result<size_type> containsMany(Keys &keys, std::span<bool> there) const noexcept {
    if (there.size() < sizeOf(keys)) return errc::refused;
    return inParts(keys, [&](part_type &home, size_type offset, auto places) {
      std::array<bool, detail::part_groups::most_places> theirs{};
      const auto count = home.contains_many(detail::picked(keys, offset, places), theirs);
      for (size_type i = 0; i < places.size(); ++i) there[offset + places[i]] = theirs[i];
      return count;
    });
  }

  template <class Keys, class Values>
  result<size_type> insertMany(Keys &keys, Values &data, std::span<bool> stored) {
    if (sizeOf(data) != sizeOf(keys)) return errc::refused;
    if (!stored.empty() && stored.size() < sizeOf(keys)) return errc::refused;
    if constexpr (hasOrder) {
      return oneByOne(keys, [&](size_type i, key_argument key) -> result<size_type> {
        const result<bool> done = store(homeOf(key), key, at(data, i));
        if (!done) return done.error();
        if (!stored.empty()) stored[i] = *done;
        return *done ? 1 : 0;
      });
    } else {
      return inParts(keys, [&](part_type &home, size_type offset, auto places) {
        std::array<bool, detail::part_groups::most_places> theirs{};
        const auto count = home.insert_many(detail::picked(keys, offset, places),
                                            detail::picked(data, offset, places), theirs);
        for (size_type i = 0; !stored.empty() && i < places.size(); ++i) {
          stored[offset + places[i]] = theirs[i];
        }
        return count;
      });
    }
  }

  template <class Keys>
  result<size_type> eraseMany(Keys &keys) {
    return inParts(keys, [&](part_type &home, size_type offset, auto places) {
      return home.erase_many(detail::picked(keys, offset, places));
    });
  }

  // `data` is for keys that are not there, or nothing.
  template <class Keys, class Amounts, class... Stored>
  result<size_type> addMany(Keys &keys, Amounts &amounts, const Stored &...data) {
    if (sizeOf(amounts) != sizeOf(keys)) return errc::refused;
    if constexpr (!hasSums) {
      return errc::unsupported;
    } else if constexpr (hasOrder && sizeof...(data) != 0) {
      return oneByOne(keys, [&](size_type i, key_argument key) -> result<size_type> {
        const result<double> sum = storeAndAdd(homeOf(key), key, at(amounts, i), data...);
        if (!sum) return sum.error();
        return 1;
      });
    } else {
      return inParts(keys, [&](part_type &home, size_type offset, auto places) {
        return home.add_to_sum_many(detail::picked(keys, offset, places),
                                    detail::picked(amounts, offset, places), data...);
      });
    }
  }

  // Stamps follow the keys' order across the parts, so all parts that have any of
  // the keys are held.
  template <class Keys, class Store>
  result<size_type> oneByOne(Keys &keys, Store store_one) {
    const auto hold = holdPartsOf(keys);
    size_type count = 0;
    for (size_type first = 0; first < sizeOf(keys); first += detail::part_groups::group) {
      const size_type last = std::min(sizeOf(keys), first + detail::part_groups::group);
      // What is there already is near afterwards.
      const auto begin = std::ranges::begin(keys);
      using step = std::ranges::range_difference_t<Keys>;
      const detail::piece<std::remove_const_t<decltype(begin)>> some{
          begin + static_cast<step>(first), begin + static_cast<step>(last)};
      static_cast<void>(
          inParts(some, [&](part_type &home, size_type offset, auto places) -> result<size_type> {
            home.fetchMany(detail::picked(some, offset, places));
            return size_type{0};
          }));
      for (size_type i = first; i < last; ++i) {
        const result<size_type> done = store_one(i, at(keys, i));
        if (!done) return done.error();
        count += *done;
      }
    }
    return count;
  }

  // Of more parts than groups are made of, all.
  template <class Keys>
  some_parts_guard<part_type> holdPartsOf(Keys &keys) const {
    std::bitset<detail::part_groups::most_parts> wanted;
    if (parts() > wanted.size()) return {parts_.get(), parts()};
    for (size_type i = 0; i < sizeOf(keys); ++i) wanted.set(part_of(at(keys, i)));
    return {parts_.get(), parts(), wanted};
  }

  // ---- summing; instantiated without sums too where a program instantiates all of a table ----

  template <class Record>
  static double sumIn(const part_type &home, const Record &record) noexcept {
    if constexpr (hasSums) {
      return home.sum(record);
    } else {
      return 0.0;
    }
  }

  template <class Record, class... Stored>
  static result<double> addIn(part_type &home, const Record &record, double amount,
                              const Stored &...stored) {
    if constexpr (hasSums) {
      return home.add_to_sum(record, amount, stored...);
    } else {
      return errc::unsupported;
    }
  }

  result<double> storeAndAdd(part_type &home, key_argument key, double amount, const Data &data) {
    if constexpr (hasOrder) {
      const guard hold(home.lock());
      if (const auto there = home.find(key)) return addIn(home, there, amount);
      if (std::isnan(amount)) return errc::not_a_number;
      return addIn(home, key, amount, stored_type{data, stamps_.next()});
    } else {
      return addIn(home, key, amount, data);
    }
  }

  // ---- removing ----

  template <class Cursor>
  answer<cursor> eraseAt(const Cursor &record) {
    const auto next = homeOf(record).erase(record.at_);
    if (!next) return answers::template give<cursor>(next.error());
    return answers::template give<cursor>(cursor(*next));
  }

  template <class Iterator>
  answer<iterator> eraseOnWalk(const Iterator &record) {
    // The end has no part.
    part_type &home = record == end() ? homeOf(const_cursor()) : *record.part_;
    const auto next = home.erase(record.at_);
    if (!next) return answers::template give<iterator>(next.error());
    iterator then(record.part_, record.last_, *next);
    then.arrive();
    return answers::template give<iterator>(then);
  }

  // ---- comparing; all locks are held ----

  bool equals(const partitioned_table &other) const {
    if (size() != other.size()) return false;
    for (const_iterator at = begin(); at != end();) {
      const_cursor ours = at;
      const_cursor theirs =
          keys::with_argument(at.native(), [&](key_argument key) { return other.find(key); });
      for (; ours && theirs; ++ours, ++theirs, ++at) {
        if (!equalRecords(ours, other, theirs)) return false;
      }
      if (ours || theirs) return false;
    }
    return true;
  }

  bool equalRecords(const const_cursor &ours, const partitioned_table &other,
                    const const_cursor &theirs) const {
    if constexpr (!std::is_empty_v<Data>) {
      if (!(ours->data == theirs->data)) return false;
    }
    if constexpr (hasSums) {
      if (sum(ours) != other.sum(theirs)) return false;
    }
    return true;
  }

  std::unique_ptr<part_type[]> parts_;
  // The number of parts is two to the power of this.
  int exponent_ = 0;
  [[no_unique_address]] stamps stamps_;
};

/**
 * Removes the records for which `condition` answers true; answers how many. One
 * step for each part. Fails as partitioned_table::erase; what went before the
 * failure is gone.
 */
template <class Key, class Data, class... Features, class Condition>
auto erase_if(partitioned_table<Key, Data, Features...> &from, Condition condition)
    -> decltype(from.erase(
        std::declval<typename partitioned_table<Key, Data, Features...>::key_argument>())) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < from.parts(); ++i) {
    const guard hold = from.part(i).lock();
    for (auto at = from.begin(i); at != from.end(i);) {
      if (!condition(*at)) {
        ++at;
        continue;
      }
      auto next = from.erase(at);
      if constexpr (detail::feature_set<Features...>::template has<throws>) {
        at = next;
      } else {
        if (!next) return next.error();
        at = *next;
      }
      ++count;
    }
  }
  return count;
}

}  // namespace morva

#endif
