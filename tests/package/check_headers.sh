#!/bin/sh
# check_headers.sh INCLUDE COMPILER LANGUAGE STANDARD HEADER...: the compiler takes
# each header alone, and twice, without a warning.
set -eu
include=$1
compiler=$2
language=$3
standard=$4
shift 4

[ $# -gt 0 ] || { echo "no headers are named" >&2; exit 2; }
failed=0
for header; do
  printf '#include "%s"\n#include "%s"\n' "$header" "$header" |
    "$compiler" -x "$language" -std="$standard" -fsyntax-only -Wall -Wextra -Wpedantic -Werror \
      -I "$include" - || { echo "$header is not fit for $standard" >&2; failed=1; }
done
exit $failed
