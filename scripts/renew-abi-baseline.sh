#!/bin/sh
# Writes the description of the binary interface in tests/abi/baseline anew.
# Read docs/abi.md first, and the difference afterwards: it is what users of the
# libraries get. Needs g++ and the package abigail-tools.
set -eu
cd "$(dirname "$0")/.."
root=$PWD
baseline=$root/tests/abi/baseline
headers=$root/include/morva

abidw=$(command -v abidw) || {
  echo 'renew-abi-baseline.sh: abidw is missing; it is in the package abigail-tools' >&2
  exit 1
}
CC=${CC:-gcc}
CXX=${CXX:-g++}
export CC CXX

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sh "$baseline/build_with_debug_info.sh" "$root" "$work/build" morva qzhost
(cd "$baseline" && "$CC" -std=c11 -O0 -g -fPIC -shared -I"$root/include" loose_types.c \
  -o "$work/build/lib/libloose_types.so")

for library in morva qzhost loose_types; do
  sh "$baseline/describe.sh" "$abidw" "$work/build/lib/lib$library.so" "$headers" \
    >"$work/$library.abi"
done
sh "$baseline/list_constants.sh" "$CC" "$root/include" >"$work/constants.list"

for file in morva.abi qzhost.abi loose_types.abi constants.list; do
  if [ -f "$baseline/$file" ] && cmp -s "$work/$file" "$baseline/$file"; then
    echo "$file: as before"
  else
    cp "$work/$file" "$baseline/$file"
    echo "$file: renewed"
  fi
done
