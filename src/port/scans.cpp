// Scans for the first unit that is, or is not, a given value.
#include "morva/port.h"

namespace {

// Index of the first of `n` units for which `wanted` holds, or -1.
template <class Unit, class Wanted>
int64_t firstIndex(const Unit *units, uint64_t n, Wanted wanted) {
  if (units != nullptr) {
    for (uint64_t i = 0; i < n; ++i) {
      if (wanted(units[i])) return static_cast<int64_t>(i);
    }
  }
  return -1;
}

template <class Unit>
int64_t firstOther(const Unit *units, uint64_t n, Unit value) {
  return firstIndex(units, n, [value](Unit unit) { return unit != value; });
}

}  // namespace

extern "C" {

uint32_t skMemNot(uint8_t c, const void *p, uint64_t n) {
  return firstOther(static_cast<const uint8_t *>(p), n, c) < 0 ? 1 : 0;
}

uint32_t skMemTNot(uint32_t c, const uint32_t *p, uint64_t n) {
  return firstOther(p, n, c) < 0 ? 1 : 0;
}

int64_t skMemScan(const void *p, uint64_t n, uint8_t c) {
  return firstIndex(static_cast<const uint8_t *>(p), n, [c](uint8_t unit) { return unit == c; });
}

int64_t skMemNScan(const void *p, uint64_t n, uint8_t c) {
  return firstOther(static_cast<const uint8_t *>(p), n, c);
}

int64_t skMemTNScan(const uint32_t *p, uint64_t n, uint32_t c) {
  return firstOther(p, n, c);
}

uint32_t skMissArray(const double *v, uint64_t n) {
  // A NaN is the only value that differs from itself.
  return firstIndex(v, n, [](double value) { return value != value; }) < 0 ? 0 : 1;
}

}  // extern "C"
