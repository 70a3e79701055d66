// Packed keys: what is told to the record packer, and when.
#include "extension_lab.h"
#include "extension_parts.h"

namespace morva::cli::check {

namespace {

MORVAInst *undefinedInstance(const Lab &lab, uint32_t flags = 0) {
  MORVAInst *inst = createInstance(lab.ext, {.flags = flags});
  expect(inst != nullptr, "Create answered null");
  return inst;
}

void describesFields(const Subject &subject) {
  Lab lab(subject);
  MORVAInst *inst = undefinedInstance(lab);
  const MORVAKeyDesc given[] = {{3, 1, 0xF0000001, 1}, {5, 2, 20, 1},     {8, 3, 30, 1},
                                {4, 4, 40, 1},         {7, 5, 50, 0xFFF}, {2, 5, 60, 0xFFE}};
  const uint32_t types[] = {1, 2, 3, 4, 2, 2};
  const uint32_t subTypes[] = {0, 0, 0, 0, 27, 27};
  const uint32_t options[] = {0, 1, 0, 0, 1, 0};
  uint64_t offset = 0;
  for (size_t at = 0; at != std::size(given); ++at) {
    expectStatus(inst->DefineKey(inst, &given[at]), MORVA_OK, "DefineKey");
    expectEqual(lab.host.fields.size(), at + 1, "the number of fields told to the packer");
    const std::string which = " of field " + shown(at + 1);
    PackerField wanted = {};
    wanted.fieldClass = 3;
    wanted.fieldArg = given[at].fieldArg;
    wanted.fieldLength = wanted.fieldLengthAgain = given[at].fieldLength;
    wanted.typeCode = wanted.typeCodeAgain = types[at];
    wanted.subType = subTypes[at];
    wanted.fieldOffset = offset;
    wanted.fieldOptions = options[at];
    const PackerField &told = lab.host.fields[at];
    expectEqual(told.fieldClass, wanted.fieldClass, "the class" + which);
    expectEqual(told.fieldArg, wanted.fieldArg, "the argument" + which);
    expectEqual(told.fieldLength, wanted.fieldLength, "the length" + which);
    expectEqual(told.typeCode, wanted.typeCode, "the type code" + which);
    expectEqual(told.subType, wanted.subType, "the sub-type" + which);
    expectEqual(told.fieldOffset, wanted.fieldOffset, "the offset" + which);
    expectEqual(told.fieldOptions, wanted.fieldOptions, "the options" + which);
    expect(std::string_view(reinterpret_cast<const char *>(&told), sizeof told) ==
               std::string_view(reinterpret_cast<const char *>(&wanted), sizeof wanted),
           "a repeated or reserved word" + which + " is not as it should be");
    offset += given[at].fieldLength;
    expectEqual(inst->definedKeyLength, static_cast<uint32_t>(offset), "`definedKeyLength`");
  }
}

void choosesTheFieldClass(const Subject &subject) {
  Lab lab(subject);
  const uint32_t wanted[][2] = {
      {0, 3}, {flagPackOpt, 4}, {flagUnordered, 1}, {flagUnordered | flagOrdered, 3}};
  for (const auto &[flags, fieldClass] : wanted) {
    MORVAInst *inst = undefinedInstance(lab, flags);
    expectStatus(defineField(inst, 4, 0), MORVA_OK, "DefineKey");
    expectEqual(lab.host.fields.back().fieldClass, fieldClass,
                "the field class for the option bits " + shownStatus(flags));
  }
}

void describesTheEnd(const Subject &subject) {
  Lab lab(subject);
  const uint32_t wanted[][2] = {{0, 16}, {flagDefineOpt, 528}};
  for (const auto &[flags, word] : wanted) {
    MORVAInst *inst = undefinedInstance(lab, flags);
    expectStatus(defineField(inst, 3, 0), MORVA_OK, "DefineKey");
    expectStatus(defineField(inst, 10, 3), MORVA_OK, "DefineKey");
    expectStatus(inst->DefineDone(inst, -7, 24), MORVA_OK, "DefineDone");
    const PackerClosing &told = lab.host.closings.back();
    expectEqual(told.closingWord, word, "the closing word");
    expectEqual(told.packerArg, int64_t{-7}, "the argument of the closing block");
    expectEqual(told.keyLength, uint64_t{13}, "the key length of the closing block");
    expectEqual(lab.host.closingNames.back(), std::string("lumaakey"),
                "the name in the closing block");
    expectEqual(inst->dataLength, 24U, "`dataLength` after DefineDone");
  }
}

void refusesDefinitions(const Subject &subject) {
  Lab lab(subject);
  MORVAInst *inst = undefinedInstance(lab);
  const MORVAKeyDesc desc = {4, 1, 0, 0};
  expectStatus(inst->DefineKey(nullptr, &desc), MORVA_INVALID, "DefineKey of null");
  expectStatus(inst->DefineKey(inst, nullptr), MORVA_INVALID, "DefineKey without a description");
  expectStatus(inst->DefineDone(nullptr, 0, 8), MORVA_INVALID, "DefineDone of null");
  for (const uint32_t type : {uint32_t{0}, uint32_t{6}, uint32_t{0xFFFFFFFF}}) {
    expectStatus(defineField(inst, 4, 0, type), MORVA_INVALID, "DefineKey of type " + shown(type));
  }
  expectEqual(inst->definedKeyLength, 0U, "`definedKeyLength` after refused fields");
  expectStatus(defineField(inst, 4, 0), MORVA_OK, "DefineKey");
  expectStatus(inst->DefineDone(inst, 0, 8), MORVA_OK, "DefineDone");
  expectStatus(inst->DefineKey(inst, &desc), MORVA_INVALID, "DefineKey after DefineDone");
  expectStatus(inst->DefineDone(inst, 0, 8), MORVA_INVALID, "DefineDone after DefineDone");
  expectEqual(inst->keyLength, 4U, "`keyLength` after refused definitions");
  for (const uint32_t mode : {uint32_t{flagFixedKey}, uint32_t{flagVarKey}}) {
    const Table table(lab, {.flags = mode});
    expectStatus(table->DefineKey(table.get(), &desc), MORVA_INVALID, "DefineKey " + table.kind());
    expectStatus(table->DefineDone(table.get(), 0, 8), MORVA_INVALID, "DefineDone " + table.kind());
  }
}

void refusesUseBefore(const Subject &subject) {
  Lab lab(subject);
  MORVAInst *inst = undefinedInstance(lab, flagSum | flagMultiData);
  MORVAInst *plain = undefinedInstance(lab);
  lab.host.forget();
  alignas(8) char probe[256] = {};
  alignas(8) char record[64] = {};
  void *data = record + 32;
  void *cursor = data;
  double sum = 17;
  uint32_t number = 17;
  RecordNode *node = nullptr;
  const char *key = "some key of the row";
  for (MORVAInst *one : {inst, plain}) {
    expectStatus(one->Add(one, key, key, 8), MORVA_INVALID, "Add before the key is defined");
    expectStatus(one->Replace(one, key, key, 8), MORVA_INVALID,
                 "Replace before the key is defined");
    expectStatus(one->Find(one, key, 8, &data), MORVA_INVALID, "Find before the key is defined");
    expectStatus(one->Find2(one, key, 8, reinterpret_cast<RecordNode *>(probe), &data),
                 MORVA_INVALID, "Find2 before the key is defined");
    expectStatus(one->FindNode(one, key, 8, &node, &number), MORVA_INVALID,
                 "FindNode before the key is defined");
    expectStatus(one->HashVal(one, key, 8, &number), MORVA_INVALID,
                 "HashVal before the key is defined");
    expectStatus(one->Remove(one, key, 8), MORVA_INVALID, "Remove before the key is defined");
    expectStatus(one->RemoveDup(one, &cursor, key, 8), MORVA_INVALID,
                 "RemoveDup before the key is defined");
    expectStatus(one->FindNext(one, data, &data), MORVA_INVALID,
                 "FindNext before the key is defined");
    expectStatus(one->FindPrev(one, data, &data), MORVA_INVALID,
                 "FindPrev before the key is defined");
    expectStatus(one->ReplaceDup(one, data, key), MORVA_INVALID,
                 "ReplaceDup before the key is defined");
    expectStatus(one->Sum(one, key, 8, &sum), MORVA_INVALID, "Sum before the key is defined");
    expectStatus(one->SumDup(one, data, &sum), MORVA_INVALID, "SumDup before the key is defined");
    expectStatus(one->SumKey(one, data, &sum, 0), MORVA_INVALID,
                 "SumKey before the key is defined");
    expectStatus(one->Clear(one), MORVA_INVALID, "Clear before the key is defined");
    expectStatus(one->Clear2(one), MORVA_INVALID, "Clear2 before the key is defined");
    expectStatus(one->Equals(one, one, &number), MORVA_INVALID, "Equals before the key is defined");
    expectEqual(one->HasNext(one, data), 0U, "HasNext before the key is defined");
    expectEqual(one->HasPrev(one, data), 0U, "HasPrev before the key is defined");
    one->SetSumInc(one, 1);
    expectEqual(one->NumElements(one), 0U, "NumElements before the key is defined");
    expectEqual(one->HashSize(one), 0U, "HashSize before the key is defined");
    expectEqual(one->BucketSize(one, 0), 0U, "BucketSize before the key is defined");
    expectEqual(one->RecSize(one), 0U, "RecSize before the key is defined");
    expectEqual(one->TotalMem(one), uint64_t{0}, "TotalMem before the key is defined");
  }
  expect(data == record + 32 && cursor == data && sum == 17 && number == 17 && node == nullptr,
         "an operation that was refused wrote to a place for its answer");
  expectEqual(lab.host.story(), std::string(), "what the host was asked for by refused operations");
}

void countsRefusedFields(const Subject &subject) {
  Lab lab(subject);
  MORVAInst *inst = undefinedInstance(lab);
  lab.host.failCall(Call::defineField);
  expectStatus(defineField(inst, 4, 0), MORVA_INVALID, "DefineKey of a field the packer refuses");
  expectEqual(inst->definedKeyLength, 4U, "`definedKeyLength` after a field the packer refused");
  inst->Destroy(inst);
  lab.end();
  lab.expectNothingLeft();
}

void survivesARefusedEnd(const Subject &subject) {
  Lab lab(subject);
  MORVAInst *inst = undefinedInstance(lab);
  expectStatus(defineField(inst, 8, 0), MORVA_OK, "DefineKey");
  lab.host.failCall(Call::createPool);
  expectStatus(inst->DefineDone(inst, 0, 8), MORVA_INVALID, "DefineDone without a pool");
  lab.host.failCall(Call::finish);
  expectStatus(inst->DefineDone(inst, 0, 8), MORVA_NO_MEMORY,
               "DefineDone when the packer refuses the end");
  lab.host.failNever();
  expectStatus(inst->Add(inst, "12345678", "abcdefgh", 8), MORVA_INVALID,
               "Add after a definition that failed");
  expectStatus(inst->DefineDone(inst, 0, 8), MORVA_OK, "DefineDone once more");
  expectStatus(inst->Add(inst, "12345678", "abcdefgh", 8), MORVA_OK, "Add after DefineDone");
}

void takesKeysWithoutFields(const Subject &subject) {
  Lab lab(subject);
  MORVAInst *inst = undefinedInstance(lab);
  expectStatus(inst->DefineDone(inst, 0, 8), MORVA_OK, "DefineDone without a field");
  expectEqual(inst->keyLength, 0U, "`keyLength` without a field");
  expectEqual(inst->dataOffset, 0U, "`dataOffset` without a field");
  expectStatus(inst->Add(inst, "12345678", "a", 1), MORVA_OK, "Add of the one key");
  expectStatus(inst->Add(inst, "abcdefgh", "b", 1), MORVA_PRESENT, "Add of the one key again");
}

void refusesLargeDefinitions(const Subject &subject) {
  Lab lab(subject);
  MORVAInst *inst = undefinedInstance(lab);
  expectStatus(defineField(inst, 16, 0), MORVA_OK, "DefineKey");
  expectStatus(inst->DefineDone(inst, 0, 0xFFFFFFF0), MORVA_INVALID,
               "DefineDone of records that do not fit in 32 bits");
  inst->Destroy(inst);
  lab.end();
  lab.expectNothingLeft();
}

constexpr Check kChecks[] = {
    {"define.describes-fields", "Each field of a key reaches the packer as it was described.",
     describesFields},
    {"define.chooses-the-field-class",
     "The field class is 3, 4 with flagPackOpt, 1 with "
     "flagUnordered.",
     choosesTheFieldClass},
    {"define.describes-the-end", "DefineDone tells the packer the argument and length of the key.",
     describesTheEnd},
    {"define.refuses", "Definitions are refused for null, wrong types, and instances defined.",
     refusesDefinitions},
    {"define.comes-first",
     "Every operation refuses an instance whose key is not defined, and calls nothing of the host.",
     refusesUseBefore},
    {"define.counts-refused-fields",
     "A field that the packer refuses is refused, and its length "
     "stays counted.",
     countsRefusedFields},
    {"define.survives-a-refused-end", "A definition whose end failed can be ended again.",
     survivesARefusedEnd},
    {"define.takes-keys-without-fields", "Without any field the key is empty and one key exists.",
     takesKeysWithoutFields},
    {"define.refuses-large-records", "A record that does not fit in 32 bits is refused.",
     refusesLargeDefinitions},
};

}  // namespace

std::span<const Check> defineChecks() {
  return kChecks;
}

}  // namespace morva::cli::check
