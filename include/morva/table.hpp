/**
 * @file
 * The typed table: keys and data in one hash instance, with the habits of the
 * standard containers.
 *
 *   using orders = morva::table<std::uint64_t, order, morva::ordered>;
 *   auto library = morva::extension::load();
 *   auto made = orders::make(*library, {.expected = 50'000});
 *   orders &table = *made;
 *   auto stored = table.insert(17, order{...});         // result<bool>
 *   if (auto at = table.find(17)) at->data.amount += 1;
 *   for (auto [id, order] : table) ...                  // in insertion order
 *
 * With the feature `throws` the same operations answer bool, size_type and so
 * on, and throw.
 *
 * Records never move. What ends cursors, iterators and references:
 *
 *   operation                            ends those to
 *   find, contains, count, at, sum       nothing
 *   insert, insert_or_assign,            nothing; insert_or_assign writes the data
 *     find_or_insert, add_to_sum           in place
 *   erase(key)                           all records of that key
 *   erase(cursor), erase(iterator)       that record; and, where it is the first of
 *                                          several of its key, the second: its contents
 *                                          move into the first's place, so those to
 *                                          the first show what was the second
 *   clear, clear_keeping_memory          all records
 *   assigning to, or destroying a table  all records it had
 *   moving from, swapping                nothing: they follow their records
 *
 * A reader belongs to the table object, and looks up whatever records it has.
 *
 * Threads. Without the feature `locked`, as with the standard containers: any
 * number of threads may call const operations, or one any. With it, each
 * operation is one step for the others; hold a guard (lock()) while data is
 * used in place, and through several operations that belong together. To move,
 * swap, assign to or destroy a table is no such step. A reader() looks up without the lock, beside
 * other readers, while nobody changes the table.
 *
 * Cost: see morva/operations.h; lookups allocate nothing. When an operation
 * answers an error, the table is as it was before.
 */
#ifndef MORVA_TABLE_HPP
#define MORVA_TABLE_HPP

#include <atomic>
#include <cmath>
#include <concepts>
#include <cstring>
#include <functional>
#include <ranges>
#include <span>
#include <utility>

#include "morva/composed.hpp"
#include "morva/cursor.hpp"
#include "morva/extension.hpp"
#include "morva/guard.hpp"
#include "morva/key.hpp"
#include "morva/many.hpp"
#include "morva/options.hpp"
#include "morva/reader.hpp"
#include "morva/result.hpp"

namespace morva {

template <class Key, class Data, class... Features>
class partitioned_table;

/**
 * A table of records of a Key (morva/key.hpp) and a Data, with features
 * (morva/options.hpp). An empty Data takes no room: the table is a set.
 */
template <class Key, class Data, class... Features>
class table {
  using traits = detail::key_traits<Key>;
  using set = detail::feature_set<Features...>;
  using positions = detail::positions<Key, Data, Features...>;
  using answers = detail::answers<std::conditional_t<set::template has<throws>, throws, void>>;
  template <class T>
  using answer = typename answers::template type<T>;

  static constexpr bool hasOrder = set::template has<ordered>;
  static constexpr bool hasDuplicates = set::template has<duplicates>;
  static constexpr bool hasSums = set::template has<sums>;
  static constexpr bool hasLock = set::template has<locked>;
  static constexpr bool canThrow = set::template has<throws>;

  static_assert(std::is_object_v<Data> && std::is_trivially_copyable_v<Data>,
                "data is copied byte by byte: it must be a trivially copyable type");
  static_assert(!std::is_const_v<Data> && !std::is_volatile_v<Data>,
                "data can be written in place: its type is neither const nor volatile");
  static_assert(!std::is_array_v<Data>, "an array as data is a std::array");
  static_assert(alignof(Data) <= 8, "data is kept at addresses that are multiples of 8");
  static_assert(sizeof(Data) <= (1U << 28), "data has at most 256 MiB");
  static_assert(traits::bounded || !hasDuplicates,
                "text of any length cannot have duplicates: use morva::text<N>");
  static_assert(traits::bounded || !hasSums,
                "text of any length cannot have sums: use morva::text<N>");

 public:
  using key_type = Key;
  using mapped_type = Data;
  /** What operations take as a key: `const Key &`, std::string_view, or a row. */
  using key_argument = typename traits::argument;
  using reference = typename positions::template entry_type<false>;
  using const_reference = typename positions::template entry_type<true>;
  using value_type = reference;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;
  using cursor = basic_cursor<positions, false>;
  using const_cursor = basic_cursor<positions, true>;
  using iterator = basic_iterator<positions, false>;
  using const_iterator = basic_iterator<positions, true>;
  /** Looks up beside other readers, without the lock. */
  using reader_type = basic_reader<table>;

