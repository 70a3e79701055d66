#include <cmath>
#include <cstring>

#include "table.h"

namespace morva_test {
namespace {

class Find2 : public OpsTest {};
class Find2EveryShape : public OpsShapeTest {};

INSTANTIATE_TEST_SUITE_P(Shapes, Find2EveryShape, testing::ValuesIn(sampledShapes()), nameOfShape);

// A probe record and the guard words behind it.
struct Probe {
  explicit Probe(const Table &table, size_t keyLen = 0)
      : words((sizeof(RecordNode) + table->keyLength + 8 + keyLen + 7) / 8 + 1, kNoise) {}
  RecordNode *record() { return reinterpret_cast<RecordNode *>(words.data()); }
  static constexpr uint64_t kNoise = 0x5A5A5A5A5A5A5A5A;
  std::vector<uint64_t> words;
};

TEST_P(Find2EveryShape, FindsWhatFindFinds) {
  Table table(host, ext.get(), GetParam());
  RecordNode *node = table.put("red", "1");
  table.put("blu", "2");
  int mark = 0;
  void *data = &mark;
  EXPECT_EQ(table.find2("red", &data), MORVA_OK);
  EXPECT_EQ(data, table.dataOf(node));
  data = &mark;
  EXPECT_EQ(table.find2("tan", &data), MORVA_OK);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(table.find2("red", nullptr), MORVA_OK);
  EXPECT_EQ(table.find2("tan", nullptr), MORVA_OK);
}

TEST_P(Find2EveryShape, TouchesNeitherTheLockNorTheRecordStorage) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  EXPECT_EQ(lockUse(host,
                    [&] {
                      EXPECT_EQ(table.find2("red", nullptr), MORVA_OK);
                      EXPECT_EQ(table.find2("tan", nullptr), MORVA_OK);
                    }),
            LockUse::none);
  EXPECT_EQ(host.count(Call::allocate), 0u);
  EXPECT_TRUE(table.freeRecords().empty());
  EXPECT_EQ(table.elements(), 1u);
}

TEST_P(Find2EveryShape, NeedsNoMemory) {
  Table table(host, ext.get(), GetParam());
  RecordNode *node = table.put("red", "1");
  if (GetParam().keys != Keys::var) table.fillRecordBlock();
  host.failFromNth(1);
  void *data = nullptr;
  EXPECT_EQ(table.find2("red", &data), MORVA_OK);
  EXPECT_EQ(host.failuresDelivered(), 0u);
  host.failNever();
  EXPECT_EQ(data, table.dataOf(node));
}

TEST_P(Find2EveryShape, FillsTheProbeInPlaceAndLeavesItsLinksAlone) {
  Table table(host, ext.get(), GetParam());
  table.put("red", "1");
  Probe probe(table, 3);
  const std::string key = table.key("red");
  void *data = nullptr;
  EXPECT_EQ(table->Find2(table.get(), key.data(), 3, probe.record(), &data), MORVA_OK);
  EXPECT_NE(data, nullptr);
  EXPECT_EQ(probe.record()->left, Probe::kNoise);
  EXPECT_EQ(probe.record()->right, Probe::kNoise);
  EXPECT_EQ(probe.record()->owner, table.get());
  if (GetParam().raw()) {
    EXPECT_EQ(table.prefix(probe.record())->length, 3u);
    EXPECT_EQ(std::memcmp(table.base(probe.record()) + 8, "red", 3), 0);
  } else {
    EXPECT_EQ(std::memcmp(table.base(probe.record()), key.data(), key.size()), 0);
    const Event pack = host.eventsOf(Call::pack).back();
    EXPECT_EQ(pack.b, reinterpret_cast<uint64_t>(table.base(probe.record())));
    EXPECT_EQ(pack.c, 1u);
  }
  EXPECT_EQ(host.eventsOf(Call::treeFind).back().a, reinterpret_cast<uint64_t>(probe.record()));
  EXPECT_EQ(probe.words.back(), Probe::kNoise);
}

TEST_P(Find2EveryShape, OneProbeServesManyLookups) {
  Table table(host, ext.get(), GetParam());
  Probe probe(table, 8);
  for (int i = 0; i < 30; i++) table.put(numbered("k", i), std::to_string(i));
  for (int i = 0; i < 60; i++) {
    const std::string text = numbered("k", i);
    void *data = nullptr;
    EXPECT_EQ(table->Find2(table.get(), table.key(text).data(), static_cast<int32_t>(text.size()),
                           probe.record(), &data),
              MORVA_OK);
    EXPECT_EQ(table.textAt(data), i < 30 ? std::to_string(i) : "-");
  }
}

TEST_F(Find2, AddsTheIncrementAsFindDoes) {
  for (const Shape &one : shapes(flagSum)) {
    Table table(host, ext.get(), one);
    RecordNode *node = table.put("red", "1");
    EXPECT_EQ(table.find2("red", nullptr), MORVA_OK);
    EXPECT_EQ(table.sumOf(node), 0.0);
    table->SetSumInc(table.get(), 2.5);
    void *data = nullptr;
    EXPECT_EQ(table.find2("red", &data), MORVA_OK);
    EXPECT_EQ(table.find2("red", nullptr), MORVA_OK);
    EXPECT_EQ(table.find2("tan", nullptr), MORVA_OK);
    EXPECT_EQ(table.sumOf(node), 5.0) << describe(one);
    table->sumIncrement = std::nan("");
    EXPECT_EQ(table.find2("red", nullptr), MORVA_OK);
    EXPECT_TRUE(std::isnan(table.sumOf(node)));
  }
}

TEST_F(Find2, WithChainsTheHeadIsFound) {
  for (const Shape &one : shapes(flagMultiData)) {
    Table table(host, ext.get(), one);
    RecordNode *first = table.put("red", "1");
    table.put("red", "2");
    void *data = nullptr;
    EXPECT_EQ(table.find2("red", &data), MORVA_OK);
    EXPECT_EQ(data, table.dataOf(first)) << describe(one);
  }
}

TEST_F(Find2, OnVariableKeysDeliversThePointerThatFindDelivers) {
  Table table(host, ext.get(), shape(Keys::var));
  for (const char *key : {"", "a", "abcd", "abcde", "a key of many characters"}) {
    table.put(key, "1");
    // Another length in between, so that nothing is left over from the key's own.
    ASSERT_EQ(table.find("some other length", nullptr), MORVA_OK);
    void *found = nullptr, *found2 = nullptr;
    EXPECT_EQ(table.find2(key, &found2), MORVA_OK);
    EXPECT_EQ(table.find(key, &found), MORVA_OK);
    EXPECT_EQ(found2, found) << key;
  }
}

TEST_F(Find2, AFixedKeyAsLongAsTheKeyAreaIsSearched) {
  Table table(host, ext.get(), shape(Keys::fixed));
  int mark = 0;
  void *data = &mark;
  EXPECT_EQ(table.find2(std::string(20, 'k'), &data), MORVA_OK);
  EXPECT_EQ(data, nullptr);
}

}  // namespace
}  // namespace morva_test
