#include "operations.h"

#include <ostream>

namespace fault_test {
namespace {

constexpr uint32_t kWrong = 0xBAD00BAD;  // no status: the answers are not what they must be
constexpr uint64_t kNewData = 300;
constexpr char kOverlongKey[kOverlong] = {};
constexpr int kSingle = 3;  // a key with one record in every table
constexpr int kLong = 0;    // a key with five records where keys may have several

// ---- on which option bits ------------------------------------------------------

constexpr bool any(uint32_t) {
  return true;
}
constexpr bool sums(uint32_t flags) {
  return (flags & flagSum) != 0;
}
constexpr bool noSums(uint32_t flags) {
  return !sums(flags);
}
constexpr bool multi(uint32_t flags) {
  return (flags & flagMultiData) != 0;
}
constexpr bool notMulti(uint32_t flags) {
  return !multi(flags);
}
constexpr bool sumsWithoutMulti(uint32_t flags) {
  return sums(flags) && !multi(flags);
}
constexpr bool multiWithoutSums(uint32_t flags) {
  return multi(flags) && !sums(flags);
}
constexpr bool sumsAndMulti(uint32_t flags) {
  return sums(flags) && multi(flags);
}
constexpr bool fast(uint32_t flags) {
  return !sums(flags) && !multi(flags);
}
constexpr bool notFast(uint32_t flags) {
  return !fast(flags);
}
constexpr bool fixed(uint32_t flags) {
  return (flags & flagFixedKey) != 0;
}
constexpr bool fixedAndMulti(uint32_t flags) {
  return fixed(flags) && multi(flags);
}
constexpr bool fixedAndSums(uint32_t flags) {
  return fixed(flags) && sums(flags);
}
constexpr bool notVariable(uint32_t flags) {
  return (flags & flagVarKey) == 0;
}
constexpr bool variable(uint32_t flags) {
  return !notVariable(flags);
}

// ---- calls ---------------------------------------------------------------------

uint32_t ifRight(uint32_t status, bool right) {
  return status != MORVA_OK || right ? status : kWrong;
}

template <class Store>
uint32_t store(World &w, Store function, int key) {
  return function(w.inst, &kNewData, w.key(key), w.length(key));
}

template <class Store>
uint32_t storeOverlong(World &w, Store function) {
  return function(w.inst, &kNewData, kOverlongKey, kOverlong);
}

template <class Find>
uint32_t find(World &w, Find function, int key) {
  const uint32_t status = function(w.inst, w.key(key), w.length(key), &w.answers.data);
  return ifRight(status, w.answers.data == w.dataOf(key));
}

uint32_t find2(World &w, const void *key, int32_t length, const void *expected) {
  alignas(8) char room[sizeof(RecordNode) + 64];
  const uint32_t status =
      w.inst->Find2(w.inst, key, length, reinterpret_cast<RecordNode *>(room), &w.answers.data);
  return ifRight(status, w.answers.data == expected);
}

uint32_t findNode(World &w, int key) {
  const uint32_t status =
      w.inst->FindNode(w.inst, w.key(key), w.length(key), &w.answers.node, &w.answers.number);
  return ifRight(status, w.answers.node == w.nodeOf(key) && w.answers.number == 0);
}

uint32_t sum(World &w, int key, double expected) {
  const uint32_t status = w.inst->Sum(w.inst, w.key(key), w.length(key), &w.answers.sum);
  return ifRight(status, w.answers.sum == expected);
}

uint32_t removeDup(World &w, int key, int index) {
  w.answers.cursor = w.answers.cursorBefore = w.dataOf(key, index);
  const uint32_t status = w.inst->RemoveDup(w.inst, &w.answers.cursor, w.key(key), w.length(key));
  return ifRight(status, w.answers.cursor == nullptr);
}

template <class Move>
uint32_t moveFrom(World &w, Move function, int index, int reached) {
  const uint32_t status = function(w.inst, w.dataOf(kLong, index), &w.answers.data);
  return ifRight(status, w.answers.data == w.dataOf(kLong, reached));
}

// ---- effects -------------------------------------------------------------------

void addNew(World &w) {
  w.content.add(kNew, {kNewData, 1.0});
}
void overwrite(World &w, int key) {
  Content::Key &held = w.content.keys[key];
  for (int i = 0; i < held.count; ++i) held.records[i].data = kNewData;
  held.records[0].sum = 1.0;
}
void overwriteLong(World &w) {
  overwrite(w, kLong);
}
void visitLong(World &w) {
  if (w.has(flagSum)) w.content.keys[kLong].records[0].sum += 1.0;
}
void loseNode(World &w) {
  ++w.lostNodes;
}
void pinLong(World &w) {
  w.pin(kLong);
}

// clang-format off
// By name only where the instance has the other form of the operation: the enumeration's test sees
// to it that what an instance has are the functions named.
const std::vector<Operation> kOperations = {
    // name, functions, slot, applies, needs content,
    //     takes a node, appends, unlinks, releases on failure, always,
    //     result, call, effect, prepare

    // ---- storing
    {"AddOfANewKey", "MORVAAdd MORVAFastAdd", offsetof(MORVAInst, Add), any, false,
     true, true, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return store(w, w.inst->Add, kNew); }, addNew},
    {"AddOfAPresentKey", "MORVAAdd MORVAFastAdd", offsetof(MORVAInst, Add), notMulti, true,
     true, false, Unlinks::nothing, false, false, MORVA_PRESENT,
     [](World &w) { return store(w, w.inst->Add, kLong); }},
    {"AddOfAFurtherRecord", "MORVAAdd", offsetof(MORVAInst, Add), multi, true,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return store(w, w.inst->Add, kLong); },
     [](World &w) { w.content.add(kLong, {kNewData, 1.0}); }},
    {"AddOfAnOverlongKey", "MORVAAdd MORVAFastAdd", offsetof(MORVAInst, Add), fixed, false,
     true, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) { return storeOverlong(w, w.inst->Add); }, loseNode},
    {"GeneralAddOfANewKey", "MORVAAdd", kByName, fast, false,
     true, true, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return store(w, MORVAAdd, kNew); }, addNew},
    {"FastAddWhereItDoesNotServe", "MORVAFastAdd", kByName, notFast, false,
     false, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) { return store(w, MORVAFastAdd, kNew); }},
    {"ReplaceOfANewKey", "MORVAReplace MORVAFastReplace", offsetof(MORVAInst, Replace), any, false,
     true, true, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return store(w, w.inst->Replace, kNew); }, addNew},
    {"ReplaceOfAPresentKey", "MORVAReplace MORVAFastReplace", offsetof(MORVAInst, Replace), any,
     true, true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return store(w, w.inst->Replace, kLong); }, overwriteLong},
    {"ReplaceOfAnOverlongKey", "MORVAReplace MORVAFastReplace", offsetof(MORVAInst, Replace), fixed,
     false, true, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) { return storeOverlong(w, w.inst->Replace); }, loseNode},
    {"GeneralReplaceOfANewKey", "MORVAReplace", kByName, fast, false,
     true, true, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return store(w, MORVAReplace, kNew); }, addNew},
    {"GeneralReplaceOfAPresentKey", "MORVAReplace", kByName, fast, true,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return store(w, MORVAReplace, kLong); }, overwriteLong},
    {"FastReplaceWhereItDoesNotServe", "MORVAFastReplace", kByName, notFast, false,
     false, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) { return store(w, MORVAFastReplace, kNew); }},

    // ---- finding
    {"FindOfAPresentKey", "MORVAFind MORVAFastFind", offsetof(MORVAInst, Find), any, true,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return find(w, w.inst->Find, kLong); }, visitLong},
    {"FindOfAnAbsentKey", "MORVAFind MORVAFastFind", offsetof(MORVAInst, Find), any, false,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return find(w, w.inst->Find, kAbsent); }},
    {"FindOfAnOverlongKey", "MORVAFind MORVAFastFind", offsetof(MORVAInst, Find), fixed, false,
     true, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) { return w.inst->Find(w.inst, kOverlongKey, kOverlong, &w.answers.data); },
     loseNode},
    {"GeneralFind", "MORVAFind", kByName, fast, true,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return find(w, MORVAFind, kLong); }, visitLong},
    {"FastFind", "MORVAFastFind", kByName, sumsWithoutMulti, true,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return find(w, MORVAFastFind, kLong); }},
    {"FastFindOfAChain", "MORVAFastFind", kByName, multi, true,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       const uint32_t status = MORVAFastFind(w.inst, w.key(kLong), w.length(kLong),
                                             &w.answers.data);
       return ifRight(status, w.answers.data == w.dataOf(kLong) - sizeof(DupLinks));
     }},
    {"Find2OfAPresentKey", "MORVAFind2", offsetof(MORVAInst, Find2), any, true,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return find2(w, w.key(kLong), w.length(kLong), w.dataOf(kLong)); }, visitLong},
    {"Find2OfAnAbsentKey", "MORVAFind2", offsetof(MORVAInst, Find2), any, false,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return find2(w, w.key(kAbsent), w.length(kAbsent), nullptr); }},
    {"Find2OfAnOverlongKey", "MORVAFind2", offsetof(MORVAInst, Find2), fixed, false,
     false, false, Unlinks::nothing, false, true, MORVA_INVALID,
     [](World &w) { return find2(w, kOverlongKey, kOverlong, nullptr); }},
    {"FindNodeOfAPresentKey", "MORVAFindNode", offsetof(MORVAInst, FindNode), any, true,
     true, false, Unlinks::nothing, true, false, MORVA_OK,
     [](World &w) { return findNode(w, kLong); }},
    {"FindNodeOfAnAbsentKey", "MORVAFindNode", offsetof(MORVAInst, FindNode), any, false,
     true, false, Unlinks::nothing, true, false, MORVA_OK,
     [](World &w) { return findNode(w, kAbsent); }},
    {"FindNodeOfAnOverlongKey", "MORVAFindNode", offsetof(MORVAInst, FindNode), fixed, false,
     true, false, Unlinks::nothing, true, true, MORVA_INVALID,
     [](World &w) {
       return w.inst->FindNode(w.inst, kOverlongKey, kOverlong, &w.answers.node, nullptr);
     }},
    {"Recoff", "MORVARecoff", offsetof(MORVAInst, Recoff), any, true,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       const auto length = static_cast<size_t>(w.length(kLong));
       return ifRight(MORVA_OK, w.inst->Recoff(w.inst, w.nodeOf(kLong)) ==
                                    w.shape().dataOffsetFor(length));
     }},
    {"HashVal", "MORVAHashVal", offsetof(MORVAInst, HashVal), any, false,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       const uint32_t status =
           w.inst->HashVal(w.inst, w.key(kNew), w.length(kNew), &w.answers.number);
       return ifRight(status, w.answers.number == 0);
     }},
    {"HashValOfAnOverlongKey", "MORVAHashVal", offsetof(MORVAInst, HashVal), fixed, false,
     true, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) {
       return w.inst->HashVal(w.inst, kOverlongKey, kOverlong, &w.answers.number);
     }, loseNode},

    // ---- the records of one key
    {"HasNext", "MORVAHasNext", offsetof(MORVAInst, HasNext), multi, true,
     false, false, Unlinks::nothing, false, false, 1,
     [](World &w) { return w.inst->HasNext(w.inst, w.dataOf(kLong, 0)); }},
    {"HasNextAtTheEnd", "MORVAHasNext", offsetof(MORVAInst, HasNext), multi, true,
     false, false, Unlinks::nothing, false, false, 0,
     [](World &w) { return w.inst->HasNext(w.inst, w.dataOf(kLong, 4)); }},
    {"HasPrev", "MORVAHasPrev", offsetof(MORVAInst, HasPrev), multi, true,
     false, false, Unlinks::nothing, false, false, 1,
     [](World &w) { return w.inst->HasPrev(w.inst, w.dataOf(kLong, 4)); }},
    {"HasPrevAtTheFirst", "MORVAHasPrev", offsetof(MORVAInst, HasPrev), multi, true,
     false, false, Unlinks::nothing, false, false, 0,
     [](World &w) { return w.inst->HasPrev(w.inst, w.dataOf(kLong, 0)); }},
    {"FindNext", "MORVAFindNext", offsetof(MORVAInst, FindNext), multi, true,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return moveFrom(w, w.inst->FindNext, 0, 1); },
     [](World &w) { if (w.has(flagSum)) w.content.keys[kLong].records[1].sum += 1.0; }},
    {"FindPrev", "MORVAFindPrev", offsetof(MORVAInst, FindPrev), multi, true,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return moveFrom(w, w.inst->FindPrev, 4, 3); },
     [](World &w) { if (w.has(flagSum)) w.content.keys[kLong].records[3].sum += 1.0; }},
    {"HasNextWithoutChains", "MORVAHasNext", offsetof(MORVAInst, HasNext), notMulti, true,
     false, false, Unlinks::nothing, false, false, 0,
     [](World &w) { return w.inst->HasNext(w.inst, w.dataOf(kLong)); }},
    {"HasPrevWithoutChains", "MORVAHasPrev", offsetof(MORVAInst, HasPrev), notMulti, true,
     false, false, Unlinks::nothing, false, false, 0,
     [](World &w) { return w.inst->HasPrev(w.inst, w.dataOf(kLong)); }},
    {"FindNextWithoutChains", "MORVAFindNext", offsetof(MORVAInst, FindNext), notMulti, true,
     false, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) { return moveFrom(w, w.inst->FindNext, 0, 0); }},
    {"FindPrevWithoutChains", "MORVAFindPrev", offsetof(MORVAInst, FindPrev), notMulti, true,
     false, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) { return moveFrom(w, w.inst->FindPrev, 0, 0); }},
    {"ReplaceDup", "MORVAReplaceDup", offsetof(MORVAInst, ReplaceDup), any, true,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return w.inst->ReplaceDup(w.inst, w.dataOf(kSingle), &kNewData); },
     [](World &w) { overwrite(w, kSingle); }},
    {"ReplaceDupOfAFurtherRecord", "MORVAReplaceDup", offsetof(MORVAInst, ReplaceDup), multi, true,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return w.inst->ReplaceDup(w.inst, w.dataOf(kLong, 2), &kNewData); },
     [](World &w) { w.content.keys[kLong].records[2] = {kNewData, 1.0}; }},

    // ---- sums
    {"SetSumInc", "MORVASetSumInc", offsetof(MORVAInst, SetSumInc), any, false,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       w.inst->SetSumInc(w.inst, 2.0);
       const bool right = w.inst->sumIncrement == (w.has(flagSum) ? 2.0 : 0.0);
       w.inst->SetSumInc(w.inst, 1.0);
       return ifRight(MORVA_OK, right);
     }},
    {"SumOfAPresentKey", "MORVASum", offsetof(MORVAInst, Sum), sums, true,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return sum(w, kLong, 1.0); }},
    {"SumOfAnAbsentKey", "MORVASum", offsetof(MORVAInst, Sum), sums, false,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return sum(w, kAbsent, 0.0); }},
    {"SumOfAnOverlongKey", "MORVASum", offsetof(MORVAInst, Sum), fixedAndSums, false,
     true, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) { return w.inst->Sum(w.inst, kOverlongKey, kOverlong, &w.answers.sum); },
     loseNode},
    {"SumWithoutSums", "MORVASum", offsetof(MORVAInst, Sum), noSums, true,
     false, false, Unlinks::nothing, false, false, MORVA_NO_SUM,
     [](World &w) { return sum(w, kLong, 1.0); }},
    {"SumDup", "MORVASumDup", offsetof(MORVAInst, SumDup), sumsAndMulti, true,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       const uint32_t status = w.inst->SumDup(w.inst, w.dataOf(kLong, 1), &w.answers.sum);
       return ifRight(status, w.answers.sum == 1.0);
     }},
    {"SumDupWithoutChains", "MORVASumDup", offsetof(MORVAInst, SumDup), notMulti, true,
     false, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) -> uint32_t {
       return w.inst->SumDup(w.inst, w.dataOf(kLong), &w.answers.sum);
     }},
    {"SumDupWithoutSums", "MORVASumDup", offsetof(MORVAInst, SumDup), multiWithoutSums, true,
     false, false, Unlinks::nothing, false, false, MORVA_NO_SUM,
     [](World &w) -> uint32_t {
       return w.inst->SumDup(w.inst, w.dataOf(kLong, 1), &w.answers.sum);
     }},
    {"SumKeyWithoutSums", "MORVASumKey", offsetof(MORVAInst, SumKey), noSums, true,
     false, false, Unlinks::nothing, false, false, MORVA_NO_SUM,
     [](World &w) -> uint32_t {
       return w.inst->SumKey(w.inst, w.dataOf(kSingle), &w.answers.sum, 0);
     }},
    {"SumKey", "MORVASumKey", offsetof(MORVAInst, SumKey), sums, true,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       const uint32_t status = w.inst->SumKey(w.inst, w.dataOf(kSingle), &w.answers.sum, 0);
       return ifRight(status, w.answers.sum == 1.0);
     },
     [](World &w) {
       std::memcpy(&w.content.keys[kSingle].records[0].data, &w.answers.sum, sizeof(double));
     }},

    // ---- removing
    {"RemoveOfAPresentKey", "MORVARemove", offsetof(MORVAInst, Remove), any, true,
     true, false, Unlinks::one, false, false, MORVA_OK,
     [](World &w) { return w.inst->Remove(w.inst, w.key(kLong), w.length(kLong)); },
     [](World &w) { w.content.remove(kLong); }},
    {"RemoveOfAnAbsentKey", "MORVARemove", offsetof(MORVAInst, Remove), any, false,
     true, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) { return w.inst->Remove(w.inst, w.key(kAbsent), w.length(kAbsent)); }},
    {"RemoveOfAnOverlongKey", "MORVARemove", offsetof(MORVAInst, Remove), fixed, false,
     true, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) { return w.inst->Remove(w.inst, kOverlongKey, kOverlong); }},
    {"RemoveOfAPinnedKey", "MORVARemove", offsetof(MORVAInst, Remove), any, true,
     true, false, Unlinks::nothing, false, false, MORVA_PINNED,
     [](World &w) { return w.inst->Remove(w.inst, w.key(kLong), w.length(kLong)); }, nullptr,
     pinLong},
    {"RemoveDupOfTheFirst", "MORVARemoveDup", offsetof(MORVAInst, RemoveDup), multi, true,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return removeDup(w, kLong, 0); },
     [](World &w) { w.content.removeRecord(kLong, 0); }},
    {"RemoveDupOfAMiddleRecord", "MORVARemoveDup", offsetof(MORVAInst, RemoveDup), multi, true,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return removeDup(w, kLong, 2); },
     [](World &w) { w.content.removeRecord(kLong, 2); }},
    {"RemoveDupOfTheLast", "MORVARemoveDup", offsetof(MORVAInst, RemoveDup), multi, true,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return removeDup(w, kLong, 4); },
     [](World &w) { w.content.removeRecord(kLong, 4); }},
    {"RemoveDupOfTheOnlyRecord", "MORVARemoveDup", offsetof(MORVAInst, RemoveDup), multi, true,
     true, false, Unlinks::one, false, false, MORVA_OK,
     [](World &w) { return removeDup(w, kSingle, 0); },
     [](World &w) { w.content.remove(kSingle); }},
    {"RemoveDupOfAnOverlongKey", "MORVARemoveDup", offsetof(MORVAInst, RemoveDup), fixedAndMulti,
     true, true, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) {
       w.answers.cursor = w.answers.cursorBefore = w.dataOf(kLong, 1);
       return w.inst->RemoveDup(w.inst, &w.answers.cursor, kOverlongKey, kOverlong);
     }},
    {"RemoveDupOfAPinnedKey", "MORVARemoveDup", offsetof(MORVAInst, RemoveDup), multi, true,
     false, false, Unlinks::nothing, false, false, MORVA_PINNED,
     [](World &w) { return removeDup(w, kLong, 2); }, nullptr, pinLong},
    {"RemoveDupBesideAPinnedKey", "MORVARemoveDup", offsetof(MORVAInst, RemoveDup), multi, true,
     true, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) { return removeDup(w, 1, 1); },
     [](World &w) { w.content.removeRecord(1, 1); }, pinLong},
    {"RemoveDupWithoutChains", "MORVARemoveDup", offsetof(MORVAInst, RemoveDup), notMulti, true,
     false, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) { return removeDup(w, kLong, 0); }},
    {"Clear", "MORVAClear", offsetof(MORVAInst, Clear), any, false,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) -> uint32_t { return w.inst->Clear(w.inst); },
     [](World &w) { w.content.clear(); }},
    {"Clear2", "MORVAClear2", offsetof(MORVAInst, Clear2), any, false,
     false, false, Unlinks::all, false, false, MORVA_OK,
     [](World &w) -> uint32_t { return w.inst->Clear2(w.inst); },
     [](World &w) { w.content.clear(); }},

    // ---- whole instances, sizes
    {"Equals", "MORVAEquals", offsetof(MORVAInst, Equals), notVariable, false,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       const uint32_t status = w.inst->Equals(w.inst, w.other, &w.answers.number);
       return ifRight(status, w.answers.number == (w.content.elements == 0 ? 1 : 0));
     }, nullptr, [](World &w) { w.makeOther(); }},
    {"EqualsOfItself", "MORVAEquals", offsetof(MORVAInst, Equals), notVariable, false,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       const uint32_t status = w.inst->Equals(w.inst, w.inst, &w.answers.number);
       return ifRight(status, w.answers.number == 1);
     }},
    {"EqualsOfVariableKeys", "MORVAEquals", offsetof(MORVAInst, Equals), variable, false,
     false, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) -> uint32_t { return w.inst->Equals(w.inst, w.inst, &w.answers.number); }},
    {"NumElements", "MORVANumElements", offsetof(MORVAInst, NumElements), any, false,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       return ifRight(MORVA_OK, w.inst->NumElements(w.inst) == w.content.elements);
     }},
    {"HashSize", "MORVAHashSize", offsetof(MORVAInst, HashSize), any, false,
     false, false, Unlinks::nothing, false, false, 1,
     [](World &w) { return w.inst->HashSize(w.inst); }},
    {"BucketSize", "MORVABucketSize", offsetof(MORVAInst, BucketSize), any, false,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       return ifRight(MORVA_OK, w.inst->BucketSize(w.inst, 0) == w.content.elements &&
                                    w.inst->BucketSize(w.inst, 1) == 0);
     }},
    {"RecSize", "MORVARecSize", offsetof(MORVAInst, RecSize), notVariable, false,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       return ifRight(MORVA_OK, w.inst->RecSize(w.inst) == w.shape().slotSizeFor(0));
     }},
    {"RecSizeOfVariableKeys", "MORVARecSize", offsetof(MORVAInst, RecSize), variable, false,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       // Of the last key.
       const uint32_t size = w.inst->RecSize(w.inst);
       return ifRight(MORVA_OK, size == ((w.inst->recordSize + 47) & ~15u));
     }},
    {"TotalMem", "MORVATotalMem", offsetof(MORVAInst, TotalMem), any, false,
     false, false, Unlinks::nothing, false, false, MORVA_OK,
     [](World &w) {
       const uint64_t expected = w.has(flagVarKey) ? 0 : recordBlocksOf(w.inst).bytes;
       return ifRight(MORVA_OK, w.inst->TotalMem(w.inst) == expected);
     }},

    // ---- the definition, closed
    {"DefineKeyOnceMore", "MORVADefineKey", offsetof(MORVAInst, DefineKey), any, false,
     false, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) -> uint32_t { return w.inst->DefineKey(w.inst, &kRowFields[0]); }},
    {"DefineDoneOnceMore", "MORVADefineDone", offsetof(MORVAInst, DefineDone), any, false,
     false, false, Unlinks::nothing, false, false, MORVA_INVALID,
     [](World &w) -> uint32_t { return w.inst->DefineDone(w.inst, 0, 8); }},
};
// clang-format on

}  // namespace

Sequence expectedSequence(const Operation &operation, uint32_t flags, Stock stock) {
  const bool ordered = (flags & flagOrdered) != 0;
  Sequence expected;
  // A node comes from a block where none is free.
  if (operation.takesNode && stock != Stock::spare) {
    expected.add((flags & flagVarKey) != 0 ? Asked::varkeyBlock : Asked::recordBlock);
  }
  // A new key of an order has an order node, and those are all in use.
  if (operation.appends && ordered) expected.add(Asked::inodeBlock);
  // A key that goes leaves the order.
  int gone = 0;
  if (operation.unlinks == Unlinks::one) gone = 1;
  if (operation.unlinks == Unlinks::all && stock != Stock::none) gone = kMostStored;
  for (int i = 0; ordered && i < gone; ++i) expected.add(Asked::unlink);
  return expected;
}

void PrintTo(const Operation &operation, std::ostream *out) {
  *out << operation.name;
}

const std::vector<Operation> &sweptOperations() {
  return kOperations;
}

}  // namespace fault_test
