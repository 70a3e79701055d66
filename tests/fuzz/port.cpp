// Every portable routine against a plain loop, on areas that start anywhere, end
// where their memory ends, and overlap.
#include "morva/port.h"

#include <algorithm>
#include <bit>
#include <memory>
#include <string>
#include <vector>

#include "check.h"
#include "input.h"

using morva_fuzz::Input;

namespace {

// A copy of some bytes at the end of a block of its own, at an address that is
// `offset` behind a multiple of 8: what reads beyond them is seen by a sanitizer.
class Area {
 public:
  Area(const std::string &content, size_t offset)
      : size_(content.size()), block_(new char[size_ + offset]), start_(block_.get() + offset) {
    std::copy(content.begin(), content.end(), start_);
  }

  char *get() { return start_; }
  uint32_t *units() { return reinterpret_cast<uint32_t *>(start_); }
  std::string content() const { return {start_, size_}; }

 private:
  size_t size_;
  std::unique_ptr<char[]> block_;
  char *start_;
};

uint32_t unitAt(const std::string &bytes, size_t index) {
  uint32_t unit;
  std::memcpy(&unit, bytes.data() + 4 * index, sizeof unit);
  return unit;
}

template <typename Unit>
std::vector<Unit> unitsOf(const std::string &bytes) {
  std::vector<Unit> units(bytes.size() / sizeof(Unit));
  if (!units.empty()) std::memcpy(units.data(), bytes.data(), units.size() * sizeof(Unit));
  return units;
}

template <typename Unit>
int64_t firstThat(const std::vector<Unit> &units, auto condition) {
  for (size_t i = 0; i < units.size(); ++i) {
    if (condition(units[i])) return static_cast<int64_t>(i);
  }
  return -1;
}

// Long runs of one unit, since the routines go over many at a time.
std::string takeText(Input &input, size_t unit) {
  std::string text;
  for (uint64_t runs = input.below(6); runs > 0; --runs) {
    const std::string piece = input.filled(unit);
    for (uint64_t n = input.below(90); n > 0; --n) text += piece;
  }
  return text + input.bytes(unit * input.below(20));
}

void lengths(Input &input) {
  const std::string text = takeText(input, 1);
  Area bytes(text + '\0', input.below(8));
  FUZZ_CHECK(skStrLen(bytes.get()) == std::string(text.c_str()).size());

  std::string wide = takeText(input, 4);
  wide.resize(wide.size() / 4 * 4);
  const auto units = unitsOf<uint32_t>(wide);
  Area area(wide + std::string(4, '\0'), 4 * input.below(2));
  const int64_t end = firstThat(units, [](uint32_t unit) { return unit == 0; });
  FUZZ_CHECK(skStrTLen(area.units()) == (end < 0 ? units.size() : static_cast<uint64_t>(end)));
}

void stringCopies(Input &input) {
  const std::string text = takeText(input, 1);
  const std::string upToZero(text.c_str(), std::string(text.c_str()).size() + 1);
  Area from(text + '\0', input.below(8));
  Area to(std::string(upToZero.size() + 3, '#'), input.below(8));
  skStrCpy(from.get(), to.get());
  FUZZ_CHECK(to.content() == upToZero + "###");
  FUZZ_CHECK(from.content() == text + '\0');

  std::string wide = takeText(input, 4);
  wide.resize(wide.size() / 4 * 4);
  size_t count = 0;
  while (count < wide.size() / 4 && unitAt(wide, count) != 0) ++count;
  wide += std::string(4, '\0');
  Area wideFrom(wide, 4 * input.below(2));
  Area wideTo(std::string(4 * count + 8, '#'), 4 * input.below(2));
  skStrTCpy(wideFrom.units(), wideTo.units());
  FUZZ_CHECK(wideTo.content() == wide.substr(0, 4 * count) + std::string(4, '\0') + "####");
}

void letterCase(Input &input) {
  const std::string text = takeText(input, 1);
  const uint64_t n = input.below(text.size() + 1);
  std::string upper = text, lower = text;
  for (size_t i = 0; i < n; ++i) {
    if (text[i] >= 'a' && text[i] <= 'z') upper[i] = static_cast<char>(text[i] - 32);
    if (text[i] >= 'A' && text[i] <= 'Z') lower[i] = static_cast<char>(text[i] + 32);
  }
  const size_t offset = input.below(8);
  Area up(text, offset), low(text, offset);
  skStrUp(up.get(), n);
  skStrLow(low.get(), n);
  FUZZ_CHECK(up.content() == upper);
  FUZZ_CHECK(low.content() == lower);
}

void fills(Input &input) {
  const std::string text = takeText(input, 1);
  const uint64_t n = input.below(text.size() + 1);
  const uint8_t c = input.byte();
  Area area(text, input.below(8));
  skMemSet(area.get(), c, n);
  FUZZ_CHECK(area.content() == std::string(n, static_cast<char>(c)) + text.substr(n));

  std::string wide = takeText(input, 4);
  wide.resize(wide.size() / 4 * 4);
  const uint64_t count = input.below(wide.size() / 4 + 1);
  const auto unit = static_cast<uint32_t>(input.word(4));
  std::string filled;
  for (uint64_t i = 0; i < count; ++i) {
    filled.append(reinterpret_cast<const char *>(&unit), sizeof unit);
  }
  Area units(wide, 4 * input.below(2));
  FUZZ_CHECK(skMemTSet(units.units(), unit, count) == count);
  FUZZ_CHECK(units.content() == filled + wide.substr(filled.size()));
}

void scans(Input &input) {
  const std::string text = takeText(input, 1);
  const auto bytes = unitsOf<uint8_t>(text);
  const uint8_t c = input.bit() && !bytes.empty() ? bytes.front() : input.byte();
  Area area(text, input.below(8));
  const int64_t equal = firstThat(bytes, [c](uint8_t byte) { return byte == c; });
  const int64_t other = firstThat(bytes, [c](uint8_t byte) { return byte != c; });
  FUZZ_CHECK(skMemScan(area.get(), text.size(), c) == equal);
  FUZZ_CHECK(skMemNScan(area.get(), text.size(), c) == other);
  FUZZ_CHECK(skMemNot(c, area.get(), text.size()) == (other < 0 ? 1u : 0u));

  std::string wide = takeText(input, 4);
  wide.resize(wide.size() / 4 * 4);
  const auto units = unitsOf<uint32_t>(wide);
  const auto unit =
      input.bit() && !units.empty() ? units.front() : static_cast<uint32_t>(input.word(4));
  Area wideArea(wide, 4 * input.below(2));
  const int64_t otherUnit = firstThat(units, [unit](uint32_t u) { return u != unit; });
  FUZZ_CHECK(skMemTNScan(wideArea.units(), units.size(), unit) == otherUnit);
  FUZZ_CHECK(skMemTNot(unit, wideArea.units(), units.size()) == (otherUnit < 0 ? 1u : 0u));
}

// One area, and the same with some bytes changed.
void comparisons(Input &input) {
  std::string a = takeText(input, 4);
  a.resize(a.size() / 4 * 4);
  std::string b = a;
  for (uint64_t changes = input.below(3); changes > 0 && !b.empty(); --changes) {
    b[input.below(b.size())] = static_cast<char>(input.byte());
  }
  Area first(a, 4 * input.below(2)), second(b, 4 * input.below(2));
  int32_t bytewise = 0, unitwise = 0;
  for (size_t i = 0; i < a.size() && bytewise == 0; ++i) {
    const auto x = static_cast<uint8_t>(a[i]), y = static_cast<uint8_t>(b[i]);
    if (x != y) bytewise = x > y ? 1 : -1;
  }
  for (size_t i = 0; i < a.size() / 4 && unitwise == 0; ++i) {
    const uint32_t difference = unitAt(a, i) - unitAt(b, i);
    if (difference != 0) unitwise = std::bit_cast<int32_t>(difference) < 0 ? -1 : 1;
  }
  FUZZ_CHECK(skMemCmp(first.get(), second.get(), a.size()) == bytewise);
  FUZZ_CHECK(skWMemCmp(first.units(), second.units(), a.size() / 4) == unitwise);
  // Bytes that start anywhere.
  const size_t skipped = input.below(a.size() + 1);
  Area odd(a.substr(skipped), input.below(8));
  const std::string tail = b.substr(skipped);
  const int order = a.substr(skipped).compare(tail);
  FUZZ_CHECK(skMemCmp(odd.get(), second.get() + skipped, tail.size()) == (order == 0  ? 0
                                                                          : order < 0 ? -1
                                                                                      : 1));
}

// Where a copy of `n` bytes from `from` goes: anywhere, or so that the two areas just
// touch, or overlap by little or by nearly all.
size_t takeDestination(Input &input, size_t from, size_t n, size_t size) {
  const auto last = static_cast<int64_t>(size - n);
  const auto start = static_cast<int64_t>(from);
  const auto near = static_cast<int64_t>(input.byte() % 8) - 4;
  const auto length = static_cast<int64_t>(n);
  switch (input.below(4)) {
    case 0:
      return static_cast<size_t>(std::clamp<int64_t>(start + length + near, 0, last));
    case 1:
      return static_cast<size_t>(std::clamp<int64_t>(start - length + near, 0, last));
    case 2:
      return static_cast<size_t>(std::clamp<int64_t>(start + near, 0, last));
    default:
      return input.below(size - n + 1);
  }
}

// Source and destination in one area: apart, touching, or overlapping.
void copies(Input &input) {
  const std::string text = takeText(input, 1);
  const size_t offset = input.below(8);
  const size_t n = input.below(text.size() + 1), from = input.below(text.size() - n + 1);
  const size_t to = takeDestination(input, from, n, text.size());

  std::string forward = text;
  for (size_t i = 0; i < n; ++i) forward[to + i] = forward[from + i];
  Area copied(text, offset);
  FUZZ_CHECK(skMemCpy(copied.get() + from, copied.get() + to, n) == copied.get() + to);
  FUZZ_CHECK(copied.content() == forward);

  std::string moved = text;
  moved.replace(to, n, text.substr(from, n));
  Area safe(text, offset);
  skMemSCpy(safe.get() + from, safe.get() + to, n);
  FUZZ_CHECK(safe.content() == moved);

  Area source(text, offset), apart(text, input.below(8));
  FUZZ_CHECK(skMemCpy(source.get() + from, apart.get() + to, n) == apart.get() + to);
  FUZZ_CHECK(apart.content() == moved);
}

struct OneBlockPool : HostPool {
  std::unique_ptr<char[]> block;
  uint64_t asked = 0;
};

void duplicate(Input &input) {
  const std::string text = takeText(input, 1);
  OneBlockPool pool{};
  pool.allocate = [](HostPool *self, uint64_t size, uint32_t) -> void * {
    auto *pool = static_cast<OneBlockPool *>(self);
    pool->asked += size;
    pool->block.reset(new char[size]);
    return pool->block.get();
  };
  Area area(text, input.below(8));
  void *const copy = skMemDup(area.get(), text.size(), &pool);
  FUZZ_CHECK(copy == pool.block.get() && pool.asked == text.size());
  FUZZ_CHECK(std::string(static_cast<char *>(copy), text.size()) == text);
}

void missingValues(Input &input) {
  std::string text = takeText(input, 8);
  text.resize(text.size() / 8 * 8);
  const auto bits = unitsOf<uint64_t>(text);
  Area area(text, 0);
  const bool missing = firstThat(bits, [](uint64_t word) {
                         return (word & ~(UINT64_C(1) << 63)) > UINT64_C(0x7FF) << 52;
                       }) >= 0;
  FUZZ_CHECK(skMissArray(reinterpret_cast<const double *>(area.get()), bits.size()) ==
             (missing ? 1u : 0u));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static constexpr void (*kRoutines[])(Input &) = {lengths, stringCopies, letterCase,
                                                   fills,   scans,        comparisons,
                                                   copies,  duplicate,    missingValues};
  Input input(data, size);
  do {
    kRoutines[input.below(std::size(kRoutines))](input);
  } while (!input.empty());
  return 0;
}
