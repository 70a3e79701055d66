// The three key modes.
#include <algorithm>
#include <cstring>

#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

// Keys of every length up to `longest`, that differ in one byte, in zeros and in their length only.
std::vector<std::string> awkwardKeys(size_t longest) {
  std::vector<std::string> keys{""};
  for (size_t length = 1; length <= longest; ++length) {
    keys.emplace_back(length, '\0');
    keys.emplace_back(length, '\xFF');
    keys.emplace_back(length, 'a');
    keys.push_back(std::string(length - 1, 'a') + 'b');
    if (length > 1) keys.push_back('b' + std::string(length - 1, 'a'));
  }
  return keys;
}

void tellKeysApart(const Table &table, const std::vector<std::string> &keys) {
  for (size_t at = 0; at != keys.size(); ++at) table.mustAdd(keys[at], at);
  table.expectCount(static_cast<uint32_t>(keys.size()));
  for (size_t at = 0; at != keys.size(); ++at) {
    table.expectValue(keys[at], at);
    expectStatus(table.add(keys[at], 0), MORVA_PRESENT,
                 "Add of a key that is there, of " + shown(keys[at].size()) + " bytes");
  }
  for (size_t at = 0; at < keys.size(); at += 2) table.mustRemove(keys[at]);
  for (size_t at = 0; at != keys.size(); ++at) {
    if (at % 2 == 0) {
      table.expectAbsent(keys[at]);
    } else {
      table.expectValue(keys[at], at);
    }
  }
}

void fixedKeysOfAllLengths(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t longest : {1U, 7U, 8U, 40U}) {
    tellKeysApart(Table(lab, {.keyLength = longest}), awkwardKeys(longest));
  }
  lab.expectNoComplaints();
}

void fixedKeysWithRoom(const Subject &subject) {
  Lab lab(subject);
  const Table table(lab, {.keyLength = 8});
  tellKeysApart(table, awkwardKeys(12));
  expectEqual(table->keyLength, 20U, "`keyLength` of fixed keys of 8 bytes");
  lab.expectNoComplaints();
}

void fixedKeysTooLong(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t sums : {uint32_t{0}, uint32_t{flagSum | flagMultiData}}) {
    const Table table(lab, {.flags = flagFixedKey | sums, .keyLength = 8});
    table.mustAdd("here", 1);
    const std::string longest(20, 'x'), longer(21, 'x');
    expectStatus(table.add(longest, 2), MORVA_OK, "Add of a key of inst->keyLength bytes");
    expectStatus(table->Clear(table.get()), MORVA_OK, "Clear");
    table.mustAdd("here", 1);
    void *data = &lab;
    uint32_t bucket = 17;
    double sum = 17;
    expectStatus(table.add(longer, 2), MORVA_INVALID, "Add of a longer key");
    expectStatus(table.replace(longer, 2), MORVA_INVALID, "Replace of a longer key");
    expectStatus(table.find(longer, &data), MORVA_INVALID, "Find of a longer key");
    expectStatus(table.remove(longer), MORVA_INVALID, "Remove of a longer key");
    expectStatus(table->HashVal(table.get(), longer.data(), 21, &bucket), MORVA_INVALID,
                 "HashVal of a longer key");
    if (sums != 0) {
      expectStatus(table->Sum(table.get(), longer.data(), 21, &sum), MORVA_INVALID,
                   "Sum of a longer key");
    }
    expect(data == &lab && bucket == 17 && sum == 17,
           "an operation refused for its key wrote to a place for its answer");
    table.expectCount(1);
    table.expectValue("here", 1);
  }
  lab.expectNoComplaints();
}

void fixedKeysAreNotOverread(const Subject &subject) {
  RecordingHost::Options options;
  options.garbage = 'k';
  Lab lab(subject, options);
  const Table table(lab, {.keyLength = 16});
  // What lies behind a key says nothing about it.
  table.mustAdd("k", 1);
  table.mustAdd("kk", 2);
  expectStatus(table->Add(table.get(), table.payload(3).data(), "kkkkk", 3), MORVA_OK, "Add");
  table.expectValue("k", 1);
  table.expectValue("kk", 2);
  table.expectValue("kkk", 3);
  table.expectAbsent("kkkk");
}

void variableKeysOfAllLengths(const Subject &subject) {
  Lab lab(subject);
  tellKeysApart(Table(lab, {.flags = flagVarKey}), awkwardKeys(60));
  const Table table(lab, {.flags = flagVarKey});
  std::vector<std::string> keys;
  for (const size_t length : {size_t{100}, size_t{1000}, size_t{70000}, size_t{1} << 20}) {
    keys.emplace_back(length, 'v');
    keys.push_back(std::string(length - 1, 'v') + 'w');
  }
  tellKeysApart(table, keys);
  lab.expectNoComplaints();
}

