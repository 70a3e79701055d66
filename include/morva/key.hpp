/**
 * @file
 * The keys of tables. Three kinds are here, composed keys in morva/composed.hpp.
 *
 *   Key                              operations take     a record shows
 *   integer, enum, array, struct     const Key &         const Key &
 *   std::string_view, std::string    std::string_view    std::string_view
 *   morva::text<N>                   std::string_view    std::string_view, up to N bytes
 *   morva::composed<&Row::a, ...>    const Row &         the packed fields
 *
 * Keys are equal when their bytes are. A key type must therefore have one
 * byte pattern per value: no floating-point numbers, no padding. A pointer, also
 * one inside a structure, is compared as an address. Text may hold
 * any bytes. Text of any length excludes the features duplicates and sums.
 */
#ifndef MORVA_KEY_HPP
#define MORVA_KEY_HPP

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>

#include "morva/hash_methods.hpp"
#include "morva/inst.h"
#include "morva/options.hpp"
#include "morva/record_node.h"
#include "morva/search.hpp"

namespace morva {

/** A key of up to N bytes of text, kept in the record. */
template <std::size_t N>
struct text {
  static constexpr std::size_t longest = N;
};

namespace detail {

// A key as the operations of an instance take it.
struct raw_key {
  const void *bytes = nullptr;
  std::int32_t length = 0;
};

// The hash method for keys of `size` bytes that may be numbers: FNV spreads
// counters and random numbers well; past some fifty bytes it loses too much time.
constexpr hash_method usual_hash(std::size_t size) noexcept {
  return size <= 48 ? hash_method::fnv : hash_method::lookup2;
}

// That for text, which it spreads as chance would, in the least time.
inline constexpr hash_method usual_text_hash = hash_method::times_37;

// The longest key a lookup builds an image of on the stack.
inline constexpr std::size_t largest_bounded_key = 4096;

// What MORVAFind2 is given: a node, and room for a key area of `Area` bytes.
template <std::size_t Area>
struct probe_room {
  RecordNode node;
  alignas(8) std::byte area[Area];
};

inline raw_key stored_bytes(const RecordNode *node) noexcept {
  const KeyPrefix *prefix = prefix_of(node);
  return {prefix + 1, static_cast<std::int32_t>(prefix->length)};
}

inline std::string_view stored_text(const RecordNode *node) noexcept {
  const KeyPrefix *prefix = prefix_of(node);
  return {reinterpret_cast<const char *>(prefix + 1), prefix->length};
}

// The key area an instance makes for fixed keys of `Length` bytes, and the
// spare bytes MORVAFind2 asks for.
template <std::size_t Length>
using fixed_probe = probe_room<Length + 12 + 8>;

// ---- What a table knows about its kind of key --------------------------------
//
// argument, view   what operations take, and what records show
// fits             whether a key can be in the table
// raw              the key for the operations of the instance
// show             the key of a stored record
// with_stored      calls back with the raw key of a stored record
// image, make_image  the bytes a key is hashed and compared by
// image_room       where they are, if not in the key itself
// order            the order object of an image
// probe            room for the image of a key that `fits`
// define           describes the fields of a composed key, and the data
// hash             the method unless another is chosen

// The hash of an image. The method a kind of key usually has is compiled in; the
// others are one function for all.
[[gnu::noinline]] inline std::uint32_t hash_unusually(std::uint32_t method,
                                                      const unsigned char *bytes,
                                                      std::uint32_t length) noexcept {
  return hash_key(method, bytes, length);
}

template <hash_method Usual, class Length>
std::uint32_t hash_image(std::uint32_t method, const unsigned char *bytes, Length length) noexcept {
  if (method == static_cast<std::uint32_t>(Usual)) [[likely]] {
    return hashing::by_method(static_cast<std::uint32_t>(Usual), bytes, length);
  }
  return hash_unusually(method, bytes, length);
}

// The bytes of a key and how many: a number, or a constant where keys have one length.
template <class Length>
struct key_image {
  const unsigned char *bytes = nullptr;
  [[no_unique_address]] Length length{};
};

// What is the same for all keys that lie behind a KeyPrefix.
struct prefixed_key {
  struct image_room {};
  template <class Length>
  static auto order(const key_image<Length> &image) noexcept {
    if constexpr (std::is_same_v<Length, hashing::known_length<prefixed_word_order::length>>) {
      return prefixed_word_order(image.bytes);
    } else {
      return prefixed_order(image.bytes, image.length);
    }
  }
  template <class Use>
  static auto with_stored(const RecordNode *node, Use use) {
    return use(stored_bytes(node));
  }
  static MORVAStatus define(MORVAInst *, std::uint32_t) noexcept { return MORVA_OK; }
};

// What is the same for all text.
struct text_key : prefixed_key {
  using argument = std::string_view;
  using view = std::string_view;

  static raw_key raw(argument key) noexcept {
    return {key.data(), static_cast<std::int32_t>(key.size())};
  }
  using image = key_image<std::uint32_t>;
  static image make_image(const MORVAInst *, argument key, image_room &) noexcept {
    return {reinterpret_cast<const unsigned char *>(key.data()),
            static_cast<std::uint32_t>(key.size())};
  }
  static view show(const RecordNode *node) noexcept { return stored_text(node); }
};

template <class Key>
struct fixed_key : prefixed_key {
  static_assert(sizeof(Key) <= largest_bounded_key, "a key of fixed size has at most 4096 bytes");
  static_assert(alignof(Key) <= 8, "a key is kept at addresses that are multiples of 8");

