#!/bin/sh
# check_object.sh READELF LIBRARY SONAME VERSION [NEEDED-ALLOWED...]: file name
# and soname fit each other, the stack is not executable, the text needs no
# relocations; with further arguments, no other library is needed than those.
set -eu
LC_ALL=C
export LC_ALL

readelf=$1
library=$2
soname=$3
version=$4
shift 4
status=0
fail() {
  echo "$library: $1" >&2
  status=1
}

dynamic=$("$readelf" -dW "$library")
program=$("$readelf" -lW "$library")

actual=$(echo "$dynamic" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$actual" = "$soname" ] || fail "its soname is '$actual' instead of '$soname'"

base=${soname%%.so*}.so
[ "$(basename "$(readlink -f "$library")")" = "$base.$version" ] ||
  fail "the file behind it is $(readlink -f "$library") instead of $base.$version"
directory=$(dirname "$library")
for link in "$base" "$soname"; do
  [ "$(readlink -f "$directory/$link")" = "$(readlink -f "$library")" ] ||
    fail "$directory/$link does not lead to it"
done

stack=$(echo "$program" | awk '$1 == "GNU_STACK" { print $7 $8 }')
case $stack in
  RW0x*) ;;
  '') fail 'it has no GNU_STACK header, so its stack may be executable' ;;
  *) fail "its stack has the flags $stack" ;;
esac
if echo "$program" | awk '$1 == "LOAD"' | grep -q 'RWE'; then
  fail 'it has a segment that is writable and executable'
fi
if echo "$dynamic" | grep -q 'TEXTREL'; then
  fail 'its text needs relocations'
fi

if [ $# -gt 0 ]; then
  for needed in $(echo "$dynamic" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
    allowed=no
    for name; do
      if [ "$needed" = "$name" ]; then allowed=yes; fi
    done
    [ $allowed = yes ] || fail "it needs $needed; it may need only: $*"
  done
fi
exit $status
