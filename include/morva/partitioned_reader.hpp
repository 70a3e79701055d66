/**
 * @file
 * Looking up in a partitioned table without its locks.
 */
#ifndef MORVA_PARTITIONED_READER_HPP
#define MORVA_PARTITIONED_READER_HPP

#include <cstddef>
#include <memory>
#include <new>
#include <optional>

#include "morva/partitioned_cursor.hpp"
#include "morva/reader.hpp"

namespace morva {

/**
 * Looks up records in a partitioned table that nobody changes, without the
 * locks of its parts; each thread has a reader of its own. As basic_reader, it
 * belongs to the table object and goes before it does. Only on a host of one's
 * own, and on one with locked_trees, the first lookup in a part of a table of text
 * of any length takes that part's lock for a moment.
 */
template <class Table>
class partitioned_reader {
 public:
  using key_argument = typename Table::key_argument;
  using cursor = typename Table::const_cursor;

  partitioned_reader(partitioned_reader &&) noexcept = default;
  partitioned_reader &operator=(partitioned_reader &&) noexcept = default;
  partitioned_reader(const partitioned_reader &) = delete;
  partitioned_reader &operator=(const partitioned_reader &) = delete;

  /** The first record of the key, or none. */
  cursor find(key_argument key) noexcept {
    return with_reader(key, [&](auto &in) { return cursor(in.find(key)); });
  }

  bool contains(key_argument key) noexcept {
    return with_reader(key, [&](auto &in) { return in.contains(key); });
  }

  /** The sum of the key's first record; 0.0 when there is none. */
  double sum(key_argument key) noexcept requires(Table::hasSums) {
    return with_reader(key, [&]([[maybe_unused]] auto &in) {
      if constexpr (Table::hasSums) {
        return in.sum(key);
      } else {
        return 0.0;
      }
    });
  }

 private:
  friend Table;
  using part = typename Table::part_type;
  using part_reader = typename part::reader_type;
  static constexpr bool bounded = Table::traits::bounded;

  explicit partitioned_reader(const Table &table) noexcept : table_(&table) {}

  // Calls back with a reader of the key's part. Keys of bounded length need
  // nothing that would be worth keeping; for others the reader has room for the
  // longest.
  template <class Use>
  auto with_reader(key_argument key, Use use) noexcept {
    const part &home = table_->homeOf(key);
    if constexpr (!bounded) {
      if (std::optional<part_reader> *kept = slot(home)) {
        if (!*kept) kept->emplace(home.reader());
        return use(**kept);
      }
    }
    part_reader passing = home.reader();
    return use(passing);
  }

  // Where the reader of a part is kept; null when there is no memory for it. The
  // table object may have got other parts since.
  std::optional<part_reader> *slot(const part &home) noexcept {
    const part *parts = table_->parts_.get();
    if (parts == nullptr) return nullptr;
    if (parts != parts_ || table_->parts() != count_ || !readers_) {
      parts_ = parts;
      count_ = table_->parts();
      readers_.reset(new (std::nothrow) std::optional<part_reader>[count_]);
    }
    return readers_ ? &readers_[static_cast<std::size_t>(&home - parts)] : nullptr;
  }

  const Table *table_;
  const part *parts_ = nullptr;
  std::size_t count_ = 0;
  std::unique_ptr<std::optional<part_reader>[]> readers_;
};

}  // namespace morva

#endif
