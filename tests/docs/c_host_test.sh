#!/bin/sh
# c_host_test.sh PROGRAM: the host of docs/hosting.md, and the table on it.
set -eu

expected='700: bolt
300: nut
700: washer
300: nut
700: washer
700: bolt'
actual=$("$1") # not 0 when anything was wrong or not given back
if [ "$actual" != "$expected" ]; then
  printf 'expected:\n%s\nbut got:\n%s\n' "$expected" "$actual" >&2
  exit 1
fi
