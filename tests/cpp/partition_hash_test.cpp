// The hash that deals keys out to parts: pinned, for it decides where keys lie.
#include "morva/partition_hash.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tables.h"

namespace cpp_test {
namespace {

using morva::partition_hash;

constexpr std::byte byteAt(std::size_t i) {
  return static_cast<std::byte>(i * 131 + 7);
}

// Of so many bytes, byteAt(0) and on.
struct Golden {
  std::size_t length;
  std::uint64_t hash;
};
constexpr Golden kGolden[] = {
    {0, 0xEF46DB3751D8E999},  {1, 0xA96C7F0CE858BBB7},   {2, 0xC22C6A70AD56BBA6},
    {3, 0xBED43740EE6332BB},  {4, 0xFA212AE44B3BB23D},   {5, 0xD339DCC9AC8E6776},
    {6, 0x71CABDC85DA7FFA0},  {7, 0x2744460DD675D2C0},   {8, 0x994B676B71CE94DD},
    {9, 0x572B84C18B983AF8},  {10, 0x08283FD40EE4F8C9},  {11, 0x97F078DA7A1A590C},
    {12, 0xB92F588CE720786E}, {13, 0xDADC8A6255B4829B},  {14, 0x574269377227D80A},
    {15, 0x09E6451ED2FF8B1D}, {16, 0x94AD0095E72B24D5},  {17, 0x1464F2EFF23B5FE1},
    {18, 0x712C39F6D1ED935E}, {19, 0x83EF9C758393E89D},  {20, 0x67822FA80E0C8933},
    {21, 0xFA6DE19E99FF8D43}, {22, 0xA8D0AE04D79885F2},  {23, 0xCF65B69586B05FAB},
    {24, 0x0A3B0194F3AFE0B8}, {25, 0xE0FD072FFF811C86},  {26, 0xC4F7372A7FB8F247},
    {27, 0xFEE26CAC05AEECF0}, {28, 0x01A6F3D224FA7D3B},  {29, 0x161A3BC98AFCF092},
    {30, 0x3F8796D7BFAAAA08}, {31, 0x6711D55E306B5D8F},  {32, 0x07F7B8E3BC5D6E25},
    {33, 0x09F85EEB4E1CBE9F}, {35, 0x25CC31E4544BC8C9},  {39, 0xB13C137A0FB701C3},
    {40, 0xD25150177BA46490}, {41, 0x3AD8BB2779D9285E},  {47, 0x79BD9D6DD8C15570},
    {48, 0x2947DE5E3A6AFECE}, {55, 0x8F8DC5B07F6D48ED},  {63, 0xB7C9968C066CB6A5},
    {64, 0x50D4159A0411632E}, {65, 0xD277176BFF863EFC},  {71, 0x363A593DC9D738D1},
    {79, 0xC3F3DC0BF60FD094}, {95, 0x928C35B989D3C594},  {96, 0x18C8F362EB735341},
    {97, 0x7683DEFA1456DAB5}, {100, 0x9DDADA11D3DC2D8F}, {127, 0x54CF771B5423F6A7},
    {128, 0x0430E433B792E757}};

template <std::size_t Length>
constexpr std::uint64_t hashOfFirst() {
  std::array<std::byte, Length> bytes{};
  for (std::size_t i = 0; i < Length; ++i) bytes[i] = byteAt(i);
  return partition_hash(std::span<const std::byte>(bytes));
}

std::uint64_t hashOf(std::string_view text) {
  return partition_hash(std::as_bytes(std::span(text)));
}

TEST(PartitionHash, IsPinnedForEveryLengthOfTail) {
  for (const auto &[length, hash] : kGolden) {
    // One byte off, so that words are read from any address.
    std::vector<std::byte> bytes(length + 1);
    for (std::size_t i = 0; i < length; ++i) bytes[i + 1] = byteAt(i);
    EXPECT_EQ(partition_hash(std::span<const std::byte>(bytes).subspan(1)), hash) << length;
  }
}

TEST(PartitionHash, IsPinnedForText) {
  EXPECT_EQ(hashOf("a"), 0xD24EC4F1A98C6E5B);
  EXPECT_EQ(hashOf("pear"), 0xE42AC4C17C8625B2);
  EXPECT_EQ(hashOf("morva"), 0x9DDC83FCEC944E50);
  EXPECT_EQ(hashOf("The quick brown fox jumps over the lazy dog"), 0x0B242D361FDA71BC);
}

TEST(PartitionHash, IsPinnedForWords) {
  EXPECT_EQ(partition_hash(std::uint64_t{0}), 0x34C96ACDCADB1BBB);
  EXPECT_EQ(partition_hash(std::uint64_t{1}), 0x9F29CB17A2A49995);
  EXPECT_EQ(partition_hash(std::uint64_t{2}), 0xEAC73E4044E82DB0);
  EXPECT_EQ(partition_hash(0x0123456789ABCDEF), 0xEA3C52081E9843EC);
  EXPECT_EQ(partition_hash(~std::uint64_t{0}), 0x85D136ADB773C6C9);
}

TEST(PartitionHash, OfAWordIsThatOfItsBytes) {
  std::mt19937_64 random(testSeed());
  for (int i = 0; i < 1000; ++i) {
    const std::uint64_t word = random();
    std::array<std::byte, 8> bytes;
    for (std::size_t n = 0; n < 8; ++n) bytes[n] = static_cast<std::byte>(word >> (8 * n));
    ASSERT_EQ(partition_hash(word), partition_hash(std::span<const std::byte>(bytes)));
  }
}

TEST(PartitionHash, IsTheSameWhenTheCompilerComputesIt) {
  static_assert(partition_hash(std::span<const std::byte>()) == kGolden[0].hash);
  static_assert(partition_hash(std::uint64_t{1}) == 0x9F29CB17A2A49995);
  static_assert(kGolden[5].length == 5 && hashOfFirst<5>() == kGolden[5].hash);
  static_assert(kGolden[33].length == 33 && hashOfFirst<33>() == kGolden[33].hash);
  constexpr Golden kLast = *std::prev(std::end(kGolden));
  static_assert(hashOfFirst<kLast.length>() == kLast.hash);
}

// ---- Parts and buckets are independent ----------------------------------------------

// How far counts are from what chance makes of them: about 0 for chance, far
// above for keys that crowd.
double crowding(const std::vector<int> &counts, double expected) {
  double squares = 0;
  for (const int count : counts) squares += (count - expected) * (count - expected);
  const auto freedom = static_cast<double>(counts.size() - 1);
  return (squares / expected - freedom) / std::sqrt(2 * freedom);
}

// Deals keys to parts and, in each part, to its buckets.
template <class Table, class KeyAt>
void expectEvenSpread(KeyAt keyAt) {
  constexpr int kKeys = 1 << 16;
  const auto library = linkedLibrary();
  const auto table = got(Table::make(library, {.expected = 1 << 13, .parts = 16}));
  std::vector<int> parts(16);
  std::vector<std::vector<int>> buckets;
  for (std::size_t i = 0; i < 16; ++i) buckets.emplace_back(table.part(i).bucket_count());
  for (int n = 0; n < kKeys; ++n) {
    const auto key = keyAt(n);
    const std::size_t part = table.part_of(key);
    ++parts[part];
    MORVAInst *inst = table.part(part).native();
    std::uint32_t bucket = 0;
    const morva::detail::raw_key raw =
        morva::detail::key_traits<typename Table::key_type>::raw(key);
    ASSERT_EQ(inst->HashVal(inst, raw.bytes, raw.length, &bucket), MORVA_OK);
    ++buckets[part][bucket];
  }
  EXPECT_LT(crowding(parts, kKeys / 16.0), 5.0);
  for (std::size_t i = 0; i < 16; ++i) {
    const double expected = static_cast<double>(parts[i]) / static_cast<double>(buckets[i].size());
    EXPECT_LT(crowding(buckets[i], expected), 5.0) << i;
  }
}

using Numbers = morva::partitioned_table<std::uint64_t, int>;

TEST(PartsAndBuckets, SpreadCounters) {
  expectEvenSpread<Numbers>([](int n) { return static_cast<std::uint64_t>(n); });
}

TEST(PartsAndBuckets, SpreadMultiples) {
  expectEvenSpread<Numbers>([](int n) { return static_cast<std::uint64_t>(n) << 12; });
}

TEST(PartsAndBuckets, SpreadRandomNumbers) {
  std::mt19937_64 random(20240917);
  expectEvenSpread<Numbers>([&](int) { return random(); });
}

TEST(PartsAndBuckets, SpreadText) {
  expectEvenSpread<morva::partitioned_table<std::string_view, int>>(
      [text = std::string()](int n) mutable -> std::string_view {
        return text = "customer-" + std::to_string(n);
      });
}

// ---- How many parts ---------------------------------------------------------------------

TEST(PartCounts, SuitWhatIsExpected) {
  using morva::detail::parts_for;
  constexpr std::uint64_t kMillion = 1U << 20;
  static_assert(parts_for(0) == 16);
  static_assert(parts_for(4096) == 16);
  static_assert(parts_for((1U << 22) - 1) == 16);
  static_assert(parts_for(1U << 22) == 64);
  static_assert(parts_for(64 * kMillion) == 64);
  static_assert(parts_for(64 * kMillion + 1) == 128);
  static_assert(parts_for(200 * kMillion) == 256);
  static_assert(parts_for(65536 * kMillion) == 65536);
  static_assert(parts_for(~std::uint64_t{0}) == 65536);
}

static_assert(partition_hash(std::span<const std::byte>()) == 0xEF46DB3751D8E999);

TEST(PartCounts, LeaveEachPartItsShare) {
  using morva::detail::share_of;
  EXPECT_EQ(share_of(12345, 1), 12345U);
  EXPECT_EQ(share_of(~std::uint64_t{0}, 1), ~std::uint64_t{0});
  EXPECT_EQ(share_of(0, 16), 0U);
  EXPECT_EQ(share_of(1, 16), 1U);
  EXPECT_EQ(share_of(1600, 16), 100U);
  EXPECT_EQ(share_of(1601, 16), 101U);
}

// Twice what was expected is far more than chance puts into one part.
TEST(PartCounts, GetAboutTheSameShareOfTheKeys) {
  constexpr std::uint64_t kKeys = 1 << 18;
  std::vector<std::uint64_t> parts(64);
  for (std::uint64_t key = 0; key < kKeys; ++key) ++parts[partition_hash(key) >> 58];
  for (const std::uint64_t count : parts) {
    EXPECT_NEAR(static_cast<double>(count), kKeys / 64, 5 * 64);
  }
}

}  // namespace
}  // namespace cpp_test
