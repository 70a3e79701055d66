#!/bin/sh
# load_printers.sh PREFIX LIBDIR VERSION: gdb that looks into the installation finds
# the printers by itself, with the library.
set -eu
prefix=$(realpath "$1")
library=$prefix/$2/libmorva.so.$3

said=$(gdb -nx -batch -iex 'set debuginfod enabled off' -iex "add-auto-load-safe-path $prefix" \
  -iex "add-auto-load-scripts-directory $prefix/share/gdb/auto-load" \
  -ex 'info pretty-printer' "$library" 2>&1)
echo "$said"
echo "$said" | grep -q "MORVAInst"
