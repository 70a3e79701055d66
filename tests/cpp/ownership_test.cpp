// Hosts, extensions and tables: who keeps whom alive, and what a moved or
// refused one answers.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "morva/morva.hpp"

namespace {

using Table = morva::table<std::uint64_t, int>;
using Ordered = morva::table<std::uint64_t, int, morva::ordered>;

morva::host embedded() {
  return morva::host::embedded().value();
}

void fill(Table &table, std::uint64_t keys) {
  for (std::uint64_t key = 0; key < keys; ++key) {
    ASSERT_TRUE(table.insert(key, static_cast<int>(key)).value());
  }
}

// An embedded host, used as one of the program's own.
class OwnHost {
 public:
  OwnHost() : host_(QZHostCreate(nullptr)) {}
  ~OwnHost() { EXPECT_EQ(QZHostDestroy(host_, nullptr), 0U); }
  HostServices *services() { return QZHostServices(host_); }

 private:
  QZHost *host_;
};

constexpr morva::order_walk kWalk{&QZOrderFirst, &QZOrderNext};

TEST(Ownership, ATableKeepsItsExtensionAndHostAlive) {
  std::optional<Table> table;
  {
    const morva::host host = embedded();
    const morva::extension extension = morva::extension::linked(host).value();
    table = Table::make(extension).value();
  }
  fill(*table, 1000);
  EXPECT_EQ(table->find(999)->data, 999);
}

TEST(Ownership, WithItsTablesAndExtensionsGoneAHostIsEmpty) {
  const morva::host host = embedded();
  {
    auto extension = morva::extension::linked(host).value();
    auto table = Table::make(extension).value();
    fill(table, 1000);
    const QZHostStats stats = host.stats().value();
    EXPECT_EQ(stats.extensions, 1U);
    EXPECT_GE(stats.pools, 2U);
    EXPECT_EQ(stats.trees, 1U);
  }
  const QZHostStats stats = host.stats().value();
  EXPECT_EQ(stats.extensions, 0U);
  EXPECT_EQ(stats.pools, 0U);
  EXPECT_EQ(stats.locks, 0U);
  EXPECT_EQ(stats.companions, 0U);
  EXPECT_EQ(stats.trees, 0U);
  EXPECT_EQ(stats.bytesLive, 0U);
}

TEST(Ownership, MovingATableMovesNoRecord) {
  auto extension = morva::extension::linked().value();
  auto first = Table::make(extension).value();
  fill(first, 100);
  int *data = &first.find(7)->data;
  auto at = first.find(8);
  auto iterator = first.begin();

  Table second = std::move(first);
  EXPECT_EQ(&second.find(7)->data, data);
  EXPECT_EQ(at->data, 8);
  EXPECT_EQ(std::distance(iterator, second.end()), 100);

  auto third = Table::make(extension).value();
  ASSERT_TRUE(third.insert(1, 1));
  third = std::move(second);
  EXPECT_EQ(third.size(), 100U);
  EXPECT_EQ(&third.find(7)->data, data);
}

TEST(Ownership, ATableMovedToItselfStays) {
  auto extension = morva::extension::linked().value();
  auto table = Table::make(extension).value();
  fill(table, 10);
  Table &same = table;
  table = std::move(same);
  EXPECT_EQ(table.size(), 10U);
}

TEST(Ownership, AReaderBelongsToTheTableObject) {
  auto extension = morva::extension::linked().value();
  auto first = Table::make(extension).value();
  fill(first, 10);
  auto reader = first.reader();
  Table second = std::move(first);
  EXPECT_FALSE(reader.contains(5));
  first = std::move(second);
  EXPECT_TRUE(reader.contains(5));
}

TEST(Ownership, SwappedTablesKeepTheirRecords) {
  auto extension = morva::extension::linked().value();
  auto few = Table::make(extension).value();
  auto many = Table::make(extension).value();
  fill(few, 3);
  fill(many, 300);
  auto at = few.find(2);
  using std::swap;
  swap(few, many);
  EXPECT_EQ(few.size(), 300U);
  EXPECT_EQ(many.size(), 3U);
  EXPECT_EQ(many.find(2), at);
}

TEST(Ownership, AMovedTableIsEmptyAndRefusesChanges) {
  auto extension = morva::extension::linked().value();
  using Sums = morva::table<std::string_view, int, morva::ordered, morva::locked>;
  auto table = Sums::make(extension).value();
  ASSERT_TRUE(table.insert("a", 1));
  const Sums taken = std::move(table);

  EXPECT_FALSE(table);
  EXPECT_TRUE(taken);
  EXPECT_EQ(table.size(), 0U);
  EXPECT_TRUE(table.empty());
  EXPECT_EQ(table.bucket_count(), 0U);
  EXPECT_EQ(table.native(), nullptr);
  EXPECT_EQ(table.begin(), table.end());
  EXPECT_EQ(table.find("a"), table.end());
  EXPECT_FALSE(table.contains("a"));
  EXPECT_EQ(table.count("a"), 0U);
  EXPECT_FALSE(table.reader().contains("a"));
  EXPECT_EQ(table.at("a").error(), morva::errc::not_found);
  EXPECT_EQ(table.insert("a", 1).error(), morva::errc::no_table);
  EXPECT_EQ(table.insert_or_assign("a", 1).error(), morva::errc::no_table);
  EXPECT_EQ(table.find_or_insert("a", 1).error(), morva::errc::no_table);
  EXPECT_EQ(table.erase("a").error(), morva::errc::no_table);
  EXPECT_EQ(table.erase(table.begin()).error(), morva::errc::no_table);
  table.clear();
  table.clear_keeping_memory();
  const auto nobody = table.lock();
  EXPECT_TRUE(table == Sums());
  EXPECT_FALSE(table == taken);
}

TEST(Ownership, AMovedExtensionMakesNoTable) {
  auto extension = morva::extension::linked().value();
  EXPECT_EQ(extension.version(), (morva::version_number{1, 0, 3}));
  const auto taken = std::move(extension);
  EXPECT_EQ(extension.native(), nullptr);
  EXPECT_EQ(extension.version(), morva::version_number{});
  EXPECT_EQ(Table::make(extension).error(), morva::errc::not_loaded);
  EXPECT_TRUE(Table::make(taken));
}

TEST(Ownership, AMovedHostTakesNoExtension) {
  morva::host host = embedded();
  const morva::host taken = std::move(host);
  EXPECT_EQ(host.services(), nullptr);
  EXPECT_EQ(host.native(), nullptr);
  EXPECT_EQ(host.stats().error(), morva::errc::unsupported);
  EXPECT_EQ(morva::extension::linked(host).error().code, morva::errc::refused);
  EXPECT_EQ(morva::extension::load(host).error().code, morva::errc::refused);
}

TEST(Ownership, TheLinkedCopyServesOneHostAtATime) {
  const morva::host first = embedded();
  const morva::host second = embedded();
  {
    const auto extension = morva::extension::linked(first);
    ASSERT_TRUE(extension) << extension.error().sentence();
    EXPECT_TRUE(morva::extension::linked(first)) << "the same host may have it twice";
    const auto refused = morva::extension::linked(second);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, morva::errc::not_loaded);
    EXPECT_NE(refused.error().sentence().find("host"), std::string_view::npos)
        << refused.error().sentence();
  }
  EXPECT_TRUE(morva::extension::linked(second));
}

