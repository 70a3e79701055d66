// Comparing whole instances.
#include <cstring>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

constexpr uint32_t kComparable[] = {flagFixedKey, 0, flagFixedKey | flagMultiData,
                                    flagMultiData | flagSum | flagOrdered};

bool equal(const Table &a, const Table &b) {
  uint32_t answer = 17;
  expectStatus(a->Equals(a.get(), b.get(), &answer), MORVA_OK, "Equals " + a.kind());
  expect(answer <= 1, "Equals answered neither 0 nor 1");
  return answer == 1;
}

void fill(const Table &table) {
  for (uint64_t n = 0; n != 40; ++n) table.mustAdd(keyNumber(n), n);
}

void tellsEqual(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kComparable) {
    const Table a(lab, {.flags = flags}), b(lab, {.flags = flags});
    expect(equal(a, b), "two empty instances are not equal, " + a.kind());
    fill(a);
    expect(!equal(a, b), "an instance equals an empty one, " + a.kind());
    for (uint64_t n = 40; n-- != 0;) b.mustAdd(keyNumber(n), n);
    expect(equal(a, b) && equal(b, a),
           "instances with the same records, stored in another order, are not equal, " + a.kind());
  }
}

void tellsDifferentRecords(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : kComparable) {
    const Table a(lab, {.flags = flags}), b(lab, {.flags = flags});
    fill(a);
    fill(b);
    char *byte = static_cast<char *>(b.found(keyNumber(20))) + 7;
    *byte = static_cast<char>(*byte + 1);
    expect(!equal(a, b), "Equals misses a difference in the last byte of data, " + a.kind());
    *byte = static_cast<char>(*byte - 1);
    expect(equal(a, b), "instances are not equal after a change was undone, " + a.kind());
    b.mustRemove(keyNumber(11));
    expect(!equal(a, b), "Equals misses a record that is not there, " + a.kind());
    b.mustAdd("another", 11);
    expect(!equal(a, b), "Equals misses another key, " + a.kind());
  }
}

void tellsDifferentChains(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : {uint32_t{flagFixedKey | flagMultiData}, uint32_t{flagMultiData}}) {
    const auto make = [&](const std::vector<uint64_t> &one, const std::vector<uint64_t> &two) {
      Table table(lab, {.flags = flags, .hashExp = 0});
      for (const uint64_t value : one) table.mustAdd("one", value);
      for (const uint64_t value : two) table.mustAdd("two", value);
      return table;
    };
    const Table table = make({1, 2, 3}, {4});
    expect(equal(table, make({1, 2, 3}, {4})), "the same chains are not equal");
    expect(!equal(table, make({1, 3, 2}, {4})), "Equals misses another order of duplicates");
    expect(!equal(table, make({1, 2}, {4, 3})), "Equals misses a record under another key");
    expect(!equal(make({1, 2}, {4, 3}), table), "Equals misses a record under another key");
  }
}

void tellsDifferentShapes(const Subject &subject) {
  Lab lab(subject);
  const Shape base{};
  const Shape others[] = {{.dataLength = 9},
                          {.keyLength = 17},
                          {.hashExp = 5},
                          {.flags = flagFixedKey | flagMultiData}};
  for (const Shape &other : others) {
    const Table a(lab, base), b(lab, other);
    expect(!equal(a, b) && !equal(b, a), "Equals misses another shape, " + b.kind());
  }
}

void ignoresTheRest(const Subject &subject) {
  Lab lab(subject);
  const Table a(lab, {.flags = flagFixedKey | flagSum});
  const Table b(lab, {.flags = flagFixedKey | flagSum | flagOrdered | flagNoLock});
  a->SetSumInc(a.get(), 3);
  fill(a);
  fill(b);
  expect(equal(a, b), "sums, order or locks make instances unequal");
}

void refuses(const Subject &subject) {
  Lab lab(subject);
  const Table fixed(lab, {}), variable(lab, {.flags = flagVarKey});
  uint32_t answer = 17;
  lab.host.forget();
  expectStatus(fixed->Equals(fixed.get(), variable.get(), &answer), MORVA_INVALID,
               "Equals with variable keys");
  expectStatus(fixed->Equals(variable.get(), fixed.get(), &answer), MORVA_INVALID,
               "Equals of variable keys");
  expectEqual(answer, 17U, "the place for the answer of a refused comparison");
  expectEqual(lab.host.story(), std::string(), "what the host was asked for by refusals");
}

void holdsBothLocks(const Subject &subject) {
  Lab lab(subject);
  const Table a(lab, {}, "a"), b(lab, {}, "b");
  fill(a);
  fill(b);
  // How many locks are held while records are looked at.
  uint64_t fewest = 99;
  lab.host.onEvent = [&](const Event &event) {
    if (event.call == Call::treeFirst) fewest = std::min(fewest, lab.host.locksHeld());
  };
  lab.host.forget();
  expect(equal(a, b), "instances with the same records are not equal");
  lab.host.onEvent = nullptr;
  expectEqual(fewest, uint64_t{2}, "the fewest locks held while records are compared");
  std::string story;
  for (const Event &event : lab.host.events()) {
    if (event.call == Call::acquire) story += '+' + event.text;
    if (event.call == Call::release) story += '-' + event.text;
  }
  expectEqual(story, std::string("+a+b-a-b"), "the order in which the locks are used");
  lab.host.forget();
  expectStatus(a->Equals(a.get(), b.get(), nullptr), MORVA_OK, "Equals without a place");
  expect(equal(a, a), "an instance does not equal itself");
  expectEqual(lab.host.count(Call::acquire), uint64_t{4}, "the number of acquisitions");
  expectEqual(lab.host.count(Call::release), uint64_t{4}, "the number of releases");
  expectEqual(lab.host.locksHeld(), uint64_t{0}, "the number of locks held at the end");
}

constexpr Check kChecks[] = {
    {"equals.tells-equal", "Instances with the same records are equal, however those came.",
     tellsEqual},
    {"equals.tells-different-records", "Another key, another byte, another count is told.",
     tellsDifferentRecords},
    {"equals.tells-different-chains", "Duplicates are compared in their order.",
     tellsDifferentChains},
    {"equals.tells-different-shapes", "Instances of other lengths, buckets or chains are unequal.",
     tellsDifferentShapes},
    {"equals.ignores-the-rest", "Sums, insertion order and locks are not compared.",
     ignoresTheRest},
    {"equals.refuses-variable-keys", "Instances with variable keys are refused.", refuses},
    {"equals.holds-both-locks",
     "Both locks are held, the first's taken and released first; an instance may be compared with "
     "itself.",
     holdsBothLocks},
};

}  // namespace

std::span<const Check> equalityChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
