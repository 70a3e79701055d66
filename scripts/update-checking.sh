#!/bin/sh
# Puts the checks that the program lists into docs/checking.md: behind a marker
#   <!-- morva check-extension --list -->
# a table of what that command prints takes the place of the table that is there.
#   update-checking.sh MORVA          rewrites docs/checking.md
#   update-checking.sh MORVA --check  fails when docs/checking.md is not up to date
set -eu
morva=$(realpath "$1")
cd "$(dirname "$0")/.."
document=docs/checking.md

fresh=$(mktemp)
trap 'rm -f "$fresh"' EXIT
awk -v morva="$morva" '
  dropping && (/^\|/ || /^The [0-9]+ checks:$/ || /^$/) { next }
  { dropping = 0; print }
  /^<!-- morva check-[a-z]+ --list -->$/ {
    command = "\"" morva "\" " $3 " --list"
    count = 0
    rows = ""
    while ((command | getline line) > 0) {
      if (line ~ /^ /) {
        sub(/^ +/, "", line)
        gsub(/\|/, "\\|", line)
        rows = rows "| `" name "` | " line " |\n"
        ++count
      } else {
        name = line
      }
    }
    if (close(command) != 0 || count == 0) {
      print "update-checking.sh: no list of checks" >"/dev/stderr"
      exit 1
    }
    printf "\nThe %d checks:\n\n| Check | What is promised |\n|---|---|\n%s\n", count, rows
    dropping = 1
  }
' "$document" >"$fresh"

if [ "${2-}" = --check ]; then
  diff -u "$document" "$fresh" || { echo "$document: run scripts/update-checking.sh MORVA" >&2; exit 1; }
else
  cat "$fresh" >"$document"
fi
