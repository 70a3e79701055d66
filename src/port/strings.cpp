// Strings of bytes and of 32-bit units: lengths, copies, case.
#include "morva/port.h"

namespace {

template <class Unit>
uint64_t lengthOf(const Unit *s) {
  uint64_t n = 0;
  if (s != nullptr) {
    while (s[n] != 0) ++n;
  }
  return n;
}

template <class Unit>
void copyString(const Unit *src, Unit *dst) {
  if (dst == nullptr) return;
  if (src != nullptr) {
    while (*src != 0) *dst++ = *src++;
  }
  *dst = 0;
}

// Moves the letters `first` to `first` + 25 by `distance`; other bytes stay.
void shiftLetters(char *s, uint64_t n, unsigned char first, int distance) {
  if (s == nullptr) return;
  for (uint64_t i = 0; i < n; ++i) {
    const auto byte = static_cast<unsigned char>(s[i]);
    if (static_cast<unsigned char>(byte - first) < 26) s[i] = static_cast<char>(byte + distance);
  }
}

}  // namespace

extern "C" {

uint64_t skStrLen(const char *s) {
  return lengthOf(s);
}
uint64_t skStrTLen(const uint32_t *s) {
  return lengthOf(s);
}

void skStrCpy(const char *src, char *dst) {
  copyString(src, dst);
}
void skStrTCpy(const uint32_t *src, uint32_t *dst) {
  copyString(src, dst);
}

void skStrUp(char *s, uint64_t n) {
  shiftLetters(s, n, 'a', 'A' - 'a');
}
void skStrLow(char *s, uint64_t n) {
  shiftLetters(s, n, 'A', 'a' - 'A');
}

}  // extern "C"
