/**
 * @file
 * The hash methods: which bucket a key lies in, for code that looks for records
 * itself.
 *
 *   std::uint32_t bucket = morva::hash_key(method, bytes, length) & buckets->mask;
 *
 * They decide the bucket and nothing else; no hash is stored. Every method takes
 * any bytes, none included: those of a raw key, or those the record packer
 * wrote. What a method answers is part of the interface and stays as it is. Which to
 * choose is measured in docs/hash-methods.md.
 */
#ifndef MORVA_HASH_METHODS_HPP
#define MORVA_HASH_METHODS_HPP

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace morva {
namespace detail::hashing {

// States are 32-bit words that wrap, but for method 3. The odd choices (a fold
// that adds, a start of 0, a weight of 0 for the last byte) fix in which bucket
// a key lies: they must not be "corrected".

using bytes = const unsigned char *;

// How many bytes a method takes: any number, or one the compiler knows.
using any_length = std::uint32_t;
template <std::uint32_t N>
using known_length = std::integral_constant<std::uint32_t, N>;

template <class Word>
std::uint64_t load(bytes p) {
  Word word;
  std::memcpy(&word, p, sizeof word);  // little-endian, as all of the interface
  return word;
}

// h = h * factor + b over all bytes: each counts times a power of the factor. So
// eight are taken at once: neighbours are joined two by two, in all lanes of a
// word at a time, which are wide enough for what comes.
template <std::uint32_t factor>
struct polynomial {
  static constexpr std::uint64_t f1 = factor;
  static constexpr std::uint64_t f2 = f1 * f1;
  static_assert(255 * (f1 + 1) < 1 << 16 && 255 * (f1 + 1) * (f2 + 1) < 1ULL << 32);

  // The powers 0 to 8.
  static constexpr auto powers = [] {
    struct {
      std::uint32_t of[9] = {1};
    } made;
    for (int i = 1; i < 9; ++i) made.of[i] = made.of[i - 1] * factor;
    return made;
  }();

  static std::uint32_t of_eight(std::uint64_t word) {
    constexpr std::uint64_t even_bytes = 0x00FF00FF00FF00FF;
    constexpr std::uint64_t even_pairs = 0x0000FFFF0000FFFF;
    const std::uint64_t pairs = (word & even_bytes) * f1 + ((word >> 8) & even_bytes);
    const std::uint64_t fours = (pairs & even_pairs) * f2 + ((pairs >> 16) & even_pairs);
    return static_cast<std::uint32_t>(fours) * powers.of[4] +
           static_cast<std::uint32_t>(fours >> 32);
  }

  // The last `n` bytes of a word, 0 to 7: zeros in front of them add nothing.
  static std::uint32_t of_last(std::uint64_t word, std::uint32_t n) {
    return n == 0 ? 0 : of_eight(word & ~std::uint64_t{0} << (64 - 8 * n));
  }

  static std::uint32_t of(bytes b, std::uint32_t n) {
    if (n < 8) return of_few(b, n);
    std::uint32_t h = 0;
    for (; n >= 8; n -= 8, b += 8) h = h * powers.of[8] + of_eight(load<std::uint64_t>(b));
    return h * powers.of[n] + of_last(load<std::uint64_t>(b + n - 8), n);
  }

  static std::uint32_t of_few(bytes b, std::uint32_t n) {
    std::uint32_t h = 0;
    if (n < 4) {
      for (; n > 0; --n, ++b) h = h * factor + *b;
      return h;
    }
    // Two words of four that may overlap, at the end of one of eight.
    return of_last(load<std::uint32_t>(b + n - 4) << 32 | load<std::uint32_t>(b) << (64 - 8 * n),
                   n);
  }
};

// Method 2: times 33, folded by an addition.
template <class Length>
inline std::uint32_t times_33(bytes b, Length n) {
  const std::uint32_t h = polynomial<33>::of(b, n);
  return h + (h >> 5);
}

// Both shifts see the unfolded h.
constexpr std::uint32_t fold_10_and_20(std::uint32_t h) {
  return h ^ (h >> 10) ^ (h >> 20);
}

// Method 3: lookup2 (Bob Jenkins, 1996), but on 64-bit words throughout, cut to
// 32 bits at the very end; the results differ from the published ones.
struct lookup2_state {
  std::uint64_t a = 0x9E3779B9;
  std::uint64_t b = 0x9E3779B9;
  std::uint64_t c = 0;

  void mix() {
    // clang-format off
    a -= b; a -= c; a ^= c >> 13;
    b -= c; b -= a; b ^= a << 8;
    c -= a; c -= b; c ^= b >> 13;
    a -= b; a -= c; a ^= c >> 12;
    b -= c; b -= a; b ^= a << 16;
    c -= a; c -= b; c ^= b >> 5;
    a -= b; a -= c; a ^= c >> 3;
    b -= c; b -= a; b ^= a << 10;
    c -= a; c -= b; c ^= b >> 15;
    // clang-format on
  }
};

template <class Length>
inline std::uint32_t lookup2(bytes t, Length n) {
  lookup2_state h;
  std::uint32_t left = n;
  for (; left >= 12; left -= 12, t += 12) {
    h.a += load<std::uint32_t>(t);
    h.b += load<std::uint32_t>(t + 4);
    h.c += load<std::uint32_t>(t + 8);
    h.mix();
  }
  h.c += static_cast<std::uint64_t>(
      std::int64_t{static_cast<std::int32_t>(n)});  // the length is signed
  // The tail: bytes 0 to 3 go to a, 4 to 7 to b, 8 to 10 to c above the length.
  std::uint64_t *const words[] = {&h.a, &h.b, &h.c};
  std::uint64_t *const *word = words;
  for (; left >= 4; left -= 4, t += 4) **word++ += load<std::uint32_t>(t);
  const int above = *word == &h.c ? 8 : 0;
  for (std::uint32_t i = 0; i < left; ++i) **word += std::uint64_t{t[i]} << (8 * i + above);
  h.mix();
  return static_cast<std::uint32_t>(h.c);
}

// Method 4: ELF hash, after P. J. Weinberger.
template <class Length>
inline std::uint32_t elf(bytes b, Length n) {
  std::uint32_t h = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    h = (h << 4) + b[i];
    const std::uint32_t g = h & 0xF0000000;
    h ^= (g >> 24) ^ g;  // nothing for g = 0
  }
  return fold_10_and_20(h);
}

// Method 5: rotating hash, started from the length.
template <class Length>
inline std::uint32_t rotating(bytes b, Length length) {
  std::uint32_t n = length;
  std::uint32_t h = n;
  // Over eight bytes the state turns once around: what is there already stays.
  for (; n >= 8; n -= 8, b += 8) {
    for (int i = 0; i < 8; ++i) h ^= std::rotl(std::uint32_t{b[i]}, 4 * (7 - i));
  }
  for (; n > 0; --n, ++b) h = std::rotl(h, 4) ^ *b;
  return fold_10_and_20(h);
}

// Method 6: XOR of the bytes weighted by how many follow; the last weighs 0.
template <class Length>
inline std::uint32_t weighted_xor(bytes b, Length n) {
  std::uint32_t h = 1234;
  for (std::uint32_t i = 0; i < n; ++i) h ^= b[i] * (n - 1 - i);
  return h ^ (h >> 17);
}

// Method 7: times 37, not folded.
template <class Length>
inline std::uint32_t times_37(bytes b, Length n) {
  return polynomial<37>::of(b, n);
}

// Method 8: one-at-a-time (Bob Jenkins, 1997).
template <class Length>
inline std::uint32_t one_at_a_time(bytes b, Length n) {
  std::uint32_t h = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    h += b[i];
    h += h << 10;
    h ^= h >> 6;
  }
  h += h << 3;
  h ^= h >> 11;
  h += h << 15;
  return h;
}

