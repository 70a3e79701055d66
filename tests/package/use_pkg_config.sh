#!/bin/sh
# use_pkg_config.sh CC CONSUMER PREFIX LIBDIR VERSION WORK: builds and runs the
# C consumer with what pkg-config says, shared and static.
set -eu
cc=$1
consumer=$2
prefix=$3
libdir=$4
version=$5
work=$6

rm -rf "$work"
mkdir -p "$work"
PKG_CONFIG_LIBDIR=$prefix/$libdir/pkgconfig
# In a root of its own the flags are those of the system, and pkg-config would drop them.
PKG_CONFIG_ALLOW_SYSTEM_CFLAGS=1
PKG_CONFIG_ALLOW_SYSTEM_LIBS=1
export PKG_CONFIG_LIBDIR PKG_CONFIG_ALLOW_SYSTEM_CFLAGS PKG_CONFIG_ALLOW_SYSTEM_LIBS

# same_directory MODULE VARIABLE DIRECTORY; pkg-config quotes what it says.
same_directory() {
  eval "said=$(pkg-config --variable="$2" "$1")"
  [ "$(realpath "$said")" = "$(realpath "$3")" ] || { echo "$1: $2 is $said" >&2; exit 1; }
}
for module in morva qzhost; do
  pkg-config --exact-version="$version" --print-errors "$module"
  same_directory $module includedir "$prefix/include"
  same_directory $module libdir "$prefix/$libdir"
done

# build OUTPUT PKG-CONFIG-FLAGS COMPILE-FLAG...
build() {
  output=$1
  flags=$2
  shift 2
  eval "\"\$cc\" -std=c11 -Wall -Wextra -Wpedantic -Werror \"\$@\" -o \"\$work/\$output\" \
    \"\$consumer\" $flags \"-Wl,-rpath,\$prefix/\$libdir\""
}
build loading "$(pkg-config --cflags --libs qzhost)"
build linked "$(pkg-config --cflags --libs morva qzhost)" -DCONSUMER_LINKED
build linked_static "$(pkg-config --cflags morva qzhost) -Wl,-Bstatic \
  $(pkg-config --static --libs morva qzhost) -Wl,-Bdynamic" -DCONSUMER_LINKED
for program in loading linked linked_static; do
  "$work/$program"
done
if readelf -d "$work/linked_static" | grep -E 'lib(morva|qzhost)'; then
  echo "the static program needs a library of Morva" >&2
  exit 1
fi
