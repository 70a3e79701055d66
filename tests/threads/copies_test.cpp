// Copies of the library in one process: linked in, loaded from the file, and
// private ones. Used at the same time, and loaded and unloaded a thousand times.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "loading.h"
#include "morva/morva.h"

namespace host_test {
namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// The copy that is linked into this program.
MORVAExt *attach(const HostPtr &host) {
  const QZEntryPoints entry = {"morva", qzextver, morva::morva};
  char error[256] = "";
  MORVAExt *ext = QZHostAttach(host.get(), &entry, error, sizeof error);
  EXPECT_NE(ext, nullptr) << error;
  return ext;
}

// Tables of all key modes, with all that a library makes for them.
bool worksInEveryMode(MORVAExt *ext) {
  const uint32_t modes[] = {flagFixedKey | flagOrdered | flagSum | flagMultiData,
                            flagVarKey | flagOrdered, flagOrdered | flagMultiData};
  for (const uint32_t flags : modes) {
    MORVAParms parms{};
    parms.dataLength = 8;
    parms.keyLength = 8;
    parms.flags = flags;
    parms.hashExp = 4;
    MORVAInst *inst = ext->Create(ext, &parms, nullptr, "copy");
    if (inst == nullptr) return false;
    bool good = true;
    if ((flags & (flagFixedKey | flagVarKey)) == 0) {
      const MORVAKeyDesc desc = {8, 4, 0, 0};
      good = inst->DefineKey(inst, &desc) == MORVA_OK && inst->DefineDone(inst, 0, 8) == MORVA_OK;
    }
    good = good && works(inst, 0, 100) && inst->NumElements(inst) == 100;
    for (uint64_t key = 0; good && key < 100; key += 2) {
      good = inst->Remove(inst, &key, 8) == MORVA_OK;
    }
    good = good && inst->NumElements(inst) == 50 && inst->Clear(inst) == MORVA_OK;
    if (inst->Destroy(inst) != MORVA_OK || !good) return false;
  }
  return true;
}

constexpr int kCycles = kSanitized ? 150 : 1000;

void expectAsBefore(const Held &before, const Held &after) {
  EXPECT_EQ(after.descriptors, before.descriptors);
  EXPECT_EQ(after.copies, before.copies);
  // A sanitizer maps memory for itself as time goes on.
  if (kSanitized) return;
  // The C library keeps a table or an arena now and then. Whatever each life left
  // behind would be more: the smallest block takes 32 bytes, a mapping 4096.
  EXPECT_LT(after.mappings, before.mappings + kCycles / 4);
  EXPECT_LT(after.mappedBytes, before.mappedBytes + kCycles * 1024);
  EXPECT_LT(after.heapBytes, before.heapBytes + kCycles * 8);
}

void expectNothingLeftBy(const std::function<void()> &cycle) {
  // What the system keeps for the next time is there after some.
  for (int i = 0; i < 20; ++i) cycle();
  const Held before = heldNow();
  for (int i = 0; i < kCycles && !::testing::Test::HasFailure(); ++i) cycle();
  expectAsBefore(before, heldNow());
}

TEST(LoadedCopies, LeaveNothingBehindInAThousandLives) {
  const HostPtr host = makeHost();
  expectNothingLeftBy([&] {
    MORVAExt *ext = load(host, kMorva);
    EXPECT_TRUE(worksInEveryMode(ext));
    unload(host, ext);
  });
  EXPECT_EQ(mappings(kMorva), 0u);
  EXPECT_EQ(statsOf(host).pools, 0u);
  EXPECT_EQ(statsOf(host).companions, 0u);
  EXPECT_EQ(statsOf(host).unmatchedReleases, 0u);
}

TEST(LoadedCopies, LeaveNothingBehindInAThousandLivesOfTheirHosts) {
  expectNothingLeftBy([&] {
    HostPtr first = makeHost(), second = makeHost();
    MORVAExt *of[] = {load(first, kMorva), load(second, kMorva)};
    EXPECT_NE(of[0]->Create, of[1]->Create);
    for (MORVAExt *ext : of) EXPECT_TRUE(works(ext));
    EXPECT_EQ(QZHostDestroy(first.release(), nullptr), 0u);
    EXPECT_TRUE(works(of[1]));
    EXPECT_EQ(QZHostDestroy(second.release(), nullptr), 0u);
  });
}

TEST(LinkedAndLoadedCopies, WorkAtTheSameTimeInTwoThreads) {
  const HostPtr hosts[] = {makeHost(), makeHost()};
  MORVAExt *const of[] = {attach(hosts[0]), load(hosts[1], kMorva)};
  ASSERT_NE(of[0], nullptr);
  ASSERT_NE(of[1], nullptr);
  ASSERT_NE(of[0]->Create, of[1]->Create) << "one copy has both hosts";
  std::atomic<int> failed{0};
  std::vector<std::thread> threads;
  for (size_t which = 0; which < 2; ++which) {
    threads.emplace_back([&, which] {
      MORVAInst *kept = makeInstance(of[which]);
      for (uint64_t round = 0; round < 60; ++round) {
        if (!worksInEveryMode(of[which])) ++failed;
        if (!works(kept, round * 50, 50)) ++failed;
        if (kept->NumElements(kept) != (round + 1) * 50) ++failed;
        // The tables of a thread are on its own host, and nobody else's.
        if (statsOf(hosts[which]).trees != 1) ++failed;
      }
      kept->Destroy(kept);
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(failed, 0);
  for (size_t which = 0; which < 2; ++which) {
    EXPECT_EQ(statsOf(hosts[which]).trees, 0u);
    EXPECT_EQ(statsOf(hosts[which]).locks, 0u);
    unload(hosts[which], of[which]);
    EXPECT_EQ(statsOf(hosts[which]).bytesLive, 0u);
  }
}

TEST(LinkedAndLoadedCopies, DoNotMindOthersThatComeAndGo) {
  const HostPtr host = makeHost();
  MORVAExt *const ext = attach(host);
  ASSERT_NE(ext, nullptr);
  MORVAInst *const table = makeInstance(ext);
  ASSERT_TRUE(works(table, 0, 1000));
  std::atomic<bool> done{false};
  std::atomic<int> failed{0};
  std::vector<std::thread> others;
  for (int i = 0; i < 2; ++i) {
    others.emplace_back([&] {
      for (int round = 0; round < (kSanitized ? 20 : 60); ++round) {
        const HostPtr own = makeHost();
        MORVAExt *copy = load(own, kMorva);
        if (copy == nullptr || !worksInEveryMode(copy)) ++failed;
        unload(own, copy);
      }
      done = true;
    });
  }
  uint64_t next = 1000;
  for (; (!done && next < 300000) || next < 3000; next += 10) {
    if (!works(table, next, 10)) ++failed;
  }
  for (std::thread &other : others) other.join();
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(table->NumElements(table), next);
  for (uint64_t key = 0; key < next; ++key) {
    const uint64_t expected = ~key;
    void *data = nullptr;
    ASSERT_EQ(table->Find(table, &key, 8, &data), MORVA_OK);
    ASSERT_NE(data, nullptr);
    ASSERT_EQ(memcmp(data, &expected, 8), 0);
  }
  EXPECT_EQ(table->Destroy(table), MORVA_OK);
  unload(host, ext);
}

}  // namespace
}  // namespace host_test