  /** What find_or_insert answers. */
  struct insertion {
    cursor position;
    bool inserted;
  };

  // ---- Making, moving, destroying -------------------------------------------------

  /**
   * Makes a table. Fails with no_memory; with unsupported for an ordered table
   * on a host without a way to walk the order; with refused when the host's
   * record packer does not take a composed key; with not_loaded for an
   * extension that was moved from.
   */
  static answer<table> make(const extension &on, const table_options &options = {}) {
    return answers::template give<table>(tryMake(on, options));
  }

  /** As make. */
  explicit table(const extension &on, const table_options &options = {}) requires(canThrow) {
    if constexpr (canThrow) *this = make(on, options);
  }

  /** No table: empty, and stays so. As after a move. */
  table() noexcept = default;

  table(table &&other) noexcept
      : on_(std::move(other.on_)),
        inst_(std::exchange(other.inst_, nullptr)),
        plain_(other.plain_),
        long_(std::move(other.long_)) {}
  table &operator=(table &&other) noexcept {
    table taken(std::move(other));
    swap(taken);
    return *this;
  }
  table(const table &) = delete;
  table &operator=(const table &) = delete;
  ~table() {
    if (inst_ != nullptr) inst_->Destroy(inst_);
  }

  void swap(table &other) noexcept {
    std::swap(on_, other.on_);
    std::swap(inst_, other.inst_);
    std::swap(plain_, other.plain_);
    std::swap(long_, other.long_);
  }
  friend void swap(table &a, table &b) noexcept { a.swap(b); }

  /** Whether there is a table: not after a move. */
  explicit operator bool() const noexcept { return inst_ != nullptr; }

  // ---- Size ---------------------------------------------------------------------------

  /** Records, those of one key counted each. */
  size_type size() const noexcept { return inst_ != nullptr ? inst_->NumElements(inst_) : 0; }
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  static constexpr size_type max_size() noexcept { return UINT32_MAX; }
  size_type bucket_count() const noexcept { return inst_ != nullptr ? inst_->HashSize(inst_) : 0; }
  /** Bytes of record blocks taken since the last clear(); 0 for text of any length. */
  std::uint64_t memory() const noexcept { return inst_ != nullptr ? inst_->TotalMem(inst_) : 0; }

  // ---- Storing ----------------------------------------------------------------------

  /**
   * Stores a record. True when it was stored; false when the key is there
   * already and nothing was stored, which with `duplicates` does not happen:
   * the record becomes the last of its key. Fails with no_memory, key_too_long,
   * no_table, refused.
   */
  answer<bool> insert(key_argument key, const Data &data = Data()) {
    const guard hold(own());
    return answers::template give<bool>(store(&MORVAInst::Add, key, data));
  }

  /**
   * Stores a record, or writes the data of all records the key has. True when
   * it was stored. With `sums` the first record's sum begins anew. Fails as
   * insert; on an embedded host without locked trees records that are there need
   * no memory.
   */
  answer<bool> insert_or_assign(key_argument key, const Data &data) {
    const guard hold(own());
    if (plain_ && mayHave(key)) {
      if (RecordNode *node = nodeWith(key)) {
        overwrite(placeOf(node), data);
        return answers::template give<bool>(false);
      }
    }
    const size_type before = size();
    result<bool> stored = store(&MORVAInst::Replace, key, data);
    if (stored) stored = size() != before;
    return answers::template give<bool>(stored);
  }

