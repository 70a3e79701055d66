// The order of the records of one bucket, and what makes two keys the same.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>

#include "keys_test.h"

using morva_test::Mode;
using morva_test::Shape;

namespace {

struct ByLengthThenBytes {
  bool operator()(const std::string &a, const std::string &b) const {
    if (a.size() != b.size()) return a.size() < b.size();
    for (size_t i = 0; i < a.size(); i++) {
      const auto x = static_cast<uint8_t>(a[i]), y = static_cast<uint8_t>(b[i]);
      if (x != y) return x < y;
    }
    return false;
  }
};

// One bucket only, so that a walk sees every record.
class KeyWalk : public keys_test::KeysTest {
 protected:
  MORVAInst *oneBucket(Mode mode, uint32_t keyLength, uint32_t flags = 0) {
    Shape shape;
    shape.flags = flags | (mode == Mode::fixed      ? flagFixedKey
                           : mode == Mode::variable ? flagVarKey
                                                    : 0);
    shape.keyLength = keyLength;
    shape.dataLength = 4;
    shape.hashExp = 0;
    return createShape(shape);
  }

  static std::vector<std::string> prefixedKeys(const MORVAInst *inst) {
    std::vector<std::string> keys;
    for (RecordNode *node : walk(inst, 0)) keys.push_back(prefixedKey(node));
    return keys;
  }

  static std::vector<std::string> packedKeys(const MORVAInst *inst) {
    std::vector<std::string> keys;
    for (RecordNode *node : walk(inst, 0)) {
      keys.emplace_back(static_cast<const char *>(MORVARecordBase(node)), inst->keyLength);
    }
    return keys;
  }

  bool present(MORVAInst *inst, const std::string &key) {
    void *data = nullptr;
    EXPECT_EQ(inst->Find(inst, bytesOf(key), lengthOf(key), &data), MORVA_OK);
    return data != nullptr;
  }
};

std::string randomKey(std::mt19937 &random, size_t length) {
  // Few different bytes, so that keys share beginnings.
  const char alphabet[] = {'\x00', '\x01', '\x7F', '\x80', '\xFF', 'a'};
  std::string key(length, '\0');
  for (char &c : key) c = alphabet[random() % sizeof alphabet];
  return key;
}

}  // namespace

TEST_F(KeyWalk, RawKeysComeByLengthAndThenByUnsignedBytes) {
  for (Mode mode : {Mode::fixed, Mode::variable}) {
    std::mt19937 random(11);
    MORVAInst *inst = oneBucket(mode, 24);
    std::set<std::string, ByLengthThenBytes> wanted;
    for (int i = 0; i < 600; i++) {
      const std::string key = randomKey(random, random() % 24);
      const bool isNew = wanted.insert(key).second;
      ASSERT_EQ(addKey(inst, key), isNew ? MORVA_OK : MORVA_PRESENT);
    }
    EXPECT_EQ(prefixedKeys(inst), std::vector<std::string>(wanted.begin(), wanted.end()));
    for (int i = 0; i < 600; i++) {
      const std::string key = randomKey(random, random() % 24);
      ASSERT_EQ(present(inst, key), wanted.count(key) == 1);
      ASSERT_EQ(removeKey(inst, key), wanted.erase(key) == 1 ? MORVA_OK : MORVA_INVALID);
    }
    EXPECT_EQ(prefixedKeys(inst), std::vector<std::string>(wanted.begin(), wanted.end()));
  }
}

TEST_F(KeyWalk, LongVariableKeysComeInOrderToo) {
  std::mt19937 random(12);
  MORVAInst *inst = oneBucket(Mode::variable, 0);
  std::set<std::string, ByLengthThenBytes> wanted;
  for (int i = 0; i < 200; i++) {
    std::string key(250 + random() % 3, 'k');
    key[random() % key.size()] = static_cast<char>(random());
    ASSERT_EQ(addKey(inst, key), wanted.insert(key).second ? MORVA_OK : MORVA_PRESENT);
  }
  EXPECT_EQ(prefixedKeys(inst), std::vector<std::string>(wanted.begin(), wanted.end()));
}

TEST_F(KeyWalk, PackedKeysComeByUnsignedBytes) {
  for (uint32_t length : {1, 2, 3, 7, 8, 9, 15, 16, 17, 33}) {
    std::mt19937 random(13);
    MORVAInst *inst = oneBucket(Mode::defined, length);
    std::set<std::string, ByLengthThenBytes> wanted;
    for (int i = 0; i < 300; i++) {
      const std::string key = randomKey(random, length);
      ASSERT_EQ(addKey(inst, key), wanted.insert(key).second ? MORVA_OK : MORVA_PRESENT);
    }
    EXPECT_EQ(packedKeys(inst), std::vector<std::string>(wanted.begin(), wanted.end())) << length;
  }
}

TEST_F(KeyWalk, ShorterKeysComeFirstWhateverTheirBytes) {
  for (Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = oneBucket(mode, 8);
    const std::string highs = "\xFF\xFF", lows("\0\0\0", 3), empty;
    for (const auto &key : {lows, empty, highs}) ASSERT_EQ(addKey(inst, key), MORVA_OK);
    EXPECT_THAT(prefixedKeys(inst), testing::ElementsAre(empty, highs, lows));
  }
}

TEST_F(KeyWalk, ByteEightyComesBehindByteSevenF) {
  for (Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = oneBucket(mode, 8);
    for (const char *key : {"\x80", "\x7F"}) ASSERT_EQ(addKey(inst, key), MORVA_OK);
    EXPECT_THAT(prefixedKeys(inst), testing::ElementsAre("\x7F", "\x80"));
  }
  MORVAInst *inst = oneBucket(Mode::defined, 1);
  for (const char *key : {"\x80", "\x7F"}) ASSERT_EQ(addKey(inst, key), MORVA_OK);
  EXPECT_THAT(packedKeys(inst), testing::ElementsAre("\x7F", "\x80"));
}

