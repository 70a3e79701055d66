#!/bin/sh
# Puts examples/c_host.c, piece by piece, into docs/hosting.md: under a marker
#   <!-- examples/c_host.c: Pools -->
# the block of code becomes the part of the file that begins with "/* ---- Pools",
# under "Start" the part before the first such line. All parts must be shown.
#   update-hosting.sh          rewrites docs/hosting.md
#   update-hosting.sh --check  fails when docs/hosting.md is not up to date
set -eu
cd "$(dirname "$0")/.."
document=docs/hosting.md

fresh=$(mktemp)
trap 'rm -f "$fresh"' EXIT
awk -v source=examples/c_host.c '
  BEGIN {
    part = "Start"
    while ((getline line < source) > 0) {
      if (line ~ /^\/\* ---- /) {
        part = line
        sub(/^\/\* ---- /, "", part)
        sub(/:.*| ---- \*\/$/, "", part)
      }
      text[part] = text[part] line "\n"
    }
  }
  /^<!-- examples\/c_host\.c: .* -->$/ {
    wanted = $0
    sub(/^<!-- examples\/c_host\.c: /, "", wanted)
    sub(/ -->$/, "", wanted)
  }
  /^```c$/ && wanted != "" {
    print
    if (!(wanted in text)) { print "update-hosting.sh: no such part: " wanted >"/dev/stderr"; exit 1 }
    sub(/\n+$/, "\n", text[wanted])
    printf "%s", text[wanted]
    shown[wanted] = 1
    wanted = ""
    inside = 1
    next
  }
  /^```$/ { inside = 0 }
  !inside { print }
  END {
    for (part in text)
      if (!(part in shown)) { print "update-hosting.sh: not shown: " part >"/dev/stderr"; exit 1 }
  }
' "$document" >"$fresh"

if [ "${1-}" = --check ]; then
  diff -u "$document" "$fresh" || { echo "$document: run scripts/update-hosting.sh" >&2; exit 1; }
else
  cat "$fresh" >"$document"
fi
