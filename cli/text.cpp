#include "text.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>

namespace morva::cli {

namespace {

// Longest prefix of `text` of at most `limit` bytes that cuts no UTF-8 sequence.
std::string_view cut(std::string_view text, size_t limit) {
  if (text.size() <= limit) return text;
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) --limit;
  return text.substr(0, limit);
}

void appendEscaped(std::string &to, char c) {
  switch (c) {
    case '\n':
      to += "\\n";
      return;
    case '\r':
      to += "\\r";
      return;
    case '\t':
      to += "\\t";
      return;
    default:
      break;
  }
  const auto byte = static_cast<unsigned char>(c);
  if (byte >= 0x20 && byte != 0x7F) {
    to += c;
    return;
  }
  char code[8];
  std::snprintf(code, sizeof code, "\\x%02x", byte);
  to += code;
}

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

}  // namespace

std::string quoted(std::string_view text, size_t limit) {
  const std::string_view shown = cut(text, limit);
  std::string result = "'";
  for (const char c : shown) appendEscaped(result, c);
  if (shown.size() < text.size()) result += "...";
  return result += '\'';
}

std::string quotedList(const std::vector<std::string> &texts) {
  std::string result;
  for (const std::string &text : texts) {
    if (!result.empty()) result += ", ";
    result += quoted(text);
  }
  return result;
}

std::string counted(uint64_t number, std::string_view noun) {
  std::string result = std::to_string(number) + ' ';
  result += noun;
  if (number != 1) result += 's';
  return result;
}

std::string byteSize(uint64_t bytes) {
  if (bytes < 1024) return counted(bytes, "byte");
  static constexpr const char *kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double size = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  while (size >= 1024 && unit < 5) {
    size /= 1024;
    ++unit;
  }
  char text[48];
  std::snprintf(text, sizeof text, size == std::floor(size) ? "%.0f %s" : "%.1f %s", size,
                kUnits[unit]);
  return text;
}

bool parseWhole(std::string_view text, uint64_t &number) {
  const char *last = text.data() + text.size();
  const auto [end, code] = std::from_chars(text.data(), last, number);
  return end == last && code == std::errc();
}

NumberKind parseNumber(std::string_view text, double &value) {
  const char *first = text.data();
  const char *last = first + text.size();
  while (first != last && isBlank(*first)) ++first;
  while (first != last && isBlank(last[-1])) --last;
  if (last - first > 1 && *first == '+' && first[1] != '-') ++first;
  const auto [end, code] = std::from_chars(first, last, value);
  if (end != last || first == last) return NumberKind::kNotANumber;
  if (code == std::errc::result_out_of_range) {
    // Too large, or so small that the nearest float is 0 or next to it.
    value = std::strtod(std::string(first, last).c_str(), nullptr);
    return std::isfinite(value) ? NumberKind::kFinite : NumberKind::kOutOfRange;
  }
  if (code != std::errc() || !std::isfinite(value)) return NumberKind::kNotANumber;
  return NumberKind::kFinite;
}

size_t formatNumber(double value, char *to) {
  // Whole numbers up to 2^53 are what counts give, and -0 is no number to show.
  if (value == std::floor(value) && std::fabs(value) <= 9007199254740992.0) {
    return static_cast<size_t>(
        std::to_chars(to, to + kNumberSize, static_cast<int64_t>(value)).ptr - to);
  }
  const double magnitude = std::fabs(value);
  const auto format = magnitude >= 1e-5 && magnitude < 1e21 ? std::chars_format::fixed
                                                            : std::chars_format::scientific;
  return static_cast<size_t>(std::to_chars(to, to + kNumberSize, value, format).ptr - to);
}

}  // namespace morva::cli
