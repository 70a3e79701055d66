/**
 * @file
 * Where a record is: cursors, which go through the records of one key, and
 * iterators, which go through a whole table.
 *
 *   auto at = t.find(key);            // a cursor
 *   if (at) at->data = ...;
 *   for (auto [key, data] : t) ...    // iterators
 *
 * Both stay valid until their record is removed, whatever else happens to the
 * table; morva/table.hpp says it operation by operation.
 */
#ifndef MORVA_CURSOR_HPP
#define MORVA_CURSOR_HPP

#include <cstddef>
#include <iterator>
#include <memory>
#include <new>
#include <ranges>
#include <type_traits>

#include "morva/bucket_array.h"
#include "morva/host.hpp"
#include "morva/inst.h"
#include "morva/key.hpp"
#include "morva/tree_container.h"

namespace morva {

template <class Key, class Data, class... Features>
class table;

/** A record: its key, and its data in place. */
template <class KeyView, class Data>
struct entry {
  KeyView key;
  Data &data;
};

namespace detail {

// What `it->` goes through.
template <class Entry>
class arrow {
 public:
  explicit arrow(Entry entry) noexcept : entry_(entry) {}
  const Entry *operator->() const noexcept { return std::addressof(entry_); }

 private:
  Entry entry_;
};

// A record: its node, and its data. The two are as far apart as in every
// record of the same key.
struct place {
  RecordNode *node = nullptr;
  std::byte *data = nullptr;

  friend bool operator==(const place &a, const place &b) noexcept { return a.node == b.node; }
};

inline DupLinks *links_of(const place &at) noexcept {
  return reinterpret_cast<DupLinks *>(at.data) - 1;
}

// The record whose links are these, in the chain of `near`.
inline place place_of(DupLinks *links, const place &near) noexcept {
  auto *data = reinterpret_cast<std::byte *>(links + 1);
  auto *node = data - (near.data - reinterpret_cast<std::byte *>(near.node));
  return {reinterpret_cast<RecordNode *>(node), data};
}

inline bool is_first_of_key(const place &at) noexcept {
  return links_of(at)->back->next == nullptr;
}

template <bool Duplicates>
place next_of_key(const place &at) noexcept {
  if constexpr (Duplicates) {
    DupLinks *next = links_of(at)->next;
    if (next != nullptr) return place_of(next, at);
  }
  return {};
}

// The place of the record in `node`.
template <bool Duplicates>
place place_at(const MORVAInst *inst, RecordNode *node) noexcept {
  auto *base = static_cast<std::byte *>(MORVARecordBase(node));
  const std::size_t links = Duplicates ? sizeof(DupLinks) : 0;
  return {node, base + inst->Recoff(inst, node) + links};
}

// Through the first records of all keys, bucket by bucket.
class bucket_order {
 public:
  bucket_order() noexcept = default;
  bucket_order(const MORVAInst *inst, const order_walk &) noexcept
      : inst_(inst), node_(inst->tree->first(inst->tree, MORVABucketAt(inst->buckets, 0))) {
    skip_empty();
  }

  RecordNode *node() const noexcept { return node_; }

  void advance() noexcept {
    node_ = inst_->tree->next(node_);
    skip_empty();
  }

 private:
  void skip_empty() noexcept {
    BucketArray *buckets = inst_->buckets;
    while (node_ == nullptr && bucket_ < buckets->mask) {
      Bucket *bucket = MORVABucketAt(buckets, ++bucket_);
      if (bucket->root != nullptr) node_ = inst_->tree->first(inst_->tree, bucket);
    }
  }

  const MORVAInst *inst_ = nullptr;
  std::uint32_t bucket_ = 0;
  RecordNode *node_ = nullptr;
};

// Through the first records of all keys, in insertion order.
class insertion_order {
 public:
  insertion_order() noexcept = default;
  insertion_order(const MORVAInst *inst, const order_walk &walk) noexcept
      : next_(walk.next), at_(walk.first(inst)) {}

  RecordNode *node() const noexcept {
    return at_ != nullptr ? static_cast<RecordNode *>(at_->record) : nullptr;
  }

  void advance() noexcept { at_ = next_(at_); }

 private:
  OrderNode *(*next_)(const OrderNode *node) = nullptr;
  OrderNode *at_ = nullptr;
};

// What the positions of one kind of table have in common.
template <class Key, class Data, class... Features>
struct positions {
  using traits = key_traits<Key>;
  using features = feature_set<Features...>;
  static constexpr bool duplicates = features::template has<morva::duplicates>;
  using order = std::conditional_t<features::template has<ordered>, insertion_order, bucket_order>;

  template <bool Const>
  using entry_type = entry<typename traits::view, std::conditional_t<Const, const Data, Data>>;

  template <bool Const>
  static entry_type<Const> show(const place &at) noexcept {
    return {traits::show(at.node), *std::launder(reinterpret_cast<Data *>(at.data))};
  }
};

}  // namespace detail

/**
 * One record of a key, or none. Going on leads to the next record of the same
 * key, and behind the last to none; so a cursor is its own end. A forward
 * iterator whose references are entries by value.
 */
template <class Positions, bool Const>
class basic_cursor {
 public:
  using reference = typename Positions::template entry_type<Const>;
  using value_type = reference;
  using difference_type = std::ptrdiff_t;
  using pointer = detail::arrow<reference>;
  using iterator_concept = std::forward_iterator_tag;
  using iterator_category = std::input_iterator_tag;