  /** The first record of the key, stored with `data` when there was none. Fails as insert. */
  answer<insertion> find_or_insert(key_argument key, const Data &data = Data()) {
    const guard hold(own());
    return answers::template give<insertion>(findOrStore(key, data));
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
   * Inserts pairs of a key and data. Answers how many were stored. One step for
   * other threads. Fails as insert; what was stored before the failure stays.
   */
  template <std::ranges::input_range Pairs>
  answer<size_type> insert_range(Pairs &&pairs) {
    const guard hold(own());
    size_type count = 0;
    for (auto &&[key, data] : pairs) {
      const result<bool> stored = store(&MORVAInst::Add, key, data);
      if (!stored) return answers::template give<size_type>(stored.error());
      if (*stored) ++count;
    }
    return answers::template give<size_type>(count);
  }

  // ---- Finding ----------------------------------------------------------------------

  /** The first record of the key, or none (end()). */
  cursor find(key_argument key) noexcept { return cursor(findKey(key)); }
  const_cursor find(key_argument key) const noexcept { return const_cursor(findKey(key)); }

  bool contains(key_argument key) const noexcept { return findKey(key).node != nullptr; }

  /** How many records the key has. */
  size_type count(key_argument key) const noexcept {
    const guard hold(own());
    return countFrom(locate(key));
  }

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

  /**
   * All records; see basic_iterator for the order. In bucket order the first
   * record is looked for from the first bucket on.
   */
  iterator begin() noexcept { return start<iterator>(); }
  const_iterator begin() const noexcept { return start<const_iterator>(); }
  const_iterator cbegin() const noexcept { return begin(); }
  iterator end() noexcept { return {}; }
  const_iterator end() const noexcept { return {}; }
  const_iterator cend() const noexcept { return {}; }

  // ---- Many keys at a time ---------------------------------------------------------
  //
  // Each does what the operation on one key does, for all keys in turn, with the
  // same results and the same table at the end; for other threads it is one
  // step. The records are looked for side by side beforehand, so that a large
  // table answers several times sooner. Keys lie in a random-access range, as
  // objects of the key's type, or for text as anything that shows as a
  // std::string_view. Where there is too little room for the answers, or not as
  // much data as keys, the operation fails with refused and does nothing.

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
    return answers::template give<size_type>(findMany(keys, there));
  }

  /**
   * insert of each key with the data at its place; answers how many were
   * stored, and says in `stored`, unless that is empty, which. Fails as insert;
   * what was stored before the failure stays.
   */
  template <detail::keys_in_a_row<key_argument> Keys, detail::values_in_a_row<Data> Values>
  answer<size_type> insert_many(Keys &&keys, Values &&data, std::span<bool> stored = {}) {
    return answers::template give<size_type>(insertMany(keys, data, stored));
  }

  /** erase of each key; answers how many records went. Fails as erase; what went stays so. */
  template <detail::keys_in_a_row<key_argument> Keys>
  answer<size_type> erase_many(Keys &&keys) {
    return answers::template give<size_type>(eraseMany(keys));
  }

  /**
   * add_to_sum of each key with the amount at its place; answers how many. Fails
   * as add_to_sum; what was added before the failure stays.
   */
  template <detail::keys_in_a_row<key_argument> Keys, detail::values_in_a_row<double> Amounts>
  answer<size_type> add_to_sum_many(Keys &&keys, Amounts &&amounts) requires(hasSums) {
    return answers::template give<size_type>(addMany(keys, amounts, nullptr));
  }
  /** The same; keys that are not there are stored with `data`. */
  template <detail::keys_in_a_row<key_argument> Keys, detail::values_in_a_row<double> Amounts>
  answer<size_type> add_to_sum_many(Keys &&keys, Amounts &&amounts,
                                    const Data &data) requires(hasSums) {
    return answers::template give<size_type>(addMany(keys, amounts, std::addressof(data)));
  }

  // ---- Sums: tables with the feature sums ----------------------------------------------

  /** The sum of the key's first record; 0.0 when there is none. Begins at 0.0. */
  double sum(key_argument key) const noexcept requires(hasSums) {
    const guard hold(own());
    return sumAt(locate(key));
  }
  /** The sum of a record; 0.0 for none. */
  double sum(const_cursor record) const noexcept requires(hasSums) {
    const guard hold(own());
    return sumAt(record.at_);
  }

  /**
   * Adds to the sum of the key's first record, and answers the new sum. Fails
   * with not_found, and with not_a_number where the amount or the sum would be
   * a NaN.
   */
  answer<double> add_to_sum(key_argument key, double amount) requires(hasSums) {
    const guard hold(own());
    return answers::template give<double>(addAt(locate(key), amount, errc::not_found));
  }
  /** Adds to the sum of a record; fails with no_record for none. */
  answer<double> add_to_sum(cursor record, double amount) requires(hasSums) {
    const guard hold(own());
    return answers::template give<double>(addAt(record.at_, amount, errc::no_record));
  }
  /**
   * Adds to the sum of the key's first record, which is stored with `data`
   * when there is none: what grouping needs. Fails as insert and add_to_sum.
   */
  answer<double> add_to_sum(key_argument key, double amount, const Data &data) requires(hasSums) {
    const guard hold(own());
    return answers::template give<double>(storeAndAdd(key, amount, data));
  }

  // ---- Removing ----------------------------------------------------------------------

  /** Removes all records of the key; answers how many. Fails with no_memory and pinned. */
  answer<size_type> erase(key_argument key) {
    const guard hold(own());
    return answers::template give<size_type>(removeKey(key));
  }

