#!/bin/sh
# run_morva.sh ROOT VERSION: the installed program works, with the library that
# was installed with it.
set -eu
root=$(realpath "$1")
version=$2
unset MORVA_LIBRARY

answer=$("$root/usr/bin/morva" --version)
echo "$answer"
echo "$answer" | grep -qx "morva $version"
echo "$answer" | grep -q "^library $version, $root/usr/lib/"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf 'city,sold\nRome,2\nOslo,5\nRome,4\n' >"$work/sold.csv"
"$root/usr/bin/morva" sum "$work/sold.csv" --by city --value sold >"$work/sums"
cat "$work/sums"
grep -qx 'Rome,6' "$work/sums"
grep -qx 'Oslo,5' "$work/sums"
