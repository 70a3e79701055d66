#!/bin/sh
# compare.sh READELF ABIDW ABIDIFF BASELINE LIBRARY HEADERS: LIBRARY, built with
# debug information, has the binary interface that BASELINE describes. Any
# difference fails and is reported, additions and harmless ones too.
set -eu
readelf=$1
abidw=$2
abidiff=$3
baseline=$4
library=$5
headers=$6

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Without debug information there are symbols to compare, and no types.
"$readelf" -SW "$library" >"$work/sections"
if ! grep -q '\.debug_info' "$work/sections"; then
  echo "$library has no debug information to compare" >&2
  exit 1
fi

# Two descriptions are compared, made the same way: given the library itself,
# abidiff takes the types of the baseline, which has no places of definition,
# for private ones and passes over their changes.
sh "$(dirname "$0")/describe.sh" "$abidw" "$library" "$headers" >"$work/now.abi"
status=0
"$abidiff" --harmless --no-show-locs "$baseline" "$work/now.abi" >"$work/report" 2>&1 || status=$?
if [ $status -ne 0 ] || [ -s "$work/report" ]; then
  # The full report follows each change into every function; this names each once.
  "$abidiff" --leaf-changes-only --harmless --no-show-locs "$baseline" "$work/now.abi" \
    >"$work/changes" 2>&1 || true
  if [ -s "$work/changes" ]; then cat "$work/changes" >&2; else cat "$work/report" >&2; fi
  echo "The binary interface is not the one of $baseline (abidiff: $status)." >&2
  echo 'docs/abi.md says what may change, and how to renew the baseline.' >&2
  exit 1
fi
