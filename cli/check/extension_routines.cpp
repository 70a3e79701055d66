// The portable routines.
#include <algorithm>
#include <cstring>
#include <limits>

#include "extension_lab.h"
#include "extension_parts.h"
#include "morva/port.h"

namespace morva::cli::check {

namespace {

// The exported function NAME, of the type that its declaration says.
#define MORVA_ROUTINE(name) const auto name = file.get<decltype(&::name)>(#name)

void lengths(const Subject &subject) {
  const SharedFile file(subject.file);
  MORVA_ROUTINE(skStrLen);
  MORVA_ROUTINE(skStrTLen);
  expectEqual(skStrLen(nullptr), uint64_t{0}, "skStrLen of null");
  expectEqual(skStrTLen(nullptr), uint64_t{0}, "skStrTLen of null");
  for (size_t length = 0; length != 70; ++length) {
    const std::string text(length, 'x');
    expectEqual(skStrLen(text.c_str()), uint64_t{length}, "skStrLen");
    std::vector<uint32_t> wide(length, 0x10000);
    wide.push_back(0);
    expectEqual(skStrTLen(wide.data()), uint64_t{length}, "skStrTLen");
  }
}

void copiesOfTexts(const Subject &subject) {
  const SharedFile file(subject.file);
  MORVA_ROUTINE(skStrCpy);
  MORVA_ROUTINE(skStrTCpy);
  char place[8] = "1234567";
  skStrCpy("abc", nullptr);
  skStrCpy("abc", place);
  expect(std::memcmp(place, "abc\000567", 8) == 0, "skStrCpy does not copy text and terminator");
  skStrCpy(nullptr, place);
  expect(std::memcmp(place, "\000bc\000567", 8) == 0, "skStrCpy of null does not empty the place");
  const uint32_t text[] = {7, 0x1F600, 0};
  uint32_t wide[4] = {1, 2, 3, 4};
  skStrTCpy(text, wide);
  expect(wide[0] == 7 && wide[1] == 0x1F600 && wide[2] == 0 && wide[3] == 4,
         "skStrTCpy does not copy text and terminator");
  skStrTCpy(nullptr, wide);
  expect(wide[0] == 0 && wide[1] == 0x1F600, "skStrTCpy of null does not empty the place");
  skStrTCpy(text, nullptr);
}

void cases(const Subject &subject) {
  const SharedFile file(subject.file);
  MORVA_ROUTINE(skStrUp);
  MORVA_ROUTINE(skStrLow);
  for (int byte = 0; byte != 256; ++byte) {
    char upper = static_cast<char>(byte), lower = upper;
    skStrUp(&upper, 1);
    skStrLow(&lower, 1);
    expectEqual(static_cast<int>(static_cast<unsigned char>(upper)),
                byte >= 'a' && byte <= 'z' ? byte - 32 : byte, "skStrUp of byte " + shown(byte));
    expectEqual(static_cast<int>(static_cast<unsigned char>(lower)),
                byte >= 'A' && byte <= 'Z' ? byte + 32 : byte, "skStrLow of byte " + shown(byte));
  }
  std::string text = "abcXYZ";
  skStrUp(text.data(), 2);
  expectEqual(text, std::string("ABcXYZ"), "a text of which two bytes were made upper case");
  skStrUp(nullptr, 0);
  skStrLow(nullptr, 0);
}

void fills(const Subject &subject) {
  const SharedFile file(subject.file);
  MORVA_ROUTINE(skMemSet);
  MORVA_ROUTINE(skMemTSet);
  MORVA_ROUTINE(skMemNot);
  MORVA_ROUTINE(skMemTNot);
  for (size_t length = 0; length != 70; ++length) {
    std::string bytes(length + 2, 'x');
    skMemSet(bytes.data() + 1, 0xEE, length);
    expectEqual(bytes, 'x' + std::string(length, '\xEE') + 'x', "bytes that skMemSet filled");
    std::vector<uint32_t> wide(length + 2, 9);
    expectEqual(skMemTSet(wide.data() + 1, 0xABCD1234, length), uint64_t{length}, "skMemTSet");
    expect(wide.front() == 9 && wide.back() == 9, "skMemTSet fills more than it is told");
    expectEqual(skMemNot(0xEE, bytes.data() + 1, length), 1U, "skMemNot of equal bytes");
    expectEqual(skMemTNot(0xABCD1234, wide.data() + 1, length), 1U, "skMemTNot of equal units");
    for (size_t at = 1; at <= length; ++at) {
      bytes[at] = 'y';
      wide[at] = 0xABCD1235;
      expectEqual(skMemNot(0xEE, bytes.data() + 1, length), 0U, "skMemNot with another byte");
      expectEqual(skMemTNot(0xABCD1234, wide.data() + 1, length), 0U,
                  "skMemTNot with another unit");
      bytes[at] = '\xEE';
      wide[at] = 0xABCD1234;
    }
  }
}

void comparisons(const Subject &subject) {
  const SharedFile file(subject.file);
  MORVA_ROUTINE(skMemCmp);
  MORVA_ROUTINE(skWMemCmp);
  expectEqual(skMemCmp("a", "b", 0), 0, "skMemCmp of no bytes");
  for (size_t length = 1; length != 70; ++length) {
    const std::string base(length, '\x7F');
    expectEqual(skMemCmp(base.data(), std::string(base).data(), length), 0, "skMemCmp of equals");
    for (size_t at = 0; at != length; ++at) {
      std::string other = base;
      other[at] = '\x80';
      // A later difference the other way round does not matter.
      if (at + 1 < length) other[length - 1] = '\x01';
      expectEqual(skMemCmp(base.data(), other.data(), length), -1, "skMemCmp of a smaller area");
      expectEqual(skMemCmp(other.data(), base.data(), length), 1, "skMemCmp of a greater area");
    }
  }
  expectEqual(skMemCmp(nullptr, nullptr, 3), 0, "skMemCmp of null and null");
  expectEqual(skMemCmp(nullptr, "abc", 3), -1, "skMemCmp of null and an area");
  expectEqual(skMemCmp("abc", nullptr, 3), 1, "skMemCmp of an area and null");
  const uint32_t one[] = {1, 0}, low[] = {1, 0x7FFFFFFF}, high[] = {1, 0x80000000};
  expectEqual(skWMemCmp(one, low, 1), 0, "skWMemCmp of equal units");
  expectEqual(skWMemCmp(one, low, 2), -1, "skWMemCmp of a smaller area");
  expectEqual(skWMemCmp(low, one, 2), 1, "skWMemCmp of a greater area");
  expectEqual(skWMemCmp(high, one, 2), -1, "skWMemCmp of 0x80000000 and 0");
}

void copies(const Subject &subject) {
  const SharedFile file(subject.file);
  MORVA_ROUTINE(skMemCpy);
  MORVA_ROUTINE(skMemSCpy);
  std::string source(300, '\0');
  for (size_t at = 0; at != source.size(); ++at) source[at] = static_cast<char>(at * 7 + at / 256);
  for (size_t length = 0; length < 300; length += length < 40 ? 1 : 13) {
    std::string place(302, '!');
    expect(skMemCpy(source.data(), place.data() + 1, length) == place.data() + 1,
           "skMemCpy does not answer the destination");
    expect(place == '!' + source.substr(0, length) + std::string(301 - length, '!'),
           "skMemCpy of " + shown(length) + " bytes copies something else");
  }
  for (size_t distance = 0; distance < 90; distance += distance < 20 ? 1 : 9) {
    for (size_t length = 0; length < 200; length += length < 20 ? 1 : 17) {
      std::string up = source, down = source;
      skMemSCpy(up.data(), up.data() + distance, length);
      expect(up.substr(distance, length) == source.substr(0, length),
             "skMemSCpy of overlapping areas copies something else");
      skMemSCpy(down.data() + distance, down.data(), length);
      expect(down.substr(0, length) == source.substr(distance, length),
             "skMemSCpy of overlapping areas copies something else");
    }
  }
}

void duplicates(const Subject &subject) {
  Lab lab(subject);
  const SharedFile &file = lab.file;
  MORVA_ROUTINE(skMemDup);
  HostPool *pool = lab.ext->pool;
  lab.host.forget();
  const void *copy = skMemDup("twelve bytes", 12, pool);
  expect(copy != nullptr && std::memcmp(copy, "twelve bytes", 12) == 0, "skMemDup does not copy");
  expectEqual(lab.host.blockSize(copy), uint64_t{12}, "the size of the block skMemDup takes");
  expectEqual(lab.host.eventsOf(Call::allocate).back().b, uint64_t{0},
              "the option word of the block skMemDup takes");
  expect(skMemDup(nullptr, 4, pool) == nullptr, "skMemDup of null answers a copy");
  expect(skMemDup("abcd", 4, nullptr) == nullptr, "skMemDup without a pool answers a copy");
  lab.host.failCall(Call::allocate);
  expect(skMemDup("abcd", 4, pool) == nullptr, "skMemDup without memory answers a copy");
  lab.expectNoComplaints();
}

void scans(const Subject &subject) {
  const SharedFile file(subject.file);
  MORVA_ROUTINE(skMemScan);
  MORVA_ROUTINE(skMemNScan);
  MORVA_ROUTINE(skMemTNScan);
  expectEqual(skMemScan(nullptr, 5, 1), int64_t{-1}, "skMemScan of null");
  expectEqual(skMemNScan(nullptr, 5, 1), int64_t{-1}, "skMemNScan of null");
  expectEqual(skMemTNScan(nullptr, 5, 1), int64_t{-1}, "skMemTNScan of null");
  for (size_t length = 0; length != 100; ++length) {
    std::string bytes(length, '\xCC');
    std::vector<uint32_t> wide(length + 1, 0xCCCCCCCC);
    expectEqual(skMemScan(bytes.data(), length, 0xCD), int64_t{-1}, "skMemScan for an absent byte");
    expectEqual(skMemNScan(bytes.data(), length, 0xCC), int64_t{-1}, "skMemNScan of equal bytes");
    expectEqual(skMemTNScan(wide.data(), length, 0xCCCCCCCC), int64_t{-1},
                "skMemTNScan of equal units");
    for (size_t at = length; at-- != 0;) {
      bytes[at] = '\xCD';
      wide[at] = 0xCDCCCCCC;
      const auto place = static_cast<int64_t>(at);
      expectEqual(skMemScan(bytes.data(), length, 0xCD), place, "where skMemScan finds a byte");
      expectEqual(skMemNScan(bytes.data(), length, 0xCC), place, "where skMemNScan finds a byte");
      expectEqual(skMemTNScan(wide.data(), length, 0xCCCCCCCC), place,
                  "where skMemTNScan finds a unit");
    }
  }
}

void missingValues(const Subject &subject) {
  const SharedFile file(subject.file);
  MORVA_ROUTINE(skMissArray);
  MORVA_ROUTINE(skUnsup);
  expectStatus(skUnsup(), MORVA_UNSUPPORTED, "skUnsup");
  expectEqual(skMissArray(nullptr, 0), 0U, "skMissArray of nothing");
  const double infinity = std::numeric_limits<double>::infinity();
  for (size_t length = 1; length != 40; ++length) {
    std::vector<double> values(length, length % 2 == 0 ? infinity : -1.5);
    expectEqual(skMissArray(values.data(), length), 0U, "skMissArray without a NaN");
    for (double &value : values) {
      const double before = value;
      value = std::numeric_limits<double>::quiet_NaN();
      expectEqual(skMissArray(values.data(), length), 1U, "skMissArray with a NaN");
      value = before;
    }
  }
}

constexpr Check kChecks[] = {
    {"routines.lengths", "skStrLen and skStrTLen count to the terminator.", lengths},
    {"routines.copies-of-texts", "skStrCpy and skStrTCpy copy texts with their terminator.",
     copiesOfTexts},
    {"routines.cases", "skStrUp and skStrLow change the letters of ASCII and nothing else.", cases},
    {"routines.fills", "The fills fill, and skMemNot and skMemTNot tell what is filled.", fills},
    {"routines.comparisons", "The comparisons answer -1, 0 and 1 by the first difference.",
     comparisons},
    {"routines.copies", "skMemCpy copies, skMemSCpy also where areas overlap.", copies},
    {"routines.duplicates", "skMemDup copies into a block of exactly the length.", duplicates},
    {"routines.scans", "The scans answer the first place that is, or is not, a value, else -1.",
     scans},
    {"routines.missing-values", "skMissArray tells a NaN; skUnsup answers MORVA_UNSUPPORTED.",
     missingValues},
};

}  // namespace

std::span<const Check> routineChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
