#!/bin/sh
# symbols_test.sh SYMBOLS PAGE: the page names every symbol of the list.
set -eu
symbols=$1
page=$2

status=0
names=$(awk '!/^#/ { print $2 }' "$symbols")
[ -n "$names" ] || { echo "no symbols in $symbols" >&2; exit 1; }
for name in $names; do
  if ! grep -qE "^\.[BI].*(^|[^A-Za-z0-9_])$name([^A-Za-z0-9_]|\$)" "$page"; then
    echo "$page does not name $name" >&2
    status=1
  fi
done
exit $status
