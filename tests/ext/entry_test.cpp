// Storing the service table, the entry function, and the end of an extension.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "recording_host.h"

namespace morva_test {
namespace {

using ::testing::IsEmpty;

class Entry : public ::testing::Test {
 protected:
  void SetUp() override { Exported_QZHandle = nullptr; }
  void TearDown() override {
    host.checkGuards();
    EXPECT_THAT(host.complaints(), IsEmpty());
  }
  RecordingHost host;
};

// ---- storing the table ------------------------------------------------------

TEST_F(Entry, QzextentStoresTheTable) {
  EXPECT_EQ(qzextent(host.services()), MORVA_OK);
  EXPECT_EQ(Exported_QZHandle, host.services());
  EXPECT_EQ(qzextent(nullptr), MORVA_OK);
  EXPECT_EQ(Exported_QZHandle, nullptr);
}

TEST_F(Entry, QzextverAnswersSixAndOneAndStoresTheTable) {
  int64_t major = -1, minor = -1;
  EXPECT_EQ(qzextver(host.services(), &major, &minor), MORVA_OK);
  EXPECT_EQ(major, 6);
  EXPECT_EQ(minor, 1);
  EXPECT_EQ(Exported_QZHandle, host.services());
}

TEST_F(Entry, QzextverWithANullTableStillAnswersItsNumbersAndZero) {
  qzextent(host.services());
  int64_t major = -1, minor = -1;
  EXPECT_EQ(qzextver(nullptr, &major, &minor), MORVA_OK);
  EXPECT_EQ(major, 6);
  EXPECT_EQ(minor, 1);
  EXPECT_EQ(Exported_QZHandle, nullptr);
}

TEST_F(Entry, QzextverLeavesNullPlacesOut) {
  int64_t number = -1;
  EXPECT_EQ(qzextver(host.services(), nullptr, &number), MORVA_OK);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(qzextver(host.services(), &number, nullptr), MORVA_OK);
  EXPECT_EQ(number, 6);
  EXPECT_EQ(qzextver(nullptr, nullptr, nullptr), MORVA_OK);
  EXPECT_EQ(Exported_QZHandle, nullptr);
}

TEST_F(Entry, QzextverAnswersTheMajorNumberFirst) {
  int64_t both = -1;
  EXPECT_EQ(qzextver(host.services(), &both, &both), MORVA_OK);
  EXPECT_EQ(both, 1);
}

// A page that faults at its first write tells what stood in the table pointer
// at that moment.
struct FaultPage {
  void *address = nullptr;
  size_t size = 0;
  HostServices *handleAtFault = nullptr;
  bool faulted = false;
} faultPage;

void openFaultPage(int, siginfo_t *info, void *) {
  const char *at = static_cast<const char *>(info->si_addr);
  const char *page = static_cast<const char *>(faultPage.address);
  if (at < page || at >= page + faultPage.size) _exit(70);
  faultPage.faulted = true;
  faultPage.handleAtFault = Exported_QZHandle;
  mprotect(faultPage.address, faultPage.size, PROT_READ | PROT_WRITE);
}

TEST_F(Entry, QzextverWritesItsNumbersBeforeItStoresTheTable) {
  faultPage.size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  faultPage.address = mmap(nullptr, faultPage.size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(faultPage.address, MAP_FAILED);
  struct sigaction action = {}, before = {};
  action.sa_sigaction = openFaultPage;
  action.sa_flags = SA_SIGINFO;
  ASSERT_EQ(sigaction(SIGSEGV, &action, &before), 0);

  // Each number in turn is the one that faults.
  for (int which = 0; which != 2; ++which) {
    HostServices old = {};
    Exported_QZHandle = &old;
    faultPage.faulted = false;
    ASSERT_EQ(mprotect(faultPage.address, faultPage.size, PROT_READ), 0);
    int64_t plain = -1;
    int64_t *watched = static_cast<int64_t *>(faultPage.address);
    EXPECT_EQ(
        qzextver(host.services(), which == 0 ? watched : &plain, which == 0 ? &plain : watched),
        MORVA_OK);
    EXPECT_TRUE(faultPage.faulted);
    EXPECT_EQ(faultPage.handleAtFault, &old);
    EXPECT_EQ(*watched, which == 0 ? 6 : 1);
    EXPECT_EQ(Exported_QZHandle, host.services());
  }
  sigaction(SIGSEGV, &before, nullptr);
  munmap(faultPage.address, faultPage.size);
  Exported_QZHandle = nullptr;
}

// ---- the entry function -----------------------------------------------------

TEST_F(Entry, MakesThePoolThenTheExtensionObjectInIt) {
  qzextent(host.services());
  int context = 0;
  MORVAExt *ext = morva::morva(nullptr, &context);
  ASSERT_NE(ext, nullptr);
  EXPECT_EQ(host.story(), "createPool(MORVA Extension) allocate(MORVA Extension)");
  const Event &pool = host.events()[0];
  EXPECT_EQ(pool.a, reinterpret_cast<uintptr_t>(&context));
  EXPECT_EQ(pool.b, 0u);
  const Event &object = host.events()[1];
  EXPECT_EQ(object.a, 11 * sizeof(void *));
  EXPECT_EQ(object.b, MORVA_ZERO_FILL);
  EXPECT_EQ(object.c, reinterpret_cast<uintptr_t>(ext));
  EXPECT_EQ(ext->RealDestroy(ext), MORVA_OK);
}

TEST_F(Entry, ObjectHoldsItsRoutinesAndNothingElse) {
  qzextent(host.services());
  MORVAExt *ext = morva::morva(nullptr, nullptr);
  ASSERT_NE(ext, nullptr);
  EXPECT_EQ(std::memcmp(ext->eyeCatcher, "nevo\0\0\0\0", 8), 0);
  EXPECT_EQ(ext->GetReqVersion, &MORVAGetReqVersion);
  EXPECT_EQ(ext->GetVersion, &MORVAGetVersion);
  EXPECT_EQ(ext->RealDestroy, &MORVARealDestroy);
  EXPECT_EQ(ext->Create, &MORVACreate);
  EXPECT_NE(ext->pool, nullptr);
  for (void *slot : {ext->slot1[0], ext->slot1[1], ext->slot5, ext->slot7[0], ext->slot7[1]}) {
    EXPECT_EQ(slot, nullptr);
  }
  ext->RealDestroy(ext);
}

TEST_F(Entry, ReadsTheTableThatTheHostStoredDirectly) {
  Exported_QZHandle = host.services();
  MORVAExt *ext = morva::morva(nullptr, nullptr);
  ASSERT_NE(ext, nullptr);
  EXPECT_EQ(host.poolsAlive(), 1u);
  ext->RealDestroy(ext);
}

TEST_F(Entry, DoesNotReadItsFirstArgument) {
  qzextent(host.services());
  MORVAExt *ext = morva::morva(reinterpret_cast<void *>(uintptr_t{1}), nullptr);
  ASSERT_NE(ext, nullptr);
  ext->RealDestroy(ext);
}

TEST_F(Entry, WithoutATableAnswersNull) {
  EXPECT_EQ(morva::morva(nullptr, nullptr), nullptr);
  EXPECT_EQ(host.story(), "");
}

TEST_F(Entry, APoolThatCannotBeMadeAnswersNullAndCallsNothingElse) {
  qzextent(host.services());
  host.failCall(Call::createPool);
  EXPECT_EQ(morva::morva(nullptr, nullptr), nullptr);
  EXPECT_EQ(host.story(), "createPool(MORVA Extension)!");
  EXPECT_TRUE(host.nothingAlive()) << host.alive();
}

TEST_F(Entry, AnObjectThatCannotBeAllocatedDestroysThePool) {
  qzextent(host.services());
  host.failCall(Call::allocate);
  EXPECT_EQ(morva::morva(nullptr, nullptr), nullptr);
  EXPECT_EQ(host.story(),
            "createPool(MORVA Extension) allocate(MORVA Extension)! destroyPool(MORVA Extension)");
  EXPECT_TRUE(host.nothingAlive()) << host.alive();
}

TEST_F(Entry, NeverClearsTheTable) {
  qzextent(host.services());
  host.failCall(Call::createPool);
  morva::morva(nullptr, nullptr);
  EXPECT_EQ(Exported_QZHandle, host.services());
  host.failNever();
  MORVAExt *ext = morva::morva(nullptr, nullptr);
  ASSERT_NE(ext, nullptr);
  EXPECT_EQ(Exported_QZHandle, host.services());
  ext->RealDestroy(ext);
  EXPECT_EQ(Exported_QZHandle, host.services());
}

TEST_F(Entry, EachCallAnswersAnExtensionOfItsOwn) {
  qzextent(host.services());
  MORVAExt *one = morva::morva(nullptr, nullptr);
  MORVAExt *two = morva::morva(nullptr, nullptr);
  ASSERT_NE(one, nullptr);
  ASSERT_NE(two, nullptr);
  EXPECT_NE(one, two);
  EXPECT_NE(one->pool, two->pool);
  EXPECT_EQ(one->RealDestroy(one), MORVA_OK);
  EXPECT_EQ(host.poolsAlive(), 1u);
  MORVAParms parms = {};
  parms.flags = flagFixedKey;
  MORVAInst *inst = two->Create(two, &parms, nullptr, nullptr);
  ASSERT_NE(inst, nullptr);
  EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
  EXPECT_EQ(two->RealDestroy(two), MORVA_OK);
  EXPECT_TRUE(host.nothingAlive()) << host.alive();
}

// ---- the end of an extension ------------------------------------------------

TEST_F(Entry, RealDestroyDestroysThePoolAndDoesNothingElse) {
  qzextent(host.services());
  MORVAExt *ext = morva::morva(nullptr, nullptr);
  ASSERT_NE(ext, nullptr);
  host.forget();
  EXPECT_EQ(ext->RealDestroy(ext), MORVA_OK);
  EXPECT_EQ(host.story(), "destroyPool(MORVA Extension)");
  EXPECT_TRUE(host.nothingAlive()) << host.alive();
}

TEST_F(Entry, RealDestroyTakesTheMemoryOfLivingInstances) {
  qzextent(host.services());
  MORVAExt *ext = morva::morva(nullptr, nullptr);
  ASSERT_NE(ext, nullptr);
  MORVAParms parms = {};
  parms.flags = flagFixedKey | flagNoLock;
  ASSERT_NE(ext->Create(ext, &parms, nullptr, "left behind"), nullptr);
  EXPECT_EQ(host.blocksAlive("MORVA Extension"), 4u);
  host.forget();
  EXPECT_EQ(ext->RealDestroy(ext), MORVA_OK);
  EXPECT_EQ(host.story(), "destroyPool(MORVA Extension)");
  EXPECT_EQ(host.blocksAlive("MORVA Extension"), 0u);
  // What the instance had of other pools stays with the host.
  EXPECT_EQ(host.poolsAlive(), 1u);
  EXPECT_EQ(host.companionsAlive(), 1u);
}

TEST_F(Entry, RealDestroyRefusesNull) {
  EXPECT_EQ(MORVARealDestroy(nullptr), MORVA_INVALID);
  EXPECT_EQ(host.story(), "");
}

}  // namespace
}  // namespace morva_test