  /**
   * Removes one record; answers the next of its key, or none. Fails with
   * no_record for none, no_memory and pinned.
   */
  answer<cursor> erase(cursor record) {
    const guard hold(own());
    const detail::place next = following(record.at_);
    const result<void> done = removeOne(record.at_);
    if (!done) return answers::template give<cursor>(done.error());
    return answers::template give<cursor>(cursor(next));
  }

  answer<cursor> erase(const_cursor record) { return erase(cursor(record.at_)); }

  /** Removes one record; answers the next of the table. Fails as erase of a cursor. */
  answer<iterator> erase(const_iterator record) {
    return erase(iterator(record.inst_, record.order_, record.at_));
  }
  answer<iterator> erase(iterator record) {
    const guard hold(own());
    iterator next = record;
    // Where the next record of the key moves into this place, this is the next.
    if (record != end() && !(following(record.at_) == record.at_)) ++next;
    const result<void> done = removeOne(record.at_);
    if (!done) return answers::template give<iterator>(done.error());
    return answers::template give<iterator>(next);
  }

  /** Removes all records, and gives their memory back to the host. */
  void clear() noexcept {
    if (inst_ == nullptr) return;
    const guard hold(own());
    inst_->Clear(inst_);
    if constexpr (!traits::bounded) long_->release();
  }
  /** Removes all records, and keeps their memory for new ones. */
  void clear_keeping_memory() noexcept {
    if (inst_ != nullptr) inst_->Clear2(inst_);
  }

  // ---- Threads -------------------------------------------------------------------------

  /**
   * Holds the table's lock while the guard lives. A thread may lock again what
   * it holds, and gives each guard back itself. Two threads that hold the
   * guards of two tables and compare the tables may wait for each other.
   */
  guard lock() const noexcept requires(hasLock) { return guard(own()); }

  /** A reader for the calling thread; see basic_reader. It goes before the table does. */
  reader_type reader() const noexcept { return reader_type(*this); }

  // ---- Comparing, and the C interface ----------------------------------------------------

  /**
   * Whether the tables hold the same keys, with equal data (and sums) in the
   * same order under each. How they were made, and the order of the keys, does
   * not count.
   */
  friend bool operator==(const table &a, const table &b) requires(std::equality_comparable<Data> ||
                                                                  std::is_empty_v<Data>) {
    if (&a == &b) return true;
    // One order for both, so that two threads cannot wait for each other.
    const bool inOrder = std::less<>{}(&a, &b);
    const guard first((inOrder ? a : b).own());
    const guard second((inOrder ? b : a).own());
    return a.equals(b);
  }

  /**
   * The instance, for the C interface; null after a move. It stays the table's.
   * A sum increment set through it counts lookups as well.
   */
  MORVAInst *native() const noexcept { return inst_; }

 private:
  friend reader_type;
  template <class OtherKey, class OtherData, class... OtherFeatures>
  friend class partitioned_table;
  template <class Table>
  friend class detail::side_by_side;
  template <class Table, class Keys, class Use>
  friend void detail::with_lookahead(bool, const Table &, Keys &, detail::needed, Use);
  using place = detail::place;
  using needed = detail::needed;
  using operation = MORVAStatus (*MORVAInst::*)(MORVAInst *, const void *, const void *,
                                                std::int32_t);
  struct nothing {};
  using long_keys =
      std::conditional_t<traits::bounded, nothing, std::unique_ptr<detail::long_keys>>;

  table(extension::state_hold on, MORVAInst *inst, long_keys longKeys) noexcept
      : on_(std::move(on)),
        inst_(inst),
        plain_(on_->host->plain_trees),
        long_(std::move(longKeys)) {}

  static result<table> tryMake(const extension &on, const table_options &options) {
    if (!on.state_) return errc::not_loaded;
    if (hasOrder && on.state_->host->walk.first == nullptr) return errc::unsupported;
    long_keys longKeys{};
    if constexpr (!traits::bounded) {
      longKeys.reset(new (std::nothrow) detail::long_keys);
      if (!longKeys) return errc::no_memory;
    }
    MORVAParms parms{};
    parms.dataLength = dataLength;
    parms.keyLength = traits::length;
    parms.flags = traits::flags | set::flags;
    parms.hashMethod = static_cast<std::int32_t>(
        options.hash == hash_method::automatic ? traits::hash : options.hash);
    parms.hashExp = detail::hash_exp_for(options.expected);
    parms.memHint = options.memory_hint;
    MORVAExt *ext = on.native();
    MORVAInst *inst = ext->Create(ext, &parms, nullptr, options.name);
    if (inst == nullptr) return errc::no_memory;
    table made(on.state_, inst, std::move(longKeys));
    const MORVAStatus status = traits::define(inst, dataLength);
    if (status != MORVA_OK) return static_cast<errc>(status);
    return made;
  }