  /** No record. */
  basic_cursor() noexcept = default;
  /** A cursor that writes is also one that reads. */
  operator basic_cursor<Positions, true>() const noexcept requires(!Const) {
    return basic_cursor<Positions, true>(at_);
  }

  /** Whether there is a record. What follows, needs one. */
  explicit operator bool() const noexcept { return at_.node != nullptr; }

  reference operator*() const noexcept { return Positions::template show<Const>(at_); }
  pointer operator->() const noexcept { return pointer(**this); }

  basic_cursor &operator++() noexcept {
    at_ = detail::next_of_key<Positions::duplicates>(at_);
    return *this;
  }
  basic_cursor operator++(int) noexcept {
    basic_cursor before = *this;
    ++*this;
    return before;
  }

  /** The record before this one of the same key, or none. */
  basic_cursor previous() const noexcept requires(Positions::duplicates) {
    if (detail::is_first_of_key(at_)) return {};
    return basic_cursor(detail::place_of(detail::links_of(at_)->back, at_));
  }

  /** The node of the record, for the C interface; null for none. */
  RecordNode *native() const noexcept { return at_.node; }

  friend bool operator==(const basic_cursor &a, const basic_cursor &b) noexcept {
    return a.at_ == b.at_;
  }
  friend bool operator==(const basic_cursor &a, const basic_cursor<Positions, !Const> &b) noexcept
      requires(!Const) {
    return a.native() == b.native();
  }

 private:
  template <class, class, class...>
  friend class table;
  template <class>
  friend class basic_reader;
  template <class, bool>
  friend class basic_iterator;
  template <class, bool>
  friend class basic_cursor;

  explicit basic_cursor(const detail::place &at) noexcept : at_(at) {}

  detail::place at_;
};

/** The records of one key, from a cursor on: a view. */
template <class Cursor>
class records {
 public:
  records() noexcept = default;
  explicit records(Cursor first) noexcept : first_(first) {}

  Cursor begin() const noexcept { return first_; }
  Cursor end() const noexcept { return {}; }
  [[nodiscard]] bool empty() const noexcept { return !first_; }

 private:
  Cursor first_;
};

/**
 * One record of a table. Going on leads through all records of the key, then
 * to the next key: in the order of first insertion with the feature ordered,
 * else bucket by bucket. A forward iterator whose references are entries by
 * value. A table of another thread's must be locked while it is walked.
 */
template <class Positions, bool Const>
class basic_iterator {
 public:
  using reference = typename Positions::template entry_type<Const>;
  using value_type = reference;
  using difference_type = std::ptrdiff_t;
  using pointer = detail::arrow<reference>;
  using iterator_concept = std::forward_iterator_tag;
  using iterator_category = std::input_iterator_tag;
  using cursor = basic_cursor<Positions, Const>;

  /** The end of any table. */
  basic_iterator() noexcept = default;
  operator basic_iterator<Positions, true>() const noexcept requires(!Const) {
    return basic_iterator<Positions, true>(inst_, order_, at_);
  }
  /** The record as a cursor. */
  operator cursor() const noexcept { return cursor(at_); }
  operator basic_cursor<Positions, true>() const noexcept requires(!Const) {
    return basic_cursor<Positions, true>(at_);
  }

  reference operator*() const noexcept { return Positions::template show<Const>(at_); }
  pointer operator->() const noexcept { return pointer(**this); }

  basic_iterator &operator++() noexcept {
    at_ = detail::next_of_key<Positions::duplicates>(at_);
    if (at_.node == nullptr) {
      order_.advance();
      arrive();
    }
    return *this;
  }
  basic_iterator operator++(int) noexcept {
    basic_iterator before = *this;
    ++*this;
    return before;
  }

  /** The node of the record, for the C interface; null for none. */
  RecordNode *native() const noexcept { return at_.node; }

  friend bool operator==(const basic_iterator &a, const basic_iterator &b) noexcept {
    return a.at_ == b.at_;
  }
  friend bool operator==(const basic_iterator &a,
                         const basic_iterator<Positions, !Const> &b) noexcept requires(!Const) {
    return a.at_.node == b.native();
  }
  template <bool Other>
  friend bool operator==(const basic_iterator &a,
                         const basic_cursor<Positions, Other> &b) noexcept {
    return a.at_.node == b.native();
  }

 private:
  template <class, class, class...>
  friend class table;
  template <class, bool>
  friend class basic_iterator;

  using order = typename Positions::order;

  basic_iterator(const MORVAInst *inst, const order_walk &walk) noexcept
      : inst_(inst), order_(inst, walk) {
    arrive();
  }
  basic_iterator(const MORVAInst *inst, const order &come, const detail::place &at) noexcept
      : inst_(inst), order_(come), at_(at) {}

  // The first record of the key the order has come to.
  void arrive() noexcept {
    RecordNode *node = order_.node();
    if (node == nullptr) {
      at_ = {};
    } else {
      at_ = detail::place_at<Positions::duplicates>(inst_, node);
    }
  }

  const MORVAInst *inst_ = nullptr;
  order order_;
  detail::place at_;
};

}  // namespace morva

template <class Cursor>
inline constexpr bool std::ranges::enable_view<morva::records<Cursor>> = true;
template <class Cursor>
inline constexpr bool std::ranges::enable_borrowed_range<morva::records<Cursor>> = true;

#endif
