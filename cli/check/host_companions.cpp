// Companions: how they are found by name, and how they are counted.

#include <string>
#include <string_view>
#include <vector>

#include "host_callbacks.h"
#include "host_checks.h"
#include "host_subject.h"

namespace morva::cli::check {

namespace {

// The places of what the library calls in a companion.
void answerToTheirNames(const Subject &subject) {
  Host host(subject);
  RecordPackerExt *packers = host.packers();
  TreeExt *trees = host.trees();
  OrderListExt *lists = host.lists();
  for (const unsigned slot : {2U, 9U}) expectSlot(packers, slot, "the companion \"qzevp\"");
  for (const unsigned slot : {2U, 9U}) expectSlot(trees, slot, "the companion \"qzeavl\"");
  for (const unsigned slot : {2U, 10U, 11U, 12U}) {
    expectSlot(lists, slot, "the companion \"qzeai\"");
  }
  packers->release(packers);
  trees->release(trees);
  lists->release(lists);
  host.endWithNothingLeft();
}

void expectUnknown(const Host &host, std::u32string_view name, const char *shownName) {
  const LentBytes lent(name.data(), name.size() * sizeof(char32_t));
  expect(host.services()->loadExtension(host.services(), lent.as<uint32_t>(), name.size(), 0) ==
             nullptr,
         std::string("loadExtension answers something for the name \"") + shownName + '"');
}

void answerToNoOtherNames(const Subject &subject) {
  Host host(subject);
  expectUnknown(host, U"qzeax", "qzeax");
  expectUnknown(host, U"abcde", "abcde");
  expectUnknown(host, U"qzeaj", "qzeaj");
  expectUnknown(host, U"qzeavm", "qzeavm");
  // Whose lowest bytes are those of a name.
  expectUnknown(host, std::u32string_view(U"\U00000171\U0000017A\U00000165\U00000176\U00000170", 5),
                "\\u0171\\u017a\\u0165\\u0176\\u0170");
  host.endWithNothingLeft();
}

void heedTheLength(const Subject &subject) {
  Host host(subject);
  expectUnknown(host, U"", "");
  expectUnknown(host, U"q", "q");
  expectUnknown(host, U"qzev", "qzev");
  expectUnknown(host, U"qzea", "qzea");
  expectUnknown(host, U"qzeav", "qzeav");
  expectUnknown(host, U"qzevpp", "qzevpp");
  expectUnknown(host, U"qzeaii", "qzeaii");
  expectUnknown(host, U"qzeavll", "qzeavll");
  // Not what the characters behind the name would make of it.
  expect(host.companion(U"qzeavl", 5) == nullptr,
         "loadExtension answers something for five characters of \"qzeavl\"");
  host.endWithNothingLeft();
}

void needNoTerminator(const Subject &subject) {
  Host host(subject);
  const auto load = [&](std::u32string_view name) {
    const LentBytes lent(name.data(), name.size() * sizeof(char32_t));
    void *companion =
        host.services()->loadExtension(host.services(), lent.as<uint32_t>(), name.size(), 0);
    expect(companion != nullptr, "a name without a terminator is not known");
    lent.takeBack();
    return companion;
  };
  auto *packers = static_cast<RecordPackerExt *>(load(U"qzevp"));
  auto *trees = static_cast<TreeExt *>(load(U"qzeavl"));
  auto *lists = static_cast<OrderListExt *>(load(U"qzeai"));
  for (const char32_t *longer : {U"qzevpx", U"qzeaix"}) {
    expect(host.companion(longer, 5) != nullptr,
           "a name that other characters follow is not known by its length");
  }
  packers->release(packers);
  packers->release(packers);
  trees->release(trees);
  lists->release(lists);
  lists->release(lists);
  host.endWithNothingLeft();
}

void loadSeveralTimes(const Subject &subject) {
  Host host(subject);
  // As instances do: each loads, makes its own object, and releases once.
  std::vector<RecordPackerExt *> packerExts;
  std::vector<RecordPacker *> packers;
  std::vector<TreeExt *> treeExts;
  std::vector<OrderListExt *> listExts;
  std::vector<OrderList *> lists;
  for (int i = 0; i < 5; ++i) {
    packerExts.push_back(host.packers());
    packers.push_back(packerExts.back()->makePacker(packerExts.back(), 0));
    expect(packers.back() != nullptr, "makePacker answers null");
    treeExts.push_back(host.trees());
    listExts.push_back(host.lists());
    lists.push_back(listExts.back()->makeOrderList(listExts.back(), treeExts.back()));
    expect(lists.back() != nullptr, "makeOrderList answers null");
  }
  MORVAInst owner{};
  std::vector<RecordNode> records(5, RecordNode{0, 0, &owner});
  std::vector<OrderNode> nodes(5);
  for (size_t i = 0; i < 5; ++i) {
    // The first ones are released while the later ones work.
    nodes[i].record = &records[i];
    listExts[i]->append(lists[i], &nodes[i]);
    const OrderNode image{nullptr, nullptr, &records[i]};
    expect(listExts[i]->unlink(lists[i], &image) == &nodes[i],
           "a list no longer works when an earlier user released the companion");
    packers[i]->destroy(packers[i]);
    packerExts[i]->release(packerExts[i]);
    lists[i]->destroy(lists[i]);
    treeExts[i]->release(treeExts[i]);
    listExts[i]->release(listExts[i]);
  }
  host.endWithNothingLeft();
}

void releaseInTheLibrarysOrder(const Subject &subject) {
  Host host(subject);
  const TreeOptions options{0, 0, 1, numberedCallbacks(), 0};
  for (int i = 0; i < 10; ++i) {
    RecordPackerExt *packers = host.packers();
    RecordPacker *packer = packers->makePacker(packers, 0);
    expect(packer != nullptr, "makePacker answers null");
    TreeExt *trees = host.trees();
    TreeContainer *tree = trees->makeTree(trees, &options, 0, 0);
    expect(tree != nullptr, "makeTree answers null");
    HostLock *lock = host.lock();
    OrderListExt *lists = host.lists();
    OrderList *list = lists->makeOrderList(lists, trees);
    expect(list != nullptr, "makeOrderList answers null");

    packer->destroy(packer);
    packers->release(packers);
    tree->destroy(tree);
    list->destroy(list);
    trees->release(trees);
    lists->release(lists);
    lock->destroy(lock);
  }
  host.endWithNothingLeft();
}

constexpr Check kChecks[] = {
    {"companions.answer-to-their-names",
     "loadExtension answers \"qzevp\", \"qzeavl\" and \"qzeai\", with the slots that are called.",
     answerToTheirNames},
    {"companions.answer-to-no-other-names",
     "loadExtension answers null for a name that is no companion's.", answerToNoOtherNames},
    {"companions.heed-the-length",
     "The name of a companion has the length that is given with it, no more and no less.",
     heedTheLength},
    {"companions.need-no-terminator",
     "The name of a companion is not read beyond its length, and not after the call.",
     needNoTerminator},
    {"companions.load-several-times",
     "Companions serve several instances, and go on after some of them have released theirs.",
     loadSeveralTimes},
    {"companions.release-in-the-librarys-order",
     "Objects and companions can be given back in the order in which instances are destroyed.",
     releaseInTheLibrarysOrder},
};

}  // namespace

std::span<const Check> hostCompanionChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
