#!/bin/sh
# control.sh DEBS EXPECTED: the control fields of the packages are as expected.
# Of the libraries of other packages, only the names count: their versions
# depend on the machine. @VERSION@ is the package's own version.
set -eu
LC_ALL=C
export LC_ALL
debs=$1
expected=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for package in libmorva1 libmorva-dev morva-tools; do
  file=$(ls "$debs/${package}"_*.deb)
  version=$(dpkg-deb -f "$file" Version)
  echo "[$package]"
  for field in Package Source Section Priority Multi-Arch Maintainer Depends; do
    value=$(dpkg-deb -f "$file" "$field" | sed -E "s/ \(>= [^)]*\)//g; s/= $version\)/= @VERSION@)/g")
    echo "$field: $value"
  done
  # A summary, then an extended description.
  dpkg-deb -f "$file" Description | head -n 1 | sed 's/^/Summary: /'
  [ "$(dpkg-deb -f "$file" Description | wc -l)" -gt 4 ]
  [ "$(dpkg-deb -f "$file" Architecture)" = "$(dpkg --print-architecture)" ]
  echo "Control: $(dpkg-deb --ctrl-tarfile "$file" | tar -t | sed 's|^\./||' | grep . | sort | xargs)"
done | sed 's/  *$//' >"$work/actual"
diff -u "$expected" "$work/actual"
