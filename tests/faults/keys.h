// The keys of the small tables: numbered, in the form that each key mode takes.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "morva/parms.h"

namespace fault_test {

// The first kMostStored are in a table from the start; then a new one, one that never is in a
// table, and one longer than any fixed key may be.
inline constexpr int kMostStored = 16;
inline constexpr int kNew = 16;
inline constexpr int kNew2 = 17;
inline constexpr int kNew3 = 18;
inline constexpr int kAbsent = 19;
inline constexpr int kKeys = 20;

inline constexpr uint32_t kLongestRawKey = 8;
// A fixed key may be 12 bytes longer than declared.
inline constexpr int32_t kOverlong = kLongestRawKey + 13;

// A row of the host's with a field of each kind. Packed it is the key: the fields lie end to end.
#pragma pack(push, 1)
struct Row {
  double amount;
  char text[2];
  int8_t small;
  char raw[1];
  char name[3];
};
#pragma pack(pop)
static_assert(sizeof(Row) == 15);

// The field kinds that MORVAKeyDesc knows, as the row has them, in the order of definition.
inline constexpr MORVAKeyDesc kRowFields[] = {{8, 1, offsetof(Row, amount), 0},
                                              {2, 2, offsetof(Row, text), 1},
                                              {1, 3, offsetof(Row, small), 0},
                                              {1, 4, offsetof(Row, raw), 0},
                                              {3, 5, offsetof(Row, name), 0}};

class Keys {
 public:
  Keys() {
    for (int i = 0; i < kKeys; ++i) {
      const char digits[2] = {static_cast<char>('0' + i / 10), static_cast<char>('0' + i % 10)};
      Raw &raw = raw_[static_cast<size_t>(i)];
      // Lengths of three kinds, so that order by length counts.
      raw = {{'K', digits[0], digits[1], 'X', 'X', 'X', 'X', 'X'}, 3 + i % 3};
      Row &row = rows_[static_cast<size_t>(i)];
      // The largest first, and fields that are equal in some keys.
      row.amount = 1.0 + (kKeys - i) / 4;
      std::memcpy(row.text, digits, sizeof row.text);
      row.small = static_cast<int8_t>(i % 2 == 0 ? -1 : 1);
      row.raw[0] = static_cast<char>(0x80 + i % 3);
      std::memcpy(row.name, "A\0\0", sizeof row.name);
    }
  }

  // As the operations take it.
  const void *bytes(bool raw, int i) const {
    return raw ? static_cast<const void *>(raw_[static_cast<size_t>(i)].bytes)
               : static_cast<const void *>(&rows_[static_cast<size_t>(i)]);
  }
  int32_t length(int i) const { return raw_[static_cast<size_t>(i)].length; }

  // The number of a stored key, given what a node holds of it; -1 for any other bytes.
  int numberOf(bool raw, const char *bytes, uint32_t length) const {
    const char *digits = bytes + (raw ? 1 : offsetof(Row, text));
    if (length < 3) return -1;
    const int i = (digits[0] - '0') * 10 + (digits[1] - '0');
    if (i < 0 || i >= kKeys) return -1;
    const size_t expected = raw ? static_cast<size_t>(this->length(i)) : sizeof(Row);
    return length == expected && std::memcmp(this->bytes(raw, i), bytes, length) == 0 ? i : -1;
  }

 private:
  struct Raw {
    char bytes[8];
    int32_t length;
  };
  std::array<Raw, kKeys> raw_;
  std::array<Row, kKeys> rows_;
};

inline const Keys kAllKeys;

}  // namespace fault_test
