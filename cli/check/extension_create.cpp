// Making instances, and refusing to.
#include <cstring>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

// What is left of a creation that was refused: the extension's pool and its object.
void expectOnlyTheExtension(const Lab &lab, const std::string &after) {
  expectEqual(lab.host.alive(), std::string("1 pools, 1 blocks"), "what is alive " + after);
}

void refusesNull(const Subject &subject) {
  Lab lab(subject);
  MORVAParms parms = Shape{}.parms();
  expect(lab.ext->Create(nullptr, &parms, nullptr, "x") == nullptr,
         "Create without an extension object answered an instance");
  expect(lab.ext->Create(lab.ext, nullptr, nullptr, "x") == nullptr,
         "Create without parameters answered an instance");
  expectOnlyTheExtension(lab, "after refused creations");
}

void refusesFlags(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags :
       {uint32_t{flagFixedKey | flagVarKey}, uint32_t{flagVarKey | flagMultiData},
        uint32_t{flagVarKey | flagSum}}) {
    expect(createInstance(lab.ext, {.flags = flags}) == nullptr,
           "Create accepted the option bits " + shownStatus(flags));
    expectOnlyTheExtension(lab, "after a creation refused for its option bits");
  }
  lab.expectNoComplaints();
}

void refusesRecordsTooLarge(const Subject &subject) {
  Lab lab(subject);
  for (const Shape &shape : {Shape{.dataLength = 0xFFFFFFFF}, Shape{.keyLength = 0xFFFFFFFF},
                             Shape{.dataLength = 0x80000000, .keyLength = 0x7FFFFFF0}}) {
    expect(createInstance(lab.ext, shape) == nullptr,
           "Create accepted records that do not fit in 32 bits");
    expectOnlyTheExtension(lab, "after a creation refused for its size");
  }
}

void choosesTheBucketCount(const Subject &subject) {
  Lab lab(subject);
  const int32_t wanted[][2] = {{-1, 8},  {-2147483647, 8}, {0, 0},   {1, 1},          {8, 8},
                               {12, 12}, {20, 20},         {21, 20}, {2147483647, 20}};
  for (const auto &[given, used] : wanted) {
    MORVAParms parms = Shape{.hashExp = given}.parms();
    MORVAInst *inst = lab.ext->Create(lab.ext, &parms, nullptr, nullptr);
    expect(inst != nullptr, "Create answered null with hashExp " + shown(given));
    expectEqual(parms.hashExp, used, "hashExp written back for " + shown(given));
    expectEqual(inst->HashSize(inst), 1U << used, "HashSize for hashExp " + shown(given));
    inst->Destroy(inst);
  }
}

void choosesTheHashMethod(const Subject &subject) {
  Lab lab(subject);
  const int32_t wanted[][2] = {{-5, 2}, {0, 2}, {1, 2}, {2, 2}, {3, 3},  {4, 4},   {5, 5},
                               {6, 6},  {7, 7}, {8, 8}, {9, 9}, {10, 2}, {1000, 2}};
  for (const auto &[given, used] : wanted) {
    MORVAInst *inst = createInstance(lab.ext, {.hashMethod = given});
    expect(inst != nullptr, "Create answered null with hashMethod " + shown(given));
    expectEqual(inst->hashMethod, static_cast<uint32_t>(used),
                "the method in use for hashMethod " + shown(given));
    inst->Destroy(inst);
  }
}

void onlyReadsTheParameters(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t mode : kKeyModes) {
    MORVAParms parms = Shape{.flags = mode, .hashMethod = 77, .memHint = -3}.parms();
    parms.reserved[0] = parms.reserved[1] = parms.reserved[2] = 0xABCDEF01;
    const MORVAParms before = parms;
    MORVAInst *inst = lab.ext->Create(lab.ext, &parms, nullptr, "x");
    expect(inst != nullptr, "Create answered null");
    expect(std::memcmp(&parms, &before, sizeof parms) == 0,
           "Create changed its parameters although hashExp was in order");
    inst->Destroy(inst);
  }
}

