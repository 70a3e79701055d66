// Operations on many keys at a time, on one instance, against the operations of
// another that are called for one key after another.
#include "morva/many.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "companion_host.h"
#include "instance_test.h"

namespace host_test {
namespace {

enum class Mode { fixed, variable, packed };

constexpr uint32_t kDeclared = 8;
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

struct Row {
  char name[12];
  int32_t number;
  double amount;
};

// ---- What an instance holds --------------------------------------------------------

size_t linksOf(const MORVAInst *inst) {
  return (inst->flags & flagMultiData) != 0 ? sizeof(DupLinks) : 0;
}

double *sumBefore(const MORVAInst *inst, void *data) {
  return reinterpret_cast<double *>(static_cast<char *>(data) - linksOf(inst) - inst->dataOffset +
                                    inst->sumOffset);
}

std::string keyOf(const MORVAInst *inst, RecordNode *node) {
  const char *base = static_cast<const char *>(MORVARecordBase(node));
  if ((inst->flags & (flagFixedKey | flagVarKey)) == 0) return {base, inst->keyLength};
  const auto *prefix = reinterpret_cast<const KeyPrefix *>(base);
  return {base + sizeof(KeyPrefix), prefix->length};
}

struct Record {
  std::string key;
  std::string data;
  double sum;
  bool operator==(const Record &) const = default;
};

// The records of the key in `node`.
void addChain(const MORVAInst *inst, RecordNode *node, std::vector<Record> &records) {
  char *data =
      static_cast<char *>(MORVARecordBase(node)) + inst->Recoff(inst, node) + linksOf(inst);
  const std::string key = keyOf(inst, node);
  while (data != nullptr) {
    const double sum = (inst->flags & flagSum) != 0 ? *sumBefore(inst, data) : 0.0;
    records.push_back({key, std::string(data, inst->dataLength), sum});
    if ((inst->flags & flagMultiData) == 0) break;
    DupLinks *next = (reinterpret_cast<DupLinks *>(data) - 1)->next;
    data = next != nullptr ? reinterpret_cast<char *>(next + 1) : nullptr;
  }
}

struct Contents {
  uint32_t elements = 0;
  uint64_t memory = 0;
  int64_t recordsUsed = 0;
  std::vector<uint32_t> bucketSizes;
  std::vector<Record> records;
  std::vector<std::string> order;
  // Free nodes, by their places in the blocks.
  std::vector<std::pair<size_t, ptrdiff_t>> freeRecords;
  size_t freeInodes = 0;
};

// Which block of the chain a node lies in, and where.
std::pair<size_t, ptrdiff_t> placeOf(const std::vector<void *> &blocks, const RecordNode *node) {
  std::pair<size_t, ptrdiff_t> place{blocks.size(), 0};
  const auto address = reinterpret_cast<uintptr_t>(node);
  for (size_t i = 0; i < blocks.size(); ++i) {
    const auto start = reinterpret_cast<uintptr_t>(blocks[i]);
    if (start > address) continue;
    const auto distance = static_cast<ptrdiff_t>(address - start);
    if (place.first == blocks.size() || distance < place.second) place = {i, distance};
  }
  return place;
}

Contents contentsOf(MORVAInst *inst) {
  Contents seen;
  seen.elements = inst->NumElements(inst);
  seen.memory = inst->TotalMem(inst);
  seen.recordsUsed = inst->recordsUsed;
  for (uint32_t i = 0; i <= inst->buckets->mask; ++i) {
    seen.bucketSizes.push_back(inst->BucketSize(inst, i));
    RecordNode *node = inst->tree->first(inst->tree, MORVABucketAt(inst->buckets, i));
    for (; node != nullptr; node = inst->tree->next(node)) addChain(inst, node, seen.records);
  }
  for (OrderNode *at = QZOrderFirst(inst); at != nullptr; at = QZOrderNext(at)) {
    seen.order.push_back(keyOf(inst, static_cast<RecordNode *>(at->record)));
  }
  if ((inst->flags & flagVarKey) == 0) {
    const auto blocks = morva_test::blockChain(inst->recordBlocks);
    for (RecordNode *node : morva_test::freeRecordsOf(inst)) {
      seen.freeRecords.push_back(placeOf(blocks, node));
    }
  }
  seen.freeInodes = morva_test::freeInodesOf(inst).size();
  return seen;
}

void expectSame(MORVAInst *many, MORVAInst *one) {
  const Contents a = contentsOf(many);
  const Contents b = contentsOf(one);
  EXPECT_EQ(a.elements, b.elements);
  EXPECT_EQ(a.memory, b.memory);
  EXPECT_EQ(a.recordsUsed, b.recordsUsed);
  EXPECT_TRUE(a.bucketSizes == b.bucketSizes);
  EXPECT_TRUE(a.records == b.records);
  EXPECT_TRUE(a.order == b.order);
  EXPECT_TRUE(a.freeRecords == b.freeRecords);
  EXPECT_EQ(a.freeInodes, b.freeInodes);
}

// ---- Keys ------------------------------------------------------------------------

// Keys of all kinds, which stay where they are.
class Keys {
 public:
  Keys(Mode mode, size_t count, std::mt19937_64 &random, bool refused) {
    texts_.reserve(count);
    rows_.reserve(count);
    for (size_t i = 0; i < count; ++i) {
      const auto number = static_cast<unsigned>(random() % (count * 3 / 2 + 1));
      if (mode == Mode::packed) {
        addRow(number, random());
      } else if (refused && random() % 32 == 0) {
        addRefused(mode, random() % 3);
      } else {
        addText(mode, number);
      }
    }
  }