TEST_F(KeyWalk, TheEmptyKeyEqualsOnlyItself) {
  for (Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = oneBucket(mode, 8);
    ASSERT_EQ(addKey(inst, std::string("\0", 1)), MORVA_OK);
    EXPECT_FALSE(present(inst, ""));
    ASSERT_EQ(addKey(inst, ""), MORVA_OK);
    EXPECT_EQ(addKey(inst, ""), MORVA_PRESENT);
    EXPECT_TRUE(present(inst, ""));
    EXPECT_FALSE(present(inst, std::string("\0\0", 2)));
    EXPECT_EQ(prefixedKeys(inst).front(), "");
  }
}

TEST_F(KeyWalk, KeysThatDifferInLengthOnlyAreDifferent) {
  for (Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = oneBucket(mode, 8);
    for (size_t n = 0; n <= 8; n++) ASSERT_EQ(addKey(inst, std::string(n, '\0')), MORVA_OK);
    EXPECT_EQ(inst->NumElements(inst), 9u);
    for (size_t n = 0; n <= 8; n++) EXPECT_TRUE(present(inst, std::string(n, '\0'))) << n;
  }
}

TEST_F(KeyWalk, NumbersInPackedKeysCompareAsBytesNotAsNumbers) {
  MORVAInst *inst = oneBucket(Mode::defined, 4);
  for (uint32_t number : {1u, 256u, 65536u, 0x80000000u, 2u}) {
    ASSERT_EQ(addKey(inst, std::string(reinterpret_cast<const char *>(&number), 4)), MORVA_OK);
  }
  std::vector<uint32_t> walked;
  for (const std::string &key : packedKeys(inst)) {
    uint32_t number;
    std::memcpy(&number, key.data(), 4);
    walked.push_back(number);
  }
  EXPECT_THAT(walked, testing::ElementsAre(0x80000000u, 65536u, 256u, 1u, 2u));
}

TEST_F(KeyWalk, ManyFieldsCompareAsOneStringOfBytes) {
  Shape shape;
  shape.flags = 0;
  shape.hashExp = 0;
  MORVAInst *inst = create(shape);
  define(inst, {3, 5, 2}, 4);
  for (const char *key : {"bbbcccccdd", "aaazzzzzzz", "bbbcccccda", "bbbacccczz", "aaaaaaaaaa"}) {
    ASSERT_EQ(addKey(inst, key), MORVA_OK);
  }
  EXPECT_THAT(packedKeys(inst), testing::ElementsAre("aaaaaaaaaa", "aaazzzzzzz", "bbbacccczz",
                                                     "bbbcccccda", "bbbcccccdd"));
}

TEST_F(KeyWalk, WithoutFieldsThereIsOneKey) {
  MORVAInst *inst = oneBucket(Mode::defined, 0);
  ASSERT_EQ(addKey(inst, "anything"), MORVA_OK);
  EXPECT_EQ(addKey(inst, "something else"), MORVA_PRESENT);
}

TEST_F(KeyWalk, DataTakesNoPart) {
  for (Mode mode : {Mode::fixed, Mode::variable, Mode::defined}) {
    MORVAInst *inst = oneBucket(mode, 8);
    ASSERT_EQ(addKey(inst, "12345678", "zzzz"), MORVA_OK);
    EXPECT_EQ(addKey(inst, "12345678", "aaaa"), MORVA_PRESENT);
    ASSERT_EQ(addKey(inst, "12345679", "aaaa"), MORVA_OK);
    const auto nodes = walk(inst, 0);
    ASSERT_EQ(nodes.size(), 2u);
    const char *first = static_cast<const char *>(MORVARecordBase(nodes[0]));
    EXPECT_EQ(first[mode == Mode::defined ? 7 : 15], '8');
  }
}

TEST_F(KeyWalk, SumsTakeNoPart) {
  for (Mode mode : {Mode::fixed, Mode::defined}) {
    MORVAInst *inst = oneBucket(mode, 8, flagSum);
    inst->SetSumInc(inst, 2.5);
    ASSERT_EQ(addKey(inst, "12345678"), MORVA_OK);
    inst->SetSumInc(inst, -7.0);
    EXPECT_EQ(addKey(inst, "12345678"), MORVA_PRESENT);
    EXPECT_TRUE(present(inst, "12345678"));
  }
}

TEST_F(KeyWalk, StaleBytesBehindAShortKeyTakeNoPart) {
  MORVAInst *inst = oneBucket(Mode::fixed, 8);
  ASSERT_EQ(addKey(inst, "abcdefgh"), MORVA_OK);
  ASSERT_EQ(removeKey(inst, "abcdefgh"), MORVA_OK);
  // Goes into the node of the removed record.
  ASSERT_EQ(addKey(inst, "ab"), MORVA_OK);
  EXPECT_TRUE(present(inst, "ab"));
  EXPECT_FALSE(present(inst, "abcdefgh"));
  EXPECT_EQ(addKey(inst, "ab"), MORVA_PRESENT);
}

TEST_F(KeyWalk, DuplicatesHangOffOneNode) {
  MORVAInst *inst = oneBucket(Mode::fixed, 8, flagMultiData);
  for (int i = 0; i < 3; i++) {
    for (const char *key : {"b", "a", "c"}) ASSERT_EQ(addKey(inst, key), MORVA_OK);
  }
  EXPECT_THAT(prefixedKeys(inst), testing::ElementsAre("a", "b", "c"));
  EXPECT_EQ(inst->NumElements(inst), 9u);
}
