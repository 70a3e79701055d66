#!/bin/sh
# contents.sh DEBS LISTS VERSION HEADERS: each package holds the files of its list
# LISTS/<package>.files, with their modes, and nothing else. In a list, @VERSION@
# and @ARCH@ stand for themselves, and @HEADERS@ for a line per public header.
set -eu
LC_ALL=C
export LC_ALL
debs=$1
lists=$2
version=$3
headers=$4
arch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

(cd "$headers" && ls -- *.h *.hpp) | sed 's|^|-rw-r--r-- usr/include/morva/|' >"$work/headers"
status=0
for package in libmorva1 libmorva-dev morva-tools; do
  dpkg-deb -c "$debs/${package}"_*.deb >"$work/listing"
  if awk '$2 != "root/root"' "$work/listing" | grep .; then
    echo "$package: these files are not root's" >&2
    status=1
  fi
  # Directories are listed by mode alone.
  if awk '/^d/ && $1 != "drwxr-xr-x"' "$work/listing" | grep .; then
    echo "$package: these directories have the wrong mode" >&2
    status=1
  fi
  awk '!/^d/ { $2 = $3 = $4 = $5 = ""; print }' "$work/listing" |
    sed 's/  */ /g; s| \./| |' | sort >"$work/actual"
  sed -e '/^#/d' -e "s/@VERSION@/$version/; s/@ARCH@/$arch/g" \
    -e "/^@HEADERS@\$/{r $work/headers" -e 'd;}' "$lists/$package.files" | sort >"$work/expected"
  if ! cmp -s "$work/expected" "$work/actual"; then
    echo "$package does not hold what $package.files says:" >&2
    comm -23 "$work/expected" "$work/actual" | sed 's/^/  missing:    /' >&2
    comm -13 "$work/expected" "$work/actual" | sed 's/^/  unexpected: /' >&2
    status=1
  fi
done
exit $status
