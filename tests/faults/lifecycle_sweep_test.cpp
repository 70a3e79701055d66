// Loading the library, making an instance, defining its key and ending it, with every call to the
// host that can fail failing in turn until it succeeds; on every combination of option bits, those
// that creation refuses too.
#include <gtest/gtest.h>

#include <optional>

#include "lifecycle.h"
#include "world.h"

namespace fault_test {
namespace {

class LifecycleSweep : public testing::Test {
 protected:
  void TearDown() override {
    RecordProperty("cells", std::to_string(cells_));
    RecordProperty("failures", std::to_string(failures_));
    RecordProperty("successes", std::to_string(successes_));
  }

  // What one attempt met.
  struct Met {
    uint64_t failures = 0;
    Sequence asked;
  };

  // Ends the failing.
  static Met disarm(FaultHost &host) {
    const Met met = {host.delivered(), host.asked()};
    host.disarm();
    return met;
  }

  // Runs attempt(n, met) for n = 1, 2, 3 ... until nothing fails any more. It answers what is
  // wrong, or null, and fills `met`.
  template <class Attempt>
  void sweep(const Sequence &expected, uint32_t flags, Failing failing, Attempt attempt) {
    ++cells_;
    uint64_t n = 0;
    for (bool failed = true; failed && n <= expected.size();) {
      Met met;
      const char *fault = attempt(++n, met);
      failed = met.failures != 0;
      if (fault == nullptr) fault = checkAsked(met, expected, n);
      ++(failed ? failures_ : successes_);
      if (fault == nullptr) continue;
      FAIL() << fault << ": " << textOf(flags) << ", call " << n << " of " << expected.size()
             << " fails " << nameOf(failing);
    }
    EXPECT_EQ(n, expected.size() + 1) << textOf(flags);
  }

 private:
  static const char *checkAsked(const Met &met, const Sequence &expected, uint64_t n) {
    if (met.failures == 0) {
      return met.asked == expected ? nullptr : "the host was asked for other things";
    }
    if (n > expected.size() || met.asked[n - 1] != expected[n - 1]) {
      return "it failed where nothing can fail";
    }
    return nullptr;
  }

