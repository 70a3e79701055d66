// Which free node a variable key gets, against a walk along the chain: after
// every step the node taken, the whole chain and the index over it.
#include <functional>

#include "free_chain.h"

namespace morva_test {
namespace {

struct Capacities {
  const char *name;
  std::function<uint32_t(Random &, uint32_t made)> next;  // of the node made as number `made`
};

void PrintTo(const Capacities &capacities, std::ostream *out) {
  *out << capacities.name;
}

uint32_t aroundAPower(Random &random) {
  const auto power = static_cast<uint32_t>(uint64_t{1} << random() % 32);
  return power + random() % 3 - 1;
}

class Run : public FreeIndexTest, public ::testing::WithParamInterface<Capacities> {};

TEST_P(Run, EveryTakeIsTheWalksAndLeavesTheChainOfAWalk) {
  for (const uint32_t seed : {1u, 20261121u}) {
    Random random(seed);
    MORVAInst *inst = make();
    Walked walked(inst);
    std::vector<RecordNode *> held;
    const auto release = [&](size_t at) {
      walked.release(held[at]);
      held[at] = held.back();
      held.pop_back();
    };
    bool indexed = false;
    for (uint32_t made = 0; made != 250; ++made) {
      held.push_back(newNode(inst, GetParam().next(random, made)));
    }
    for (int step = 0; step != 3000; ++step) {
      SCOPED_TRACE(step);
      const uint32_t what = random() % 100;
      if (what < 50) {
        // Lengths that nodes have, nearly have, or none has.
        uint32_t length = GetParam().next(random, random() % 250);
        if (random() % 4 == 0) length += random() % 3 - 1;
        if (RecordNode *node = walked.take(length)) held.push_back(node);
      } else if (what < 96) {
        if (!held.empty()) release(random() % held.size());
      } else if (what < 98) {
        while (!held.empty()) release(random() % held.size());
      } else {
        if (walked.firstFit(UINT32_MAX) == nullptr) walked.take(UINT32_MAX);
        for (uint32_t i = 0; i != 20; ++i) {
          if (RecordNode *node = walked.take(0)) held.push_back(node);
        }
      }
      walked.check();
      if (HasFailure()) return;
      indexed = indexed || indexOf(inst).first != nullptr;
    }
    EXPECT_TRUE(indexed) << "the run was to reach the index";
  }
}

INSTANTIATE_TEST_SUITE_P(
    FreeIndex, Run,
    ::testing::Values(Capacities{"AllEqual", [](Random &, uint32_t) { return 40u; }},
                      Capacities{"Rising", [](Random &, uint32_t made) { return 3 + made; }},
                      Capacities{"Falling", [](Random &, uint32_t made) { return 1000 - made; }},
                      Capacities{"ShortAndLong",
                                 [](Random &, uint32_t made) { return made % 2 == 0 ? 8u : 100u; }},
                      Capacities{"Few", [](Random &random, uint32_t) { return random() % 5; }},
                      Capacities{"Many", [](Random &random, uint32_t) { return random() % 200; }},
                      Capacities{"AroundPowersOfTwo",
                                 [](Random &random, uint32_t) { return aroundAPower(random); }},
                      Capacities{
                          "OfAllBits",
                          [](Random &random, uint32_t) { return static_cast<uint32_t>(random()); }},
                      Capacities{"TheEnds",
                                 [](Random &random, uint32_t) {
                                   const uint32_t ends[] = {0,          1,          2,
                                                            0x7FFFFFFF, 0x80000000, UINT32_MAX};
                                   return ends[random() % 6];
                                 }}),
    [](const auto &info) { return std::string(info.param.name); });

// ---- stamps -----------------------------------------------------------------

TEST_F(FreeIndexTest, NodesAreNumberedAnewWhenTheNumbersRunOut) {
  Random random(3);
  for (uint32_t spare = 0; spare != 40; ++spare) {
    MORVAInst *inst = make();
    Walked walked(inst);
    const auto pushMany = [&](uint32_t count) {
      for (uint32_t made = 0; made != count; ++made) walked.release(newNode(inst, random() % 50));
    };
    pushMany(60);
    walked.take(50);
    ASSERT_EQ(indexOf(inst).nextStamp, 60u);
    for (int i = 0; i != 15; ++i) walked.take(random() % 50);
    walked.check();
    indexOf(inst).nextStamp = kStampLimit - spare;
    pushMany(20);
    const auto chain = static_cast<uint32_t>(walked.chain().size());
    walked.take(50);
    walked.check();
    EXPECT_EQ(indexOf(inst).nextStamp, spare < 20 ? chain : kStampLimit - spare + 20);
    for (int i = 0; i != 15; ++i) walked.take(random() % 50);
    walked.check();
  }
}

TEST_F(FreeIndexTest, WithMoreNodesThanNumbersTheRestIsWalked) {
  Random random(4);
  MORVAInst *inst = make();
  Walked walked(inst);
  std::vector<RecordNode *> held;
  constexpr uint32_t kNumbers = 60;
  for (uint32_t made = 0; made != 100; ++made) held.push_back(newNode(inst, random() % 50));
  bool partly = false;
  for (int step = 0; step != 4000; ++step) {
    SCOPED_TRACE(step);
    if (random() % 2 == 0 && !held.empty()) {
      walked.release(held.back());
      held.pop_back();
    } else if (RecordNode *node = walked.take(random() % 52, kNumbers)) {
      held.insert(held.begin(), node);
    }
    walked.check();
    if (HasFailure()) return;
    EXPECT_LE(indexOf(inst).nextStamp, kNumbers);
    partly = partly || (indexOf(inst).first != nullptr && walked.chain().size() > kNumbers);
  }
  EXPECT_TRUE(partly);
}

// ---- the edges of front and index -------------------------------------------

TEST_F(FreeIndexTest, AShortFrontIsOnlyWalked) {
  MORVAInst *inst = make();
  Walked walked(inst);
  for (uint32_t made = 0; made != kFrontSteps; ++made) walked.release(newNode(inst, 8));
  EXPECT_EQ(walked.take(9), nullptr);
  EXPECT_EQ(indexOf(inst).first, nullptr);
  walked.release(newNode(inst, 8));
  EXPECT_EQ(walked.take(9), nullptr);
  EXPECT_EQ(indexOf(inst).first, inst->freeRecords);
  walked.check();
  // What comes now is in front again.
  for (uint32_t made = 0; made != kFrontSteps; ++made) walked.release(newNode(inst, 7));
  EXPECT_EQ(walked.take(9), nullptr);
  EXPECT_NE(walked.take(8), nullptr);
  EXPECT_EQ(frontLength(inst), kFrontSteps);
  walked.check();
}

TEST_F(FreeIndexTest, TheWholeIndexCanBeTakenAgain) {
  for (const uint32_t from : {0u, 1u}) {
    MORVAInst *inst = make();
    Walked walked(inst);
    for (uint32_t made = 0; made != 100; ++made) walked.release(newNode(inst, made % 10));
    walked.take(10);
    for (uint32_t i = 0; i != 100; ++i) {
      // From the front on, or from the longest on.
      EXPECT_NE(walked.take(from == 0 ? 0 : 9 - i / 10), nullptr);
      walked.check();
    }
    EXPECT_EQ(inst->freeRecords, nullptr);
    EXPECT_EQ(indexOf(inst).first, nullptr);
    EXPECT_EQ(walked.take(0), nullptr);
  }
}

TEST_F(FreeIndexTest, ANodeTakenFromTheIndexIsDetached) {
  MORVAInst *inst = make();
  Walked walked(inst);
  for (uint32_t made = 0; made != 100; ++made) walked.release(newNode(inst, 99 - made));
  walked.take(100);
  for (const uint32_t length : {50u, 0u, 99u, 64u, 63u}) {
    RecordNode *node = walked.take(length);
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->left, 0u);
    EXPECT_EQ(node->right, 0u);
  }
}

TEST_F(FreeIndexTest, AChainCutOffInFrontOfTheIndexIsForgotten) {
  MORVAInst *inst = make();
  Walked walked(inst);
  for (const bool withFront : {false, true}) {
    for (uint32_t made = 0; made != 40; ++made) walked.release(newNode(inst, 8));
    walked.take(9);
    ASSERT_NE(indexOf(inst).first, nullptr);
    inst->freeRecords = nullptr;
    walked.forgetAll();
    if (withFront) {
      for (uint32_t made = 0; made != 40; ++made) walked.release(newNode(inst, 7));
    }
    EXPECT_EQ(walked.take(8), nullptr);
    walked.release(newNode(inst, 9));
    walked.check();
    EXPECT_NE(walked.take(9), nullptr);
    walked.check();
  }
}

}  // namespace
}  // namespace morva_test
