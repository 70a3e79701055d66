// Sequences of all operations on a table with any options, and on a twin of it,
// against the model.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "check.h"
#include "input.h"
#include "shapes.h"
#include "twins.h"

using morva_fuzz::Input;
using morva_test::HostKind;
using morva_test::KeyMode;
using morva_test::TableDriver;

namespace {

// What the table driver holds against the library ends the run at once.
class AbortOnFailure : public testing::EmptyTestEventListener {
  void OnTestPartResult(const testing::TestPartResult &result) override {
    if (result.failed()) {
      morva_fuzz::finding(result.file_name() != nullptr ? result.file_name() : "",
                          result.line_number(), result.message());
    }
  }
};

// Draws from the input, but not the bytes of data, which steer nothing.
TableDriver::Choices choicesFrom(Input *input) {
  return [input, next = uint8_t{0}](uint64_t n) mutable -> uint64_t {
    if (n == 256) return next++;
    if (n > 0x10000) return input->byte() * UINT64_C(0x01010101) % n;
    return input->below(n);
  };
}

void run(Input input) {
  static constexpr HostKind kKinds[] = {HostKind::recording, HostKind::recordingWithTreeLocks,
                                        HostKind::embedded, HostKind::embeddedWithTreeLocks};
  // The host of the run before is gone.
  qzextent(nullptr);
  const auto host = morva_test::makeHost(kKinds[input.below(4)]);
  const morva_test::TableShape shape = morva_fuzz::takeShape(input);
  const std::vector<std::string> keys = morva_fuzz::takeKeys(shape, input);
  const size_t checkEvery = 1 + input.below(16);
  Input again = input;
  {
    TableDriver table(*host, shape, keys, choicesFrom(&input));
    TableDriver twin(*host, shape, keys, choicesFrom(&again));
    FUZZ_CHECK(table.ready() && twin.ready());
    const bool variableKeys = shape.keyMode == KeyMode::variable;
    for (size_t step = 1; !input.empty() && step <= 2000; ++step) {
      table.make(input.below(TableDriver::operationCount()));
      twin.make(again.below(TableDriver::operationCount()));
      FUZZ_CHECK_EMPTY(host->faults());
      if (step % checkEvery == 0) FUZZ_CHECK_EMPTY(table.check());
      if (step % (8 * checkEvery) == 0) compareTwins(table, twin, variableKeys);
    }
    FUZZ_CHECK_EMPTY(table.check());
    FUZZ_CHECK_EMPTY(twin.check());
    compareTwins(table, twin, variableKeys);
    checkPools(*host, table, twin);
    compareOtherChains(table, twin);
  }
  FUZZ_CHECK_EMPTY(host->close());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static AbortOnFailure *const listener = [] {
    auto *made = new AbortOnFailure;
    testing::UnitTest::GetInstance()->listeners().Append(made);
    return made;
  }();
  FUZZ_CHECK(listener != nullptr);
  run(Input(data, size));
  return 0;
}
