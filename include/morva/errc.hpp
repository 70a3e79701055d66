/**
 * @file
 * What can go wrong in the C++ interface, as one enumeration. It holds the
 * statuses of the operations that are failures, and a few of its own.
 */
#ifndef MORVA_ERRC_HPP
#define MORVA_ERRC_HPP

#include <cstdint>
#include <string_view>

#include "morva/status.h"

namespace morva {

/** Why something was not done. What was not done changed nothing. */
enum class errc : std::uint32_t {
  /** The host had no memory, or no further lock, pool or companion. */
  no_memory = MORVA_NO_MEMORY,
  /** The library or the host refused the request. */
  refused = MORVA_INVALID,
  /** The host cannot do this: it tells no insertion order, for example. */
  unsupported = MORVA_UNSUPPORTED,
  /** The record's node is on the instance's pinned list. */
  pinned = MORVA_PINNED,
  /** No record has the key. */
  not_found = 0x01000001,
  /** The key has more bytes than the table takes. */
  key_too_long = 0x01000002,
  /** The cursor or iterator points to no record. */
  no_record = 0x01000003,
  /** The table was moved from, or never made. */
  no_table = 0x01000004,
  /** The extension could not be loaded or attached. */
  not_loaded = 0x01000005,
  /** The number is a NaN, which no sum can hold. */
  not_a_number = 0x01000006,
};

/** The error as a sentence without a full stop. */
constexpr std::string_view describe(errc error) noexcept {
  switch (error) {
    case errc::no_memory:
      return "out of memory";
    case errc::refused:
      return "request refused";
    case errc::unsupported:
      return "not supported by this host";
    case errc::pinned:
      return "record is pinned";
    case errc::not_found:
      return "no record has this key";
    case errc::key_too_long:
      return "key is longer than the table takes";
    case errc::no_record:
      return "cursor points to no record";
    case errc::no_table:
      return "table was moved from or never made";
    case errc::not_loaded:
      return "extension could not be loaded";
    case errc::not_a_number:
      return "a NaN cannot be summed";
  }
  return "unknown error";
}

}  // namespace morva

#endif
