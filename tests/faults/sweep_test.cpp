// Every operation on an instance, on every kind of instance, with every call
// to the host that can fail failing in turn.
#include "operations.h"

namespace morva_test {
namespace {

constexpr uint64_t kTooMany = 20;  // no operation asks the host so often

// What is done with the instance after the failure, before it is destroyed.
enum class Ending { nothing, again, clear, clear2 };
constexpr Ending kEndings[] = {Ending::nothing, Ending::again, Ending::clear, Ending::clear2};

class Sweep : public testing::TestWithParam<SweptOperation> {
 protected:
  // One run with the n-th call failing. Answers whether anything failed.
  bool run(const Shape &shape, Failing failing, uint64_t n, Ending ending) {
    World world(shape);
    const std::vector<RecordNode *> order = world.host.order(world.table->get());
    arm(world.host, failing, n);
    const uint32_t result = GetParam().call(world);
    const bool failed = world.host.failuresDelivered() != 0;
    world.host.failNever();
    if (failed) {
      expectFailed(world, result);
      if (shape.has(flagOrdered)) {
        EXPECT_EQ(world.host.order(world.table->get()), order);
      }
      end(world, ending);
    } else {
      EXPECT_EQ(result, GetParam().result);
      world.expectLocksBalanced(0);
      if (GetParam().effect) GetParam().effect(world);
      world.expectContent();
    }
    world.expectNothingLeft();
    return failed;
  }

 private:
  static std::string_view adds() { return GetParam().added; }

  // Whether the record of the key being added is in its tree all the same.
  static bool uncounted(const World &world) {
    return world.host.eventsOf(Call::allocate).back().text == "inodes";
  }

  void expectFailed(World &world, uint32_t result) {
    EXPECT_EQ(result, MORVA_NO_MEMORY);
    const bool releases = GetParam().releasesOnFailure && !world.table->shape().has(flagNoLock);
    world.expectLocksBalanced(releases ? 1 : 0);
    uncounted_ = uncounted(world);
    EXPECT_FALSE(uncounted_ && adds().empty());
    if (!adds().empty()) {
      EXPECT_EQ(world.table->at(GetParam().added) != nullptr, uncounted_);
    }
    world.expectContent();
  }

  void end(World &world, Ending ending) {
    Table &table = *world.table;
    const uint64_t unmatched = world.host.unmatchedReleases();
    switch (ending) {
      case Ending::nothing:
        return;
      case Ending::again:
        expectSecondTry(world);
        return;
      case Ending::clear:
        EXPECT_EQ(table->Clear(table.get()), MORVA_OK);
        break;
      case Ending::clear2:
        EXPECT_EQ(table->Clear2(table.get()), MORVA_OK);
        break;
    }
    world.expectLocksBalanced(unmatched);
    world.setAll(kAbsent);
    world.expectContent();
    EXPECT_EQ(table.all("new"), kAbsent);
    world.content.try_emplace("new");
    world.setAll(std::string(1, '7'));
    for (auto &[key, text] : world.content) EXPECT_EQ(table.add(key, text), MORVA_OK);
    world.expectContent();
  }

  // With the host in order again the operation does what it does.
  void expectSecondTry(World &world) {
    const uint64_t unmatched = world.host.unmatchedReleases();
    const uint32_t result = GetParam().call(world);
    world.expectLocksBalanced(unmatched);
    if (!uncounted_) {
      EXPECT_EQ(result, GetParam().result);
      if (GetParam().effect) GetParam().effect(world);
      world.expectContent();
      return;
    }
    // The key is there, so an add adds a further record or nothing, and a replace overwrites.
    const bool add = std::string_view(GetParam().name) == "AddOfANewKey";
    const bool multi = world.table->shape().has(flagMultiData);
    EXPECT_EQ(result, add && !multi ? MORVA_PRESENT : MORVA_OK);
    EXPECT_EQ(world.table->elements(), world.elements() + (add && multi ? 1 : 0));
    EXPECT_EQ(world.table->remove(GetParam().added), MORVA_INVALID) << "unknown to the order";
    world.table->put(GetParam().added, "z");
    EXPECT_EQ(world.table->all(GetParam().added), "z");
  }

  bool uncounted_ = false;
};

INSTANTIATE_TEST_SUITE_P(Operations, Sweep, testing::ValuesIn(sweptOperations()),
                         [](const testing::TestParamInfo<SweptOperation> &info) {
                           return std::string(info.param.name);
                         });

TEST_P(Sweep, FailsCleanlyAtEveryCallAndThenSucceeds) {
  for (const Shape &shape : shapes(GetParam().needs, GetParam().excludes)) {
    SCOPED_TRACE(describe(shape));
    // A new ordered record needs a node and an order node, everything else a node.
    const uint64_t calls = !GetParam().canFail                                   ? 0
                           : shape.has(flagOrdered) && *GetParam().added != '\0' ? 2
                                                                                 : 1;
    for (Failing failing : {Failing::once, Failing::fromThenOn}) {
      for (Ending ending : kEndings) {
        uint64_t failures = 0;
        while (failures < kTooMany) {
          SCOPED_TRACE(testing::Message() << "call " << failures + 1 << " fails " << nameOf(failing)
                                          << ", ending " << static_cast<int>(ending));
          if (!run(shape, failing, failures + 1, ending)) break;
          failures++;
          if (HasFatalFailure()) return;
        }
        EXPECT_EQ(failures, calls) << nameOf(failing);
      }
    }
  }
}

}  // namespace
}  // namespace morva_test
