// That the sweep is whole: all option bits, all operations, all services, and what of them is left
// out, each with its reason.
#include <gtest/gtest.h>

#include <bit>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "lifecycle.h"
#include "many_operations.h"
#include "operations.h"

namespace fault_test {
namespace {

// ---- option bits -----------------------------------------------------------------

TEST(OptionBits, AreAllThatTheHeaderHas) {
  // Eleven bits, the lowest ones: so every combination is a number below 2^11.
  EXPECT_EQ(std::popcount(kKnownBits), 11);
  EXPECT_EQ(kKnownBits, 0x7ffu);
  EXPECT_EQ(kCombinations, 2048u);

  std::ifstream header(FLAGS_HEADER);
  ASSERT_TRUE(header.is_open()) << FLAGS_HEADER;
  uint32_t inHeader = 0;
  int count = 0;
  for (std::string line; std::getline(header, line);) {
    std::istringstream words(line);
    std::string name, equals, value;
    if (!(words >> name >> equals >> value) || equals != "=" || name.compare(0, 4, "flag") != 0) {
      continue;
    }
    inHeader |= static_cast<uint32_t>(std::stoul(value, nullptr, 16));
    ++count;
  }
  EXPECT_EQ(inHeader, kKnownBits);
  EXPECT_EQ(count, 11);
}

// Every subset of the bits is either accepted by the rule or holds one of the three pairs that
// exclude each other.
TEST(OptionBits, AreCombinedInEveryAcceptedWay) {
  constexpr uint32_t kExcluded[] = {flagFixedKey | flagVarKey, flagVarKey | flagMultiData,
                                    flagVarKey | flagSum};
  const std::set<uint32_t> accepted(acceptedFlags().begin(), acceptedFlags().end());
  EXPECT_EQ(accepted.size(), acceptedFlags().size()) << "a combination is there twice";
  for (uint32_t flags = 0; flags < kCombinations; ++flags) {
    bool excluded = false;
    for (const uint32_t pair : kExcluded) excluded = excluded || (flags & pair) == pair;
    EXPECT_EQ(accepted.count(flags), excluded ? 0u : 1u) << textOf(flags);
  }
}

TEST(OptionBits, AreFreeButForTheKeyMode) {
  std::map<uint32_t, size_t> counts;
  for (const uint32_t flags : acceptedFlags()) ++counts[flags & (flagFixedKey | flagVarKey)];
  // Nine other bits, two of which a variable key excludes.
  EXPECT_EQ(counts[flagFixedKey], 512u);
  EXPECT_EQ(counts[flagVarKey], 128u);
  EXPECT_EQ(counts[0], 512u);
  EXPECT_EQ(acceptedFlags().size(), 1152u);
}

// Every operation is tried on each combination, on one of its ways at least.
TEST(OptionBits, MeetEveryOperation) {
  std::map<size_t, std::set<uint32_t>> met;
  for (const Operation &operation : sweptOperations()) {
    for (const uint32_t flags : acceptedFlags()) {
      if (operation.applies(flags)) met[operation.slot].insert(flags);
    }
  }
  for (const auto &[slot, flags] : met) {
    EXPECT_EQ(flags.size(), acceptedFlags().size()) << "slot " << slot;
  }
}

// ---- services --------------------------------------------------------------------

void note(const Sequence &sequence, std::set<Asked> *met) {
  for (size_t i = 0; i < sequence.size(); ++i) met->insert(sequence[i]);
}

// Each kind of call that can fail is met by a sweep, and so made to fail there. Which cannot, and
// why, is said at Asked.
TEST(Services, AreAllMetThatCanFail) {
  std::set<Asked> met;
  note(sequenceOfLoading(), &met);
  note(sequenceOfDefinition(1), &met);
  for (const uint32_t flags : acceptedFlags()) {
    note(sequenceOfCreation(flags, true), &met);
    for (const Operation &operation : sweptOperations()) {
      if (!operation.applies(flags)) continue;
      for (const Stock stock : kStocks) note(expectedSequence(operation, flags, stock), &met);
    }
  }
  for (size_t i = 0; i < kAskedKinds; ++i) {
    const auto asked = static_cast<Asked>(i);
    EXPECT_EQ(met.count(asked), 1u) << nameOf(asked);
  }
}

// ---- operations ------------------------------------------------------------------

TEST(Operations, AreAllThatAnInstanceHas) {
  std::set<size_t> slots;
  for (const Operation &operation : sweptOperations()) slots.insert(operation.slot);
  slots.erase(kByName);
  slots.insert(offsetof(MORVAInst, Destroy));  // ends every run, and has a test of its own
  std::set<size_t> inst;
  for (size_t at = offsetof(MORVAInst, Destroy); at <= offsetof(MORVAInst, TotalMem); at += 8) {
    inst.insert(at);
  }
  inst.insert({offsetof(MORVAInst, Clear2), offsetof(MORVAInst, Find2), offsetof(MORVAInst, Recoff),
               offsetof(MORVAInst, FindNode)});
  EXPECT_EQ(inst.size(), 29u);
  EXPECT_EQ(slots, inst);
}

// So what is called through an instance is the exported function, on every combination.
TEST(Operations, OfAnInstanceAreTheExportedFunctions) {
  for (const uint32_t flags : acceptedFlags()) {
    const World world(flags, Stock::none, false);
    ASSERT_NE(world.inst, nullptr) << textOf(flags);
    const MORVAInst &inst = *world.inst;
    const bool general = (flags & (flagSum | flagMultiData)) != 0;
    const std::string where = textOf(flags);
    EXPECT_EQ(inst.Add, general ? MORVAAdd : MORVAFastAdd) << where;
    EXPECT_EQ(inst.Replace, general ? MORVAReplace : MORVAFastReplace) << where;
    EXPECT_EQ(inst.Find, general ? MORVAFind : MORVAFastFind) << where;
#define EXPECT_INSTALLED(name) EXPECT_EQ(inst.name, MORVA##name) << where
    EXPECT_INSTALLED(Destroy);
    EXPECT_INSTALLED(Remove);
    EXPECT_INSTALLED(DefineKey);
    EXPECT_INSTALLED(DefineDone);
    EXPECT_INSTALLED(Sum);
    EXPECT_INSTALLED(FindNext);
    EXPECT_INSTALLED(FindPrev);
    EXPECT_INSTALLED(HasNext);
    EXPECT_INSTALLED(HasPrev);
    EXPECT_INSTALLED(SumDup);
    EXPECT_INSTALLED(SumKey);
    EXPECT_INSTALLED(ReplaceDup);
    EXPECT_INSTALLED(RemoveDup);
    EXPECT_INSTALLED(Clear);
    EXPECT_INSTALLED(Equals);
    EXPECT_INSTALLED(HashVal);
    EXPECT_INSTALLED(NumElements);
    EXPECT_INSTALLED(HashSize);
    EXPECT_INSTALLED(BucketSize);
    EXPECT_INSTALLED(SetSumInc);
    EXPECT_INSTALLED(RecSize);
    EXPECT_INSTALLED(TotalMem);
    EXPECT_INSTALLED(Clear2);
    EXPECT_INSTALLED(Find2);
    EXPECT_INSTALLED(Recoff);
    EXPECT_INSTALLED(FindNode);
#undef EXPECT_INSTALLED
  }
}

std::set<std::string> exportedBy(const char *map) {
  std::ifstream file(map);
  EXPECT_TRUE(file.is_open()) << map;
  std::set<std::string> names;
  bool global = false;
  for (std::string word; file >> word;) {
    if (word == "global:") {
      global = true;
    } else if (word == "local:") {
      global = false;
    } else if (global && word.back() == ';') {
      names.insert(word.substr(0, word.size() - 1));
    }
  }
  return names;
}

std::set<std::string> wordsOf(const std::string &text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

TEST(Operations, AreAllThatTheLibrariesExport) {
  std::set<std::string> swept = wordsOf(
      // Loading, creation, definition, destruction: lifecycle_sweep_test.cpp.
      "morva qzextent qzextver qzvercn1 MORVAGetReqVersion MORVAGetVersion MORVARealDestroy "
      "MORVACreate MORVADefineKey MORVADefineDone MORVADestroy skMemDup "
      // The host's own: host_limit_sweep_test.cpp, host_malloc_sweep_test.cpp.
      "QZHostCreate QZHostDestroy QZHostServices QZHostLoad QZHostAttach QZHostUnload "
      "QZHostGetStats QZHostGetPoolStats QZOrderFirst QZOrderLast QZOrderNext QZOrderPrev");
  for (const Operation &operation : sweptOperations()) swept.merge(wordsOf(operation.functions));
  for (const ManyOperation &operation : manyOperations()) swept.insert(operation.name);

  // No operation of an instance, and handed no service of the host: variables, the callbacks that
  // a tree container drives, and functions of their arguments alone.
  const std::set<std::string> withoutHost = wordsOf(
      "Exported_QZHandle MORVAHostForCheck aa_tree skUnsup skStrLen skStrTLen skStrCpy skStrTCpy "
      "skStrUp skStrLow "
      "skMemNot skMemTNot skMemSet skMemTSet skMemCmp skWMemCmp skMemCpy skMemSCpy skMemScan "
      "skMemNScan skMemTNScan skMissArray");
  std::set<std::string> all = swept;
  all.insert(withoutHost.begin(), withoutHost.end());
  EXPECT_EQ(all.size(), swept.size() + withoutHost.size());

  std::set<std::string> exported = exportedBy(MORVA_MAP);
  exported.merge(exportedBy(QZHOST_MAP));
  for (const std::string &name : exported)
    EXPECT_EQ(all.count(name), 1u) << name << " is not swept";
  for (const std::string &name : all) EXPECT_EQ(exported.count(name), 1u) << name << " is unknown";
}

}  // namespace
}  // namespace fault_test
