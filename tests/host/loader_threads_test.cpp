// Hosts that load, work and unload in several threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "loader_test.h"

namespace host_test {
namespace {

template <class Body>
void inThreads(int threads, Body body) {
  std::vector<std::thread> all;
  for (int i = 0; i < threads; ++i) all.emplace_back(body);
  for (std::thread &thread : all) thread.join();
}

constexpr int kRounds = 15;

TEST(LoaderThreads, EveryThreadMayHaveAHostOfItsOwn) {
  std::atomic<int> failed{0};
  inThreads(4, [&] {
    for (int i = 0; i < kRounds; ++i) {
      QZHost *host = QZHostCreate(nullptr);
      MORVAExt *ext = QZHostLoad(host, kMorva.c_str(), nullptr, 0);
      if (ext == nullptr || !works(ext)) ++failed;
      if (i % 2 == 0 && QZHostUnload(host, ext, nullptr, 0) != 0) ++failed;
      if (QZHostDestroy(host, nullptr) != 0) ++failed;
    }
  });
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(mappings("memfd:"), 0u);
}

TEST(LoaderThreads, OneHostMayLoadAndUnloadInAllOfThem) {
  const HostPtr host = makeHost();
  std::atomic<int> failed{0};
  inThreads(4, [&] {
    for (int i = 0; i < kRounds; ++i) {
      MORVAExt *ext = QZHostLoad(host.get(), kMorva.c_str(), nullptr, 0);
      if (ext == nullptr || !works(ext)) ++failed;
      statsOf(host);
      poolStatsOf(host);
      if (QZHostUnload(host.get(), ext, nullptr, 0) != 0) ++failed;
    }
  });
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(statsOf(host).extensions, 0u);
  EXPECT_EQ(statsOf(host).pools, 0u);
}

TEST(LoaderThreads, TwoHostsWorkAtOnceOnTheirCopies) {
  const HostPtr hosts[2] = {makeHost(), makeHost()};
  MORVAExt *extensions[2] = {load(hosts[0], kMorva), load(hosts[1], kMorva)};
  ASSERT_NE(extensions[0]->Create, extensions[1]->Create);
  std::atomic<int> next{0}, failed{0};
  inThreads(4, [&] {
    MORVAExt *ext = extensions[next++ % 2];
    for (int i = 0; i < kRounds; ++i)
      if (!works(ext)) ++failed;
  });
  EXPECT_EQ(failed, 0);
  for (const HostPtr &host : hosts) {
    EXPECT_EQ(statsOf(host).locks, 0u);
    EXPECT_EQ(statsOf(host).pools, 1u);
  }
}

}  // namespace
}  // namespace host_test