TEST(Ownership, AFileIsLoadedForAnyNumberOfEmbeddedHosts) {
  const auto first = morva::extension::load(MORVA_LIBRARY);
  const auto second = morva::extension::load(MORVA_LIBRARY);
  ASSERT_TRUE(first) << first.error().sentence();
  ASSERT_TRUE(second) << second.error().sentence();
  auto one = Table::make(*first).value();
  auto two = Table::make(*second).value();
  fill(one, 10);
  fill(two, 20);
  EXPECT_EQ(one.size(), 10U);
  EXPECT_EQ(two.size(), 20U);
}

TEST(Ownership, AMissingFileIsNamed) {
  OwnHost own;
  for (const morva::host &host : {embedded(), morva::host::of(own.services()).value()}) {
    const auto refused = morva::extension::load(host, "no-such-library.so");
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, morva::errc::not_loaded);
    EXPECT_NE(refused.error().sentence().find("no-such-library.so"), std::string_view::npos)
        << refused.error().sentence();
    EXPECT_EQ(morva::extension::load(host, nullptr).error().code, morva::errc::refused);
  }
}

TEST(Ownership, AFileThatIsNoExtensionIsNamedWithWhatItLacks) {
  OwnHost own;
  for (const morva::host &host : {embedded(), morva::host::of(own.services()).value()}) {
    const auto refused = morva::extension::load(host, QZHOST_LIBRARY);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().code, morva::errc::not_loaded);
    const std::string sentence(refused.error().sentence());
    EXPECT_NE(sentence.find("libqzhost"), std::string::npos) << sentence;
    EXPECT_TRUE(sentence.find("qzextver") != std::string::npos ||
                sentence.find("Exported_QZHandle") != std::string::npos)
        << sentence;
  }
}

