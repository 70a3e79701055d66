// Requests that are refused before the lock is taken, before a node is taken
// and before anything is written.
#include <functional>
#include <ostream>

#include "table.h"

namespace morva_test {
namespace {

// What one keyed call is given and where it answers.
struct Request {
  MORVAInst *inst;
  const void *key;
  int32_t keyLen;
  const void *data;
  RecordNode *probe;
  void *cursor;       // a data pointer of the key, for RemoveDup
  void **cursorWord;  // holds it
  void *dataOut;
  RecordNode *nodeOut;
  uint32_t bucketOut;
  double sumOut;
};

struct Operation {
  const char *name;
  uint32_t needs;    // option bits of an instance it works on
  uint32_t refuses;  // option bits of an instance it does not work on
  bool storesData;
  std::function<MORVAStatus(Request &)> call;
};

void PrintTo(const Operation &operation, std::ostream *out) {
  *out << operation.name;
}

constexpr uint32_t kSlow = flagSum | flagMultiData;

const Operation kOperations[] = {
    {"Add", 0, 0, true, [](Request &r) { return MORVAAdd(r.inst, r.data, r.key, r.keyLen); }},
    {"Replace", 0, 0, true,
     [](Request &r) { return MORVAReplace(r.inst, r.data, r.key, r.keyLen); }},
    {"FastAdd", 0, kSlow, true,
     [](Request &r) { return MORVAFastAdd(r.inst, r.data, r.key, r.keyLen); }},
    {"FastReplace", 0, kSlow, true,
     [](Request &r) { return MORVAFastReplace(r.inst, r.data, r.key, r.keyLen); }},
    {"Find", 0, 0, false,
     [](Request &r) { return MORVAFind(r.inst, r.key, r.keyLen, &r.dataOut); }},
    {"FastFind", 0, 0, false,
     [](Request &r) { return MORVAFastFind(r.inst, r.key, r.keyLen, &r.dataOut); }},
    {"Find2", 0, 0, false,
     [](Request &r) { return MORVAFind2(r.inst, r.key, r.keyLen, r.probe, &r.dataOut); }},
    {"FindNode", 0, 0, false,
     [](Request &r) { return MORVAFindNode(r.inst, r.key, r.keyLen, &r.nodeOut, &r.bucketOut); }},
    {"HashVal", 0, 0, false,
     [](Request &r) { return MORVAHashVal(r.inst, r.key, r.keyLen, &r.bucketOut); }},
    {"Sum", flagSum, 0, false,
     [](Request &r) { return MORVASum(r.inst, r.key, r.keyLen, &r.sumOut); }},
    {"Remove", 0, 0, false, [](Request &r) { return MORVARemove(r.inst, r.key, r.keyLen); }},
    {"RemoveDup", flagMultiData, 0, false,
     [](Request &r) { return MORVARemoveDup(r.inst, r.cursorWord, r.key, r.keyLen); }},
};

class Refusals : public OpsTest, public testing::WithParamInterface<Operation> {
 protected:
  // Instances of every shape the operation works on.
  std::vector<Shape> workingShapes() const { return shapes(GetParam().needs, GetParam().refuses); }

  // The call answers `status` and the host sees nothing of it, nor does the caller.
  void expectRefused(MORVAInst *inst, const void *key, int32_t keyLen, const void *data,
                     void *cursor) {
    std::vector<uint64_t> probe(64, 0);
    int mark = 0;
    Request request = {inst,
                       key,
                       keyLen,
                       data,
                       reinterpret_cast<RecordNode *>(probe.data()),
                       cursor,
                       &cursor,
                       &mark,
                       reinterpret_cast<RecordNode *>(&mark),
                       77,
                       -1.5};
    host.forget();
    EXPECT_EQ(GetParam().call(request), MORVA_INVALID);
    EXPECT_TRUE(host.events().empty()) << host.story();
    EXPECT_EQ(request.dataOut, &mark);
    EXPECT_EQ(request.nodeOut, reinterpret_cast<RecordNode *>(&mark));
    EXPECT_EQ(request.bucketOut, 77u);
    EXPECT_EQ(request.sumOut, -1.5);
    EXPECT_EQ(cursor, request.cursor);
  }

