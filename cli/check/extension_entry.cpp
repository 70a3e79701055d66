// The way in: what the file exports, the entry function and the extension object.
#include <cstring>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

using VersionFunction = MORVAStatus(HostServices *table, int64_t *major, int64_t *minor);
using RecordFunction = void(void *buffer);

constexpr const char *kOperations[] = {
    "MORVACreate",      "MORVADestroy",       "MORVAAdd",        "MORVAReplace",
    "MORVAFind",        "MORVARemove",        "MORVADefineKey",  "MORVADefineDone",
    "MORVASum",         "MORVAFindNext",      "MORVAFindPrev",   "MORVAHasNext",
    "MORVAHasPrev",     "MORVASumDup",        "MORVASumKey",     "MORVAReplaceDup",
    "MORVARemoveDup",   "MORVAClear",         "MORVAEquals",     "MORVAHashVal",
    "MORVANumElements", "MORVAHashSize",      "MORVABucketSize", "MORVASetSumInc",
    "MORVARecSize",     "MORVATotalMem",      "MORVAClear2",     "MORVAFind2",
    "MORVARecoff",      "MORVAFindNode",      "MORVAFastAdd",    "MORVAFastReplace",
    "MORVAFastFind",    "MORVAGetReqVersion", "MORVAGetVersion", "MORVARealDestroy"};

constexpr const char *kRoutines[] = {
    "skUnsup",   "skStrLen",  "skStrTLen", "skStrCpy",   "skStrTCpy",   "skStrUp",    "skStrLow",
    "skMemNot",  "skMemTNot", "skMemSet",  "skMemTSet",  "skMemCmp",    "skWMemCmp",  "skMemCpy",
    "skMemSCpy", "skMemDup",  "skMemScan", "skMemNScan", "skMemTNScan", "skMissArray"};

void loads(const Subject &subject) {
  const SharedFile file(subject.file);
}

void exportsTheEntry(const Subject &subject) {
  const SharedFile file(subject.file);
  for (const char *name : {"morva", "qzextent", "qzextver", "Exported_QZHandle", "aa_tree"}) {
    file.get<void *>(name);
  }
}

void makesAnObject(const Subject &subject) {
  Lab lab(subject);
  const Table table(lab, {});
  table.mustAdd("key", 1);
  table.expectValue("key", 1);
}

void exportsTheOperations(const Subject &subject) {
  const SharedFile file(subject.file);
  for (const char *name : kOperations) file.get<void *>(name);
}

void exportsTheRoutines(const Subject &subject) {
  const SharedFile file(subject.file);
  file.get<void *>("qzvercn1");
  for (const char *name : kRoutines) file.get<void *>(name);
}

// The exported function NAME, of the type that its declaration says.
#define MORVA_OPERATION(name) const auto name = file.get<decltype(&::name)>(#name)

