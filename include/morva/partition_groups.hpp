/**
 * @file
 * Many keys of a partitioned table, part by part: see its `..._many`
 * operations.
 */
#ifndef MORVA_PARTITION_GROUPS_HPP
#define MORVA_PARTITION_GROUPS_HPP

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <ranges>
#include <span>

namespace morva::detail {

// The elements at some places of a random-access range, as a range.
template <class Range>
auto picked(Range &from, std::size_t offset, std::span<const std::uint16_t> places) {
  const auto first =
      std::ranges::begin(from) + static_cast<std::ranges::range_difference_t<Range>>(offset);
  return std::views::transform(places, [first](std::uint16_t place) -> decltype(auto) {
    return first[static_cast<std::ranges::range_difference_t<Range>>(place)];
  });
}

// Sorts the keys of a range by their parts, some thousand at a time, so that a
// part's lock is taken once for many of them.
class part_groups {
 public:
  // With more parts than this, hardly two keys of a group would meet in one.
  static constexpr std::size_t most_parts = 256;
  // As many are given to a part at once.
  static constexpr std::size_t most_places = 256;

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
  static constexpr std::size_t group = 4096;

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