  size_t size() const { return keys_.size(); }
  const QZKey *data() const { return keys_.data(); }
  const QZKey &operator[](size_t i) const { return keys_[i]; }

 private:
  void addRow(unsigned number, uint64_t noise) {
    Row row{};
    std::snprintf(row.name, sizeof row.name, noise % 2 == 0 ? "Row%u" : "rOW%u", number % 7);
    row.number = static_cast<int32_t>(number);
    row.amount = number % 3 == 0 ? (noise % 4 == 0 ? 0.0 : -0.0) : number;
    rows_.push_back(row);
    // The length is not looked at.
    keys_.push_back(
        {noise % 16 == 0 && number == 0 ? nullptr : &rows_.back(), static_cast<int32_t>(noise), 0});
  }

  void addText(Mode mode, unsigned number) {
    std::string text = number == 0 ? "" : std::to_string(number);
    // Longer than declared by what has room all the same; and variable keys by much.
    if (number % 5 == 0) text.resize(mode == Mode::fixed ? 12 : number % 700, 'x');
    if (number % 7 == 0) text.resize(8, 'y');
    texts_.push_back(std::make_unique<std::string>(std::move(text)));
    const std::string &kept = *texts_.back();
    keys_.push_back({kept.empty() ? nullptr : kept.data(), static_cast<int32_t>(kept.size()), 0});
  }

  void addRefused(Mode mode, uint64_t how) {
    static const char bytes[kDeclared + 13] = "";
    if (how == 0) {
      keys_.push_back({nullptr, 1, 0});
    } else if (how == 1 || mode == Mode::variable) {
      keys_.push_back({bytes, how == 1 ? -1 : std::numeric_limits<int32_t>::min(), 0});
    } else {
      keys_.push_back({bytes, sizeof bytes, 0});
    }
  }