  static constexpr std::uint32_t dataLength = std::is_empty_v<Data> ? 0 : sizeof(Data);

  // What a guard for the table's lock is made of.
  HostLock *own() const noexcept { return hasLock && inst_ != nullptr ? inst_->lock : nullptr; }

  // ---- finding; findKey and start take the lock, for the others it is held ----

  place findKey(key_argument key) const noexcept {
    const guard hold(own());
    return locate(key);
  }

  place locate(key_argument key) const noexcept {
    if (!mayHave(key)) return {};
    return plain_ ? walkTo(key) : findRaw(traits::raw(key));
  }

  // Where not, the key is not even read.
  bool mayHave(key_argument key) const noexcept {
    if (inst_ == nullptr || !traits::fits(key)) return false;
    if constexpr (!traits::bounded) {
      return key.size() <= traits::on_stack || key.size() <= long_->longest();
    }
    return true;
  }

  // What MORVAFind2 does, here and now.
  place walkTo(key_argument key) const noexcept {
    RecordNode *node = nodeWith(key);
    return node != nullptr ? reached(node) : place{};
  }

  // The node of the key's first record, or null: nothing is called for most keys.
  RecordNode *nodeWith(key_argument key) const noexcept {
    typename traits::image_room room;
    const auto image = traits::make_image(inst_, key, room);
    const Bucket *bucket = MORVABucketAt(inst_->buckets, bucketOf(image));
    return detail::search(bucket->root, traits::order(image));
  }

  std::uint32_t bucketOf(const typename traits::image &image) const noexcept {
    return detail::hash_image<traits::hash>(inst_->hashMethod, image.bytes, image.length) &
           inst_->buckets->mask;
  }

  // From a node to the data of its record, whose key has `length` bytes.
  std::size_t distanceToData(std::size_t length) const noexcept {
    const std::size_t links = hasDuplicates ? sizeof(DupLinks) : 0;
    const std::size_t offset =
        traits::bounded ? inst_->dataOffset : detail::var_data_offset(length);
    return sizeof(RecordNode) + offset + links;
  }

  // From a node to the end of what a lookup, or who looks at its data, reads first.
  std::size_t reachOf(std::size_t length) const noexcept {
    return distanceToData(length) + (dataLength != 0);
  }

  DupLinks *linksOf(RecordNode *node) const noexcept requires(hasDuplicates) {
    return detail::links_of(placeOf(node));
  }
  const RecordNode *nodeOf(const DupLinks *links) const noexcept requires(hasDuplicates) {
    return reinterpret_cast<const RecordNode *>(reinterpret_cast<const std::byte *>(links + 1) -
                                                distanceToData(0));
  }

  place placeOf(RecordNode *node) const noexcept {
    const std::size_t length = traits::bounded ? 0 : detail::prefix_of(node)->length;
    return {node, reinterpret_cast<std::byte *>(node) + distanceToData(length)};
  }

  // A record that a lookup has reached, which counts where the increment is not 0.
  place reached(RecordNode *node) const noexcept {
    const place at = placeOf(node);
    if constexpr (hasSums) {
      if (const double increment = sumIncrement(); increment != 0.0) *sumOf(at) += increment;
    }
    return at;
  }

  double sumIncrement() const noexcept {
    return std::atomic_ref(inst_->sumIncrement).load(std::memory_order_relaxed);
  }

  // What MORVAReplace does to the records of a key, of which this is the first.
  // The data may be one of theirs.
  void overwrite(const place &first, const Data &data) const noexcept {
    if constexpr (!std::is_empty_v<Data>) {
      std::memmove(first.data, std::addressof(data), sizeof data);
      place at = detail::next_of_key<hasDuplicates>(first);
      for (; at.node != nullptr; at = detail::next_of_key<hasDuplicates>(at)) {
        std::memcpy(at.data, first.data, sizeof data);
      }
    }
    if constexpr (hasSums) *sumOf(first) = sumIncrement();
  }

  place findRaw(detail::raw_key key) const noexcept {
    return withProbe(key, [&](RecordNode *probe) { return look(key, probe); });
  }

  // Calls back with a probe that has room for the image of `key`; with a key
  // that no record can have, answers nothing.
  template <class Use>
  auto withProbe(detail::raw_key key, Use use) const noexcept {
    if constexpr (!traits::bounded) {
      const auto length = static_cast<std::size_t>(key.length);
      if (length > traits::on_stack) {
        using answered = decltype(use(nullptr));
        return length > long_->longest() ? answered{} : long_->with_probe(use);
      }
    }
    typename traits::probe room;
    return use(&room.node);
  }