void copiesTheName(const Subject &subject) {
  Lab lab(subject);
  std::string name = "orders by customer";
  MORVAInst *inst = createInstance(lab.ext, {}, name.c_str());
  expect(inst != nullptr && inst->name != nullptr, "an instance has no copy of its name");
  expect(inst->name != name.c_str(), "the instance keeps the caller's name and no copy");
  expect(std::memcmp(inst->name, name.data(), name.size()) == 0, "the copied name is another");
  expectEqual(lab.host.blockSize(inst->name), uint64_t{name.size()},
              "the size of the copied name's block, which has no terminator,");
  MORVAInst *nameless = createInstance(lab.ext, {}, nullptr);
  expect(nameless != nullptr && nameless->name == nullptr,
         "an instance without a name is not made, or has one");
  expect(createInstance(lab.ext, {}, "") != nullptr, "Create answered null for an empty name");
  lab.expectNoComplaints();
}

void namesAreOptional(const Subject &subject) {
  Lab lab(subject);
  lab.host.failCall(Call::allocate, 2);
  MORVAInst *inst = createInstance(lab.ext, {}, "a name");
  expectEqual(lab.host.failuresDelivered(), uint64_t{1}, "the number of refused allocations");
  lab.host.failNever();
  expect(inst != nullptr, "Create answered null because the name could not be copied");
  expect(inst->name == nullptr, "the name that could not be copied is not null");
  inst->Destroy(inst);
  lab.expectNoComplaints();
}

void fillsTheInstance(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags : allFlags()) {
    const Shape shape{.flags = flags};
    MORVAInst *inst = createInstance(lab.ext, shape);
    const std::string kind = ", " + described(shape);
    expect(inst != nullptr, "Create answered null" + kind);
    expect(std::memcmp(inst->eyeCatcher, "nevo", 4) == 0, "the eye-catcher is not \"nevo\"" + kind);
    expect(inst->ext == lab.ext, "`ext` is not the extension object" + kind);
    expectEqual(inst->flags & ~uint32_t{flagDefined}, flags, "`flags`" + kind);
    expectEqual((inst->flags & flagDefined) != 0, !shape.packed(), "the bit flagDefined" + kind);
    expectEqual(inst->modeBits, flags & 0x64, "`modeBits`" + kind);
    expectEqual(inst->recordPool != nullptr, shape.has(flagFixedKey), "having `recordPool`" + kind);
    expectEqual(inst->varkeyPool != nullptr, shape.has(flagVarKey), "having `varkeyPool`" + kind);
    expectEqual(inst->inodePool != nullptr, shape.has(flagOrdered), "having `inodePool`" + kind);
    expectEqual(inst->recordPacker != nullptr, shape.packed(), "having `recordPacker`" + kind);
    expectEqual(inst->vpExt != nullptr, shape.packed(), "having `vpExt`" + kind);
    expectEqual(inst->orderList != nullptr, shape.has(flagOrdered), "having `orderList`" + kind);
    expectEqual(inst->aiExt != nullptr, shape.has(flagOrdered), "having `aiExt`" + kind);
    expectEqual(inst->lock == nullptr, shape.has(flagNoLock), "having no `lock`" + kind);
    expect(inst->tree != nullptr && inst->treeExt != nullptr && inst->buckets != nullptr,
           "there is no tree container or bucket array" + kind);
    expect(inst->recordBlocks == nullptr && inst->inodeBlocks == nullptr &&
               inst->freeRecords == nullptr && inst->freeInodes == nullptr &&
               inst->pinned == nullptr && inst->extraBlocksB == nullptr,
           "a chain of a new instance is not empty" + kind);
    expectEqual(inst->totalMem, uint64_t{0}, "`totalMem`" + kind);
    inst->Destroy(inst);
  }
}

void fillsTheOperations(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t mode : kKeyModes) {
    const MORVAInst *inst = createInstance(lab.ext, {.flags = mode});
    expect(inst != nullptr, "Create answered null");
    for (size_t offset = offsetof(MORVAInst, Destroy); offset != offsetof(MORVAInst, keyLength);
         offset += sizeof(void *)) {
      const void *slot = nullptr;
      std::memcpy(&slot, reinterpret_cast<const char *>(inst) + offset, sizeof slot);
      expect(slot != nullptr, "the operation at offset " + shown(offset) + " is null");
    }
    expect(inst->Clear2 != nullptr && inst->Find2 != nullptr && inst->Recoff != nullptr &&
               inst->FindNode != nullptr,
           "one of the later four operations is null");
  }
}

