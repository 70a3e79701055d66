#!/bin/sh
# filter.sh FILE: a header as doxygen is to read it.
here=$(dirname "$0")
sed -E -f "$here/filter.sed" "$1" | awk -f "$here/diagrams.awk"
