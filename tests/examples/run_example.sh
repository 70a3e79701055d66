#!/bin/sh
# run_example.sh PROGRAM LIBRARY EXPECTED [INPUT]
# PROGRAM, told where the library is, must print what the file EXPECTED holds;
# told of a library that is not there, it must name it and fail.
set -eu
program=$1 library=$2 expected=$3 input=${4-/dev/null}

"$program" "$library" <"$input" | diff -u "$expected" -

if message=$("$program" no-such-library.so <"$input" 2>&1); then
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