void tablesWorkByName(const Subject &subject) {
  Lab lab(subject);
  const SharedFile &file = lab.file;
  MORVA_OPERATION(MORVACreate);
  MORVA_OPERATION(MORVAAdd);
  MORVA_OPERATION(MORVAReplace);
  MORVA_OPERATION(MORVAFind);
  MORVA_OPERATION(MORVAFind2);
  MORVA_OPERATION(MORVAFindNode);
  MORVA_OPERATION(MORVARecoff);
  MORVA_OPERATION(MORVAHashVal);
  MORVA_OPERATION(MORVARemove);
  MORVA_OPERATION(MORVAEquals);
  MORVA_OPERATION(MORVAClear);
  MORVA_OPERATION(MORVAClear2);
  MORVA_OPERATION(MORVANumElements);
  MORVA_OPERATION(MORVAHashSize);
  MORVA_OPERATION(MORVABucketSize);
  MORVA_OPERATION(MORVARecSize);
  MORVA_OPERATION(MORVATotalMem);
  MORVA_OPERATION(MORVADestroy);
  MORVAParms parms = Shape{}.parms();
  MORVAInst *inst = MORVACreate(lab.ext, &parms, nullptr, "named");
  expect(inst != nullptr, "MORVACreate answered null");
  const auto expectFound = [](const void *found, uint64_t data, const char *by) {
    expect(found != nullptr && std::memcmp(found, &data, sizeof data) == 0,
           std::string(by) + " did not find what was stored");
  };
  uint64_t data = 17;
  expectStatus(MORVAAdd(inst, &data, "key", 3), MORVA_OK, "MORVAAdd");
  void *found = nullptr;
  expectStatus(MORVAFind(inst, "key", 3, &found), MORVA_OK, "MORVAFind");
  expectFound(found, 17, "MORVAFind");
  data = 18;
  expectStatus(MORVAReplace(inst, &data, "key", 3), MORVA_OK, "MORVAReplace");
  alignas(8) char probe[128] = {};
  expectStatus(MORVAFind2(inst, "key", 3, reinterpret_cast<RecordNode *>(probe), &found), MORVA_OK,
               "MORVAFind2");
  expectFound(found, 18, "MORVAFind2");
  RecordNode *node = nullptr;
  uint32_t bucket = 99, other = 98, equal = 17;
  expectStatus(MORVAFindNode(inst, "key", 3, &node, &bucket), MORVA_OK, "MORVAFindNode");
  expect(node != nullptr && static_cast<char *>(MORVARecordBase(node)) + MORVARecoff(inst, node) ==
                                static_cast<char *>(found),
         "MORVAFindNode and MORVARecoff do not lead to the data");
  expectStatus(MORVAHashVal(inst, "key", 3, &other), MORVA_OK, "MORVAHashVal");
  expectEqual(other, bucket, "the bucket that MORVAHashVal names");
  expectStatus(MORVAEquals(inst, inst, &equal), MORVA_OK, "MORVAEquals");
  expectEqual(equal, 1U, "the answer of MORVAEquals");
  expectEqual(MORVANumElements(inst), 1U, "MORVANumElements");
  expectEqual(MORVAHashSize(inst), 16U, "MORVAHashSize");
  expectEqual(MORVABucketSize(inst, bucket), 1U, "MORVABucketSize");
  expectEqual(MORVARecSize(inst), 80U, "MORVARecSize");
  expectEqual(MORVATotalMem(inst), lab.host.bytesAlive("records"), "MORVATotalMem");
  expectStatus(MORVARemove(inst, "key", 3), MORVA_OK, "MORVARemove");
  expectEqual(MORVANumElements(inst), 0U, "MORVANumElements after MORVARemove");
  for (const auto clear : {MORVAClear2, MORVAClear}) {
    expectStatus(MORVAAdd(inst, &data, "key", 3), MORVA_OK, "MORVAAdd");
    expectStatus(clear(inst), MORVA_OK, "MORVAClear or MORVAClear2");
    expectEqual(MORVANumElements(inst), 0U, "MORVANumElements after a clear");
  }
  expectStatus(MORVADestroy(inst), MORVA_OK, "MORVADestroy");
}

