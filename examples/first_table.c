#include <stdio.h>
#include <string.h>

#include "morva/host.h"
#include "morva/morva.h"

/* Counts the words of standard input, and prints them in the order they first came. */
int main(int argc, char **argv) {
  char error[256], word[64];
  QZHost *host = QZHostCreate(NULL);
  MORVAExt *ext = QZHostLoad(host, argc > 1 ? argv[1] : "libmorva.so.1", error, sizeof error);
  if (ext == NULL) return fprintf(stderr, "%s\n", error), 1;

  MORVAParms parms = {.dataLength = sizeof(long), .flags = flagVarKey | flagOrdered, .hashExp = 10};
  MORVAInst *words = ext->Create(ext, &parms, NULL, "words");
  while (words != NULL && scanf("%63s", word) == 1) {
    const int32_t length = (int32_t)strlen(word);
    const long none = 0;
    void *count = NULL;
    words->Add(words, &none, word, length); /* answers MORVA_PRESENT for a word seen before */
    if (words->Find(words, word, length, &count) != MORVA_OK || count == NULL) return 1;
    ++*(long *)count; /* records never move: read and written in place */
  }
  for (OrderNode *at = QZOrderFirst(words); at != NULL; at = QZOrderNext(at)) {
    const KeyPrefix *key = MORVARecordBase(at->record);
    const long *count = (const long *)((const char *)key + words->Recoff(words, at->record));
    printf("%6ld  %.*s\n", *count, (int)key->length, (const char *)(key + 1));
  }
  if (words != NULL) words->Destroy(words);
  return (int)QZHostDestroy(host, NULL); /* 0: everything was given back */
}
