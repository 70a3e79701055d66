/**
 * @file
 * Looking up without the lock.
 */
#ifndef MORVA_READER_HPP
#define MORVA_READER_HPP

#include <memory>
#include <new>
#include <utility>

#include "morva/cursor.hpp"
#include "morva/guard.hpp"
#include "morva/key.hpp"

namespace morva {

/**
 * Looks up records in a table that nobody changes, without its lock and
 * without touching anything that threads share; each thread has a reader of
 * its own. Made by table::reader(), which is an operation like others. It
 * belongs to the table object, not to the records, and goes before it does.
 *
 * A table may be changed between the uses of its readers, as long as the
 * program sees to it that no reader is used meanwhile. On a host with
 * locked_trees a lookup shares the lock of the bucket's tree.
 */
template <class Table>
class basic_reader {
 public:
  using key_argument = typename Table::key_argument;
  using cursor = typename Table::const_cursor;

  basic_reader(basic_reader &&) noexcept = default;
  basic_reader &operator=(basic_reader &&) noexcept = default;
  basic_reader(const basic_reader &) = delete;
  basic_reader &operator=(const basic_reader &) = delete;

  /** The first record of the key, or none. */
  cursor find(key_argument key) noexcept { return cursor(look(key)); }

  bool contains(key_argument key) noexcept { return look(key).node != nullptr; }

  /** The sum of the key's first record; 0.0 when there is none. */
  double sum(key_argument key) noexcept requires(Table::hasSums) {
    return table_->sumAt(look(key));
  }

 private:
  friend Table;
  using traits = typename Table::traits;

  explicit basic_reader(const Table &table) noexcept : table_(&table) {
    // Where the table walks its trees itself, no image is built.
    if constexpr (!traits::bounded) {
      if (table.plain_) return;
      const guard hold(table.own());
      if (table.inst_ != nullptr && table.long_->longest() > traits::on_stack) grow();
    }
  }

  // Makes room for the longest key the table has. Without memory the reader
  // goes on as it is.
  void grow() noexcept {
    const std::size_t longest = table_->long_->longest();
    const std::size_t size = sizeof(RecordNode) + sizeof(KeyPrefix) + longest;
    std::unique_ptr<std::byte[]> room(new (std::nothrow) std::byte[size]);
    if (!room) return;
    room_ = std::move(room);
    longest_ = longest;
  }

  detail::place look(key_argument key) noexcept {
    if (!table_->mayHave(key)) return {};
    if (table_->plain_) return table_->walkTo(key);
    const detail::raw_key raw = traits::raw(key);
    if constexpr (!traits::bounded) {
      const auto length = static_cast<std::size_t>(raw.length);
      if (length > traits::on_stack) {
        if (length > longest_) grow();
        // Without room of its own for so long a key it takes turns for the table's.
        if (length <= longest_) {
          return table_->look(raw, reinterpret_cast<RecordNode *>(room_.get()));
        }
      }
    }
    return table_->findRaw(raw);
  }

  const Table *table_;
  // For keys that are too long for the stack.
  std::size_t longest_ = 0;
  std::unique_ptr<std::byte[]> room_;
};

}  // namespace morva

#endif
