// The order of keys, seen through the neighbours that a lookup of one key
// answers in a tree that holds the other.
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <memory>
#include <new>
#include <vector>

#include "morva/inst.h"
#include "morva/tree_holder.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A node with a record of exactly `size` bytes behind it.
class Node {
 public:
  Node(void *owner, size_t size)
      : memory_(static_cast<uint8_t *>(::operator new(sizeof(RecordNode) + size))) {
    std::memset(memory_.get(), 0xB7, sizeof(RecordNode) + size);
    get()->owner = owner;
  }
  RecordNode *get() const { return reinterpret_cast<RecordNode *>(memory_.get()); }
  uint8_t *record() const { return memory_.get() + sizeof(RecordNode); }

 private:
  struct Free {
    void operator()(uint8_t *p) const { ::operator delete(p); }
  };
  std::unique_ptr<uint8_t, Free> memory_;
};

Node prefixed(void *owner, const Bytes &key, uint32_t secondWord = 0) {
  Node node(owner, 8 + key.size());
  const auto length = static_cast<uint32_t>(key.size());
  std::memcpy(node.record(), &length, 4);
  std::memcpy(node.record() + 4, &secondWord, 4);
  if (!key.empty()) std::memcpy(node.record() + 8, key.data(), key.size());
  return node;
}

// Only the length word matters: the bytes of such a key do not exist.
Node bare(void *owner, uint32_t length) {
  Node node(owner, 8);
  std::memcpy(node.record(), &length, 4);
  return node;
}

Node packed(void *owner, const Bytes &key) {
  Node node(owner, key.size());
  if (!key.empty()) std::memcpy(node.record(), key.data(), key.size());
  return node;
}

// -1, 0 or 1 as the probe sorts before, with or after the stored node. Lookup,
// neighbours, insertion and removal must all see it alike.
int order(const Node &probe, const Node &stored) {
  TreeHolder holder = {};
  EXPECT_EQ(aa_tree.adder(&holder, stored.get()), stored.get());
  RecordNode *prev = probe.get(), *next = probe.get();
  RecordNode *const found = aa_tree.fuzzier(&holder, probe.get(), &prev, &next);
  EXPECT_EQ(aa_tree.finder(&holder, probe.get()), found);
  if (found != nullptr) {
    EXPECT_EQ(found, stored.get());
    EXPECT_EQ(prev, nullptr);
    EXPECT_EQ(next, nullptr);
    EXPECT_EQ(aa_tree.adder(&holder, probe.get()), stored.get());
    EXPECT_EQ(aa_tree.killer(&holder, probe.get()), stored.get());
    EXPECT_EQ(holder.root, nullptr);
    return 0;
  }
  EXPECT_EQ(aa_tree.killer(&holder, probe.get()), nullptr);
  const bool before = next == stored.get();
  EXPECT_EQ(before ? prev : next, nullptr);
  EXPECT_EQ(before ? next : prev, stored.get());
  EXPECT_EQ(aa_tree.adder(&holder, probe.get()), probe.get());
  EXPECT_EQ((before ? stored.get()->left : stored.get()->right) & ~uintptr_t{3},
            reinterpret_cast<uintptr_t>(probe.get()));
  return before ? -1 : 1;
}

int byBytes(const Bytes &a, const Bytes &b) {
  for (size_t i = 0; i < a.size() && i < b.size(); i++) {
    if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
  }
  return 0;
}

int byLengthThenBytes(const Bytes &a, const Bytes &b) {
  if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  return byBytes(a, b);
}

MORVAInst ownerOf(uint32_t modeBits, uint32_t keyLength) {
  MORVAInst owner = {};
  owner.modeBits = modeBits;
  owner.keyLength = keyLength;
  return owner;
}

// All strings of 0 to 3 bytes over a telling alphabet.
std::vector<Bytes> shortKeys() {
  std::vector<Bytes> keys = {{}};
  for (size_t from = 0, length = 1; length <= 3; length++) {
    const size_t to = keys.size();
    for (; from < to; from++) {
      for (int b : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
        Bytes key = keys[from];
        key.push_back(static_cast<uint8_t>(b));
        keys.push_back(std::move(key));
      }
    }
  }
  return keys;
}

const uint32_t prefixedModes[] = {0x4, 0x20, 0x24, 0x44, 0x60, 0x64};
const uint32_t packedModes[] = {0x0, 0x40};

}  // namespace

TEST(KeyOrder, PrefixedKeysGoByLengthFirstAndThenByUnsignedBytes) {
  const std::vector<Bytes> keys = shortKeys();
  for (uint32_t mode : prefixedModes) {
    MORVAInst owner = ownerOf(mode, 20);
    for (const Bytes &a : keys) {
      const Node probe = prefixed(&owner, a);
      for (const Bytes &b : keys) {
        ASSERT_EQ(order(probe, prefixed(&owner, b)), byLengthThenBytes(a, b))
            << "mode " << mode << ": " << testing::PrintToString(a) << " "
            << testing::PrintToString(b);
      }
    }
  }
}

TEST(KeyOrder, TwoHighBytesSortBeforeThreeLowOnes) {
  MORVAInst owner = ownerOf(flagFixedKey, 20);
  EXPECT_EQ(order(prefixed(&owner, {0xFF, 0xFF}), prefixed(&owner, {0, 0, 0})), -1);
  EXPECT_EQ(order(prefixed(&owner, {0, 0, 0}), prefixed(&owner, {0xFF, 0xFF})), 1);
}

