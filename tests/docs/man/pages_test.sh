#!/bin/sh
# pages_test.sh GROFF VERSION PAGE...: the manual pages are formatted without a
# warning, and are those of the version.
set -eu
groff=$1
version=$2
shift 2

complaints=$(mktemp)
trap 'rm -f "$complaints"' EXIT
status=0
for page; do
  "$groff" -man -t -Tutf8 -ww -z "$page" 2>"$complaints" || status=1
  if [ -s "$complaints" ]; then
    cat "$complaints" >&2
    status=1
  fi
  title=$(grep '^\.TH ' "$page" || true)
  case $title in
    *"\"Morva $version\""*) ;;
    *)
      echo "$page: the title line is not one of Morva $version: $title" >&2
      status=1
      ;;
  esac
done
exit $status