// Method 9: FNV-0 (Fowler, Noll, Vo, 1991): FNV-1's order, started from 0.
template <class Length>
inline std::uint32_t fnv(bytes b, Length n) {
  constexpr std::uint32_t prime = 16777619;
  std::uint32_t h = 0;
  const auto take = [&h](std::uint32_t byte) { h = (h * prime) ^ byte; };
  std::uint32_t left = n;
  // As many steps, but fewer instructions between them.
  for (; left >= 8; left -= 8, b += 8) {
    take(b[0]), take(b[1]), take(b[2]), take(b[3]);
    take(b[4]), take(b[5]), take(b[6]), take(b[7]);
  }
  for (; left > 0; --left, ++b) take(*b);
  return h;
}

// hash(bytes, length) of the method with this number.
template <class Length>
inline std::uint32_t by_method(std::uint32_t method, bytes b, Length n) {
  switch (method) {
    case 3:
      return lookup2(b, n);
    case 4:
      return elf(b, n);
    case 5:
      return rotating(b, n);
    case 6:
      return weighted_xor(b, n);
    case 7:
      return times_37(b, n);
    case 8:
      return one_at_a_time(b, n);
    case 9:
      return fnv(b, n);
    default:
      return times_33(b, n);
  }
}

}  // namespace detail::hashing

/** The hash of `length` bytes under a method, 2 to 9; any other number means 2. */
inline std::uint32_t hash_key(std::uint32_t method, const unsigned char *bytes,
                              std::uint32_t length) {
  using eight = detail::hashing::known_length<8>;
  return length == eight::value ? detail::hashing::by_method(method, bytes, eight{})
                                : detail::hashing::by_method(method, bytes, length);
}

}  // namespace morva

#endif