void variableKeysAreBlocks(const Subject &subject) {
  Lab lab(subject);
  const Table table(lab, {.flags = flagVarKey, .dataLength = 20});
  for (uint64_t n = 0; n != 20; ++n) table.mustAdd(keyNumber(n), n);
  for (uint64_t n = 0; n != 20; ++n) {
    RecordNode *node = table.node(keyNumber(n));
    expect(node != nullptr, "FindNode does not find a key that was stored");
    expect(lab.host.isBlock(node), "the record of a variable key is no block of its own");
    KeyPrefix prefix;
    std::memcpy(&prefix, MORVARecordBase(node), sizeof prefix);
    expectEqual(size_t{prefix.length}, keyNumber(n).size(), "the length in front of a key");
    expect(prefix.capacity >= prefix.length, "a node's capacity is below its key's length");
    const uint64_t needed = sizeof(RecordNode) + table->Recoff(table.get(), node) + 20;
    expect(lab.host.blockSize(node) >= needed, "the block of a variable key is too small");
  }
  expectEqual(table->TotalMem(table.get()), uint64_t{0}, "TotalMem with variable keys");
  lab.expectNoComplaints();
}

void variableKeysAreReused(const Subject &subject) {
  Lab lab(subject);
  const Table table(lab, {.flags = flagVarKey});
  // Of one length: a key may take the node of a longer one.
  const auto key = [](uint64_t n) { return std::to_string(100 + n); };
  for (uint64_t n = 0; n != 100; ++n) table.mustAdd(key(n), n);
  table.expectAbsent("999");
  const uint64_t before = lab.host.blocksAlive("varkeys");
  for (uint64_t round = 0; round != 20; ++round) {
    for (uint64_t n = 0; n != 100; ++n) table.mustRemove(key(n));
    for (uint64_t n = 0; n != 100; ++n) table.mustAdd(key(n), n + round);
  }
  expectEqual(lab.host.blocksAlive("varkeys"), before,
              "the number of blocks after the same variable keys were removed and added again");
}

void variableKeysTooLong(const Subject &subject) {
  Lab lab(subject);
  const Table table(lab, {.flags = flagVarKey, .dataLength = 0xFFFFFF00});
  const std::string key(1000, 'x');
  void *data = nullptr;
  lab.host.forget();
  expectStatus(table->Find(table.get(), key.data(), 1000, &data), MORVA_INVALID,
               "Find of a key whose record does not fit in 32 bits");
  expectStatus(table->Add(table.get(), key.data(), key.data(), 1000), MORVA_INVALID,
               "Add of a key whose record does not fit in 32 bits");
  expectEqual(lab.host.story(), std::string(), "what the host was asked for by refused keys");
}

void packedKeysArePacked(const Subject &subject) {
  Lab lab(subject);
  const Table table(lab, {.flags = 0});
  const std::string row = table.image("a row");
  lab.host.forget();
  expectStatus(table->Add(table.get(), table.payload(1).data(), row.data(), -5), MORVA_OK,
               "Add of a packed key with a length that is to be ignored");
  const std::vector<Event> packs = lab.host.eventsOf(Call::pack);
  expectEqual(packs.size(), size_t{1}, "the number of times Add packs its key");
  expect(packs[0].a == reinterpret_cast<uintptr_t>(row.data()),
         "the key did not reach the packer as it was given");
  expectEqual(packs[0].c, uint64_t{1}, "the last argument of pack");
  expect(packs[0].b == reinterpret_cast<uintptr_t>(MORVARecordBase(table.node("a row"))),
         "the key was not packed into the record's base");
  expectStatus(table->Add(table.get(), table.payload(2).data(), nullptr, 0), MORVA_OK,
               "Add of a null key, which only the packer can judge");
  table.expectValue("", 2);
  lab.expectNoComplaints();
}

void packedKeysOfAllLengths(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t length : {2U, 7U, 16U, 300U}) {
    const Table table(lab, {.flags = 0, .keyLength = length});
    std::vector<std::string> keys;
    for (const std::string &key : awkwardKeys(length > 16 ? 4 : length)) {
      const std::string whole = table.image(key);
      if (std::ranges::find(keys, whole) == keys.end()) keys.push_back(whole);
    }
    tellKeysApart(table, keys);
  }
  lab.expectNoComplaints();
}

