/*
 * A host program in plain C: tables of every key mode on the embedded host,
 * from creation to destruction. With an argument, the library is loaded from
 * that file instead of being the one linked.
 */
#include <stdio.h>
#include <string.h>

#include "morva/host.h"
#include "morva/morva.h"

static int mismatches = 0;

#define EXPECT(condition)                                                     \
  do {                                                                        \
    if (!(condition)) {                                                       \
      fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      ++mismatches;                                                           \
    }                                                                         \
  } while (0)

typedef struct Account {
  uint64_t number;
  char owner[8];
} Account;

/* The row that the defined keys are packed from. */
typedef struct Row {
  double price;
  char name[8];
  int32_t year;
  char code[3];
} Row;

static MORVAInst *make(MORVAExt *ext, uint32_t flags) {
  MORVAParms parms;
  memset(&parms, 0, sizeof parms);
  parms.dataLength = sizeof(Account);
  parms.keyLength = 8;
  parms.flags = flags;
  parms.hashMethod = 8;
  parms.hashExp = 30;
  MORVAInst *inst = ext->Create(ext, &parms, NULL, "consumer");
  if (inst == NULL) {
    fprintf(stderr, "no instance with the flags 0x%x\n", flags);
    ++mismatches;
    return NULL;
  }
  EXPECT(parms.hashExp == 20);
  EXPECT(inst->HashSize(inst) == (UINT32_C(1) << 20) || (inst->flags & flagDefined) == 0);
  EXPECT(memcmp(inst->eyeCatcher, "nevo", 4) == 0);
  return inst;
}

static void addNumbered(MORVAInst *inst, uint64_t number, const void *key, int32_t keyLen,
                        MORVAStatus expected) {
  Account account;
  memset(&account, 0, sizeof account);
  account.number = number;
  EXPECT(inst->Add(inst, &account, key, keyLen) == expected);
}

static uint64_t numberAt(const void *data) {
  Account account;
  if (data == NULL) return UINT64_MAX;
  memcpy(&account, data, sizeof account);
  return account.number;
}

static uint64_t numberOf(MORVAInst *inst, const void *key, int32_t keyLen) {
  void *data = NULL;
  EXPECT(inst->Find(inst, key, keyLen, &data) == MORVA_OK);
  return numberAt(data);
}

