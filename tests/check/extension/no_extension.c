/* A shared library that is no extension. */
int unrelated(void);

int unrelated(void) {
  return 1;
}
