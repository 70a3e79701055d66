#!/bin/sh
# binaries.sh DEBS VERSION SYMBOLS CHECK-IMPORTS NM: the symbols file lists what the packed
# libraries export, with the flags of the distribution the library still imports
# the memory-copy family alone, and everything is hardened and stripped.
set -eu
LC_ALL=C
export LC_ALL
debs=$1
version=$2
symbols=$3
check_imports=$4
nm=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for package in libmorva1 morva-tools; do
  dpkg-deb -x "$debs/${package}"_*.deb "$work/$package"
done
arch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
libraries=$work/libmorva1/usr/lib/$arch

cd "$work"
# It expects a source package around it. New and lost symbols are both errors.
mkdir debian
printf 'Source: morva\n\nPackage: libmorva1\nArchitecture: any\n' >debian/control
dpkg-gensymbols -c4 -plibmorva1 -v"$version" -P"$work/libmorva1" -I"$symbols" -O"$work/symbols"

sh "$check_imports" "$nm" "$libraries/libmorva.so.1" memcpy memmove memset memcmp

for file in "$libraries/libmorva.so.1" "$libraries/libqzhost.so.1" "$work/morva-tools/usr/bin/morva"; do
  readelf -lW "$file" | grep -q GNU_RELRO || { echo "$file: no relro" >&2; exit 1; }
  readelf -dW "$file" | grep -Eq 'BIND_NOW|NOW' || { echo "$file: no bind-now" >&2; exit 1; }
  readelf -hW "$file" | grep -q 'DYN' || { echo "$file: no place-independent code" >&2; exit 1; }
  if readelf -SW "$file" | grep -E '\.(debug_|symtab|comment)'; then
    echo "$file: not stripped" >&2
    exit 1
  fi
done
# The compiler's own checks are in what uses the C library.
for file in "$libraries/libqzhost.so.1" "$work/morva-tools/usr/bin/morva"; do
  for check in '__[a-z]+_chk' '__stack_chk_fail'; do
    "$nm" -D "$file" | grep -Eq " $check(@|\$)" || { echo "$file: no call of $check" >&2; exit 1; }
  done
done