TEST(KeyOrder, TheEmptyKeySortsFirstAndEqualsOnlyItself) {
  MORVAInst owner = ownerOf(flagVarKey, 0);
  EXPECT_EQ(order(prefixed(&owner, {}), prefixed(&owner, {})), 0);
  EXPECT_EQ(order(prefixed(&owner, {}), prefixed(&owner, {0})), -1);
  EXPECT_EQ(order(prefixed(&owner, {0}), prefixed(&owner, {})), 1);
}

TEST(KeyOrder, LengthsCompareAsUnsignedNumbersWithoutALookAtTheBytes) {
  MORVAInst owner = ownerOf(flagVarKey, 0);
  const uint32_t lengths[] = {1, 2, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFFF};
  for (uint32_t a : lengths) {
    for (uint32_t b : lengths) {
      if (a == b) continue;
      EXPECT_EQ(order(bare(&owner, a), bare(&owner, b)), a < b ? -1 : 1) << a << " " << b;
    }
  }
}

TEST(KeyOrder, TheSecondWordOfAPrefixedKeyTakesNoPart) {
  MORVAInst owner = ownerOf(flagVarKey, 0);
  EXPECT_EQ(order(prefixed(&owner, {1, 2}, 2), prefixed(&owner, {1, 2}, 900)), 0);
  EXPECT_EQ(order(prefixed(&owner, {1, 2}, 9), prefixed(&owner, {1, 3}, 2)), -1);
}

TEST(KeyOrder, PackedKeysGoByUnsignedBytesOverTheKeyLength) {
  for (uint32_t mode : packedModes) {
    for (uint32_t length = 0; length <= 3; length++) {
      MORVAInst owner = ownerOf(mode, length);
      for (const Bytes &a : shortKeys()) {
        if (a.size() != length) continue;
        const Node probe = packed(&owner, a);
        for (const Bytes &b : shortKeys()) {
          if (b.size() != length) continue;
          ASSERT_EQ(order(probe, packed(&owner, b)), byBytes(a, b)) << "mode " << mode;
        }
      }
    }
  }
}

TEST(KeyOrder, PackedKeysOfNoBytesAreAllEqual) {
  MORVAInst owner = ownerOf(0, 0);
  EXPECT_EQ(order(packed(&owner, {}), packed(&owner, {})), 0);
}

TEST(KeyOrder, BytesBehindAPackedKeyTakeNoPart) {
  MORVAInst owner = ownerOf(0, 3);
  EXPECT_EQ(order(packed(&owner, {1, 2, 3, 4}), packed(&owner, {1, 2, 3, 9})), 0);
  EXPECT_EQ(order(packed(&owner, {1, 2, 3, 9}), packed(&owner, {1, 2, 4, 0})), -1);
}

TEST(KeyOrder, BytesBehindAPrefixedKeyTakeNoPart) {
  MORVAInst owner = ownerOf(flagFixedKey, 20);
  const Node a = prefixed(&owner, {1, 2, 3}), b = prefixed(&owner, {1, 2, 4});
  const uint32_t two = 2;
  std::memcpy(a.record(), &two, 4);
  std::memcpy(b.record(), &two, 4);
  EXPECT_EQ(order(a, b), 0);
}

TEST(KeyOrder, TheFirstDifferentByteDecidesAtEveryPlaceOfKeysOfUpToSeventyBytes) {
  MORVAInst raw = ownerOf(flagVarKey, 0);
  for (size_t length = 1; length <= 70; length++) {
    MORVAInst fields = ownerOf(0, static_cast<uint32_t>(length));
    Bytes a(length);
    for (size_t i = 0; i < length; i++) a[i] = static_cast<uint8_t>(i * 37 + length);
    for (size_t at = 0; at < length; at++) {
      Bytes b = a;
      b[at] = static_cast<uint8_t>(b[at] ^ (at % 2 == 0 ? 0x80 : 0x01));
      // All later bytes point the other way.
      for (size_t i = at + 1; i < length; i++) {
        a[i] = b[at] > a[at] ? 0xFF : 0x00;
        b[i] = b[at] > a[at] ? 0x00 : 0xFF;
      }
      ASSERT_EQ(order(prefixed(&raw, a), prefixed(&raw, b)), byBytes(a, b)) << length << " " << at;
      ASSERT_EQ(order(packed(&fields, a), packed(&fields, b)), byBytes(a, b))
          << length << " " << at;
      for (size_t i = 0; i < length; i++) a[i] = static_cast<uint8_t>(i * 37 + length);
    }
    ASSERT_EQ(order(prefixed(&raw, a), prefixed(&raw, a)), 0) << length;
    ASSERT_EQ(order(packed(&fields, a), packed(&fields, a)), 0) << length;
  }
}

TEST(KeyOrder, OfTheOwnerOnlyModeBitsAndKeyLengthMatter) {
  // Flags that contradict the mode bits, and garbage everywhere else.
  MORVAInst owner;
  std::memset(static_cast<void *>(&owner), 0xE9, sizeof owner);
  owner.modeBits = 0;
  owner.keyLength = 2;
  owner.flags = flagFixedKey | flagVarKey;
  EXPECT_EQ(order(packed(&owner, {9, 1}), packed(&owner, {1, 9})), 1);
  owner.modeBits = flagFixedKey;
  owner.keyLength = 0xFFFFFFFF;
  owner.flags = 0;
  EXPECT_EQ(order(prefixed(&owner, {9}), prefixed(&owner, {1, 9})), -1);
}
