#!/bin/sh
# refuse.sh CMAKE PROJECT BUILD FIND REASON [OPTION...]: find_package(morva FIND)
# finds nothing, and says why.
set -eu
cmake=$1
project=$2
build=$3
find=$4
reason=$5
shift 5

rm -rf "$build"
mkdir -p "$build"
"$cmake" -S "$project" -B "$build" -DFIND="$find" "$@" >"$build/log" 2>&1 || {
  cat "$build/log" >&2
  exit 1
}
# The message is broken into lines.
if ! tr -s ' \n' '  ' <"$build/log" | grep -q "$reason"; then
  echo "refused, but not with the words '$reason':" >&2
  cat "$build/log" >&2
  exit 1
fi