void makesThePools(const Subject &subject) {
  Lab lab(subject);
  const auto pools = [&](uint32_t flags) {
    lab.host.forget();
    const Table table(lab, {.flags = flags});
    std::string text;
    for (const Event &event : lab.host.eventsOf(Call::createPool)) {
      expectEqual(event.a, uint64_t{0}, "the context word of the pool \"" + event.text + '"');
      text += event.text + '=' + shownStatus(static_cast<uint32_t>(event.b)) + ' ';
    }
    return text;
  };
  expectEqual(pools(flagFixedKey), std::string("records=0x01000000 "), "the pools of fixed keys");
  expectEqual(pools(flagVarKey), std::string("varkeys=0x80000000 "), "the pools of variable keys");
  expectEqual(pools(0), std::string("records=0x01000000 "), "the pools of packed keys");
  expectEqual(pools(flagFixedKey | flagOrdered), std::string("records=0x01000000 inodes=0 "),
              "the pools of fixed keys in order");
  lab.expectNoComplaints();
}

void makesTheLock(const Subject &subject) {
  Lab lab(subject);
  int word = 0;
  const char *name = "the name";
  for (const uint32_t option : {uint32_t{0}, uint32_t{flagLockOpt}}) {
    lab.host.forget();
    expect(createInstance(lab.ext, {.flags = flagFixedKey | option}, name, &word) != nullptr,
           "Create answered null");
    const std::vector<Event> locks = lab.host.eventsOf(Call::createLock);
    expectEqual(locks.size(), size_t{1}, "the number of locks of an instance");
    expect(locks[0].a == reinterpret_cast<uintptr_t>(&word),
           "the caller's context word did not reach createLock");
    expectEqual(locks[0].text, std::string(name), "the name given to createLock");
    expectEqual(locks[0].b, uint64_t{0}, "the first option byte of the lock");
    expectEqual(locks[0].c, uint64_t{option == 0}, "the second option byte of the lock");
  }
  lab.host.forget();
  expect(createInstance(lab.ext, {.flags = flagFixedKey | flagNoLock}) != nullptr,
         "Create answered null");
  expectEqual(lab.host.count(Call::createLock), uint64_t{0}, "the number of locks with flagNoLock");
  lab.expectNoComplaints();
}

void loadsTheCompanions(const Subject &subject) {
  Lab lab(subject);
  const auto companions = [&](uint32_t flags) {
    lab.host.forget();
    expect(createInstance(lab.ext, {.flags = flags}) != nullptr, "Create answered null");
    std::string text;
    for (const Event &event : lab.host.eventsOf(Call::loadExtension)) {
      expectEqual(event.b, uint64_t{0}, "the last argument of loadExtension");
      text += event.text + ' ';
    }
    return text;
  };
  expectEqual(companions(flagFixedKey), std::string("qzeavl "), "the companions of fixed keys");
  expectEqual(companions(flagVarKey | flagOrdered), std::string("qzeavl qzeai "),
              "the companions of variable keys in order");
  const std::vector<Event> lists = lab.host.eventsOf(Call::makeOrderList);
  expectEqual(lists.size(), size_t{1}, "the number of order lists");
  expect(lists[0].c != 0, "makeOrderList was not given the companion \"qzeavl\"");
  expectEqual(companions(0), std::string("qzevp qzeavl "), "the companions of packed keys");
  const std::vector<Event> packers = lab.host.eventsOf(Call::makePacker);
  expectEqual(packers.size(), size_t{1}, "the number of packers");
  expectEqual(packers[0].a, uint64_t{0}, "the argument of makePacker");
  const std::vector<Event> trees = lab.host.eventsOf(Call::makeTree);
  expectEqual(trees.size(), size_t{1}, "the number of tree containers");
  expectEqual(trees[0].a, uint64_t{0}, "the first word of the tree options");
  expectEqual(trees[0].b, uint64_t{1}, "the second word of the tree options");
  expectEqual(trees[0].d, uint64_t{0}, "the last two arguments of makeTree");
  expect(trees[0].c == reinterpret_cast<uintptr_t>(lab.file.find("aa_tree")),
         "makeTree was not given aa_tree");
  lab.expectNoComplaints();
}

