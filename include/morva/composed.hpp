/**
 * @file
 * Keys made of several members of a row.
 *
 *   struct sale { char region[12]; std::int32_t year; double price; };
 *   using by_place = morva::composed<&sale::region, &sale::year>;
 *   morva::table<by_place, totals> t = ...;
 *   t.insert(some_sale, totals{});
 *   for (auto [key, data] : t) use(key.get<0>(), key.field<&sale::year>());
 *
 *   member                               is compared as
 *   integer, enum, bool, char            its bytes
 *   double                               a number; 0.0 equals -0.0, a NaN its bit pattern only
 *   char[N]                              text up to the first NUL, or N characters
 *   array, struct without padding        its bytes
 *   morva::padded<&Row::name>            char[N], without blanks and NULs at its end
 *   morva::caseless<&Row::name>          char[N], "a" to "z" as "A" to "Z"; also
 *                                        caseless<padded<&Row::name>>
 *
 * The host's record packer packs the members, one behind the other.
 */
#ifndef MORVA_COMPOSED_HPP
#define MORVA_COMPOSED_HPP

#include <array>
#include <bit>
#include <concepts>
#include <tuple>

#include "morva/key.hpp"

namespace morva {
namespace detail {

template <auto Member>
struct padded_field {};
template <auto Field>
struct caseless_field {};

// The field types of MORVADefineKey.
enum class packed_as : std::uint32_t { real = 1, padded = 2, integer = 3, bytes = 4, text = 5 };

template <class T>
inline constexpr bool is_text_array = false;
template <std::size_t N>
inline constexpr bool is_text_array<char[N]> = true;

template <class T>
constexpr packed_as packing_of() {
  static_assert(!std::is_floating_point_v<T> || std::is_same_v<T, double>,
                "a float or long double has no packed form: use a double");
  if constexpr (std::is_same_v<T, double>) {
    return packed_as::real;
  } else if constexpr (is_text_array<T>) {
    return packed_as::text;
  } else if constexpr ((std::is_integral_v<T> || std::is_enum_v<T>)&&sizeof(T) <= 8) {
    return packed_as::integer;
  } else {
    static_assert(!std::is_pointer_v<T> && !refers_only<T>,
                  "a pointer or a view would be compared by address");
    static_assert(
        std::is_floating_point_v<T> ||
            (std::is_trivially_copyable_v<T> && std::has_unique_object_representations_v<T>),
        "equal members must have equal bytes: the member has padding, or several byte patterns "
        "per value");
    return packed_as::bytes;
  }
}

template <class T>
struct member_pointer;
template <class Row, class Member>
struct member_pointer<Member Row::*> {
  using row = Row;
  using member = Member;
};

// A built-in array cannot be returned.
template <class T>
struct shown_as {
  using type = T;
};
template <class T, std::size_t N>
struct shown_as<T[N]> {
  using type = std::array<T, N>;
};

// One field: the member, where it lies, and how it is packed.
template <class Kind, Kind Member>
struct field {
  static_assert(std::is_member_object_pointer_v<Kind>,
                "the fields of a composed key are pointers to data members");
  using row = typename member_pointer<Kind>::row;
  using member = std::remove_cv_t<typename member_pointer<Kind>::member>;
  static constexpr packed_as packing = packing_of<member>();
  static constexpr std::uint32_t options = 0;
  static constexpr std::size_t size = sizeof(member);

  static std::size_t offset() noexcept {
    static const row any{};
    return static_cast<std::size_t>(reinterpret_cast<const std::byte *>(&(any.*Member)) -
                                    reinterpret_cast<const std::byte *>(&any));
  }

  // The member of a record whose packed field is at `at`.
  static auto show(const std::byte *at) noexcept {
    if constexpr (packing == packed_as::text) {
      const auto *text = reinterpret_cast<const char *>(at);
      std::size_t length = 0;
      while (length < size && text[length] != '\0') ++length;
      return std::string_view(text, length);
    } else {
      std::array<std::byte, size> bytes;
      std::memcpy(bytes.data(), at, size);
      return std::bit_cast<typename shown_as<member>::type>(bytes);
    }
  }
};

template <auto Member, padded_field<Member> Value>
struct field<padded_field<Member>, Value> : field<decltype(Member), Member> {
  using plain = field<decltype(Member), Member>;
  static_assert(is_text_array<typename plain::member>,
                "morva::padded is for members of type char[N]");
  static constexpr packed_as packing = packed_as::padded;

  static std::string_view show(const std::byte *at) noexcept {
    const auto *text = reinterpret_cast<const char *>(at);
    std::size_t length = plain::size;
    while (length > 0 && text[length - 1] == ' ') --length;
    return {text, length};
  }
};

template <auto Inner, caseless_field<Inner> Value>
struct field<caseless_field<Inner>, Value> : field<std::remove_cv_t<decltype(Inner)>, Inner> {
  static_assert(is_text_array<typename field<std::remove_cv_t<decltype(Inner)>, Inner>::member>,
                "morva::caseless is for members of type char[N]");
  static constexpr std::uint32_t options = 1;
};

template <auto Field>
using field_of = field<std::remove_cv_t<decltype(Field)>, Field>;

// Where a field starts in the packed key.
template <auto... Fields>
constexpr std::size_t packed_offset(std::size_t index) {
  const std::size_t sizes[] = {field_of<Fields>::size...};
  std::size_t offset = 0;
  for (std::size_t i = 0; i < index; ++i) offset += sizes[i];
  return offset;
}

}  // namespace detail

/** A char[N] member that ends before its trailing blanks and NULs. */
template <auto Member>
inline constexpr detail::padded_field<Member> padded{};

/** A char[N] member in which "a" to "z" count as "A" to "Z". */
template <auto Field>
inline constexpr detail::caseless_field<Field> caseless{};

/** The key of a record of a table with a composed key: a view, as good as the record. */
template <auto... Fields>
class packed_key {
 public:
  explicit packed_key(const std::byte *packed) noexcept : packed_(packed) {}

