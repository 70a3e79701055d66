#!/bin/sh
# check_exports.sh NM LIBRARY LIST: the library exports what the list names,
# each as a function or as data, and nothing else.
set -eu
LC_ALL=C
export LC_ALL

nm=$1
library=$2
list=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Version nodes appear as absolute symbols and are not part of the list.
"$nm" -D --defined-only "$library" >"$work/nm"
awk '$2 != "A" {
  sub(/@.*/, "", $3)
  kind = "other(" $2 ")"
  if ($2 == "T") kind = "function"
  if ($2 ~ /^[BDR]$/) kind = "data"
  print kind, $3
}' "$work/nm" | sort >"$work/exported"
grep -v '^#' "$list" | sort >"$work/expected"

if ! cmp -s "$work/expected" "$work/exported"; then
  echo "$library does not export what $list says:" >&2
  comm -23 "$work/expected" "$work/exported" | sed 's/^/  missing:    /' >&2
  comm -13 "$work/expected" "$work/exported" | sed 's/^/  unexpected: /' >&2
  exit 1
fi
echo "$(wc -l <"$work/expected") symbols, as listed"
