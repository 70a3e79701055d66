/**
 * @file
 * Many keys of a partitioned table, part by part: see its `..._many`
 * operations.
 */
#ifndef MORVA_PARTITION_GROUPS_HPP
#define MORVA_PARTITION_GROUPS_HPP

#include <algorithm>
#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <ranges>
#include <span>
#include <type_traits>

namespace morva::detail {

// A part of a range. (Not a view of the standard library: clang 14 cannot make
// one.)
template <class Iterator>
struct piece {
  Iterator first;
  Iterator last;

  Iterator begin() const { return first; }
  Iterator end() const { return last; }
};

// Goes through the elements at some places of a range.
template <class Iterator>
class picked_iterator {
  using difference = std::iter_difference_t<Iterator>;

 public:
  using iterator_concept = std::random_access_iterator_tag;
  using iterator_category = std::input_iterator_tag;
  using value_type = std::iter_value_t<Iterator>;
  using difference_type = std::ptrdiff_t;
  using reference = std::iter_reference_t<Iterator>;

  picked_iterator() = default;
  picked_iterator(Iterator first, const std::uint16_t *place) : first_(first), place_(place) {}

  reference operator*() const { return first_[static_cast<difference>(*place_)]; }
  reference operator[](difference_type n) const { return *(*this + n); }

  picked_iterator &operator+=(difference_type n) {
    place_ += n;
    return *this;
  }
  picked_iterator &operator-=(difference_type n) { return *this += -n; }
  picked_iterator &operator++() { return *this += 1; }
  picked_iterator &operator--() { return *this -= 1; }
  picked_iterator operator++(int) { return {first_, place_++}; }
  picked_iterator operator--(int) { return {first_, place_--}; }

  friend picked_iterator operator+(picked_iterator at, difference_type n) { return at += n; }
  friend picked_iterator operator+(difference_type n, picked_iterator at) { return at += n; }
  friend picked_iterator operator-(picked_iterator at, difference_type n) { return at -= n; }
  friend difference_type operator-(const picked_iterator &a, const picked_iterator &b) {
    return a.place_ - b.place_;
  }
  friend bool operator==(const picked_iterator &a, const picked_iterator &b) {
    return a.place_ == b.place_;
  }
  friend auto operator<=>(const picked_iterator &a, const picked_iterator &b) {
    return a.place_ <=> b.place_;
  }

 private:
  Iterator first_{};
  const std::uint16_t *place_ = nullptr;
};

// Those at offset + each of `places`.
template <class Range>
auto picked(Range &from, std::size_t offset, std::span<const std::uint16_t> places) {
  const auto first =
      std::ranges::begin(from) + static_cast<std::ranges::range_difference_t<Range>>(offset);
  using iterator = picked_iterator<std::remove_const_t<decltype(first)>>;
  return piece<iterator>{{first, places.data()}, {first, places.data() + places.size()}};
}

// Sorts the keys of a range by their parts, some thousand at a time, so that a
// part's lock is taken once for many of them.
class part_groups {
 public:
  // With more parts than this, hardly two keys of a group would meet in one.
  static constexpr std::size_t most_parts = 256;
  // As many are given to a part at once.
  static constexpr std::size_t most_places = 256;
  // How many keys are sorted at a time.
  static constexpr std::size_t group = 4096;

  // Calls use(part, offset, places), while it answers true, for groups of keys of
  // one part: those at offset + each of `places`, in turn. Where a key belongs
  // says part_of(i). The keys of a part come in their order.
  template <class PartOf, class Use>
  bool go_through(std::size_t count, std::size_t parts, PartOf part_of, Use use) {
    for (std::size_t offset = 0; offset < count; offset += group) {
      const std::size_t size = std::min(group, count - offset);
      sort(size, [&](std::size_t i) { return part_of(offset + i); });
      std::size_t first = 0;
      for (std::size_t part = 0; part < parts; ++part) {
        for (; first < ends_[part]; first += most_places) {
          const std::size_t some = std::min(most_places, ends_[part] - first);
          if (!use(part, offset, std::span<const std::uint16_t>(places_).subspan(first, some))) {
            return false;
          }
        }
        first = ends_[part];
      }
    }
    return true;
  }

 private:
  // Distribution counting; stable.
  template <class PartOf>
  void sort(std::size_t size, PartOf part_of) {
    std::array<std::uint8_t, group> parts;
    std::array<std::uint32_t, most_parts> counts{};
    for (std::size_t i = 0; i < size; ++i) {
      parts[i] = static_cast<std::uint8_t>(part_of(i));
      ++counts[parts[i]];
    }
    std::uint32_t end = 0;
    for (std::size_t part = 0; part < most_parts; ++part) {
      ends_[part] = end;
      end += counts[part];
    }
    for (std::size_t i = 0; i < size; ++i) {
      places_[ends_[parts[i]]++] = static_cast<std::uint16_t>(i);
    }
  }

  std::array<std::uint16_t, group> places_;
  // Where each part's places end.
  std::array<std::uint32_t, most_parts> ends_;
};

}  // namespace morva::detail

#endif
