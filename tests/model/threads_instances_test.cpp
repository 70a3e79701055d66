// Several instances, and several hosts, in several threads.
#include <gtest/gtest.h>

#include <iterator>
#include <memory>

#include "instance_checker.h"
#include "shared_table.h"

namespace morva_test {
namespace {

TEST(SeveralInstances, AreMadeFilledAndDestroyedInParallel) {
  const TableShape shared = shapeOf(KeyMode::fixed, 0);
  SharedTable table(shared);
  inParallel(kThreads, [&](size_t thread) {
    for (uint64_t round = 0; round < 60; ++round) {
      const TableShape &shape = lockedShapes()[(thread + round) % lockedShapes().size()];
      MORVAInst *inst = makeInstance(table.ext(), shape);
      ASSERT_NE(inst, nullptr);
      if (shape.sums()) inst->SetSumInc(inst, 1.0);
      ThreadWork(inst, shape, someKeys(shape, 20, round), round).run(300);
      EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
    }
  });
}

TEST(SeveralInstances, OfOnePairAreComparedInSeveralThreads) {
  const TableShape shape = shapeOf(KeyMode::fixed, flagMultiData);
  SharedTable table(shape);
  MORVAInst *other = makeInstance(table.ext(), shape);
  ASSERT_NE(other, nullptr);
  const std::vector<std::string> keys = someKeys(shape, 200);
  for (MORVAInst *inst : {table.inst(), other}) {
    for (size_t i = 0; i < 2 * keys.size(); ++i) {
      const std::string &key = keys[i % keys.size()];
      const std::string data = dataFor(shape, i);
      ASSERT_EQ(inst->Add(inst, data.data(), key.data(), lengthOf(key)), MORVA_OK);
    }
  }
  inParallel(kThreads, [&](size_t thread) {
    for (int round = 0; round < 400; ++round) {
      uint32_t equal = 7;
      EXPECT_EQ(MORVAEquals(table.inst(), other, thread == 0 ? nullptr : &equal), MORVA_OK);
      EXPECT_EQ(equal, thread == 0 ? 7u : 1u);
    }
  });
  EXPECT_EQ(other->Destroy(other), MORVA_OK);
}

class SeveralHosts : public ::testing::TestWithParam<HostKind> {};

INSTANTIATE_TEST_SUITE_P(TheFirstWithTheLibrary, SeveralHosts,
                         ::testing::Values(HostKind::embedded, HostKind::embeddedWithLoadedLibrary),
                         [](const auto &info) {
                           return info.param == HostKind::embedded ? "Linked" : "Loaded";
                         });

TEST_P(SeveralHosts, EachWithItsOwnCopyOfTheLibraryDoNotMeet) {
  const TableShape shape = shapeOf(KeyMode::fixed, flagOrdered | flagSum | flagMultiData);
  const std::unique_ptr<HostUnderTest> hosts[] = {makeHost(GetParam()),
                                                  makeHost(HostKind::embeddedWithLoadedLibrary)};
  inParallel(std::size(hosts), [&](size_t thread) {
    HostUnderTest &host = *hosts[thread];
    for (uint64_t round = 0; round < 20; ++round) {
      MORVAInst *inst = makeInstance(host.ext(), shape);
      ASSERT_NE(inst, nullptr);
      EXPECT_EQ(host.blocksLive("records"), 0u);
      inst->SetSumInc(inst, 1.0);
      ThreadWork work(inst, shape, someKeys(shape, 50, thread), 10 * round + thread);
      EXPECT_EQ(host.blocksLive("records"), 1u) << "the instance is on another host";
      if (HasFailure()) return;
      work.run(2000);
      ThreadWork::Contents contents;
      EXPECT_EQ(checkInstanceAlone(inst, shape, host.order(inst), &contents), "");
      EXPECT_EQ(contents, work.contents());
      EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
    }
    EXPECT_EQ(host.close(), "");
  });
}

}  // namespace
}  // namespace morva_test