  // The first record of a key, by way of the caller's probe.
  place look(detail::raw_key key, RecordNode *probe) const noexcept {
    void *data = nullptr;
    inst_->Find2(inst_, key.bytes, key.length, probe, &data);
    if (data == nullptr) return {};
    // From a record's node to its data; with keys of any length it is the
    // probe's that tells, which has the same key.
    constexpr std::size_t links = hasDuplicates ? sizeof(DupLinks) : 0;
    const std::size_t offset = traits::bounded ? inst_->dataOffset : inst_->Recoff(inst_, probe);
    const std::size_t ahead = sizeof(RecordNode) + offset + links;
    auto *bytes = static_cast<std::byte *>(data);
    return {reinterpret_cast<RecordNode *>(bytes - ahead), bytes};
  }

  template <class Keys, class Answer>
  result<size_type> findMany(Keys &keys, std::span<Answer> answered) const noexcept {
    if (answered.size() < static_cast<size_type>(std::ranges::size(keys))) return errc::refused;
    const guard hold(own());
    size_type count = 0;
    const auto tell = [&](size_type i, place at) {
      if constexpr (std::same_as<Answer, bool>) {
        answered[i] = at.node != nullptr;
      } else {
        answered[i] = Answer(at);
      }
      count += at.node != nullptr;
      return true;
    };
    if (plain_) {
      constexpr auto records = std::same_as<Answer, bool> ? needed::first : needed::all;
      detail::with_lookahead(true, *this, keys, records, [&](size_type i, RecordNode *node) {
        return tell(i, node != nullptr ? reached(node) : place{});
      });
    } else {
      size_type i = 0;
      for (auto &&key : keys) tell(i++, locate(key));
    }
    return count;
  }

  // Has what there is of the keys near, for operations that follow; the lock is held.
  template <class Keys>
  void fetchMany(Keys &&keys) const noexcept {
    if (!paysAhead()) return;
    detail::with_lookahead(true, *this, keys, needed::last,
                           [](size_type, RecordNode *) { return true; });
  }

  // Whether operations that search by themselves are sped up by a search ahead of
  // them: not in a table that a processor has close by.
  bool paysAhead() const noexcept {
    constexpr std::uint64_t near = 256 << 10;
    if (!plain_ || inst_ == nullptr) return false;
    const BucketArray *buckets = inst_->buckets;
    const std::uint64_t size = buckets->mask * std::uint64_t{sizeof(Bucket)} +
                               buckets->elementCount * std::uint64_t{inst_->recordSize};
    return size > near;
  }

  template <class Keys, class Values>
  result<size_type> insertMany(Keys &keys, Values &data, std::span<bool> stored) {
    const auto wanted = static_cast<size_type>(std::ranges::size(keys));
    if (static_cast<size_type>(std::ranges::size(data)) != wanted ||
        (!stored.empty() && stored.size() < wanted))
      return errc::refused;
    auto datum = std::ranges::begin(data);
    return changeMany(keys, needed::last,
                      [&](size_type i, key_argument key, RecordNode *) -> result<size_type> {
                        const Data &each = *datum++;
                        const result<bool> done = store(&MORVAInst::Add, key, each);
                        if (!done) return done.error();
                        if (!stored.empty()) stored[i] = *done;
                        return *done ? 1 : 0;
                      });
  }

  template <class Keys>
  result<size_type> eraseMany(Keys &keys) {
    return changeMany(keys, needed::all,
                      [&](size_type, key_argument key, RecordNode *) { return removeKey(key); });
  }

  // Keys that are not there are stored with `data`, if it is given.
  template <class Keys, class Amounts>
  result<size_type> addMany(Keys &keys, Amounts &amounts, const Data *data) {
    if (static_cast<size_type>(std::ranges::size(amounts)) !=
        static_cast<size_type>(std::ranges::size(keys))) {
      return errc::refused;
    }
    auto next = std::ranges::begin(amounts);
    const auto add = [&](size_type, key_argument key, RecordNode *node) -> result<size_type> {
      const double amount = *next++;
      if (data != nullptr && std::isnan(amount)) return errc::not_a_number;
      // What was not there when it was looked for may have come since.
      const result<double> sum = node != nullptr   ? addAt(reached(node), amount, errc::not_found)
                                 : data != nullptr ? storeAndAdd(key, amount, *data)
                                                   : addAt(locate(key), amount, errc::not_found);
      if (!sum) return sum.error();
      return 1;
    };
    return changeMany(keys, needed::first, add);
  }

