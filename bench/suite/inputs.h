// What contenders are fed: keys of three kinds, and orders to use them in. Keys
// are laid out in memory in the order of use, so that reading them costs all
// contenders little and the same.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace bench {

using Indices = std::vector<uint64_t>;

// The numbers from `first` on, shuffled. `seed` chooses the order.
Indices shuffled(uint64_t first, size_t count, uint64_t seed);

// `times` shuffled rows of the numbers from `first` to `first` + `count` - 1.
Indices shuffledRows(uint64_t first, size_t count, size_t times, uint64_t seed);

// For each of `count` places the next one, so that following them goes through
// all before it comes back (Sattolo's algorithm).
Indices oneCycle(size_t count, uint64_t seed);

// `count` rows of the numbers 0 to `different` - 1; the number k comes with a
// frequency of 1 / (k + 1) (Zipf's law). Which row has which is random.
Indices zipfRows(size_t count, size_t different, uint64_t seed);

// ---- Kinds of keys ------------------------------------------------------------
//
// Keys(indices)   the keys of these indices, in this order; different indices
//                 give different keys
// keys[i]         the key at place i
// keys.word(i)    what a record holds to lead to the key at place i
// keys.at(word)   that key
// keys.row(i, n)  n keys from place i on, where they are kept as they are

// Numbers that look random.
class NumberKeys {
 public:
  using Key = uint64_t;
  static constexpr char name[] = "u64";

  explicit NumberKeys(const Indices &indices);
  size_t size() const { return keys_.size(); }
  Key operator[](size_t place) const { return keys_[place]; }
  uint64_t word(size_t place) const { return keys_[place]; }
  Key at(uint64_t word) const { return word; }
  std::span<const Key> row(size_t place, size_t count) const {
    return std::span(keys_).subspan(place, count);
  }

 private:
  std::vector<uint64_t> keys_;
};

inline constexpr size_t kShortestText = 8;
inline constexpr size_t kLongestText = 40;

// Texts of 8 to 40 bytes as programs have them: article numbers, mail
// addresses, paths, names with a town. Each is followed by a NUL.
class TextKeys {
 public:
  using Key = std::string_view;
  static constexpr char name[] = "text";

  explicit TextKeys(const Indices &indices);
  size_t size() const { return slots_.size(); }
  Key operator[](size_t place) const { return {slots_[place].text, slots_[place].length}; }
  uint64_t word(size_t place) const { return place; }
  Key at(uint64_t word) const { return (*this)[word]; }

 private:
  struct Slot {
    char text[kLongestText + 1];
    uint8_t length;
  };
  std::vector<Slot> slots_;
};

// The index itself: for the limit, which has an array in place of a table.
enum class Index : uint64_t {};

class IndexKeys {
 public:
  using Key = Index;
  static constexpr char name[] = "index";

  explicit IndexKeys(const Indices &indices) : keys_(indices) {}
  size_t size() const { return keys_.size(); }
  Key operator[](size_t place) const { return Index{keys_[place]}; }
  uint64_t word(size_t place) const { return keys_[place]; }
  Key at(uint64_t word) const { return Index{word}; }

 private:
  Indices keys_;
};

}  // namespace bench