void chainsAndSumsWorkByName(const Subject &subject) {
  Lab lab(subject);
  const SharedFile &file = lab.file;
  MORVA_OPERATION(MORVADefineKey);
  MORVA_OPERATION(MORVADefineDone);
  MORVA_OPERATION(MORVAAdd);
  MORVA_OPERATION(MORVAFind);
  MORVA_OPERATION(MORVAFindNext);
  MORVA_OPERATION(MORVAFindPrev);
  MORVA_OPERATION(MORVAHasNext);
  MORVA_OPERATION(MORVAHasPrev);
  MORVA_OPERATION(MORVAReplaceDup);
  MORVA_OPERATION(MORVARemoveDup);
  MORVA_OPERATION(MORVASetSumInc);
  MORVA_OPERATION(MORVASum);
  MORVA_OPERATION(MORVASumDup);
  MORVA_OPERATION(MORVASumKey);
  MORVAInst *inst = createInstance(lab.ext, {.flags = flagSum | flagMultiData});
  expect(inst != nullptr, "Create answered null");
  const MORVAKeyDesc field = {8, 1, 0, 0};
  expectStatus(MORVADefineKey(inst, &field), MORVA_OK, "MORVADefineKey");
  expectStatus(MORVADefineDone(inst, 0, 8), MORVA_OK, "MORVADefineDone");
  MORVASetSumInc(inst, 2.5);
  for (const char *data : {"record 1", "record 2"}) {
    expectStatus(MORVAAdd(inst, data, "some key", 0), MORVA_OK, "MORVAAdd");
  }
  MORVASetSumInc(inst, 0);
  void *first = nullptr, *next = nullptr, *back = nullptr;
  expectStatus(MORVAFind(inst, "some key", 0, &first), MORVA_OK, "MORVAFind");
  expectStatus(MORVAFindNext(inst, first, &next), MORVA_OK, "MORVAFindNext");
  expect(next != nullptr && std::memcmp(next, "record 2", 8) == 0,
         "MORVAFindNext did not find the second record");
  expectStatus(MORVAFindPrev(inst, next, &back), MORVA_OK, "MORVAFindPrev");
  expect(back == first, "MORVAFindPrev does not lead back");
  expectEqual(MORVAHasNext(inst, first), 1U, "MORVAHasNext of the first record");
  expectEqual(MORVAHasPrev(inst, first), 0U, "MORVAHasPrev of the first record");
  double sum = 0;
  expectStatus(MORVASum(inst, "some key", 0, &sum), MORVA_OK, "MORVASum");
  expectEqual(sum, 2.5, "the answer of MORVASum");
  sum = 0;
  expectStatus(MORVASumDup(inst, next, &sum), MORVA_OK, "MORVASumDup");
  expectEqual(sum, 2.5, "the answer of MORVASumDup");
  sum = 0;
  expectStatus(MORVASumKey(inst, next, &sum, 0), MORVA_OK, "MORVASumKey");
  expectEqual(sum, 2.5, "the answer of MORVASumKey");
  expectStatus(MORVAReplaceDup(inst, next, "record 3"), MORVA_OK, "MORVAReplaceDup");
  expect(std::memcmp(next, "record 3", 8) == 0, "MORVAReplaceDup did not replace the data");
  expectStatus(MORVARemoveDup(inst, &next, "some key", 0), MORVA_OK, "MORVARemoveDup");
  expectEqual(MORVAHasNext(inst, first), 0U, "MORVAHasNext after MORVARemoveDup");
}

void storesTheTable(const Subject &subject) {
  RecordingHost one, two;
  const SharedFile file(subject.file);
  HostServices *const *kept = file.get<HostServices **>("Exported_QZHandle");
  expect(*kept == nullptr, "Exported_QZHandle is not null in a library just loaded");
  expectStatus(file.get<TableFunction *>("qzextent")(one.services()), MORVA_OK, "qzextent");
  expect(*kept == one.services(), "qzextent did not store the table in Exported_QZHandle");
  int64_t major = 0, minor = 0;
  const auto version = file.get<VersionFunction *>("qzextver");
  expectStatus(version(two.services(), &major, &minor), MORVA_OK, "qzextver");
  expect(*kept == two.services(), "qzextver did not store the table in Exported_QZHandle");
}

void answersTheHostVersion(const Subject &subject) {
  RecordingHost host;
  const SharedFile file(subject.file);
  const auto version = file.get<VersionFunction *>("qzextver");
  int64_t major = -1, minor = -1;
  expectStatus(version(host.services(), &major, &minor), MORVA_OK, "qzextver");
  expectEqual(major, int64_t{MORVA_HOST_MAJOR}, "the host interface's first number");
  expectEqual(minor, int64_t{MORVA_HOST_MINOR}, "the host interface's second number");
  expectStatus(version(host.services(), nullptr, nullptr), MORVA_OK, "qzextver with null places");
}

