#!/bin/sh
# check_refused.sh COMPILER INCLUDE FILE [CASE MESSAGE]
# Without a case, FILE must compile; with one, it must not, and what the compiler
# says must match the regular expression MESSAGE.
set -u
compiler=$1 include=$2 file=$3

compile() {
  LC_ALL=C "$compiler" -std=c++20 -fsyntax-only -Wall -Wextra -Werror -Wno-unused-variable \
    -Wno-unused-function -I"$include" "$@" "$file" 2>&1
}

if [ $# -eq 3 ]; then
  compile
  exit
fi
case=$4 message=$5
if said=$(compile "-D$case"); then
  echo "$case compiles" >&2
  exit 1
fi
if ! echo "$said" | grep -Eq -e "$message"; then
  echo "the compiler does not say \"$message\", but:" >&2
  echo "$said" >&2
  exit 1
fi