void makesTheBuckets(const Subject &subject) {
  Lab lab(subject);
  for (const int32_t exponent : {0, 4, 11}) {
    const Table table(lab, {.hashExp = exponent});
    const uint64_t count = uint64_t{1} << exponent;
    BucketArray *buckets = table->buckets;
    expect(lab.host.blockSize(buckets) >= 16 * count + 32,
           "the bucket array has less than 16 bytes a bucket and 32 more");
    expectEqual(buckets->mask, static_cast<uint32_t>(count - 1), "the mask of the bucket array");
    expectEqual(buckets->elementCount, 0U, "the element count of a new instance");
    expectEqual(buckets->usedBuckets, 0U, "the used buckets of a new instance");
    for (uint32_t index = 0; index != count; ++index) {
      const Bucket *bucket = MORVABucketAt(buckets, index);
      expect(bucket->root == nullptr && bucket->count == 0,
             "a bucket of a new instance is not zero");
    }
  }
}

void ignoresTheDefinedBit(const Subject &subject) {
  Lab lab(subject);
  MORVAInst *inst = createInstance(lab.ext, {.flags = flagDefined});
  expect(inst != nullptr, "Create answered null for flagDefined");
  expectStatus(inst->Add(inst, "12345678", "key", 3), MORVA_INVALID,
               "Add on an instance whose key is not defined");
  expectStatus(defineField(inst, 8, 0), MORVA_OK, "DefineKey");
  expectStatus(inst->DefineDone(inst, 0, 8), MORVA_OK, "DefineDone");
}

void clearsTheUnorderedBit(const Subject &subject) {
  Lab lab(subject);
  MORVAInst *kept = createInstance(lab.ext, {.flags = flagFixedKey | flagUnordered});
  MORVAInst *ordered =
      createInstance(lab.ext, {.flags = flagFixedKey | flagUnordered | flagOrdered});
  expect(kept != nullptr && ordered != nullptr, "Create answered null");
  expect((kept->flags & flagUnordered) != 0, "flagUnordered was not kept without flagOrdered");
  expect((ordered->flags & flagUnordered) == 0, "flagUnordered was not cleared with flagOrdered");
}

struct Layout {
  Shape shape;
  uint32_t keyLength, sumOffset, dataOffset, slot;
};

void laysRecordsOut(const Subject &subject) {
  Lab lab(subject);
  constexpr uint32_t kFixed = flagFixedKey;
  const Layout layouts[] = {
      {{kFixed, 16, 8}, 20, 0, 24, 80},
      {{kFixed | flagSum, 16, 8}, 20, 24, 32, 80},
      {{kFixed | flagSum | flagMultiData, 16, 8}, 20, 24, 32, 112},
      {{kFixed, 0, 0}, 12, 0, 16, 48},
      {{kFixed, 1, 4}, 16, 0, 16, 64},
      {{0, 8, 16}, 16, 0, 16, 64},
      {{flagSum, 5, 13}, 13, 16, 24, 64},
  };
  for (const auto &[shape, keyLength, sumOffset, dataOffset, slot] : layouts) {
    const Table table(lab, shape);
    const std::string kind = " for keys of " + shown(shape.keyLength) + " and data of " +
                             shown(shape.dataLength) + " bytes, " + described(shape) + ',';
    expectEqual(table->keyLength, keyLength, "`keyLength`" + kind);
    if (shape.has(flagSum)) expectEqual(table->sumOffset, sumOffset, "`sumOffset`" + kind);
    expectEqual(table->dataOffset, dataOffset, "`dataOffset`" + kind);
    expectEqual(table->dataLength, shape.dataLength, "`dataLength`" + kind);
    expectEqual(table->RecSize(table.get()), slot, "RecSize" + kind);
  }
}

// Whether the host had already been asked for the lock, which stays with it then.
bool orderFailed(const Lab &lab) {
  return lab.host.locksAlive() != 0;
}

