// Whose owner word is read, and from where.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "bench.h"

using tree_test::Bench;

namespace {

// A node with eight packed bytes, of which owners see the first two or all.
struct EightByteNode {
  RecordNode links{};
  uint8_t key[8]{};
};

EightByteNode nodeWith(void *owner, std::initializer_list<int> bytes) {
  EightByteNode node;
  node.links.owner = owner;
  size_t i = 0;
  for (int b : bytes) node.key[i++] = static_cast<uint8_t>(b);
  return node;
}

class Owners : public testing::Test {
 protected:
  Owners() {
    wide.keyLength = 8;
    narrow.keyLength = 2;
    prefixed.keyLength = 8;
    prefixed.modeBits = flagFixedKey;
  }
  MORVAInst wide{}, narrow{}, prefixed{};
  TreeHolder holder{};
};

}  // namespace

TEST_F(Owners, LookupGoesByTheOwnerOfTheProbe) {
  EightByteNode stored = nodeWith(&wide, {1, 2, 3, 4, 5, 6, 7, 8});
  aa_tree.adder(&holder, &stored.links);
  EightByteNode probe = nodeWith(&narrow, {1, 2, 9, 9, 9, 9, 9, 9});
  EXPECT_EQ(aa_tree.finder(&holder, &probe.links), &stored.links);
  EXPECT_EQ(aa_tree.fuzzier(&holder, &probe.links, nullptr, nullptr), &stored.links);
  probe.links.owner = &wide;
  EXPECT_EQ(aa_tree.finder(&holder, &probe.links), nullptr);
  EXPECT_EQ(aa_tree.fuzzier(&holder, &probe.links, nullptr, nullptr), nullptr);
}

TEST_F(Owners, RemovalGoesByTheOwnerOfTheProbe) {
  EightByteNode stored = nodeWith(&wide, {1, 2, 3, 4, 5, 6, 7, 8});
  aa_tree.adder(&holder, &stored.links);
  EightByteNode probe = nodeWith(&wide, {1, 2, 9, 9, 9, 9, 9, 9});
  EXPECT_EQ(aa_tree.killer(&holder, &probe.links), nullptr);
  probe.links.owner = &narrow;
  EXPECT_EQ(aa_tree.killer(&holder, &probe.links), &stored.links);
}

TEST_F(Owners, InsertionGoesByTheOwnerOfTheNewNode) {
  EightByteNode stored = nodeWith(&wide, {1, 2, 3, 4, 5, 6, 7, 8});
  aa_tree.adder(&holder, &stored.links);
  EightByteNode node = nodeWith(&narrow, {1, 2, 9, 9, 9, 9, 9, 9});
  EXPECT_EQ(aa_tree.adder(&holder, &node.links), &stored.links);
  node.links.owner = &wide;
  EXPECT_EQ(aa_tree.adder(&holder, &node.links), &node.links);
}

TEST_F(Owners, TheLayoutOfTheKeyGoesByTheOwnerOfTheProbeToo) {
  // An empty key, as a prefixed owner sees it; eight bytes to a packed one.
  EightByteNode stored = nodeWith(&wide, {0, 0, 0, 0, 5, 5, 5, 5});
  aa_tree.adder(&holder, &stored.links);
  EightByteNode probe = nodeWith(&wide, {0, 0, 0, 0, 7, 7, 7, 7});
  EXPECT_EQ(aa_tree.finder(&holder, &probe.links), nullptr);
  probe.links.owner = &prefixed;
  EXPECT_EQ(aa_tree.finder(&holder, &probe.links), &stored.links);
}