void needsATable(const Subject &subject) {
  const SharedFile file(subject.file);
  expect(file.get<EntryFunction *>("morva")(nullptr, nullptr) == nullptr,
         "the entry function answered an object although there is no service table");
}

void takesTheHandleAsItIs(const Subject &subject) {
  RecordingHost host;
  const SharedFile file(subject.file);
  *file.get<HostServices **>("Exported_QZHandle") = host.services();
  MORVAExt *ext = file.get<EntryFunction *>("morva")(nullptr, nullptr);
  expect(ext != nullptr, "the entry function answered null after a host stored its table itself");
  ext->RealDestroy(ext);
}

void makesThePool(const Subject &subject) {
  Lab lab(subject, {}, false);
  int word = 0;
  MORVAExt *ext = lab.enter(&word);
  expect(ext != nullptr, "the entry function answered null");
  const std::vector<Event> pools = lab.host.eventsOf(Call::createPool);
  expectEqual(pools.size(), size_t{1}, "the number of pools made by the entry function");
  expectEqual(pools[0].text, std::string("MORVA Extension"), "the name of the pool");
  expect(pools[0].a == reinterpret_cast<uintptr_t>(&word),
         "the entry function's context did not reach createPool");
  expectEqual(pools[0].b, uint64_t{0}, "the option word of the pool \"MORVA Extension\"");
  const std::vector<Event> blocks = lab.host.eventsOf(Call::allocate);
  expectEqual(blocks.size(), size_t{1}, "the number of blocks taken by the entry function");
  expect(blocks[0].c == reinterpret_cast<uintptr_t>(ext),
         "the extension object is not the block taken from the pool \"MORVA Extension\"");
  expect(blocks[0].a >= sizeof(MORVAExt), "the extension object's block is too small");
  lab.expectNoComplaints();
}

void fillsTheSlots(const Subject &subject) {
  Lab lab(subject);
  const MORVAExt &ext = *lab.ext;
  expect(std::memcmp(ext.eyeCatcher, "nevo\0\0\0\0", 8) == 0,
         "slot 0 is not \"nevo\" and four zero bytes");
  for (const void *slot : {ext.slot1[0], ext.slot1[1], ext.slot5, ext.slot7[0], ext.slot7[1]}) {
    expect(slot == nullptr, "a slot that is to be zero is not");
  }
  expect(ext.GetReqVersion != nullptr && ext.GetVersion != nullptr && ext.RealDestroy != nullptr &&
             ext.Create != nullptr && ext.pool != nullptr,
         "a slot of the extension object is null that is to be filled");
}

void entryFailuresGiveBack(const Subject &subject) {
  Lab lab(subject, {}, false);
  lab.host.failCall(Call::createPool);
  expect(lab.enter() == nullptr, "the entry function answered an object without a pool");
  expectEqual(lab.host.events().size(), size_t{1}, "the number of calls when no pool can be made");
  lab.expectNothingLeft();
  lab.host.failCall(Call::allocate);
  expect(lab.enter() == nullptr, "the entry function answered an object without memory for it");
  lab.expectNothingLeft();
  lab.host.failNever();
  expect(lab.enter() != nullptr, "the entry function answered null after an earlier failure");
  lab.expectNoComplaints();
}

void versionQueries(const Subject &subject) {
  Lab lab(subject);
  const auto required = lab.ext->GetReqVersion;
  const auto own = lab.ext->GetVersion;
  int64_t a = -1, b = -1, c = -1;
  expectStatus(required(lab.ext, &a, &b, &c), MORVA_OK, "GetReqVersion");
  expectEqual(a, int64_t{MORVA_HOST_MAJOR}, "the first number of the host version required");
  expectEqual(b, int64_t{MORVA_HOST_MINOR}, "the second number of the host version required");
  expect(c >= 0, "GetReqVersion did not store the third number");
  a = b = c = -1;
  expectStatus(own(nullptr, &a, &b, &c), MORVA_OK, "GetVersion without an object");
  expect(a >= 0 && b >= 0 && c >= 0, "GetVersion did not store three numbers");
  expectStatus(required(nullptr, nullptr, nullptr, nullptr), MORVA_OK,
               "GetReqVersion with null places");
  expectStatus(own(lab.ext, nullptr, nullptr, nullptr), MORVA_OK, "GetVersion with null places");
}

