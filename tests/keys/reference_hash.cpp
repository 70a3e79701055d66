#include "reference_hash.h"

#include <cstdlib>

namespace keys_test {

namespace {

uint32_t times33(const uint8_t *b, size_t n) {
  uint32_t h = 0;
  for (size_t i = 0; i < n; i++) h = h * 33 + b[i];
  return h + (h >> 5);
}

struct Words {
  uint64_t a, b, c;
};

void mix(Words &w) {
  w.a = (w.a - w.b - w.c) ^ (w.c >> 13);
  w.b = (w.b - w.c - w.a) ^ (w.a << 8);
  w.c = (w.c - w.a - w.b) ^ (w.b >> 13);
  w.a = (w.a - w.b - w.c) ^ (w.c >> 12);
  w.b = (w.b - w.c - w.a) ^ (w.a << 16);
  w.c = (w.c - w.a - w.b) ^ (w.b >> 5);
  w.a = (w.a - w.b - w.c) ^ (w.c >> 3);
  w.b = (w.b - w.c - w.a) ^ (w.a << 10);
  w.c = (w.c - w.a - w.b) ^ (w.b >> 15);
}

// Deliberately on 64-bit words, unlike the published 32-bit form.
uint32_t lookup2(const uint8_t *b, size_t n) {
  Words w = {0x9E3779B9, 0x9E3779B9, 0};
  size_t at = 0;
  for (; n - at >= 12; at += 12) {
    for (size_t i = 0; i < 4; i++) {
      w.a += uint64_t{b[at + i]} << (8 * i);
      w.b += uint64_t{b[at + 4 + i]} << (8 * i);
      w.c += uint64_t{b[at + 8 + i]} << (8 * i);
    }
    mix(w);
  }
  w.c += n;
  for (size_t i = 0; at + i < n; i++) {
    const uint64_t byte = b[at + i];
    if (i < 4) w.a += byte << (8 * i);
    if (i >= 4 && i < 8) w.b += byte << (8 * (i - 4));
    if (i >= 8) w.c += byte << (8 * (i - 7));
  }
  mix(w);
  return static_cast<uint32_t>(w.c);
}

uint32_t elf(const uint8_t *b, size_t n) {
  uint32_t h = 0;
  for (size_t i = 0; i < n; i++) {
    h = (h << 4) + b[i];
    const uint32_t g = h & 0xF0000000;
    if (g != 0) h = h ^ (g >> 24) ^ g;
  }
  return h ^ (h >> 10) ^ (h >> 20);
}

uint32_t rotating(const uint8_t *b, size_t n) {
  auto h = static_cast<uint32_t>(n);
  for (size_t i = 0; i < n; i++) h = (h << 4 | h >> 28) ^ b[i];
  return h ^ (h >> 10) ^ (h >> 20);
}

uint32_t weighted(const uint8_t *b, size_t n) {
  uint32_t h = 1234;
  for (size_t i = 0; i < n; i++) h ^= static_cast<uint32_t>(b[i] * (n - 1 - i));
  return h ^ (h >> 17);
}

uint32_t times37(const uint8_t *b, size_t n) {
  uint32_t h = 0;
  for (size_t i = 0; i < n; i++) h = h * 37 + b[i];
  return h;
}

uint32_t oneAtATime(const uint8_t *b, size_t n) {
  uint32_t h = 0;
  for (size_t i = 0; i < n; i++) {
    h += b[i];
    h += h << 10;
    h ^= h >> 6;
  }
  h += h << 3;
  h ^= h >> 11;
  return h + (h << 15);
}

uint32_t fnv(const uint8_t *b, size_t n) {
  uint32_t h = 0;
  for (size_t i = 0; i < n; i++) h = (h * 16777619) ^ b[i];
  return h;
}

}  // namespace

uint32_t referenceHash(int method, const uint8_t *bytes, size_t n) {
  switch (method) {
    case 2:
      return times33(bytes, n);
    case 3:
      return lookup2(bytes, n);
    case 4:
      return elf(bytes, n);
    case 5:
      return rotating(bytes, n);
    case 6:
      return weighted(bytes, n);
    case 7:
      return times37(bytes, n);
    case 8:
      return oneAtATime(bytes, n);
    case 9:
      return fnv(bytes, n);
  }
  std::abort();
}

std::vector<uint8_t> goldenText(size_t length) {
  std::vector<uint8_t> text(length);
  uint64_t state = length * 2 + 1;
  for (uint8_t &byte : text) {
    state = state * UINT64_C(6364136223846793005) + UINT64_C(1442695040888963407);
    byte = static_cast<uint8_t>(state >> 56);
  }
  return text;
}

}  // namespace keys_test
