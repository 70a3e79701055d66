#include "keys/hash.h"

#include <bit>
#include <cstring>
#include <type_traits>

#include "instance/instance.h"

// States are 32-bit words that wrap, but for method 3. The odd choices (a fold
// that adds, a start of 0, a weight of 0 for the last byte) fix in which bucket
// a key lies: they must not be "corrected".

namespace morva::core {
namespace {

using Bytes = const unsigned char *;

// How many bytes a method takes: any number, or one the compiler knows.
using Any = uint32_t;
using Eight = std::integral_constant<uint32_t, 8>;

// h = h * factor + b over all bytes. Eight bytes go in at once, each times the
// power of the factor it would have gathered, so that one multiplication, not
// eight, waits for the last.
template <uint32_t factor>
uint32_t polynomial(Bytes b, uint32_t n) {
  constexpr uint32_t f2 = factor * factor;
  constexpr uint32_t f3 = f2 * factor;
  constexpr uint32_t f4 = f2 * f2;
  constexpr uint32_t f8 = f4 * f4;
  uint32_t h = 0;
  for (; n >= 8; n -= 8, b += 8) {
    const uint32_t first = b[0] * f3 + b[1] * f2 + b[2] * factor + b[3];
    const uint32_t second = b[4] * f3 + b[5] * f2 + b[6] * factor + b[7];
    h = h * f8 + (first * f4 + second);
  }
  for (; n > 0; --n, ++b) h = h * factor + *b;
  return h;
}

// Method 2: times 33, folded by an addition.
template <class Length>
uint32_t times33(Bytes b, Length n) {
  const uint32_t h = polynomial<33>(b, n);
  return h + (h >> 5);
}

// Both shifts see the unfolded h.
constexpr uint32_t fold10And20(uint32_t h) {
  return h ^ (h >> 10) ^ (h >> 20);
}

// Method 3: lookup2 (Bob Jenkins, 1996), but on 64-bit words throughout, cut to
// 32 bits at the very end; the results differ from the published ones.
struct Lookup2 {
  uint64_t a = 0x9E3779B9;
  uint64_t b = 0x9E3779B9;
  uint64_t c = 0;

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

uint64_t word32(Bytes p) {
  uint32_t word;
  std::memcpy(&word, p, sizeof word);  // little-endian, as all of the interface
  return word;
}

template <class Length>
uint32_t lookup2(Bytes t, Length n) {
  Lookup2 h;
  uint32_t left = n;
  for (; left >= 12; left -= 12, t += 12) {
    h.a += word32(t);
    h.b += word32(t + 4);
    h.c += word32(t + 8);
    h.mix();
  }
  h.c += static_cast<uint64_t>(int64_t{static_cast<int32_t>(n)});  // the length is signed
  // The tail: bytes 0 to 3 go to a, 4 to 7 to b, 8 to 10 to c above the length.
  uint64_t *const words[] = {&h.a, &h.b, &h.c};
  uint64_t *const *word = words;
  for (; left >= 4; left -= 4, t += 4) **word++ += word32(t);
  const int above = *word == &h.c ? 8 : 0;
  for (uint32_t i = 0; i < left; ++i) **word += uint64_t{t[i]} << (8 * i + above);
  h.mix();
  return static_cast<uint32_t>(h.c);
}

// Method 4: ELF hash, after P. J. Weinberger.
template <class Length>
uint32_t elf(Bytes b, Length n) {
  uint32_t h = 0;
  for (uint32_t i = 0; i < n; ++i) {
    h = (h << 4) + b[i];
    const uint32_t g = h & 0xF0000000;
    h ^= (g >> 24) ^ g;  // nothing for g = 0
  }
  return fold10And20(h);
}

// Method 5: rotating hash, started from the length.
template <class Length>
uint32_t rotating(Bytes b, Length length) {
  uint32_t n = length;
  uint32_t h = n;
  // Over eight bytes the state turns once around: what is there already stays.
  for (; n >= 8; n -= 8, b += 8) {
    for (int i = 0; i < 8; ++i) h ^= std::rotl(uint32_t{b[i]}, 4 * (7 - i));
  }
  for (; n > 0; --n, ++b) h = std::rotl(h, 4) ^ *b;
  return fold10And20(h);
}

// Method 6: XOR of the bytes weighted by how many follow; the last weighs 0.
template <class Length>
uint32_t positionWeighted(Bytes b, Length n) {
  uint32_t h = 1234;
  for (uint32_t i = 0; i < n; ++i) h ^= b[i] * (n - 1 - i);
  return h ^ (h >> 17);
}

// Method 7: times 37, not folded.
template <class Length>
uint32_t times37(Bytes b, Length n) {
  return polynomial<37>(b, n);
}

// Method 8: one-at-a-time (Bob Jenkins, 1997).
template <class Length>
uint32_t oneAtATime(Bytes b, Length n) {
  uint32_t h = 0;
  for (uint32_t i = 0; i < n; ++i) {
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
uint32_t fnv0(Bytes b, Length n) {
  constexpr uint32_t kPrime = 16777619;
  uint32_t h = 0;
  for (uint32_t i = 0; i < n; ++i) h = (h * kPrime) ^ b[i];
  return h;
}

using HashMethod = uint32_t (*)(Bytes, Any);

template <uint32_t (*method)(Bytes, Eight)>
uint32_t ofEight(Bytes b, Any) {
  return method(b, Eight{});
}

struct Method {
  HashMethod any;
  HashMethod eight;
};

constexpr Method kMethods[kLastHashMethod - kFirstHashMethod + 1] = {
    {times33<Any>, ofEight<times33<Eight>>},
    {lookup2<Any>, ofEight<lookup2<Eight>>},
    {elf<Any>, ofEight<elf<Eight>>},
    {rotating<Any>, ofEight<rotating<Eight>>},
    {positionWeighted<Any>, ofEight<positionWeighted<Eight>>},
    {times37<Any>, ofEight<times37<Eight>>},
    {oneAtATime<Any>, ofEight<oneAtATime<Eight>>},
    {fnv0<Any>, ofEight<fnv0<Eight>>}};

}  // namespace

uint32_t hashKey(uint32_t method, const unsigned char *bytes, uint32_t length) {
  const Method &chosen = kMethods[method - kFirstHashMethod];
  return (length == Eight::value ? chosen.eight : chosen.any)(bytes, length);
}

}  // namespace morva::core
