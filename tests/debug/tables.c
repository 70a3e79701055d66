/*
 * Tables of every key mode, for the debugger to look at: it stops in `look`,
 * with pointers to what is sound and what is not.
 */
#include <stdio.h>
#include <string.h>

#include "morva/host.h"
#include "morva/morva.h"

typedef struct Row {
  char city[6];
  int32_t year;
} Row;

typedef struct Reading {
  int32_t year;
  float degrees;
} Reading;

MORVAInst *fixedKeys, *variableKeys, *typedKeys, *undefinedKeys;
RecordNode *present, *leaf, *freeNode;
Bucket *fullBucket, *emptyBucket;

/* Copies, with something wrong in each. */
MORVAInst noInstance, brokenInstance;
RecordNode brokenNode, longKey[2];
Bucket brokenBucket, circle;
RecordNode circleNode;
BucketArray brokenArray;

void look(void);
void look(void) {}

static MORVAInst *make(MORVAExt *ext, uint32_t flags, uint32_t dataLength, int32_t hashExp,
                       const char *name) {
  MORVAParms parms;
  memset(&parms, 0, sizeof parms);
  parms.flags = flags;
  parms.keyLength = 8;
  parms.dataLength = dataLength;
  parms.hashExp = hashExp;
  return ext->Create(ext, &parms, NULL, name);
}

static int add(MORVAInst *inst, const char *key, const void *data) {
  return inst->Add(inst, data, key, (int32_t)strlen(key)) == MORVA_OK;
}

static int fill(MORVAExt *ext) {
  static const char *const keys[] = {"oak", "ash", "elm", "yew", "fir", "birch", "alder", "cedar"};
  int good = 1;
  fixedKeys = make(ext, flagFixedKey | flagSum | flagMultiData, sizeof(Reading), 0, "trees");
  variableKeys = make(ext, flagVarKey | flagOrdered, sizeof(int32_t), 4, NULL);
  typedKeys = make(ext, flagNoLock, 0, 2, "cities");
  undefinedKeys = make(ext, 0, 0, 2, "undefined");
  if (fixedKeys == NULL || variableKeys == NULL || typedKeys == NULL || undefinedKeys == NULL) {
    return 0;
  }

  fixedKeys->SetSumInc(fixedKeys, 2.5);
  for (int32_t i = 0; i < 8; ++i) {
    const Reading reading = {2000 + i, (float)i / 2};
    good &= add(fixedKeys, keys[i], &reading);
  }
  const Reading again = {2010, -1.0F};
  good &= add(fixedKeys, "elm", &again) && add(fixedKeys, "elm", &again);
  good &= fixedKeys->FindNode(fixedKeys, "elm", 3, &present, NULL) == MORVA_OK;
  good &= fixedKeys->FindNode(fixedKeys, "ash", 3, &leaf, NULL) == MORVA_OK;

  /* The node of a removed record is the next to be used again. */
  good &= add(fixedKeys, "gone", &again);
  good &= fixedKeys->Remove(fixedKeys, "gone", 4) == MORVA_OK;
  freeNode = fixedKeys->freeRecords;
  fullBucket = MORVABucketAt(fixedKeys->buckets, 0);

  const int32_t number = 65;
  good &= add(variableKeys, "", &number) && add(variableKeys, "\x01\xff\x02", &number);
  good &= add(variableKeys, "a \"key\" that is much longer than what is shown of keys", &number);

  static const MORVAKeyDesc fields[] = {{6, 4, offsetof(Row, city), 0},
                                        {4, 3, offsetof(Row, year), 0}};
  for (size_t i = 0; i < 2; ++i) {
    good &= typedKeys->DefineKey(typedKeys, &fields[i]) == MORVA_OK;
  }
  good &= typedKeys->DefineDone(typedKeys, 0, 0) == MORVA_OK;
  const Row row = {{'L', 'i', 'm', 'a', 0, 0}, 1535};
  good &= typedKeys->Add(typedKeys, NULL, &row, 0) == MORVA_OK;
  for (uint32_t i = 0; i <= typedKeys->buckets->mask; ++i) {
    Bucket *bucket = MORVABucketAt(typedKeys->buckets, i);
    if (bucket->root == NULL) emptyBucket = bucket;
  }
  return good && emptyBucket != NULL;
}

static void breakCopies(void) {
  memcpy(&noInstance, fixedKeys, sizeof noInstance);
  memcpy(noInstance.eyeCatcher, "nono", 4);
  memcpy(&brokenInstance, fixedKeys, sizeof brokenInstance);
  brokenInstance.buckets = (BucketArray *)16;
  brokenInstance.freeRecords = (RecordNode *)16;
  brokenInstance.name = (char *)16;
  memcpy(&brokenNode, present, sizeof brokenNode);
  brokenNode.owner = (void *)16;
  /* The second node stands in for a key area: its first half is the length. */
  memcpy(&longKey[0], present, sizeof longKey[0]);
  longKey[1].left = 1000;
  brokenBucket.root = (RecordNode *)16;
  brokenBucket.count = 1;
  circle.root = &circleNode;
  circle.count = 1;
  circleNode.left = LINK_THREAD;
  circleNode.right = (uintptr_t)&circleNode;
  circleNode.owner = NULL;
  brokenArray.mask = 6;
}

int main(int argc, char **argv) {
  char error[256] = "";
  QZHost *host = QZHostCreate(NULL);
  if (host == NULL || argc != 2) return 1;
  MORVAExt *ext = QZHostLoad(host, argv[1], error, sizeof error);
  if (ext == NULL || !fill(ext)) {
    fprintf(stderr, "the tables cannot be made: %s\n", error);
    QZHostDestroy(host, NULL);
    return 1;
  }
  breakCopies();
  look();
  fixedKeys->Destroy(fixedKeys);
  variableKeys->Destroy(variableKeys);
  typedKeys->Destroy(typedKeys);
  undefinedKeys->Destroy(undefinedKeys);
  return (int)QZHostDestroy(host, NULL);
}