TEST(OwnHosts, AServiceTableIsNeededAndAWalkIsWholeOrNot) {
  OwnHost own;
  EXPECT_EQ(morva::host::of(nullptr).error(), morva::errc::refused);
  EXPECT_EQ(morva::host::of(own.services(), {&QZOrderFirst, nullptr}).error(),
            morva::errc::refused);
  EXPECT_EQ(morva::host::of(own.services(), {nullptr, &QZOrderNext}).error(), morva::errc::refused);
}

TEST(OwnHosts, TablesLiveOnTheLinkedLibraryAndOnALoadedOne) {
  OwnHost own;
  const morva::host host = morva::host::of(own.services(), kWalk).value();
  EXPECT_EQ(host.native(), nullptr);
  EXPECT_EQ(host.stats().error(), morva::errc::unsupported);
  for (const bool linked : {true, false}) {
    const auto extension =
        linked ? morva::extension::linked(host) : morva::extension::load(host, MORVA_LIBRARY);
    ASSERT_TRUE(extension) << extension.error().sentence();
    EXPECT_EQ(extension->version(), (morva::version_number{1, 0, 3}));
    auto table = Ordered::make(*extension).value();
    for (const std::uint64_t key : {5, 3, 9}) ASSERT_TRUE(table.insert(key, 0));
    std::vector<std::uint64_t> keys;
    for (const auto entry : table) keys.push_back(entry.key);
    EXPECT_EQ(keys, (std::vector<std::uint64_t>{5, 3, 9}));
  }
}

TEST(OwnHosts, ACopyIsRefusedWhileAnotherHostHasIt) {
  OwnHost mine;
  OwnHost yours;
  const morva::host host = morva::host::of(mine.services()).value();
  const morva::host other = morva::host::of(yours.services()).value();
  {
    const auto first = morva::extension::linked(host);
    const auto second = morva::extension::linked(host);
    ASSERT_TRUE(first);
    ASSERT_TRUE(second);
    EXPECT_FALSE(morva::extension::linked(other));
    EXPECT_FALSE(morva::extension::linked(embedded()));
    // Nor does it help to ask the embedded host itself.
    const morva::host third = embedded();
    const QZEntryPoints entry{"morva", &qzextver, &morva::morva};
    char error[256] = "";
    EXPECT_EQ(QZHostAttach(third.native(), &entry, error, sizeof error), nullptr);
    EXPECT_STREQ(error, "'morva' serves another host");
    // The file this program is linked with is the same copy.
    const auto refused = morva::extension::load(other, MORVA_LIBRARY);
    ASSERT_FALSE(refused);
    EXPECT_NE(refused.error().sentence().find("another host"), std::string_view::npos);
    // Embedded hosts take a copy of their own of a file.
    const auto loaded = morva::extension::load(MORVA_LIBRARY);
    ASSERT_TRUE(loaded) << loaded.error().sentence();
    auto theirs = Table::make(*loaded).value();
    auto ours = Table::make(*first).value();
    ASSERT_TRUE(theirs.insert(1, 1));
    ASSERT_TRUE(ours.insert(2, 2));
    EXPECT_FALSE(ours.contains(1));
  }
  EXPECT_TRUE(morva::extension::linked(other));
  EXPECT_TRUE(morva::extension::linked(embedded()));
}

TEST(OwnHosts, WhatTheProgramSetUpItselfStaysWhenAnExtensionGoes) {
  OwnHost own;
  int64_t major = 0;
  int64_t minor = 0;
  qzextver(own.services(), &major, &minor);
  MORVAExt *ext = morva::morva(nullptr, nullptr);
  ASSERT_NE(ext, nullptr);
  {
    const morva::host host = morva::host::of(own.services()).value();
    ASSERT_TRUE(morva::extension::linked(host));
    ASSERT_TRUE(morva::extension::load(host, MORVA_LIBRARY));
  }
  EXPECT_EQ(Exported_QZHandle, own.services());
  MORVAParms parms{};
  parms.flags = flagVarKey;
  MORVAInst *inst = ext->Create(ext, &parms, nullptr, nullptr);
  ASSERT_NE(inst, nullptr);
  inst->Destroy(inst);
  ext->RealDestroy(ext);
  qzextent(nullptr);
}

