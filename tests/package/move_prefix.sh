#!/bin/sh
# move_prefix.sh CMAKE BUILD FIRST SECOND: installs the build to FIRST, and moves
# that to SECOND. Nothing in it may remember where it was.
set -eu
cmake=$1
build=$2
first=$3
second=$4

rm -rf "$first" "$second"
"$cmake" --install "$build" --prefix "$first" >/dev/null
mkdir -p "$(dirname "$second")"
mv "$first" "$second"
# gdb looks for its file by the library's full path; that is in a name, not in a file.
if grep -r -l -F -e "$first" -e "$build" "$second"; then
  echo "these files name the place they were installed to, or the build" >&2
  exit 1
fi
