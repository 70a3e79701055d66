#!/bin/sh
# Runs every example of the help: run_help_examples.sh DIRECTORY
#
# Examples are the lines of `morva help [COMMAND]` that start with "  $ ". They
# are run in a copy of the directory, which has the files they name. Each must
# succeed and print something, and the first lines of what they print must be
# as in the file expected.
#
# MORVA names the program, MORVA_LIBRARY the library.
set -u

directory=$1
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin" || exit 1
cp -R "$directory" "$work/files" || exit 1
ln -s "$MORVA" "$work/bin/morva" || exit 1
ln -s "$MORVA_LIBRARY" "$work/files/libmine.so" || exit 1
PATH=$work/bin:$PATH
LC_ALL=C
export PATH LC_ALL

for topic in '' count sum distinct join generate check-extension check-host help; do
  # $topic stands without quotes so that none is given for the overview.
  morva help $topic | sed -n 's/^  \$ //p' >"$work/examples"
  [ -s "$work/examples" ] || echo "no examples for $topic"
  while IFS= read -r example; do
    echo "\$ $example"
    (cd "$work/files" && sh -c "$example") >"$work/out" 2>"$work/err" </dev/null
    status=$?
    [ "$status" -eq 0 ] || echo "exit status $status"
    [ -s "$work/out" ] || echo "no output"
    head -n 6 "$work/out"
    grep '^morva: ' "$work/err"
  done <"$work/examples"
done >"$work/transcript"

diff -u "$directory/expected" "$work/transcript"