  std::vector<std::unique_ptr<std::string>> texts_;
  std::vector<Row> rows_;
  std::vector<QZKey> keys_;
};

// ---- Twins --------------------------------------------------------------------------

struct Kind {
  Mode mode;
  uint32_t flags;
  bool lockedTrees;
};

std::vector<Kind> allKinds() {
  std::vector<Kind> kinds;
  for (const bool lockedTrees : {false, true}) {
    for (const uint32_t ordered : {0, int{flagOrdered}}) {
      for (const uint32_t noLock : {0, int{flagNoLock}}) {
        if (lockedTrees && noLock != 0) continue;
        const uint32_t flags = ordered | noLock;
        kinds.push_back({Mode::variable, flags, lockedTrees});
        for (const Mode mode : {Mode::fixed, Mode::packed}) {
          for (const uint32_t more :
               {0, int{flagSum}, int{flagMultiData}, int{flagSum} | int{flagMultiData}}) {
            kinds.push_back({mode, flags | more, lockedTrees});
          }
        }
      }
    }
  }
  return kinds;
}

std::string nameOf(const ::testing::TestParamInfo<Kind> &info) {
  const Kind &kind = info.param;
  std::string name = kind.mode == Mode::fixed      ? "Fixed"
                     : kind.mode == Mode::variable ? "Variable"
                                                   : "Packed";
  if ((kind.flags & flagOrdered) != 0) name += "Ordered";
  if ((kind.flags & flagSum) != 0) name += "Sum";
  if ((kind.flags & flagMultiData) != 0) name += "Multi";
  if ((kind.flags & flagNoLock) != 0) name += "NoLock";
  return name + (kind.lockedTrees ? "LockedTrees" : "");
}

void defineRow(MORVAInst *inst, uint32_t dataLength) {
  const MORVAKeyDesc fields[] = {{12, 5, offsetof(Row, name), 1},
                                 {4, 3, offsetof(Row, number), 0},
                                 {8, 1, offsetof(Row, amount), 0}};
  for (const MORVAKeyDesc &field : fields) ASSERT_EQ(inst->DefineKey(inst, &field), MORVA_OK);
  ASSERT_EQ(inst->DefineDone(inst, 0, dataLength), MORVA_OK);
}

uint32_t modeFlag(Mode mode) {
  return mode == Mode::fixed ? flagFixedKey : mode == Mode::variable ? flagVarKey : 0;
}

// Runs operate(i) for all keys; answers how many were MORVA_OK.
template <class Operate>
size_t inTurn(size_t count, std::vector<MORVAStatus> &statuses, Operate operate) {
  statuses.resize(count);
  size_t done = 0;
  for (size_t i = 0; i < count; ++i) done += (statuses[i] = operate(i)) == MORVA_OK;
  return done;
}

class ManyKeys : public ::testing::TestWithParam<Kind> {
 protected:
  void makeTwins(uint32_t dataLength, int32_t hashExp) {
    for (MORVAInst **inst : {&many, &one}) {
      if (*inst != nullptr) host.destroy(*inst);
      *inst =
          host.create(GetParam().flags | modeFlag(GetParam().mode), kDeclared, dataLength, hashExp);
      ASSERT_NE(*inst, nullptr);
      if (GetParam().mode == Mode::packed) defineRow(*inst, dataLength);
    }
  }

  void setIncrement(double increment) {
    for (MORVAInst *inst : {many, one}) inst->SetSumInc(inst, increment);
  }

  Keys chooseKeys(size_t count, bool refused) {
    return Keys(GetParam().mode, count, random, refused);
  }

  void add(const Keys &keys, size_t stride) {
    std::vector<char> data(keys.size() * stride + 16);
    for (char &byte : data) byte = static_cast<char>(random());
    std::vector<MORVAStatus> expected;
    const size_t single = inTurn(keys.size(), expected, [&](size_t i) {
      return one->Add(one, data.data() + i * stride, keys[i].bytes, keys[i].length);
    });
    std::vector<MORVAStatus> statuses(keys.size(), 77);
    EXPECT_EQ(QZAddMany(many, keys.data(), keys.size(), data.data(), stride, statuses.data()),
              single);
    EXPECT_EQ(statuses, expected);
  }

  void remove(const Keys &keys) {
    std::vector<MORVAStatus> expected;
    const size_t single = inTurn(keys.size(), expected, [&](size_t i) {
      return one->Remove(one, keys[i].bytes, keys[i].length);
    });
    std::vector<MORVAStatus> statuses(keys.size(), 77);
    EXPECT_EQ(QZRemoveMany(many, keys.data(), keys.size(), statuses.data()), single);
    EXPECT_EQ(statuses, expected);
  }

  void find(const Keys &keys) {
    std::vector<void *> expectedData(keys.size());
    std::vector<MORVAStatus> expected;
    const size_t single = inTurn(keys.size(), expected, [&](size_t i) {
      return one->Find(one, keys[i].bytes, keys[i].length, &expectedData[i]);
    });
    std::vector<MORVAStatus> statuses(keys.size(), 77);
    std::vector<void *> data(keys.size() + 1, &statuses);
    EXPECT_EQ(QZFindMany(many, keys.data(), keys.size(), data.data(), statuses.data()), single);
    EXPECT_EQ(statuses, expected);
    EXPECT_EQ(data.back(), &statuses);
    for (size_t i = 0; i < keys.size(); ++i) {
      ASSERT_EQ(data[i] != nullptr, expectedData[i] != nullptr) << i;
      if (data[i] != nullptr) {
        ASSERT_EQ(std::memcmp(data[i], expectedData[i], many->dataLength), 0) << i;
      }
    }
  }