TEST(OwnHosts, WithoutAWalkThereAreNoOrderedTables) {
  OwnHost own;
  const auto extension = morva::extension::linked(morva::host::of(own.services()).value()).value();
  EXPECT_EQ(Ordered::make(extension).error(), morva::errc::unsupported);
  EXPECT_TRUE(Table::make(extension));
}

// Each of them would lose a slot if it got as far as its record's tree.
TEST(Limits, InsertionsThatFailForTheOrderLoseNothing) {
  struct Large {
    char bytes[100];
  };
  using Larges = morva::table<int, Large, morva::ordered>;
  constexpr std::uint64_t kLeast = 400'000;
  constexpr std::uint64_t kStep = 4096;
  int tried = 0;
  for (std::uint64_t limit = kLeast; limit < 2 * kLeast; limit += kStep) {
    const auto extension = morva::extension::linked({.memory_limit = limit}).value();
    auto table = Larges::make(extension, {.memory_hint = 1000}).value();
    int key = 0;
    while (table.insert(key, {})) ++key;
    // Only where there are slots for records, and none for the order.
    const MORVAInst *inst = table.native();
    if (inst->recordsUsed + 100 > inst->recordBlockCapacity) continue;
    ASSERT_EQ(inst->inodesUsed, inst->inodeBlockCapacity);
    ++tried;

    const std::uint64_t memory = table.memory();
    for (int i = 0; i < 1000; ++i) {
      ASSERT_EQ(table.insert(key + i, {}).error(), morva::errc::no_memory);
    }
    EXPECT_EQ(table.memory(), memory);
    EXPECT_EQ(table.size(), static_cast<std::size_t>(key));
    EXPECT_EQ(table.insert(0, {}).value_or(true), false) << "is there already";
    EXPECT_EQ(table.erase(0).value_or(0), 1U);
    EXPECT_TRUE(table.insert(key, {}).value_or(false)) << "in the place of the removed one";
  }
  EXPECT_GT(tried, 0);
}

TEST(Limits, ClearingGivesTheRoomForLongKeysBack) {
  const auto extension = morva::extension::linked().value();
  auto table = morva::table<std::string_view, int>::make(extension).value();
  const std::string key(5000, 'x');
  ASSERT_TRUE(table.insert(key, 1));
  auto reader = table.reader();
  ASSERT_TRUE(reader.contains(key));
  table.clear();
  EXPECT_FALSE(table.contains(key));
  EXPECT_FALSE(reader.contains(key));
  ASSERT_TRUE(table.insert(key + key, 2));
  EXPECT_TRUE(table.contains(key + key));
  EXPECT_TRUE(reader.contains(key + key)) << "a reader grows with its table";
}

TEST(Limits, AMemoryLimitIsMetWithNoMemoryAndTheTableGoesOn) {
  const auto extension = morva::extension::linked({.memory_limit = 4 << 20}).value();
  auto table = Table::make(extension, {.expected = 100}).value();
  std::uint64_t key = 0;
  morva::result<bool> stored = true;
  while (stored && key < 1'000'000) stored = table.insert(key++, 0);
  ASSERT_FALSE(stored);
  EXPECT_EQ(stored.error(), morva::errc::no_memory);
  --key;
  EXPECT_EQ(table.size(), key);
  EXPECT_FALSE(table.contains(key));
  EXPECT_TRUE(table.contains(key - 1));
  const auto replaced = table.insert_or_assign(0, 7);
  ASSERT_TRUE(replaced) << "what is there is written in place, without memory";
  EXPECT_FALSE(*replaced);
  EXPECT_EQ(table.find(0)->data, 7);
  EXPECT_EQ(table.insert_or_assign(key, 7).error(), morva::errc::no_memory);
  EXPECT_FALSE(table.contains(key));
  table.clear();
  EXPECT_TRUE(table.insert(key, 1).value_or(false));
  ASSERT_EQ(table.erase(key).value_or(0), 1U);
  EXPECT_EQ(Table::make(extension, {.expected = 1'000'000}).error(), morva::errc::no_memory);
}

}  // namespace
