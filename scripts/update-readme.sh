#!/bin/sh
# Puts examples/first_table.c and first_table.cpp into the README.
#   update-readme.sh          rewrites README.md
#   update-readme.sh --check  fails when README.md is not up to date
set -eu
cd "$(dirname "$0")/.."

fresh=$(mktemp)
trap 'rm -f "$fresh"' EXIT
awk '
  /^```(c|cpp)$/ {
    print
    example = "examples/first_table." substr($0, 4)
    while ((getline line < example) > 0) print line
    inside = 1
    next
  }
  /^```$/ { inside = 0 }
  !inside { print }
' README.md >"$fresh"

if [ "${1-}" = --check ]; then
  diff -u README.md "$fresh" || { echo "README.md: run scripts/update-readme.sh" >&2; exit 1; }
else
  cat "$fresh" >README.md
fi
