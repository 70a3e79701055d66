#!/bin/sh
# build.sh CMAKE SOURCE DEBS [OPTION...]: builds the Debian packages into DEBS.
set -eu
cmake=$1
source=$2
debs=$3
shift 3

rm -rf "$debs"
"$cmake" -C "$source/packaging/debian.cmake" -S "$source" -B "$debs/build" "$@"
"$cmake" --build "$debs/build" --parallel 2
# What is packed must not depend on who packs it.
umask 077
cd "$debs/build"
"$(dirname "$cmake")/cpack" -B "$debs"
ls "$debs"/*.deb
