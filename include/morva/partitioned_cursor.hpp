/**
 * @file
 * Where a record of a partitioned table is: cursors and iterators as those of
 * morva/cursor.hpp, and the walk through all parts in insertion order.
 */
#ifndef MORVA_PARTITIONED_CURSOR_HPP
#define MORVA_PARTITIONED_CURSOR_HPP

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "morva/cursor.hpp"
#include "morva/table.hpp"

namespace morva {

template <class Key, class Data, class... Features>
class partitioned_table;

/** What the parts of an ordered table keep: the data, and when the key first came. */
template <class Data>
struct stamped {
  [[no_unique_address]] Data data;
  /** Of the key: the same for all its records, less than that of any key that came later. */
  std::uint64_t stamp;
};

namespace detail {

template <class... Features>
struct feature_list {};

// The table with the features of `Kept`, and those of `Others` that `Set` has.
template <class Key, class Data, class Set, class Kept, class... Others>
struct table_with;
template <class Key, class Data, class Set, class... Kept>
struct table_with<Key, Data, Set, feature_list<Kept...>> {
  using type = table<Key, Data, Kept...>;
};
template <class Key, class Data, class Set, class... Kept, class First, class... Others>
struct table_with<Key, Data, Set, feature_list<Kept...>, First, Others...>
    : table_with<Key, Data, Set,
                 std::conditional_t<Set::template has<First>, feature_list<Kept..., First>,
                                    feature_list<Kept...>>,
                 Others...> {};

// What one kind of partitioned table, its cursors and its iterators have in common.
template <class Key, class Data, class... Features>
struct partition_types {
  using set = feature_set<Features...>;
  using traits = key_traits<Key>;
  static constexpr bool ordered = set::template has<morva::ordered>;
  static constexpr bool duplicates = set::template has<morva::duplicates>;

  // What a table refuses, a partitioned one refuses with the same sentence.
  static_assert(sizeof(table<Key, Data, Features...>) != 0);

  using stored = typename std::conditional_t<ordered, std::type_identity<stamped<Data>>,
                                             std::type_identity<Data>>::type;
  // Answers results, whatever the partitioned table answers.
  using part = typename table_with<Key, stored, set, feature_list<locked>, morva::ordered,
                                   morva::duplicates, sums>::type;

  template <bool Const>
  using entry_type = entry<typename traits::view, std::conditional_t<Const, const Data, Data>>;
  template <bool Const>
  using part_cursor = std::conditional_t<Const, typename part::const_cursor, typename part::cursor>;
  template <bool Const>
  using part_iterator =
      std::conditional_t<Const, typename part::const_iterator, typename part::iterator>;

  // A part's entry as users see it.
  template <bool Const, class Stored>
  static entry_type<Const> show(const entry<typename traits::view, Stored> &record) noexcept {
    if constexpr (ordered) {
      return {record.key, record.data.data};
    } else {
      return {record.key, record.data};
    }
  }
};

}  // namespace detail

/** One record of a key, or none: as basic_cursor, of a partitioned table. */
template <class Types, bool Const>
class partitioned_cursor {
  using inner = typename Types::template part_cursor<Const>;

 public:
  using reference = typename Types::template entry_type<Const>;
  using value_type = reference;
  using difference_type = std::ptrdiff_t;
  using pointer = detail::arrow<reference>;
  using iterator_concept = std::forward_iterator_tag;
  using iterator_category = std::input_iterator_tag;

  /** No record. */
  partitioned_cursor() noexcept = default;
  /** A cursor that writes is also one that reads. */
  operator partitioned_cursor<Types, true>() const noexcept requires(!Const) {
    return partitioned_cursor<Types, true>(at_);
  }

  /** Whether there is a record. What follows, needs one. */
  explicit operator bool() const noexcept { return static_cast<bool>(at_); }

  reference operator*() const noexcept { return Types::template show<Const>(*at_); }
  pointer operator->() const noexcept { return pointer(**this); }

  partitioned_cursor &operator++() noexcept {
    ++at_;
    return *this;
  }
  partitioned_cursor operator++(int) noexcept { return partitioned_cursor(at_++); }

