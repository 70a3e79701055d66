/*
 * A program of somebody else's, in plain C: counts in a table on the embedded
 * host. Compiled with CONSUMER_LINKED it uses the library it is linked with;
 * else it loads the file that the first argument names, or libmorva.so.1.
 */
#include <stdio.h>
#include <string.h>

#include "morva/host.h"
#include "morva/morva.h"

enum { kKeys = 1000 };

static int problem(const char *what, int at) {
  fprintf(stderr, "consumer: %s, at %d\n", what, at);
  return 1;
}

/* Fills, reads and empties the table; answers 1 at the first thing that is wrong. */
static int useTable(MORVAInst *table) {
  char key[32];
  for (int i = 0; i < kKeys; ++i) {
    const int32_t length = snprintf(key, sizeof key, "key %d", i);
    const long twice = 2L * i;
    if (table->Add(table, &twice, key, length) != MORVA_OK) return problem("not added", i);
    if (table->Add(table, &twice, key, length) != MORVA_PRESENT) return problem("added again", i);
  }
  if (table->NumElements(table) != kKeys) return problem("wrong number of records", kKeys);
  for (int i = 0; i < kKeys; ++i) {
    const int32_t length = snprintf(key, sizeof key, "key %d", i);
    void *data = NULL;
    if (table->Find(table, key, length, &data) != MORVA_OK || data == NULL) {
      return problem("not found", i);
    }
    if (*(const long *)data != 2L * i) return problem("found with the wrong data", i);
  }
  void *data = NULL;
  if (table->Find(table, "key 1000", 8, &data) != MORVA_OK || data != NULL) {
    return problem("found what is not there", kKeys);
  }

  int place = 0;
  for (OrderNode *at = QZOrderFirst(table); at != NULL; at = QZOrderNext(at), ++place) {
    const KeyPrefix *first = MORVARecordBase(at->record);
    const int length = snprintf(key, sizeof key, "key %d", place);
    if (first->length != (uint32_t)length || memcmp(first + 1, key, first->length) != 0) {
      return problem("out of order", place);
    }
  }
  if (place != kKeys) return problem("the order is incomplete", place);

  if (table->Remove(table, "key 7", 5) != MORVA_OK) return problem("not removed", 7);
  if (table->NumElements(table) != kKeys - 1) return problem("still there", 7);
  return table->Clear(table) == MORVA_OK ? 0 : problem("not cleared", 0);
}

int main(int argc, char **argv) {
  char error[256] = "";
  QZHost *host = QZHostCreate(NULL);
  if (host == NULL) return problem("no host", 0);
#ifdef CONSUMER_LINKED
  const QZEntryPoints entry = {"morva", qzextver, morva};
  MORVAExt *ext = argc == 1 ? QZHostAttach(host, &entry, error, sizeof error) : NULL;
  (void)argv;
#else
  MORVAExt *ext = QZHostLoad(host, argc > 1 ? argv[1] : "libmorva.so.1", error, sizeof error);
#endif
  if (ext == NULL) {
    QZHostDestroy(host, NULL);
    return problem(error, 0);
  }

  const MORVAParms parms = {
      .dataLength = sizeof(long), .flags = flagVarKey | flagOrdered, .hashExp = 6};
  MORVAParms granted = parms;
  MORVAInst *table = ext->Create(ext, &granted, NULL, "consumer");
  int status = table != NULL ? useTable(table) : problem("no table", 0);
  if (table != NULL && table->Destroy(table) != MORVA_OK) status = problem("not destroyed", 0);
  if (QZHostDestroy(host, NULL) != 0) status = problem("something was left", 0);
  if (status == 0) puts("consumer: all as expected");
  return status;
}
