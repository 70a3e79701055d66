#!/bin/sh
# run.sh DOXYGEN VERSION OUTPUT [SETTING=VALUE...]: reads the public headers and
# writes the reference to OUTPUT, html unless the settings say otherwise. Fails
# when doxygen has anything to complain about.
set -eu
doxygen=$1
MORVA_VERSION=$2
mkdir -p "$3"
MORVA_OUTPUT=$(cd "$3" && pwd)
export MORVA_VERSION MORVA_OUTPUT
shift 3

cd "$(dirname "$0")/../.."
{
  cat docs/doxygen/Doxyfile
  for setting; do echo "$setting"; done
} >"$MORVA_OUTPUT/Doxyfile"
"$doxygen" "$MORVA_OUTPUT/Doxyfile"