  using argument = const Key &;
  using view = const Key &;
  using probe = fixed_probe<sizeof(Key)>;
  static constexpr bool bounded = true;
  static constexpr std::uint32_t flags = flagFixedKey;
  static constexpr std::uint32_t length = sizeof(Key);
  static constexpr hash_method hash = usual_hash(sizeof(Key));

  static constexpr bool fits(argument) noexcept { return true; }
  static raw_key raw(argument key) noexcept {
    return {std::addressof(key), static_cast<std::int32_t>(sizeof(Key))};
  }
  using image = key_image<hashing::known_length<sizeof(Key)>>;
  static image make_image(const MORVAInst *, argument key, image_room &) noexcept {
    return {reinterpret_cast<const unsigned char *>(std::addressof(key)), {}};
  }
  static view show(const RecordNode *node) noexcept {
    return *std::launder(static_cast<const Key *>(stored_bytes(node).bytes));
  }
};

template <std::size_t N>
struct bounded_text : text_key {
  static_assert(N >= 1 && N <= largest_bounded_key,
                "morva::text<N> has 1 to 4096 bytes; use std::string_view for longer keys");

  using probe = fixed_probe<N>;
  static constexpr bool bounded = true;
  static constexpr std::uint32_t flags = flagFixedKey;
  static constexpr std::uint32_t length = N;
  static constexpr hash_method hash = usual_text_hash;

  static constexpr bool fits(argument key) noexcept { return key.size() <= N; }
};

struct any_text : text_key {
  // Longer keys get their image elsewhere, see long_keys.
  static constexpr std::size_t on_stack = 256;
  using probe = probe_room<sizeof(KeyPrefix) + on_stack>;
  static constexpr bool bounded = false;
  static constexpr std::uint32_t flags = flagVarKey;
  static constexpr std::uint32_t length = 0;
  static constexpr hash_method hash = usual_text_hash;

  // The rest of what an int32_t can say is left to the record's other parts.
  static constexpr std::size_t longest = 0x7fff0000;

  static constexpr bool fits(argument key) noexcept { return key.size() <= longest; }
};

// Room for the images of keys that are too long for the stack. It grows when
// such a key is stored, so lookups never need memory; a key longer than any
// stored one is not there. Lookups in one table by several threads take turns.
class long_keys {
 public:
  std::size_t longest() const noexcept { return longest_; }

  // Gives the room back, when no such key is left.
  void release() noexcept {
    room_.reset();
    longest_ = 0;
  }

  // Makes room for keys of `length` bytes. False when there is no memory.
  bool reserve(std::size_t length) noexcept {
    if (length <= longest_) return true;
    const std::size_t wanted = sizeof(RecordNode) + sizeof(KeyPrefix) + length;
    std::unique_ptr<std::byte[]> room(new (std::nothrow) std::byte[wanted]);
    if (!room) return false;
    room_ = std::move(room);
    longest_ = length;
    return true;
  }

  template <class Use>
  auto with_probe(Use use) noexcept {
    while (busy_.test_and_set(std::memory_order_acquire)) busy_.wait(true);
    const release_when_left leave{busy_};
    return use(reinterpret_cast<RecordNode *>(room_.get()));
  }

 private:
  struct release_when_left {
    std::atomic_flag &busy;
    ~release_when_left() {
      busy.clear(std::memory_order_release);
      busy.notify_one();
    }
  };

  std::atomic_flag busy_;
  std::size_t longest_ = 0;
  std::unique_ptr<std::byte[]> room_;
};

template <class T, class... Others>
inline constexpr bool is_one_of = (std::is_same_v<T, Others> || ...);

template <class Key>
inline constexpr bool points_to_text = std::is_pointer_v<Key>
    &&is_one_of<std::remove_cv_t<std::remove_pointer_t<Key>>, char, signed char, unsigned char,
                wchar_t, char8_t, char16_t, char32_t>;

// Views, spans and the like, and arrays of them: their bytes say where values
// are, not what.
template <class T>
inline constexpr bool refers_only = std::ranges::view<T>;
template <class T>
inline constexpr bool refers_only<std::reference_wrapper<T>> = true;
template <class T, std::size_t N>
inline constexpr bool refers_only<T[N]> = refers_only<T>;
template <class T, std::size_t N>
inline constexpr bool refers_only<std::array<T, N>> = refers_only<T> || points_to_text<T>;

template <class Key>
struct key_traits : fixed_key<Key> {
  static_assert(!refers_only<Key>,
                "a view would be compared by address: use std::string_view, or a type that holds "
                "its values");
  static_assert(!points_to_text<Key>,
                "a pointer to characters would be compared by address: use std::string_view");
  static_assert(!std::is_floating_point_v<Key>,
                "a floating-point key has several byte patterns per value: use an integer, or "
                "morva::composed with a double field");
  static_assert(std::is_trivially_copyable_v<Key>,
                "a key is copied byte by byte: it must be trivially copyable");
  static_assert(std::is_floating_point_v<Key> || std::has_unique_object_representations_v<Key>,
                "equal keys must have equal bytes: the key type has padding, or members with "
                "several byte patterns per value; give it none, or use morva::composed");
};

template <>
struct key_traits<std::string_view> : any_text {};
template <>
struct key_traits<std::string> : any_text {};
template <std::size_t N>
struct key_traits<text<N>> : bounded_text<N> {};

}  // namespace detail
}  // namespace morva

#endif