void versionRecord(const Subject &subject) {
  const SharedFile file(subject.file);
  const auto copy = file.get<RecordFunction *>("qzvercn1");
  copy(nullptr);
  std::string one(sizeof(MORVAVersionRecord) + 64, '\x11');
  std::string two(one.size(), '\x22');
  copy(one.data());
  copy(two.data());
  expect(one.substr(0, sizeof(MORVAVersionRecord)) == two.substr(0, sizeof(MORVAVersionRecord)),
         "qzvercn1 does not fill 208 bytes");
  expect(one.substr(sizeof(MORVAVersionRecord)) == std::string(64, '\x11'),
         "qzvercn1 writes beyond 208 bytes");
}

void realDestroyEnds(const Subject &subject) {
  Lab lab(subject);
  const auto destroy = lab.ext->RealDestroy;
  expectStatus(destroy(nullptr), MORVA_INVALID, "RealDestroy of null");
  lab.end();
  expectEqual(lab.host.count(Call::destroyPool), uint64_t{1}, "the number of pools destroyed");
  expectEqual(lab.host.count(Call::freeBlock), uint64_t{0},
              "the number of blocks given back singly before their pool is destroyed");
  lab.expectNothingLeft();
  lab.expectNoComplaints();
}

constexpr Check kChecks[] = {
    {"file.loads", "The file is a shared library that can be loaded.", loads, true},
    {"file.exports-the-entry",
     "The file exports morva, qzextent, qzextver, Exported_QZHandle and aa_tree.", exportsTheEntry,
     true},
    {"entry.makes-an-extension",
     "The entry function makes an extension object, it an instance, and that stores a record.",
     makesAnObject, true},
    {"file.exports-the-operations", "Every operation is exported under its own name.",
     exportsTheOperations},
    {"file.exports-the-routines", "The portable routines and the version record are exported.",
     exportsTheRoutines},
    {"file.operations-work-by-name", "The exported operations work on instances as the slots do.",
     [](const Subject &subject) {
       tablesWorkByName(subject);
       chainsAndSumsWorkByName(subject);
     }},
    {"entry.stores-the-table",
     "Exported_QZHandle is null at first; qzextent and qzextver store the host's table in it.",
     storesTheTable},
    {"entry.takes-a-stored-table", "A host may store its table in Exported_QZHandle itself.",
     takesTheHandleAsItIs},
    {"entry.answers-the-host-version",
     "qzextver answers the host interface 6.1, and null places are left out.",
     answersTheHostVersion},
    {"entry.needs-a-table", "Without a service table the entry function answers null.",
     needsATable},
    {"entry.makes-its-pool",
     "The entry function makes the pool \"MORVA Extension\" with its context and takes the object "
     "from it.",
     makesThePool},
    {"entry.fills-the-slots",
     "The extension object has \"nevo\", its functions and its pool in their slots, and zeros in "
     "the others.",
     fillsTheSlots},
    {"entry.failures-give-back",
     "When the host has no pool or no memory the entry function answers null and keeps nothing.",
     entryFailuresGiveBack},
    {"version.queries", "The version queries answer three numbers, whatever object they are given.",
     versionQueries},
    {"version.record", "qzvercn1 fills 208 bytes and no more, and nothing for null.",
     versionRecord},
    {"entry.real-destroy-ends",
     "RealDestroy destroys the extension's pool and nothing else, and refuses null.",
     realDestroyEnds},
};

}  // namespace

std::span<const Check> entryChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