/* Several records per key, in order, with sums. */
static void fixedKeys(MORVAExt *ext) {
  MORVAInst *inst = make(ext, flagFixedKey | flagOrdered | flagSum | flagMultiData);
  if (inst == NULL) return;
  EXPECT(inst->ext == ext);
  inst->SetSumInc(inst, 1.0);
  addNumbered(inst, 1, "bob", 3, MORVA_OK);
  addNumbered(inst, 2, "al", 2, MORVA_OK);
  addNumbered(inst, 3, "bob", 3, MORVA_OK);
  addNumbered(inst, 4, "", 0, MORVA_OK);
  addNumbered(inst, 5, "bob", 3, MORVA_OK);
  addNumbered(inst, 9, "much too long a key for it", 26, MORVA_INVALID);
  EXPECT(inst->NumElements(inst) == 5);
  EXPECT(numberOf(inst, "al", 2) == 2);
  EXPECT(numberOf(inst, "", 0) == 4);
  EXPECT(numberOf(inst, "eve", 3) == UINT64_MAX);

  /* Along the duplicates and back. */
  void *cursor = NULL;
  EXPECT(inst->Find(inst, "bob", 3, &cursor) == MORVA_OK);
  EXPECT(numberAt(cursor) == 1 && !inst->HasPrev(inst, cursor) && inst->HasNext(inst, cursor));
  EXPECT(inst->FindNext(inst, cursor, &cursor) == MORVA_OK && numberAt(cursor) == 3);
  EXPECT(inst->FindNext(inst, cursor, &cursor) == MORVA_OK && numberAt(cursor) == 5);
  EXPECT(!inst->HasNext(inst, cursor) && inst->HasPrev(inst, cursor));
  EXPECT(inst->FindPrev(inst, cursor, &cursor) == MORVA_OK && numberAt(cursor) == 3);

  /* Every lookup has counted: 1 from the add, 2 from the visits. */
  double sum = 0.0;
  EXPECT(inst->SumDup(inst, cursor, &sum) == MORVA_OK && sum == 3.0);
  EXPECT(inst->Sum(inst, "bob", 3, &sum) == MORVA_OK && sum == 2.0);
  EXPECT(inst->SumKey(inst, cursor, &sum, 8) == MORVA_OK && sum == 3.0);
  EXPECT(memcmp((char *)cursor + 8, &sum, sizeof sum) == 0);

  /* The order is that of the first records. */
  static const char *const order[] = {"bob", "al", ""};
  size_t place = 0;
  for (OrderNode *node = QZOrderFirst(inst); node != NULL; node = QZOrderNext(node)) {
    RecordNode *record = (RecordNode *)node->record;
    const KeyPrefix *prefix = (const KeyPrefix *)MORVARecordBase(record);
    EXPECT(place < 3 && prefix->length == strlen(order[place]) &&
           memcmp(prefix + 1, order[place], prefix->length) == 0);
    ++place;
  }
  EXPECT(place == 3);

  Account changed;
  memset(&changed, 0, sizeof changed);
  changed.number = 33;
  EXPECT(inst->ReplaceDup(inst, cursor, &changed) == MORVA_OK && numberAt(cursor) == 33);
  EXPECT(inst->RemoveDup(inst, &cursor, "bob", 3) == MORVA_OK && cursor == NULL);
  EXPECT(inst->RemoveDup(inst, &cursor, "bob", 3) == MORVA_NO_CURSOR);
  EXPECT(inst->NumElements(inst) == 4);
  EXPECT(inst->Remove(inst, "bob", 3) == MORVA_OK && inst->NumElements(inst) == 2);
  EXPECT(inst->Remove(inst, "bob", 3) == MORVA_INVALID);

  uint32_t equal = 7;
  EXPECT(inst->Equals(inst, inst, &equal) == MORVA_OK && equal == 1);
  EXPECT(inst->TotalMem(inst) > 0);
  EXPECT(inst->Clear2(inst) == MORVA_OK && inst->NumElements(inst) == 0);
  addNumbered(inst, 6, "bob", 3, MORVA_OK);
  EXPECT(inst->Clear(inst) == MORVA_OK && inst->TotalMem(inst) == 0);
  EXPECT(QZOrderFirst(inst) == NULL && QZOrderLast(inst) == NULL);
  addNumbered(inst, 7, "bob", 3, MORVA_OK);
  EXPECT(numberOf(inst, "bob", 3) == 7);
  EXPECT(inst->Destroy(inst) == MORVA_OK);
}

static void variableKeys(MORVAExt *ext) {
  MORVAInst *inst = make(ext, flagVarKey | flagNoLock);
  if (inst == NULL) return;
  char longKey[5000];
  memset(longKey, 'x', sizeof longKey);
  addNumbered(inst, 1, longKey, (int32_t)sizeof longKey, MORVA_OK);
  addNumbered(inst, 2, longKey, 1, MORVA_OK);
  addNumbered(inst, 3, longKey, 1, MORVA_PRESENT);
  EXPECT(numberOf(inst, longKey, (int32_t)sizeof longKey) == 1);
  EXPECT(numberOf(inst, longKey, 1) == 2);
  EXPECT(numberOf(inst, longKey, 2) == UINT64_MAX);
  Account account = {8, "eight"};
  EXPECT(inst->Replace(inst, &account, longKey, 1) == MORVA_OK);
  EXPECT(numberOf(inst, longKey, 1) == 8);

  RecordNode *node = NULL;
  uint32_t bucket = UINT32_MAX, hashed = UINT32_MAX;
  EXPECT(inst->FindNode(inst, longKey, 1, &node, &bucket) == MORVA_OK && node != NULL);
  EXPECT(inst->Recoff(inst, node) == 16);
  EXPECT(inst->HashVal(inst, longKey, 1, &hashed) == MORVA_OK && hashed == bucket);
  EXPECT(inst->BucketSize(inst, bucket) >= 1);

  double sum = 5.0;
  EXPECT(inst->Sum(inst, longKey, 1, &sum) == MORVA_NO_SUM && sum == 5.0);
  EXPECT(inst->Remove(inst, longKey, (int32_t)sizeof longKey) == MORVA_OK);
  EXPECT(inst->NumElements(inst) == 1);
  EXPECT(inst->Clear(inst) == MORVA_OK && inst->NumElements(inst) == 0);
  EXPECT(inst->Destroy(inst) == MORVA_OK);
}

