// Operations on variable keys take the nodes that a walk along the free chain
// would find, and need not walk.
#include <functional>

#include "free_chain.h"

namespace morva_test {
namespace {

using FreeIndexOperations = FreeIndexTest;

// Keys of many lengths; the number makes them differ from four bytes on.
std::string keyOf(uint32_t number) {
  constexpr uint32_t kLengths[] = {4,  5,  7,  8,  9,  15,  16,  17, 31,
                                   32, 33, 63, 64, 65, 127, 128, 300};
  std::string key(kLengths[number % std::size(kLengths)], '.');
  std::memcpy(key.data(), &number, sizeof number);
  return key;
}

// A table whose nodes are followed through every operation.
class FollowedTable {
 public:
  FollowedTable(RecordingHost &host, MORVAInst *inst) : host_(host), inst_(inst), walked_(inst) {}

  void add(uint32_t number) {
    const std::string key = keyOf(number);
    RecordNode *node = predict(key);
    host_.forget();
    const bool present = stored_[number] != nullptr;
    ASSERT_EQ(MORVAAdd(inst_, nullptr, key.data(), static_cast<int32_t>(key.size())),
              present ? MORVA_PRESENT : MORVA_OK);
    node = taken(node);
    if (present) {
      walked_.put(node);
    } else {
      stored_[number] = node;
    }
  }

  void find(uint32_t number) {
    const std::string key = keyOf(number);
    RecordNode *node = predict(key);
    host_.forget();
    void *data = nullptr;
    ASSERT_EQ(MORVAFind(inst_, key.data(), static_cast<int32_t>(key.size()), &data), MORVA_OK);
    walked_.put(taken(node));
    const RecordNode *found = stored_[number];
    ASSERT_EQ(data != nullptr, found != nullptr);
    if (found != nullptr) {
      EXPECT_EQ(prefixOf(stored_[number]).length, key.size());
      EXPECT_EQ(std::memcmp(reinterpret_cast<const char *>(found + 1) + 8, key.data(), key.size()),
                0);
    }
  }

  void remove(uint32_t number) {
    const std::string key = keyOf(number);
    RecordNode *node = predict(key);
    host_.forget();
    const bool present = stored_[number] != nullptr;
    ASSERT_EQ(MORVARemove(inst_, key.data(), static_cast<int32_t>(key.size())),
              present ? MORVA_OK : MORVA_INVALID);
    walked_.put(taken(node));
    if (present) walked_.put(stored_[number]);
    stored_[number] = nullptr;
  }

  void clear() {
    ASSERT_EQ(MORVAClear(inst_), MORVA_OK);
    walked_.forgetAll();
    std::fill(stored_.begin(), stored_.end(), nullptr);
    EXPECT_EQ(host_.blocksAlive("varkeys"), 0u);
  }

  void clear2() {
    for (uint32_t index = 0; index <= inst_->buckets->mask; ++index) {
      Bucket *bucket = MORVABucketAt(inst_->buckets, index);
      for (RecordNode *node = inst_->tree->first(inst_->tree, bucket); node != nullptr;
           node = inst_->tree->next(node)) {
        walked_.put(node);
      }
    }
    ASSERT_EQ(MORVAClear2(inst_), MORVA_OK);
    std::fill(stored_.begin(), stored_.end(), nullptr);
  }

  void check() const { walked_.check(); }

 private:
  RecordNode *predict(const std::string &key) const {
    return walked_.firstFit(static_cast<uint32_t>(key.size()));
  }

  // The node that an operation took: `predicted`, else a new one.
  RecordNode *taken(RecordNode *predicted) {
    const std::vector<Event> blocks = host_.eventsOf(Call::allocate);
    EXPECT_EQ(blocks.size(), predicted == nullptr ? 1u : 0u);
    if (predicted == nullptr) return reinterpret_cast<RecordNode *>(blocks.at(0).c);
    walked_.forget(predicted);
    return predicted;
  }

  RecordingHost &host_;
  MORVAInst *inst_;
  Walked walked_;
  std::vector<RecordNode *> stored_ = std::vector<RecordNode *>(400);
};

TEST_F(FreeIndexOperations, OperationsTakeTheNodesOfAWalkAndFindWhatIsStored) {
  for (const uint32_t seed : {7u, 8u}) {
    Random random(seed);
    MORVAInst *inst = create(Mode::variable, flagNoLock, 0, 3);
    FollowedTable table(host, inst);
    for (int step = 0; step != 6000; ++step) {
      SCOPED_TRACE(step);
      // Mostly adding for a while, then mostly removing.
      const bool growing = step / 700 % 2 == 0;
      const uint32_t number = random() % 400, what = random() % 1000;
      if (what < 200) {
        table.find(number);
      } else if (what < (growing ? 800u : 400u)) {
        table.add(number);
      } else if (what < 997) {
        table.remove(number);
      } else if (what < 999) {
        table.clear2();
      } else {
        table.clear();
      }
      table.check();
      if (HasFailure()) return;
    }
    table.clear();
    destroy(inst);
  }
}

MORVAStatus apply(MORVAInst *inst, bool adding, uint32_t number, uint32_t length) {
  char key[64] = {};
  std::memcpy(key, &number, sizeof number);
  const auto keyLen = static_cast<int32_t>(length);
  return adding ? MORVAAdd(inst, nullptr, key, keyLen) : MORVARemove(inst, key, keyLen);
}

// A walk past the short nodes in each step would be 40,000,000,000 steps.
TEST_F(FreeIndexOperations, LongKeysAfterManyShortOnesNeedNoWalkPastThem) {
  constexpr uint32_t kKeys = 200'000;
  MORVAInst *inst = make(18);
  const auto eight = [](uint32_t) { return 8u; };
  const auto upToFifteen = [](uint32_t number) { return 8 + number % 8; };
  for (const auto &lengthOf : {std::function<uint32_t(uint32_t)>(eight), {upToFifteen}}) {
    for (uint32_t i = 0; i != kKeys; ++i) ASSERT_EQ(apply(inst, true, i, lengthOf(i)), MORVA_OK);
    for (uint32_t i = 0; i != kKeys; ++i) ASSERT_EQ(apply(inst, false, i, lengthOf(i)), MORVA_OK);
    for (uint32_t i = 0; i != kKeys; ++i) {
      ASSERT_EQ(apply(inst, true, i, 16 + lengthOf(i)), MORVA_OK);
      // All that a take walks along; the rest it reaches through the index.
      ASSERT_LE(frontLength(inst), kFrontSteps);
    }
    EXPECT_GE(host.blocksAlive("varkeys"), 2 * kKeys) << "no short node was lost";
    IndexCheck{inst};
    ASSERT_EQ(inst->Clear(inst), MORVA_OK);
  }
}

}  // namespace
}  // namespace morva_test
