// The tree callbacks, plain and safe, against the independent model of the tree:
// after every call all memory is as the model says, word by word.
#include <string>

#include "bench.h"
#include "check.h"
#include "input.h"

using morva_fuzz::Input;
using tree_test::Bench;
using tree_test::TreeModel;

namespace {

constexpr const char *kChange = "acquire(1,1) release ";
constexpr const char *kReading = "acquire(0,1) release ";

RecordNode *nowhere() {
  return reinterpret_cast<RecordNode *>(uintptr_t{0x5A5A5A5A5A58});
}

class Driver {
 public:
  Driver(int keys, bool locked, int32_t offset)
      : locked_(locked),
        keys_(keys),
        bench_(keys, locked ? tree_test::lockedSet() : tree_test::plainSet(), offset) {}

  int keys() const { return keys_; }

  // The thinnest tree of that height, the hardest to keep in balance.
  void plant(int height, bool leansRight) {
    int next = 0;
    model_ = TreeModel(TreeModel::thinnest(height, leansRight, next, 2));
    FUZZ_CHECK(next <= keys_);
    bench_.plant(model_);
  }

  void step(unsigned operation, int key) {
    switch (operation % 4) {
      case 0:
        add(key);
        break;
      case 1:
        kill(key);
        break;
      case 2:
        find(key);
        break;
      default:
        fuzz(key, (operation & 4) != 0, (operation & 8) != 0);
        break;
    }
    FUZZ_CHECK_EMPTY(bench_.difference(model_));
  }

  void inspect() {
    const auto seen = tree_test::inspect(
        bench_.holder.root, [this](const RecordNode *node) { return bench_.keyOf(node); });
    FUZZ_CHECK_EMPTY(seen.complaint);
    FUZZ_CHECK(seen.keys == model_.keys());
  }

 private:
  void add(int key) {
    if (model_.contains(key)) {
      RecordNode *const answer = bench_.addSpare(key);
      called(kChange);
      FUZZ_CHECK(answer == bench_.node(key));
      return;
    }
    RecordNode *const answer = bench_.add(key);
    called(kChange);
    FUZZ_CHECK(answer == bench_.node(key));
    model_.add(key);
  }

  void kill(int key) {
    const bool there = model_.kill(key);
    RecordNode *const answer = bench_.kill(key);
    called(kChange);
    FUZZ_CHECK(answer == (there ? bench_.node(key) : nullptr));
    if (there) bench_.nowKilled(key);
  }

  void find(int key) {
    RecordNode *const answer = bench_.find(key);
    called(kReading);
    FUZZ_CHECK(answer == (model_.contains(key) ? bench_.node(key) : nullptr));
  }

  void fuzz(int key, bool withBefore, bool withAfter) {
    RecordNode *before = nowhere();
    RecordNode *after = nowhere();
    RecordNode *const answer =
        bench_.fuzz(key, withBefore ? &before : nullptr, withAfter ? &after : nullptr);
    called(kReading);
    FUZZ_CHECK(answer == (model_.contains(key) ? bench_.node(key) : nullptr));
    FUZZ_CHECK(before == (withBefore ? bench_.nodeOf(model_.before(key)) : nowhere()));
    FUZZ_CHECK(after == (withAfter ? bench_.nodeOf(model_.after(key)) : nowhere()));
  }

  // The safe callbacks take the lock once, the plain ones never.
  void called(const char *story) {
    FUZZ_CHECK(bench_.lock.story == (locked_ ? story : ""));
    bench_.lock.story.clear();
  }

  bool locked_;
  int keys_;
  Bench bench_;
  TreeModel model_;
};

void run(Input input) {
  static constexpr int32_t kOffsets[] = {0, 8, 64, -32, -48};
  const uint8_t first = input.byte();
  const int keys = 1 + static_cast<int>(input.below(160));
  Driver driver(keys, (first & 1) != 0, kOffsets[first / 2 % 5]);
  // 2, 4, 8, 14, 24, 40, 66, 108: room that the thinnest tree of that height needs.
  const int height = first / 16 % 9;
  static constexpr int kRoom[] = {0, 2, 4, 8, 14, 24, 40, 66, 108};
  if (kRoom[height] <= keys) driver.plant(height, (first & 8) != 0);
  for (int step = 0; !input.empty() && step < 1000; ++step) {
    const uint8_t operation = input.byte();
    driver.step(operation, static_cast<int>(input.below(static_cast<uint64_t>(keys))));
  }
  driver.inspect();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  run(Input(data, size));
  return 0;
}
