#!/bin/sh
# dynamic_loading_test.sh PROGRAM LIBRARY VERSION: the example that loads the
# library at run time, with the library, without it, and with another file.
set -eu
program=$1 library=$2 version=$3

expected="version $version for hosts of version 6.1.1
b 1
a 3
n 2
unloaded"
actual=$("$program" "$library")
if [ "$actual" != "$expected" ]; then
  printf 'expected:\n%s\nbut got:\n%s\n' "$expected" "$actual" >&2
  exit 1
fi

# refused FILE: fails with a message that names the file, and prints nothing else.
refused() {
  if message=$("$program" "$1" 2>&1 >/dev/null); then
    echo "$1 was loaded" >&2
    exit 1
  fi
  case $message in
    "dynamic_loading: "*"$1"*) ;;
    *)
      echo "the message does not name $1: $message" >&2
      exit 1
      ;;
  esac
}
refused ./no-such-library.so
refused "$0"

if "$program" 2>/dev/null; then
  echo "a missing argument went unnoticed" >&2
  exit 1
fi