  void addToSums(const Keys &keys) {
    std::vector<double> amounts(keys.size());
    for (double &amount : amounts) {
      amount = random() % 20 == 0 ? kNan : static_cast<double>(random() % 64) / 4 - 5;
    }
    std::vector<MORVAStatus> expected;
    const size_t single = inTurn(keys.size(), expected, [&](size_t i) -> MORVAStatus {
      if ((one->flags & flagSum) == 0) return MORVA_NO_SUM;
      void *data = nullptr;
      const MORVAStatus status = one->Find(one, keys[i].bytes, keys[i].length, &data);
      if (status != MORVA_OK) return status;
      if (data == nullptr || std::isnan(amounts[i])) return MORVA_INVALID;
      *sumBefore(one, data) += amounts[i];
      return MORVA_OK;
    });
    std::vector<MORVAStatus> statuses(keys.size(), 77);
    EXPECT_EQ(QZAddToSumMany(many, keys.data(), keys.size(), amounts.data(), statuses.data()),
              single);
    EXPECT_EQ(statuses, expected);
  }

  CompanionHost host{GetParam().lockedTrees};
  std::mt19937_64 random{20240917};
  MORVAInst *many = nullptr;
  MORVAInst *one = nullptr;
};

INSTANTIATE_TEST_SUITE_P(OfAllKinds, ManyKeys, ::testing::ValuesIn(allKinds()), nameOf);

TEST_P(ManyKeys, AreAnsweredLikeOneAfterAnother) {
  for (const size_t count : {0U, 1U, 31U, 32U, 33U, 127U, 128U, 129U, 600U}) {
    SCOPED_TRACE(::testing::Message() << count << " keys");
    makeTwins(count % 2 == 0 ? 8 : 5, count % 3 == 0 ? 0 : 5);
    for (const double increment : {0.0, 0.5}) {
      setIncrement(increment);
      add(chooseKeys(count, true), 8);
      expectSame(many, one);
      // From here on there are free nodes, which MORVAFind takes for a moment.
      remove(chooseKeys(count, true));
      expectSame(many, one);
      if (morva_test::freeRecordsOf(one).size() < 40) continue;
      find(chooseKeys(count, true));
      addToSums(chooseKeys(count, true));
      expectSame(many, one);
      add(chooseKeys(count, false), 8);
      expectSame(many, one);
      if (HasFailure()) return;
    }
  }
}

// Lookups of keys that are not refused take no memory where the trees are walked.
TEST_P(ManyKeys, NeedNoRecordToBeFoundAndNoPlaceForStatuses) {
  makeTwins(8, 4);
  const Keys keys = chooseKeys(150, false);
  std::vector<void *> found(150, this);
  std::vector<MORVAStatus> statuses(150, 77);
  EXPECT_EQ(QZFindMany(many, keys.data(), 150, found.data(), statuses.data()), 150U);
  EXPECT_EQ(std::count(found.begin(), found.end(), nullptr), 150);
  EXPECT_EQ(std::count(statuses.begin(), statuses.end(), MORVA_OK), 150);
  if (!GetParam().lockedTrees) {
    EXPECT_EQ(many->TotalMem(many), 0U);
    EXPECT_EQ(many->freeRecords, nullptr);
  }

  const Keys others = chooseKeys(150, true);
  const std::vector<char> data(150 * 8, 'd');
  std::vector<MORVAStatus> ignored;
  const size_t added = inTurn(150, ignored, [&](size_t i) {
    return one->Add(one, data.data(), others[i].bytes, others[i].length);
  });
  EXPECT_EQ(QZAddMany(many, others.data(), 150, data.data(), 0, nullptr), added);
  found.assign(150, nullptr);
  EXPECT_GT(QZFindMany(many, others.data(), 150, found.data(), nullptr), 100U);
  const std::vector<double> amounts(150, 1.0);
  const size_t summed = QZAddToSumMany(many, others.data(), 150, amounts.data(), nullptr);
  EXPECT_EQ(summed != 0, (many->flags & flagSum) != 0);
  EXPECT_GT(QZRemoveMany(many, others.data(), 150, nullptr), 50U);
  EXPECT_EQ(many->NumElements(many), 0U);
}

// ---- What is refused ------------------------------------------------------------------

TEST(ManyKeysOfNothing, AreAllInvalid) {
  CompanionHost host;
  MORVAInst *inst = host.create(flagFixedKey | flagSum);
  const uint64_t bytes[2] = {1, 2};
  const QZKey keys[2] = {{&bytes[0], 8, 0}, {&bytes[1], 8, 0}};
  const double amounts[2] = {1, 2};
  void *found[2] = {&host, &host};
  const std::array<MORVAStatus, 2> invalid{MORVA_INVALID, MORVA_INVALID};
  std::array<MORVAStatus, 2> statuses;
  const auto expectInvalid = [&](size_t answer) {
    EXPECT_EQ(answer, 0U);
    EXPECT_EQ(statuses, invalid);
    statuses = {};
  };
  statuses = {};
  expectInvalid(QZFindMany(nullptr, keys, 2, found, statuses.data()));
  expectInvalid(QZFindMany(inst, nullptr, 2, found, statuses.data()));
  expectInvalid(QZFindMany(inst, keys, 2, nullptr, statuses.data()));
  expectInvalid(QZAddMany(nullptr, keys, 2, bytes, 8, statuses.data()));
  expectInvalid(QZAddMany(inst, nullptr, 2, bytes, 8, statuses.data()));
  expectInvalid(QZAddMany(inst, keys, 2, nullptr, 8, statuses.data()));
  expectInvalid(QZRemoveMany(nullptr, keys, 2, statuses.data()));
  expectInvalid(QZRemoveMany(inst, nullptr, 2, statuses.data()));
  expectInvalid(QZAddToSumMany(nullptr, keys, 2, amounts, statuses.data()));
  expectInvalid(QZAddToSumMany(inst, nullptr, 2, amounts, statuses.data()));
  expectInvalid(QZAddToSumMany(inst, keys, 2, nullptr, statuses.data()));
  EXPECT_EQ(inst->NumElements(inst), 0U);
  EXPECT_EQ(found[0], &host);
  // Nothing to do and nowhere to say so.
  EXPECT_EQ(QZFindMany(inst, nullptr, 0, nullptr, nullptr), 0U);
  EXPECT_EQ(QZAddMany(inst, keys, 0, nullptr, 0, nullptr), 0U);
  EXPECT_EQ(QZRemoveMany(nullptr, nullptr, 3, nullptr), 0U);
}

TEST(ManyKeys, OfRecordsWithoutDataNeedNone) {
  CompanionHost host;
  MORVAInst *inst = host.create(flagFixedKey, 8, 0);
  std::vector<uint64_t> numbers(140);
  std::vector<QZKey> keys;
  for (size_t i = 0; i < 140; ++i) {
    numbers[i] = i;
    keys.push_back({&numbers[i], 8, 0});
  }
  EXPECT_EQ(QZAddMany(inst, keys.data(), 140, nullptr, 0, nullptr), 140U);
  EXPECT_EQ(inst->NumElements(inst), 140U);
}

TEST(ManyKeys, OfAnInstanceThatIsNotDefinedAreInvalid) {
  for (const bool begun : {false, true}) {
    CompanionHost host;
    MORVAInst *inst = host.create(flagSum);
    const MORVAKeyDesc field = {8, 4, 0, 0};
    if (begun) {
      ASSERT_EQ(inst->DefineKey(inst, &field), MORVA_OK);
    }
    std::vector<uint64_t> numbers(40, 1);
    std::vector<QZKey> keys(40, {numbers.data(), 8, 0});
    std::vector<void *> found(40, &host);
    const std::vector<double> amounts(40, 1.0);
    const std::vector<MORVAStatus> invalid(40, MORVA_INVALID);
    std::vector<MORVAStatus> statuses(40);
    EXPECT_EQ(QZFindMany(inst, keys.data(), 40, found.data(), statuses.data()), 0U);
    EXPECT_EQ(statuses, invalid);
    EXPECT_EQ(std::count(found.begin(), found.end(), nullptr), 40);
    statuses.assign(40, 0);
    EXPECT_EQ(QZAddMany(inst, keys.data(), 40, numbers.data(), 8, statuses.data()), 0U);
    EXPECT_EQ(statuses, invalid);
    statuses.assign(40, 0);
    EXPECT_EQ(QZRemoveMany(inst, keys.data(), 40, statuses.data()), 0U);
    EXPECT_EQ(statuses, invalid);
    statuses.assign(40, 0);
    EXPECT_EQ(QZAddToSumMany(inst, keys.data(), 40, amounts.data(), statuses.data()), 0U);
    EXPECT_EQ(statuses, invalid);
  }
}

// An instance declared for keys of 2 GiB accepts none; the status of each is
// what MORVAFind2 says.
TEST(ManyKeys, ThatAnInstanceAcceptsNoneOfAreRefused) {
  CompanionHost host;
  MORVAInst *inst = host.create(flagFixedKey, 0x80000000);
  const uint64_t number = 1;
  const QZKey key = {&number, 8, 0};
  alignas(8) char room[256];
  void *data = nullptr;
  ASSERT_EQ(inst->Find2(inst, &number, 8, reinterpret_cast<RecordNode *>(room), &data),
            MORVA_INVALID);
  MORVAStatus status = 77;
  EXPECT_EQ(QZFindMany(inst, &key, 1, &data, &status), 0U);
  EXPECT_NE(status, MORVA_OK);
}

// A key may be short, and its record still too long.
TEST(ManyKeys, WhoseRecordsWouldBeTooLongAreRefused) {
  CompanionHost host;
  MORVAInst *inst = host.create(flagVarKey, 0, 0xFFFFF000);
  const std::string longKey(8192, 'x');
  const QZKey keys[] = {{longKey.data(), 8192, 0}, {longKey.data(), 10, 0}};
  void *data = nullptr;
  ASSERT_EQ(inst->Find(inst, longKey.data(), 8192, &data), MORVA_INVALID);
  void *found[2] = {};
  MORVAStatus statuses[2] = {77, 77};
  EXPECT_EQ(QZFindMany(inst, keys, 2, found, statuses), 1U);
  EXPECT_EQ(statuses[0], MORVA_INVALID);
  EXPECT_EQ(statuses[1], MORVA_OK);
}

// ---- Sums --------------------------------------------------------------------------

TEST(AmountsOfManyKeys, AreRefusedOneByOneWhereTheSumWouldBeNoNumber) {
  for (const bool lockedTrees : {false, true}) {
    CompanionHost host(lockedTrees);
    MORVAInst *inst = host.create(flagFixedKey | flagSum);
    const uint64_t number = 1;
    const uint64_t absent = 2;
    ASSERT_EQ(inst->Add(inst, &number, &number, 8), MORVA_OK);
    inst->SetSumInc(inst, 0.25);
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const QZKey key = {&number, 8, 0};
    const std::vector<QZKey> keys{key, key, {&absent, 8, 0}, key, key, key};
    const std::vector<double> amounts{1.0, kNan, 1.0, kInfinity, -kInfinity, 1.0};
    std::vector<MORVAStatus> statuses(6, 77);
    EXPECT_EQ(QZAddToSumMany(inst, keys.data(), 2, amounts.data(), statuses.data()), 1U);
    double sum = 0;
    ASSERT_EQ(inst->Sum(inst, &number, 8, &sum), MORVA_OK);
    EXPECT_EQ(sum, 1.5);  // found twice, added once
    EXPECT_EQ(QZAddToSumMany(inst, keys.data(), 6, amounts.data(), statuses.data()), 3U);
    EXPECT_EQ(statuses, (std::vector<MORVAStatus>{MORVA_OK, MORVA_INVALID, MORVA_INVALID, MORVA_OK,
                                                  MORVA_INVALID, MORVA_OK}));
    ASSERT_EQ(inst->Sum(inst, &number, 8, &sum), MORVA_OK);
    EXPECT_EQ(sum, kInfinity);
  }
}

// ---- Hash methods, long keys ------------------------------------------------------------

TEST(ManyKeys, AreFoundUnderEveryHashMethod) {
  CompanionHost host;
  for (int32_t method = -1; method <= 12; ++method) {
    SCOPED_TRACE(method);
    for (const uint32_t mode : {int{flagFixedKey}, int{flagVarKey}, 0}) {
      MORVAParms parms = {};
      parms.flags = mode;
      parms.keyLength = 8;
      parms.hashMethod = method;
      parms.hashExp = 3;
      MORVAInst *inst = host.ext()->Create(host.ext(), &parms, nullptr, "table");
      ASSERT_NE(inst, nullptr);
      const MORVAKeyDesc field = {8, 4, 0, 0};
      if (mode == 0) {
        ASSERT_EQ(inst->DefineKey(inst, &field), MORVA_OK);
        ASSERT_EQ(inst->DefineDone(inst, 0, 0), MORVA_OK);
      }
      std::vector<uint64_t> numbers(200);
      std::vector<QZKey> keys;
      for (size_t i = 0; i < numbers.size(); ++i) {
        numbers[i] = i * 0x9E3779B97F4A7C15;
        keys.push_back({&numbers[i], 8, 0});
      }
      EXPECT_EQ(QZAddMany(inst, keys.data(), 100, nullptr, 0, nullptr), 100U);
      std::vector<void *> found(200);
      EXPECT_EQ(QZFindMany(inst, keys.data(), 200, found.data(), nullptr), 200U);
      for (size_t i = 0; i < found.size(); ++i) ASSERT_EQ(found[i] != nullptr, i < 100) << i;
      EXPECT_EQ(inst->Destroy(inst), MORVA_OK);
    }
  }
}

// Around what is packed beforehand, the second byte of a key's image that is not.
TEST(ManyKeys, OfPackedKeysOfAnyLengthAreFound) {
  for (const uint32_t length : {1U, 7U, 8U, 255U, 256U, 257U, 400U}) {
    SCOPED_TRACE(length);
    CompanionHost host;
    MORVAInst *inst = host.create(flagSum);
    const MORVAKeyDesc field = {length, 4, 0, 0};
    ASSERT_EQ(inst->DefineKey(inst, &field), MORVA_OK);
    ASSERT_EQ(inst->DefineDone(inst, 0, 8), MORVA_OK);
    ASSERT_EQ(inst->keyLength, length);
    // Rows of just the size of a key, told apart by the last byte.
    std::vector<std::unique_ptr<char[]>> rows;
    std::vector<QZKey> keys;
    for (int i = 0; i < 70; ++i) {
      rows.emplace_back(new char[length]());
      rows.back()[length - 1] = static_cast<char>(i % 50);
      keys.push_back({rows.back().get(), -5, 0});
    }
    const std::vector<uint64_t> data(70, 9);
    std::vector<MORVAStatus> statuses(70);
    EXPECT_EQ(QZAddMany(inst, keys.data(), 33, data.data(), 8, statuses.data()), 33U);
    std::vector<void *> found(70);
    EXPECT_EQ(QZFindMany(inst, keys.data(), 70, found.data(), statuses.data()), 70U);
    for (size_t i = 0; i < 70; ++i) ASSERT_EQ(found[i] != nullptr, i % 50 < 33) << i;
    const std::vector<double> amounts(70, 2.0);
    EXPECT_EQ(QZAddToSumMany(inst, keys.data(), 70, amounts.data(), statuses.data()), 33U + 20);
    double sum = 0;
    ASSERT_EQ(inst->Sum(inst, rows[0].get(), 0, &sum), MORVA_OK);
    EXPECT_EQ(sum, 4.0);
    EXPECT_EQ(QZRemoveMany(inst, keys.data(), 70, statuses.data()), 33U);
    EXPECT_EQ(inst->NumElements(inst), 0U);
  }
}

TEST(ManyKeys, OfAPackedKeyWithoutFieldsAreAllTheSame) {
  CompanionHost host;
  MORVAInst *inst = host.create(0);
  ASSERT_EQ(inst->DefineDone(inst, 0, 8), MORVA_OK);
  const uint64_t data[3] = {1, 2, 3};
  const QZKey keys[3] = {{nullptr, 0, 0}, {data, 7, 0}, {nullptr, -1, 0}};
  MORVAStatus statuses[3];
  void *found[3] = {};
  EXPECT_EQ(QZFindMany(inst, keys, 3, found, statuses), 3U);
  EXPECT_EQ(found[0], nullptr);
  EXPECT_EQ(QZAddMany(inst, keys, 3, data, 8, statuses), 1U);
  EXPECT_EQ(statuses[2], MORVA_PRESENT);
  EXPECT_EQ(QZFindMany(inst, keys, 3, found, statuses), 3U);
  EXPECT_TRUE(found[0] != nullptr && found[0] == found[1] && found[1] == found[2]);
}

TEST(ManyKeys, OfAnyLengthMayBeLongerThanIsLookedForBeforehand) {
  CompanionHost host;
  MORVAInst *inst = host.create(flagVarKey, 0, 8);
  const std::string text((1 << 20) + 1, 't');
  std::vector<QZKey> keys;
  for (const int32_t length : {1 << 20, (1 << 20) + 1, (1 << 20) - 1, 5}) {
    keys.push_back({text.data(), length, 0});
  }
  const uint64_t data[4] = {1, 2, 3, 4};
  EXPECT_EQ(QZAddMany(inst, keys.data(), 3, data, 8, nullptr), 3U);
  void *found[4];
  EXPECT_EQ(QZFindMany(inst, keys.data(), 4, found, nullptr), 4U);
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(*static_cast<uint64_t *>(found[i]), data[i]);
  EXPECT_EQ(found[3], nullptr);
}

// ---- Locks ----------------------------------------------------------------------------

class ManyKeysOnAnotherHost : public morva_test::InstanceTest {
 protected:
  void TearDown() override {
    InstanceTest::TearDown();
    qzextent(nullptr);  // another test's host may have the library
  }

