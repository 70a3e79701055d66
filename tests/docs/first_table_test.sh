#!/bin/sh
# first_table_test.sh PROGRAM LIBRARY: the README's program, run on a few words.
set -eu

expected='     2  pear
     1  apple
     3  fig'
actual=$(printf 'pear apple fig pear\nfig fig\n' | "$1" "$2")
if [ "$actual" != "$expected" ]; then
  printf 'expected:\n%s\nbut got:\n%s\n' "$expected" "$actual" >&2
  exit 1
fi

# Without the library it says what is missing, and where.
if message=$(echo word | "$1" no-such-library.so 2>&1); then
  echo "a missing library went unnoticed" >&2
  exit 1
fi
case $message in
  *no-such-library.so*) ;;
  *)
    echo "the message does not name the file: $message" >&2
    exit 1
    ;;
esac
