#include <stdio.h>
#include <string.h>

#include "morva/host.h"
#include "morva/morva.h"

/*
 * Loads the extension at run time by its path, says what it is, uses a table
 * and unloads it. The program is linked with the embedded host only: everything
 * of the library is reached through the extension object and the instance.
 */

static int fail(const char *what) {
  fprintf(stderr, "dynamic_loading: %s\n", what);
  return 1;
}

/* Counts the letters of `text` in a table with one-byte keys; 0 when all went well. */
static int countLetters(MORVAExt *ext, const char *text) {
  MORVAParms parms = {
      .dataLength = sizeof(int), .keyLength = 1, .flags = flagFixedKey | flagOrdered, .hashExp = 4};
  MORVAInst *letters = ext->Create(ext, &parms, NULL, "letters");
  if (letters == NULL) return fail("the table could not be made");

  int failed = 0;
  for (const char *at = text; *at != 0 && !failed; ++at) {
    const int none = 0;
    void *count = NULL;
    const MORVAStatus added = letters->Add(letters, &none, at, 1);
    failed = (added != MORVA_OK && added != MORVA_PRESENT) ||
             letters->Find(letters, at, 1, &count) != MORVA_OK || count == NULL;
    if (!failed) ++*(int *)count;
  }
  for (OrderNode *at = QZOrderFirst(letters); at != NULL; at = QZOrderNext(at)) {
    const KeyPrefix *key = MORVARecordBase(at->record);
    const int *count = (const int *)((const char *)key + letters->Recoff(letters, at->record));
    printf("%c %d\n", *(const char *)(key + 1), *count);
  }
  letters->Destroy(letters);
  return failed ? fail("a letter could not be counted") : 0;
}

int main(int argc, char **argv) {
  if (argc != 2) return fail("usage: dynamic_loading LIBRARY, such as ./lib/libmorva.so.1");
  char error[512];
  QZHost *host = QZHostCreate(NULL);
  if (host == NULL) return fail("no memory for a host");

  /* A name with a slash is that file; without one it is looked for as every library is. */
  MORVAExt *ext = QZHostLoad(host, argv[1], error, sizeof error);
  if (ext == NULL) {
    QZHostDestroy(host, NULL);
    return fail(error);
  }
  int64_t own[3], needed[3];
  ext->GetVersion(ext, &own[0], &own[1], &own[2]);
  ext->GetReqVersion(ext, &needed[0], &needed[1], &needed[2]);
  printf("version %d.%d.%d for hosts of version %d.%d.%d\n", (int)own[0], (int)own[1], (int)own[2],
         (int)needed[0], (int)needed[1], (int)needed[2]);

  int status = countLetters(ext, "banana");
  /* Unloading is refused while a table is alive: its operations lie in the file. */
  if (QZHostUnload(host, ext, error, sizeof error) != 0) status = fail(error);
  if (QZHostDestroy(host, NULL) != 0) status = fail("something was not given back");
  if (status == 0) puts("unloaded");
  return status;
}