void refusesBadKeys(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t flags :
       {uint32_t{flagFixedKey}, uint32_t{flagFixedKey | flagSum | flagMultiData},
        uint32_t{flagVarKey}}) {
    const Table table(lab, {.flags = flags});
    table.mustAdd("here", 1);
    MORVAInst *inst = table.get();
    void *data = &lab;
    void *cursor = table.found("here");
    uint32_t bucket = 17;
    RecordNode *node = nullptr;
    alignas(8) char probe[128] = {};
    lab.host.forget();
    struct BadKey {
      const void *bytes;
      int32_t length;
    };
    for (const auto &[bytes, length] :
         {BadKey{"here", -1}, BadKey{"here", -2147483647 - 1}, BadKey{nullptr, 4}}) {
      const std::string what =
          std::string(bytes == nullptr ? "a null key" : "a negative length") + ' ' + table.kind();
      expectStatus(inst->Add(inst, "12345678", bytes, length), MORVA_INVALID, "Add of " + what);
      expectStatus(inst->Replace(inst, "12345678", bytes, length), MORVA_INVALID,
                   "Replace of " + what);
      expectStatus(inst->Find(inst, bytes, length, &data), MORVA_INVALID, "Find of " + what);
      expectStatus(inst->Find2(inst, bytes, length, reinterpret_cast<RecordNode *>(probe), &data),
                   MORVA_INVALID, "Find2 of " + what);
      expectStatus(inst->FindNode(inst, bytes, length, &node, &bucket), MORVA_INVALID,
                   "FindNode of " + what);
      expectStatus(inst->HashVal(inst, bytes, length, &bucket), MORVA_INVALID,
                   "HashVal of " + what);
      expectStatus(inst->Remove(inst, bytes, length), MORVA_INVALID, "Remove of " + what);
      if (table.shape().has(flagSum)) {
        double sum = 0;
        expectStatus(inst->Sum(inst, bytes, length, &sum), MORVA_INVALID, "Sum of " + what);
        expectStatus(inst->RemoveDup(inst, &cursor, bytes, length), MORVA_INVALID,
                     "RemoveDup of " + what);
        expect(cursor != nullptr, "RemoveDup emptied the cursor although it refused its key");
      }
    }
    expect(data == &lab && bucket == 17 && node == nullptr,
           "an operation that refused its key wrote to a place for its answer");
    expectEqual(lab.host.story(), std::string(), "what the host was asked for by refused keys");
    table.expectCount(1);
    table.expectValue("here", 1);
  }
}

void takesTheEmptyKey(const Subject &subject) {
  Lab lab(subject);
  for (const uint32_t mode : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}}) {
    const Table table(lab, {.flags = mode});
    expectStatus(table->Add(table.get(), table.payload(1).data(), nullptr, 0), MORVA_OK,
                 "Add of the empty key at null " + table.kind());
    expectStatus(table->Add(table.get(), table.payload(2).data(), "x", 0), MORVA_PRESENT,
                 "Add of the empty key again " + table.kind());
    table.expectValue("", 1);
    table.mustRemove("");
    table.expectCount(0);
  }
}

constexpr Check kChecks[] = {
    {"fixed-keys.all-lengths", "Fixed keys of every length, of any bytes, are told apart.",
     fixedKeysOfAllLengths},
    {"fixed-keys.have-room", "Fixed keys of up to four bytes more than declared have room.",
     fixedKeysWithRoom},
    {"fixed-keys.refuse-longer",
     "Fixed keys above inst->keyLength are refused and change nothing; those of that length are "
     "accepted.",
     fixedKeysTooLong},
    {"fixed-keys.end-with-their-length", "What lies behind a fixed key is no part of it.",
     fixedKeysAreNotOverread},
    {"variable-keys.all-lengths", "Variable keys of every length up to a megabyte are told apart.",
     variableKeysOfAllLengths},
    {"variable-keys.are-blocks",
     "Each record with a variable key is a block of its own, large enough for key and data.",
     variableKeysAreBlocks},
    {"variable-keys.are-reused", "Records of removed variable keys are used again.",
     variableKeysAreReused},
    {"variable-keys.refuse-longer",
     "A variable key whose record does not fit in 32 bits is refused before anything is done.",
     variableKeysTooLong},
    {"packed-keys.are-packed",
     "A packed key is handed to the packer as it came, to be packed into the record; its length "
     "is ignored.",
     packedKeysArePacked},
    {"packed-keys.all-lengths", "Packed keys of any bytes are told apart.", packedKeysOfAllLengths},
    {"keys.refuse-nonsense",
     "Keys of negative length or at null are refused before anything is done.", refusesBadKeys},
    {"keys.take-the-empty-key", "A key of no bytes is a key like any other.", takesTheEmptyKey},
};

}  // namespace

std::span<const Check> keyChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
