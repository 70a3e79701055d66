// Packed keys in instances, and random layouts against a packing written for
// this test alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <random>

#include "packer_fields.h"

namespace host_test {
namespace {

using std::string_literals::operator""s;

// ---- the reference ---------------------------------------------------------

std::string referenceImage(const Field &field, const std::string &row) {
  std::string image = row.substr(field.rowOffset, field.length);
  if (field.type == 1) {
    double number;
    std::memcpy(&number, image.data(), sizeof number);
    if (number == 0.0) image.assign(8, '\0');
  }
  if (field.type == 2) {
    const size_t last = image.find_last_not_of(" \0"s);
    image.resize(last == std::string::npos ? 0 : last + 1);
    image.resize(field.length, ' ');
  }
  if (field.type == 5) {
    image = image.c_str();
    image.resize(field.length, '\0');
  }
  if ((field.type == 2 || field.type == 5) && field.options % 2 == 1) {
    for (char &c : image) {
      const auto byte = static_cast<unsigned char>(c);
      if (byte < 128 && std::islower(byte) != 0) c = static_cast<char>(std::toupper(byte));
    }
  }
  return image;
}

std::string referenceKey(const std::vector<Field> &fields, const std::string &row) {
  std::string key;
  for (const Field &field : fields) key += referenceImage(field, row);
  return key;
}

// ---- random layouts and rows -----------------------------------------------

constexpr uint32_t kRowLength = 200;

Field randomField(std::mt19937 &random, const Field *last) {
  Field field = {1 + static_cast<uint32_t>(random() % 5), 8};
  if (field.type == 3) field.length = UINT32_C(1) << random() % 4;
  if (field.type == 2 || field.type > 3) field.length = 1 + static_cast<uint32_t>(random() % 24);
  field.rowOffset = static_cast<uint32_t>(random() % (kRowLength - field.length + 1));
  // Often right behind the field before, as the members of a structure are.
  if (last != nullptr && random() % 2 == 0) {
    const uint32_t behind = last->rowOffset + last->length;
    if (behind + field.length <= kRowLength) field.rowOffset = behind;
  }
  field.options = static_cast<uint32_t>(random() % 2);
  return field;
}

std::vector<Field> randomLayout(std::mt19937 &random, size_t mostFields) {
  std::vector<Field> fields;
  const size_t count = random() % (mostFields + 1);
  while (fields.size() < count)
    fields.push_back(randomField(random, fields.empty() ? nullptr : &fields.back()));
  return fields;
}

// Made of the bytes that the rules are about, and of some others; floats that
// are zero of either sign here and there.
std::string randomRow(std::mt19937 &random, const std::vector<Field> &fields) {
  static const std::string bytes = "\0\0\0    aAbBzZ{`@[\x80\xE4\xFF\x01"s;
  std::string row(kRowLength, '\0');
  for (char &c : row) c = bytes[random() % bytes.size()];
  for (const Field &field : fields) {
    if (field.type != 1 || random() % 2 == 0) continue;
    const double zero = random() % 2 == 0 ? 0.0 : -0.0;
    row.replace(field.rowOffset, 8, reinterpret_cast<const char *>(&zero), 8);
  }
  return row;
}

TEST(PackedLayouts, AgreeWithTheReference) {
  CompanionHost host;
  std::mt19937 random(2024);
  for (int round = 0; round < 1500; ++round) {
    const std::vector<Field> fields = randomLayout(random, 30);
    const DrivenPacker packer(host, fields);
    for (int i = 0; i < 8; ++i) {
      const std::string row = randomRow(random, fields);
      ASSERT_EQ(packer.pack(row), referenceKey(fields, row)) << "round " << round;
    }
  }
}

// ---- in instances ----------------------------------------------------------

void define(MORVAInst *inst, const std::vector<Field> &fields, uint32_t dataLength) {
  for (const Field &field : fields) {
    const MORVAKeyDesc desc = {field.length, field.type, field.rowOffset, field.options};
    ASSERT_EQ(inst->DefineKey(inst, &desc), MORVA_OK);
  }
  ASSERT_EQ(inst->DefineDone(inst, -5, dataLength), MORVA_OK);
}

TEST(PackedLayouts, MakeInstancesTellRowsApartByTheirKeys) {
  CompanionHost host;
  std::mt19937 random(99);
  for (int round = 0; round < 40; ++round) {
    // A short key makes equal keys of different rows likely.
    const std::vector<Field> fields = randomLayout(random, 1 + round % 3);
    constexpr uint32_t kFlags[] = {
        0, flagPackOpt, flagUnordered, flagDefineOpt, flagPackOpt | flagUnordered, flagOrdered};
    MORVAInst *inst = host.create(kFlags[round % 6]);
    ASSERT_NE(inst, nullptr);
    ASSERT_NO_FATAL_FAILURE(define(inst, fields, sizeof(int)));
    EXPECT_EQ(inst->keyLength, referenceKey(fields, std::string(kRowLength, 'x')).size());
    std::map<std::string, int> model;
    for (int i = 0; i < 600; ++i) {
      const std::string row = randomRow(random, fields);
      const std::string key = referenceKey(fields, row);
      const auto known = model.find(key);
      void *data = nullptr;
      ASSERT_EQ(inst->Find(inst, row.data(), -1, &data), MORVA_OK);
      ASSERT_EQ(data != nullptr, known != model.end());
      if (known == model.end()) {
        ASSERT_EQ(inst->Add(inst, &i, row.data(), 0), MORVA_OK);
        ASSERT_EQ(inst->Find(inst, row.data(), 0, &data), MORVA_OK);
        ASSERT_NE(data, nullptr);
        // The key area is the image, byte for byte.
        const char *base = static_cast<char *>(data) - inst->dataOffset;
        ASSERT_EQ(std::string(base, inst->keyLength), key);
        model[key] = i;
      } else {
        int value;
        std::memcpy(&value, data, sizeof value);
        ASSERT_EQ(value, known->second);
        ASSERT_EQ(inst->Add(inst, &i, row.data(), 0), MORVA_PRESENT);
        if (i % 3 == 0) {
          ASSERT_EQ(inst->Remove(inst, row.data(), 0), MORVA_OK);
          model.erase(known);
        }
      }
      ASSERT_EQ(inst->NumElements(inst), model.size());
    }
    host.destroy(inst);
  }
}

// Adds the row, unless a row with an equal key is there.
bool isNew(MORVAInst *inst, const std::string &row) {
  const uint64_t data = 0;
  const MORVAStatus status = inst->Add(inst, &data, row.data(), 0);
  EXPECT_TRUE(status == MORVA_OK || status == MORVA_PRESENT) << status;
  return status == MORVA_OK;
}

TEST(PackedKeys, FollowTheRulesOfTheirTypes) {
  CompanionHost host;
  const auto table = [&](const Field &field) {
    MORVAInst *inst = host.create(0);
    define(inst, {field}, 8);
    return inst;
  };
  const auto number = [](double value) {
    return std::string(reinterpret_cast<const char *>(&value), sizeof value);
  };

  MORVAInst *floats = table({1, 8});
  EXPECT_TRUE(isNew(floats, number(0.0)));
  EXPECT_FALSE(isNew(floats, number(-0.0)));
  EXPECT_TRUE(isNew(floats, "\1\0\0\0\0\0\xF8\x7F"s));
  EXPECT_TRUE(isNew(floats, "\2\0\0\0\0\0\xF8\x7F"s));
  EXPECT_FALSE(isNew(floats, "\1\0\0\0\0\0\xF8\x7F"s));

  MORVAInst *fixedText = table({2, 4, 0, 1});
  EXPECT_TRUE(isNew(fixedText, "ab  "));
  EXPECT_FALSE(isNew(fixedText, "AB\0\0"s));
  EXPECT_FALSE(isNew(fixedText, "aB \0"s));
  EXPECT_TRUE(isNew(fixedText, " ab "));
  EXPECT_TRUE(isNew(fixedText, "    "));
  EXPECT_FALSE(isNew(fixedText, "\0\0\0\0"s));

  MORVAInst *text = table({5, 4});
  EXPECT_TRUE(isNew(text, "ab\0x"s));
  EXPECT_FALSE(isNew(text, "ab\0y"s));
  EXPECT_TRUE(isNew(text, "ab \0"s));
  EXPECT_TRUE(isNew(text, "AB\0\0"s));

  MORVAInst *integers = table({3, 4, 2});
  EXPECT_TRUE(isNew(integers, "..\1\0\0\0.."s));
  EXPECT_FALSE(isNew(integers, "##\1\0\0\0##"s));
  EXPECT_TRUE(isNew(integers, "..\xFF\xFF\xFF\xFF"s));
}

TEST(PackedKeys, OfNullRowsAreAllZero) {
  CompanionHost host;
  MORVAInst *inst = host.create(0);
  define(inst, {{4, 4}, {3, 4, 4}}, 8);
  const uint64_t data = 42;
  ASSERT_EQ(inst->Add(inst, &data, nullptr, 0), MORVA_OK);
  EXPECT_FALSE(isNew(inst, std::string(8, '\0')));
  EXPECT_TRUE(isNew(inst, "\0\0\0\0\1\0\0\0"s));
}

TEST(PackedKeys, WithoutFieldsAreOneKey) {
  CompanionHost host;
  MORVAInst *inst = host.create(0);
  define(inst, {}, 8);
  EXPECT_EQ(inst->keyLength, 0u);
  EXPECT_TRUE(isNew(inst, "one"));
  EXPECT_FALSE(isNew(inst, "two"));
  ASSERT_EQ(inst->Remove(inst, nullptr, 0), MORVA_OK);
  EXPECT_EQ(inst->NumElements(inst), 0u);
}

TEST(PackedKeys, AreRefusedToTheInstanceThatDescribesThemBadly) {
  CompanionHost host;
  MORVAInst *inst = host.create(0);
  for (const MORVAKeyDesc &desc : {MORVAKeyDesc{4, 1, 0, 0}, MORVAKeyDesc{3, 3, 0, 0},
                                   MORVAKeyDesc{16, 3, 0, 0}, MORVAKeyDesc{0, 2, 0, 0}}) {
    MORVAInst *refused = host.create(0);
    EXPECT_EQ(refused->DefineKey(refused, &desc), MORVA_INVALID)
        << desc.fieldType << " of " << desc.fieldLength;
  }
  // The refused field stays counted, so that the next one is not where the
  // packer expects it, and the key not as long.
  const MORVAKeyDesc bad = {4, 1, 0, 0}, good = {8, 1, 0, 0};
  EXPECT_EQ(inst->DefineKey(inst, &bad), MORVA_INVALID);
  EXPECT_EQ(inst->DefineKey(inst, &good), MORVA_INVALID);
  EXPECT_EQ(inst->DefineDone(inst, 0, 8), MORVA_NO_MEMORY);
}

TEST(PackedKeys, AreFoundInAnyCaseOverAllLettersOfTheirFields) {
  CompanionHost host;
  MORVAInst *inst = host.create(flagOrdered | flagSum);
  define(inst, {{5, 8, 4, 1}, {2, 4, 0, 1}}, 8);
  EXPECT_TRUE(isNew(inst, "deptsmith\0\0\0"s));
  EXPECT_FALSE(isNew(inst, "DEPTSmith\0ab"s));
  EXPECT_FALSE(isNew(inst, "DePtsmITH\0\0\0"s));
  EXPECT_TRUE(isNew(inst, "deptsmithy\0\0"s));
}

}  // namespace
}  // namespace host_test
