#!/bin/sh
# check_imports.sh NM LIBRARY NAME...: the library imports no symbol but those
# named. Run on libraries built without sanitizers, which bring imports along.
set -eu
nm=$1
library=$2
shift 2

status=0
undefined=$("$nm" -D --undefined-only "$library")
imports=$(echo "$undefined" | awk '{ sub(/@.*/, "", $NF); print $NF }')
for symbol in $imports; do
  allowed=no
  for name; do
    if [ "$symbol" = "$name" ]; then allowed=yes; fi
  done
  if [ $allowed = no ]; then
    echo "$library imports $symbol; it may import only: $*" >&2
    status=1
  fi
done
exit $status
