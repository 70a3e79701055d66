#include "keys.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

#include "morva/hash_methods.hpp"

namespace bench::hostile {
namespace {

// A permutation of the numbers below 2^bits, so that what is counted looks
// shuffled and still never comes twice.
uint64_t scattered(uint64_t index, unsigned bits) {
  const uint64_t mask = bits == 64 ? ~uint64_t{0} : (uint64_t{1} << bits) - 1;
  index = (index * 0x9E3779B97F4A7C15) & mask;
  index ^= index >> (bits / 2);
  return (index * 0xD6E8FEB86659FD93) & mask;
}

unsigned char byteOf(uint64_t word, unsigned index) {
  return static_cast<unsigned char>(word >> (8 * index));
}

unsigned char nibbleOf(uint64_t word, unsigned index) {
  return static_cast<unsigned char>((word >> (4 * index)) & 15);
}

// ---- Methods 2, 7, 8, 9: every step can be undone, so both ends meet ----------------
//
// A step is h' = out(in(h) + b), or XOR instead of +. With seven bytes of a key
// chosen, three in front and four behind, the one in between is what leads from
// the state that the front makes to the state from which the end comes to the
// hash wanted. It exists where the two states differ by less than a byte.

constexpr uint32_t inverseOf(uint32_t odd) {
  uint32_t inverse = odd;  // right in three bits; each round doubles them
  for (int i = 0; i < 4; ++i) inverse *= 2 - odd * inverse;
  return inverse;
}

template <uint32_t factor>
struct Multiplied {
  static uint32_t in(uint32_t h) { return h * factor; }
  static uint32_t inUndone(uint32_t x) { return x * inverseOf(factor); }
  static uint32_t outUndone(uint32_t h) { return h; }
  static uint32_t out(uint32_t x) { return x; }
};

struct Adding {
  static uint32_t join(uint32_t x, uint32_t byte) { return x + byte; }
  static uint32_t part(uint32_t joined, uint32_t byte) { return joined - byte; }
  static uint32_t byteBetween(uint32_t x, uint32_t joined) { return joined - x; }
  // What may become `joined` by a byte: an interval.
  static uint32_t lowest(uint32_t joined) { return joined - std::min(joined, 255U); }
  static uint32_t highest(uint32_t joined) { return joined; }
};

struct Times33 : Multiplied<33>, Adding {};
struct Times37 : Multiplied<37>, Adding {};

struct Fnv : Multiplied<16777619> {
  static uint32_t join(uint32_t x, uint32_t byte) { return x ^ byte; }
  static uint32_t part(uint32_t joined, uint32_t byte) { return joined ^ byte; }
  static uint32_t byteBetween(uint32_t x, uint32_t joined) { return x ^ joined; }
  static uint32_t lowest(uint32_t joined) { return joined & ~255U; }
  static uint32_t highest(uint32_t joined) { return joined | 255U; }
};

struct OneAtATime : Adding {
  static uint32_t in(uint32_t h) { return h; }
  static uint32_t inUndone(uint32_t x) { return x; }
  static uint32_t out(uint32_t x) {
    x += x << 10;
    return x ^ (x >> 6);
  }
  static uint32_t outUndone(uint32_t h) {
    uint32_t x = h;
    for (int shift = 6; shift < 32; shift += 6) x = h ^ (x >> 6);
    return x * inverseOf(1025);
  }
};

// Zeros in front leave the state 0, where all four methods start.
template <class Method>
std::vector<Tail> meetInTheMiddle(size_t count) {
  struct Front {
    uint32_t state;  // what the fourth byte is joined to
    uint32_t bytes;
  };
  const size_t some = std::clamp(16 * count, size_t{1} << 16, size_t{1} << 22);
  std::vector<Front> fronts(some);
  for (size_t i = 0; i < some; ++i) {
    const auto bytes = static_cast<uint32_t>(scattered(i, 24));
    uint32_t h = 0;
    for (unsigned b = 0; b < 3; ++b) h = Method::out(Method::join(Method::in(h), byteOf(bytes, b)));
    fronts[i] = {Method::in(h), bytes};
  }
  std::sort(fronts.begin(), fronts.end(),
            [](const Front &a, const Front &b) { return a.state < b.state; });

  constexpr uint32_t wanted = 0x6D6F7276;
  std::vector<Tail> tails;
  for (uint64_t i = 0; tails.size() < count; ++i) {
    if (i >> 32 != 0) throw std::runtime_error("not so many keys of one hash");
    const auto end = static_cast<uint32_t>(scattered(i, 32));
    uint32_t h = wanted;
    for (unsigned b = 4; b-- > 0;) {
      h = Method::inUndone(Method::part(Method::outUndone(h), byteOf(end, b)));
    }
    const uint32_t joined = Method::outUndone(h);
    auto front =
        std::lower_bound(fronts.begin(), fronts.end(), Method::lowest(joined),
                         [](const Front &one, uint32_t state) { return one.state < state; });
    for (; front != fronts.end() && front->state <= Method::highest(joined); ++front) {
      if (tails.size() == count) break;
      Tail &tail = tails.emplace_back();
      for (unsigned b = 0; b < 3; ++b) tail[b] = byteOf(front->bytes, b);
      tail[3] = static_cast<unsigned char>(Method::byteBetween(front->state, joined));
      for (unsigned b = 0; b < 4; ++b) tail[4 + b] = byteOf(end, b);
    }
  }
  return tails;
}

// ---- The others ----------------------------------------------------------------------

// Method 4: shifts by 4 leave the sum of the bytes, each times a power of 16, as
// long as it fits in 28 bits. A byte has two digits: what one gives to its
// neighbour, times 16, does not show.
Tail elfTail(uint64_t index) {
  const uint64_t carries = scattered(index, 24);
  Tail tail{};
  unsigned taken = 0;
  for (unsigned i = 1; i < kTail; ++i) {
    const unsigned given = i + 1 < kTail ? nibbleOf(carries, i - 1) : 0;
    tail[i] = static_cast<unsigned char>(15 - given + 16 * taken);
    taken = given;
  }
  return tail;
}

// Method 5: rotations by 4 lay the low digit of a byte on the high digit of the
// next one, around the ring of eight. Equal digits cancel.
Tail rotatingTail(uint64_t index) {
  const uint64_t digits = scattered(index, 32);
  Tail tail{};
  for (unsigned i = 0; i < kTail; ++i) {
    tail[i] =
        static_cast<unsigned char>(nibbleOf(digits, i) << 4 | nibbleOf(digits, (i + 1) % kTail));
  }
  return tail;
}

// Method 6: the last byte but one weighs 1, so it cancels what the others leave
// wherever that is a byte; the last weighs nothing.
bool weightedTail(uint64_t index, Tail &tail) {
  const uint64_t chosen = scattered(index, 56);
  unsigned left = 0;
  for (unsigned i = 0; i < kTail - 2; ++i) {
    tail[i] = byteOf(chosen, i);
    left ^= tail[i] * (static_cast<unsigned>(kTail) - 1 - i);
  }
  tail[kTail - 2] = static_cast<unsigned char>(left);
  tail[kTail - 1] = byteOf(chosen, 6);
  return left < 256;
}

// Method 3: words of 64 bits, of which a block fills 32, mixed by nine rounds. No
// way is known to us but to try: one key in 2^sharedBits.
constexpr uint32_t kSearchedBits = 10;

template <size_t Length>
bool searchedTail(uint64_t index, Tail &tail) {
  const uint64_t chosen = scattered(index, 64);
  std::array<unsigned char, Length> key{};
  for (unsigned i = 0; i < kTail; ++i) key[Length - kTail + i] = tail[i] = byteOf(chosen, i);
  const uint32_t hash =
      morva::detail::hashing::lookup2(key.data(), std::integral_constant<uint32_t, Length>{});
  return (hash & ((1U << kSearchedBits) - 1)) == 0;
}

// Asks `make` for one tail after another and keeps those it says yes to.
template <class Make>
std::vector<Tail> collect(size_t count, Make make) {
  std::vector<Tail> tails;
  tails.reserve(count);
  Tail tail{};
  for (uint64_t i = 0; tails.size() < count; ++i) {
    if (make(i, tail)) tails.push_back(tail);
  }
  return tails;
}

}  // namespace

uint32_t sharedBits(uint32_t method) {
  return method == 3 ? kSearchedBits : 32;
}

std::vector<Tail> collidingTails(uint32_t method, size_t length, size_t count) {
  const auto always = [count](Tail (*make)(uint64_t)) {
    return collect(count, [make](uint64_t i, Tail &tail) { return tail = make(i), true; });
  };
  switch (method) {
    case 2:
      return meetInTheMiddle<Times33>(count);
    case 3:
      if (length == 8) return collect(count, searchedTail<8>);
      if (length == 16) return collect(count, searchedTail<16>);
      throw std::runtime_error("keys for method 3 are searched for with 8 or 16 bytes only");
    case 4:
      if (count > size_t{1} << 24) throw std::runtime_error("not so many keys of one hash");
      return always(elfTail);
    case 5:
      return always(rotatingTail);
    case 6:
      return collect(count, weightedTail);
    case 7:
      return meetInTheMiddle<Times37>(count);
    case 8:
      return meetInTheMiddle<OneAtATime>(count);
    case 9:
      return meetInTheMiddle<Fnv>(count);
    default:
      throw std::runtime_error("no such hash method");
  }
}

}  // namespace bench::hostile
