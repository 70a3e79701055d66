// What the suites on the comparison of instances share.
#pragma once

#include "keys_test.h"
#include "morva/operations.h"

namespace keys_test {

class EqualsTest : public KeysTest {
 protected:
  using Mode = morva_test::Mode;
  using Shape = morva_test::Shape;
  using Call = morva_test::Call;

  // 1 or 0, whichever way round; both ways must agree.
  uint32_t equal(MORVAInst *a, MORVAInst *b) {
    uint32_t forth = untouched, back = untouched;
    EXPECT_EQ(MORVAEquals(a, b, &forth), MORVA_OK);
    EXPECT_EQ(MORVAEquals(b, a, &back), MORVA_OK);
    EXPECT_EQ(forth, back);
    EXPECT_LE(forth, 1u);
    EXPECT_EQ(host.locksHeld(), 0u);
    return forth;
  }

  // An instance of 8-byte keys and 4 bytes of data with these records.
  MORVAInst *with(Mode mode, const std::vector<std::pair<std::string, std::string>> &records,
                  uint32_t flags = 0, int32_t hashExp = 4, int32_t method = 9) {
    Shape shape;
    shape.flags = flags;
    if (mode == Mode::fixed) shape.flags |= flagFixedKey;
    if (mode == Mode::variable) shape.flags |= flagVarKey;
    shape.keyLength = 8;
    shape.dataLength = 4;
    shape.hashExp = hashExp;
    shape.hashMethod = method;
    MORVAInst *inst = createShape(shape);
    for (const auto &[key, data] : records) EXPECT_EQ(addKey(inst, key, data), MORVA_OK);
    return inst;
  }

  // The first record of a key.
  char *dataOf(MORVAInst *inst, const std::string &key) {
    void *data = nullptr;
    EXPECT_EQ(inst->Find(inst, bytesOf(key), lengthOf(key), &data), MORVA_OK);
    EXPECT_NE(data, nullptr);
    return static_cast<char *>(data);
  }

  char *keyAreaOf(MORVAInst *inst, const std::string &key) {
    RecordNode *node = nullptr;
    EXPECT_EQ(inst->FindNode(inst, bytesOf(key), lengthOf(key), &node, nullptr), MORVA_OK);
    EXPECT_NE(node, nullptr);
    return static_cast<char *>(MORVARecordBase(node));
  }
};

}  // namespace keys_test
