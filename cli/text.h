// Small helpers for texts that people read, and for numbers in the data.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace morva::cli {

// `text` in single quotes, control characters spelled out, cut after about `limit` bytes.
std::string quoted(std::string_view text, size_t limit = 80);

// "'a', 'b', 'c'".
std::string quotedList(const std::vector<std::string> &texts);

// "1 row", "2 rows".
std::string counted(uint64_t number, std::string_view noun);

// "64 MiB", "1.5 KiB", "17 bytes".
std::string byteSize(uint64_t bytes);

// Reads a whole number, digits only; false for anything else or beyond 64 bits.
bool parseWhole(std::string_view text, uint64_t &number);

// What parseNumber made of a text.
enum class NumberKind { kFinite, kNotANumber, kOutOfRange };

// Reads a decimal number such as 12, -0.5, +3e8; blanks around it do not count.
NumberKind parseNumber(std::string_view text, double &value);

// The shortest text that reads back as `value`; whole numbers below 1e21 without point or exponent.
// Writes at most kNumberSize bytes to `to` and answers how many.
constexpr size_t kNumberSize = 32;
size_t formatNumber(double value, char *to);

}  // namespace morva::cli
