#include "operations.h"

#include <ostream>

namespace morva_test {
namespace {

constexpr uint32_t kMulti = flagMultiData;

Table &t(World &world) {
  return *world.table;
}

// The cursor of record `index` of a key, without asking the library: "k00" to "k15" were the first
// sixteen records of their instance.
uint32_t removeDup(World &world, const char *key, size_t index) {
  DupLinks *pair = nullptr;
  Table &table = t(world);
  for (RecordNode *node = table->tree->first(table->tree, table.bucket()); node != nullptr;
       node = table->tree->next(node)) {
    if (std::string_view(table.base(node) + (table.shape().raw() ? 8 : 0), 3) == key) {
      pair = table.links(node);
    }
  }
  for (; index > 0; index--) pair = pair->next;
  void *const data = pair + 1;
  void *cursor = data;
  const MORVAStatus status = table.removeDup(&cursor, key);
  EXPECT_EQ(cursor, status == MORVA_OK ? nullptr : data);
  return status;
}

// A data pointer of "k01" for the operations that need nothing but a cursor.
void *cursorOf(World &world, size_t index) {
  Table &table = t(world);
  DupLinks *pair = table.links(table->tree->first(table->tree, table.bucket()));
  for (; index > 0; index--) pair = pair->next;
  return pair + 1;
}

void set(World &world, const char *key, const std::string &text) {
  world.content[key] = text;
}

void empty(World &world) {
  world.setAll(kAbsent);
}

// Sums move on these; the content check wants them unmoved.
void withoutIncrement(World &world, const std::function<void()> &call) {
  t(world)->sumIncrement = 0.0;
  call();
  t(world)->sumIncrement = 1.0;
}

template <typename Call>
std::function<uint32_t(World &)> unmoved(Call call) {
  return [call](World &world) {
    uint32_t result = 0;
    withoutIncrement(world, [&] { result = call(world); });
    return result;
  };
}

// clang-format off
const std::vector<SweptOperation> kOperations = {
    // name, needs, excludes, can fail, releases, result, call, effect, added
    {"AddOfANewKey", 0, 0, true, false, MORVA_OK,
     [](World &w) { return t(w).add("new", "n"); },
     [](World &w) { set(w, "new", "n"); }, "new"},
    {"AddOfAPresentKey", 0, kMulti, true, false, MORVA_PRESENT,
     [](World &w) { return t(w).add("k03", "n"); }, {}, ""},
    {"AddOfAFurtherRecord", kMulti, 0, true, false, MORVA_OK,
     [](World &w) { return t(w).add("k03", "n"); },
     [](World &w) { set(w, "k03", "d3 f0 f1 n"); }, ""},
    {"ReplaceOfANewKey", 0, 0, true, false, MORVA_OK,
     [](World &w) { return t(w).replace("new", "n"); },
     [](World &w) { set(w, "new", "n"); }, "new"},
    {"ReplaceOfAPresentKey", 0, kMulti, true, false, MORVA_OK,
     [](World &w) { return t(w).replace("k03", "n"); },
     [](World &w) { set(w, "k03", "n"); }, ""},
    {"ReplaceOfAChain", kMulti, 0, true, false, MORVA_OK,
     [](World &w) { return t(w).replace("k03", "n"); },
     [](World &w) { set(w, "k03", "n n n"); }, ""},
    {"FindOfAPresentKey", 0, 0, true, false, MORVA_OK,
     unmoved([](World &w) { return t(w).find("k03", nullptr); }), {}, ""},
    {"FindOfAnAbsentKey", 0, 0, true, false, MORVA_OK,
     [](World &w) { return t(w).find("new", nullptr); }, {}, ""},
    {"GeneralFind", 0, 0, true, false, MORVA_OK,
     unmoved([](World &w) { return MORVAFind(t(w).get(), t(w).key("k03").data(), 3, nullptr); }),
     {}, ""},
    {"FindNodeOfAPresentKey", 0, 0, true, true, MORVA_OK,
     [](World &w) { return t(w).findNode("k03", nullptr, nullptr); }, {}, ""},
    {"FindNodeOfAnAbsentKey", 0, 0, true, true, MORVA_OK,
     [](World &w) { return t(w).findNode("new", nullptr, nullptr); }, {}, ""},
    {"HashVal", 0, 0, true, false, MORVA_OK,
     [](World &w) { return t(w).hashVal("k03", nullptr); }, {}, ""},
    {"SumOfAPresentKey", flagSum, 0, true, false, MORVA_OK,
     [](World &w) { return t(w).sum("k03", nullptr); }, {}, ""},
    {"SumOfAnAbsentKey", flagSum, 0, true, false, MORVA_OK,
     [](World &w) { return t(w).sum("new", nullptr); }, {}, ""},
    {"RemoveOfAPresentKey", 0, 0, true, false, MORVA_OK,
     [](World &w) { return t(w).remove("k03"); },
     [](World &w) { set(w, "k03", kAbsent); }, ""},
    {"RemoveOfAnAbsentKey", 0, 0, true, false, MORVA_INVALID,
     [](World &w) { return t(w).remove("new"); }, {}, ""},
    {"RemoveDupOfTheFirst", kMulti, 0, true, false, MORVA_OK,
     [](World &w) { return removeDup(w, "k00", 0); },
     [](World &w) { set(w, "k00", "f0 f1 f2 f3"); }, ""},
    {"RemoveDupOfAMiddleRecord", kMulti, 0, true, false, MORVA_OK,
     [](World &w) { return removeDup(w, "k00", 2); },
     [](World &w) { set(w, "k00", "d0 f0 f2 f3"); }, ""},
    {"RemoveDupOfTheLast", kMulti, 0, true, false, MORVA_OK,
     [](World &w) { return removeDup(w, "k00", 4); },
     [](World &w) { set(w, "k00", "d0 f0 f1 f2"); }, ""},
    {"RemoveDupOfTheOnlyRecord", kMulti, 0, true, false, MORVA_OK,
     [](World &w) { return removeDup(w, "k15", 0); },
     [](World &w) { set(w, "k15", kAbsent); }, ""},

    {"Find2", 0, 0, false, false, MORVA_OK,
     unmoved([](World &w) { return t(w).find2("k03", nullptr); }), {}, ""},
    {"HasNext", kMulti, 0, false, false, 1,
     [](World &w) { return t(w)->HasNext(t(w).get(), cursorOf(w, 0)); }, {}, ""},
    {"HasPrev", kMulti, 0, false, false, 1,
     [](World &w) { return t(w)->HasPrev(t(w).get(), cursorOf(w, 1)); }, {}, ""},
    {"FindNext", kMulti, 0, false, false, MORVA_OK,
     unmoved([](World &w) { return t(w)->FindNext(t(w).get(), cursorOf(w, 0), nullptr); }), {}, ""},
    {"FindPrev", kMulti, 0, false, false, MORVA_OK,
     unmoved([](World &w) { return t(w)->FindPrev(t(w).get(), cursorOf(w, 1), nullptr); }), {}, ""},
    {"ReplaceDup", kMulti, 0, false, false, MORVA_OK,
     [](World &w) { return t(w).replaceDup(cursorOf(w, 1), "n"); },
     [](World &w) { set(w, "k00", "d0 n f1 f2 f3"); }, ""},
    {"SumDup", kMulti | flagSum, 0, false, false, MORVA_OK,
     [](World &w) { return t(w)->SumDup(t(w).get(), cursorOf(w, 1), nullptr); }, {}, ""},
    {"SumKey", kMulti | flagSum, 0, false, false, MORVA_OK,
     [](World &w) { return t(w)->SumKey(t(w).get(), cursorOf(w, 1), nullptr, 0); }, {}, ""},
    {"Equals", 0, flagVarKey, false, false, MORVA_OK,
     [](World &w) {
       uint32_t equal = 9;
       const uint32_t status = t(w)->Equals(t(w).get(), w.other->get(), &equal);
       EXPECT_EQ(equal, 0u);
       return status;
     }, {}, ""},
    {"Clear", 0, 0, false, false, MORVA_OK,
     [](World &w) { return t(w)->Clear(t(w).get()); }, empty, ""},
    {"Clear2", 0, 0, false, false, MORVA_OK,
     [](World &w) { return t(w)->Clear2(t(w).get()); }, empty, ""},
};
// clang-format on

}  // namespace

void PrintTo(const SweptOperation &operation, std::ostream *out) {
  *out << operation.name;
}

const std::vector<SweptOperation> &sweptOperations() {
  return kOperations;
}

}  // namespace morva_test