  /** The record before this one of the same key, or none. */
  partitioned_cursor previous() const noexcept requires(Types::duplicates) {
    return partitioned_cursor(at_.previous());
  }

  /** The node of the record, for the C interface; null for none. */
  RecordNode *native() const noexcept { return at_.native(); }

  friend bool operator==(const partitioned_cursor &a, const partitioned_cursor &b) noexcept {
    return a.at_ == b.at_;
  }
  friend bool operator==(const partitioned_cursor &a,
                         const partitioned_cursor<Types, !Const> &b) noexcept requires(!Const) {
    return a.native() == b.native();
  }

 private:
  template <class, class, class...>
  friend class partitioned_table;
  template <class>
  friend class partitioned_reader;
  template <class, bool>
  friend class partitioned_iterator;
  template <class, bool>
  friend class merged_records;
  template <class, bool>
  friend class partitioned_cursor;

  explicit partitioned_cursor(const inner &at) noexcept : at_(at) {}

  inner at_;
};

/**
 * One record of a partitioned table. Going on leads through the records of a
 * part as its own iterators do, then to the next part that has any. To begin,
 * and to go to another part, takes that part's lock for a moment; what is
 * walked must not be changed by other threads meanwhile.
 */
template <class Types, bool Const>
class partitioned_iterator {
  using inner = typename Types::template part_iterator<Const>;
  using part = typename Types::part;

 public:
  using reference = typename Types::template entry_type<Const>;
  using value_type = reference;
  using difference_type = std::ptrdiff_t;
  using pointer = detail::arrow<reference>;
  using iterator_concept = std::forward_iterator_tag;
  using iterator_category = std::input_iterator_tag;
  using cursor = partitioned_cursor<Types, Const>;

  /** The end of any table. */
  partitioned_iterator() noexcept = default;
  operator partitioned_iterator<Types, true>() const noexcept requires(!Const) {
    return partitioned_iterator<Types, true>(part_, last_, at_);
  }
  /** The record as a cursor. */
  operator cursor() const noexcept { return cursor(at_); }
  operator partitioned_cursor<Types, true>() const noexcept requires(!Const) {
    return partitioned_cursor<Types, true>(typename Types::template part_cursor<true>(at_));
  }

  reference operator*() const noexcept { return Types::template show<Const>(*at_); }
  pointer operator->() const noexcept { return pointer(**this); }

  partitioned_iterator &operator++() noexcept {
    ++at_;
    arrive();
    return *this;
  }
  partitioned_iterator operator++(int) noexcept {
    partitioned_iterator before = *this;
    ++*this;
    return before;
  }

  /** The node of the record, for the C interface; null for none. */
  RecordNode *native() const noexcept { return at_.native(); }

  friend bool operator==(const partitioned_iterator &a, const partitioned_iterator &b) noexcept {
    return a.at_ == b.at_;
  }
  friend bool operator==(const partitioned_iterator &a,
                         const partitioned_iterator<Types, !Const> &b) noexcept requires(!Const) {
    return a.native() == b.native();
  }
  template <bool Other>
  friend bool operator==(const partitioned_iterator &a,
                         const partitioned_cursor<Types, Other> &b) noexcept {
    return a.native() == b.native();
  }

 private:
  template <class, class, class...>
  friend class partitioned_table;
  template <class, bool>
  friend class partitioned_iterator;

  // At `at` in *part; the parts that follow end at `last`.
  partitioned_iterator(part *in, part *last, const inner &at) noexcept
      : part_(in), last_(last), at_(at) {}

  // The first record from `first` on.
  partitioned_iterator(part *first, part *last) noexcept : part_(first), last_(last) {
    if (part_ == last_) return;
    at_ = start(*part_);
    arrive();
  }

  static inner start(part &in) noexcept {
    if constexpr (Const) {
      return std::as_const(in).begin();
    } else {
      return in.begin();
    }
  }

