// Refusals, and how the two locks are held.
#include <gtest/gtest.h>

#include "equals_test.h"

using morva_test::Event;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class EqualsLocks : public keys_test::EqualsTest {
 protected:
  // The number of an instance's lock in the log.
  uint32_t lockNumber(MORVAInst *inst) {
    host.forget();
    EXPECT_EQ(inst->HashVal(inst, "12345678", 8, nullptr), MORVA_OK);
    const auto acquired = host.eventsOf(Call::acquire);
    EXPECT_EQ(acquired.size(), 1u);
    return acquired.empty() ? 0 : acquired[0].object;
  }

  std::vector<std::string> lockStory() {
    std::vector<std::string> story;
    for (const Event &event : host.events()) {
      if (event.call == Call::acquire) {
        EXPECT_EQ(event.a, 1u);
        EXPECT_EQ(event.b, 1u);
        story.push_back("acquire " + std::to_string(event.object));
      }
      if (event.call == Call::release) story.push_back("release " + std::to_string(event.object));
    }
    return story;
  }

  static std::string acquire(uint32_t lock) { return "acquire " + std::to_string(lock); }
  static std::string release(uint32_t lock) { return "release " + std::to_string(lock); }

  void expectRefused(MORVAInst *a, MORVAInst *b) {
    host.forget();
    uint32_t answer = untouched;
    EXPECT_EQ(MORVAEquals(a, b, &answer), MORVA_INVALID);
    EXPECT_EQ(answer, untouched);
    EXPECT_EQ(MORVAEquals(a, b, nullptr), MORVA_INVALID);
    EXPECT_THAT(host.events(), IsEmpty()) << "no lock is taken";
  }
};

}  // namespace

TEST_F(EqualsLocks, ANullInstanceIsRefused) {
  MORVAInst *inst = with(Mode::fixed, {});
  expectRefused(nullptr, inst);
  expectRefused(inst, nullptr);
  expectRefused(nullptr, nullptr);
}

TEST_F(EqualsLocks, AnInstanceWithoutALayoutIsRefused) {
  MORVAInst *ready = with(Mode::fixed, {});
  Shape shape;
  shape.flags = 0;
  MORVAInst *open = create(shape);
  expectRefused(ready, open);
  expectRefused(open, ready);
  expectRefused(open, open);
}

TEST_F(EqualsLocks, AnInstanceWithVariableKeysIsRefusedAndTheAnswerUntouched) {
  MORVAInst *fixed = with(Mode::fixed, {});
  MORVAInst *variable = with(Mode::variable, {});
  expectRefused(fixed, variable);
  expectRefused(variable, fixed);
  expectRefused(variable, variable);
}

TEST_F(EqualsLocks, AreTakenAndReleasedFirstInstanceFirst) {
  MORVAInst *a = with(Mode::fixed, {{"k", "v"}});
  MORVAInst *b = with(Mode::fixed, {{"k", "v"}});
  const uint32_t lockA = lockNumber(a), lockB = lockNumber(b);
  ASSERT_NE(lockA, lockB);
  host.forget();
  uint32_t answer = untouched;
  ASSERT_EQ(MORVAEquals(a, b, &answer), MORVA_OK);
  EXPECT_EQ(answer, 1u);
  EXPECT_THAT(lockStory(),
              ElementsAre(acquire(lockA), acquire(lockB), release(lockA), release(lockB)));
  host.forget();
  ASSERT_EQ(MORVAEquals(b, a, &answer), MORVA_OK);
  EXPECT_THAT(lockStory(),
              ElementsAre(acquire(lockB), acquire(lockA), release(lockB), release(lockA)));
}

TEST_F(EqualsLocks, AreReleasedTheSameWayAfterEveryKindOfMismatch) {
  MORVAInst *a = with(Mode::fixed, {{"k", "v"}});
  const uint32_t lockA = lockNumber(a);
  MORVAInst *others[] = {with(Mode::fixed, {{"k", "w"}}), with(Mode::fixed, {{"l", "v"}}),
                         with(Mode::fixed, {}), with(Mode::fixed, {{"k", "v"}}, 0, 5),
                         with(Mode::fixed, {{"k", "v"}}, flagMultiData)};
  for (MORVAInst *b : others) {
    const uint32_t lockB = lockNumber(b);
    host.forget();
    uint32_t answer = untouched;
    ASSERT_EQ(MORVAEquals(a, b, &answer), MORVA_OK);
    EXPECT_EQ(answer, 0u);
    EXPECT_THAT(lockStory(),
                ElementsAre(acquire(lockA), acquire(lockB), release(lockA), release(lockB)));
  }
}

