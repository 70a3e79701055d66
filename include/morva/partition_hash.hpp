/**
 * @file
 * The hash that deals keys out to the parts of a partitioned table.
 *
 *   static_assert(morva::partition_hash(std::span<const std::byte>()) == 0xEF46DB3751D8E999);
 *
 * It is XXH64 with seed 0 (Yann Collet, 2012), of the key's image: the bytes of
 * a fixed key, the text of a text key, the packed fields of a composed key. It
 * has nothing in common with the methods that choose a bucket, so the keys of
 * one part spread over its buckets as all keys would.
 *
 * The values never change, neither with a release nor from one machine to
 * another: words are read as little-endian everywhere. A program may deal out
 * its rows by them and know in which part each will lie.
 */
#ifndef MORVA_PARTITION_HASH_HPP
#define MORVA_PARTITION_HASH_HPP

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

namespace morva {
namespace detail {

class xxh64 {
 public:
  static constexpr std::uint64_t of(std::span<const std::byte> image) noexcept {
    const std::byte *at = image.data();
    std::size_t left = image.size();
    std::uint64_t hash = prime5;
    if (left >= stripe) hash = stripes(at, left);
    hash += image.size();
    for (; left >= 8; at += 8, left -= 8) hash = step8(hash, load<std::uint64_t>(at));
    if (left >= 4) {
      hash = std::rotl(hash ^ (load<std::uint32_t>(at) * prime1), 23) * prime2 + prime3;
      at += 4;
      left -= 4;
    }
    for (; left > 0; ++at, --left) {
      hash = std::rotl(hash ^ (std::to_integer<std::uint64_t>(*at) * prime5), 11) * prime1;
    }
    return mixed(hash);
  }

  // The same for the eight bytes that are `word` when they are read as one.
  static constexpr std::uint64_t of(std::uint64_t word) noexcept {
    return mixed(step8(prime5 + 8, word));
  }

  template <class Word>
  static constexpr Word load(const std::byte *at) noexcept {
    Word word = 0;
    if (std::is_constant_evaluated() || std::endian::native != std::endian::little) {
      for (std::size_t i = sizeof(Word); i-- > 0;) {
        word = static_cast<Word>(word << 8) | std::to_integer<Word>(at[i]);
      }
    } else {
      std::memcpy(&word, at, sizeof word);
    }
    return word;
  }

 private:
  static constexpr std::size_t stripe = 32;
  static constexpr std::uint64_t prime1 = 0x9E3779B185EBCA87;
  static constexpr std::uint64_t prime2 = 0xC2B2AE3D27D4EB4F;
  static constexpr std::uint64_t prime3 = 0x165667B19E3779F9;
  static constexpr std::uint64_t prime4 = 0x85EBCA77C2B2AE63;
  static constexpr std::uint64_t prime5 = 0x27D4EB2F165667C5;

  static constexpr std::uint64_t round(std::uint64_t lane, std::uint64_t word) noexcept {
    return std::rotl(lane + word * prime2, 31) * prime1;
  }

  static constexpr std::uint64_t step8(std::uint64_t hash, std::uint64_t word) noexcept {
    return std::rotl(hash ^ round(0, word), 27) * prime1 + prime4;
  }

  // All whole stripes, in four lanes; leaves `at` and `left` behind them.
  static constexpr std::uint64_t stripes(const std::byte *&at, std::size_t &left) noexcept {
    std::uint64_t lanes[4] = {prime1 + prime2, prime2, 0, 0 - prime1};
    for (; left >= stripe; left -= stripe) {
      for (std::uint64_t &lane : lanes) {
        lane = round(lane, load<std::uint64_t>(at));
        at += 8;
      }
    }
    std::uint64_t hash = std::rotl(lanes[0], 1) + std::rotl(lanes[1], 7) + std::rotl(lanes[2], 12) +
                         std::rotl(lanes[3], 18);
    for (const std::uint64_t lane : lanes) hash = (hash ^ round(0, lane)) * prime1 + prime4;
    return hash;
  }

  static constexpr std::uint64_t mixed(std::uint64_t hash) noexcept {
    hash = (hash ^ (hash >> 33)) * prime2;
    hash = (hash ^ (hash >> 29)) * prime3;
    return hash ^ (hash >> 32);
  }
};

}  // namespace detail

/** The hash of a key's image. The part of the key is what its topmost bits say. */
constexpr std::uint64_t partition_hash(std::span<const std::byte> image) noexcept {
  return detail::xxh64::of(image);
}

/** The same for an image of eight bytes, given as the number they are in little-endian order. */
constexpr std::uint64_t partition_hash(std::uint64_t image) noexcept {
  return detail::xxh64::of(image);
}

}  // namespace morva

#endif
