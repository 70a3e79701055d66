#!/bin/sh
# Runs one case of the command-line program: run_case.sh DIRECTORY
#
# The directory holds the script cmd and the files it reads. cmd is run by sh
# in a copy of the directory, with the program as `morva` in the path. What it
# prints must be expected.out, what it prints to the standard error
# expected.err, and its exit status the number in expected.status; without
# these files nothing, nothing and 0.
#
# MORVA names the program, MORVA_LIBRARY the library.
set -u

case=$1
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin" "$work/got" || exit 1
cp -R "$case" "$work/case" || exit 1
ln -s "$MORVA" "$work/bin/morva" || exit 1
PATH=$work/bin:$PATH
LC_ALL=C
export PATH LC_ALL

: >"$work/nothing"
(cd "$work/case" && sh ./cmd) >"$work/got/out" 2>"$work/got/err"
status=$?

failed=0
for stream in out err; do
  expected=$case/expected.$stream
  [ -f "$expected" ] || expected=$work/nothing
  if ! cmp -s "$expected" "$work/got/$stream"; then
    echo "$stream differs:"
    diff -u "$expected" "$work/got/$stream" | head -n 60
    failed=1
  fi
done
expected=0
[ -f "$case/expected.status" ] && expected=$(cat "$case/expected.status")
if [ "$status" -ne "$expected" ]; then
  echo "exit status is $status, not $expected"
  failed=1
fi
exit $failed
