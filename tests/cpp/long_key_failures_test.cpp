// Programs that have no memory: what the interface itself takes, apart from the
// host's.
#include <cstdlib>
#include <new>

#include "recording_tables.h"

namespace {

// Counts down to the first allocation that is refused; negative for never.
int refuseAfter = -1;
int refused = 0;

bool refuses() {
  if (refuseAfter < 0 || refuseAfter-- > 0) return false;
  refuseAfter = 0;
  ++refused;
  return true;
}

}  // namespace

// The interface asks for memory without exceptions, and nobody else here does.
void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
  if (refuses()) return nullptr;
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}
void *operator new[](std::size_t size, const std::nothrow_t &) noexcept {
  if (refuses()) return nullptr;
  try {
    return ::operator new[](size);
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
}

namespace cpp_test {
namespace {

using Text = morva::table<std::string_view, int, morva::ordered, morva::locked>;

class ProgramMemory : public RecordingTables {
 protected:
  ProgramMemory() { refused = 0; }
  ~ProgramMemory() override { refuseAfter = -1; }

  // Runs work() with every allocation refused.
  template <class Work>
  auto starving(Work work) {
    refuseAfter = 0;
    auto answer = work();
    refuseAfter = -1;
    return answer;
  }
};

TEST_F(ProgramMemory, IsNeededForEachLongerKeyAndNothingElse) {
  auto table = got(Text::make(*library));
  const std::string longKey(1000, 'x');
  const std::string longer(1001, 'y');
  ASSERT_TRUE(starving([&] { return table.insert(std::string(256, 's'), 1); }));
  const auto before = table.size();
  for (int again = 0; again < 2; ++again) {
    EXPECT_EQ(starving([&] { return table.insert(longKey, 1); }).error(), errc::no_memory);
    EXPECT_EQ(starving([&] { return table.insert_or_assign(longKey, 1); }).error(),
              errc::no_memory);
    EXPECT_EQ(starving([&] { return table.find_or_insert(longKey, 1); }).error(), errc::no_memory);
    EXPECT_EQ(table.size(), before);
    EXPECT_FALSE(table.contains(longKey));
    EXPECT_EQ(std::distance(table.begin(), table.end()), 1);
  }
  EXPECT_EQ(refused, 6);
  ASSERT_TRUE(got(table.insert(longKey, 2)));
  EXPECT_EQ(starving([&] { return table.insert(longer, 1); }).error(), errc::no_memory);
  EXPECT_EQ(starving([&] { return table.find(longKey)->data; }), 2);
  EXPECT_FALSE(starving([&] { return table.contains(longer); }));
  EXPECT_TRUE(starving([&] { return table.insert(std::string(999, 'z'), 3); }));
  EXPECT_EQ(starving([&] { return table.erase(longer); }).value_or(7), 0U);
  EXPECT_EQ(starving([&] { return table.erase(longKey); }).value_or(7), 1U);
  EXPECT_TRUE(got(table.insert(longer, 4)));
  EXPECT_EQ(table.size(), 3U);
}

TEST_F(ProgramMemory, LookupsTakeNone) {
  auto table = got(Text::make(*library));
  const std::string longKey(5000, 'x');
  got(table.insert(longKey, 1));
  got(table.insert("short", 2));
  auto reader = table.reader();
  const auto before = refused;
  const bool found = starving([&] {
    return table.contains(longKey) && std::as_const(table).find(longKey)->data == 1 &&
           table.count("short") == 1 && reader.contains(longKey) && table.begin()->data == 1 &&
           table == table && !table.equal_range(longKey).empty();
  });
  EXPECT_TRUE(found);
  EXPECT_EQ(refused, before);
}

TEST_F(ProgramMemory, AReaderDoesWithoutRoomOfItsOwn) {
  auto table = got(Text::make(*library));
  const std::string longKey(5000, 'x');
  got(table.insert(longKey, 1));
  auto reader = starving([&] { return table.reader(); });
  EXPECT_EQ(refused, 1);
  EXPECT_TRUE(reader.contains(longKey));
  EXPECT_FALSE(reader.contains(longKey + "x"));
  EXPECT_FALSE(reader.contains(longKey.substr(1)));
}

TEST_F(ProgramMemory, IsNeededForATable) {
  const std::uint64_t pools = recording.poolsAlive();
  EXPECT_EQ(starving([&] { return Text::make(*library); }).error(), errc::no_memory);
  EXPECT_EQ(recording.poolsAlive(), pools);
}

TEST_F(ProgramMemory, IsNeededForAHost) {
  EXPECT_EQ(starving([&] { return morva::host::of(recording.services()); }).error(),
            errc::no_memory);
  EXPECT_EQ(starving([] { return morva::host::embedded(); }).error(), errc::no_memory);
}

TEST_F(ProgramMemory, IsNeededForAnExtension) {
  EXPECT_EQ(starving([&] { return morva::extension::linked(*host); }).error().code,
            errc::no_memory);
  EXPECT_EQ(starving([&] { return morva::extension::linked(); }).error().code, errc::no_memory);
  EXPECT_EQ(starving([&] { return morva::extension::load(*host, "no-such-file.so"); }).error().code,
            errc::no_memory);
}

}  // namespace
}  // namespace cpp_test
