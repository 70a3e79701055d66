#!/bin/sh
# install.sh CMAKE BUILD PREFIX: installs the build as its user would.
set -eu
rm -rf "$3"
"$1" --install "$2" --prefix "$3"