void failuresGiveBack(const Subject &subject) {
  for (const uint32_t flags : allFlags()) {
    const Shape shape{.flags = flags};
    for (uint64_t n = 1;; ++n) {
      Lab lab(subject);
      lab.host.failNth(n);
      MORVAInst *inst = createInstance(lab.ext, shape);
      const bool failed = lab.host.failuresDelivered() != 0;
      lab.host.failNever();
      const std::string kind = ", " + described(shape) + ", when call " + shown(n) + " fails";
      if (inst == nullptr) {
        expect(failed, "Create answered null" + kind + " that is not made");
        const bool lockLeft = orderFailed(lab) && shape.has(flagOrdered);
        expectEqual(lab.host.alive(),
                    std::string("1 pools, 1 blocks") + (lockLeft ? ", 1 locks" : ""),
                    "what is alive after Create" + kind);
      } else {
        expect(!failed || inst->name == nullptr, "Create answered an instance" + kind);
        inst->Destroy(inst);
        expectOnlyTheExtension(lab, "after Destroy" + kind);
      }
      lab.expectNoComplaints();
      if (!failed) break;
      expect(n < 100, "Create calls the host more than a hundred times");
    }
  }
}

void leavesTheLockToTheHost(const Subject &subject) {
  Lab lab(subject);
  lab.host.failCall(Call::makeOrderList);
  expect(createInstance(lab.ext, {.flags = flagFixedKey | flagOrdered}) == nullptr,
         "Create answered an instance without an order list");
  expectEqual(lab.host.count(Call::destroyLock), uint64_t{0},
              "the number of locks destroyed when the order list cannot be made");
}

constexpr Check kChecks[] = {
    {"create.refuses-null", "Create answers null without an extension object or parameters.",
     refusesNull},
    {"create.refuses-exclusive-flags",
     "Create answers null for option bits that exclude each other, and gives everything back.",
     refusesFlags},
    {"create.refuses-large-records",
     "Create answers null for a record that does not fit in 32 bits.", refusesRecordsTooLarge},
    {"create.chooses-the-bucket-count",
     "hashExp is taken from 0 to 20, 8 for less and 20 for more, and written back.",
     choosesTheBucketCount},
    {"create.chooses-the-hash-method",
     "hashMethod is taken from 2 to 9, and 2 for any other value.", choosesTheHashMethod},
    {"create.only-reads-the-parameters", "Create changes nothing of its parameters but hashExp.",
     onlyReadsTheParameters},
    {"create.copies-the-name", "The instance has a copy of its name, without a terminator.",
     copiesTheName},
    {"create.does-without-a-name", "An instance is made without name when that cannot be copied.",
     namesAreOptional},
    {"create.fills-the-instance", "A new instance's fields say what it is and what it has.",
     fillsTheInstance},
    {"create.fills-the-operations", "Every operation slot of a new instance is filled.",
     fillsTheOperations},
    {"create.makes-the-pools", "An instance's pools have the names and option words of its mode.",
     makesThePools},
    {"create.makes-the-lock",
     "An instance's lock is made with its options, the caller's context and name; none with "
     "flagNoLock.",
     makesTheLock},
    {"create.loads-the-companions",
     "The companions that the mode needs are loaded, and given what they are to be given.",
     loadsTheCompanions},
    {"create.makes-the-buckets", "The bucket array is large enough, zero and has its mask.",
     makesTheBuckets},
    {"create.ignores-flag-defined", "flagDefined in the parameters defines nothing.",
     ignoresTheDefinedBit},
    {"create.clears-flag-unordered",
     "flagUnordered is kept as given, and cleared with flagOrdered.", clearsTheUnorderedBit},
    {"create.lays-records-out", "Key area, sum, data and slot have the places of their lengths.",
     laysRecordsOut},
    {"create.failures-give-back",
     "Whichever call of the host fails, Create answers null and keeps nothing.", failuresGiveBack},
    {"create.leaves-the-lock",
     "A creation that fails while the order list is made leaves its lock to the host.",
     leavesTheLockToTheHost},
};

}  // namespace

std::span<const Check> createChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