  uint64_t cells_ = 0, failures_ = 0, successes_ = 0;
};

TEST_F(LifecycleSweep, LoadingLeavesNothingBehindWhenItFails) {
  for (const Failing failing : kFailings) {
    FaultHost host(false);
    qzextent(host.services());
    sweep(sequenceOfLoading(), 0, failing, [&](uint64_t n, Met &met) -> const char * {
      host.arm(failing, n);
      MORVAExt *ext = morva::morva(nullptr, nullptr);
      met = disarm(host);
      if ((ext == nullptr) != (met.failures != 0)) return "it answered another result";
      if (ext != nullptr && ext->RealDestroy(ext) != MORVA_OK) return "it cannot be ended";
      return host.alive() == FaultHost::Alive() ? host.complaint() : "something was left behind";
    });
  }
}

// The name is the one thing that an instance can do without.
TEST_F(LifecycleSweep, CreationReleasesWhatItMadeExceptTheLockOfItsLastStep) {
  for (uint32_t flags = 0; flags < kCombinations; ++flags) {
    // An instance made before, which must not notice.
    World before(isAccepted(flags) ? flags : uint32_t{flagFixedKey}, Stock::full, false);
    FaultHost &host = before.host;
    for (const char *name : {static_cast<const char *>(nullptr), "", "name"}) {
      const Sequence expected = sequenceOfCreation(flags, name != nullptr);
      for (const Failing failing : kFailings) {
        sweep(expected, flags, failing, [&](uint64_t n, Met &met) -> const char * {
          const FaultHost::Alive alive = host.alive();
          const size_t locks = host.locksMade();
          MORVAParms parms = parmsOf(flags);
          host.arm(failing, n);
          MORVAInst *inst = before.ext->Create(before.ext, &parms, nullptr, name);
          met = disarm(host);
          const bool failed = met.failures != 0;
          const bool withoutName = failed && name != nullptr && n == 2 && failing == Failing::once;
          const bool made = isAccepted(flags) && (!failed || withoutName);
          if ((inst != nullptr) != made) return "it answered another result";
          FaultHost::Alive left = alive;
          if (failed && !made && leavesTheLock(expected[n - 1]) && (flags & flagNoLock) == 0) {
            ++left.locks;
          }
          if (inst != nullptr) {
            if ((inst->name == nullptr) != (withoutName || name == nullptr)) {
              return "it has a wrong name";
            }
            if (inst->Destroy(inst) != MORVA_OK) return "it cannot be destroyed";
          }
          if (host.alive() != left) return "something was left behind";
          if (host.locksMade() != locks) host.destroyLocksSince(locks);
          return before.check(0);
        });
      }
    }
    const char *fault = before.end();
    ASSERT_EQ(fault, nullptr) << fault << ": " << textOf(flags);
  }
}

TEST_F(LifecycleSweep, CreationAcceptsWhatTheRuleAccepts) {
  uint32_t accepted = 0;
  FaultHost host(false);
  qzextent(host.services());
  MORVAExt *ext = morva::morva(nullptr, nullptr);
  ASSERT_NE(ext, nullptr);
  for (uint32_t flags = 0; flags < kCombinations; ++flags) {
    MORVAParms parms = parmsOf(flags);
    MORVAInst *inst = ext->Create(ext, &parms, nullptr, "table");
    ASSERT_EQ(inst != nullptr, isAccepted(flags)) << textOf(flags);
    if (inst == nullptr) continue;
    ++accepted;
    inst->Destroy(inst);
  }
  ext->RealDestroy(ext);
  EXPECT_EQ(accepted, acceptedFlags().size());
}

// A host that has withdrawn its service table.
TEST_F(LifecycleSweep, WithoutAServiceTableNothingIsMade) {
  for (const uint32_t flags : acceptedFlags()) {
    World before(flags, Stock::full, false);
    MORVAParms parms = parmsOf(flags);
    MORVAInst *open = isRaw(flags) ? nullptr : before.ext->Create(before.ext, &parms, nullptr, "");
    const FaultHost::Alive alive = before.host.alive();
    qzextent(nullptr);
    EXPECT_EQ(morva::morva(nullptr, nullptr), nullptr);
    EXPECT_EQ(before.ext->Create(before.ext, &parms, nullptr, "name"), nullptr) << textOf(flags);
    if (open != nullptr) {
      EXPECT_EQ(open->DefineDone(open, 0, 8), MORVA_INVALID) << textOf(flags);
    }
    EXPECT_TRUE(before.host.alive() == alive) << textOf(flags);
    qzextent(before.host.services());
    if (open != nullptr) {
      EXPECT_EQ(open->DefineDone(open, 0, 8), MORVA_OK) << textOf(flags);
      EXPECT_EQ(open->Destroy(open), MORVA_OK);
    }
    ASSERT_STREQ(before.check(0), nullptr) << textOf(flags);
    ASSERT_STREQ(before.end(), nullptr) << textOf(flags);
  }
}

TEST_F(LifecycleSweep, DestructionNeedsNothingThatCanFail) {
  for (const uint32_t flags : acceptedFlags()) {
    for (const Stock stock : kStocks) {
      for (const bool containerLocks : {false, true}) {
        World world(flags, stock, containerLocks);
        if (stock == Stock::full) world.pin(0);
        world.host.arm(Failing::fromThenOn, 1);
        ASSERT_STREQ(world.end(), nullptr) << textOf(flags) << ", " << nameOf(stock);
        ASSERT_EQ(world.host.asked().size(), 0u) << textOf(flags) << ", " << nameOf(stock);
      }
    }
  }
}

TEST_F(LifecycleSweep, WhatTellsVersionsAsksTheHostForNothing) {
  World world(flagFixedKey, Stock::none, false);
  world.host.arm(Failing::fromThenOn, 1);
  int64_t a = 0, b = 0, c = 0;
  MORVAVersionRecord record;
  EXPECT_EQ(qzextver(world.host.services(), &a, &b), MORVA_OK);
  EXPECT_EQ(world.ext->GetReqVersion(world.ext, &a, &b, &c), MORVA_OK);
  EXPECT_EQ(world.ext->GetVersion(world.ext, &a, &b, &c), MORVA_OK);
  qzvercn1(&record);
  EXPECT_EQ(world.host.asked().size(), 0u);
  world.host.disarm();
  EXPECT_STREQ(world.end(), nullptr);
}

TEST_F(LifecycleSweep, ACopyIsMadeOrNot) {
  for (const Failing failing : kFailings) {
    World world(flagFixedKey, Stock::none, false);
    HostPool *pool = world.ext->pool;
    sweep(sequenceOfCopying(), flagFixedKey, failing, [&](uint64_t n, Met &met) -> const char * {
      world.host.arm(failing, n);
      void *copy = skMemDup("copy", 4, pool);
      met = disarm(world.host);
      if ((copy == nullptr) != (met.failures != 0)) return "it answered another result";
      if (copy == nullptr) return nullptr;
      const bool same = std::memcmp(copy, "copy", 4) == 0;
      pool->free(pool, copy);
      return same ? nullptr : "the copy differs";
    });
    EXPECT_STREQ(world.end(), nullptr);
  }
}

// ---- the definition ------------------------------------------------------------

// Takes the instance through its definition step by step; answers the failing step, if one does.
std::optional<size_t> define(MORVAInst *inst, const std::vector<MORVAKeyDesc> &fields,
                             MORVAStatus *status) {
  for (size_t i = 0; i < fields.size(); ++i) {
    *status = inst->DefineKey(inst, &fields[i]);
    if (*status != MORVA_OK) return i;
  }
  *status = inst->DefineDone(inst, 0, sizeof(uint64_t));
  return *status == MORVA_OK ? std::nullopt : std::optional(fields.size());
}

const char *checkDefined(MORVAInst *inst) {
  const Row row = {1.5, {'a', 'b'}, -1, {'r'}, {'n', 'a', 0}};
  const uint64_t data = 7;
  void *found = nullptr;
  if (inst->Add(inst, &data, &row, 0) != MORVA_OK) return "it takes no record";
  if (inst->Find(inst, &row, 0, &found) != MORVA_OK || found == nullptr) return "it finds none";
  return std::memcmp(found, &data, sizeof data) == 0 ? nullptr : "it finds another record";
}

const char *checkUndefined(MORVAInst *inst) {
  const Row row = {};
  const uint64_t data = 7;
  if ((inst->flags & flagDefined) != 0) return "it is defined in spite of the failure";
  if (inst->Add(inst, &data, &row, 0) != MORVA_INVALID) return "it takes records undefined";
  return nullptr;
}

TEST_F(LifecycleSweep, ADefinitionIsRefusedWholeAndItsEndCanBeTriedAgain) {
  for (const uint32_t flags : acceptedFlags()) {
    if (isRaw(flags)) continue;
    for (const std::vector<MORVAKeyDesc> &fields : definitions()) {
      const Sequence expected = sequenceOfDefinition(fields.size());
      for (const Failing failing : kFailings) {
        for (const bool again : {false, true}) {
          FaultHost host(false);
          qzextent(host.services());
          MORVAExt *ext = morva::morva(nullptr, nullptr);
          ASSERT_NE(ext, nullptr);
          MORVAParms parms = parmsOf(flags);
          // An end that is tried again makes another pool: the first one is left to the host.
          uint32_t poolsLeft = 0;
          sweep(expected, flags, failing, [&](uint64_t n, Met &met) -> const char * {
            MORVAInst *inst = ext->Create(ext, &parms, nullptr, "name");
            if (inst == nullptr) return "there is no instance";
            const int64_t blockMax = inst->recordBlockMax;
            host.arm(failing, n);
            MORVAStatus status = MORVA_OK;
            const std::optional<size_t> refused = define(inst, fields, &status);
            met = disarm(host);
            const char *fault = nullptr;
            if (refused.has_value() != (met.failures != 0)) return "it answered another result";
            if (!refused) {
              fault = checkDefined(inst);
            } else {
              if (met.failures != 1) return "it went on after the failure";
              const bool ofFinish = expected[n - 1] == Asked::finish;
              if (*refused != std::min<size_t>(n - 1, fields.size())) return "another step failed";
              if (status != (ofFinish ? MORVA_NO_MEMORY : MORVA_INVALID)) {
                return "it answered another result";
              }
              if (ofFinish && again) ++poolsLeft;
              if (inst->recordBlockMax != blockMax) return "the size of blocks has changed";
              fault = checkUndefined(inst);
              // Of a field that is refused nothing comes back; the end can be tried once more.
              if (fault == nullptr && again && *refused == fields.size()) {
                if (inst->DefineDone(inst, 0, sizeof(uint64_t)) != MORVA_OK) {
                  return "the second try failed";
                }
                fault = checkDefined(inst);
              }
            }
            if (inst->Destroy(inst) != MORVA_OK) return "it cannot be destroyed";
            FaultHost::Alive left;
            left.pools = 1 + poolsLeft;
            left.blocks = 1;
            if (fault == nullptr && host.alive() != left) fault = "something was left behind";
            return fault != nullptr ? fault : host.complaint();
          });
          ext->RealDestroy(ext);
        }
      }
    }
  }
}

}  // namespace
}  // namespace fault_test