  // The same for an instance that holds the key "red": nothing of it changes.
  void expectRefused(Table &table, const void *key, int32_t keyLen, const void *data) {
    RecordNode *const free = table->freeRecords;
    const int64_t used = table->recordsUsed;
    const uint32_t elements = table.elements();
    expectRefused(table.get(), key, keyLen, data, table.at("red"));
    EXPECT_EQ(table->freeRecords, free);
    EXPECT_EQ(table->recordsUsed, used);
    EXPECT_EQ(table.elements(), elements);
    EXPECT_EQ(table.used(), 1u);
    EXPECT_EQ(table.all("red"), "1");
  }
};

INSTANTIATE_TEST_SUITE_P(Operations, Refusals, testing::ValuesIn(kOperations),
                         [](const testing::TestParamInfo<Operation> &info) {
                           return std::string(info.param.name);
                         });

TEST_P(Refusals, NoInstance) {
  char bytes[64] = {};
  expectRefused(nullptr, bytes, 3, bytes, bytes);
  expectRefused(nullptr, nullptr, -1, nullptr, nullptr);
}

TEST_P(Refusals, AnInstanceWhoseDefinitionIsNotDone) {
  for (const Shape &one :
       shapes(GetParam().needs, GetParam().refuses | flagFixedKey | flagVarKey)) {
    SCOPED_TRACE(describe(one));
    MORVAParms parms = {};
    parms.flags = one.flags();
    parms.dataLength = 16;
    MORVAInst *inst = ext->Create(ext.get(), &parms, nullptr, "open");
    ASSERT_NE(inst, nullptr);
    char bytes[64] = {};
    expectRefused(inst, bytes, 3, bytes, bytes);
    const MORVAKeyDesc field = {8, 2, 0, 0};
    EXPECT_EQ(inst->DefineKey(inst, &field), MORVA_OK);
    expectRefused(inst, bytes, 3, bytes, bytes);
    inst->Destroy(inst);
  }
}

TEST_P(Refusals, ANegativeLengthOfARawKey) {
  for (const Shape &one : workingShapes()) {
    if (!one.raw()) continue;
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    table.at("red");
    const std::string data = table.bytes("2");
    for (int32_t length : {-1, -3, INT32_MIN}) expectRefused(table, "red", length, data.data());
    expectRefused(table, nullptr, -1, data.data());
  }
}

TEST_P(Refusals, NoRawKeyThoughItHasALength) {
  for (const Shape &one : workingShapes()) {
    if (!one.raw()) continue;
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    table.at("red");
    const std::string data = table.bytes("2");
    for (int32_t length : {1, 3, 20, 21}) expectRefused(table, nullptr, length, data.data());
  }
}

TEST_P(Refusals, NoDataThoughRecordsHaveSome) {
  for (const Shape &one : workingShapes()) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    table.at("red");
    const std::string present = table.key("red"), absent = table.key("blu");
    if (GetParam().storesData) {
      expectRefused(table, present.data(), 3, nullptr);
      expectRefused(table, absent.data(), 3, nullptr);
    } else {
      // It has no use for data.
      std::vector<uint64_t> probe(64, 0);
      void *cursor = table.at("red");
      Request request = {};
      request.inst = table.get();
      request.key = present.data();
      request.keyLen = 3;
      request.probe = reinterpret_cast<RecordNode *>(probe.data());
      request.cursorWord = &cursor;
      EXPECT_EQ(GetParam().call(request), MORVA_OK);
    }
  }
}

TEST_P(Refusals, AnInstanceOfAModeItIsNotMadeFor) {
  for (const Shape &one : shapes()) {
    const bool lacks = (one.options & GetParam().needs) != GetParam().needs;
    if (!lacks && !one.has(GetParam().refuses)) continue;
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    table.at("red");
    const std::string data = table.bytes("2"), key = table.key("red");
    if (GetParam().needs == flagSum) {
      double sum = -1.5;
      host.forget();
      EXPECT_EQ(MORVASum(table.get(), key.data(), 3, &sum), MORVA_NO_SUM);
      EXPECT_TRUE(host.events().empty());
      EXPECT_EQ(sum, -1.5);
    } else {
      expectRefused(table, key.data(), 3, data.data());
    }
  }
}

TEST_P(Refusals, NothingWhenAnEmptyRawKeyHasNoAddress) {
  for (const Shape &one : workingShapes()) {
    if (!one.raw()) continue;
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("", "1");
    const std::string data = table.bytes("2");
    std::vector<uint64_t> probe(64, 0);
    void *cursor = table.at("");
    Request request = {};
    request.inst = table.get();
    request.data = data.data();
    request.probe = reinterpret_cast<RecordNode *>(probe.data());
    request.cursorWord = &cursor;
    const MORVAStatus status = GetParam().call(request);
    const std::string name = GetParam().name;
    const bool adds = name == "Add" || name == "FastAdd";
    EXPECT_EQ(status, adds && !one.has(flagMultiData) ? MORVA_PRESENT : MORVA_OK);
  }
}

class RefusalsAll : public OpsTest {};

TEST_F(RefusalsAll, ANegativeLengthOfADefinedKeyIsIgnored) {
  for (const Shape &one : shapes()) {
    if (one.raw()) continue;
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    const std::string key = table.key("red"), data = table.bytes("1");
    MORVAInst *inst = table.get();
    void *found = nullptr;
    EXPECT_EQ(inst->Add(inst, data.data(), key.data(), -1), MORVA_OK);
    EXPECT_EQ(inst->Find(inst, key.data(), INT32_MIN, &found), MORVA_OK);
    EXPECT_EQ(table.textAt(found), "1");
    EXPECT_EQ(inst->HashVal(inst, key.data(), -1, nullptr), MORVA_OK);
    EXPECT_EQ(inst->FindNode(inst, key.data(), -1, nullptr, nullptr), MORVA_OK);
    EXPECT_EQ(inst->Remove(inst, key.data(), -1), MORVA_OK);
  }
}

TEST_F(RefusalsAll, Find2WithoutAProbeRecord) {
  for (const Shape &one : shapes()) {
    SCOPED_TRACE(describe(one));
    Table table(host, ext.get(), one);
    table.put("red", "1");
    int mark = 0;
    void *data = &mark;
    host.forget();
    EXPECT_EQ(table->Find2(table.get(), table.key("red").data(), 3, nullptr, &data), MORVA_INVALID);
    EXPECT_TRUE(host.events().empty()) << host.story();
    EXPECT_EQ(data, &mark);
  }
}

TEST_F(RefusalsAll, TheCursorOperationsWithoutAnInstanceThatIsReady) {
  MORVAParms parms = {};
  parms.flags = flagMultiData | flagSum;
  MORVAInst *inst = ext->Create(ext.get(), &parms, nullptr, "open");
  ASSERT_NE(inst, nullptr);
  uint64_t words[32] = {};
  void *const data = words + 16;
  int mark = 0;
  void *out = &mark;
  double sum = -1.5;
  host.forget();
  for (MORVAInst *one : {static_cast<MORVAInst *>(nullptr), inst}) {
    EXPECT_EQ(MORVAHasNext(one, data), 0u);
    EXPECT_EQ(MORVAHasPrev(one, data), 0u);
    EXPECT_EQ(MORVAFindNext(one, data, &out), MORVA_INVALID);
    EXPECT_EQ(MORVAFindPrev(one, data, &out), MORVA_INVALID);
    EXPECT_EQ(MORVAReplaceDup(one, data, words), MORVA_INVALID);
    EXPECT_EQ(MORVASumDup(one, data, &sum), MORVA_INVALID);
    EXPECT_EQ(MORVASumKey(one, data, &sum, 0), MORVA_INVALID);
    EXPECT_EQ(MORVASumKey(one, data, nullptr, 0), MORVA_INVALID);
    EXPECT_EQ(MORVASumDup(one, nullptr, nullptr), MORVA_INVALID);
  }
  EXPECT_TRUE(host.events().empty()) << host.story();
  EXPECT_EQ(out, &mark);
  EXPECT_EQ(sum, -1.5);
  inst->Destroy(inst);
}

}  // namespace
}  // namespace morva_test
