#!/bin/sh
# constants_test.sh CC INCLUDE LIST: the public C headers define the constants
# that the list has, with the same values, and no others.
set -eu
here=$(dirname "$0")
fresh=$(mktemp)
trap 'rm -f "$fresh"' EXIT
sh "$here/list_constants.sh" "$1" "$2" >"$fresh"
diff -u "$3" "$fresh" >&2 || { echo 'See docs/abi.md.' >&2; exit 1; }