TEST_F(EqualsLocks, OfOneInstanceComparedWithItselfIsTakenTwiceAndReleasedTwice) {
  MORVAInst *inst = with(Mode::fixed, {{"k", "v"}});
  const uint32_t lock = lockNumber(inst);
  host.forget();
  uint32_t answer = untouched;
  ASSERT_EQ(MORVAEquals(inst, inst, &answer), MORVA_OK);
  EXPECT_EQ(answer, 1u);
  EXPECT_THAT(lockStory(), ElementsAre(acquire(lock), acquire(lock), release(lock), release(lock)));
  EXPECT_EQ(host.mostLocksHeldAtOnce(), 2u);
}

TEST_F(EqualsLocks, OfInstancesWithoutOneAreLeftOut) {
  MORVAInst *locked = with(Mode::fixed, {{"k", "v"}});
  MORVAInst *bare = with(Mode::fixed, {{"k", "v"}}, flagNoLock);
  const uint32_t lock = lockNumber(locked);
  uint32_t answer = untouched;
  host.forget();
  ASSERT_EQ(MORVAEquals(locked, bare, &answer), MORVA_OK);
  EXPECT_EQ(answer, 1u);
  EXPECT_THAT(lockStory(), ElementsAre(acquire(lock), release(lock)));
  host.forget();
  ASSERT_EQ(MORVAEquals(bare, locked, &answer), MORVA_OK);
  EXPECT_EQ(answer, 1u);
  EXPECT_THAT(lockStory(), ElementsAre(acquire(lock), release(lock)));
  host.forget();
  ASSERT_EQ(MORVAEquals(bare, bare, &answer), MORVA_OK);
  EXPECT_EQ(answer, 1u);
  EXPECT_THAT(lockStory(), IsEmpty());
}

TEST_F(EqualsLocks, WithoutAPlaceForTheAnswerAreTakenAndReleasedAndNothingIsCompared) {
  MORVAInst *a = with(Mode::fixed, {{"k", "v"}});
  MORVAInst *b = with(Mode::fixed, {{"k", "w"}});
  const uint32_t lockA = lockNumber(a), lockB = lockNumber(b);
  host.forget();
  EXPECT_EQ(MORVAEquals(a, b, nullptr), MORVA_OK);
  EXPECT_THAT(lockStory(),
              ElementsAre(acquire(lockA), acquire(lockB), release(lockA), release(lockB)));
  EXPECT_THAT(host.events(), SizeIs(4));
}

TEST_F(EqualsLocks, AreBothHeldForTheWholeWalk) {
  MORVAInst *a = with(Mode::fixed, {{"k", "v"}, {"l", "v"}, {"m", "v"}});
  MORVAInst *b = with(Mode::fixed, {{"k", "v"}, {"l", "v"}, {"m", "v"}});
  host.forget();
  int steps = 0;
  host.onEvent = [&](const Event &event) {
    if (event.call != Call::treeFirst && event.call != Call::treeNext) return;
    EXPECT_EQ(host.locksHeld(), 2u);
    steps++;
  };
  uint32_t answer = untouched;
  ASSERT_EQ(MORVAEquals(a, b, &answer), MORVA_OK);
  host.onEvent = nullptr;
  EXPECT_EQ(answer, 1u);
  EXPECT_GE(steps, 2 * 16);
}

TEST_F(EqualsLocks, AreStillHeldWhenTheAnswerIsStored) {
  MORVAInst *a = with(Mode::fixed, {{"k", "v"}});
  MORVAInst *same = with(Mode::fixed, {{"k", "v"}});
  MORVAInst *other = with(Mode::fixed, {{"k", "w"}});
  MORVAInst *otherShape = with(Mode::fixed, {{"k", "v"}}, 0, 5);
  for (MORVAInst *b : {same, other, otherShape}) {
    uint32_t answer = untouched, atFirstRelease = untouched;
    host.onEvent = [&](const Event &event) {
      if (event.call == Call::release && host.locksHeld() == 1) atFirstRelease = answer;
    };
    ASSERT_EQ(MORVAEquals(a, b, &answer), MORVA_OK);
    host.onEvent = nullptr;
    EXPECT_EQ(atFirstRelease, answer);
    EXPECT_EQ(answer, b == same ? 1u : 0u);
  }
}

TEST_F(EqualsLocks, TheComparisonIsTheOperationOfTheTable) {
  MORVAInst *inst = with(Mode::fixed, {});
  EXPECT_EQ(inst->Equals, &MORVAEquals);
}
