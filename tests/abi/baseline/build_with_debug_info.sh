#!/bin/sh
# build_with_debug_info.sh SOURCE BUILD TARGET...: builds targets of the tree
# SOURCE in the directory BUILD, unoptimised and with debug information, as
# abidw and abidiff need it. What is shipped is built elsewhere and has none.
# CMAKE, CC, CXX and CMAKE_GENERATOR in the environment choose the tools.
set -eu
source=$1
build=$2
shift 2

mkdir -p "$build"
# Paths of the machine stay out of the debug information.
flags="-O0 -g -gdwarf-5 '-ffile-prefix-map=$source=.'"
if ! {
  "${CMAKE:-cmake}" -S "$source" -B "$build" -DCMAKE_BUILD_TYPE=None \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" -DMORVA_SANITIZE= \
    -DMORVA_BUILD_CLI=OFF -DMORVA_BUILD_EXAMPLES=OFF \
    -DMORVA_BUILD_TESTS=OFF -DMORVA_INSTALL=OFF &&
    "${CMAKE:-cmake}" --build "$build" --parallel 2 --target "$@"
} >"$build/log" 2>&1; then
  cat "$build/log" >&2
  exit 1
fi
