/**
 * @file
 * What a table can do, chosen by type, and how it is sized, chosen when it is
 * made.
 *
 *   morva::table<std::uint64_t, order, morva::ordered, morva::sums>
 *
 *   feature     the table then
 *   ordered     keeps the keys in the order of their first insertion, and walks in it
 *   duplicates  keeps several records per key
 *   sums        carries a running sum in every record
 *   locked      has a lock, and may be used from several threads
 *   throws      answers values and throws (morva/throws.hpp) instead of answering results
 */
#ifndef MORVA_OPTIONS_HPP
#define MORVA_OPTIONS_HPP

#include <bit>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "morva/flags.h"
#include "morva/result.hpp"

namespace morva {

struct ordered {};
struct duplicates {};
struct sums {};
struct locked {};
/** Defined in morva/throws.hpp. */
struct throws;

/** The hash methods; which to choose is measured in docs/hash-methods.md. */
enum class hash_method : std::int32_t {
  /** The one that suits the kind of key. */
  automatic = 0,
  times_33 = 2,
  lookup2 = 3,
  elf = 4,
  rotating = 5,
  weighted_xor = 6,
  times_37 = 7,
  one_at_a_time = 8,
  fnv = 9,
};

/** How a table is made. */
struct table_options {
  /** Shown by debuggers and handed to the host; copied; may be null. */
  const char *name = nullptr;
  /**
   * How many keys are expected: the table gets about as many buckets, of 16
   * bytes each, and twice as many for up to 65536 keys; at most 2^20. More keys
   * are fine; the trees of the buckets grow.
   */
  std::uint64_t expected = 4096;
  hash_method hash = hash_method::automatic;
  /** Sizes the largest record blocks, about 30 times this many bytes; below 1 for 2 MB. */
  std::int64_t memory_hint = 0;
};

namespace detail {

// Log2 of the bucket count for so many keys: a bucket a key, or two where they
// all stay in the caches. There a find is held up by what the processor guesses
// wrong, which is how many records of a bucket it looks at.
constexpr std::int32_t hash_exp_for(std::uint64_t expected) noexcept {
  constexpr int kLargest = 20;
  constexpr std::uint64_t kFew = 1U << 16;
  if (expected <= 1) return 0;
  const int exp = static_cast<int>(std::bit_width(expected - 1)) + (expected <= kFew ? 1 : 0);
  return exp < kLargest ? exp : kLargest;
}

template <class Feature, class... Features>
inline constexpr int times_in = (0 + ... + (std::is_same_v<Feature, Features> ? 1 : 0));

template <class Feature>
inline constexpr bool is_feature =
    times_in<Feature, ordered, duplicates, sums, locked, throws> != 0;

template <class... Features>
struct feature_set {
  static_assert((is_feature<Features> && ...),
                "the features of a table are morva::ordered, duplicates, sums, locked and throws");
  static_assert(((times_in<Features, Features...> == 1) && ...),
                "a feature of a table is named once");

  template <class Feature>
  static constexpr bool has = times_in<Feature, Features...> != 0;

  static constexpr std::uint32_t flags = (has<ordered> ? flagOrdered : 0) |
                                         (has<duplicates> ? flagMultiData : 0) |
                                         (has<sums> ? flagSum : 0) | (has<locked> ? 0 : flagNoLock);
};

// How operations answer: with results, unless the feature `throws` is set.
template <class Feature>
struct answers {
  static_assert(std::is_void_v<Feature>, "the feature morva::throws needs morva/throws.hpp");
  template <class T>
  using type = T;
};

template <>
struct answers<void> {
  template <class T>
  using type = result<T>;

  template <class T>
  static constexpr result<T> give(result<T> answer) {
    return answer;
  }
};

}  // namespace detail
}  // namespace morva

#endif
