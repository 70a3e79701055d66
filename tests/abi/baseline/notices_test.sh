#!/bin/sh
# notices_test.sh CHANGES READELF ABIDW ABIDIFF SOURCE WORK: makes the changes in a
# copy of the tree under WORK, builds the library from it, and passes when the
# comparison with the baseline fails and names each of them.
set -eu
changes=$1
readelf=$2
abidw=$3
abidiff=$4
source=$5
work=$6
baseline=$source/tests/abi/baseline

# What is changed is copied, the rest is linked to.
rm -rf "$work"
mkdir -p "$work/tree"
for entry in "$source"/*; do
  case ${entry##*/} in
    include | src) cp -R "$entry" "$work/tree/" ;;
    *) ln -s "$entry" "$work/tree/" ;;
  esac
done
cd "$work/tree"

# edit FILE EXPRESSION: as sed, and it must change the file.
edit() {
  cp "$1" "$work/before"
  sed -i "$2" "$1"
  if cmp -s "$work/before" "$1"; then
    echo "the change '$2' does not apply to $1" >&2
    exit 1
  fi
}

case $changes in
  changed_types)
    # One keeps all offsets, so that no assertion of the headers fails; one moves
    # fields, the assertions gone; one is in a function and its slot.
    edit include/morva/parms.h 's/int32_t hashMethod;/uint32_t hashMethod;/'
    edit include/morva/parms.h 's/uint32_t fieldLength;/uint64_t fieldLength;/; /MORVA_LAYOUT_/d'
    for file in include/morva/operations.h include/morva/inst.h src/ops/sums.cpp; do
      edit $file 's/int32_t storeOffset/int64_t storeOffset/'
    done
    expected='MORVAParms::hashMethod fieldType.*offset.changed MORVASumKey MORVAInst::SumKey'
    ;;
  changed_symbols)
    edit src/morva.map 's/^ *MORVAHashSize;$/    MORVAExtra;/'
    edit include/morva/ext.h 's/^MORVA_API MORVAStatus qzextent/MORVA_API int MORVAExtra(void);\n&/'
    edit src/ext/version.cpp '$a int MORVAExtra(void) { return 1; }'
    expected='[[]D].*MORVAHashSize [[]A].*MORVAExtra'
    ;;
  *)
    echo "no such changes: $changes" >&2
    exit 2
    ;;
esac

sh "$baseline/build_with_debug_info.sh" "$work/tree" "$work/build" morva

if sh "$baseline/compare.sh" "$readelf" "$abidw" "$abidiff" "$baseline/morva.abi" \
  "$work/build/lib/libmorva.so" "$work/tree/include/morva" 2>"$work/report"; then
  echo "the $changes went unnoticed" >&2
  exit 1
fi
cat "$work/report"
for name in $expected; do
  if ! grep -q "$name" "$work/report"; then
    echo "the report does not name $name" >&2
    exit 1
  fi
done