  // Where a part has come to its end, to the next that has records.
  void arrive() noexcept {
    while (at_.native() == nullptr && part_ + 1 != last_) at_ = start(*++part_);
  }

  part *part_ = nullptr;
  part *last_ = nullptr;
  inner at_;
};

/**
 * The records of an ordered table with all parts merged: keys in the order in
 * which they first came, each with its records. Gone through once; moved, never
 * copied. Holds, for each part that has records, an iterator in a heap (48 bytes);
 * going on to another key costs log2(parts) steps in it.
 */
template <class Types, bool Const>
class merged_records {
  using inner = typename Types::template part_iterator<Const>;
  using part = typename Types::part;

 public:
  class iterator {
   public:
    using reference = typename Types::template entry_type<Const>;
    using value_type = reference;
    using difference_type = std::ptrdiff_t;
    using pointer = detail::arrow<reference>;
    using iterator_concept = std::input_iterator_tag;
    using iterator_category = std::input_iterator_tag;
    using cursor = partitioned_cursor<Types, Const>;

    iterator() noexcept = default;
    /** The record as a cursor. */
    operator cursor() const noexcept { return cursor(walk_->heads_[0].at); }

    reference operator*() const noexcept {
      return Types::template show<Const>(*walk_->heads_[0].at);
    }
    pointer operator->() const noexcept { return pointer(**this); }

    iterator &operator++() noexcept {
      walk_->advance();
      return *this;
    }
    void operator++(int) noexcept { walk_->advance(); }

    friend bool operator==(const iterator &at, std::default_sentinel_t) noexcept {
      return at.isDone();
    }

   private:
    friend merged_records;
    explicit iterator(merged_records *walk) noexcept : walk_(walk) {}
    bool isDone() const noexcept { return walk_ == nullptr || walk_->count_ == 0; }

    merged_records *walk_ = nullptr;
  };

  merged_records(merged_records &&other) noexcept
      : heads_(std::move(other.heads_)), count_(std::exchange(other.count_, 0)) {}
  merged_records &operator=(merged_records &&other) noexcept {
    heads_ = std::move(other.heads_);
    count_ = std::exchange(other.count_, 0);
    return *this;
  }
  ~merged_records() = default;

  /** Where the walk is: at first, the record whose key came first. */
  iterator begin() noexcept { return iterator(this); }
  std::default_sentinel_t end() const noexcept { return {}; }

 private:
  template <class, class, class...>
  friend class partitioned_table;

  // The next record of a part, the least stamp on top of the heap.
  struct head {
    std::uint64_t stamp;
    inner at;
  };

  merged_records() noexcept = default;

  // False when there is no memory.
  bool start(part *parts, std::size_t count) noexcept {
    if (count == 0) return true;
    heads_.reset(new (std::nothrow) head[count]);
    if (!heads_) return false;
    for (std::size_t i = 0; i < count; ++i) {
      inner at;
      if constexpr (Const) {
        at = std::as_const(parts[i]).begin();
      } else {
        at = parts[i].begin();
      }
      if (at.native() != nullptr) heads_[count_++] = {at->data.stamp, at};
    }
    for (std::size_t i = count_ / 2; i-- > 0;) sink(i);
    return true;
  }

  void advance() noexcept {
    head &top = heads_[0];
    ++top.at;
    if (top.at.native() == nullptr) {
      top = heads_[--count_];
    } else if (const std::uint64_t stamp = top.at->data.stamp; stamp != top.stamp) {
      top.stamp = stamp;
    } else {
      return;  // another record of the same key
    }
    sink(0);
  }

  void sink(std::size_t i) noexcept {
    const head sinking = heads_[i];
    for (std::size_t child; (child = 2 * i + 1) < count_; i = child) {
      if (child + 1 < count_ && heads_[child + 1].stamp < heads_[child].stamp) ++child;
      if (sinking.stamp <= heads_[child].stamp) break;
      heads_[i] = heads_[child];
    }
    heads_[i] = sinking;
  }

  std::unique_ptr<head[]> heads_;
  std::size_t count_ = 0;
};

}  // namespace morva

#endif