  // Adds up what change(i, key, node) answers for all keys, until one fails.
  template <class Keys, class Change>
  result<size_type> changeMany(Keys &keys, needed records, Change change) {
    const guard hold(own());
    result<size_type> count = size_type{0};
    auto key = std::ranges::begin(keys);
    detail::with_lookahead(paysAhead(), *this, keys, records, [&](size_type i, RecordNode *node) {
      const result<size_type> done = change(i, *key++, node);
      count = done ? result<size_type>(*count + *done) : done;
      return static_cast<bool>(count);
    });
    return count;
  }

  static size_type countFrom(place at) noexcept {
    size_type count = 0;
    for (; at.node != nullptr; at = detail::next_of_key<hasDuplicates>(at)) ++count;
    return count;
  }

  template <class Iterator>
  Iterator start() const noexcept {
    if (inst_ == nullptr) return {};
    const guard hold(own());
    if (empty()) return {};
    return Iterator(inst_, on_->host->walk);
  }

  // ---- storing; the lock is held ----

  // True when stored, false when the key was there.
  result<bool> store(operation how, key_argument key, const Data &data) {
    if (inst_ == nullptr) return errc::no_table;
    if (!traits::fits(key)) return errc::key_too_long;
    const detail::raw_key raw = traits::raw(key);
    if constexpr (!traits::bounded) {
      const auto length = static_cast<std::size_t>(raw.length);
      if (length > traits::on_stack && !long_->reserve(length)) return errc::no_memory;
    }
    if (hasOrder && needsOrderBlock()) return storeCarefully(how, raw, data);
    return told((inst_->*how)(inst_, std::addressof(data), raw.bytes, raw.length));
  }

  static result<bool> told(MORVAStatus status) {
    if (status == MORVA_OK) return true;
    if (status == MORVA_PRESENT) return false;
    return static_cast<errc>(status);
  }

  // Whether the next new key takes a block of order nodes from the host.
  bool needsOrderBlock() const noexcept {
    return inst_->freeInodes == nullptr && inst_->inodesUsed >= inst_->inodeBlockCapacity;
  }

  // Whether the host has the memory that a block of order nodes may take.
  bool hasOrderBlock() const noexcept {
    constexpr std::uint64_t kHead = 16;
    const auto slots = 2 * static_cast<std::uint64_t>(inst_->inodeBlockCapacity);
    HostPool *pool = inst_->inodePool;
    void *block = pool->allocate(pool, kHead + slots * sizeof(OrderNode), 0);
    if (block == nullptr) return false;
    pool->free(pool, block);
    return true;
  }

  // Where the order node cannot be had, the library leaves the new record in
  // its tree, uncounted and without data. So the memory for it is asked for
  // first. When it has gone since, to another table of the host, the record is
  // taken out again, its node left unused until the table is cleared.
  result<bool> storeCarefully(operation how, detail::raw_key key, const Data &data) {
    std::uint32_t bucket = 0;
    const MORVAStatus ready = inst_->HashVal(inst_, key.bytes, key.length, &bucket);
    if (ready != MORVA_OK) return static_cast<errc>(ready);
    const bool wasThere = findRaw(key).node != nullptr;
    if (!wasThere && !hasOrderBlock()) return errc::no_memory;
    const MORVAStatus status = (inst_->*how)(inst_, std::addressof(data), key.bytes, key.length);
    if (status == MORVA_NO_MEMORY && !wasThere) {
      withProbe(key, [&](RecordNode *probe) {
        if (look(key, probe).node == nullptr) return false;
        RecordNode *node =
            inst_->tree->remove(inst_->tree, MORVABucketAt(inst_->buckets, bucket), probe);
        if (!traits::bounded) inst_->varkeyPool->free(inst_->varkeyPool, node);
        return true;
      });
    }
    return told(status);
  }

  result<insertion> findOrStore(key_argument key, const Data &data) {
    const place found = locate(key);
    if (found.node != nullptr) return insertion{cursor(found), false};
    const result<bool> stored = store(&MORVAInst::Add, key, data);
    if (!stored) return stored.error();
    return insertion{cursor(locate(key)), *stored};
  }

  // ---- summing; the lock is held ----

  double *sumOf(const place &at) const noexcept {
    auto *base = static_cast<std::byte *>(MORVARecordBase(at.node));
    return reinterpret_cast<double *>(base + inst_->sumOffset);
  }

  double sumAt(const place &at) const noexcept { return at.node != nullptr ? *sumOf(at) : 0.0; }