  /** The I-th field; text as a std::string_view, other members by value. */
  template <std::size_t I>
  auto get() const noexcept {
    using nth = std::tuple_element_t<I, std::tuple<detail::field_of<Fields>...>>;
    return nth::show(packed_ + detail::packed_offset<Fields...>(I));
  }

  /** The field that was named `Field` in the key type. */
  template <auto Field>
  auto field() const noexcept {
    using wanted = detail::field_of<Field>;
    static_assert((std::is_same_v<wanted, detail::field_of<Fields>> || ...),
                  "the key has no such field");
    constexpr std::size_t index = [] {
      const bool same[] = {std::is_same_v<wanted, detail::field_of<Fields>>...};
      std::size_t at = 0;
      while (!same[at]) ++at;
      return at;
    }();
    return get<index>();
  }

  friend bool operator==(const packed_key &a, const packed_key &b) noexcept {
    return std::memcmp(a.packed_, b.packed_, detail::packed_offset<Fields...>(sizeof...(Fields))) ==
           0;
  }

 private:
  const std::byte *packed_;
};

/** The key type: these members of a row, in this order. */
template <auto... Fields>
struct composed {};

namespace detail {

template <auto First, auto... Rest>
struct composed_key {
  using row = typename field_of<First>::row;
  static_assert((std::is_same_v<row, typename field_of<Rest>::row> && ...),
                "the fields of a composed key are members of one row type");
  static_assert(std::is_standard_layout_v<row> && std::default_initializable<row>,
                "the row of a composed key is a standard-layout type with a default constructor");
  // Records are looked up again by a row that is made on the stack.
  static_assert(sizeof(row) <= 16384, "the row of a composed key has at most 16 KiB");

  using argument = const row &;
  using view = packed_key<First, Rest...>;
  static constexpr std::size_t packed_size = packed_offset<First, Rest...>(1 + sizeof...(Rest));
  static_assert(((field_of<First>::packing != packed_as{}) && ... &&
                 (field_of<Rest>::packing != packed_as{})),
                "a field of a composed key can be packed");
  static_assert(packed_size <= largest_bounded_key, "a composed key has at most 4096 bytes");
  using probe = probe_room<packed_size + 8>;
  static constexpr bool bounded = true;
  static constexpr std::uint32_t flags = 0;
  static constexpr std::uint32_t length = 0;
  static constexpr hash_method hash = usual_hash(packed_size);

  static constexpr bool fits(argument) noexcept { return true; }
  static raw_key raw(argument key) noexcept { return {std::addressof(key), 0}; }

  // The packer may write some bytes more than the key has.
  struct image_room {
    alignas(8) unsigned char bytes[packed_size + 8];
  };
  using image = key_image<hashing::known_length<packed_size>>;
  static image make_image(const MORVAInst *inst, argument key, image_room &room) noexcept {
    inst->recordPacker->pack(inst->recordPacker, std::addressof(key), room.bytes, 1);
    return {room.bytes, {}};
  }
  static packed_order order(const image &image) noexcept {
    return packed_order(image.bytes, image.length);
  }

  static const std::byte *packed(const RecordNode *node) noexcept {
    return static_cast<const std::byte *>(MORVARecordBase(const_cast<RecordNode *>(node)));
  }
  static view show(const RecordNode *node) noexcept { return view(packed(node)); }

  // The packer reads its fields of a row and nothing else; packing what was
  // packed gives the same bytes.
  template <class Use>
  static auto with_stored(const RecordNode *node, Use use) {
    alignas(row) std::byte bytes[sizeof(row)];
    const std::byte *from = packed(node);
    copy_back<First>(bytes, from);
    (copy_back<Rest>(bytes, from), ...);
    return use(raw_key{bytes, 0});
  }

  static MORVAStatus define(MORVAInst *inst, std::uint32_t data_length) noexcept {
    bool taken = define_field<First>(inst);
    ((taken = taken && define_field<Rest>(inst)), ...);
    if (!taken) return MORVA_INVALID;
    // Here the statuses say the reverse: refused for a pool that could not be
    // made, no memory for a key that the packer did not take.
    const MORVAStatus status = inst->DefineDone(inst, 0, data_length);
    if (status == MORVA_OK) return MORVA_OK;
    return status == MORVA_INVALID ? MORVA_NO_MEMORY : MORVA_INVALID;
  }

 private:
  template <auto Field>
  static void copy_back(std::byte *row_bytes, const std::byte *&from) noexcept {
    std::memcpy(row_bytes + field_of<Field>::offset(), from, field_of<Field>::size);
    from += field_of<Field>::size;
  }

  template <auto Field>
  static bool define_field(MORVAInst *inst) noexcept {
    using one = field_of<Field>;
    const MORVAKeyDesc desc{static_cast<std::uint32_t>(one::size),
                            static_cast<std::uint32_t>(one::packing),
                            static_cast<std::uint32_t>(one::offset()), one::options};
    return inst->DefineKey(inst, &desc) == MORVA_OK;
  }
};

template <auto... Fields>
struct key_traits<composed<Fields...>> : composed_key<Fields...> {
  static_assert(sizeof...(Fields) > 0, "a composed key has at least one field");
};

}  // namespace detail
}  // namespace morva

#endif