static void definedKeys(MORVAExt *ext) {
  MORVAInst *inst = make(ext, flagMultiData);
  if (inst == NULL) return;
  static const MORVAKeyDesc fields[] = {
      {sizeof(double), 1, offsetof(Row, price), 0},
      {8, 5, offsetof(Row, name), 1},
      {sizeof(int32_t), 3, offsetof(Row, year), 0},
      {3, 4, offsetof(Row, code), 0},
  };
  Row row = {2.5, "apple", 1999, {'x', 'y', 'z'}};
  addNumbered(inst, 1, &row, 0, MORVA_INVALID);
  for (size_t i = 0; i < sizeof fields / sizeof *fields; ++i) {
    EXPECT(inst->DefineKey(inst, &fields[i]) == MORVA_OK);
  }
  EXPECT(inst->DefineDone(inst, 0, sizeof(Account)) == MORVA_OK);
  EXPECT(inst->DefineDone(inst, 0, sizeof(Account)) == MORVA_INVALID);
  EXPECT(inst->keyLength == 23);

  addNumbered(inst, 1, &row, 0, MORVA_OK);
  Row other = row;
  other.year = 2000;
  addNumbered(inst, 2, &other, 0, MORVA_OK);
  /* What lies behind the end of the text, and its case, does not matter. */
  Row same = {2.5, "APPLE\0z", 1999, {'x', 'y', 'z'}};
  addNumbered(inst, 3, &same, 0, MORVA_OK);
  EXPECT(inst->NumElements(inst) == 3);
  void *cursor = NULL;
  EXPECT(inst->Find(inst, &row, 0, &cursor) == MORVA_OK && numberAt(cursor) == 1);
  EXPECT(inst->FindNext(inst, cursor, &cursor) == MORVA_OK && numberAt(cursor) == 3);
  EXPECT(numberOf(inst, &other, 0) == 2);
  EXPECT(inst->Remove(inst, &same, 0) == MORVA_OK && inst->NumElements(inst) == 1);
  EXPECT(numberOf(inst, &row, 0) == UINT64_MAX);
  EXPECT(inst->Clear2(inst) == MORVA_OK && inst->NumElements(inst) == 0);
  EXPECT(inst->Destroy(inst) == MORVA_OK);
}

int main(int argc, char **argv) {
  char error[256] = "";
  QZHost *host = QZHostCreate(NULL);
  if (host == NULL) {
    fputs("no host\n", stderr);
    return 1;
  }
  const QZEntryPoints linked = {"morva", qzextver, morva};
  MORVAExt *ext = argc > 1 ? QZHostLoad(host, argv[1], error, sizeof error)
                           : QZHostAttach(host, &linked, error, sizeof error);
  if (ext == NULL) {
    fprintf(stderr, "%s\n", error);
    QZHostDestroy(host, NULL);
    return 1;
  }
  int64_t major = 0, minor = 0, patch = 0;
  EXPECT(ext->GetVersion(ext, &major, &minor, &patch) == MORVA_OK);
  EXPECT(major == 1 && minor == 0 && patch == 3);

  fixedKeys(ext);
  variableKeys(ext);
  definedKeys(ext);

  QZHostStats left;
  EXPECT(QZHostDestroy(host, &left) == 0);
  EXPECT(left.extensions == 1 && left.locks == 0 && left.trees == 0);
  if (mismatches > 0) {
    fprintf(stderr, "%d mismatches\n", mismatches);
    return 1;
  }
  puts("all as expected");
  return 0;
}
