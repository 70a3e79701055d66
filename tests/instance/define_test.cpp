// Describing the key fields of an instance and closing the definition.
#include <limits>

#include "definition_test.h"

namespace morva_test {
namespace {

using Bytes = std::vector<unsigned char>;

void put32(Bytes *bytes, size_t at, uint32_t value) {
  for (int i = 0; i != 4; ++i) (*bytes)[at + i] = static_cast<unsigned char>(value >> (8 * i));
}

void put64(Bytes *bytes, size_t at, uint64_t value) {
  for (int i = 0; i != 8; ++i) (*bytes)[at + i] = static_cast<unsigned char>(value >> (8 * i));
}

template <typename Block>
Bytes bytesOf(const Block &block) {
  Bytes bytes(sizeof block);
  std::memcpy(bytes.data(), &block, sizeof block);
  return bytes;
}

struct FieldBytes {
  uint32_t fieldClass = 3, argument = 0, length = 0, code = 1, subType = 0, option = 0;
  uint64_t offset = 0;

  Bytes block() const {
    Bytes bytes(160, 0);
    put32(&bytes, 0, fieldClass);
    put64(&bytes, 8, argument);
    put64(&bytes, 16, length);
    put32(&bytes, 24, code);
    put32(&bytes, 44, subType);
    put64(&bytes, 48, offset);
    put64(&bytes, 56, length);
    put32(&bytes, 64, code);
    put32(&bytes, 120, option);
    return bytes;
  }
};

class Define : public DefinitionTest {};

// ---- fields -----------------------------------------------------------------

TEST_F(Define, AFieldReachesThePackerByteForByte) {
  MORVAInst *inst = open();
  EXPECT_EQ(field(inst, 11, 3, 0x12345678), MORVA_OK);
  EXPECT_EQ(host.story(), "defineField");
  FieldBytes expected;
  expected.argument = 0x12345678;
  expected.length = 11;
  expected.code = 3;
  ASSERT_EQ(host.fields.size(), 1u);
  EXPECT_EQ(bytesOf(host.fields[0]), expected.block());
}

TEST_F(Define, EachTypeHasItsCodeItsSubTypeAndItsOption) {
  for (uint32_t type = 1; type <= 5; ++type) {
    for (const uint32_t option : {0u, 1u, 2u, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
      MORVAInst *inst = open();
      host.fields.clear();
      EXPECT_EQ(field(inst, 4, type, 0, option), MORVA_OK);
      FieldBytes expected;
      expected.length = 4;
      expected.code = type == 5 ? 2 : type;
      expected.subType = type == 5 ? 27 : 0;
      expected.option = type == 2 || type == 5 ? option % 2 : 0;
      ASSERT_EQ(host.fields.size(), 1u);
      EXPECT_EQ(bytesOf(host.fields[0]), expected.block()) << type << " " << option;
    }
  }
}

TEST_F(Define, TheFieldClassFollowsTheFlags) {
  const std::vector<std::pair<uint32_t, uint32_t>> cases = {
      {0, 3},
      {flagPackOpt, 4},
      {flagUnordered, 1},
      {flagUnordered | flagPackOpt, 1},
      // The order list takes flagUnordered away.
      {flagOrdered, 3},
      {flagOrdered | flagUnordered, 3},
      {flagOrdered | flagUnordered | flagPackOpt, 4},
      {flagSum | flagMultiData | flagDefineOpt, 3}};
  for (const auto &[flags, fieldClass] : cases) {
    MORVAInst *inst = open(flags);
    host.fields.clear();
    EXPECT_EQ(field(inst, 4), MORVA_OK);
    FieldBytes expected;
    expected.fieldClass = fieldClass;
    expected.length = 4;
    ASSERT_EQ(host.fields.size(), 1u);
    EXPECT_EQ(bytesOf(host.fields[0]), expected.block()) << std::hex << flags;
  }
}

TEST_F(Define, LargeWordsWidenWithoutASign) {
  MORVAInst *inst = open();
  EXPECT_EQ(field(inst, 0x80000001, 4, 0xFFFFFFFF), MORVA_OK);
  EXPECT_EQ(field(inst, 2, 1, 0x80000000), MORVA_OK);
  FieldBytes first;
  first.argument = 0xFFFFFFFF;
  first.length = 0x80000001;
  first.code = 4;
  FieldBytes second;
  second.argument = 0x80000000;
  second.length = 2;
  second.offset = 0x80000001;
  ASSERT_EQ(host.fields.size(), 2u);
  EXPECT_EQ(bytesOf(host.fields[0]), first.block());
  EXPECT_EQ(bytesOf(host.fields[1]), second.block());
}

TEST_F(Define, FieldsLieEndToEnd) {
  MORVAInst *inst = open();
  for (const uint32_t length : {3u, 5u, 8u}) EXPECT_EQ(field(inst, length), MORVA_OK);
  ASSERT_EQ(host.fields.size(), 3u);
  EXPECT_EQ(host.fields[0].fieldOffset, 0u);
  EXPECT_EQ(host.fields[1].fieldOffset, 3u);
  EXPECT_EQ(host.fields[2].fieldOffset, 8u);
  EXPECT_EQ(inst->definedKeyLength, 16u);
  EXPECT_EQ(done(inst), MORVA_OK);
  EXPECT_EQ(inst->keyLength, 16u);
}

TEST_F(Define, AFieldOfNoBytesIsAField) {
  MORVAInst *inst = open();
  EXPECT_EQ(field(inst, 4), MORVA_OK);
  EXPECT_EQ(field(inst, 0), MORVA_OK);
  EXPECT_EQ(field(inst, 4), MORVA_OK);
  ASSERT_EQ(host.fields.size(), 3u);
  EXPECT_EQ(host.fields[1].fieldOffset, 4u);
  EXPECT_EQ(host.fields[2].fieldOffset, 4u);
}

TEST_F(Define, OtherTypesAreRefusedAndLeaveTheKeyLength) {
  MORVAInst *inst = open();
  EXPECT_EQ(field(inst, 6), MORVA_OK);
  host.forget();
  for (const uint32_t type : {0u, 6u, 7u, 256u, 0x80000001u, 0xFFFFFFFFu}) {
    EXPECT_EQ(field(inst, 4, type), MORVA_INVALID) << type;
  }
  EXPECT_EQ(inst->definedKeyLength, 6u);
  EXPECT_EQ(host.story(), "");
}

TEST_F(Define, AFieldThatThePackerRefusesStaysCounted) {
  MORVAInst *inst = open();
  host.failCall(Call::defineField);
  EXPECT_EQ(field(inst, 6), MORVA_INVALID);
  EXPECT_EQ(inst->definedKeyLength, 6u);
  EXPECT_EQ(field(inst, 2), MORVA_OK);
  ASSERT_EQ(host.fields.size(), 2u);
  EXPECT_EQ(host.fields[1].fieldOffset, 6u);
  EXPECT_EQ(inst->definedKeyLength, 8u);
}

TEST_F(Define, AMissingInstanceOrDescriptionIsRefused) {
  MORVAInst *inst = open();
  const MORVAKeyDesc desc = {4, 1, 0, 0};
  EXPECT_EQ(MORVADefineKey(nullptr, &desc), MORVA_INVALID);
  EXPECT_EQ(MORVADefineKey(inst, nullptr), MORVA_INVALID);
  EXPECT_EQ(MORVADefineDone(nullptr, 0, 16), MORVA_INVALID);
  EXPECT_EQ(inst->definedKeyLength, 0u);
  EXPECT_EQ(host.story(), "");
}

// ---- closing ----------------------------------------------------------------

TEST_F(Define, ClosingReachesThePackerByteForByte) {
  const std::vector<std::pair<uint32_t, uint32_t>> cases = {
      {0, 16}, {flagDefineOpt, 528}, {flagDefineOpt | flagPackOpt | flagUnordered, 528}};
  for (const auto &[flags, word] : cases) {
    for (const int32_t argument : {0, 1, 0x7FFFFFFF, -1, std::numeric_limits<int32_t>::min()}) {
      MORVAInst *inst = open(flags);
      host.closings.clear();
      host.closingNames.clear();
      EXPECT_EQ(field(inst, 5), MORVA_OK);
      EXPECT_EQ(field(inst, 9), MORVA_OK);
      EXPECT_EQ(done(inst, argument), MORVA_OK);
      ASSERT_EQ(host.closings.size(), 1u);
      EXPECT_EQ(host.closingNames[0], "lumaakey");
      Bytes expected(64, 0);
      put32(&expected, 0, word);
      put64(&expected, 8, static_cast<uint64_t>(int64_t{argument}));
      put64(&expected, 16, 14);
      put64(&expected, 32, reinterpret_cast<uintptr_t>(host.closings[0].name));
      EXPECT_EQ(bytesOf(host.closings[0]), expected) << flags << " " << argument;
    }
  }
}

TEST_F(Define, ClosingMakesThePoolAndThenAsksThePacker) {
  MORVAInst *inst = open();
  EXPECT_EQ(field(inst, 8), MORVA_OK);
  host.forget();
  EXPECT_EQ(done(inst), MORVA_OK);
  EXPECT_EQ(host.story(), "createPool(records) finish");
  const Event pool = host.events()[0];
  EXPECT_EQ(pool.a, 0u);
  EXPECT_EQ(pool.b, 0x1000000u);
  EXPECT_NE(inst->flags & flagDefined, 0u);
  EXPECT_EQ(inst->recordsUsed, 8);
  EXPECT_EQ(inst->recordBlockCapacity, 8);
  EXPECT_EQ(inst->recordBlocks, nullptr);
  EXPECT_EQ(inst->recordBlockMax, 2013265 / 64);
}

TEST_F(Define, ClosingReplacesTheDataLength) {
  MORVAInst *inst = open(0, 16);
  EXPECT_EQ(field(inst, 8), MORVA_OK);
  EXPECT_EQ(inst->dataLength, 16u);
  EXPECT_EQ(done(inst, 0, 100), MORVA_OK);
  EXPECT_EQ(inst->dataLength, 100u);
  EXPECT_EQ(inst->recordSize, 108u);
}

TEST_F(Define, WithoutFieldsTheKeyIsEmptyAndOneKeyExists) {
  MORVAInst *plain = open();
  EXPECT_EQ(done(plain), MORVA_OK);
  EXPECT_EQ(plain->keyLength, 0u);
  EXPECT_EQ(plain->dataOffset, 0u);
  EXPECT_EQ(add(plain, 1), MORVA_OK);
  EXPECT_EQ(add(plain, 2), MORVA_PRESENT);

  MORVAInst *summed = open(flagSum);
  EXPECT_EQ(done(summed), MORVA_OK);
  EXPECT_EQ(summed->keyLength, 0u);
  EXPECT_EQ(summed->sumOffset, 0u);
  EXPECT_EQ(summed->dataOffset, 8u);
}

TEST_F(Define, AnOddKeyLengthIsRoundedUpForTheSum) {
  MORVAInst *inst = open(flagSum);
  EXPECT_EQ(field(inst, 13), MORVA_OK);
  EXPECT_EQ(done(inst), MORVA_OK);
  EXPECT_EQ(inst->keyLength, 13u);
  EXPECT_EQ(inst->sumOffset, 16u);
  EXPECT_EQ(inst->dataOffset, 24u);
  EXPECT_EQ(inst->sumIncrement, 0.0);
}

TEST_F(Define, ADefinedInstanceTakesNoMoreDefinitions) {
  MORVAInst *inst = open();
  EXPECT_EQ(field(inst, 8), MORVA_OK);
  EXPECT_EQ(done(inst), MORVA_OK);
  const Bytes before = bytesOf(*inst);
  host.forget();
  EXPECT_EQ(field(inst, 4), MORVA_INVALID);
  EXPECT_EQ(done(inst, 0, 99), MORVA_INVALID);
  EXPECT_EQ(bytesOf(*inst), before);
  EXPECT_EQ(host.story(), "");
}

TEST_F(Define, RawKeysTakeNoDefinitions) {
  for (const Mode mode : {Mode::fixed, Mode::variable}) {
    MORVAInst *inst = create(mode);
    const Bytes before = bytesOf(*inst);
    host.forget();
    EXPECT_EQ(field(inst, 4), MORVA_INVALID);
    EXPECT_EQ(done(inst, 0, 99), MORVA_INVALID);
    EXPECT_EQ(bytesOf(*inst), before);
    EXPECT_EQ(host.story(), "");
  }
}

TEST_F(Define, DefinitionsTakeNoLock) {
  MORVAInst *inst = open();
  EXPECT_EQ(field(inst, 8), MORVA_OK);
  EXPECT_EQ(done(inst), MORVA_OK);
  EXPECT_EQ(host.count(Call::acquire), 0u);
  EXPECT_EQ(host.count(Call::release), 0u);
}

TEST_F(Define, ClearingKeepsTheDefinition) {
  MORVAInst *inst = open();
  EXPECT_EQ(field(inst, 8), MORVA_OK);
  EXPECT_EQ(done(inst), MORVA_OK);
  EXPECT_EQ(add(inst, 1), MORVA_OK);
  EXPECT_EQ(inst->Clear(inst), MORVA_OK);
  EXPECT_EQ(add(inst, 1), MORVA_OK);
  EXPECT_EQ(inst->Clear2(inst), MORVA_OK);
  EXPECT_EQ(add(inst, 1), MORVA_OK);
  EXPECT_EQ(field(inst, 8), MORVA_INVALID);
}

}  // namespace
}  // namespace morva_test