TEST_F(Owners, OfStoredNodesAreNeverFollowed) {
  std::vector<EightByteNode> nodes;
  for (int i = 0; i < 40; i++) nodes.push_back(nodeWith(&wide, {i}));
  for (auto &node : nodes) {
    ASSERT_EQ(aa_tree.adder(&holder, &node.links), &node.links);
    node.links.owner = nullptr;
  }
  for (int i = 0; i < 40; i++) {
    EightByteNode probe = nodeWith(&wide, {i});
    const auto at = static_cast<size_t>(i);
    ASSERT_EQ(aa_tree.finder(&holder, &probe.links), &nodes[at].links);
    RecordNode *prev = nullptr, *next = nullptr;
    ASSERT_EQ(aa_tree.fuzzier(&holder, &probe.links, &prev, &next), &nodes[at].links);
    ASSERT_EQ(next, i < 39 ? &nodes[at + 1].links : nullptr);
    ASSERT_EQ(aa_tree.killer(&holder, &probe.links), &nodes[at].links);
    ASSERT_EQ(nodes[at].links.owner, nullptr);
  }
  EXPECT_EQ(holder.root, nullptr);
}

TEST_F(Owners, AreNotNeededInAnEmptyTree) {
  EightByteNode node = nodeWith(nullptr, {1});
  EXPECT_EQ(aa_tree.finder(&holder, &node.links), nullptr);
  EXPECT_EQ(aa_tree.killer(&holder, &node.links), nullptr);
  EXPECT_EQ(aa_tree.fuzzier(&holder, &node.links, nullptr, nullptr), nullptr);
  EXPECT_EQ(aa_tree.adder(&holder, &node.links), &node.links);
}

namespace {

// Links at `links`, the record (owner and key) elsewhere: `offset` says how far
// the record lies from its usual place behind the links.
struct SplitNode {
  explicit SplitNode(int32_t offset, void *owner, uint8_t key) {
    std::memset(words, 0xFA, sizeof words);
    uint8_t *record = reinterpret_cast<uint8_t *>(node()) + offset + 16;
    std::memcpy(record, &owner, sizeof owner);
    std::memset(record + 8, key, 8);
  }
  RecordNode *node() { return reinterpret_cast<RecordNode *>(words + 16); }
  uint64_t words[32];
};

}  // namespace

TEST(RecordOffset, MovesOwnerAndKeyOfTreeNodesButNotTheirLinks) {
  for (int32_t offset : {8, 16, 64, 80, -32, -64, -128}) {
    MORVAInst owner = {};
    owner.keyLength = 8;
    TreeHolder holder = {};
    holder.recordOffset = offset;
    SplitNode a(offset, &owner, 1), b(offset, &owner, 2), c(offset, &owner, 3);
    ASSERT_EQ(aa_tree.adder(&holder, a.node()), a.node());
    ASSERT_EQ(aa_tree.adder(&holder, c.node()), c.node());
    ASSERT_EQ(aa_tree.adder(&holder, b.node()), b.node());
    ASSERT_EQ(holder.root, b.node()) << offset;
    EXPECT_EQ(b.node()->left, reinterpret_cast<uintptr_t>(a.node()));
    EXPECT_EQ(b.node()->right, reinterpret_cast<uintptr_t>(c.node()));
    EXPECT_EQ(a.node()->left, 2u);
    EXPECT_EQ(a.node()->right, reinterpret_cast<uintptr_t>(b.node()) + 2);
    SplitNode equal(offset, &owner, 2);
    EXPECT_EQ(aa_tree.adder(&holder, equal.node()), b.node());
  }
}

TEST(RecordOffset, IsNotAppliedToProbes) {
  for (int32_t offset : {8, 16, 64, 80, -32, -64, -128}) {
    MORVAInst owner = {};
    owner.keyLength = 8;
    TreeHolder holder = {};
    holder.recordOffset = offset;
    SplitNode a(offset, &owner, 1), b(offset, &owner, 2);
    aa_tree.adder(&holder, a.node());
    aa_tree.adder(&holder, b.node());
    SplitNode probe(0, &owner, 2);
    EXPECT_EQ(aa_tree.finder(&holder, probe.node()), b.node()) << offset;
    RecordNode *prev = nullptr, *next = nullptr;
    EXPECT_EQ(aa_tree.fuzzier(&holder, probe.node(), &prev, &next), b.node());
    EXPECT_EQ(prev, a.node());
    EXPECT_EQ(next, nullptr);
    EXPECT_EQ(aa_tree.killer(&holder, probe.node()), b.node());
    EXPECT_EQ(aa_tree.finder(&holder, probe.node()), nullptr);
  }
}