  result<double> addAt(const place &at, double amount, errc none) {
    if (std::isnan(amount)) return errc::not_a_number;
    if (at.node == nullptr) return none;
    const double sum = *sumOf(at) + amount;
    if (std::isnan(sum)) return errc::not_a_number;  // infinities of both signs
    return *sumOf(at) = sum;
  }

  result<double> storeAndAdd(key_argument key, double amount, const Data &data) {
    if (std::isnan(amount)) return errc::not_a_number;
    const result<insertion> found = findOrStore(key, data);
    if (!found) return found.error();
    return addAt(found->position.at_, amount, errc::not_found);
  }

  // ---- removing; the lock is held ----

  // The place of the record that comes after the one at `at` once that is gone.
  static place following(const place &at) noexcept {
    if (at.node == nullptr) return {};
    const place next = detail::next_of_key<hasDuplicates>(at);
    if constexpr (hasDuplicates) {
      if (next.node != nullptr && detail::is_first_of_key(at)) return at;
    }
    return next;
  }

  result<size_type> removeKey(key_argument key) {
    if (inst_ == nullptr) return errc::no_table;
    size_type count = 1;
    // The records of a key can be counted beforehand only; an absent key of any
    // length would be given a node of its own; and a host's order list may not
    // know a record, which answers the same as an absent key.
    if constexpr (hasDuplicates || hasOrder || !traits::bounded) count = countFrom(locate(key));
    if (count == 0 || !traits::fits(key)) return size_type{0};
    const detail::raw_key raw = traits::raw(key);
    const MORVAStatus status = inst_->Remove(inst_, raw.bytes, raw.length);
    if (status == MORVA_OK) return count;
    if (status == MORVA_INVALID && !hasOrder) return size_type{0};  // it was not there
    // Whether there was something to remove shows without memory.
    if (status == MORVA_NO_MEMORY && locate(key).node == nullptr) return size_type{0};
    return static_cast<errc>(status);
  }

  result<void> removeOne(const place &at) {
    if (inst_ == nullptr) return errc::no_table;
    if (at.node == nullptr) return errc::no_record;
    const MORVAStatus status = traits::with_stored(at.node, [&](detail::raw_key key) {
      if constexpr (!hasDuplicates) return inst_->Remove(inst_, key.bytes, key.length);
      void *word = at.data;
      return inst_->RemoveDup(inst_, &word, key.bytes, key.length);
    });
    if (status != MORVA_OK) return static_cast<errc>(status);
    return {};
  }

  // ---- comparing; both locks are held ----

  bool equals(const table &other) const {
    if (size() != other.size()) return false;
    for (auto at = begin(); at != end(); ++at) {
      if (hasDuplicates && !detail::is_first_of_key(at.at_)) continue;
      const place theirs = traits::with_stored(
          at.at_.node, [&](detail::raw_key key) { return other.findStored(key); });
      if (!equalRecords(at.at_, other, theirs)) return false;
    }
    return true;
  }

  // As findRaw, for a key that need not fit: another table's.
  place findStored(detail::raw_key key) const noexcept {
    return inst_ != nullptr ? findRaw(key) : place{};
  }

  bool equalRecords(place ours, const table &other, place theirs) const {
    while (ours.node != nullptr && theirs.node != nullptr) {
      if constexpr (!std::is_empty_v<Data>) {
        if (!(const_cursor(ours)->data == const_cursor(theirs)->data)) return false;
      }
      if constexpr (hasSums) {
        if (sumAt(ours) != other.sumAt(theirs)) return false;
      }
      ours = detail::next_of_key<hasDuplicates>(ours);
      theirs = detail::next_of_key<hasDuplicates>(theirs);
    }
    return ours.node == theirs.node;
  }

  extension::state_hold on_;
  MORVAInst *inst_ = nullptr;
  // Whether lookups may walk the trees themselves.
  bool plain_ = false;
  [[no_unique_address]] long_keys long_{};
};

/**
 * Removes the records for which `condition` answers true; answers how many.
 * One step for other threads. Fails as table::erase; what went before the
 * failure is gone.
 */
template <class Key, class Data, class... Features, class Condition>
auto erase_if(table<Key, Data, Features...> &from, Condition condition)
    -> decltype(from.erase(std::declval<typename table<Key, Data, Features...>::key_argument>())) {
  const guard hold(detail::feature_set<Features...>::template has<locked> && from
                       ? from.native()->lock
                       : nullptr);
  std::size_t count = 0;
  for (auto at = from.begin(); at != from.end();) {
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
  return count;
}

}  // namespace morva

#endif
