#!/bin/sh
# describe.sh ABIDW LIBRARY HEADERS: writes the binary interface of LIBRARY,
# built with debug information, to the standard output: exported symbols, and
# the public types they lead to. Nothing in it depends on the machine.
set -eu
exec "$1" --headers-dir "$3" --drop-private-types --exported-interfaces-only --no-corpus-path \
  --no-comp-dir-path --no-show-locs --no-architecture --no-elf-needed --type-id-style hash "$2"
