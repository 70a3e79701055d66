#!/bin/sh
# list_constants.sh CC INCLUDE: every constant the public C headers define as a
# macro, one a line with its definition.
set -eu
LC_ALL=C
export LC_ALL
cc=$1
include=$2

printf '#include "morva/%s.h"\n' check_host host morva |
  "$cc" -std=c11 -E -dM -I"$include" -x c - |
  sed -n 's/^#define \(\(MORVA\|QZ\|LINK\|flag\)[A-Za-z0-9_]*\) \(..*\)$/\1 \3/p' |
  grep -Ev '^MORVA_(BEGIN_C|END_C|API|STATIC_ASSERT) ' | sort
