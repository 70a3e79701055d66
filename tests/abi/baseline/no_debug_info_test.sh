#!/bin/sh
# no_debug_info_test.sh READELF ABIDW ABIDIFF BASELINE LIBRARY HEADERS: comparing a
# library without debug information fails, and says so, instead of seeing nothing.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$5" "$work/stripped.so"
strip --strip-debug "$work/stripped.so"
if sh "$(dirname "$0")/compare.sh" "$1" "$2" "$3" "$4" "$work/stripped.so" "$6" 2>"$work/report"; then
  echo 'a library without debug information was compared' >&2
  exit 1
fi
grep -q 'no debug information' "$work/report"
