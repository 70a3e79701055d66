#!/bin/sh
# use_project.sh CMAKE PROJECT BUILD [OPTION...]: configures the foreign project
# from nothing, builds it and runs its tests.
set -eu
cmake=$1
project=$2
build=$3
shift 3

rm -rf "$build"
"$cmake" -S "$project" -B "$build" "$@"
"$cmake" --build "$build"
cd "$build"
# A project whose tests are lost does not pass.
"$(dirname "$cmake")/ctest" --output-on-failure --no-tests=error