  std::vector<uint64_t> numbers = {1, 2, 3, 4, 5};
  std::vector<QZKey> keys() const {
    std::vector<QZKey> all;
    for (const uint64_t &number : numbers) all.push_back({&number, 8, 0});
    return all;
  }
};

// Its trees are asked by its own container, key by key.
TEST_F(ManyKeysOnAnotherHost, AreAskedOfItsTrees) {
  for (const auto mode :
       {morva_test::Mode::fixed, morva_test::Mode::variable, morva_test::Mode::defined}) {
    SCOPED_TRACE(morva_test::nameOf(mode));
    const bool sums = mode != morva_test::Mode::variable;
    MORVAInst *inst = create(mode, sums ? flagSum : 0);
    const std::vector<char> data(5 * 16, 'd');
    EXPECT_EQ(QZAddMany(inst, keys().data(), 3, data.data(), 16, nullptr), 3U);
    host.forget();
    void *found[5];
    EXPECT_EQ(QZFindMany(inst, keys().data(), 5, found, nullptr), 5U);
    EXPECT_EQ(host.count(morva_test::Call::treeFind), 5U);
    for (size_t i = 0; i < 5; ++i) EXPECT_EQ(found[i], find(inst, numbers[i]));
    const std::vector<double> amounts(5, 1.5);
    std::vector<MORVAStatus> statuses(5);
    EXPECT_EQ(QZAddToSumMany(inst, keys().data(), 5, amounts.data(), statuses.data()),
              sums ? 3U : 0U);
    EXPECT_EQ(statuses[4], sums ? MORVA_INVALID : MORVA_NO_SUM);
    if (sums) {
      double sum = 0;
      ASSERT_EQ(inst->Sum(inst, &numbers[1], 8, &sum), MORVA_OK);
      EXPECT_EQ(sum, 1.5);
    }
    EXPECT_EQ(QZRemoveMany(inst, keys().data(), 5, nullptr), 3U);
    EXPECT_EQ(inst->NumElements(inst), 0U);
  }
}

// One acquisition is around all others, which are the operations' own.
TEST_F(ManyKeysOnAnotherHost, AreOneStepUnderTheLock) {
  for (const uint32_t noLock : {0, int{flagNoLock}}) {
    MORVAInst *inst = create(morva_test::Mode::fixed, noLock);
    const std::vector<char> data(5 * 16, 'd');
    host.forget();
    EXPECT_EQ(QZAddMany(inst, keys().data(), 5, data.data(), 16, nullptr), 5U);
    EXPECT_EQ(host.count(morva_test::Call::acquire), noLock != 0 ? 0U : 6U);
    EXPECT_EQ(host.count(morva_test::Call::release), noLock != 0 ? 0U : 6U);
    EXPECT_EQ(host.mostLocksHeldAtOnce(), noLock != 0 ? 0U : 2U);
    EXPECT_EQ(host.locksHeld(), 0U);
    EXPECT_EQ(host.unmatchedReleases(), 0U);
  }
}

TEST_F(ManyKeysOnAnotherHost, SayWhichHadNoMemory) {
  MORVAInst *inst = create(morva_test::Mode::fixed);
  const std::vector<char> data(5 * 16, 'd');
  std::vector<MORVAStatus> statuses(5);
  host.failFromNth(1);
  EXPECT_EQ(QZAddMany(inst, keys().data(), 5, data.data(), 16, statuses.data()), 0U);
  EXPECT_EQ(statuses, std::vector<MORVAStatus>(5, MORVA_NO_MEMORY));
  host.failNever();
  EXPECT_EQ(QZAddMany(inst, keys().data(), 5, data.data(), 16, statuses.data()), 5U);
}

}  // namespace
}  // namespace host_test
