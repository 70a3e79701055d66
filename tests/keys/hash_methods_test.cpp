// The full 32-bit hashes.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "hash_table.h"
#include "keys/hash.h"
#include "morva/hash_methods.hpp"
#include "reference_hash.h"

using keys_test::firstMethod;
using keys_test::goldenHashes;
using keys_test::goldenText;
using keys_test::knownHashes;
using keys_test::lastMethod;
using keys_test::longestGolden;
using keys_test::referenceHash;

namespace {

uint32_t hash(int method, const uint8_t *bytes, size_t n) {
  return morva::core::hashKey(static_cast<uint32_t>(method), bytes, static_cast<uint32_t>(n));
}

uint32_t hash(int method, const std::string &bytes) {
  return hash(method, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

uint32_t known(size_t row, int method) {
  return knownHashes[row].hash[method - firstMethod];
}

}  // namespace

TEST(ReferenceHash, GivesTheKnownValues) {
  for (size_t row = 0; row < std::size(knownHashes); row++) {
    for (int method = firstMethod; method <= lastMethod; method++) {
      EXPECT_EQ(referenceHash(method, knownHashes[row].key), known(row, method)) << method;
    }
  }
}

TEST(ReferenceHash, GivesTheFixedHashesOfEveryLength) {
  for (size_t n = 0; n <= longestGolden; n++) {
    const auto text = goldenText(n);
    for (int method = firstMethod; method <= lastMethod; method++) {
      ASSERT_EQ(referenceHash(method, text.data(), n), goldenHashes[n][method - firstMethod])
          << "method " << method << ", " << n << " bytes";
    }
  }
}

TEST(HashMethods, GiveTheKnownValues) {
  for (size_t row = 0; row < std::size(knownHashes); row++) {
    for (int method = firstMethod; method <= lastMethod; method++) {
      EXPECT_EQ(hash(method, knownHashes[row].key), known(row, method))
          << "method " << method << ", \"" << knownHashes[row].key << '"';
    }
  }
}

TEST(HashMethods, GiveTheFixedHashesOfEveryLengthAtEveryAlignment) {
  for (size_t n = 0; n <= longestGolden; n++) {
    const auto text = goldenText(n);
    for (size_t align = 0; align < 8; align++) {
      alignas(8) uint8_t area[longestGolden + 16];
      std::memset(area, 0x9C, sizeof area);
      if (n > 0) std::memcpy(area + align, text.data(), n);
      for (int method = firstMethod; method <= lastMethod; method++) {
        ASSERT_EQ(hash(method, area + align, n), goldenHashes[n][method - firstMethod])
            << "method " << method << ", " << n << " bytes, alignment " << align;
      }
    }
  }
}

TEST(HashMethods, AgreeWithThePlainLoopsOnRandomKeys) {
  std::mt19937_64 random(7);
  for (int round = 0; round < 3000; round++) {
    std::vector<uint8_t> key(random() % 400);
    // Ordinary bytes, low ones, high ones.
    const uint64_t kind = random() % 3;
    for (uint8_t &byte : key) {
      byte = static_cast<uint8_t>(kind == 0   ? random()
                                  : kind == 1 ? random() % 4
                                              : 255 - random() % 4);
    }
    for (int method = firstMethod; method <= lastMethod; method++) {
      ASSERT_EQ(hash(method, key.data(), key.size()), referenceHash(method, key.data(), key.size()))
          << "method " << method << ", " << testing::PrintToString(key);
    }
  }
}

// Bytes go in several at a time: every way to begin and to end with fewer.
TEST(HashMethods, AgreeWithThePlainLoopsAtEveryLengthUpToAThousandAndEveryAlignment) {
  constexpr size_t kLongest = 1000;
  const auto text = goldenText(kLongest + 8);
  for (size_t n = 0; n <= kLongest; n++) {
    for (size_t align = 0; align < 8; align++) {
      for (int method = firstMethod; method <= lastMethod; method++) {
        ASSERT_EQ(hash(method, text.data() + align, n),
                  referenceHash(method, text.data() + align, n))
            << "method " << method << ", " << n << " bytes, alignment " << align;
      }
    }
  }
}

TEST(HashMethods, AgreeWithThePlainLoopsOnLongKeys) {
  for (size_t n : {size_t{1000}, size_t{4095}, size_t{65536}, size_t{1000003}}) {
    const auto key = goldenText(n);
    for (int method = firstMethod; method <= lastMethod; method++) {
      ASSERT_EQ(hash(method, key.data(), n), referenceHash(method, key.data(), n))
          << "method " << method << ", " << n << " bytes";
    }
  }
}

TEST(HashMethods, ArePublicUnderTheNumbersOfTheLibrary) {
  std::mt19937_64 random(11);
  for (uint32_t n = 0; n <= 100; n++) {
    std::vector<uint8_t> key(n);
    for (uint8_t &byte : key) byte = static_cast<uint8_t>(random());
    for (int method = firstMethod; method <= lastMethod; method++) {
      const auto number = static_cast<uint32_t>(method);
      ASSERT_EQ(morva::hash_key(number, key.data(), n), hash(method, key.data(), n))
          << "method " << method << ", " << n << " bytes";
      ASSERT_EQ(morva::hash_key(number, key.data(), n), referenceHash(method, key.data(), n))
          << "method " << method << ", " << n << " bytes";
    }
  }
}

TEST(HashMethods, OfAnyOtherNumberAreTheSecond) {
  for (uint32_t n = 0; n <= 100; n++) {
    const auto key = goldenText(n);
    const uint32_t second = referenceHash(2, key.data(), n);
    for (const uint32_t number : {0u, 1u, 10u, 11u, 255u, 256u + 3, 0x80000009u, 0xFFFFFFFFu}) {
      ASSERT_EQ(morva::hash_key(number, key.data(), n), second) << number << ", " << n << " bytes";
      ASSERT_EQ(morva::core::hashKey(number, key.data(), n), second) << number;
    }
  }
}

// Where the compiler knows the length, as tables of fixed keys have it.
template <uint32_t N>
void expectKnownLength() {
  const auto key = goldenText(N);
  for (uint32_t method = 0; method <= 10; method++) {
    namespace hashing = morva::detail::hashing;
    EXPECT_EQ(hashing::by_method(method, key.data(), hashing::known_length<N>{}),
              morva::hash_key(method, key.data(), N))
        << "method " << method << ", " << N << " bytes";
  }
}

TEST(HashMethods, AnswerTheSameForALengthThatIsKnown) {
  expectKnownLength<1>();
  expectKnownLength<2>();
  expectKnownLength<4>();
  expectKnownLength<7>();
  expectKnownLength<8>();
  expectKnownLength<12>();
  expectKnownLength<13>();
  expectKnownLength<16>();
  expectKnownLength<24>();
  expectKnownLength<33>();
  expectKnownLength<64>();
}

TEST(HashMethods, ReadNothingOutsideTheKey) {
  // Exactly sized, so that a memory checker sees a byte too many.
  for (size_t n = 0; n <= 40; n++) {
    const auto text = goldenText(n);
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[n]);
    std::copy(text.begin(), text.end(), exact.get());
    for (int method = firstMethod; method <= lastMethod; method++) {
      ASSERT_EQ(hash(method, exact.get(), n), goldenHashes[n][method - firstMethod]);
    }
  }
}

TEST(HashMethods, AnEmptyKeyHashesToZeroExceptUnderThreeAndSix) {
  for (int method : {2, 4, 5, 7, 8, 9}) EXPECT_EQ(hash(method, ""), 0u) << method;
  EXPECT_EQ(hash(3, ""), 0x4a788badu);
  EXPECT_EQ(hash(6, ""), 1234u);
}

TEST(HashMethods, AnEmptyKeyNeedsNoAddress) {
  for (int method = firstMethod; method <= lastMethod; method++) {
    EXPECT_EQ(hash(method, nullptr, 0), known(0, method)) << method;
  }
}

TEST(HashMethods, BytesAreUnsigned) {
  EXPECT_EQ(hash(7, "\xFF"), 255u);
  EXPECT_EQ(hash(9, "\xFF"), 255u);
  EXPECT_EQ(hash(2, "\x80"), 128u + (128u >> 5));
  EXPECT_EQ(hash(4, "\x80"), 128u);
}

TEST(MethodTwo, FoldsByAddingNotByXor) {
  // 31 * 33 + 33: adding the fold carries, a XOR would not.
  const std::string key = "\x1F\x21";
  const uint32_t h = 31 * 33 + 33;
  EXPECT_EQ(hash(2, key), h + (h >> 5));
  EXPECT_NE(h + (h >> 5), h ^ (h >> 5));
}

TEST(MethodThree, WorksOnSixtyFourBitWords) {
  EXPECT_NE(hash(3, ""), 0xbd49d10du);
}

TEST(MethodThree, TakesATailOfElevenAFullBlockAndATailOfOne) {
  const std::string text = "hello world!?";
  for (size_t n : {11, 12, 13}) {
    EXPECT_EQ(hash(3, text.substr(0, n)), referenceHash(3, text.substr(0, n))) << n;
  }
  EXPECT_EQ(hash(3, text.substr(0, 12)), 0x20d18103u);
}

TEST(MethodThree, EveryByteOfTheTailAndTheLengthCount) {
  for (size_t n = 1; n <= 24; n++) {
    std::string key(n, 'k');
    const uint32_t before = hash(3, key);
    EXPECT_NE(before, hash(3, key + 'k'));
    for (size_t at = 0; at < n; at++) {
      key[at] ^= 0x40;
      EXPECT_NE(hash(3, key), before) << n << " at " << at;
      key[at] ^= 0x40;
    }
  }
}

TEST(MethodsFourAndFive, TakeBothShiftsOfTheUnfoldedState) {
  // Four bits a byte: the states are the digits themselves, the length being
  // rotated out of the way under five.
  const std::string key("\x00\x0A\x0B\x0C\x0D\x0E\x0F", 7);
  const uint32_t four = 0x0ABCDEF;
  EXPECT_EQ(hash(4, key), four ^ (four >> 10) ^ (four >> 20));
  const uint32_t five = 0x70ABCDEF;
  EXPECT_EQ(hash(5, key), five ^ (five >> 10) ^ (five >> 20));
  EXPECT_NE(hash(5, key), (five ^ (five >> 10)) ^ ((five ^ (five >> 10)) >> 20));
}

TEST(MethodFour, ClearsItsHighestFourBitsAndFoldsThemLow) {
  const std::string key = "\x0F\x01\x01\x01\x01\x01\x01\x01";
  // After eight bytes the first digit has reached the top: 0xF1111111.
  const uint32_t h = 0x01111111 ^ 0xF0;
  EXPECT_EQ(hash(4, key), h ^ (h >> 10) ^ (h >> 20));
}

TEST(MethodFive, StartsFromTheLength) {
  EXPECT_EQ(hash(5, std::string("\0", 1)), 0x10u);
  EXPECT_EQ(hash(5, std::string("\0\0", 2)), 0x200u);
}

TEST(MethodSix, TheFirstByteWeighsMostAndTheLastNothing) {
  for (int last = 0; last < 256; last++) {
    const std::string key = {'a', 'b', static_cast<char>(last)};
    EXPECT_EQ(hash(6, key), hash(6, "abx")) << last;
  }
  EXPECT_EQ(hash(6, std::string("\x01\0\0\0", 4)), 1234u ^ 3u);
  EXPECT_EQ(hash(6, std::string("\0\x01\0\0", 4)), 1234u ^ 2u);
  EXPECT_EQ(hash(6, std::string("\0\0\x01\0", 4)), 1234u ^ 1u);
}

TEST(MethodSix, FoldsItsHighBitsLow) {
  std::string key(2000, '\0');
  key[0] = '\xFF';
  const uint32_t h = 1234u ^ (255u * 1999u);
  EXPECT_NE(h >> 17, 0u);
  EXPECT_EQ(hash(6, key), h ^ (h >> 17));
}

TEST(MethodSeven, HasNoFinish) {
  EXPECT_EQ(hash(7, "ab"), 97u * 37 + 98);
}

TEST(MethodNine, MultipliesFirstAndStartsFromZero) {
  EXPECT_EQ(hash(9, "a"), 0x61u);
  EXPECT_EQ(hash(9, "ab"), (0x61u * 16777619u) ^ 0x62u);
}
