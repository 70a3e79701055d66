// Two hosts at once, each with its copy of the library and with several threads
// on its tables.
#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "two_tables.h"

namespace morva_test {
namespace {

class TwoHostsAtOnce : public ::testing::TestWithParam<HostKind> {};

std::string nameOf(HostKind kind) {
  if (kind == HostKind::embedded) return "Linked";
  return kind == HostKind::embeddedWithTreeLocks ? "LinkedWithTreeLocks" : "Loaded";
}

INSTANTIATE_TEST_SUITE_P(TheFirst, TwoHostsAtOnce,
                         ::testing::Values(HostKind::embedded, HostKind::embeddedWithTreeLocks,
                                           HostKind::embeddedWithLoadedLibrary),
                         [](const auto &info) { return nameOf(info.param); });

TEST_P(TwoHostsAtOnce, ServeSeveralThreadsEachOnSharedTables) {
  constexpr size_t kEach = 3;
  const TableShape shape = shapeOf(KeyMode::fixed, flagOrdered | flagSum | flagMultiData);
  TwoTables hosts[] = {TwoTables(shape, GetParam()),
                       TwoTables(shape, HostKind::embeddedWithLoadedLibrary)};
  const std::vector<std::string> keys = someKeys(shape, 30 * kEach);
  std::vector<ThreadWork> works;
  for (TwoTables &host : hosts) {
    for (size_t i = 0; i < kEach; ++i) {
      // The same keys on both hosts, with other data.
      works.emplace_back(host.one(), shape, shareOf(keys, i, kEach), 900 + works.size());
    }
  }
  // And a table of each that its thread has for itself.
  for (TwoTables &host : hosts) works.emplace_back(host.two(), shape, keys, 900 + works.size());
  inParallel(works.size(), [&](size_t i) { works[i].run(kLonger * 4000); });

  for (size_t host = 0; host < std::size(hosts); ++host) {
    ThreadWork::Contents expected;
    for (size_t i = 0; i < kEach; ++i) expected.merge(works[host * kEach + i].contents());
    EXPECT_EQ(hosts[host].contentsOf(hosts[host].one()), expected);
    EXPECT_EQ(hosts[host].contentsOf(hosts[host].two()), works[2 * kEach + host].contents());
  }
}

}  // namespace
}  // namespace morva_test
